// Reading raster tiles (colour images and elevation grids) from JPEG, TIFF
// and PNG files.
#pragma once

#include <string_view>

#include "map_server/image/image_record.h"

namespace vmp {

// Reads the file at `path` into `image`. `format` is a format code
// (kJpegFormat, kTiffFormat, kPngFormat), or kImageFormatFromName to take it
// from the file name's ending (".jpg", ".tif", ".png", in any letter case).
// Elevation data must be a 16-bit one-sample TIFF. With `tolerate_unknown`
// a file of unknown ending fails without a message. Every other failure is
// reported (with the path) and returns false; `image` is then unusable.
bool LoadImageFile(std::string_view path, int format, bool elevation, LoadedImage& image,
                   bool tolerate_unknown = false);

// The format code of a file name's ending, or kImageFormatFromName.
int ImageFormatFromName(std::string_view path);

}  // namespace vmp
