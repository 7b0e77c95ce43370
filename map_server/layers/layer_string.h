// Layer strings: the comma-separated list of layers a request names (its
// LAYERS or QUERY_LAYERS value, or an alias of the dataset), turned into the
// request's selected-layer records.
//
//   roads,cities            add layers (also "+roads")
//   -roads                  turn a layer off        "-*"  drop the whole selection
//   ++roads                 add, overriding the layer's zoom range (when it allows that)
//   *  /  default           every layer / the layers marked DEFAULT ON
//   roads@5=="A1"           add with an attribute condition (include list)
//   -roads@5=="A1"          exclude the features matching a condition
//   transport               an alias: its own layer string, expanded in place
//
// A backslash escapes the next character (so "\," is a comma inside a token).
// Leading blanks of a token are skipped; the name ends at the first "@" with
// trailing blanks removed. Names are compared exactly, layers before aliases.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/map_request.h"

namespace vmp {

// Splits at unescaped commas and removes the escapes.
std::vector<std::string> SplitLayerString(std::string_view text);

// Applies `layer_string` to `selection` (records are found by name or
// appended in order of first mention). Every problem is reported and the
// rest of the string still applies.
void SelectLayers(Dataset& dataset, std::string_view layer_string,
                  std::vector<SelectedLayer>& selection);

// Replaces the map's Layers array by the selection of `layer_string` (the
// request's LAYERS value). False when the map has no dataset.
bool SelectMapLayers(MapRequest& map, std::string_view layer_string);

// The same for feature and location queries: the map's QueryLayers value
// goes through the same grammar into its Layers array. False when the map has
// no dataset or no QueryLayers.
bool SelectQueryLayers(MapRequest& map);

// The dataset's layer of that exact name, or null (no message).
Layer* FindDatasetLayer(Dataset& dataset, std::string_view name);

// The record of `name` in the selection, or null.
SelectedLayer* FindSelected(std::vector<SelectedLayer>& selection, std::string_view name);

}  // namespace vmp
