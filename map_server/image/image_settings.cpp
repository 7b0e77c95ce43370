#include "map_server/image/image_settings.h"

#include "toolkit/environment.h"

namespace vmp {

ImageFileSettings& ImageFiles() {
  static ImageFileSettings settings;
  return settings;
}

bool UnmultiplyTiffAlpha() {
  ImageFileSettings& settings = ImageFiles();
  if (!settings.unmultiply_tiff_alpha) {
    settings.unmultiply_tiff_alpha = kav::GetEnvSwitch("VMP_UNMULTIPLY_TIFF_ALPHA", true);
  }
  return *settings.unmultiply_tiff_alpha;
}

}  // namespace vmp
