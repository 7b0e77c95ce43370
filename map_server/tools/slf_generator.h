// Generating the SLF files of a directory tree of tiles, so that a layer can
// name the tree with "TILES SUBLIF=".
//
// Image tiles and single-layer vector data: every directory with entries
// gets a summary SLF (`out_slf_name` plus ".slf") listing its
// sub-directories and its data files. Image entries are the tile info files
// (which already are leaf SLFs); a vector entry is a TVF file, for which a
// leaf SLF (its name plus ".slf") is written next to it.
//
// Multi-layer vector data: each TVF file name is a layer repeated through the
// tree; each directory gets, per layer name found in it or below, an SLF
// named by the layer file plus ".slf" (data file, sub-directories, or both).
//
// Directories are walked in name order (byte order), so runs are
// reproducible. Files the generator writes itself (".slf" files in vector
// mode, the summary name in image mode), image files in image mode and the
// converter's backup files are never taken as entries.
#pragma once

#include <cstdint>
#include <string>

namespace vmp {

struct SlfGeneratorOptions {
  std::string path;     // top directory of the tree
  std::string pattern;  // file name pattern ("*" and "?")
  bool image = false;   // image tiles; else TVF files
  bool multi_layer = false;  // vector only
  std::string out_slf_name;  // summary SLF name without ".slf" (not multi-layer)
  std::string out_lif_name;  // LIF to write for the tree; empty: none
  bool boxes = true;         // "BBOX=" after each child entry
  int64_t progress = 100;    // "Processing file #%d" every n-th file; 0: never
};

// Walks the tree and writes its SLF files (and the LIF). Every file or
// directory that fails is reported and left out; the result is false when
// any did, or when the tree holds no entry at all ("Found no files matching
// pattern"). In multi-layer mode a LIF is written per layer: the LIF name
// with "_" and the layer file name (less its extension) put before ".lif".
bool GenerateSlfFiles(const SlfGeneratorOptions& options);

}  // namespace vmp
