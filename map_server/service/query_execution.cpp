#include "map_server/service/query_execution.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "map_server/dataset/redirect_file.h"
#include "map_server/rendering/tile_sampler.h"
#include "map_server/service/map_service.h"
#include "map_server/tiles/tile_cache.h"
#include "map_server/tiles/tile_walk.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr int64_t kSelectionDebugCode = 2001;

bool IsElevationLayer(const Layer& layer) {
  return layer.record.layer_type == kLayerImage && layer.record.tiles.elevation_mode != 0;
}

// The layer's elevation sample at the point, from the tile holding it.
std::optional<double> LayerElevation(const Dataset& dataset, Layer& layer, const MapGeometry& geometry,
                                     double lat, double lon) {
  const RedirectResult redirect = PrepareLayerRedirect(dataset, layer);
  if (redirect.prefix_changed) FlushLayerTiles(layer, false);
  if (!redirect.layer_enabled) return std::nullopt;

  std::vector<std::shared_ptr<TileRecord>> tiles;
  TileWalk walk;
  walk.layer = &layer;
  walk.state = &Tiles().StateOf(layer);
  walk.geometry = &geometry;
  walk.lat = lat;
  walk.lon = lon;
  walk.op = kTilePointQuery;
  ForEachGridTile(walk);
  walk.op = kTileDraw;
  walk.settings = VolatileSettingsOf(layer);
  walk.location_query = true;
  walk.on_tile = [&](const std::shared_ptr<TileRecord>& tile, const SlfNode*) { tiles.push_back(tile); };
  ForEachGridTile(walk);
  walk.op = kTileReset;
  ForEachGridTile(walk);
  EnforceTileLimits();

  std::vector<ImageTileRef> refs;
  for (const auto& tile : tiles) {
    const TileBounds& b = tile->bounds;
    refs.push_back({&tile->image, Box{b.min_lon, b.max_lon, b.min_lat, b.max_lat}, !tile->Good()});
  }
  return ElevationAt(refs, lat, lon);
}

}  // namespace

std::optional<double> QueryLayerElevation(MapRequest& map, double lat, double lon) {
  if (!CheckMapSetup(map)) return std::nullopt;
  Dataset& dataset = *map.record.dataset;
  bool any_layer = false;
  for (const SelectedLayer& record : map.layers) {
    if (record.mode == 0) continue;
    Layer* layer = FindLayer(dataset, record.name);
    if (layer == nullptr) continue;
    ConvertConfig(*layer);
    if (!IsElevationLayer(*layer)) continue;
    any_layer = true;
    if (std::optional<double> elevation = LayerElevation(dataset, *layer, map.geometry, lat, lon)) {
      return elevation;
    }
  }
  if (!any_layer) Report(kError, "No elevation layer among the query layers");
  return std::nullopt;
}

double SelectionSearchRadius(std::optional<double> pick_resolution) {
  if (!pick_resolution || !std::isfinite(*pick_resolution)) return kDefaultSearchRadius;
  return std::max(kDefaultSearchRadius, *pick_resolution);
}

std::vector<SelectionLayer> SelectionOfHits(const std::vector<FeatureHit>& hits) {
  std::vector<SelectionLayer> layers;
  for (const FeatureHit& hit : hits) {
    if (layers.empty() || layers.back().name != hit.layer) {
      layers.push_back({hit.layer, {Selection{std::string("point"), {}}}});
    }
    SelectedFeature feature;
    feature.type = hit.kind == FeatureKind::kMarker ? "MARKER" : "POLYGON";
    feature.id = std::to_string(hit.index);
    feature.lat = hit.lat;
    feature.lon = hit.lon;
    for (const HitAttribute& a : hit.attributes) feature.attributes.push_back({a.name, a.value});
    layers.back().selections.front().features.push_back(std::move(feature));
  }
  return layers;
}

std::vector<SelectionLayer> SelectFeatures(MapRequest& map, double i, double j, double search_radius) {
  map.record.search_radius = search_radius;
  RenderOutput output;
  if (RenderMap(map, true, i, j, output) < 0) return {};
  if (kav::Messages().debug_code == kSelectionDebugCode) {
    for (const FeatureHit& hit : output.hits) {
      ReportNumber(kInfo, "Selected feature", hit.layer, static_cast<double>(hit.index));
    }
  }
  return SelectionOfHits(output.hits);
}

}  // namespace vmp
