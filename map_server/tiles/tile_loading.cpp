#include "map_server/tiles/tile_loading.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <system_error>
#include <thread>

#include "map_server/dataset/layer_paths.h"
#include "map_server/image/image_loader.h"
#include "map_server/tiles/tile_cache.h"
#include "map_server/tiles/tile_grid.h"
#include "map_server/vector/tvf_reader.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace fs = std::filesystem;

VolatileSettings VolatileSettingsOf(const Layer& layer) {
  const LayerRecord& r = layer.record;
  VolatileSettings s;
  s.is_volatile = r.volatile_tiles != 0;
  s.report_errors = r.volatile_errors != 0;
  s.allow_missing = r.allow_missing_tiles != 0;
  if (r.lock_file && !r.lock_file->empty()) s.lock_file = r.lock_file;
  s.lock_timeout = r.lock_timeout;
  s.lock_tiles = r.lock_tiles != 0;
  return s;
}

bool WaitForLockFile(const VolatileSettings& settings) {
  if (!settings.lock_file || !(settings.lock_timeout > 0.0)) return true;
  const double timeout = std::min(settings.lock_timeout, kMaxLockTimeout);
  const auto pause = std::chrono::milliseconds(
      static_cast<int64_t>(timeout * 1000000.0 / 10.0) / 1000);
  for (int attempt = 0; attempt < 10; ++attempt) {
    std::error_code error;
    if (fs::exists(*settings.lock_file, error)) {
      if (Verbosity() >= 5) Report(kInfo, "Got lock file", *settings.lock_file);
      return true;
    }
    if (Verbosity() >= 5) Report(kInfo, "Waiting for a lock file", *settings.lock_file);
    std::this_thread::sleep_for(pause);
  }
  if (settings.report_errors) {
    Report(kWarning, "Lock file does not exist", *settings.lock_file);
  } else if (Verbosity() >= 5) {
    Report(kInfo, "Lock file does not exist", *settings.lock_file);
  }
  return false;
}

bool ReadTileStamp(const std::string& path, TileStamp* stamp) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (error || !fs::exists(status)) return false;
  TileStamp s;
  if (fs::is_regular_file(status)) {
    const uintmax_t size = fs::file_size(path, error);
    s.size = error ? -1 : static_cast<int64_t>(size);
  }
  const fs::file_time_type modified = fs::last_write_time(path, error);
  if (!error) {
    s.modified_ns =
        std::chrono::duration_cast<std::chrono::nanoseconds>(modified.time_since_epoch()).count();
  }
  *stamp = s;
  return true;
}

bool TileFileUnchanged(const TileRecord& tile, bool quiet) {
  TileStamp now;
  if (!ReadTileStamp(tile.path, &now)) {
    if (!quiet) Report(kWarning, "Tile file does not exist, using old tile", tile.path);
    return true;
  }
  return now == tile.stamp;
}

