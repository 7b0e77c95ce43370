// Process-wide settings of image file reading and writing.
#pragma once

#include <cstdint>
#include <optional>

namespace vmp {

struct ImageFileSettings {
  // Whether 4-sample TIFF colours are un-premultiplied. Fixed the first time
  // it is needed (UnmultiplyTiffAlpha) from VMP_UNMULTIPLY_TIFF_ALPHA; an
  // unset variable or a value other than "true"/"false" leaves it on.
  // Tests set it back to nullopt to make the next load read the variable
  // again.
  std::optional<bool> unmultiply_tiff_alpha;
  // Route libtiff's process-wide warnings through the message log (shown
  // at verbosity 1 and above) instead of libtiff's own printing. The handler
  // is installed once, on the first TIFF use.
  bool own_tiff_warning_handler = true;
  bool tiff_warning_handler_installed = false;
  // Largest decoded image accepted, in bytes: a file's header may claim any
  // size, and the buffer is allocated from it.
  int64_t max_image_bytes = int64_t{4} << 30;
};

ImageFileSettings& ImageFiles();

// The un-premultiply switch, fixed on first use.
bool UnmultiplyTiffAlpha();

}  // namespace vmp
