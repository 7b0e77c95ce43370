// The map image: 8-bit RGB, 3 bytes a pixel, rows from the top, no row
// padding. Its size is the drawing end of the geometry (the whole image, or
// up to the end of the clip area in the orthographic projection, or 1 x 1
// after a failed setup), so writers always use the image's own size.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "map_server/util/large_buffer.h"

namespace vmp {

struct MapGeometry;

class MapImage {
 public:
  int64_t width() const { return width_; }
  int64_t height() const { return height_; }
  uint8_t* pixels() { return buffer_.get(); }
  const uint8_t* pixels() const { return buffer_.get(); }
  size_t size_bytes() const { return static_cast<size_t>(width_ * height_ * 3); }
  size_t capacity() const { return capacity_; }
  // Cleared while the image is being filled with the background.
  bool ready() const { return ready_; }
  void set_ready(bool ready) { ready_ = ready; }

  // Gives the image a new size. The buffer only grows: it is reallocated
  // (contents undefined) when the new size exceeds the capacity. Both sides
  // must be positive and width * height * 3 must not overflow (AllocateMapImage
  // checks that). May throw std::bad_alloc.
  void Resize(int64_t width, int64_t height);

 private:
  LargeArray<uint8_t> buffer_;
  size_t capacity_ = 0;
  int64_t width_ = 0;
  int64_t height_ = 0;
  bool ready_ = false;
};

// Sizes `image` to the geometry's drawing end and fills it with the
// background colour (with a clip area: black, and the background only from
// the clip origin to the drawing end). Returns false after reporting when
// the size is not positive or overflows, or memory runs out.
bool AllocateMapImage(const MapGeometry& geometry, MapImage& image);

}  // namespace vmp
