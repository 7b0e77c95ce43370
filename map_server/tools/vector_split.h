// Splitting a TVF file (the "-split" and "-tile -vector" tools): by
// attribute conditions, by number of points per piece, or into a grid of
// tiles. Features are never clipped: a feature is written whole to every
// output that takes it, in file order.
//
//   SplitSettings s;
//   s.kind = SplitKind::kTileOwnExtent;
//   s.output = "tiles/t_%_%.tvf";
//   s.columns = 4; s.rows = 2;
//   bool ok = SplitTvfFile("world.tvf", s);
#pragma once

#include <cstdint>
#include <string>

#include "map_server/vector/attr_condition.h"

namespace vmp {

// How the input is divided.
enum class SplitKind {
  kNone,            // not chosen: refused with "Invalid split type"
  kAttribute,       // the features matching the conditions, into one file
  kPoints,          // polylines cut into pieces of at most N points, one file
  kTileOwnExtent,   // a grid over the union of the features' extents
  kTileGivenExtent  // a grid over the given extent
};

// Longitude wrapping: off, or the world's west and east edges (e.g. -180
// and 180, or 0 and 360).
struct WrapRange {
  bool on = false;
  double west = 0.0;
  double east = 0.0;
};

struct SplitSettings {
  SplitKind kind = SplitKind::kNone;
  // Filter command used to load the input (empty: none).
  std::string filter;
  // Output file, or the tile name template (util/tile_naming.h) for the grids; a
  // 1 x 1 grid uses it unchanged.
  std::string output;
  // kAttribute: the condition list; with `invert` the features that do not
  // match are kept. A null list matches nothing.
  const AttrConditionList* conditions = nullptr;
  bool invert = false;
  // kTileGivenExtent: the grid's extent.
  double min_x = 0.0, min_y = 0.0, max_x = 0.0, max_y = 0.0;
  // Tiling kinds: columns NX and rows NY (both at least 1).
  int64_t columns = 1;
  int64_t rows = 1;
  // kPoints: points per piece N (at least 2).
  int64_t points_per_piece = 0;
  WrapRange wrap;
  // Tiling: "Writing tile #%d\n" on standard output every this many cells
  // (0: never).
  int64_t progress = 0;
};

// Splits `input` (a TVF file, or a shapefile by its ".shp" name) as
// `settings` say, writing TVF in the current output encoding. Every output
// replaces an earlier file of its name only once it is complete. Returns
// success; a run that writes nothing at all succeeds with the warning "No
// objects fit conditions".
bool SplitTvfFile(const std::string& input, const SplitSettings& settings);

}  // namespace vmp
