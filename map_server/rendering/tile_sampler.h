// Sampling of a layer's loaded image tiles at a lat/lon: the nearest pixel,
// or bilinear between the four pixels around the point.
//
// A tile's bounds are the outer edges of its pixels: column c covers
// longitudes min_lon + c * w .. min_lon + (c + 1) * w with w the bounds'
// width over the image file's width (times the scale of a tile decoded at a
// reduced size), rows run down from max_lat; a pixel's value sits at its
// centre. A tile decoded in part holds a band of its rows; rows beyond the
// band (which the map does not show) take the nearest row held. Where tiles overlap, the first in the given order
// wins. A lookup does not search all tiles: the union of the tiles' bounds
// is divided into buckets, each holding the (few) tiles that overlap it.
//
// Bilinear sampling weighs the four pixels whose centres surround the
// point. A pixel beyond the tile's edge is taken from the tile that holds
// its centre, so there is no seam between loaded neighbours; where no tile
// holds it, the tile's edge pixel stands in. The four are weighed by their
// alpha (a pixel of alpha 0 lends no colour).
#pragma once

#include <algorithm>
#include <cmath>
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
    out = ColourAt(*t, Column(*t, lon), Row(*t, lat));
    return true;
  }

  // The elevation sample at the point; false where no tile covers it or the
  // sample is the signed no-data value -32768.
  bool SampleElevation(double lat, double lon, double& out) const;

  struct Tile {
    double min_lon, max_lon, min_lat, max_lat;
    double columns_per_degree, rows_per_degree;
    int64_t width, height;  // pixels held
    int64_t first_row;      // the tile's row held first (a tile decoded in part)
    int64_t full_height;    // rows of the whole tile
    int samples;
    const uint8_t* pixels;
    const uint16_t* elevation;
    bool signed_elevation;
  };

  // The first tile containing the point (the longitude also tried +-360,
  // and updated), or null; what Sample looks in.
  const Tile* FindTile(double lat, double& lon) const { return Find(lat, lon); }
  // Whether tiles overlap (then the first in order wins, and a point inside
  // one tile may still belong to an earlier one).
  bool overlapping() const { return overlapping_; }

  static SampledColour ColourAt(const Tile& t, int64_t column, int64_t row) {
    const uint8_t* p = t.pixels + (t.width * row + column) * t.samples;
    switch (t.samples) {
      case 1: return {p[0], p[0], p[0], 255};
      case 2: return {p[0], p[0], p[0], p[1]};
      case 3: return {p[0], p[1], p[2], 255};
      default: return {p[0], p[1], p[2], p[3]};
    }
  }
  static uint16_t RawElevationAt(const Tile& t, int64_t column, int64_t row) {
    return t.elevation[t.width * row + column];
  }

  // The pixel nearest to the point: fetch(tile, column, row) gives its
  // colour. False where no tile covers the point.
  template <typename Fetch>
  bool SampleNearest(double lat, double lon, const Fetch& fetch, SampledColour& out) const {
    const Tile* t = Find(lat, lon);
    if (t == nullptr) return false;
    out = fetch(*t, Column(*t, lon), Row(*t, lat));
    return true;
  }

  // Bilinear between the four pixels around the point, each fetched as above
  // (rows are the tile's, the fetch gets the row held).
  template <typename Fetch>
  bool SampleBilinear(double lat, double lon, const Fetch& fetch, SampledColour& out) const {
    const Tile* t = Find(lat, lon);
    if (t == nullptr) return false;
    const double u = (lon - t->min_lon) * t->columns_per_degree - 0.5;
    const double v = (t->max_lat - lat) * t->rows_per_degree - 0.5;
    const double fc = std::floor(u), fr = std::floor(v);
    const double du = u - fc, dv = v - fr;
    const int64_t c0 = static_cast<int64_t>(fc), r0 = static_cast<int64_t>(fr);
    const double w[4] = {(1 - du) * (1 - dv), du * (1 - dv), (1 - du) * dv, du * dv};
    SampledColour s[4];
    if (c0 >= 0 && r0 >= 0 && c0 + 1 < t->width && r0 + 1 < t->full_height) {
      const int64_t top = HeldRow(*t, r0), bottom = HeldRow(*t, r0 + 1);
      s[0] = fetch(*t, c0, top);
      s[1] = fetch(*t, c0 + 1, top);
      s[2] = fetch(*t, c0, bottom);
      s[3] = fetch(*t, c0 + 1, bottom);
    } else {
      for (int k = 0; k < 4; ++k) {
        const int64_t c = c0 + (k & 1), row = r0 + (k >> 1);
        if (c >= 0 && c < t->width && row >= 0 && row < t->full_height) {
          s[k] = fetch(*t, c, HeldRow(*t, row));
        } else {
          s[k] = w[k] == 0.0 ? SampledColour{0, 0, 0, 0} : Neighbour(*t, c, row, fetch);
        }
      }
    }
    if ((s[0].a & s[1].a & s[2].a & s[3].a) == 255) {
      // All opaque: plain weights, in 1/256 steps on integers.
      const int32_t wu = static_cast<int32_t>(du * 256.0 + 0.5), wv = static_cast<int32_t>(dv * 256.0 + 0.5);
      auto mix = [wu, wv](int32_t a, int32_t b, int32_t c, int32_t d) {
        const int32_t top = a * (256 - wu) + b * wu, bottom = c * (256 - wu) + d * wu;
        return static_cast<uint8_t>((top * (256 - wv) + bottom * wv + 32768) >> 16);
      };
      out = {mix(s[0].r, s[1].r, s[2].r, s[3].r), mix(s[0].g, s[1].g, s[2].g, s[3].g),
             mix(s[0].b, s[1].b, s[2].b, s[3].b), 255};
      return true;
    }
    double a = 0, r = 0, g = 0, b = 0;
    for (int k = 0; k < 4; ++k) {
      const double wa = w[k] * s[k].a;
      a += wa;
      r += wa * s[k].r;
      g += wa * s[k].g;
      b += wa * s[k].b;
    }
    if (!(a > 0.0)) {
      out = {0, 0, 0, 0};
      return true;
    }
    out = {static_cast<uint8_t>(r / a + 0.5), static_cast<uint8_t>(g / a + 0.5),
           static_cast<uint8_t>(b / a + 0.5), static_cast<uint8_t>(a + 0.5)};
    return true;
  }

 private:
  // Pixel (c, row) of `t`'s grid lying beyond its edge: from the tile
  // holding its centre, else `t`'s nearest edge pixel.
  template <typename Fetch>
  SampledColour Neighbour(const Tile& t, int64_t c, int64_t row, const Fetch& fetch) const {
    double lon = t.min_lon + (static_cast<double>(c) + 0.5) / t.columns_per_degree;
    const double lat = t.max_lat - (static_cast<double>(row) + 0.5) / t.rows_per_degree;
    const Tile* n = Find(lat, lon);
    if (n != nullptr && n != &t) return fetch(*n, Column(*n, lon), Row(*n, lat));
    return fetch(t, std::clamp<int64_t>(c, 0, t.width - 1), HeldRow(t, row));
  }

  // The row held for row r of the whole tile: the nearest one of the band.
  static int64_t HeldRow(const Tile& t, int64_t r) {
    r -= t.first_row;
    return r < 0 ? 0 : (r < t.height ? r : t.height - 1);
  }


 public:
  // The column and the row held of the pixel of `t` under a point inside it.
  static int64_t Column(const Tile& t, double lon) {
    const int64_t c = static_cast<int64_t>((lon - t.min_lon) * t.columns_per_degree);
    return c < t.width ? c : t.width - 1;
  }
  // The row held for a latitude (see HeldRow).
  static int64_t Row(const Tile& t, double lat) {
    return HeldRow(t, static_cast<int64_t>((t.max_lat - lat) * t.rows_per_degree));
  }


 private:
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
