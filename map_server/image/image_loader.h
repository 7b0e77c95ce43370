// Reading raster tiles (colour images and elevation grids) from JPEG, TIFF
// and PNG files.
#pragma once

#include <string_view>

#include "map_server/image/image_record.h"

namespace vmp {

// How coarse a decoded tile may be. A tile covering lon_span x lat_span
// degrees is decoded at 1/2, 1/4 or 1/8 of its size (libjpeg's scaled
// decoding; JPEG only) when the reduced image still has at least one pixel
// every max_degrees_per_pixel degrees in both directions. 0 (the default)
// decodes at full size, exactly as without a hint.
struct DecodeScaleHint {
  double lon_span = 0.0;
  double lat_span = 0.0;
  double max_degrees_per_pixel = 0.0;
};

// The largest of 1, 2, 4, 8 that a width x height image can be reduced by
// under `hint`.
int DecodeScaleFor(const DecodeScaleHint& hint, int64_t width, int64_t height);

// Reads the file at `path` into `image`. `format` is a format code
// (kJpegFormat, kTiffFormat, kPngFormat), or kImageFormatFromName to take it
// from the file name's ending (".jpg", ".tif", ".png", in any letter case).
// Elevation data must be a 16-bit one-sample TIFF. With `tolerate_unknown`
// a file of unknown ending fails without a message. Every other failure is
// reported (with the path) and returns false; `image` is then unusable.
// With `hint`, a JPEG may be decoded at a reduced size (scale and
// source_width / source_height then say how).
bool LoadImageFile(std::string_view path, int format, bool elevation, LoadedImage& image,
                   bool tolerate_unknown = false, const DecodeScaleHint& hint = {});

// The format code of a file name's ending, or kImageFormatFromName.
int ImageFormatFromName(std::string_view path);

}  // namespace vmp
