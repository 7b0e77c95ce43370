#include "map_server/tools/slf_generator.h"

#include <cstdio>
#include <optional>
#include <set>
#include <vector>

#include "map_server/dataset/slf_reader.h"
#include "map_server/image/image_loader.h"
#include "map_server/tools/directory_walk.h"
#include "map_server/tools/slf_writer.h"
#include "map_server/tools/tvf_box_scan.h"
#include "map_server/util/paths.h"
#include "map_server/vector/attr_match.h"
#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

std::string SlfNameOf(const std::string& name) { return name + std::string(kSlfExtension); }

SlfTreeEntry SubdirectoryEntry(const std::string& name, const SlfBox& box) {
  SlfTreeEntry entry;
  entry.name = name;
  entry.kind = SlfEntryKind::kSubdirectories;
  entry.box = box;
  return entry;
}

class SlfGenerator {
 public:
  explicit SlfGenerator(const SlfGeneratorOptions& options)
      : o_(options), summary_name_(SlfNameOf(options.out_slf_name)) {}

  bool Run();

 private:
  bool IsEntryName(const std::string& name);
  void CountFile(const std::string& name, const std::string& dir);
  std::optional<SlfBox> FileBox(const std::string& path);
  bool WalkDirectory(const std::string& dir, SlfBox* box);
  void WalkLayers(const std::string& dir, SlfLayerEntries* written);
  void WriteLayerFiles(const SlfLayerEntries& layers);

  const SlfGeneratorOptions& o_;
  const std::string summary_name_;
  DirectoryVisits visits_;
  int64_t file_count_ = 0;
  bool matched_images_ = false;  // the pattern matched image files (never entries)
  bool failed_ = false;
};

bool SlfGenerator::IsEntryName(const std::string& name) {
  if (IsConverterBackupName(name) || !WildcardMatch(o_.pattern, name)) return false;
  if (!o_.image) return !kav::EndsWith(name, kSlfExtension);
  if (ImageFormatFromName(name) != kImageFormatFromName) {
    matched_images_ = true;
    return false;
  }
  return name != summary_name_;
}

void SlfGenerator::CountFile(const std::string& name, const std::string& dir) {
  ++file_count_;
  if (o_.progress > 0 && file_count_ % o_.progress == 0) {
    std::printf("Processing file #%lld\n", static_cast<long long>(file_count_));
  }
  if (Verbosity() >= 1) {
    Report(kInfo, "Entry is", name);
    Report(kInfo, "    path is", dir);
  }
}

// Image entries take the box of their tile info file, which must be a leaf
// SLF; vector entries the box of their features.
std::optional<SlfBox> SlfGenerator::FileBox(const std::string& path) {
  if (o_.image) {
    SlfNode node;
    if (!MakeSlfRoot(path, &node)) {
      failed_ = true;
      return std::nullopt;
    }
    ReadSlfFile(node);
    if (node.error || !node.children.empty() || node.leaf_file.empty()) {
      Report(kError, "Error in file", path);
      failed_ = true;
      return std::nullopt;
    }
    return SlfBox{node.min_lon, node.max_lon, node.min_lat, node.max_lat};
  }
  // TVF headers hold no box, so the records are always read.
  if (Verbosity() >= 4) Report(kInfo, "Need to read the whole file", path);
  std::optional<SlfBox> box;
  if (!ScanTvfFileBox(path, &box)) {
    failed_ = true;
    return std::nullopt;
  }
  if (!box) Report(kWarning, "No features in file, skipping", path);
  return box;
}

bool SlfGenerator::WalkDirectory(const std::string& dir, SlfBox* box) {
  std::vector<DirectoryItem> items;
  if (!visits_.Enter(dir)) return false;
  if (!ListDirectory(dir, &items)) {
    failed_ = true;
    return false;
  }
  std::vector<SlfTreeEntry> subdirectories, files;
  for (const DirectoryItem& item : items) {
    const std::string path = JoinPath(dir, item.name);
    if (item.is_directory) {
      SlfBox sub_box;
      if (WalkDirectory(path, &sub_box)) subdirectories.push_back(SubdirectoryEntry(item.name, sub_box));
      continue;
    }
    if (!IsEntryName(item.name)) continue;
    CountFile(item.name, dir);
    std::optional<SlfBox> file_box = FileBox(path);
    if (!file_box) continue;
    SlfTreeEntry entry;
    entry.name = item.name;
    entry.box = *file_box;
    if (!o_.image) {
      const std::string slf_name = SlfNameOf(item.name);
      if (slf_name == summary_name_) {
        Report(kError, "Data file named like the SLF files, skipping", path);
        failed_ = true;
        continue;
      }
      if (!WriteSlfEntry(JoinPath(dir, slf_name), entry, o_.boxes)) {
        failed_ = true;
        continue;
      }
      entry.name = slf_name;
    }
    files.push_back(std::move(entry));
  }
  if (subdirectories.empty() && files.empty()) return false;

  SlfBox total = subdirectories.empty() ? files.front().box : subdirectories.front().box;
  for (const SlfTreeEntry& e : subdirectories) total.Include(e.box);
  for (const SlfTreeEntry& e : files) total.Include(e.box);
  if (!WriteDirectorySummary(JoinPath(dir, summary_name_), total, subdirectories, files,
                             o_.boxes)) {
    failed_ = true;
    return false;
  }
  *box = total;
  return true;
}

