// The tile grid of vector tiling: which features go to which cell.
//
// Cells are numbered column by column (column i from 0 to NX-1, within it
// row j from 0 to NY-1). Cell (i, j) spans x from min_x + i*w to
// min_x + (i+1)*w and y from min_y + j*h to min_y + (j+1)*h, with
// w = (max_x - min_x) / NX and h = (max_y - min_y) / NY. A feature goes to
// every cell its box meets (borders included), and with wrapping also to
// cells its box meets when shifted by the width of the wrap range. The rings
// of a polygon group (joined by continuation flags) travel together: the
// whole group goes to every cell their combined box meets, so a tile never
// holds part of a group.
//
// Features are indexed by the cells their boxes can touch, so the work is
// proportional to the features and the cells they reach, not to
// cells x features.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "map_server/tools/vector_split.h"
#include "map_server/vector/feature_extent.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

struct TileGrid {
  double min_x = 0.0, min_y = 0.0, max_x = 0.0, max_y = 0.0;
  int64_t columns = 1;
  int64_t rows = 1;
};

struct CellBounds {
  double west = 0.0, east = 0.0, south = 0.0, north = 0.0;
};

CellBounds GridCell(const TileGrid& grid, int64_t column, int64_t row);

// The union of the features' extents, starting from min 10000 and max
// -10000 (a file wholly beyond those values keeps the start value as a
// bound).
TileGrid OwnExtentGrid(const VectorData& data, int64_t columns, int64_t rows);

// Whether a feature with box `box` goes to `cell`.
bool CellTakesBox(const FeatureExtent& box, const CellBounds& cell, const WrapRange& wrap);

// One feature in one cell.
struct CellEntry {
  int64_t column;
  int64_t row;
  int64_t feature;  // position in the file
};

// Every (cell, feature) pair of the grid, ordered by cell (in visiting
// order) and, within a cell, by file order.
std::vector<CellEntry> AssignFeaturesToCells(const VectorData& data, const TileGrid& grid,
                                             const WrapRange& wrap);

// Writes every non-empty cell of the grid to its tile file (`name_template`
// expanded with column and row; used unchanged for a 1 x 1 grid), prints
// progress every `progress` cells, and logs the count of cells left empty.
// `wrote_any` tells whether any feature was written. False on a write
// failure.
bool WriteTiles(const VectorData& data, const TileGrid& grid, const WrapRange& wrap,
                const std::string& name_template, int64_t progress, bool* wrote_any);

}  // namespace vmp
