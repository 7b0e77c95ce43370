// The data paths of a layer: its file name, tile tree and fallback file,
// resolved against the LIF's directory, or against the redirect prefix for
// layers with a redirect file.
#pragma once

#include <string>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/layer.h"

namespace vmp {

// Resolves the layer's Filename, tiles sub-LIF and fallback file against
// `base` (each unless absolute), drops the old tile tree and fallback
// description, reads the new tree's root SLF (children stay unread) and the
// fallback description ("Invalid layer type for fallback file" for a layer
// that is neither image nor vector).
void BuildLayerDataPaths(const Dataset& dataset, Layer& layer, const std::string& base);

// Path of the data file of grid tile (column, row): the layer's data path,
// expanded as a tile name template unless the layer is a single tile.
std::string GridTilePath(const LayerRecord& record, int64_t column, int64_t row);

}  // namespace vmp
