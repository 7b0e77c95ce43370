// The entries of a generated SLF tree and the files written for them.
//
// An entry stands for a data file name or a set of sub-directories:
//   kind 0  a data file                 "FILENAME=roads.tvf"
//   kind 1  sub-directories             "SUBLIF DIR=east   BBOX= ..." per directory
//   kind 2  both: the data file gets an SLF of its own, "roads.tvf.sub.slf",
//           listed first as "SUBLIF FILE=roads.tvf.sub.slf   BBOX= ...",
//           then the "SUBLIF DIR=" lines
// Each file starts with the generated-file comment and the entry's box.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "map_server/tools/slf_format.h"

namespace vmp {

// The SLF extension: a data file's SLF is its name with this appended.
inline constexpr std::string_view kSlfExtension = ".slf";
// Appended to a data file's name for its own SLF inside a kind 2 entry.
inline constexpr std::string_view kSubSlfExtension = ".sub.slf";

enum class SlfEntryKind { kDataFile = 0, kSubdirectories = 1, kFileAndSubdirectories = 2 };

struct SlfTreeEntry {
  // The data file or directory name; for the file entries of a directory
  // summary, the name of the SLF written for the file.
  std::string name;
  SlfEntryKind kind = SlfEntryKind::kDataFile;
  SlfBox box;
  // Kinds 1 and 2: one entry per sub-directory (kind 1, named by the
  // directory, with the box of what it holds), in walk order.
  std::vector<SlfTreeEntry> subdirectories;
  // Kind 2: the data file of this directory.
  std::unique_ptr<SlfTreeEntry> data_file;
};

// Writes `entry` as the SLF `path` (a kind 2 entry first writes its data
// file's SLF next to it). Child boxes follow their entries on the same line
// unless `boxes` is false. "Could not be opened" or "Errors writing lif
// file" with the name on failure.
bool WriteSlfEntry(const std::string& path, const SlfTreeEntry& entry, bool boxes);

// The summary SLF of one directory: its box, a "SUBLIF DIR=" line for each
// sub-directory (box on the line), then a "SUBLIF FILE=" line for each file
// entry with its box on the next line of its own.
bool WriteDirectorySummary(const std::string& path, const SlfBox& box,
                           const std::vector<SlfTreeEntry>& subdirectories,
                           const std::vector<SlfTreeEntry>& files, bool boxes);

// Entries of a tree of tiled vector layers, by data file name.
using SlfLayerEntries = std::map<std::string, SlfTreeEntry>;

// A data file found in `dir`. A name listed before is replaced:
// "Dublicate file entry??? Dropping previous for" when it was a data file,
// "Found file AND subdir entries for" when it was a set of sub-directories
// (which it then joins as kind 2); both followed by "    path is" with the
// directory. The box becomes the union of both.
void AddLayerFile(SlfLayerEntries& entries, const std::string& name, const SlfBox& box,
                  const std::string& dir);

// The entry `name` of sub-directory `subdir` (whose SLF is written, with box
// `box`) joins the parent's entry of that name: a missing entry is created
// as kind 1, a data file becomes kind 2.
void MergeLayerSubdirectory(SlfLayerEntries& entries, const std::string& name,
                            const std::string& subdir, const SlfBox& box);

// A LIF for the tree whose top SLF is `slf_path`: the layer type (IMAGE or
// VECTOR, drawn OPAQUE), "TILES SUBLIF=" (relative to the LIF's directory when both lie
// below a common directory) and the layer's box.
bool WriteLayerFile(const std::string& lif_path, bool image, const std::string& slf_path,
                    const SlfBox& box);

}  // namespace vmp
