#include "map_server/layers/view_box.h"

#include <algorithm>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/lat_lon.h"

namespace vmp {

namespace {

constexpr int kSamplesPerEdge = 32;

bool PixelVisible(const MapGeometry& g, const PixelPoint& p) {
  return p.z >= 0.0 && p.x >= g.min_x_d && p.x <= g.max_x_d && p.y >= g.min_y_d &&
         p.y <= g.max_y_d;
}

class BoxBuilder {
 public:
  explicit BoxBuilder(const MapGeometry& g) : g_(g) {}

  // Adds the pixel (x, y) in image rows; false when it is off the map.
  bool AddPixel(double x, double y) {
    const double row = g_.projection == kOrthographicProjection ? g_.height_m1 - y : y;
    const LatLonPoint p = PixelToLatLon(g_, x, row);
    if (!p.ok) return false;
    // Longitudes continuous around the centre, so a view across the date line
    // keeps one interval.
    const double lon = g_.center_lon + WrapDegrees180(p.lon - g_.center_lon);
    Add(p.lat, lon);
    return true;
  }

  void Add(double lat, double lon) {
    if (empty_) {
      box_ = {lon, lon, lat, lat};
      empty_ = false;
      return;
    }
    box_.min_lon = std::min(box_.min_lon, lon);
    box_.max_lon = std::max(box_.max_lon, lon);
    box_.min_lat = std::min(box_.min_lat, lat);
    box_.max_lat = std::max(box_.max_lat, lat);
  }

  ViewBox& box() { return box_; }

 private:
  const MapGeometry& g_;
  ViewBox box_;
  bool empty_ = true;
};

}  // namespace

ViewBox ComputeViewBox(const MapGeometry& g) {
  if (g.projection == kRectangularProjection && !g.rotated) {
    return {g.clamped_min_lon, g.clamped_max_lon, g.clamped_min_lat, g.clamped_max_lat};
  }
  BoxBuilder builder(g);
  bool left_globe = false;
  for (int i = 0; i <= kSamplesPerEdge; ++i) {
    const double t = static_cast<double>(i) / kSamplesPerEdge;
    const double x = g.min_x_d + t * (g.max_x_d - g.min_x_d);
    const double y = g.min_y_d + t * (g.max_y_d - g.min_y_d);
    left_globe |= !builder.AddPixel(x, g.min_y_d);
    left_globe |= !builder.AddPixel(x, g.max_y_d);
    left_globe |= !builder.AddPixel(g.min_x_d, y);
    left_globe |= !builder.AddPixel(g.max_x_d, y);
  }
  builder.AddPixel((g.min_x_d + g.max_x_d) / 2.0, (g.min_y_d + g.max_y_d) / 2.0);
  ViewBox& box = builder.box();
  if (left_globe) {
    // The visible hemisphere.
    builder.Add(std::max(-90.0, g.center_lat - 90.0), g.center_lon - 90.0);
    builder.Add(std::min(90.0, g.center_lat + 90.0), g.center_lon + 90.0);
  }
  const bool north = PixelVisible(g, LatLonToPixel(g, 90.0, g.center_lon));
  const bool south = PixelVisible(g, LatLonToPixel(g, -90.0, g.center_lon));
  if (north) box.max_lat = 90.0;
  if (south) box.min_lat = -90.0;
  if (north || south) {
    box.min_lon = g.center_lon - 180.0;
    box.max_lon = g.center_lon + 180.0;
  }
  return box;
}

bool ViewFallsInBox(const ViewBox& view, const Box& box) {
  if (!(view.min_lat < box.max_lat && view.max_lat > box.min_lat)) return false;
  for (double shift : {0.0, -360.0, 360.0}) {
    if (view.min_lon < box.max_lon + shift && view.max_lon > box.min_lon + shift) return true;
  }
  return false;
}

}  // namespace vmp
