// Reading of SLF files (sub-LIF tile trees), one node per file:
//
//   MIN LON=-180.0          MIN LAT=, MAX LON=, MAX LAT=  the node's box
//   FILENAME=tile.tvf       the data file of a leaf
//   USED WIDTH=332          USED HEIGHT=  used part of a padded edge tile
//   SUBLIF DIR=east   BBOX= 0 -90 180 90    child in a sub-directory
//   SUBLIF FILE=a.slf BBOX= ...             child SLF in the same directory
//   SUB LIF=a.slf                           (same as SUBLIF FILE=)
//
// A "SUBLIF DIR=" child's SLF is the directory joined with the parent's SLF
// name. Children are created unread; the tile walk reads them on demand
// with EnsureSlfNodeLoaded.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "map_server/dataset/slf_tree.h"

namespace vmp {

// Nodes deeper than this are refused as errors (a tree naming itself
// through a chain of directories would otherwise never end).
inline constexpr int kMaxSlfDepth = 64;

// The unread root node of the tree whose top SLF is `slf_path`. False (after
// "Can't determine slf_name in TILES SUBLIF") when the path has no file name.
bool MakeSlfRoot(const std::string& slf_path, SlfNode* root);

// Reads the node's SLF file; returns the number of entries (children plus a
// leaf file), or -1 when the file cannot be opened. Marks the node loaded,
// and in error when the file is unreadable, empty or has no bounding box.
int64_t ReadSlfFile(SlfNode& node);

// The same from memory. `read_error` tells that reading the text stopped
// before the end of its file.
int64_t ReadSlfText(SlfNode& node, std::string_view text, bool read_error = false);

// Reads the node unless it was read already; false when it is in error.
// Refuses nodes beyond kMaxSlfDepth and nodes that name an ancestor's SLF.
bool EnsureSlfNodeLoaded(SlfNode& node);

// Reads every node of the tree below `node` (tools and checks; the tile walk
// reads only what it needs). Returns the number of nodes in error.
size_t LoadSlfTree(SlfNode& node);

}  // namespace vmp
