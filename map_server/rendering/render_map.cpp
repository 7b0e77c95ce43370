#include "map_server/rendering/render_map.h"

#include <algorithm>
#include <limits>
#include <span>

#include "map_server/geometry/int_conversion.h"
#include "map_server/layers/layer_pass.h"
#include "map_server/rendering/grid_layer.h"
#include "map_server/rendering/render_timer.h"
#include "map_server/rendering/simple_layers.h"
#include "map_server/service/map_service.h"
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

class LayerLoop {
 public:
  LayerLoop(MapRequest& map, DrawSurface& surface, RenderOutput& output)
      : map_(map), surface_(surface), output_(output), renderer_(Service().renderer()) {}

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
    VectorDrawStats stats;
    for (const auto& tile : active.tiles) {
      hits_.clear();
      if (!renderer_.DrawVectorTile(surface_, layer, tile->vector, conditions, stats, query ? &hits_ : nullptr)) {
        break;  // the layer cannot be drawn at all (reported once)
      }
      for (size_t index : hits_) output_.hits.push_back(MakeHit(layer, tile->vector, index, map_.geometry.zoom));
    }
    ReportVectorStats(stats);
  }

  MapRequest& map_;
  DrawSurface& surface_;
  RenderOutput& output_;
  Renderer& renderer_;
  std::vector<LayerSlot> slots_;
  std::vector<std::vector<ImageTileRef>> tile_refs_;
  std::vector<size_t> hits_;
  std::vector<Box> tile_bounds_;  // diagnostic code 1001
};

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
  LayerLoop loop(map, surface, output);
  loop.Run(pass);
  if (!location_query && log.debug_code == kTileBoundsDebugCode) DrawTileBounds(surface, loop.tile_bounds());
  FinishRequestLayers(pass);
  return static_cast<int>(location_query ? output.hits.size() : output.layers_drawn);
}

}  // namespace vmp
