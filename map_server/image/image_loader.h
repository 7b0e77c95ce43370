// Reading raster tiles (colour images and elevation grids) from JPEG, TIFF
// and PNG files.
#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

#include "map_server/image/image_record.h"

namespace vmp {

// What the map needs of a JPEG tile covering min_lon..max_lon x
// min_lat..max_lat degrees:
// - max_degrees_per_pixel: the tile is decoded at 1/2, 1/4 or 1/8 of its
//   size (libjpeg's scaled decoding) when the reduced image still has at
//   least one pixel every max_degrees_per_pixel degrees in both directions;
//   0 decodes at full size, exactly as without a hint;
// - band_min_lat..band_max_lat: only the rows that hold this band of
//   latitudes are decoded (decoding stops after the last; the rows above
//   the first are skipped), with a row to spare on each side.
// Tiles without a usable extent are decoded whole at full size.
struct ImageDecodeHint {
  double min_lon = 0.0, max_lon = 0.0, min_lat = 0.0, max_lat = 0.0;
  double max_degrees_per_pixel = 0.0;
  double band_min_lat = -std::numeric_limits<double>::infinity();
  double band_max_lat = std::numeric_limits<double>::infinity();
};

// The largest of 1, 2, 4, 8 that a width x height image can be reduced by
// under `hint`.
int DecodeScaleFor(const ImageDecodeHint& hint, int64_t width, int64_t height);

// The rows [first, end) of the image decoded at 1/scale (of
// ceil(height / scale) rows) that hold the hint's band.
struct DecodeRows {
  int64_t first = 0;
  int64_t end = 0;
};
DecodeRows DecodeRowsFor(const ImageDecodeHint& hint, int64_t height, int scale);

// Reads the file at `path` into `image`. `format` is a format code
// (kJpegFormat, kTiffFormat, kPngFormat), or kImageFormatFromName to take it
// from the file name's ending (".jpg", ".tif", ".png", in any letter case).
// Elevation data must be a 16-bit one-sample TIFF. With `tolerate_unknown`
// a file of unknown ending fails without a message. Every other failure is
// reported (with the path) and returns false; `image` is then unusable.
// With `hint`, a JPEG may be decoded at a reduced size and in part (scale,
// first_row and source_width / source_height then say how).
bool LoadImageFile(std::string_view path, int format, bool elevation, LoadedImage& image,
                   bool tolerate_unknown = false, const ImageDecodeHint& hint = {});

// The format code of a file name's ending, or kImageFormatFromName.
int ImageFormatFromName(std::string_view path);

}  // namespace vmp
