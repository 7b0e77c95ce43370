#include "map_server/tiles/tile_cache.h"

#include <algorithm>

#include "map_server/service/map_service.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

int KindIndex(TileKind kind) { return static_cast<int>(kind); }

bool HoldsKind(const LayerTiles& state, TileKind kind) {
  return !state.lru[KindIndex(kind)].empty();
}

}  // namespace

LayerTiles& TileCache::StateOf(const Layer& layer) {
  std::unique_ptr<LayerTiles>& state = states_[&layer];
  if (!state) {
    state = std::make_unique<LayerTiles>();
    state->layer_name = layer.name;
  }
  return *state;
}

LayerTiles* TileCache::FindState(const Layer* layer) {
  auto it = states_.find(layer);
  return it == states_.end() ? nullptr : it->second.get();
}

std::shared_ptr<TileRecord> TileCache::CreateTile(TileKind kind) {
  ++loaded_[KindIndex(kind)];
  return std::make_shared<TileRecord>(kind);
}

void TileCache::DiscardTile(const std::shared_ptr<TileRecord>& tile) {
  --loaded_[KindIndex(tile->kind)];
}

void TileCache::FreeTile(LayerTiles& state, const std::shared_ptr<TileRecord>& tile) {
  std::shared_ptr<TileRecord> keep = tile;  // the slot may hold the last other reference
  if (keep->in_lru) {
    state.lru[KindIndex(keep->kind)].erase(keep->lru_position);
    keep->in_lru = false;
  }
  if (keep->cell >= 0) state.grid_slots.erase(keep->cell);
  if (!keep->tree_key.empty()) state.tree_slots.erase(keep->tree_key);
  keep->in_use = false;
  --loaded_[KindIndex(keep->kind)];
}

void TileCache::NoteLayerUsed(Layer& layer) {
  auto it = std::find(holding_.begin(), holding_.end(), &layer);
  if (it != holding_.end()) {
    if (it + 1 == holding_.end()) return;
    holding_.erase(it);
  }
  holding_.push_back(&layer);
}

void TileCache::FreeLayerTiles(const Layer* layer) {
  if (LayerTiles* state = FindState(layer)) {
    for (TileLru& lru : state->lru) {
      while (!lru.empty()) FreeTile(*state, lru.front());
    }
    // Every filled slot is on an LRU list, so the slots are empty now.
    state->grid_slots.clear();
    state->tree_slots.clear();
  }
  holding_.erase(std::remove(holding_.begin(), holding_.end(), layer), holding_.end());
}

void TileCache::DropLayer(const Layer* layer) {
  FreeLayerTiles(layer);
  states_.erase(layer);
}

void TileCache::Clear() {
  while (!states_.empty()) DropLayer(states_.begin()->first);
  holding_.clear();
  loaded_[0] = loaded_[1] = 0;
}

TileCache& Tiles() { return Service().tile_cache(); }

const TileStoreLimits& LayerTileLimits(const Layer& layer) {
  const TileAttributes& t = layer.record.tiles;
  return layer.record.layer_type == kLayerVector ? t.vector_store : t.image_store;
}

void TouchTile(Layer& layer, const std::shared_ptr<TileRecord>& tile, TileKind kind,
               bool is_new) {
  TileCache& cache = Tiles();
  LayerTiles& state = cache.StateOf(layer);
  TileLru& lru = state.lru[KindIndex(kind)];
  if (!is_new && tile->in_lru) {
    lru.splice(lru.begin(), lru, tile->lru_position);
  } else {
    const int64_t limit = LayerTileLimits(layer).max_cache_size;
    if (limit >= 0) {
      while (!lru.empty() && static_cast<int64_t>(lru.size()) >= std::max<int64_t>(limit, 1)) {
        cache.FreeTile(state, lru.back());
      }
    }
    lru.push_front(tile);
    tile->lru_position = lru.begin();
    tile->in_lru = true;
  }
  cache.NoteLayerUsed(layer);
}

void FlushLayerTiles(Layer& layer, bool log) {
  if (log && Verbosity() >= 4) Report(kInfo, "Flushing layer's tile cache", layer.name);
  Tiles().FreeLayerTiles(&layer);
}

namespace {

struct KindTexts {
  const char* too_many;
  const char* total;
  const char* max;
  const char* remaining;
};

constexpr KindTexts kImageTexts = {"Too many image tiles loaded, flushing image tile cache.",
                                   "Total number of loaded image tiles",
                                   "Max total number of image tiles",
                                   "Number of remaining image tiles"};
constexpr KindTexts kVectorTexts = {"Too many vector tiles loaded, flushing vector tile cache.",
                                    "Total number of loaded vector tiles",
                                    "Max total number of vector tiles",
                                    "Number of remaining vector tiles"};

// Flushes layers holding tiles of `kind` while its count is over `limit`;
// true when flushing was due.
bool EnforceKindLimit(TileCache& cache, TileKind kind, int64_t limit, const KindTexts& texts) {
  if (limit < 0 || cache.loaded_tiles(kind) <= limit) return false;
  if (Verbosity() >= 4) {
    Report(kInfo, texts.too_many);
    ReportNumber(kInfo, texts.total, static_cast<double>(cache.loaded_tiles(kind)));
    ReportNumber(kInfo, texts.max, static_cast<double>(limit));
  }
  std::vector<Layer*>& holding = cache.holding_layers();
  while (cache.loaded_tiles(kind) > limit) {
    auto it = std::find_if(holding.begin(), holding.end(), [&](Layer* layer) {
      const LayerTiles* state = cache.FindState(layer);
      return state != nullptr && HoldsKind(*state, kind);
    });
    if (it == holding.end()) break;
    FlushLayerTiles(**it, true);
  }
  return true;
}

}  // namespace

void EnforceTileLimits() {
  TileCache& cache = Tiles();
  const MapService::TileLimits& limits = Service().tile_limits();
  const bool images = EnforceKindLimit(cache, TileKind::kImage, limits.max_image_tiles, kImageTexts);
  const bool vectors =
      EnforceKindLimit(cache, TileKind::kVector, limits.max_vector_tiles, kVectorTexts);
  if (Verbosity() < 4) return;
  if (images) {
    ReportNumber(kInfo, kImageTexts.remaining,
                 static_cast<double>(cache.loaded_tiles(TileKind::kImage)));
  }
  if (vectors) {
    ReportNumber(kInfo, kVectorTexts.remaining,
                 static_cast<double>(cache.loaded_tiles(TileKind::kVector)));
  }
}

}  // namespace vmp
