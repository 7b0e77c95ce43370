// Writing tiles and images as TIFF (deflate-compressed, one row a strip).
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace vmp {

// `kind` of VmpWriteTiff: 16-bit one-sample elevation data.
inline constexpr int kTiffElevationKind = 1;

// Writes width x height pixels to the file `path`: elevation (kind 1, one
// native-order uint16 a pixel), RGBA with unassociated alpha (alpha true, 4
// bytes a pixel) or RGB (3 bytes a pixel). A caller's `stream` is refused:
// TIFF output goes to named files only. Returns false after reporting.
// `signed_samples` marks elevation samples as signed 16-bit (SampleFormat
// 2), so that tiles cut from a signed grid read back signed.
bool VmpWriteTiff(std::FILE* stream, const std::string& path, const void* pixels, int64_t width,
                  int64_t height, int kind, bool alpha, bool signed_samples = false);

}  // namespace vmp
