// The work behind the info and selection requests: the elevation under a
// point from the query layers, and the features under a pixel.
#pragma once

#include <optional>
#include <vector>

#include "map_server/dataset/map_request.h"
#include "map_server/rendering/render_map.h"
#include "map_server/service/query_answers.h"

namespace vmp {

// The elevation at (lat, lon) from the map's selected layers: the first
// selected image layer with an ElevationMode whose 16-bit tiles have a
// sample there (layers are tried in selection order). Only the tile that
// holds the point is loaded, through the layer's tile cache. None when no
// layer has data there; "No elevation layer among the query layers" (an
// error) when none of the selected layers holds elevation data. The map
// must be bound to its dataset.
std::optional<double> QueryLayerElevation(MapRequest& map, double lat, double lon);

// The search radius of a selection with PICK_RESOLUTION `pick_resolution`
// (pixels): the resolution widens the default box (the default marker's
// size) but never narrows it, so a value below the default, or none,
// keeps the default.
double SelectionSearchRadius(std::optional<double> pick_resolution);

// The features of the map's selected layers that touch the search box
// around pixel (i, j) (column, image row), with the box's half-size given
// by `search_radius`, grouped by layer for the selection answer: one
// selection ("point") per layer with hits, layers without hits left out. A
// pixel off the map selects nothing. Diagnostic code 2001 reports every
// selected feature ("Selected feature", Info, with the layer name and the
// feature's index).
std::vector<SelectionLayer> SelectFeatures(MapRequest& map, double i, double j, double search_radius);

// Groups hits, in their order, into the layers of a selection answer.
std::vector<SelectionLayer> SelectionOfHits(const std::vector<FeatureHit>& hits);

}  // namespace vmp
