// The tile layout of a grid or single-tile layer, and the geometric tests
// that tile selection makes on cells and tree nodes.
//
// Image grids number their rows from the top (row 0 is the northernmost),
// vector grids from the bottom (row 0 is the southernmost): the image tiler
// cuts images top-down and the vector tiler counts cells upwards from the
// extent's minimum, so both tools' output is served as written.
#pragma once

#include <cstdint>

#include "map_server/dataset/layer.h"
#include "map_server/geometry/map_geometry.h"
#include "map_server/tiles/tile_record.h"

namespace vmp {

// Grids with more cells than this are refused (one mark byte per cell).
inline constexpr int64_t kMaxGridCells = int64_t{1} << 24;

struct TileGrid {
  TileKind kind = TileKind::kImage;
  bool single = false;  // one tile covering the layer's extent
  int64_t columns = 1;
  int64_t rows = 1;
  double min_lon = 0.0, max_lon = 0.0, min_lat = 0.0, max_lat = 0.0;
  // Cell size in degrees. For image layers with a pixel size a cell is one
  // tile of ceil(Width / columns) x ceil(Height / rows) pixels, so the last
  // column and row may reach past the layer's extent (padded tiles).
  double cell_width = 0.0, cell_height = 0.0;
  double inv_cell_width = 0.0, inv_cell_height = 0.0;
  bool rows_from_top = true;  // image grids
  bool pos_range = false;     // longitudes run 0..360
  // Image layers with Width and Height: tile size in pixels and degrees per
  // pixel (0 when the layer gives no pixel size).
  int64_t tile_width = 0, tile_height = 0;
  double lon_per_pixel = 0.0, lat_per_pixel = 0.0;
  int64_t image_width = 0, image_height = 0;
};

// The grid of an image or vector layer without a tile tree. False (after
// "Invalid tile grid for layer" with the layer name, unless `quiet`) when the
// layer's tile counts or extent cannot describe a grid.
bool MakeTileGrid(const Layer& layer, TileGrid* grid, bool quiet = false);

// The geographic bounds of cell (column, row).
TileBounds CellBounds(const TileGrid& grid, int64_t column, int64_t row);

// The cell holding (lat, lon): for a single tile the point must lie in the
// extent (the longitude also tried +-360); for a grid the scaled position must
// lie in the grid. False when the point is outside.
bool CellOfPoint(const TileGrid& grid, double lat, double lon, int64_t* column, int64_t* row);

// True when (lat, lon) lies in the bounds, the longitude also tried +-360.
bool BoundsContain(const TileBounds& bounds, double lat, double lon);

// True when one of the 3 x 3 lattice points of the bounds (corners, edge
// midpoints and centre) is visible in the map's visible rectangle. Longitudes
// over 180 lose 360 for 0..360 layers; in the rectangular projection a
// longitude outside the world seen from the centre is moved into it.
bool BoundsProbeVisible(const MapGeometry& geometry, const TileBounds& bounds, bool pos_range);

}  // namespace vmp
