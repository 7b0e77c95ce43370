#include "map_server/rendering/render_map.h"

#include <algorithm>
#include <limits>
#include <span>

#include "map_server/geometry/int_conversion.h"
#include "map_server/layers/layer_pass.h"
#include "map_server/rendering/grid_labels.h"
#include "map_server/rendering/grid_layer.h"
#include "map_server/rendering/render_timer.h"
#include "map_server/rendering/simple_layers.h"
#include "map_server/service/map_service.h"
#include "map_server/text/label_layout.h"
#include "map_server/text/label_selection.h"
#include "map_server/vector/attribute_map.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr int64_t kTileBoundsDebugCode = 1001;

int32_t PixelIndex(double value) {
  return static_cast<int32_t>(std::clamp<int64_t>(TruncToInt64(value), std::numeric_limits<int32_t>::min(),
                                                  std::numeric_limits<int32_t>::max()));
}

// The layer list as the drawing loop walks it: the pass's layers, with a
// null entry for each record of the request that is not drawn (off,
// inactive, or dropped), where it stood. Only the image-run counts of
// verbosity 7 see the null entries.
std::vector<const ActiveLayer*> LoopEntries(const MapRequest& map, const RequestLayers& pass) {
  std::vector<const ActiveLayer*> entries;
  std::vector<const ActiveLayer*> pending;  // background layers wait for their owner
  size_t next_record = 0;
  for (const ActiveLayer& active : pass.layers) {
    if (active.role == LayerRole::kBackground) {
      pending.push_back(&active);
      continue;
    }
    const std::string& name = active.role == LayerRole::kFallback ? active.stands_for : active.layer->name;
    size_t record = next_record;
    while (record < map.layers.size() && map.layers[record].name != name) ++record;
    if (record < map.layers.size()) {
      entries.insert(entries.end(), record - next_record, nullptr);
      next_record = record + 1;
    }
    entries.insert(entries.end(), pending.begin(), pending.end());
    pending.clear();
    entries.push_back(&active);
  }
  entries.insert(entries.end(), pending.begin(), pending.end());
  if (next_record < map.layers.size()) entries.insert(entries.end(), map.layers.size() - next_record, nullptr);
  return entries;
}

Box BoxOf(const TileBounds& b) { return {b.min_lon, b.max_lon, b.min_lat, b.max_lat}; }

FeatureHit MakeHit(Layer& layer, const VectorData& data, size_t index, double zoom) {
  const Feature& feature = *data.features[index];
  FeatureHit hit;
  hit.layer = layer.name;
  hit.kind = feature.kind();
  hit.index = static_cast<int64_t>(index);
  if (const MarkerFeature* marker = feature.AsMarker()) {
    hit.lat = marker->y;
    hit.lon = marker->x;
  } else {
    // A group's first record carries the box of the whole group.
    const PolygonBox& box = feature.AsPolygon()->box;
    hit.lat = 0.5 * (box.min_y + box.max_y);
    hit.lon = 0.5 * (box.min_x + box.max_x);
  }
  for (const Attribute& a : feature.attributes) hit.attributes.push_back({std::to_string(a.index), a.value});
  LayerAttributes& custom = layer.record.attributes;
  if (custom.attr_maps.empty()) return hit;
  FeatureContext context;
  context.feature = &feature;
  context.data = &data;
  context.layer_name = layer.name;
  context.layer = &custom;
  context.zoom = zoom;
  for (const CustomAttribute& declared : custom.custom_attributes) {
    if (custom.FindMapFor(declared.entry.index) == nullptr) continue;
    if (const Attribute* value = LookupCustomAttribute(context, declared.entry.index, true)) {
      hit.attributes.push_back({declared.name, value->value});
    }
  }
  return hit;
}

// Which layers hand their labels to the collector.
enum class LabelPass {
  kMap,     // every layer whose labels are on: the map's own labels
  kInTile,  // a location query: the layers selecting labels in INTILE mode
};

class LayerLoop {
 public:
  LayerLoop(MapRequest& map, DrawSurface& surface, RenderOutput& output, LabelCollector& labels,
            LabelPass label_pass)
      : map_(map),
        surface_(surface),
        output_(output),
        renderer_(Service().renderer()),
        labels_(labels),
        label_pass_(label_pass) {}

  // Bounds of the tiles drawn (collected under diagnostic code 1001).
  const std::vector<Box>& tile_bounds() const { return tile_bounds_; }

  void Run(const RequestLayers& pass) {
    const std::vector<const ActiveLayer*> entries = LoopEntries(map_, pass);
    slots_.clear();
    for (const ActiveLayer* entry : entries) {
      slots_.push_back({entry ? entry->layer->record.layer_type : kLayerImage, entry != nullptr});
    }
    for (size_t i = 0; i < entries.size();) {
      const ActiveLayer* active = entries[i];
      if (active == nullptr) {
        ++i;
        continue;
      }
      const int64_t type = active->layer->record.layer_type;
      if (type == kLayerImage) {
        const ImageLayerRun run = FindImageLayerRun(slots_, i);
        for (size_t k : run.layers) ReportDrawing(*entries[k]);
        ReportImageLayerRun(run);
        DrawImageRun(entries, run);
        i = run.next;
      } else {
        ReportDrawing(*active);
        ++i;
        if (!CheckLayerType(type)) continue;
        DrawLayer(*active);
      }
      EnforceTileLimits();
    }
  }

