#include "map_server/layers/layer_pass.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "map_server/layers/layer_prepare.h"
#include "map_server/layers/layer_string.h"
#include "map_server/layers/view_box.h"
#include "map_server/rendering/feature_style.h"
#include "map_server/service/map_service.h"
#include "map_server/tiles/tile_selection.h"
#include "map_server/tiles/tile_walk.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

bool IsTiled(const Layer& layer) { return layer.IsImageOrVector(); }
bool IsVector(const Layer& layer) { return layer.record.layer_type == kLayerVector; }

SelectedLayer PlainRecord(const std::string& name) {
  SelectedLayer record;
  record.name = name;
  record.mode = 1;
  return record;
}

// The map's pixel size in degrees where it is finest: the rectangular
// projection's degrees per pixel; on the globe, the angle a pixel spans at
// the centre (nowhere does a pixel span a smaller angle of latitude, nor of
// longitude).
double FinestPixelDegrees(const MapGeometry& g) {
  const double per_pixel = std::min(g.inv_scale_x, g.inv_scale_y);
  return g.projection == kOrthographicProjection ? per_pixel * 180.0 / kPi : per_pixel;
}

// The latitudes the map shows, from the view's box (sampled along the
// visible rectangle's border), widened by a tenth and at least a degree so
// that nothing between the samples is missed.
void LatitudeBand(const MapGeometry& g, double& min_lat, double& max_lat) {
  const ViewBox view = ComputeViewBox(g);
  if (!(view.min_lat <= view.max_lat)) return;
  const double margin = std::max(1.0, 0.1 * (view.max_lat - view.min_lat));
  min_lat = view.min_lat - margin;
  max_lat = view.max_lat + margin;
}

// Whether an attribute map reads the features' attributes in this drawing:
// maps on the zoom or random input never do; maps on an attribute do when
// they drive a drawing resource, or, while the layer's labels are on, any
// resource (label settings and priorities).
bool MapReadsAttributes(const AttributeMap& map, bool labels_on) {
  if (map.failed || map.input < 0) return false;
  return labels_on || IsStyleResource(map.resource_name);
}

// Whether drawing (or querying) the layer reads its features' attributes:
// queries list them, conditions and attribute maps evaluate them, labels
// may print them. Tiles loaded without them load several times faster.
bool NeedsAttributes(const ActiveLayer& entry, bool location_query) {
  const LayerRecord& r = entry.layer->record;
  if (location_query || (r.conditions && !r.conditions->empty()) || entry.selection.mode == 2) return true;
  if (entry.labels && (r.drawing.label_format || r.drawing.poly_label_format)) return true;
  for (const AttributeMap& map : r.attributes.attr_maps) {
    if (MapReadsAttributes(map, entry.labels)) return true;
  }
  return false;
}

