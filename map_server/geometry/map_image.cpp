#include "map_server/geometry/map_image.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "map_server/geometry/map_geometry.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Fills columns [x0, x1) of rows [y0, y1) with one colour. The first row is
// written pixel by pixel, the others are copies of it.
void FillRect(MapImage& image, int64_t x0, int64_t y0, int64_t x1, int64_t y1,
              const uint8_t rgb[3]) {
  if (x0 >= x1 || y0 >= y1) return;
  const size_t stride = static_cast<size_t>(image.width()) * 3;
  const size_t run = static_cast<size_t>(x1 - x0) * 3;
  uint8_t* first = image.pixels() + static_cast<size_t>(y0) * stride + static_cast<size_t>(x0) * 3;
  if (rgb[0] == rgb[1] && rgb[1] == rgb[2]) {
    for (int64_t y = y0; y < y1; ++y) std::memset(first + (y - y0) * stride, rgb[0], run);
    return;
  }
  for (size_t i = 0; i < run; i += 3) {
    first[i] = rgb[0];
    first[i + 1] = rgb[1];
    first[i + 2] = rgb[2];
  }
  for (int64_t y = y0 + 1; y < y1; ++y) std::memcpy(first + (y - y0) * stride, first, run);
}

}  // namespace

void MapImage::Resize(int64_t width, int64_t height) {
  const size_t needed = static_cast<size_t>(width) * static_cast<size_t>(height) * 3;
  if (needed > capacity_) {
    buffer_.reset();  // release the old buffer before asking for the new one
    capacity_ = 0;
    buffer_ = AllocateLarge<uint8_t>(needed);
    capacity_ = needed;
  }
  width_ = width;
  height_ = height;
}

bool AllocateMapImage(const MapGeometry& g, MapImage& image) {
  const int64_t width = g.end_x;
  const int64_t height = g.end_y;
  int64_t bytes = 0;
  const bool overflow = __builtin_mul_overflow(height, width, &bytes) ||
                        __builtin_mul_overflow(bytes, int64_t{3}, &bytes);
  if (overflow || bytes <= 0 || width <= 0 || height <= 0) {
    const double size = overflow ? static_cast<double>(height) * static_cast<double>(width) * 3.0
                                 : static_cast<double>(bytes);
    ReportNumber(kError, "Overflow calculating image size.", size);
    return false;
  }
  try {
    image.Resize(width, height);
  } catch (const std::bad_alloc&) {
    ReportNumber(kError, "Not enough memory for the map image", static_cast<double>(bytes));
    return false;
  }

  image.set_ready(false);
  if (g.clip_area) {
    std::memset(image.pixels(), 0, image.size_bytes());
    FillRect(image, std::max<int64_t>(g.clip_min_x, 0), std::max<int64_t>(g.clip_min_y, 0), width,
             height, g.background);
  } else {
    FillRect(image, 0, 0, width, height, g.background);
  }
  image.set_ready(true);
  return true;
}

}  // namespace vmp
