#include "map_server/dataset/slf_reader.h"

#include <filesystem>
#include <optional>

#include "map_server/dataset/config_reader.h"
#include "map_server/util/paths.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

std::string NormalPath(const std::string& path) {
  return std::filesystem::path(path).lexically_normal().string();
}

enum class ChildEntry { kDirectory, kFile };

struct SlfReadState {
  std::optional<double> min_lon, min_lat, max_lon, max_lat;
  std::optional<std::string> leaf_name;
  std::optional<int64_t> used_width, used_height;
};

// Reads the optional "BBOX=" after a child entry's token.
void ReadChildBox(std::string_view rest, SlfNode* child, const ConfigContext& context) {
  rest = SkipBlanks(rest);
  if (rest.empty()) return;
  std::string_view numbers;
  if (!MatchKeyword(rest, "BBOX=", &numbers)) {
    context.Report(kError, "skipping junk after SUBLIF DIR/FILE (BBOX expected)", rest);
    return;
  }
  double box[4];  // min lon, min lat, max lon, max lat
  if (ReadReals(&numbers, box, 4) != 4) {
    context.Report(kError, "cannot read BBOX for SUBLIF DIR/FILE", rest);
    return;
  }
  child->min_lon = box[0];
  child->min_lat = box[1];
  child->max_lon = box[2];
  child->max_lat = box[3];
  child->box_from_parent = true;
}

void AddChild(SlfNode& node, ChildEntry kind, std::string_view rest, std::string_view long_name,
              const ConfigContext& context) {
  std::string token;
  if (!ReadToken(&rest, &token, context)) {
    context.CannotRead(long_name);
    return;
  }
  token = ToNativePath(token);
  SlfNode child;
  child.depth = node.depth + 1;
  child.ancestors =
      std::make_shared<const SlfLineage>(SlfLineage{NormalPath(node.slf_path), node.ancestors});
  if (kind == ChildEntry::kDirectory) {
    child.directory = ResolvePath(node.directory, token);
    child.slf_path = JoinPath(child.directory, node.slf_base_name);
    child.slf_base_name = node.slf_base_name;
  } else {
    child.directory = node.directory;
    child.slf_path = ResolvePath(node.directory, token);
    child.slf_base_name = BaseName(child.slf_path);
    child.file_entry = true;
  }
  ReadChildBox(rest, &child, context);
  node.children.push_back(std::move(child));
}

bool ReadBoxLine(std::string_view line, const char* keyword, std::optional<double>* slot,
                 const ConfigContext& context) {
  std::string_view rest;
  if (!MatchKeyword(line, keyword, &rest)) return false;
  double value;
  if (ReadReal(&rest, &value)) {
    *slot = value;
  } else {
    std::string_view name(keyword);
    context.CannotRead(name.substr(0, name.size() - 1));
  }
  return true;
}

bool ReadUsedLine(std::string_view line, const char* keyword, std::optional<int64_t>* slot,
                  const ConfigContext& context) {
  std::string_view rest;
  if (!MatchKeyword(line, keyword, &rest)) return false;
  int64_t value;
  if (ReadInteger(&rest, &value)) {
    *slot = value;
  } else {
    std::string_view name(keyword);
    context.CannotRead(name.substr(0, name.size() - 1));
  }
  return true;
}

}  // namespace

bool MakeSlfRoot(const std::string& slf_path, SlfNode* root) {
  *root = SlfNode();
  std::string path = ToNativePath(slf_path);
  std::string base = BaseName(path);
  if (base.empty() || base == "." || base == "..") {
    Report(kError, "Can't determine slf_name in TILES SUBLIF", slf_path);
    return false;
  }
  root->slf_path = path;
  root->directory = DirectoryOf(path);
  root->slf_base_name = base;
  return true;
}

