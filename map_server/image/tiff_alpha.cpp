#include "map_server/image/tiff_alpha.h"

#include <algorithm>
#include <array>

namespace vmp {

namespace {

// table[alpha * 256 + sample], so that no pixel needs a division.
using UnpremultiplyTable = std::array<uint8_t, 256 * 256>;

const UnpremultiplyTable& Table() {
  static const UnpremultiplyTable table = [] {
    UnpremultiplyTable t{};
    for (unsigned alpha = 1; alpha < 256; ++alpha) {
      for (unsigned sample = 0; sample < 256; ++sample) {
        t[alpha * 256 + sample] = static_cast<uint8_t>(std::min(255u, sample * 255u / alpha));
      }
    }
    return t;
  }();
  return table;
}

}  // namespace

void UnpremultiplyRgba(uint8_t* pixels, size_t pixel_count) {
  const UnpremultiplyTable& table = Table();
  for (size_t i = 0; i < pixel_count; ++i, pixels += 4) {
    const unsigned alpha = pixels[3];
    if (alpha == 0 || alpha == 255) continue;
    const uint8_t* row = table.data() + alpha * 256;
    pixels[0] = row[pixels[0]];
    pixels[1] = row[pixels[1]];
    pixels[2] = row[pixels[2]];
  }
}

}  // namespace vmp