namespace {

struct KindTexts {
  const char* unchanged;
  const char* changed;
  const char* missing;
};

constexpr KindTexts kVectorTexts = {"Vector tile unchanged, using existing",
                                    "Vector tile changed, reloading", "File does not exist"};
constexpr KindTexts kImageTexts = {"Image tile unchanged, using existing",
                                   "Image tile changed, reloading", "File does not exist."};

TvfSource SourceOf(const LayerRecord& r) {
  switch (r.vector_format) {
    case 1: return TvfSource::kTvf;
    case 2: return TvfSource::kShapefile;
    default: return TvfSource::kByName;
  }
}

// The expected pixel size of image cell (column, row): the tile size, or
// what remains of the image in the last column and row.
bool ImageSizeFits(const TileGrid& g, int64_t column, int64_t row, const LoadedImage& image,
                   bool* short_width, bool* short_height) {
  const int64_t rest_w = g.image_width - (g.columns - 1) * g.tile_width;
  const int64_t rest_h = g.image_height - (g.rows - 1) * g.tile_height;
  const int64_t width = image.SourceWidth(), height = image.SourceHeight();
  *short_width = column == g.columns - 1 && width == rest_w && rest_w != g.tile_width;
  *short_height = row == g.rows - 1 && height == rest_h && rest_h != g.tile_height;
  const bool width_ok = width == g.tile_width || *short_width;
  const bool height_ok = height == g.tile_height || *short_height;
  return width_ok && height_ok;
}

// Bounds of a loaded image tile: the whole image's area, so that the image's
// pixels map evenly onto it.
void SetImageBounds(const TileGrid* grid, int64_t column, int64_t row, const SlfNode* node,
                    TileRecord& tile) {
  LoadedImage& image = tile.image;
  const int64_t width = image.SourceWidth(), height = image.SourceHeight();
  if (node != nullptr) {
    // A padded edge tile of a tree: the node's box covers the used part only.
    if (node->used_width && *node->used_width > 0 && width > *node->used_width) {
      tile.bounds.max_lon = tile.bounds.min_lon + (tile.bounds.max_lon - tile.bounds.min_lon) *
                                                      static_cast<double>(width) /
                                                      static_cast<double>(*node->used_width);
    }
    if (node->used_height && *node->used_height > 0 && height > *node->used_height) {
      tile.bounds.min_lat = tile.bounds.max_lat - (tile.bounds.max_lat - tile.bounds.min_lat) *
                                                      static_cast<double>(height) /
                                                      static_cast<double>(*node->used_height);
    }
  } else if (grid != nullptr && grid->tile_width > 0) {
    bool short_width = false, short_height = false;
    if (!ImageSizeFits(*grid, column, row, image, &short_width, &short_height)) {
      Report(kWarning, "Image size mismatch", tile.path);
    } else {
      // A last column or row cut to what remains of the image ends at the
      // layer's extent; a padded one reaches past it.
      if (short_width) {
        tile.bounds.max_lon = tile.bounds.min_lon + static_cast<double>(width) * grid->lon_per_pixel;
      }
      if (short_height) {
        tile.bounds.min_lat = tile.bounds.max_lat - static_cast<double>(height) * grid->lat_per_pixel;
      }
    }
  }
  image.min_lon = tile.bounds.min_lon;
  image.max_lon = tile.bounds.max_lon;
  image.min_lat = tile.bounds.min_lat;
  image.max_lat = tile.bounds.max_lat;
}

ImageDecodeHint DecodeHintOf(const TileBounds& bounds, const TileLoadHints& hints) {
  return {bounds.min_lon,         bounds.max_lon,     bounds.min_lat,    bounds.max_lat,
          hints.max_degrees_per_pixel, hints.band_min_lat, hints.band_max_lat};
}

std::shared_ptr<TileRecord> LoadTile(TileKind kind, Layer& layer, const VolatileSettings& settings,
                                     int64_t column, int64_t row, SlfNode* node,
                                     const TileLoadHints& hints) {
  const KindTexts& texts = kind == TileKind::kVector ? kVectorTexts : kImageTexts;
  TileCache& cache = Tiles();
  LayerTiles& state = cache.StateOf(layer);

  // 1. The slot.
  TileGrid grid;
  const bool have_grid = node == nullptr && MakeTileGrid(layer, &grid, true);
  int64_t cell = -1;
  std::shared_ptr<TileRecord> old;
  if (node != nullptr) {
    auto it = state.tree_slots.find(node->slf_path);
    if (it != state.tree_slots.end()) old = it->second;
  } else {
    cell = have_grid ? row * grid.columns + column : 0;
    auto it = state.grid_slots.find(cell);
    if (it != state.grid_slots.end()) old = it->second;
  }
  // A tile that gives less than this request needs is read again.
  const bool old_meets_hints = old && TileMeetsHints(*old, hints);
  if (old && !settings.is_volatile && old_meets_hints) {
    TouchTile(layer, old, kind, false);
    old->updated = true;
    return old;
  }

  // 2. Quiet mode and the lock file.
  bool quiet = !settings.report_errors;
  if (settings.lock_file && settings.lock_tiles) WaitForLockFile(settings);

  // 3. A good old tile whose file did not change is kept.
  const bool old_good = old && old->Good();
  if (old_good && old_meets_hints && TileFileUnchanged(*old, quiet)) {
    if (Verbosity() >= 6) Report(kInfo, texts.unchanged, old->path);
    TouchTile(layer, old, kind, false);
    old->updated = true;
    return old;
  }
  // 4. Otherwise reload; quiet only while a good old tile can stand in.
  if (old_good && old_meets_hints && Verbosity() >= 5) Report(kInfo, texts.changed, old->path);
  quiet = quiet && old_good;

  // 5. The new record and its file.
  std::shared_ptr<TileRecord> tile = cache.CreateTile(kind);
  if (node != nullptr) {
    tile->path = node->leaf_file;
    tile->bounds = {node->min_lon, node->max_lon, node->min_lat, node->max_lat};
  } else {
    tile->path = GridTilePath(layer.record, column, row);
    if (have_grid) tile->bounds = CellBounds(grid, column, row);
  }

  // 6. Read it.
  const LayerRecord& r = layer.record;
  if (node != nullptr && node->error) {
    tile->dead = true;
    Report(kError, "Skipping error sublif", node->slf_path);
  } else if (!ReadTileStamp(tile->path, &tile->stamp)) {
    tile->dead = true;
    if (!quiet && !settings.allow_missing) Report(kError, texts.missing, tile->path);
  } else if (kind == TileKind::kVector) {
    const std::string filter = r.filter.value_or(std::string());
    const TvfAttributes attributes = hints.attributes ? TvfAttributes::kRead : TvfAttributes::kSkip;
    if (!LoadTvfFile(tile->path, SourceOf(r), tile->vector, filter, quiet, attributes)) {
      tile->read_errors = true;
      if (!quiet) Report(kError, "Could not be read", tile->path);
    }
  } else {
    const bool elevation = r.tiles.elevation_mode != 0;
    const int format = static_cast<int>(r.image_format);
    tile->nominal_bounds = tile->bounds;
    if (!LoadImageFile(tile->path, format, elevation, tile->image, false,
                       DecodeHintOf(tile->nominal_bounds, hints))) {
      tile->read_errors = true;
      if (!quiet) Report(kError, "Could not be read", tile->path);
    } else {
      SetImageBounds(have_grid ? &grid : nullptr, column, row, node, *tile);
    }
  }

  // 7. A failed reload keeps the good old tile.
  if (!tile->Good() && old_good) {
    cache.DiscardTile(tile);
    if (!quiet) Report(kWarning, "New tile loading error, switching to existing one", tile->path);
    TouchTile(layer, old, kind, false);
    old->updated = true;
    return old;
  }
  const bool was_empty = !old;
  if (old) {
    // The new tile takes the old one's place in the LRU list.
    if (old->in_lru) {
      *old->lru_position = tile;
      tile->lru_position = old->lru_position;
      tile->in_lru = true;
      old->in_lru = false;
    }
    old->cell = -1;
    old->tree_key.clear();
    cache.FreeTile(state, old);
  }
  if (node != nullptr) {
    tile->tree_key = node->slf_path;
    state.tree_slots[tile->tree_key] = tile;
  } else {
    tile->cell = cell;
    state.grid_slots[cell] = tile;
  }
  tile->in_use = true;
  tile->updated = true;

  // 8. LRU bookkeeping.
  TouchTile(layer, tile, kind, was_empty);
  if (!settings.is_volatile) tile->path.clear();
  return tile;
}

}  // namespace

