// The drawing surface of one render: the map image, the geometry that
// places things on it, the clip rectangle that bounds every write, and the
// state of a location query (its search box and whether something hit it).
// Every drawing function takes the surface, so nothing reaches into the
// process-wide state while drawing.
#pragma once

#include <algorithm>
#include <cstdint>

#include "map_server/geometry/map_geometry.h"
#include "map_server/geometry/map_image.h"

namespace vmp {

// Pixel rectangle, bounds inclusive; empty when a minimum exceeds its maximum.
struct PixelRect {
  int64_t min_x = 0;
  int64_t max_x = -1;
  int64_t min_y = 0;
  int64_t max_y = -1;

  bool empty() const { return min_x > max_x || min_y > max_y; }
  bool Contains(int64_t x, int64_t y) const {
    return x >= min_x && x <= max_x && y >= min_y && y <= max_y;
  }
  PixelRect Intersect(const PixelRect& o) const {
    return {std::max(min_x, o.min_x), std::min(max_x, o.max_x), std::max(min_y, o.min_y),
            std::min(max_y, o.max_y)};
  }
  bool operator==(const PixelRect&) const = default;
};

// The geometry's visible rectangle and a location query's search box.
inline PixelRect VisibleRect(const MapGeometry& g) { return {g.min_x, g.max_x, g.min_y, g.max_y}; }
inline PixelRect SearchBox(const MapGeometry& g) {
  return {g.search_x_from, g.search_x_to, g.search_y_from, g.search_y_to};
}

// What a pixel blended with one colour maps each old channel value to: the
// colour's blend depends on nothing else, so runs and lines look it up.
struct BlendTable {
  bool valid = false;
  int64_t trans_type = 0;
  uint8_t red = 0, green = 0, blue = 0;
  double alpha = 0.0;
  uint8_t channel[3][256];
};

class DrawSurface {
 public:
  // Draws into `image` (may be null: then nothing is ever written) placed by
  // `geometry`, which must outlive the surface. The clip starts as the
  // visible rectangle. A location query (the geometry's flag) writes nothing
  // and tests against the geometry's search box instead.
  DrawSurface(MapImage* image, const MapGeometry& geometry);

  MapImage* image() const { return image_; }
  const MapGeometry& geometry() const { return *geometry_; }

  // Every write lies inside the clip, and the clip always lies inside the
  // image: SetClip intersects the requested rectangle with the image bounds.
  const PixelRect& clip() const { return clip_; }
  void SetClip(const PixelRect& rect);

  bool location_query() const { return location_query_; }
  const PixelRect& search_box() const { return search_box_; }
  // Set by the first drawing that touches the search box.
  bool hit() const { return hit_; }
  void set_hit(bool hit) { hit_ = hit; }

  // The rectangle drawing has to cover: the search box in a location query,
  // the clip otherwise. Scan conversion and line clipping use it to skip
  // everything else.
  const PixelRect& active_rect() const { return location_query_ ? search_box_ : clip_; }
  // The rectangle features are culled against: the search box in a location
  // query, the visible rectangle otherwise, with or without an image (a
  // pass without an image still visits what the map shows, e.g. to lay out
  // its labels).
  const PixelRect& view_rect() const { return location_query_ ? search_box_ : visible_; }

  // The blend tables of the colours blended last (pixel_writer.cpp): a
  // layer's fill and edge colours alternate from feature to feature.
  static constexpr int kBlendTables = 4;
  BlendTable& blend_table(int i) { return blend_tables_[i]; }
  int& next_blend_table() { return next_blend_table_; }

  // The first byte of pixel (x, y); (x, y) must lie inside the clip.
  uint8_t* PixelAt(int64_t x, int64_t y) const {
    return image_->pixels() + (image_->width() * y + x) * 3;
  }

 private:
  MapImage* image_;
  const MapGeometry* geometry_;
  PixelRect clip_;
  PixelRect visible_;
  bool location_query_;
  PixelRect search_box_;
  bool hit_ = false;
  BlendTable blend_tables_[kBlendTables];
  int next_blend_table_ = 0;
};

}  // namespace vmp