// Fills `written` with the entries of `dir` whose SLF was written there.
void SlfGenerator::WalkLayers(const std::string& dir, SlfLayerEntries* written) {
  std::vector<DirectoryItem> items;
  if (!visits_.Enter(dir)) return;
  if (!ListDirectory(dir, &items)) {
    failed_ = true;
    return;
  }
  SlfLayerEntries entries;
  for (const DirectoryItem& item : items) {
    const std::string path = JoinPath(dir, item.name);
    if (item.is_directory) {
      SlfLayerEntries below;
      WalkLayers(path, &below);
      for (const auto& [name, entry] : below) {
        MergeLayerSubdirectory(entries, name, item.name, entry.box);
      }
      continue;
    }
    if (!IsEntryName(item.name)) continue;
    CountFile(item.name, dir);
    if (std::optional<SlfBox> box = FileBox(path)) AddLayerFile(entries, item.name, *box, dir);
  }
  for (auto& [name, entry] : entries) {
    if (WriteSlfEntry(JoinPath(dir, SlfNameOf(name)), entry, o_.boxes)) {
      written->emplace(name, std::move(entry));
    } else {
      failed_ = true;
    }
  }
}

// One LIF per layer: "<lif stem>_<layer stem>.lif", the layer's full file
// name when two layers share a stem.
void SlfGenerator::WriteLayerFiles(const SlfLayerEntries& layers) {
  std::string stem = o_.out_lif_name;
  if (kav::EndsWith(stem, ".lif")) stem.resize(stem.size() - 4);
  std::set<std::string> used;
  for (const auto& [name, entry] : layers) {
    std::string layer = name;
    const size_t dot = layer.find_last_of('.');
    if (dot != std::string::npos && dot > 0) layer.resize(dot);
    std::string lif = stem + "_" + layer + ".lif";
    if (!used.insert(lif).second) lif = stem + "_" + name + ".lif";
    if (!WriteLayerFile(lif, false, JoinPath(o_.path, SlfNameOf(name)), entry.box)) failed_ = true;
  }
}

bool SlfGenerator::Run() {
  if (o_.path.empty() || o_.pattern.empty()) {
    Report(kError, "Mandatory variables path or pattern not set!");
    return false;
  }
  const bool single_tree = o_.image || !o_.multi_layer;
  if (single_tree && (o_.out_slf_name.empty() ||
                      o_.out_slf_name.find_first_of("/\\") != std::string::npos)) {
    Report(kError, "The SLF name must be a file name without a directory", o_.out_slf_name);
    return false;
  }
  bool found = false;
  if (single_tree) {
    SlfBox box;
    found = WalkDirectory(o_.path, &box);
    if (found && !o_.out_lif_name.empty() &&
        !WriteLayerFile(o_.out_lif_name, o_.image, JoinPath(o_.path, summary_name_), box)) {
      failed_ = true;
    }
  } else {
    SlfLayerEntries layers;
    WalkLayers(o_.path, &layers);
    found = !layers.empty();
    if (found && !o_.out_lif_name.empty()) WriteLayerFiles(layers);
  }
  if (!found && !failed_) {
    Report(kWarning, "Found no files matching pattern", o_.pattern);
    if (matched_images_) {
      Report(kWarning, "The entries of an image tree are its tile info files, not the images");
    }
  }
  std::fflush(stdout);
  return found && !failed_;
}

}  // namespace

bool GenerateSlfFiles(const SlfGeneratorOptions& options) {
  SlfGenerator generator(options);
  return generator.Run();
}

}  // namespace vmp