 private:
  static void ReportDrawing(const ActiveLayer& active) {
    if (Verbosity() >= 4) Report(kStatus, "Layer active, drawing", active.layer->name);
  }

  void Drawn(const ActiveLayer& active) {
    ++output_.layers_drawn;
    if (kav::Messages().debug_code != kTileBoundsDebugCode) return;
    for (const auto& tile : active.tiles) tile_bounds_.push_back(BoxOf(tile->bounds));
  }

  void DrawImageRun(const std::vector<const ActiveLayer*>& entries, const ImageLayerRun& run) {
    RenderTimer timer(kImageLayersTime);
    tile_refs_.resize(run.layers.size());
    std::vector<ImageLayerInput> inputs;
    for (size_t k = 0; k < run.layers.size(); ++k) {
      const ActiveLayer& active = *entries[run.layers[k]];
      std::vector<ImageTileRef>& refs = tile_refs_[k];
      refs.clear();
      for (const auto& tile : active.tiles) refs.push_back({&tile->image, BoxOf(tile->bounds), !tile->Good()});
      inputs.push_back(ImageLayerInputOf(*active.layer, refs, map_.record.image_anti_aliasing != 0));
      Drawn(active);
    }
    renderer_.DrawImageLayers(surface_, inputs);
  }

  void DrawLayer(const ActiveLayer& active) {
    Layer& layer = *active.layer;
    switch (layer.record.layer_type) {
      case kLayerGrid: {
        RenderTimer timer(kGridLayerTime);
        renderer_.DrawGridLayer(surface_, layer);
        if (label_pass_ == LabelPass::kMap && labels_.BeginLayer(layer, active.labels)) {
          AddGridLabels(labels_, layer, surface_.geometry());
          labels_.EndLayer();
        }
        break;
      }
      case kLayerVector: {
        RenderTimer timer(kVectorLayerTime);
        DrawVectorLayer(active);
        break;
      }
      case kLayerOutline: {
        RenderTimer timer(kOutlineLayerTime);
        DrawOutlineLayer(surface_, layer);
        break;
      }
      default: {
        RenderTimer timer(kBackgroundLayerTime);
        DrawBackgroundLayer(surface_, layer);
        break;
      }
    }
    Drawn(active);
  }

  void DrawVectorLayer(const ActiveLayer& active) {
    Layer& layer = *active.layer;
    OverrideConditions conditions;
    if (active.selection.mode == 2) {
      conditions.include = &active.selection.include_conditions;
      conditions.exclude = &active.selection.exclude_conditions;
    }
    const bool query = surface_.location_query();
    LabelCollector* labels = labels_.BeginLayer(layer, WantsLabels(active)) ? &labels_ : nullptr;
    VectorDrawStats stats;
    for (const auto& tile : active.tiles) {
      hits_.clear();
      if (!renderer_.DrawVectorTile(surface_, layer, tile->vector, conditions, stats, query ? &hits_ : nullptr,
                                    labels)) {
        break;  // the layer cannot be drawn at all (reported once)
      }
      for (size_t index : hits_) output_.hits.push_back(MakeHit(layer, tile->vector, index, map_.geometry.zoom));
    }
    if (labels != nullptr) labels->EndLayer();
    ReportVectorStats(stats);
  }

  bool WantsLabels(const ActiveLayer& active) const {
    if (!active.labels) return false;
    if (label_pass_ == LabelPass::kMap) return true;
    return EffectiveLabelSelectionMode(map_.record.label_selection_mode,
                                       active.layer->record.drawing.label_selection_mode) == kSelectLabelsInTile;
  }

  MapRequest& map_;
  DrawSurface& surface_;
  RenderOutput& output_;
  Renderer& renderer_;
  LabelCollector& labels_;
  const LabelPass label_pass_;
  std::vector<LayerSlot> slots_;
  std::vector<std::vector<ImageTileRef>> tile_refs_;
  std::vector<size_t> hits_;
  std::vector<Box> tile_bounds_;  // diagnostic code 1001
};

// Adds a feature whose label was selected, after the hits of its layer so
// that each layer's hits stay together, unless its shape was hit already.
void AddLabelHit(std::vector<FeatureHit>& hits, FeatureHit hit) {
  size_t insert_at = hits.size();
  for (size_t i = 0; i < hits.size(); ++i) {
    const FeatureHit& h = hits[i];
    if (h.layer != hit.layer) continue;
    if (h.index == hit.index && h.lat == hit.lat && h.lon == hit.lon && h.kind == hit.kind) return;
    insert_at = i + 1;
  }
  hits.insert(hits.begin() + static_cast<std::ptrdiff_t>(insert_at), std::move(hit));
}

