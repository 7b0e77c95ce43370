// A loaded tile: one image file or one TVF file of a tiled layer, with the
// state the caches keep about it. Tile records are shared: the layer's cache
// slot holds one reference and a request that draws the tile holds another,
// so a tile evicted while a request still draws it stays valid until the
// request lets go.
#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "map_server/image/image_record.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

enum class TileKind : int { kImage = 0, kVector = 1 };

// Geographic bounds of a tile in degrees.
struct TileBounds {
  double min_lon = 0.0;
  double max_lon = 0.0;
  double min_lat = 0.0;
  double max_lat = 0.0;
  bool operator==(const TileBounds&) const = default;
};

// What a tile file looked like when it was read: a file whose size or
// modification time differs has changed.
struct TileStamp {
  int64_t size = -1;
  int64_t modified_ns = 0;  // modification time, nanoseconds of the file clock
  bool operator==(const TileStamp&) const = default;
};

struct TileRecord;
using TileLru = std::list<std::shared_ptr<TileRecord>>;

struct TileRecord {
  explicit TileRecord(TileKind tile_kind) : kind(tile_kind) {}

  TileKind kind;
  // The file was missing, or the tree node is in error: nothing was read.
  bool dead = false;
  // The file was read only in part (vector tiles keep what was read) or could
  // not be decoded (image tiles then hold no usable pixels).
  bool read_errors = false;
  // The tile's file; released after loading unless the layer is volatile.
  std::string path;
  TileStamp stamp;
  bool in_use = false;   // the record occupies its layer's cache slot
  bool updated = false;  // handed out during the current request
  TileBounds bounds;
  // The cell's or tree node's bounds, known before the file is read (image
  // tiles widen or narrow `bounds` to their pixels afterwards); the reduced
  // decoding of image tiles is judged against these.
  TileBounds nominal_bounds;

  // The loaded data of the tile's kind.
  VectorData vector;
  LoadedImage image;

  // Neither dead nor read with errors.
  bool Good() const { return !dead && !read_errors; }

  // --- Cache bookkeeping (owned by the tile cache) ---
  int64_t cell = -1;        // grid slot: row * columns + column
  std::string tree_key;     // tree slot: the leaf's SLF path
  bool in_lru = false;
  TileLru::iterator lru_position;
};

}  // namespace vmp