bool TileMeetsHints(const TileRecord& tile, const TileLoadHints& hints) {
  if (tile.kind == TileKind::kVector) return hints.attributes ? !tile.vector.attributes_skipped : true;
  const LoadedImage& image = tile.image;
  if (image.format != kJpegFormat) return true;
  const ImageDecodeHint hint = DecodeHintOf(tile.nominal_bounds, hints);
  if (image.scale > 1 && DecodeScaleFor(hint, image.SourceWidth(), image.SourceHeight()) < image.scale) {
    return false;
  }
  const DecodeRows rows = DecodeRowsFor(hint, image.SourceHeight(), image.scale);
  return rows.first >= image.first_row && rows.end <= image.first_row + image.height;
}

std::shared_ptr<TileRecord> LoadVectorTile(Layer& layer, const VolatileSettings& settings,
                                           int64_t column, int64_t row, SlfNode* node,
                                           const TileLoadHints& hints) {
  return LoadTile(TileKind::kVector, layer, settings, column, row, node, hints);
}

std::shared_ptr<TileRecord> LoadImageTile(Layer& layer, const VolatileSettings& settings,
                                          int64_t column, int64_t row, SlfNode* node,
                                          const TileLoadHints& hints) {
  return LoadTile(TileKind::kImage, layer, settings, column, row, node, hints);
}

}  // namespace vmp