// The features of the labels among `placed` that touch `search_box` and
// whose layer selects labels in `mode`.
void AddSelectedLabels(const MapRequest& map, const RequestLayers& pass, std::span<const PlacedLabel> placed,
                       const PixelRect& search_box, int32_t mode, std::vector<FeatureHit>& hits) {
  const int32_t request_mode = map.record.label_selection_mode;
  for (const PlacedLabel* label : SelectLabels(placed, search_box, request_mode)) {
    if (EffectiveLabelSelectionMode(request_mode, label->selection_mode) != mode) continue;
    const auto active = std::find_if(pass.layers.begin(), pass.layers.end(),
                                     [&](const ActiveLayer& a) { return a.layer == label->owner.layer; });
    if (active == pass.layers.end()) continue;
    AddLabelHit(hits, MakeHit(*active->layer, *label->owner.data, label->owner.feature, map.geometry.zoom));
  }
}

// Whether a selected vector layer selects labels in YES mode (the layers'
// records are converted by the location pass).
bool SelectsViewLabels(const MapRequest& map) {
  const int32_t request_mode = map.record.label_selection_mode;
  if (request_mode == kSelectLabelsNone) return false;
  for (const SelectedLayer& record : map.layers) {
    if (record.mode == 0) continue;
    for (const auto& layer : map.record.dataset->layers) {
      if (layer->name != record.name) continue;
      if (layer->record.layer_type == kLayerVector &&
          EffectiveLabelSelectionMode(request_mode, layer->record.drawing.label_selection_mode) ==
              kSelectLabelsYes) {
        return true;
      }
      break;
    }
  }
  return false;
}

bool IsImageLayer(const Dataset& dataset, const std::string& name) {
  for (const auto& layer : dataset.layers) {
    if (layer->name == name) return layer->record.layer_type == kLayerImage;
  }
  return false;
}

// The view pass of a selection whose layers select labels in YES mode: the
// whole view is laid out as a GetMap lays it out, without an image (image
// layers left out: they carry no labels), and the features of the YES
// labels touching the query's search box join the hits.
void SelectViewLabels(MapRequest& map, RenderOutput& output) {
  const MapGeometry query_geometry = map.geometry;
  const std::vector<SelectedLayer> records = map.layers;
  for (SelectedLayer& record : map.layers) {
    if (IsImageLayer(*map.record.dataset, record.name)) record.mode = 0;
  }
  map.record.location_query = false;
  map.record.report_features = true;
  if (SetupMapGeometry(map, false)) {
    RequestLayers pass = PrepareRequestLayers(map);
    DrawSurface surface(nullptr, map.geometry);
    LabelCollector labels(Service().text_engine(), Service().font_library(), surface, *map.record.dataset);
    RenderOutput view_output;
    LayerLoop loop(map, surface, view_output, labels, LabelPass::kMap);
    loop.Run(pass);
    labels.Finish();
    AddSelectedLabels(map, pass, labels.placed(), SearchBox(query_geometry), kSelectLabelsYes, output.hits);
    FinishRequestLayers(pass);
  }
  map.layers = records;
  map.record.location_query = true;
  map.record.report_features = false;
  map.geometry = query_geometry;
}

}  // namespace

int RenderMap(MapRequest& map, bool location_query, double query_x, double query_y,
              RenderOutput& output) {
  kav::MessageLog& log = kav::Messages();
  if (log.verbosity >= 1000) {
    log.debug_code = log.verbosity;
    log.verbosity = 0;
  }
  RenderTimer total(kTotalRenderTime);
  output = RenderOutput{};

  ConvertConfig(map);
  if (map.record.dataset == nullptr && !VmpSetupMap(map)) return -1;
  map.record.location_query = location_query;
  if (location_query) {
    map.record.location_i = PixelIndex(query_x);
    map.record.location_j = PixelIndex(query_y);
  }

  if (!SetupMapGeometry(map, false)) return -1;
  MapImage& image = Service().map_image();
  if (!location_query && !AllocateMapImage(map.geometry, image)) return -1;

  RequestLayers pass = PrepareRequestLayers(map);
  DrawSurface surface(location_query ? nullptr : &image, map.geometry);
  {
    // Placed labels point into the tiles' data: they are used up before
    // the pass lets go of its tiles.
    LabelCollector labels(Service().text_engine(), Service().font_library(), surface, *map.record.dataset);
    LayerLoop loop(map, surface, output, labels, location_query ? LabelPass::kInTile : LabelPass::kMap);
    loop.Run(pass);
    labels.Finish();
    if (location_query) {
      AddSelectedLabels(map, pass, labels.placed(), surface.search_box(), kSelectLabelsInTile, output.hits);
    } else if (log.debug_code == kTileBoundsDebugCode) {
      DrawTileBounds(surface, loop.tile_bounds());
    }
  }
  FinishRequestLayers(pass);
  if (location_query && SelectsViewLabels(map)) SelectViewLabels(map, output);
  return static_cast<int>(location_query ? output.hits.size() : output.layers_drawn);
}

}  // namespace vmp
