#include "map_server/tiles/tile_selection.h"

#include "map_server/geometry/conversions.h"
#include "map_server/tiles/tile_cache.h"
#include "map_server/tiles/tile_grid.h"
#include "map_server/tiles/tile_walk.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Marks the tile under one border sample; true when marking must stop.
class BorderSampler {
 public:
  BorderSampler(const MapGeometry& geometry, Layer& layer, LayerTiles& state, TileWalk& walk)
      : geometry_(geometry), layer_(layer), state_(state), walk_(walk) {
    shift_negative_ = layer.record.layer_type == kLayerVector && layer.record.pos_range;
    orthographic_ = geometry.projection == kOrthographicProjection;
  }

  bool Sample(int64_t x, int64_t y) {
    const double row = orthographic_ ? geometry_.height_m1 - static_cast<double>(y)
                                     : static_cast<double>(y);
    const LatLonPoint p = PixelToLatLon(geometry_, static_cast<double>(x), row);
    if (!p.ok) return false;
    double lon = p.lon;
    if (shift_negative_ && lon < 0.0) lon += 360.0;
    if (grid_ != nullptr) SampleGrid(p.lat, lon);
    else SampleTree(p.lat, lon);
    return TileCountStops(state_.needed_count, walk_.max_tiles);
  }

  void set_grid(const TileGrid* grid) { grid_ = grid; }

 private:
  void SampleGrid(double lat, double lon) {
    int64_t column = 0, row = 0;
    if (!CellOfPoint(*grid_, lat, lon, &column, &row)) return;
    uint8_t& mark = state_.marks[static_cast<size_t>(row * grid_->columns + column)];
    if (mark) return;
    mark = 1;
    ++state_.needed_count;
  }

  void SampleTree(double lat, double lon) {
    if (state_.last_leaf != nullptr && BoundsContain(state_.last_leaf_bounds, lat, lon)) return;
    walk_.lat = lat;
    walk_.lon = lon;
    walk_.hit = nullptr;
    WalkTileTree(walk_, *layer_.record.tile_tree);
    SlfNode* leaf = walk_.hit;
    if (leaf == nullptr) return;
    if (!leaf->used) {
      leaf->used = true;
      ++state_.needed_count;
    }
    state_.last_leaf = leaf;
    state_.last_leaf_bounds = {leaf->min_lon, leaf->max_lon, leaf->min_lat, leaf->max_lat};
  }

  const MapGeometry& geometry_;
  Layer& layer_;
  LayerTiles& state_;
  TileWalk& walk_;
  const TileGrid* grid_ = nullptr;  // null for tree layers
  bool shift_negative_ = false;
  bool orthographic_ = false;
};

// Samples the left and right columns, then the top and bottom rows, of the
// visible rectangle; true when stopped early.
bool SampleBorder(const MapGeometry& g, BorderSampler& sampler) {
  for (int64_t x : {g.min_x, g.max_x}) {
    for (int64_t y = g.min_y; y <= g.max_y; ++y) {
      if (sampler.Sample(x, y)) return true;
    }
  }
  for (int64_t y : {g.min_y, g.max_y}) {
    for (int64_t x = g.min_x; x <= g.max_x; ++x) {
      if (sampler.Sample(x, y)) return true;
    }
  }
  return false;
}

}  // namespace

TileSelection SelectLayerTiles(MapRequest& map, Layer& layer) {
  LayerTiles& state = Tiles().StateOf(layer);
  state.tiles_exceeded = false;
  state.enabled = false;
  state.last_leaf = nullptr;
  const LayerRecord& r = layer.record;
  const bool tree = r.tiles_sublif.has_value();
  TileGrid grid;
  if (tree) {
    if (!r.tile_tree || r.tile_tree->error) {
      Report(kError, "Skipping layer's tiles with errors", layer.name);
      return TileSelection::kUnusable;
    }
  } else {
    if (!MakeTileGrid(layer, &grid)) return TileSelection::kUnusable;
    EnsureGridMarks(state, grid.columns, grid.rows);
  }

  TileWalk walk;
  walk.layer = &layer;
  walk.state = &state;
  walk.geometry = &map.geometry;
  walk.max_tiles = LayerTileLimits(layer).max_tiles;

  // Marks left from an earlier request are reported, then cleared.
  walk.op = kTileCheck;
  if (ForEachGridTile(walk)) {
    walk.op = kTileReset;
    ForEachGridTile(walk);
  }
  state.needed_count = 0;

  walk.op = kTileFindPoint;
  BorderSampler sampler(map.geometry, layer, state, walk);
  if (!tree) sampler.set_grid(&grid);
  const bool stopped = SampleBorder(map.geometry, sampler);
  state.last_leaf = nullptr;
  if (!stopped) {
    walk.op = kTileVisibility;
    ForEachGridTile(walk);
  }
  if (walk.error_seen) Report(kError, "Skipping layer's tiles with errors", layer.name);

  const int64_t count = state.needed_count;
  const int64_t max_tiles = walk.max_tiles;
  if (Verbosity() >= 3) {
    ReportNumber(kInfo,
                 r.layer_type == kLayerVector ? "The vector map request requires tiles"
                                              : "The image map request requires tiles",
                 layer.name, static_cast<double>(count));
    ReportNumber(kInfo, "   and the server allows", static_cast<double>(max_tiles));
    ReportNumber(kInfo, "Max cache size",
                 static_cast<double>(LayerTileLimits(layer).max_cache_size));
  }
  if (count > 0 && max_tiles >= 0 && count > max_tiles) {
    walk.op = kTileReset;
    ForEachGridTile(walk);
    state.tiles_exceeded = true;
    return TileSelection::kExceeded;
  }
  if (count == 0) {
    if (Verbosity() >= 3) Report(kInfo, "Clipped out layer disabled, no tiles used.", layer.name);
    return TileSelection::kClippedOut;
  }
  state.enabled = true;
  return TileSelection::kSelected;
}

}  // namespace vmp
