// Loading the tiles a request needs: cached tiles are reused, volatile
// layers reload tiles whose files changed on disk (after waiting for the
// layer's lock file when it asks for that), and a failed reload keeps the
// previous good tile.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "map_server/dataset/layer.h"
#include "map_server/dataset/slf_tree.h"
#include "map_server/tiles/tile_record.h"

namespace vmp {

// The layer settings that govern loading, taken from its converted record.
struct VolatileSettings {
  bool is_volatile = false;    // Volatile: tiles may change on disk
  bool report_errors = false;  // VolatileErrors: report load problems
  bool allow_missing = false;  // AllowMissingTiles: a missing tile file is not reported
  std::optional<std::string> lock_file;
  double lock_timeout = 0.05;  // seconds
  bool lock_tiles = false;     // wait for the lock file before loading
};

VolatileSettings VolatileSettingsOf(const Layer& layer);

// What the request that loads a tile needs of it. A cached tile that gives
// less (loaded without attributes, or decoded coarser) is read again.
struct TileLoadHints {
  // Vector tiles: keep the features' attributes.
  bool attributes = true;
  // Image tiles: the coarsest pixel size, in degrees, that still serves the
  // map (JPEG tiles are then decoded at a reduced size); 0: full size.
  double max_degrees_per_pixel = 0.0;
  // Image tiles: the latitudes the map shows (JPEG tiles are decoded only
  // over them).
  double band_min_lat = -std::numeric_limits<double>::infinity();
  double band_max_lat = std::numeric_limits<double>::infinity();
};

// Whether a loaded tile gives what `hints` ask for.
bool TileMeetsHints(const TileRecord& tile, const TileLoadHints& hints);

// Lock files are waited for at most this long, whatever LockTimeout says.
inline constexpr double kMaxLockTimeout = 60.0;

// Waits for the lock file that a tile-writing process creates: up to 10
// tries, sleeping LockTimeout / 10 after each miss. Nothing to do without a
// lock file or with LockTimeout <= 0. The server never creates or removes the
// file; loading goes on whether or not it appeared. True when it was found
// (or there was nothing to wait for).
bool WaitForLockFile(const VolatileSettings& settings);

// The stamp of a file; false when it does not exist.
bool ReadTileStamp(const std::string& path, TileStamp* stamp);

// True when the tile's file has the stamp taken at load time, or when it has
// gone ("Tile file does not exist, using old tile" unless `quiet`): the old
// tile is then kept.
bool TileFileUnchanged(const TileRecord& tile, bool quiet);

// The tile of grid cell (column, row), of a single-tile layer (0, 0), or of
// tree leaf `node` (non-null for tree layers): the cached one, or a newly
// loaded one. Never null: a tile that could not be read comes back dead or
// with read errors (and stays cached, so it is not retried each request
// unless the layer is volatile).
std::shared_ptr<TileRecord> LoadVectorTile(Layer& layer, const VolatileSettings& settings,
                                           int64_t column, int64_t row, SlfNode* node,
                                           const TileLoadHints& hints = {});
std::shared_ptr<TileRecord> LoadImageTile(Layer& layer, const VolatileSettings& settings,
                                          int64_t column, int64_t row, SlfNode* node,
                                          const TileLoadHints& hints = {});

}  // namespace vmp
