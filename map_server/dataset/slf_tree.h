// A node of a layer's tile tree: one SLF file (sub-LIF), or a sub-directory
// entry of one. Children are read on demand: reading a node's SLF creates
// its children unread, and the tile walk reads a child when it needs it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vmp {

struct TileRecord;  // a loaded tile, owned by the tile caches

// The SLF files above a node (normalised paths), shared by siblings; lets a
// reader refuse a tree that names one of its own ancestors.
struct SlfLineage {
  std::string slf_path;
  std::shared_ptr<const SlfLineage> parent;
};

struct SlfNode {
  std::string slf_path;       // the node's own SLF file
  std::string directory;      // directory its relative names resolve against
  std::string slf_base_name;  // SLF name repeated by its "SUBLIF DIR=" children
  int depth = 0;              // 0 for the root
  std::shared_ptr<const SlfLineage> ancestors;  // null for the root

  // Named by "SUBLIF FILE=" or "SUB LIF=" rather than "SUBLIF DIR=".
  bool file_entry = false;

  double min_lon = 0.0;
  double max_lon = 0.0;
  double min_lat = 0.0;
  double max_lat = 0.0;
  bool box_from_parent = false;  // the parent's "BBOX=" gave the box

  std::optional<int64_t> used_width;
  std::optional<int64_t> used_height;

  std::string leaf_file;          // resolved data file of a leaf; empty otherwise
  std::vector<SlfNode> children;  // in file order

  bool loaded = false;  // the node's SLF has been read (successfully or not)
  bool error = false;   // unreadable, empty, or without a bounding box

  // Marks of the per-request tile walk.
  bool used = false;
  bool hit_border = false;
  // The tile loaded for this leaf, if any.
  std::shared_ptr<TileRecord> tile;

  bool IsLeaf() const { return loaded && children.empty() && !leaf_file.empty(); }
};

}  // namespace vmp
