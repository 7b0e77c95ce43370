#include "map_server/rendering/tile_sampler.h"

#include <algorithm>
#include <cmath>

namespace vmp {

namespace {

constexpr int64_t kMaxBucketsPerSide = 256;

bool UsableBounds(const Box& b) {
  return std::isfinite(b.min_lon) && std::isfinite(b.max_lon) && std::isfinite(b.min_lat) &&
         std::isfinite(b.max_lat) && b.max_lon > b.min_lon && b.max_lat > b.min_lat;
}

}  // namespace

size_t TileSampler::Build(std::span<const ImageTileRef> tiles, Kind kind) {
  tiles_.clear();
  last_ = nullptr;
  overlapping_ = false;
  bucket_start_.clear();
  bucket_tiles_.clear();
  size_t with_errors = 0;
  for (const ImageTileRef& ref : tiles) {
    if (ref.has_errors) {
      ++with_errors;
      continue;
    }
    const LoadedImage* image = ref.image;
    if (image == nullptr || image->width <= 0 || image->height <= 0 || !UsableBounds(ref.bounds)) continue;
    const size_t count = static_cast<size_t>(image->width * image->height);
    Tile t{};
    if (kind == Kind::kColour) {
      if (image->elevation || image->samples_per_pixel < 1 ||
          image->pixels.size() < count * static_cast<size_t>(image->samples_per_pixel)) {
        continue;
      }
      t.pixels = image->pixels.data();
      t.samples = image->samples_per_pixel;
    } else {
      if (!image->elevation || image->elevation_samples.size() < count) continue;
      t.elevation = image->elevation_samples.data();
      t.signed_elevation = image->signed_elevation;
      t.samples = 1;
    }
    const Box& b = ref.bounds;
    t.min_lon = b.min_lon;
    t.max_lon = b.max_lon;
    t.min_lat = b.min_lat;
    t.max_lat = b.max_lat;
    t.width = image->width;
    t.height = image->height;
    t.first_row = image->first_row;
    const int64_t scale_rows = image->scale > 1 ? image->scale : 1;
    t.full_height = std::max(image->height, (image->SourceHeight() + scale_rows - 1) / scale_rows);
    // A reduced decoding keeps the file's pixel grid: pixel i covers the
    // file's pixels i * scale onwards.
    const double scale = image->scale > 1 ? image->scale : 1.0;
    t.columns_per_degree = static_cast<double>(image->SourceWidth()) / ((b.max_lon - b.min_lon) * scale);
    t.rows_per_degree = static_cast<double>(image->SourceHeight()) / ((b.max_lat - b.min_lat) * scale);
    tiles_.push_back(t);
  }
  if (tiles_.empty()) return with_errors;

  min_lon_ = tiles_[0].min_lon;
  max_lon_ = tiles_[0].max_lon;
  min_lat_ = tiles_[0].min_lat;
  max_lat_ = tiles_[0].max_lat;
  for (const Tile& t : tiles_) {
    min_lon_ = std::min(min_lon_, t.min_lon);
    max_lon_ = std::max(max_lon_, t.max_lon);
    min_lat_ = std::min(min_lat_, t.min_lat);
    max_lat_ = std::max(max_lat_, t.max_lat);
  }
  // About two buckets a tile side for a grid of tiles.
  const int64_t side = tiles_.size() == 1
                           ? 1
                           : std::min<int64_t>(kMaxBucketsPerSide,
                                               2 * static_cast<int64_t>(std::ceil(std::sqrt(
                                                       static_cast<double>(tiles_.size())))));
  buckets_x_ = buckets_y_ = side;
  buckets_per_lon_ = static_cast<double>(side) / (max_lon_ - min_lon_);
  buckets_per_lat_ = static_cast<double>(side) / (max_lat_ - min_lat_);

  // Two passes over the tiles' bucket ranges: counts, then the indices.
  auto range = [&](const Tile& t, int64_t& x0, int64_t& x1, int64_t& y0, int64_t& y1) {
    auto clamp = [side](double v) { return std::clamp<int64_t>(static_cast<int64_t>(v), 0, side - 1); };
    x0 = clamp((t.min_lon - min_lon_) * buckets_per_lon_);
    x1 = clamp((t.max_lon - min_lon_) * buckets_per_lon_);
    y0 = clamp((t.min_lat - min_lat_) * buckets_per_lat_);
    y1 = clamp((t.max_lat - min_lat_) * buckets_per_lat_);
  };
  const size_t buckets = static_cast<size_t>(side * side);
  bucket_start_.assign(buckets + 1, 0);
  for (const Tile& t : tiles_) {
    int64_t x0, x1, y0, y1;
    range(t, x0, x1, y0, y1);
    for (int64_t by = y0; by <= y1; ++by)
      for (int64_t bx = x0; bx <= x1; ++bx) ++bucket_start_[static_cast<size_t>(by * side + bx) + 1];
  }
  for (size_t i = 1; i <= buckets; ++i) bucket_start_[i] += bucket_start_[i - 1];
  bucket_tiles_.resize(bucket_start_[buckets]);
  std::vector<uint32_t> fill(bucket_start_.begin(), bucket_start_.end() - 1);
  for (uint32_t index = 0; index < tiles_.size(); ++index) {
    int64_t x0, x1, y0, y1;
    range(tiles_[index], x0, x1, y0, y1);
    for (int64_t by = y0; by <= y1; ++by)
      for (int64_t bx = x0; bx <= x1; ++bx) bucket_tiles_[fill[static_cast<size_t>(by * side + bx)]++] = index;
  }
  // Tiles that share a bucket are compared for overlap (edges may touch).
  for (size_t b = 0; b < buckets && !overlapping_; ++b) {
    for (uint32_t i = bucket_start_[b]; i < bucket_start_[b + 1] && !overlapping_; ++i) {
      for (uint32_t j = i + 1; j < bucket_start_[b + 1]; ++j) {
        const Tile& p = tiles_[bucket_tiles_[i]];
        const Tile& q = tiles_[bucket_tiles_[j]];
        if (p.min_lon < q.max_lon && q.min_lon < p.max_lon && p.min_lat < q.max_lat && q.min_lat < p.max_lat) {
          overlapping_ = true;
          break;
        }
      }
    }
  }
  return with_errors;
}

bool TileSampler::SampleElevation(double lat, double lon, double& out) const {
  const Tile* t = Find(lat, lon);
  if (t == nullptr || t->elevation == nullptr) return false;
  const uint16_t raw = t->elevation[t->width * Row(*t, lat) + Column(*t, lon)];
  if (t->signed_elevation) {
    const int16_t value = static_cast<int16_t>(raw);
    if (value == -32768) return false;
    out = value;
  } else {
    out = raw;
  }
  return true;
}

std::optional<double> ElevationAt(std::span<const ImageTileRef> tiles, double lat, double lon) {
  TileSampler sampler;
  sampler.Build(tiles, TileSampler::Kind::kElevation);
  double elevation = 0.0;
  if (!sampler.SampleElevation(lat, lon, elevation)) return std::nullopt;
  return elevation;
}

}  // namespace vmp
