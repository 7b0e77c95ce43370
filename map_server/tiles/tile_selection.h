// Choosing the tiles of one layer that a request's visible rectangle needs.
//
// The border of the visible rectangle is sampled pixel by pixel (each sample
// converted to lat/lon and its tile marked), then every unmarked cell (or
// tree node) is probed at a 3 x 3 lattice of points. Marking stops early once
// the layer's MaxTiles is exceeded, so a layer far over its limit costs
// little.
#pragma once

#include "map_server/dataset/layer.h"
#include "map_server/dataset/map_request.h"

namespace vmp {

enum class TileSelection {
  kSelected,    // tiles marked, within the layer's limit
  kExceeded,    // over MaxTiles: marks cleared, the layer's tiles-exceeded flag set
  kClippedOut,  // no tile shows: disabled for this request
  kUnusable,    // the layer's tile layout is in error (grid or tree root)
};

// Marks the tiles of `layer` (an image or vector layer) that the map's
// visible rectangle needs and counts them in the layer's tile state. The
// map's geometry must be set up.
TileSelection SelectLayerTiles(MapRequest& map, Layer& layer);

}  // namespace vmp
