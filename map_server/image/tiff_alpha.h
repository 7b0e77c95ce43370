// Undoing libtiff's premultiplied alpha on decoded RGBA pixels.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vmp {

// For every RGBA pixel whose alpha lies in 1..254, each colour sample
// becomes sample * 255 / alpha (integer division, at most 255); alpha 0 and
// 255 leave the pixel as it is.
void UnpremultiplyRgba(uint8_t* pixels, size_t pixel_count);

}  // namespace vmp
