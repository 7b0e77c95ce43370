// The in-memory form of a loaded image file (a raster tile or a tiler
// input): 8 bits a sample with 1, 3 or 4 samples a pixel (gray, RGB, RGBA),
// or 16-bit elevation samples, one a pixel. Rows from the top, no padding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "map_server/util/large_buffer.h"

namespace vmp {

// Format codes of image files (a layer's format code, or 0 for "from the
// file name's ending").
inline constexpr int kImageFormatFromName = 0;
inline constexpr int kJpegFormat = 1;
inline constexpr int kTiffFormat = 2;
inline constexpr int kPngFormat = 3;

// A buffer that only grows; new space is left uninitialised because the
// decoders overwrite every element.
template <typename T>
class GrowBuffer {
 public:
  T* data() { return data_.get(); }
  const T* data() const { return data_.get(); }
  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  T& operator[](size_t i) { return data_[i]; }
  const T& operator[](size_t i) const { return data_[i]; }
  // May throw std::bad_alloc.
  void Resize(size_t size) {
    if (size > capacity_) {
      data_.reset();
      capacity_ = 0;
      data_ = AllocateLarge<T>(size);
      capacity_ = size;
    }
    size_ = size;
  }

 private:
  LargeArray<T> data_;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

struct LoadedImage {
  int format = kImageFormatFromName;  // kJpegFormat, kTiffFormat or kPngFormat once loaded
  int64_t width = 0;
  int64_t height = 0;
  int samples_per_pixel = 0;  // 1 gray or elevation, 3 RGB, 4 RGBA
  bool has_alpha = false;     // samples_per_pixel >= 4
  // Colour images: width * height * samples_per_pixel bytes.
  GrowBuffer<uint8_t> pixels;
  // Elevation images: width * height 16-bit samples (native byte order);
  // signed_elevation tells whether they are to be read as int16.
  bool elevation = false;
  bool signed_elevation = false;
  GrowBuffer<uint16_t> elevation_samples;
  // Geographic bounds of a grid tile (set by the tile loader).
  double min_lat = 0, max_lat = 0, min_lon = 0, max_lon = 0;
  // A JPEG decoded at a reduced size: 1/scale of the file's pixels a side
  // (pixel i covers the file's pixels i * scale .. i * scale + scale - 1;
  // the last column and row may cover fewer). source_width and
  // source_height are the file's own size; 0 means width and height.
  // A JPEG decoded in part holds the decoded rows first_row ..
  // first_row + height - 1 only.
  int scale = 1;
  int64_t first_row = 0;
  int64_t source_width = 0;
  int64_t source_height = 0;

  int64_t SourceWidth() const { return source_width > 0 ? source_width : width; }
  int64_t SourceHeight() const { return source_height > 0 ? source_height : height; }
};

}  // namespace vmp
