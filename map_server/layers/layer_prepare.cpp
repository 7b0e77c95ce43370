#include "map_server/layers/layer_prepare.h"

#include <algorithm>
#include <cmath>

#include "map_server/dataset/redirect_file.h"
#include "map_server/layers/view_box.h"
#include "map_server/tiles/tile_cache.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// The layer's extent: its own bounds, or its tile tree's.
bool LayerExtent(const Layer& layer, double* lon_span, double* lat_span) {
  const LayerRecord& r = layer.record;
  double lon = r.max_lon - r.min_lon;
  double lat = r.max_lat - r.min_lat;
  if (!(lon > 0.0 && lat > 0.0) && r.tile_tree && !r.tile_tree->error) {
    lon = r.tile_tree->max_lon - r.tile_tree->min_lon;
    lat = r.tile_tree->max_lat - r.tile_tree->min_lat;
  }
  if (!(lon > 0.0 && lat > 0.0) || !std::isfinite(lon) || !std::isfinite(lat)) return false;
  *lon_span = lon;
  *lat_span = lat;
  return true;
}

bool OutOfZoomRange(const Layer& layer, const SelectedLayer& selection, double z, double k) {
  const LayerRecord& r = layer.record;
  if (r.max_zoom != -1.0 && z > r.max_zoom * k) return true;
  if (r.min_zoom != -1.0 && r.min_zoom * k > z) return true;
  if (selection.alias_max_zoom > 0.0 && z > selection.alias_max_zoom * k) return true;
  if (selection.alias_min_zoom > 0.0 && selection.alias_min_zoom * k > z) return true;
  return false;
}

bool LabelsInRange(const Layer& layer, double z, double k) {
  const DrawingAttributes& d = layer.record.drawing;
  if (d.label_max_zoom != -1.0 && z > d.label_max_zoom * k) return false;
  if (d.label_min_zoom != -1.0 && z < d.label_min_zoom * k) return false;
  return true;
}

bool AnyBoxHolds(const ViewBox& view, const std::vector<Box>& boxes) {
  return std::any_of(boxes.begin(), boxes.end(),
                     [&](const Box& box) { return ViewFallsInBox(view, box); });
}

void Inactive(const char* message, const Layer& layer) {
  if (Verbosity() >= 4) Report(kInfo, message, layer.name);
}

}  // namespace

double LayerZoomScale(const Layer& layer) {
  if (layer.record.relative_zoom == 0.0) return 1.0;
  double lon_span = 0.0, lat_span = 0.0;
  if (!LayerExtent(layer, &lon_span, &lat_span)) return 1.0;
  return std::max(360.0 / lon_span, 180.0 / lat_span);
}

PreparedLayer PrepareLayer(MapRequest& map, SelectedLayer& selection, Layer& layer) {
  PreparedLayer result;
  LayerRecord& r = layer.record;

  // 1. Configuration.
  ConvertConfig(layer);
  if (r.layer_type == kLayerImage && r.tiles.elevation_mode == 1) {
    Report(kError, "Can't draw elevation layer", layer.name);
    return result;
  }
  if (r.drawing.alpha < 0.0) return result;

  // 2. Font.
  const Dataset* dataset = map.record.dataset;
  if (dataset != nullptr && r.drawing.text_font && !r.drawing.text_font->empty()) {
    result.font = FindFont(*dataset, r.drawing.text_font, true);
  }

  // 3. The "++" override.
  if (selection.override_zoom && r.allow_override == 0) {
    Report(kWarning, "Ignoring disallowed ++ override for layer", layer.name);
    selection.override_zoom = false;
  }
  result.override_zoom = selection.override_zoom;

  // 4. Redirect file (the lock file needs no preparing: its path is resolved
  // when the layer is read, and the loader tests it for existence).
  if (dataset != nullptr) {
    const Layer* old_fallback = layer.fallback_file_layer.get();
    const RedirectResult redirect = PrepareLayerRedirect(*dataset, layer);
    result.fallback_file_enabled = redirect.fallback_file_enabled;
    if (redirect.prefix_changed) {
      FlushLayerTiles(layer, false);
      // The fallback description was read again: its old state goes too.
      if (old_fallback != nullptr) Tiles().DropLayer(old_fallback);
    }
    if (!redirect.layer_enabled) {
      result.redirect_failed = true;
      return result;
    }
  }

  // 5. Zoom ranges.
  const double z = map.geometry.zoom;
  const double k = LayerZoomScale(layer);
  if (!result.override_zoom && OutOfZoomRange(layer, selection, z, k)) {
    Inactive("Layer inactive, out of min/max zoom range", layer);
    return result;
  }

  // 6. Labels.
  if (r.layer_type == kLayerVector || (r.layer_type == kLayerGrid && r.grid.labels != 0)) {
    result.labels = LabelsInRange(layer, z, k);
    if (!result.labels) Inactive("Labels inactive, out of min/max zoom range", layer);
  }

  // 7. Alias boxes, for small views.
  if (map.geometry.apply_alias_boxes && (selection.enable_boxes || selection.disable_boxes)) {
    const ViewBox view = ComputeViewBox(map.geometry);
    if (selection.disable_boxes && AnyBoxHolds(view, *selection.disable_boxes)) {
      Inactive("Layer inactive, inside of the alias disable box", layer);
      return result;
    }
    if (selection.enable_boxes && !AnyBoxHolds(view, *selection.enable_boxes)) {
      Inactive("Layer inactive, outside of the alias enable box", layer);
      return result;
    }
  }
  result.active = true;
  return result;
}

}  // namespace vmp
