#include "map_server/rendering/grid_layer.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/layers/view_box.h"
#include "map_server/rendering/basic_symbols.h"
#include "map_server/rendering/pixel_writer.h"

namespace vmp {

namespace {

// Segments of the longest line on the globe.
constexpr int kMaxSegments = 1024;

double AdaptiveStep(double span, int32_t coefficient) {
  const double wanted = span / (4.0 * coefficient);
  for (double decade = 0.0001; decade <= 10.0; decade *= 10.0) {
    for (double factor : {1.0, 2.0, 5.0}) {
      if (decade * factor >= wanted) return decade * factor;
    }
  }
  for (double step : {15.0, 30.0, 45.0}) {
    if (step >= wanted) return step;
  }
  return 90.0;
}

class GridDrawer {
 public:
  GridDrawer(DrawSurface& surface, const PixelColour& colour)
      : surface_(surface), g_(surface.geometry()), colour_(colour) {}

  // A line of constant latitude or longitude from (lat0, lon0) to (lat1, lon1).
  void Line(double lat0, double lon0, double lat1, double lon1) {
    int segments = 1;
    if (g_.projection == kOrthographicProjection) {
      const double span = std::max(std::fabs(lat1 - lat0), std::fabs(lon1 - lon0));
      const double per_segment = std::max(g_.pixel_size * 8.0, 1e-9);
      segments = static_cast<int>(std::clamp(std::ceil(span / per_segment), 1.0, double{kMaxSegments}));
    }
    PixelPoint prev = LatLonToPixel(g_, lat0, lon0);
    for (int i = 1; i <= segments; ++i) {
      const double t = static_cast<double>(i) / segments;
      const PixelPoint p = LatLonToPixel(g_, lat0 + t * (lat1 - lat0), lon0 + t * (lon1 - lon0));
      if (prev.z >= 0.0 && p.z >= 0.0) DrawLine(surface_, prev.x, prev.y, p.x, p.y, colour_);
      prev = p;
    }
  }

 private:
  DrawSurface& surface_;
  const MapGeometry& g_;
  PixelColour colour_;
};

// Multiples of `step` from the first at or above `lo` up to `hi`.
template <typename Visit>
void ForEachMultiple(double lo, double hi, double step, Visit visit) {
  const double first = std::ceil(lo / step);
  for (int64_t k = 0; k < kMaxGridLines; ++k) {
    const double value = (first + static_cast<double>(k)) * step;
    if (value > hi) break;
    visit(value);
  }
}

}  // namespace

void DrawGridLayer(DrawSurface& surface, const Layer& layer) {
  if (surface.location_query() || surface.clip().empty()) return;
  const LayerRecord& r = layer.record;
  if (!IsKnownTransType(r.trans_type)) {
    ReportUnknownTransType(r.trans_type);
    return;
  }
  const GridAttributes& grid = r.grid;
  const ViewBox view = ComputeViewBox(surface.geometry());
  double lat_step = grid.lat_interval, lon_step = grid.lon_interval;
  if (grid.adaptive > 0) lat_step = lon_step = AdaptiveStep(view.max_lat - view.min_lat, grid.adaptive);
  if (!(lat_step > 0.0) || !(lon_step > 0.0) || !std::isfinite(lat_step) || !std::isfinite(lon_step)) return;

  const double min_lat = std::max({view.min_lat, grid.min_lat, -90.0});
  const double max_lat = std::min({view.max_lat, grid.max_lat, 90.0});
  const double min_lon = std::max(view.min_lon, grid.min_lon);
  const double max_lon = std::min(view.max_lon, grid.max_lon);
  if (!(min_lat <= max_lat) || !(min_lon <= max_lon)) return;

  GridDrawer drawer(surface, MakePixelColour(r.drawing.edge_color, r.drawing.alpha, r.trans_type));
  ForEachMultiple(min_lat, max_lat, lat_step, [&](double lat) { drawer.Line(lat, min_lon, lat, max_lon); });
  // Meridians by their longitude in -180..180 against the grid's bounds; the
  // view's box may run past +-180.
  ForEachMultiple(view.min_lon, view.max_lon, lon_step, [&](double lon) {
    const double wrapped = lon - 360.0 * std::floor((lon + 180.0) / 360.0);
    if (wrapped < grid.min_lon || wrapped > grid.max_lon) return;
    drawer.Line(min_lat, lon, max_lat, lon);
  });
}

}  // namespace vmp
