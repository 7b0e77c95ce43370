#include "map_server/tools/slf_writer.h"

#include <filesystem>
#include <system_error>

#include "map_server/util/paths.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr std::string_view kOpenFailure = "Could not be opened";
constexpr std::string_view kWriteFailure = "Errors writing lif file";

std::string Header(const SlfBox& box) {
  std::string text(kGeneratedComment);
  text += BoxLines(box);
  return text;
}

void AppendChild(std::string& text, std::string_view keyword, const std::string& name,
                 const SlfBox& box, bool boxes) {
  text += keyword;
  text += SlfToken(name);
  if (boxes) text += ChildBoxText(box);
  text += '\n';
}

// The "SUBLIF DIR=" lines of a kind 1 or 2 entry.
bool AppendSubdirectories(std::string& text, const SlfTreeEntry& entry, bool boxes) {
  bool ok = true;
  for (const SlfTreeEntry& dir : entry.subdirectories) {
    if (dir.kind != SlfEntryKind::kSubdirectories) {
      Report(kError, "Unexpected Tiger child type: SUBDIRS expected", dir.name);
      ok = false;
      continue;
    }
    AppendChild(text, "SUBLIF DIR=", dir.name, dir.box, boxes);
  }
  return ok;
}

void Union(SlfTreeEntry& entry, const SlfBox& box) { entry.box.Include(box); }

void ReportAt(int severity, std::string_view message, const std::string& name,
              const std::string& dir) {
  Report(severity, message, name);
  Report(severity, "    path is", dir);
}

}  // namespace

bool WriteSlfEntry(const std::string& path, const SlfTreeEntry& entry, bool boxes) {
  std::string text = Header(entry.box);
  bool ok = true;
  switch (entry.kind) {
    case SlfEntryKind::kDataFile:
      text += "FILENAME=" + SlfToken(entry.name) + "\n";
      break;
    case SlfEntryKind::kFileAndSubdirectories: {
      const SlfTreeEntry& file = *entry.data_file;
      const std::string sub_name = file.name + std::string(kSubSlfExtension);
      if (!WriteSlfEntry(JoinPath(DirectoryOf(path), sub_name), file, boxes)) return false;
      AppendChild(text, "SUBLIF FILE=", sub_name, file.box, boxes);
      ok = AppendSubdirectories(text, entry, boxes);
      break;
    }
    case SlfEntryKind::kSubdirectories:
      ok = AppendSubdirectories(text, entry, boxes);
      break;
  }
  return WriteGeneratedFile(path, text, kOpenFailure, kWriteFailure) && ok;
}

bool WriteDirectorySummary(const std::string& path, const SlfBox& box,
                           const std::vector<SlfTreeEntry>& subdirectories,
                           const std::vector<SlfTreeEntry>& files, bool boxes) {
  std::string text = Header(box);
  for (const SlfTreeEntry& dir : subdirectories) AppendChild(text, "SUBLIF DIR=", dir.name, dir.box, boxes);
  // A file entry's box stands on a line of its own, which readers skip.
  for (const SlfTreeEntry& file : files) {
    text += "SUBLIF FILE=" + SlfToken(file.name) + "\n";
    if (boxes) text += ChildBoxText(file.box) + "\n";
  }
  return WriteGeneratedFile(path, text, kOpenFailure, kWriteFailure);
}

void AddLayerFile(SlfLayerEntries& entries, const std::string& name, const SlfBox& box,
                  const std::string& dir) {
  auto [it, added] = entries.try_emplace(name);
  SlfTreeEntry& entry = it->second;
  if (added) {
    entry.name = name;
    entry.box = box;
    return;
  }
  auto file = std::make_unique<SlfTreeEntry>();
  file->name = name;
  file->box = box;
  if (entry.kind == SlfEntryKind::kSubdirectories) {
    ReportAt(kInfo, "Found file AND subdir entries for", name, dir);
    entry.kind = SlfEntryKind::kFileAndSubdirectories;
    entry.data_file = std::move(file);
  } else {
    ReportAt(kWarning, "Dublicate file entry??? Dropping previous for", name, dir);
    if (entry.kind == SlfEntryKind::kFileAndSubdirectories) entry.data_file = std::move(file);
  }
  Union(entry, box);
}

void MergeLayerSubdirectory(SlfLayerEntries& entries, const std::string& name,
                            const std::string& subdir, const SlfBox& box) {
  auto [it, added] = entries.try_emplace(name);
  SlfTreeEntry& entry = it->second;
  if (added) {
    entry.name = name;
    entry.kind = SlfEntryKind::kSubdirectories;
    entry.box = box;
  } else {
    if (entry.kind == SlfEntryKind::kDataFile) {
      auto file = std::make_unique<SlfTreeEntry>();
      file->name = entry.name;
      file->box = entry.box;
      entry.data_file = std::move(file);
      entry.kind = SlfEntryKind::kFileAndSubdirectories;
    }
    Union(entry, box);
  }
  SlfTreeEntry dir;
  dir.name = subdir;
  dir.kind = SlfEntryKind::kSubdirectories;
  dir.box = box;
  entry.subdirectories.push_back(std::move(dir));
}

bool WriteLayerFile(const std::string& lif_path, bool image, const std::string& slf_path,
                    const SlfBox& box) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::path lif_dir = fs::absolute(fs::path(lif_path), ec).parent_path();
  std::string sublif = fs::absolute(fs::path(slf_path), ec).lexically_normal().string();
  if (!ec) {
    const fs::path relative = fs::path(sublif).lexically_relative(lif_dir.lexically_normal());
    if (!relative.empty()) sublif = relative.string();
  }
  std::string text(kGeneratedComment);
  text += image ? "TYPE=IMAGE\n" : "TYPE=VECTOR\n";
  text += "TRANS TYPE=OPAQUE\n";
  text += "TILES SUBLIF=" + SlfToken(sublif) + "\n";
  text += BoxLines(box);
  return WriteGeneratedFile(lif_path, text, kOpenFailure, kWriteFailure);
}

}  // namespace vmp