class Timer {
 public:
  void Report(const char* text) const {
    if (Verbosity() > -2) return;
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start_;
    ReportNumber(kInfo, text, elapsed.count());
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

class LayerPass {
 public:
  LayerPass(MapRequest& map, RequestLayers& out)
      : map_(map), dataset_(*map.record.dataset), out_(out),
        location_(map.geometry.location_query) {}

  void SelectedLayers() {
    for (SelectedLayer& record : map_.layers) {
      if (record.mode == 0) continue;
      Layer* layer = FindLayer(dataset_, record.name);
      if (layer == nullptr) continue;
      tried_.assign(1, layer);
      if (!TakesPart(*layer)) continue;
      const PreparedLayer prepared = PrepareLayer(map_, record, *layer);
      if (!prepared.active) {
        if (prepared.redirect_failed) {
          Fallback(*layer, record, false, prepared.fallback_file_enabled, record.name);
        }
        continue;
      }
      Use(*layer, record, prepared, LayerRole::kSelected, record.name);
    }
  }

  void BackgroundLayers() {
    if (location_) return;
    std::vector<const Layer*> placed;
    for (size_t i = 0; i < out_.layers.size(); ++i) {
      const ActiveLayer& active = out_.layers[i];
      const Layer& owner = *active.layer;
      if (active.role == LayerRole::kBackground || owner.record.layer_type != kLayerImage) continue;
      const auto& name = owner.record.tiles.background_layer;
      if (!name || name->empty()) continue;
      Layer* background = FindDatasetLayer(dataset_, *name);
      if (background == nullptr) {
        Report(kError, "Can't find background layer", *name);
        continue;
      }
      if (FindSelected(map_.layers, *name) != nullptr) {
        if (Verbosity() >= 1) Report(kWarning, "Ignoring BACKGROUND LAYER: already selected.", *name);
        continue;
      }
      if (std::find(placed.begin(), placed.end(), background) != placed.end()) continue;
      if (background->record.layer_type != kLayerImage || background == &owner ||
          IsActive(*background) || background->record.tiles.elevation_mode == 1) {
        Report(kWarning, "Ignoring BACKGROUND LAYER (non-image layer or bg_layer).", *name);
        continue;
      }
      SelectedLayer record = PlainRecord(*name);
      const PreparedLayer prepared = PrepareLayer(map_, record, *background);
      if (!prepared.active) continue;
      ActiveLayer entry = Entry(*background, record, prepared, LayerRole::kBackground, "");
      if (!ChooseTiles(*background, entry)) continue;
      placed.push_back(background);
      out_.layers.insert(out_.layers.begin() + static_cast<std::ptrdiff_t>(i), std::move(entry));
      ++i;
    }
  }

 private:
  // Outside location queries every layer takes part; in them only vector
  // layers (image layers also lose any marks left on them).
  bool TakesPart(Layer& layer) {
    if (!location_ || IsVector(layer)) return true;
    if (layer.record.layer_type == kLayerImage) {
      if (LayerTiles* state = Tiles().FindState(&layer)) {
        TileWalk walk;
        walk.op = kTileReset;
        walk.layer = &layer;
        walk.state = state;
        ForEachGridTile(walk);
      }
    }
    return false;
  }

  bool IsActive(const Layer& layer) const {
    return std::any_of(out_.layers.begin(), out_.layers.end(),
                       [&](const ActiveLayer& a) { return a.layer == &layer; });
  }

  ActiveLayer Entry(Layer& layer, const SelectedLayer& record, const PreparedLayer& prepared,
                    LayerRole role, const std::string& stands_for) {
    ActiveLayer entry;
    entry.layer = &layer;
    entry.role = role;
    entry.selection = record;
    entry.stands_for = role == LayerRole::kFallback ? stands_for : std::string();
    entry.labels = prepared.labels;
    entry.font = prepared.font;
    return entry;
  }

  // Chooses and loads the layer's tiles into `entry`; false when the layer
  // cannot be drawn this way (the outcome is left in `outcome_`).
  bool ChooseTiles(Layer& layer, ActiveLayer& entry) {
    outcome_ = SelectLayerTiles(map_, layer);
    if (std::find(out_.marked.begin(), out_.marked.end(), &layer) == out_.marked.end()) {
      out_.marked.push_back(&layer);
    }
    if (outcome_ != TileSelection::kSelected) return false;
    LoadTiles(layer, entry);
    return true;
  }

  void LoadTiles(Layer& layer, ActiveLayer& entry) {
    const MapGeometry& g = map_.geometry;
    TileWalk walk;
    walk.op = kTileDraw;
    walk.layer = &layer;
    walk.state = &Tiles().StateOf(layer);
    walk.geometry = &g;
    walk.settings = VolatileSettingsOf(layer);
    const bool vector = IsVector(layer);
    if (vector) {
      walk.hints.attributes = NeedsAttributes(entry, location_ || map_.record.report_features);
    } else {
      const double finest = FinestPixelDegrees(g);
      walk.hints.max_degrees_per_pixel = std::isfinite(finest) && finest > 0.0 ? finest : 0.0;
      LatitudeBand(g, walk.hints.band_min_lat, walk.hints.band_max_lat);
    }
    if (location_) {
      walk.location_query = true;
      walk.lat = g.location_lat;
      walk.lon = g.location_lon;
      const double half_box = static_cast<double>(std::max(g.search_x_to - g.search_x_from,
                                                           g.search_y_to - g.search_y_from)) /
                              2.0;
      walk.location_margin = (half_box + 1.0) * g.pixel_size;
    }
    walk.on_tile = [&](const std::shared_ptr<TileRecord>& tile, const SlfNode* leaf) {
      if (vector && tile->dead) {
        if (leaf != nullptr) Report(kError, "Got a dead vector tile", leaf->slf_path);
        return;
      }
      if (vector && tile->read_errors && leaf != nullptr) {
        Report(kError, "Got a vector tile with read errors", leaf->slf_path);
      }
      entry.tiles.push_back(tile);
    };
    ForEachGridTile(walk);
  }

  void Use(Layer& layer, const SelectedLayer& record, const PreparedLayer& prepared,
           LayerRole role, const std::string& stands_for) {
    ActiveLayer entry = Entry(layer, record, prepared, role, stands_for);
    if (!IsTiled(layer)) {
      out_.layers.push_back(std::move(entry));
      return;
    }
    if (ChooseTiles(layer, entry)) {
      out_.layers.push_back(std::move(entry));
      return;
    }
    if (outcome_ == TileSelection::kClippedOut) return;
    Fallback(layer, record, outcome_ == TileSelection::kExceeded, prepared.fallback_file_enabled,
             stands_for);
  }

  // Replaces `failing` by its fallback, if it has a usable one.
  void Fallback(Layer& failing, const SelectedLayer& failing_record, bool exceeded,
                bool fallback_file_enabled, const std::string& stands_for) {
    Layer* fallback = nullptr;
    SelectedLayer record;
    const auto& name = failing.record.fallback_layer;
    if (name && !name->empty()) {
      if (Verbosity() >= 4) Report(kInfo, "Fallback layer name", *name);
      fallback = FindDatasetLayer(dataset_, *name);
      if (fallback == nullptr) {
        Report(kError, "Can't find fallback layer", *name);
      } else if (FindSelected(map_.layers, *name) != nullptr) {
        if (Verbosity() >= 4) Report(kInfo, "Ignoring fallback layer: already selected.", *name);
        fallback = nullptr;
      }
      record = PlainRecord(*name);
    } else if (failing.fallback_file_layer && fallback_file_enabled) {
      fallback = failing.fallback_file_layer.get();
      record = failing_record;
    }
    if (fallback != nullptr && std::find(tried_.begin(), tried_.end(), fallback) != tried_.end()) {
      if (Verbosity() >= 4) Report(kInfo, "Ignoring fallback layer: already tried.", fallback->name);
      fallback = nullptr;
    }
    if (fallback == nullptr || !TakesPart(*fallback)) {
      if (exceeded && Verbosity() >= 4) Report(kInfo, "Disabling layer, num tiles exceeded.", failing.name);
      return;
    }
    tried_.push_back(fallback);
    const PreparedLayer prepared = PrepareLayer(map_, record, *fallback);
    if (!prepared.active) {
      if (Verbosity() >= 4) {
        Report(kInfo, "Fallback Layer inactive, out of min/max zoom range", fallback->name);
        if (exceeded) Report(kInfo, "Disabling layer, num tiles exceeded.", failing.name);
      }
      if (prepared.redirect_failed) {
        Fallback(*fallback, record, false, prepared.fallback_file_enabled, stands_for);
      }
      return;
    }
    if (exceeded && Verbosity() >= 4) Report(kInfo, "Switching to fallback layer", failing.name);
    Use(*fallback, record, prepared, LayerRole::kFallback, stands_for);
  }

  MapRequest& map_;
  Dataset& dataset_;
  RequestLayers& out_;
  const bool location_;
  std::vector<const Layer*> tried_;  // the selected layer and its fallbacks so far
  TileSelection outcome_ = TileSelection::kSelected;
};

}  // namespace

RequestLayers PrepareRequestLayers(MapRequest& map) {
  RequestLayers out;
  if (!CheckMapSetup(map)) return out;
  LayerPass pass(map, out);
  const Timer clipping;
  pass.SelectedLayers();
  clipping.Report("Tile clipping time");
  const Timer backgrounds;
  pass.BackgroundLayers();
  backgrounds.Report("BG layers setup time");
  return out;
}

void FinishRequestLayers(RequestLayers& request) {
  for (Layer* layer : request.marked) {
    // A layer whose state was dropped during the request (its description
    // was read again) has no marks left to clear.
    LayerTiles* state = Tiles().FindState(layer);
    if (state == nullptr) continue;
    TileWalk walk;
    walk.op = kTileReset;
    walk.layer = layer;
    walk.state = state;
    ForEachGridTile(walk);
    state->tiles_exceeded = false;
    state->enabled = false;
  }
  request.marked.clear();
  request.layers.clear();
}

bool FeatureSelected(const ActiveLayer& active, const FeatureContext& context) {
  const LayerRecord& r = active.layer->record;
  if (r.conditions && !r.conditions->empty() && !MatchAttrConditions(*r.conditions, context)) {
    return false;
  }
  const SelectedLayer& s = active.selection;
  if (s.mode != 2) return true;
  if (!s.include_conditions.empty() && !MatchAttrConditions(s.include_conditions, context)) {
    return false;
  }
  return !MatchAttrConditions(s.exclude_conditions, context);
}

}  // namespace vmp
