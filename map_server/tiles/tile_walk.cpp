#include "map_server/tiles/tile_walk.h"

#include "map_server/dataset/slf_reader.h"
#include "map_server/tiles/tile_grid.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

TileBounds NodeBounds(const SlfNode& node) {
  return {node.min_lon, node.max_lon, node.min_lat, node.max_lat};
}

TileBounds Widened(TileBounds b, double margin) {
  b.min_lon -= margin;
  b.max_lon += margin;
  b.min_lat -= margin;
  b.max_lat += margin;
  return b;
}

bool IsVector(const Layer& layer) { return layer.record.layer_type == kLayerVector; }

std::shared_ptr<TileRecord> LoadFor(TileWalk& walk, int64_t column, int64_t row, SlfNode* leaf) {
  return IsVector(*walk.layer) ? LoadVectorTile(*walk.layer, walk.settings, column, row, leaf, walk.hints)
                               : LoadImageTile(*walk.layer, walk.settings, column, row, leaf, walk.hints);
}

TileRecord* TreeTile(const TileWalk& walk, const SlfNode& node) {
  if (walk.state == nullptr) return nullptr;
  auto it = walk.state->tree_slots.find(node.slf_path);
  return it == walk.state->tree_slots.end() ? nullptr : it->second.get();
}

// Reads the node when it is needed and not read yet; false when it is in
// error (or, loaded without error, lists nothing at all).
bool ReadyNode(TileWalk& walk, SlfNode& node) {
  if (!EnsureSlfNodeLoaded(node)) {
    walk.error_seen = true;
    return false;
  }
  if (node.children.empty() && node.leaf_file.empty()) {
    Report(kWarning, "Empty sublif file", node.slf_path);
    walk.error_seen = true;
    return false;
  }
  return true;
}

// Nodes whose box their parent did not give only know their bounds once read.
bool KnowsBounds(TileWalk& walk, SlfNode& node) {
  if (node.loaded || node.box_from_parent) return !node.error;
  return ReadyNode(walk, node);
}

void MarkLeafUsed(TileWalk& walk, SlfNode& leaf) {
  if (leaf.used) return;
  leaf.used = true;
  ++walk.state->needed_count;
}

int PointWalk(TileWalk& walk, SlfNode& node) {
  if (!KnowsBounds(walk, node)) return 0;
  if (!BoundsContain(NodeBounds(node), walk.lat, walk.lon)) return 0;
  if (!ReadyNode(walk, node)) return 0;
  int found = 0;
  if (node.children.empty()) {
    if (walk.op == kTileFindPoint) walk.hit = &node;
    else MarkLeafUsed(walk, node);
    found = 1;
  } else {
    for (SlfNode& child : node.children) {
      if (PointWalk(walk, child)) {
        found = 1;
        break;
      }
    }
  }
  if (found) {
    if (walk.op == kTileFindPoint) node.hit_border = true;
    else node.used = true;
  }
  return found;
}

int VisibilityWalk(TileWalk& walk, SlfNode& node) {
  if (walk.stopped) return 0;
  if (!node.hit_border) {
    if (!KnowsBounds(walk, node)) return 0;
    if (!BoundsProbeVisible(*walk.geometry, NodeBounds(node), walk.layer->record.pos_range)) {
      return 0;
    }
  }
  if (!ReadyNode(walk, node)) return 0;
  if (node.children.empty()) {
    MarkLeafUsed(walk, node);
    return 1;
  }
  int found = 0;
  for (SlfNode& child : node.children) {
    if (VisibilityWalk(walk, child)) found = 1;
    if (TileCountStops(walk.state->needed_count, walk.max_tiles)) {
      walk.stopped = true;
      break;
    }
  }
  if (found) node.used = true;
  return found;
}

bool Marked(const SlfNode& node) { return node.used || node.hit_border; }

}  // namespace

bool TileCountStops(int64_t count, int64_t max_tiles) {
  if (max_tiles < 0 || count <= max_tiles) return false;
  return Verbosity() < 3 || count > 1000;
}

void EnsureGridMarks(LayerTiles& state, int64_t columns, int64_t rows) {
  if (state.columns == columns && state.rows == rows &&
      state.marks.size() == static_cast<size_t>(columns * rows)) {
    return;
  }
  state.columns = columns;
  state.rows = rows;
  state.marks.assign(static_cast<size_t>(columns * rows), 0);
  state.needed_count = 0;
}

