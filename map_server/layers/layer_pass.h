// The per-request layer pass: from a map request whose layers are selected
// and whose geometry is set up, to the ordered list of layers to draw, each
// with its loaded tiles.
//
//   SelectMapLayers(map, layers_string);          // or SelectQueryLayers(map)
//   SetupMapGeometry(map, false);
//   RequestLayers pass = PrepareRequestLayers(map);
//   for (const ActiveLayer& active : pass.layers) {
//     ... draw active.layer with active.tiles ...
//     EnforceTileLimits();                        // after each drawn layer
//   }
//   FinishRequestLayers(pass);                    // clears the request's tile marks
//
// What the pass does, in order:
// 1. Each selected record that is on (mode 1 or 2), in the request's order,
//    is prepared (PrepareLayer: configuration, override, redirect, zoom,
//    labels, alias boxes). Image and vector layers then have their tiles
//    chosen (SelectLayerTiles) and loaded; grid, outline and background
//    layers take part without tiles.
// 2. A layer over its MaxTiles, whose tile layout is in error, or whose
//    redirect file failed is replaced, in its place in the list, by its
//    fallback: the layer named by its FallbackLayer, or else the description
//    read from its fallback file; a fallback that fails in turn is replaced
//    by its own fallback. "Tile clipping time" covers steps 1 and 2.
// 3. Background layers: an active image layer whose BackgroundLayer names an
//    image layer gets that layer, prepared and with its tiles, drawn directly
//    before it (once per request). "BG layers setup time" covers this step.
//
// A location query (the map geometry's location flag) runs the same pass
// without an image: only vector layers take part (image layers also have
// their tile marks cleared), no background layers are added, and only the
// tiles whose bounds hold the query point (widened by the search box) are
// loaded.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/layer.h"
#include "map_server/dataset/map_request.h"
#include "map_server/tiles/tile_cache.h"  // EnforceTileLimits
#include "map_server/tiles/tile_record.h"
#include "map_server/vector/attr_match.h"

namespace vmp {

enum class LayerRole {
  kSelected,    // named by the request
  kFallback,    // stands in for a selected layer that failed
  kBackground,  // drawn under the image layer that names it
};

struct ActiveLayer {
  Layer* layer = nullptr;  // converted record: read the drawing settings from it
  LayerRole role = LayerRole::kSelected;
  // The request's record for the layer: mode and include/exclude conditions.
  // A fallback-file description keeps the record of the layer it describes;
  // a fallback named by FallbackLayer and a background layer get a plain one.
  SelectedLayer selection;
  std::string stands_for;  // kFallback: the selected layer it replaces
  bool labels = false;     // vector layers and labelled grids: labels are on at this zoom
  const Font* font = nullptr;  // the layer's text font, when the dataset has it
  // Image and vector layers: the tiles the view needs, in walk order (grid
  // rows, then columns; tree leaves in file order), each with its bounds.
  // Vector tiles are never dead here; a vector tile with read_errors holds
  // what could be read and is drawn all the same. Image tiles that are not
  // Good() hold no usable pixels: skip them ("Skipping image tiles with
  // errors"). The references keep the data valid even when the caches evict
  // a tile before it is drawn.
  std::vector<std::shared_ptr<const TileRecord>> tiles;
};

struct RequestLayers {
  std::vector<ActiveLayer> layers;  // in drawing order
  // Layers whose tile marks this request set (cleared by FinishRequestLayers).
  std::vector<Layer*> marked;
};

// Runs the pass over the map's selected layers (map.layers). The map must be
// bound to its dataset and its geometry set up; otherwise the list is empty
// ("Unset map object, missing VmpSetupMap() call!").
RequestLayers PrepareRequestLayers(MapRequest& map);

// Ends the request's use of its layers: clears the tile marks of every layer
// the pass marked and drops the pass's tile references.
void FinishRequestLayers(RequestLayers& request);

// The feature filter of an active vector layer: the layer's own attribute
// conditions (ATTR COND) when it has some, and for a record in mode 2 its
// include conditions (when it has any) and exclude conditions.
bool FeatureSelected(const ActiveLayer& active, const FeatureContext& context);

}  // namespace vmp
