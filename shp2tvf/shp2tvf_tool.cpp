#include <algorithm>
#include <climits>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "map_server/driver/option_parser.h"
#include "map_server/util/paths.h"
#include "map_server/vector/attr_match.h"
#include "shp2tvf/dbf_dump.h"
#include "shp2tvf/shp2tvf.h"
#include "toolkit/global_config.h"

namespace vmp {

namespace {

namespace fs = std::filesystem;

// Progress of file lists and directories when "-progress" is not given.
constexpr int64_t kDefaultProgress = 100;

struct DirectoryEntry {
  std::string name;
  bool directory;
};

// Walks one directory; `visited` holds the directories already walked (by
// their canonical path), so a link back up the tree is not followed again.
ConvertStatus WalkDirectory(Shp2TvfRun& run, const std::string& directory,
                            const std::optional<std::string>& pattern, TvfFormat encoding,
                            bool close_polygons, std::set<std::string>& visited) {
  std::fprintf(run.messages, "Processing directory: %s\n", directory.c_str());
  std::error_code ec;
  const fs::path canonical = fs::canonical(directory, ec);
  if (!ec && !visited.insert(canonical.string()).second) return ConvertStatus::kOk;

  // The listing is taken whole first: files written while converting are
  // not visited.
  std::vector<DirectoryEntry> entries;
  fs::directory_iterator it(directory, ec);
  for (; !ec && it != fs::directory_iterator(); it.increment(ec)) {
    std::error_code type_error;
    entries.push_back({it->path().filename().string(), it->is_directory(type_error)});
  }
  if (ec) {
    std::fprintf(run.messages, "%s: Can't read directory\n", directory.c_str());
    return ConvertStatus::kFailed;
  }
  std::sort(entries.begin(), entries.end(),
            [](const DirectoryEntry& a, const DirectoryEntry& b) { return a.name < b.name; });

  bool failed = false;
  for (const DirectoryEntry& entry : entries) {
    const std::string path = JoinPath(directory, entry.name);
    ConvertStatus status = ConvertStatus::kOk;
    if (entry.directory) {
      status = WalkDirectory(run, path, pattern, encoding, close_polygons, visited);
    } else if (!pattern || WildcardMatch(*pattern, entry.name)) {
      const std::string output = path + ".tvf";
      status = ConvertShapefile(run, path, &output, nullptr, false, encoding, close_polygons);
    }
    if (status == ConvertStatus::kFatal) return status;
    failed = failed || status == ConvertStatus::kFailed;
  }
  return failed ? ConvertStatus::kFailed : ConvertStatus::kOk;
}

bool IsDirectory(const std::string& path) {
  std::error_code ec;
  return fs::is_directory(path, ec);
}

// A table column number: a whole number from 0 up.
std::optional<int> ReadColumn(const std::string* text) {
  if (text == nullptr) return std::nullopt;
  const std::optional<int64_t> value = ReadInteger(*text);
  if (!value || *value < 0 || *value > INT_MAX) return std::nullopt;
  return static_cast<int>(*value);
}

// Reads the options; false (after the message) on a bad command line.
// `show_attrs` is set to the position after "-show-attrs" when it is met.
bool ReadOptions(const std::vector<std::string>& args, Shp2TvfSettings& s, FILE* messages,
                 size_t* next, std::optional<size_t>* show_attrs) {
  bool no_attrs = false, all_attrs = false;
  size_t i = 0;
  auto value = [&]() -> const std::string* { return i + 1 < args.size() ? &args[++i] : nullptr; };
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a.size() < 2 || a[0] != '-') break;
    if (a == "-verbose") {
      s.verbose = 1;
    } else if (a == "-verbosity" || a == "-progress") {
      const std::string* text = value();
      const std::optional<int64_t> n = text ? ReadInteger(*text) : std::nullopt;
      if (!n) {
        std::fputs(a == "-verbosity" ? "Invalid verbosity value\n" : "Invalid progress value\n",
                   messages);
        return false;
      }
      (a == "-verbosity" ? s.verbose : s.progress) = *n;
    } else if (a == "-suppress-warnings") {
      s.suppress_warnings = true;
    } else if (a == "-a" || a == "-b") {
      s.format = a == "-b" ? TvfFormat::kBinary : TvfFormat::kAscii;
    } else if (a == "-r") {
      s.recursive = true;
    } else if (a == "-output") {
      const std::string* text = value();
      if (text == nullptr) {
        std::fputs("Missing output file name.\n", messages);
        return false;
      }
      s.output = *text;
    } else if (a == "-pattern") {
      const std::string* text = value();
      if (text == nullptr) {
        std::fputs("Missing pattern value.\n", messages);
        return false;
      }
      s.pattern = *text;
    } else if (a == "-no-attrs" || a == "-all-attrs") {
      no_attrs = a == "-no-attrs";
      all_attrs = !no_attrs;
    } else if (a == "-attr") {
      const std::string* text = value();
      if (text == nullptr) {
        std::fputs("Missing value after -attr\n", messages);
        return false;
      }
      const std::optional<int> column = ReadColumn(text);
      if (!column) {
        std::fputs("Invalid attr index after -attr\n", messages);
        return false;
      }
      if (s.attrs.size() >= static_cast<size_t>(kMaxShapefileAttributes)) {
        std::fputs("Too many attributes!\n", messages);
        return false;
      }
      s.attrs.push_back(*column);
    } else if (a == "-marker-label-attr") {
      const std::optional<int> column = ReadColumn(value());
      if (!column) {
        std::fputs("Invalid attr index after -marker-label-attr\n", messages);
        return false;
      }
      s.marker_label_attr = column;
    } else if (a == "-close-polygons") {
      s.close_polygons = true;
    } else if (a == "-validate") {
      s.validate = true;
    } else if (a == "-filter") {
      s.filter = true;
    } else if (a == "-show-attrs") {
      *show_attrs = i + 1;
      return true;
    } else {
      std::fprintf(messages, "Unknown option: %s\n\n%s", a.c_str(), Shp2TvfUsage().c_str());
      return false;
    }
  }
  *next = i;
  if ((no_attrs || all_attrs) && !s.attrs.empty()) {
    std::fputs("Warning: Ignoring -attr used with -no-attrs or -all-attrs!\n", messages);
    s.attrs.clear();
  }
  s.selection = no_attrs ? AttrSelection::kNone
                         : !s.attrs.empty() ? AttrSelection::kList : AttrSelection::kAll;
  return true;
}

}  // namespace