int WalkTileTree(TileWalk& walk, SlfNode& node) {
  switch (walk.op) {
    case kTilePointQuery:
    case kTileFindPoint:
      return PointWalk(walk, node);
    case kTileVisibility:
      return VisibilityWalk(walk, node);
    case kTileTest: {
      if (!node.loaded) return 0;
      if (node.used && !node.error) return 1;
      for (SlfNode& child : node.children) {
        if (WalkTileTree(walk, child)) return 1;
      }
      return 0;
    }
    case kTileDraw:
    case kTileBoundsAction: {
      if (!node.used || node.error) return 0;
      if (!node.children.empty()) {
        int found = 0;
        for (SlfNode& child : node.children) found |= WalkTileTree(walk, child);
        return found;
      }
      if (walk.op == kTileBoundsAction) {
        if (walk.on_bounds) walk.on_bounds(NodeBounds(node));
        return 1;
      }
      if (walk.location_query &&
          !BoundsContain(Widened(NodeBounds(node), walk.location_margin), walk.lat, walk.lon)) {
        return 0;
      }
      std::shared_ptr<TileRecord> tile = LoadFor(walk, 0, 0, &node);
      if (walk.on_tile) walk.on_tile(tile, &node);
      return 1;
    }
    case kTileReset: {
      if (!Marked(node)) return 0;
      node.used = false;
      node.hit_border = false;
      if (TileRecord* tile = TreeTile(walk, node)) tile->updated = false;
      for (SlfNode& child : node.children) WalkTileTree(walk, child);
      return 1;
    }
    case kTileCheck: {
      TileRecord* tile = TreeTile(walk, node);
      const bool updated = tile != nullptr && tile->updated;
      if (node.used) kav::KavError("Unexpected used tree tile!", kInternalError);
      if (node.hit_border) {
        const std::string text = "Unexpected HitBorder flag, tile: " + node.slf_path;
        kav::KavError(text.c_str(), kInternalError);
      }
      if (updated) kav::KavError("Unexpected updated tree tile!", kInternalError);
      if (!Marked(node) && !updated) return 0;
      for (SlfNode& child : node.children) WalkTileTree(walk, child);
      return 1;
    }
  }
  return 0;
}

int ForEachGridTile(TileWalk& walk) {
  Layer& layer = *walk.layer;
  if (walk.state == nullptr) walk.state = &Tiles().StateOf(layer);
  if (walk.op == kTileReset) walk.state->needed_count = 0;
  if (layer.record.tiles_sublif) {
    if (!layer.record.tile_tree) return 0;
    return WalkTileTree(walk, *layer.record.tile_tree);
  }
  TileGrid grid;
  if (!MakeTileGrid(layer, &grid, true)) return 0;
  LayerTiles& state = *walk.state;
  EnsureGridMarks(state, grid.columns, grid.rows);
  std::vector<uint8_t>& marks = state.marks;
  const int64_t columns = grid.columns;

  switch (walk.op) {
    case kTilePointQuery:
    case kTileFindPoint: {
      int64_t column = 0, row = 0;
      if (!CellOfPoint(grid, walk.lat, walk.lon, &column, &row)) return 0;
      uint8_t& mark = marks[static_cast<size_t>(row * columns + column)];
      if (!mark) {
        mark = 1;
        ++state.needed_count;
      }
      return 1;
    }
    case kTileVisibility: {
      int found = 0;
      for (int64_t row = 0; row < grid.rows && !walk.stopped; ++row) {
        for (int64_t column = 0; column < columns; ++column) {
          uint8_t& mark = marks[static_cast<size_t>(row * columns + column)];
          if (mark) continue;
          if (!BoundsProbeVisible(*walk.geometry, CellBounds(grid, column, row), grid.pos_range)) {
            continue;
          }
          mark = 1;
          ++state.needed_count;
          found = 1;
          if (TileCountStops(state.needed_count, walk.max_tiles)) {
            walk.stopped = true;
            break;
          }
        }
      }
      return found;
    }
    case kTileTest:
      for (uint8_t mark : marks) {
        if (mark) return 1;
      }
      return 0;
    case kTileDraw:
    case kTileBoundsAction: {
      int found = 0;
      for (int64_t row = 0; row < grid.rows; ++row) {
        for (int64_t column = 0; column < columns; ++column) {
          if (!marks[static_cast<size_t>(row * columns + column)]) continue;
          const TileBounds bounds = CellBounds(grid, column, row);
          if (walk.op == kTileBoundsAction) {
            if (walk.on_bounds) walk.on_bounds(bounds);
            found = 1;
            continue;
          }
          if (walk.location_query &&
              !BoundsContain(Widened(bounds, walk.location_margin), walk.lat, walk.lon)) {
            continue;
          }
          std::shared_ptr<TileRecord> tile = LoadFor(walk, column, row, nullptr);
          if (walk.on_tile) walk.on_tile(tile, nullptr);
          found = 1;
        }
      }
      return found;
    }
    case kTileReset:
      std::fill(marks.begin(), marks.end(), uint8_t{0});
      state.needed_count = 0;
      for (auto& [cell, tile] : state.grid_slots) tile->updated = false;
      return 1;
    case kTileCheck: {
      int found = 0;
      for (uint8_t mark : marks) {
        if (!mark) continue;
        kav::KavError("Unexpected used tile!", kInternalError);
        found = 1;
      }
      return found;
    }
  }
  return 0;
}

}  // namespace vmp
