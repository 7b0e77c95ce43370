// The decoders behind LoadImageFile. Each reads an already opened file into
// `image` (format, size, samples and pixels) and reports its own failures.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "map_server/image/image_record.h"

namespace vmp {

struct ImageDecodeHint;

// Decodes at the reduced size and the rows the hint allows (all of it at
// full size without one).
bool ReadJpegFile(std::FILE* file, const std::string& path, LoadedImage& image,
                  const ImageDecodeHint& hint);
bool ReadPngFile(std::FILE* file, const std::string& path, LoadedImage& image);
bool ReadTiffFile(std::FILE* file, const std::string& path, bool elevation, LoadedImage& image);

// Sizes `image` for width x height pixels of `samples` samples of
// `sample_bytes` bytes each, within the process-wide limit. Reports "Image
// too large" or "Not enough memory for the image" with the path and returns
// false when that is not possible.
bool AllocateLoadedImage(const std::string& path, uint64_t width, uint64_t height, int samples,
                         int sample_bytes, LoadedImage& image);

}  // namespace vmp