ConvertStatus ConvertDirectory(Shp2TvfRun& run, const std::string& directory,
                               const std::optional<std::string>& pattern, TvfFormat encoding,
                               bool close_polygons) {
  std::set<std::string> visited;
  return WalkDirectory(run, directory, pattern, encoding, close_polygons, visited);
}

std::string Shp2TvfUsage() {
  return "Usage: shp2tvf [options] <list of shapefiles or directories>\n"
         "  -verbose             verbose output\n"
         "  -verbosity n         verbose level (2: every record)\n"
         "  -progress n          reports every n-th file\n"
         "  -suppress-warnings   no warnings about skipped shapes\n"
         "  -a, -b               ASCII (default) or binary TVF\n"
         "  -r                   converts directories recursively\n"
         "  -output file         output file (one input only; default: input name + .tvf)\n"
         "  -pattern pattern     file name pattern in directories (* and ?), e.g. \"*.shp\";\n"
         "                       without it every file of the tree is tried\n"
         "  -no-attrs            writes no attributes\n"
         "  -all-attrs           writes every attribute (default)\n"
         "  -attr n              writes table field n; repeatable, numbered in order\n"
         "  -marker-label-attr n string field holding point labels\n"
         "  -close-polygons      coverts polylines to polygons by adding closing segment\n"
         "  -validate            counts polygon rings wound in the wrong direction\n"
         "  -filter              converts the first input to standard output\n"
         "  -show-attrs [-h] [-r] [-m] file   lists a table's fields and records\n";
}

int Shp2TvfMain(const std::vector<std::string>& args, FILE* messages, FILE* standard_output) {
  Shp2TvfRun run;
  run.messages = messages;
  run.filter_output = standard_output;
  Shp2TvfSettings& s = run.settings;
  if (kav::Config().progress >= 0) s.progress = kav::Config().progress;

  size_t next = 0;
  std::optional<size_t> show_attrs;
  if (!ReadOptions(args, s, messages, &next, &show_attrs)) return 1;
  if (show_attrs) {
    const std::vector<std::string> rest(args.begin() + static_cast<std::ptrdiff_t>(*show_attrs),
                                        args.end());
    return DbfDumpMain(rest, standard_output, messages);
  }
  const std::vector<std::string> inputs(args.begin() + static_cast<std::ptrdiff_t>(next),
                                        args.end());
  if (inputs.empty()) {
    std::fprintf(messages, "Missing shapefiles or directories list to convert.\n\n%s",
                 Shp2TvfUsage().c_str());
    return 1;
  }

  if (s.filter) {
    if (inputs.size() > 1) std::fputs("Skipping extra shapefile names in filter mode.\n", messages);
    const ConvertStatus status =
        ConvertShapefile(run, inputs[0], nullptr, nullptr, true, s.format, s.close_polygons);
    if (status != ConvertStatus::kOk) {
      if (status == ConvertStatus::kFailed) {
        std::fprintf(messages, "Errors processing file %s\n", inputs[0].c_str());
      }
      return 1;
    }
    return 0;
  }

  if (s.output && inputs.size() > 1) {
    std::fputs("More than one input file: can't use -output option.\n", messages);
    return 1;
  }
  if (s.progress < 0) s.progress = kDefaultProgress;
  bool failed = false;
  for (const std::string& input : inputs) {
    ConvertStatus status;
    if (IsDirectory(input)) {
      if (!s.recursive) {
        std::fprintf(messages, "Non-recursive mode, skipping directory: %s\n", input.c_str());
        failed = true;
        continue;
      }
      status = ConvertDirectory(run, input, s.pattern, s.format, s.close_polygons);
    } else {
      const std::string output = s.output.value_or(input + ".tvf");
      status = ConvertShapefile(run, input, &output, nullptr, false, s.format, s.close_polygons);
    }
    if (status == ConvertStatus::kFatal) return 1;
    failed = failed || status == ConvertStatus::kFailed;
  }
  if (failed) {
    std::fputs("######### ERRORS PROCESSING SOME OF THE FILES.\n", messages);
    return 1;
  }
  std::fputs("Done!\n", messages);
  return 0;
}

}  // namespace vmp
