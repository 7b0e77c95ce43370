// Rendering one map request: geometry, map image, the request's layers with
// their tiles, and the drawing of every layer in list order. A location
// query runs the same pass without an image and collects the features that
// touch the query's search box.
//
//   SelectMapLayers(map, layers);          // or SelectQueryLayers(map)
//   RenderOutput out;
//   if (RenderMap(map, false, 0, 0, out) < 0) ... "Errors generating map image."
//   ... Service().map_image() holds the map ...
//
// Order of a render:
// 1. A verbosity of 1000 or more becomes the diagnostic code (verbosity 0).
// 2. The map's parameters are converted (and the map bound to its dataset
//    when it is not yet); the location flag and query pixel are stored.
// 3. Geometry setup (with the map's search radius for a location query).
// 4. Unless a location query: the map image, filled with the background.
// 5./6. PrepareRequestLayers: layers, fallbacks, tiles, background layers.
// 7. Each layer drawn in list order ("Layer active, drawing" at verbosity 4
//    or more); image layers that follow one another share one pixel pass;
//    EnforceTileLimits after each drawn layer (after each shared pass).
//    Vector layers whose labels are on at this zoom, and grid layers with
//    GridLabels, hand their labels to the request's LabelCollector; it is
//    finished (GLOBAL labels placed and drawn) after the last layer.
// 8. Diagnostic code 1001: the bounds of the drawn tiles, in red.
// 9. The tile marks are cleared; "Total map rendering time" (verbosity -2
//    or less, like every timing line).
//
// Labels in a location query (GetSelection's SELECT_LABELS with the layers'
// LabelSelectionMode, label_selection.h): layers selecting labels INTILE
// lay out the labels of the features the query pass looks at; when a layer
// selects labels YES, a second pass lays out the whole view as a GetMap
// would, without an image (image layers left out). The features of the
// labels touching the search box are added to the hits after their layer's
// other hits, each feature once.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "map_server/dataset/map_request.h"
#include "map_server/vector/typed_value.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

// A named attribute value of a hit feature.
struct HitAttribute {
  std::string name;
  TypedValue value;
};

// A feature that a location query hit.
struct FeatureHit {
  std::string layer;  // the layer drawn (a fallback layer under its own name)
  FeatureKind kind = FeatureKind::kPolygon;
  // Position of the feature in its tile file (a polygon group: its first
  // record).
  int64_t index = 0;
  // A marker's position; a polygon group's bounding-box centre.
  double lat = 0.0;
  double lon = 0.0;
  // The feature's own attributes named by their numbers ("3"), in file
  // order, then the layer's custom attributes that have a value for it,
  // under their declared names.
  std::vector<HitAttribute> attributes;
};

struct RenderOutput {
  // Location queries: every feature touching the search box, by layer in
  // list order, then tile, then file order; features found only by their
  // labels follow their layer's other hits (a layer hit only by labels
  // comes after the layers hit by shapes).
  std::vector<FeatureHit> hits;
  int64_t layers_drawn = 0;
};

// Renders `map` (see above). With `location_query` set, (query_x, query_y)
// is the queried pixel (column, image row); nothing is drawn and the hits
// go to `output`. Returns 0 or more on success (the number of layers drawn,
// or of features hit), -1 when the map cannot be set up.
int RenderMap(MapRequest& map, bool location_query, double query_x, double query_y,
              RenderOutput& output);

}  // namespace vmp
