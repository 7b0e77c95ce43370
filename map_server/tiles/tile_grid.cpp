#include "map_server/tiles/tile_grid.h"

#include <cmath>

#include "map_server/geometry/conversions.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

bool Finite(double a, double b, double c, double d) {
  return std::isfinite(a) && std::isfinite(b) && std::isfinite(c) && std::isfinite(d);
}

bool InRange(double value, double low, double high) { return value >= low && value <= high; }

}  // namespace

bool MakeTileGrid(const Layer& layer, TileGrid* grid, bool quiet) {
  const LayerRecord& r = layer.record;
  TileGrid g;
  g.kind = r.layer_type == kLayerVector ? TileKind::kVector : TileKind::kImage;
  g.rows_from_top = g.kind == TileKind::kImage;
  g.pos_range = r.pos_range;
  g.columns = r.num_tiles_x;
  g.rows = r.num_tiles_y;
  g.min_lon = r.min_lon;
  g.max_lon = r.max_lon;
  g.min_lat = r.min_lat;
  g.max_lat = r.max_lat;
  // A single vector file whose layer file gives no extent covers the world:
  // its features carry their own coordinates.
  bool no_extent = r.min_lon == 0 && r.max_lon == 0 && r.min_lat == 0 && r.max_lat == 0;
  if (g.kind == TileKind::kVector && no_extent && g.columns == 1 && g.rows == 1 && !r.tile_tree) {
    g.min_lon = r.pos_range ? 0.0 : -180.0;
    g.max_lon = r.pos_range ? 360.0 : 180.0;
    g.min_lat = -90.0;
    g.max_lat = 90.0;
  }
  bool valid = layer.IsImageOrVector() && g.columns >= 1 && g.rows >= 1 &&
               g.columns <= kMaxGridCells / g.rows &&
               Finite(g.min_lon, g.max_lon, g.min_lat, g.max_lat) && g.max_lon > g.min_lon &&
               g.max_lat > g.min_lat;
  if (!valid) {
    if (!quiet) Report(kError, "Invalid tile grid for layer", layer.name);
    return false;
  }
  g.single = g.columns == 1 && g.rows == 1;
  const double lon_span = g.max_lon - g.min_lon;
  const double lat_span = g.max_lat - g.min_lat;
  if (g.kind == TileKind::kImage && r.width > 0 && r.height > 0) {
    g.image_width = r.width;
    g.image_height = r.height;
    g.tile_width = (r.width + g.columns - 1) / g.columns;
    g.tile_height = (r.height + g.rows - 1) / g.rows;
    g.lon_per_pixel = lon_span / static_cast<double>(r.width);
    g.lat_per_pixel = lat_span / static_cast<double>(r.height);
    g.cell_width = static_cast<double>(g.tile_width) * g.lon_per_pixel;
    g.cell_height = static_cast<double>(g.tile_height) * g.lat_per_pixel;
  } else {
    g.cell_width = lon_span / static_cast<double>(g.columns);
    g.cell_height = lat_span / static_cast<double>(g.rows);
  }
  g.inv_cell_width = 1.0 / g.cell_width;
  g.inv_cell_height = 1.0 / g.cell_height;
  *grid = g;
  return true;
}

TileBounds CellBounds(const TileGrid& g, int64_t column, int64_t row) {
  if (g.single) return {g.min_lon, g.max_lon, g.min_lat, g.max_lat};
  TileBounds b;
  b.min_lon = static_cast<double>(column) * g.cell_width + g.min_lon;
  b.max_lon = static_cast<double>(column + 1) * g.cell_width + g.min_lon;
  if (g.rows_from_top) {
    b.max_lat = g.max_lat - static_cast<double>(row) * g.cell_height;
    b.min_lat = g.max_lat - static_cast<double>(row + 1) * g.cell_height;
  } else {
    b.min_lat = static_cast<double>(row) * g.cell_height + g.min_lat;
    b.max_lat = static_cast<double>(row + 1) * g.cell_height + g.min_lat;
  }
  return b;
}

bool BoundsContain(const TileBounds& b, double lat, double lon) {
  if (!InRange(lat, b.min_lat, b.max_lat)) return false;
  return InRange(lon, b.min_lon, b.max_lon) || InRange(lon + 360.0, b.min_lon, b.max_lon) ||
         InRange(lon - 360.0, b.min_lon, b.max_lon);
}

bool CellOfPoint(const TileGrid& g, double lat, double lon, int64_t* column, int64_t* row) {
  if (g.single) {
    if (!BoundsContain({g.min_lon, g.max_lon, g.min_lat, g.max_lat}, lat, lon)) return false;
    *column = 0;
    *row = 0;
    return true;
  }
  const double x = (lon - g.min_lon) * g.inv_cell_width;
  const double y = g.rows_from_top ? (g.max_lat - lat) * g.inv_cell_height
                                   : (lat - g.min_lat) * g.inv_cell_height;
  if (!(x >= 0.0 && y >= 0.0 && x <= static_cast<double>(g.columns) &&
        y <= static_cast<double>(g.rows))) {
    return false;
  }
  const int64_t c = static_cast<int64_t>(x);
  const int64_t r = static_cast<int64_t>(y);
  if (c >= g.columns || r >= g.rows) return false;
  *column = c;
  *row = r;
  return true;
}

bool BoundsProbeVisible(const MapGeometry& geometry, const TileBounds& b, bool pos_range) {
  static constexpr double kSteps[3] = {0.0, 0.5, 1.0};
  const double width = b.max_lon - b.min_lon;
  const double height = b.max_lat - b.min_lat;
  const bool rectangular = geometry.projection == kRectangularProjection;
  const double west = geometry.center_lon - 180.0;
  const double east = geometry.center_lon + 180.0;
  for (double lon_step : kSteps) {
    double lon = b.min_lon + lon_step * width;
    if (pos_range && lon > 180.0) lon -= 360.0;
    if (rectangular) {
      if (lon < west) lon += 360.0;
      else if (lon > east) lon -= 360.0;
    }
    for (double lat_step : kSteps) {
      const double lat = b.max_lat - lat_step * height;
      const PixelPoint p = LatLonToPixel(geometry, lat, lon);
      if (p.z >= 0.0 && p.x >= geometry.min_x_d && p.x <= geometry.max_x_d &&
          p.y >= geometry.min_y_d && p.y <= geometry.max_y_d) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace vmp