int64_t ReadSlfText(SlfNode& node, std::string_view text, bool read_error) {
  node.loaded = true;
  node.children.clear();
  node.leaf_file.clear();
  ConfigContext context{node.slf_path, {}};
  SlfReadState state;
  LineReader lines(text, context);
  std::string_view line;
  while (lines.Next(&line)) {
    if (ReadBoxLine(line, "MIN LON=", &state.min_lon, context)) continue;
    if (ReadBoxLine(line, "MIN LAT=", &state.min_lat, context)) continue;
    if (ReadBoxLine(line, "MAX LON=", &state.max_lon, context)) continue;
    if (ReadBoxLine(line, "MAX LAT=", &state.max_lat, context)) continue;
    std::string_view rest;
    if (MatchKeyword(line, "FILENAME=", &rest)) {
      std::string name;
      if (!ReadToken(&rest, &name, context)) {
        context.CannotRead("FILENAME");
      } else if (!state.leaf_name || *state.leaf_name != name) {
        if (state.leaf_name) context.Report(kWarning, "Repeated FILENAME in slf", node.slf_path);
        state.leaf_name = std::move(name);
      }
      continue;
    }
    if (ReadUsedLine(line, "USED WIDTH=", &state.used_width, context)) continue;
    if (ReadUsedLine(line, "USED HEIGHT=", &state.used_height, context)) continue;
    if (MatchKeyword(line, "SUBLIF DIR=", &rest)) {
      AddChild(node, ChildEntry::kDirectory, rest, "SUBLIF DIR", context);
      continue;
    }
    if (MatchKeyword(line, "SUB LIF=", &rest)) {
      AddChild(node, ChildEntry::kFile, rest, "SUB LIF", context);
      continue;
    }
    if (MatchKeyword(line, "SUBLIF FILE=", &rest)) {
      AddChild(node, ChildEntry::kFile, rest, "SUBLIF FILE", context);
      continue;
    }
    // Directory summaries put a file entry's box on a line of its own.
    if (MatchKeyword(line, "BBOX=", &rest)) continue;
    context.Report(kError, "SLF file", node.slf_path);
    context.Report(kWarning, "Unrecognized variable", line);
  }

  if (state.leaf_name && !node.children.empty()) {
    context.Report(kWarning, "File", node.slf_path);
    context.Report(kWarning, *state.leaf_name, "FILENAME is overriden by SUBLIF DIR");
    state.leaf_name.reset();
  }
  if (node.file_entry && !node.children.empty()) {
    context.Report(kWarning, "File", node.slf_path);
    context.Report(kWarning, "Unexpected SUBLIF DIR or SUBLIF FILE in SUBLIF FILE",
                   "FILENAME is expected");
    node.file_entry = false;
  }

  if (read_error) context.Report(kError, "Error reading sub lif file!", node.slf_path);
  if (!state.min_lon || !state.min_lat || !state.max_lon || !state.max_lat) {
    context.Report(kError, "Bounding box is not defined in slf", node.slf_path);
    node.error = true;
  } else if (node.box_from_parent) {
    if (node.min_lon != *state.min_lon || node.min_lat != *state.min_lat ||
        node.max_lon != *state.max_lon || node.max_lat != *state.max_lat) {
      context.Report(kError, "BBOX mismatch in slf", node.slf_path);
    }
  } else {
    node.min_lon = *state.min_lon;
    node.min_lat = *state.min_lat;
    node.max_lon = *state.max_lon;
    node.max_lat = *state.max_lat;
  }
  if (state.used_width) node.used_width = state.used_width;
  if (state.used_height) node.used_height = state.used_height;

  int64_t entries = static_cast<int64_t>(node.children.size());
  if (state.leaf_name) {
    node.leaf_file = ResolvePath(node.directory, ToNativePath(*state.leaf_name));
    ++entries;
  }
  if (entries == 0) {
    context.Report(kError, "Empty sublif file", node.slf_path);
    node.error = true;
  }
  return entries;
}

int64_t ReadSlfFile(SlfNode& node) {
  ConfigFile file;
  if (!LoadConfigFile(node.slf_path, &file)) {
    node.loaded = true;
    node.error = true;
    Report(kError, "Could not be opened", node.slf_path);
    return -1;
  }
  return ReadSlfText(node, file.text, file.read_error);
}

bool EnsureSlfNodeLoaded(SlfNode& node) {
  if (node.loaded) return !node.error;
  if (node.depth > kMaxSlfDepth) {
    Report(kError, "Sub lif tree is too deep", node.slf_path);
    node.loaded = true;
    node.error = true;
    return false;
  }
  std::string own = NormalPath(node.slf_path);
  for (const SlfLineage* a = node.ancestors.get(); a != nullptr; a = a->parent.get()) {
    if (a->slf_path == own) {
      Report(kError, "Recursive sub lif, skipping", node.slf_path);
      node.loaded = true;
      node.error = true;
      return false;
    }
  }
  ReadSlfFile(node);
  return !node.error;
}

size_t LoadSlfTree(SlfNode& node) {
  size_t errors = EnsureSlfNodeLoaded(node) ? 0 : 1;
  for (SlfNode& child : node.children) errors += LoadSlfTree(child);
  return errors;
}

}  // namespace vmp
