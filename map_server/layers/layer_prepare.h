// Preparing one selected layer for a request: its configuration, the "++"
// override, its redirect file, and whether the map's zoom and view leave it
// active.
//
// Zoom limits are compared with the map's zoom z as limit * k, where k is the
// layer's zoom scale: 1 when the dataset's RelativeZoom is 0; otherwise the
// zoom at which the layer's own extent fills the view, max(360 / longitude
// span, 180 / latitude span), so that with relative zoom a MinZoom of 2 means
// "twice as close as the whole layer".
//
// The layer's own limits (MinZoom, MaxZoom, LabelMinZoom, LabelMaxZoom) are
// unset only at exactly -1; an alias's limits are unset at any value up to 0.
#pragma once

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/layer.h"
#include "map_server/dataset/map_request.h"

namespace vmp {

struct PreparedLayer {
  bool active = false;
  // The redirect file disabled the layer (a fallback may stand in for it).
  bool redirect_failed = false;
  // Whether the layer's fallback-file description may stand in for it.
  bool fallback_file_enabled = true;
  bool labels = false;         // vector layers and labelled grids: labels drawn at this zoom
  bool override_zoom = false;  // an allowed "++" override
  const Font* font = nullptr;  // the layer's text font, when the dataset has it
};

// The layer's zoom scale k (see above).
double LayerZoomScale(const Layer& layer);

// Prepares `layer` for the request, in this order: converts its
// configuration ("Can't draw elevation layer" for an image layer with
// ElevationMode DATA; a negative Alpha turns it off), looks up its font
// quietly, drops a "++" override the layer does not allow ("Ignoring
// disallowed ++ override for layer"), reads its redirect file (a new prefix
// drops its cached tiles), then applies the zoom ranges (unless overridden),
// the label zoom range of vector layers and, for small views, the alias
// boxes. `selection` is the request's record of the layer (its override flag
// is cleared when disallowed). The map's geometry must be set up.
PreparedLayer PrepareLayer(MapRequest& map, SelectedLayer& selection, Layer& layer);

}  // namespace vmp
