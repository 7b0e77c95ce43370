// The tile caches: per layer, the request's "needed" marks and the cache
// slots with their least-recently-used lists; process-wide, the counts of
// loaded image and vector tiles and the list of layers holding tiles. The
// map service owns the one TileCache of the process (Service().tile_cache()),
// so cached tiles live from request to request.
//
// Limits: a layer keeps at most MaxCacheSize tiles (TouchTile evicts the
// least recently used one); after each drawn layer EnforceTileLimits flushes
// whole layers while the loaded image or vector tiles exceed MaxImageTiles or
// MaxVectorTiles (the service's tile_limits(), set at geometry setup).
//
// The list of tile-holding layers is ordered by last use: a layer goes to the
// back whenever one of its tiles is touched, so the front holds the layer
// whose tiles were used longest ago, and that is the one flushed first.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/tiles/tile_record.h"

namespace vmp {

// Runtime tile state of one layer.
struct LayerTiles {
  std::string layer_name;

  // Needed marks of a grid or single-tile layer, row * columns + column (tree
  // layers mark their nodes instead), and the count of needed tiles.
  int64_t columns = 0;
  int64_t rows = 0;
  std::vector<uint8_t> marks;
  int64_t needed_count = 0;

  // Cache slots: grid cells by index, tree leaves by their SLF path.
  std::unordered_map<int64_t, std::shared_ptr<TileRecord>> grid_slots;
  std::unordered_map<std::string, std::shared_ptr<TileRecord>> tree_slots;
  // Filled slots, most recently used first; one list per tile kind.
  TileLru lru[2];

  bool tiles_exceeded = false;
  bool enabled = false;  // chosen for the current request

  // Tree border sampling: the leaf hit last (valid during one selection).
  const void* last_leaf = nullptr;
  TileBounds last_leaf_bounds;

  int64_t CachedTiles() const {
    return static_cast<int64_t>(lru[0].size() + lru[1].size());
  }
};

class TileCache {
 public:
  TileCache() = default;
  TileCache(const TileCache&) = delete;
  TileCache& operator=(const TileCache&) = delete;

  // The layer's state, created on first use.
  LayerTiles& StateOf(const Layer& layer);
  // The layer's state, or null when it has none.
  LayerTiles* FindState(const Layer* layer);

  // Loaded tiles of a kind, process-wide.
  int64_t loaded_tiles(TileKind kind) const { return loaded_[static_cast<int>(kind)]; }
  // Layers holding cached tiles, least recently used first.
  std::vector<Layer*>& holding_layers() { return holding_; }

  // A new, counted tile record.
  std::shared_ptr<TileRecord> CreateTile(TileKind kind);
  // Uncounts a record that never entered a slot.
  void DiscardTile(const std::shared_ptr<TileRecord>& tile);
  // Empties the tile's slot, unlinks it from its LRU list and uncounts it.
  void FreeTile(LayerTiles& state, const std::shared_ptr<TileRecord>& tile);
  // Puts the layer at the back of the holding list (adding it when absent).
  void NoteLayerUsed(Layer& layer);
  // Frees every tile of the layer's state and takes the layer off the
  // holding list (the layer object itself is not read).
  void FreeLayerTiles(const Layer* layer);

  // Frees the tiles and forgets the state of a layer whose object is gone or
  // about to be replaced (never reads the layer).
  void DropLayer(const Layer* layer);
  // Frees everything: the service's shutdown, and tests.
  void Clear();

 private:
  std::unordered_map<const Layer*, std::unique_ptr<LayerTiles>> states_;
  int64_t loaded_[2] = {0, 0};
  std::vector<Layer*> holding_;
};

// The process's tile cache (owned by the map service).
TileCache& Tiles();

// The layer's tile limits: its vector store for vector layers, else its
// image store.
const TileStoreLimits& LayerTileLimits(const Layer& layer);

// LRU bookkeeping: moves a cached tile to the front of its layer's list, or
// inserts a new one there, first evicting the least recently used tile when
// the list already holds MaxCacheSize entries (unless that is -1).
void TouchTile(Layer& layer, const std::shared_ptr<TileRecord>& tile, TileKind kind, bool is_new);

// Frees the layer's cached tiles; "Flushing layer's tile cache" with the
// layer name at verbosity 4 or more when `log` is set.
void FlushLayerTiles(Layer& layer, bool log);

// The process-wide limits (image first, then vector): while a count is over
// its limit, the least recently used layer holding tiles of that kind is
// flushed whole.
void EnforceTileLimits();

}  // namespace vmp
