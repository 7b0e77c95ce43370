// Nearest-pixel sampling of a layer's loaded image tiles at a lat/lon.
//
// A tile's bounds are the outer edges of its pixels: column c covers
// longitudes min_lon + c * w .. min_lon + (c + 1) * w with w the bounds'
// width over the image file's width (times the scale of a tile decoded at a
// reduced size), rows run down from max_lat. Where tiles
// overlap, the first in the given order wins. A lookup does not search all
// tiles: the union of the tiles' bounds is divided into buckets, each
// holding the (few) tiles that overlap it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/image/image_record.h"

namespace vmp {

// One loaded image tile of a layer: its pixels and geographic bounds.
struct ImageTileRef {
  const LoadedImage* image = nullptr;
  Box bounds;               // degrees; pixel-edge extent of the image
  bool has_errors = false;  // dead or read only in part: never sampled
};

// A sampled colour: gray images give r = g = b, images without alpha a = 255.
struct SampledColour {
  uint8_t r, g, b, a;
};

// Elevation value of "no data".
inline constexpr double kNoElevation = -10000.0;

class TileSampler {
 public:
  enum class Kind { kColour, kElevation };

  // Builds the lookup over the tiles of `kind` (colour tiles have 8-bit
  // pixels, elevation tiles 16-bit samples). Tiles with errors, without
  // pixels, or with empty or non-finite bounds are left out; returns how
  // many were left out for their errors. Reuses its arrays.
  size_t Build(std::span<const ImageTileRef> tiles, Kind kind);
  bool empty() const { return tiles_.empty(); }

  bool Sample(double lat, double lon, SampledColour& out) const {
    const Tile* t = Find(lat, lon);
    if (t == nullptr) return false;
    const uint8_t* p = PixelOf(*t, lat, lon);
    switch (t->samples) {
      case 1: out = {p[0], p[0], p[0], 255}; break;
      case 2: out = {p[0], p[0], p[0], p[1]}; break;
      case 3: out = {p[0], p[1], p[2], 255}; break;
      default: out = {p[0], p[1], p[2], p[3]}; break;
    }
    return true;
  }

  // The elevation sample at the point; false where no tile covers it or the
  // sample is the signed no-data value -32768.
  bool SampleElevation(double lat, double lon, double& out) const;

 private:
  struct Tile {
    double min_lon, max_lon, min_lat, max_lat;
    double columns_per_degree, rows_per_degree;
    int64_t width, height;
    int64_t first_row;
    int samples;
    const uint8_t* pixels;
    const uint16_t* elevation;
    bool signed_elevation;
  };

  static const uint8_t* PixelOf(const Tile& t, double lat, double lon) {
    return t.pixels + (t.width * Row(t, lat) + Column(t, lon)) * t.samples;
  }
  static int64_t Column(const Tile& t, double lon) {
    const int64_t c = static_cast<int64_t>((lon - t.min_lon) * t.columns_per_degree);
    return c < t.width ? c : t.width - 1;
  }
  // A tile decoded in part holds rows first_row onwards; rows beyond its
  // band (which the map does not show) take the nearest row held.
  static int64_t Row(const Tile& t, double lat) {
    const int64_t r = static_cast<int64_t>((t.max_lat - lat) * t.rows_per_degree) - t.first_row;
    return r < 0 ? 0 : (r < t.height ? r : t.height - 1);
  }

  // The first tile containing the point; the longitude is also tried +-360
  // (and updated) when it lies outside the tiles' union.
  const Tile* Find(double lat, double& lon) const {
    // Neighbouring pixels fall mostly in the same tile; without overlaps the
    // tile that holds the point is the only one.
    if (last_ != nullptr && lon >= last_->min_lon && lon <= last_->max_lon && lat >= last_->min_lat &&
        lat <= last_->max_lat) {
      return last_;
    }
    if (tiles_.empty() || !(lat >= min_lat_ && lat <= max_lat_)) return nullptr;
    if (!(lon >= min_lon_ && lon <= max_lon_)) {
      if (lon + 360.0 >= min_lon_ && lon + 360.0 <= max_lon_)
        lon += 360.0;
      else if (lon - 360.0 >= min_lon_ && lon - 360.0 <= max_lon_)
        lon -= 360.0;
      else
        return nullptr;
    }
    int64_t bx = static_cast<int64_t>((lon - min_lon_) * buckets_per_lon_);
    int64_t by = static_cast<int64_t>((lat - min_lat_) * buckets_per_lat_);
    if (bx >= buckets_x_) bx = buckets_x_ - 1;
    if (by >= buckets_y_) by = buckets_y_ - 1;
    const size_t bucket = static_cast<size_t>(by * buckets_x_ + bx);
    for (uint32_t i = bucket_start_[bucket]; i < bucket_start_[bucket + 1]; ++i) {
      const Tile& t = tiles_[bucket_tiles_[i]];
      if (lon >= t.min_lon && lon <= t.max_lon && lat >= t.min_lat && lat <= t.max_lat) {
        if (!overlapping_) last_ = &t;
        return &t;
      }
    }
    return nullptr;
  }

  std::vector<Tile> tiles_;
  std::vector<uint32_t> bucket_start_;  // buckets_x_ * buckets_y_ + 1 offsets into bucket_tiles_
  std::vector<uint32_t> bucket_tiles_;  // tile indices, in tile order within each bucket
  double min_lon_ = 0, max_lon_ = 0, min_lat_ = 0, max_lat_ = 0;
  double buckets_per_lon_ = 0, buckets_per_lat_ = 0;
  int64_t buckets_x_ = 1, buckets_y_ = 1;
  // Set when two tiles overlap: the first in order must win, so no tile is
  // remembered between lookups.
  bool overlapping_ = false;
  mutable const Tile* last_ = nullptr;
};

// The elevation at a point from a layer's 16-bit elevation tiles, or none
// (the answer then reports kNoElevation).
std::optional<double> ElevationAt(std::span<const ImageTileRef> tiles, double lat, double lon);

}  // namespace vmp
