// Writing the map image as a baseline JPEG.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace vmp {

class MapImage;

// Writes width x height RGB pixels (3 bytes a pixel, rows from the top) as a
// baseline JPEG of quality 85: to `stream` when given (it is flushed, not
// closed), else to the file `path`. Returns false after reporting a failure.
bool WriteMapJpeg(std::FILE* stream, const std::string& path, const uint8_t* pixels, int64_t width,
                  int64_t height);

// Writes the map image with WriteMapJpeg; at verbosity -2 and below logs the
// time it took.
bool SaveMapImage(std::FILE* stream, const std::string& path, const MapImage& image);

}  // namespace vmp
