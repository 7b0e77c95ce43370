// The visitors over a layer's tiles: one recursive walk for tile trees and
// one loop for grid and single-tile layers, both driven by an operation code.
//
// Marks: a grid layer marks cells in its LayerTiles; a tree layer marks its
// nodes ("used" on a needed leaf and on every node above it, "hit-border" on
// the nodes a border sample passed through). A marked node always has a
// marked parent, so the reset and check walks only descend into marked nodes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "map_server/dataset/layer.h"
#include "map_server/dataset/slf_tree.h"
#include "map_server/geometry/map_geometry.h"
#include "map_server/tiles/tile_cache.h"
#include "map_server/tiles/tile_loading.h"

namespace vmp {

enum TileOp : int {
  kTilePointQuery = 0,   // mark the tile holding (lat, lon), reading sub-trees on the way
  kTileFindPoint = 1,    // find the leaf holding (lat, lon) for the border sampler (walk.hit)
  kTileVisibility = 2,   // mark every tile whose 3 x 3 probe is visible
  kTileTest = 3,         // succeeds for a used, error-free tile
  kTileDraw = 4,         // load every used tile and hand it to walk.on_tile
  kTileReset = 5,        // clear the marks and the loaded tiles' "updated" flags
  kTileCheck = 6,        // report marks left over ("Unexpected ...", internal errors)
  kTileBoundsAction = 7  // hand every used tile's bounds to walk.on_bounds
};

struct TileWalk {
  TileOp op = kTileTest;
  Layer* layer = nullptr;
  LayerTiles* state = nullptr;            // the layer's tile state
  const MapGeometry* geometry = nullptr;  // visibility, and the rectangular longitude rule
  // The point of the point operations, and of the location test of kTileDraw.
  double lat = 0.0;
  double lon = 0.0;
  // kTileDraw in a location query: only tiles whose bounds, widened by
  // location_margin degrees, hold the point are loaded.
  bool location_query = false;
  double location_margin = 0.0;
  VolatileSettings settings;  // kTileDraw
  TileLoadHints hints;        // kTileDraw: what the request needs of the tiles
  std::function<void(const std::shared_ptr<TileRecord>& tile, const SlfNode* leaf)> on_tile;
  std::function<void(const TileBounds& bounds)> on_bounds;
  // The layer's MaxTiles for the early stop of the marking operations
  // (negative: no limit).
  int64_t max_tiles = -1;

  // Results.
  SlfNode* hit = nullptr;   // kTileFindPoint: the leaf found
  bool stopped = false;     // the early stop ended the marking
  bool error_seen = false;  // a tree node in error was skipped
};

// True when marking must stop with `count` tiles needed: the layer has a
// limit and the count exceeds it (and, at verbosity 3 or more, also exceeds
// 1000, so that verbose logs can report the real number up to there).
bool TileCountStops(int64_t count, int64_t max_tiles);

// Runs `walk.op` over the tree below `node`; non-zero when the node or a
// descendant satisfied the operation.
int WalkTileTree(TileWalk& walk, SlfNode& node);

// Runs `walk.op` over the layer's tiles: its tree through WalkTileTree, or its
// grid cells. Non-zero when some tile satisfied the operation; 0 also when
// the layer has no usable tile layout.
int ForEachGridTile(TileWalk& walk);

// Sizes the layer's marks for its grid (clearing them when the grid changed).
void EnsureGridMarks(LayerTiles& state, int64_t columns, int64_t rows);

}  // namespace vmp
