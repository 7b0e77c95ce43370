// The layers a standard WMS client sees, and their selection for a request.
//
// Every layer of the dataset is a named layer under its own name. Every
// alias of the dataset is a named layer too, listed at the top level after
// the layers (not nested: one layer can belong to several aliases, and a
// name must appear once); an alias whose name a layer already takes is not
// listed, since layer names win over alias names in a request.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/map_request.h"
#include "map_server/wms/wms_request.h"

namespace vmp {

struct WmsLayer {
  std::string name;
  const Layer* layer = nullptr;  // null for an alias
  const Alias* alias = nullptr;  // null for a layer
  // Longitudes within -180..180, latitudes within -90..90.
  Box extent{-180.0, 180.0, -90.0, 90.0};
  bool queryable = false;  // draws vector features (an alias: one of its layers does)
};

// The dataset's layers, then its aliases, as described above.
std::vector<WmsLayer> ListWmsLayers(const Dataset& dataset);

// The box holding every listed layer (the world when there are none).
Box UnionExtent(const std::vector<WmsLayer>& layers);

// Every name must be a listed layer (else LayerNotDefined); with
// `queryable`, one that draws vector features (else LayerNotQueryable).
// `key` is the parameter the names came from.
std::optional<WmsError> CheckWmsLayers(const std::vector<WmsLayer>& listed,
                                       const std::vector<std::string>& names, bool queryable,
                                       const char* key);

// Replaces the map's Layers array by the named layers in order: a layer is
// switched on as it is, an alias is expanded by the layer-string grammar
// (with its zoom range and boxes). False when the map has no dataset.
bool SelectWmsLayers(MapRequest& map, const std::vector<std::string>& names);

}  // namespace vmp
