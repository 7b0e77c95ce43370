// Shapefile conversion: ESRI shapefiles (.shp/.shx geometry, .dbf table)
// into TVF files.
//
// Every shape becomes TVF records with the selected table fields as
// attributes: points become markers, polylines and polygons one polygon
// record per part (continuation flags 1 ... 1, 0), Z and M values dropped.
// The tool (Shp2TvfMain) converts file lists and directory trees or filters
// one shapefile to standard output; the TVF loader converts through
// ConvertShapefile into a temporary stream.
//
// All messages of the converter are plain lines on its message stream
// (standard error). Conditions that stop the whole tool come back as
// ConvertStatus::kFatal rather than ending the process, so the loader can
// call the converter inside the map server.
#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "map_server/vector/vector_data.h"

namespace vmp {

// Most table fields a shapefile (and a selection) may have.
inline constexpr int kMaxShapefileAttributes = 1000;

enum class AttrSelection { kAll, kNone, kList };

// The converter's settings, as the tool's options set them.
struct Shp2TvfSettings {
  int64_t verbose = 0;     // "-verbose" (1), "-verbosity n"
  int64_t progress = -1;   // "-progress n"; -1 unset
  bool suppress_warnings = false;
  TvfFormat format = TvfFormat::kAscii;  // "-a" / "-b"
  bool recursive = false;                // "-r"
  std::optional<std::string> output;     // "-output"
  std::optional<std::string> pattern;    // "-pattern" (directories)
  AttrSelection selection = AttrSelection::kAll;
  std::vector<int> attrs;                // "-attr n", in order
  std::optional<int> marker_label_attr;  // "-marker-label-attr n"
  bool close_polygons = false;
  bool validate = false;
  bool filter = false;
};

// One run of the converter: its settings, where its messages and its
// filter output go, and the count of files converted so far.
struct Shp2TvfRun {
  Shp2TvfSettings settings;
  FILE* messages = stderr;
  FILE* filter_output = stdout;
  int64_t files = 0;
};

enum class ConvertStatus {
  kOk,
  kFailed,  // this input failed; the tool goes on with the next
  kFatal,   // the tool stops with status 1
};

// Converts one shapefile. The TVF goes to `output_stream` when given (left
// open, only flushed), else in filter mode to run.filter_output, else to the
// file `output_name`, which is replaced only once it is complete.
ConvertStatus ConvertShapefile(Shp2TvfRun& run, const std::string& input,
                               const std::string* output_name, FILE* output_stream,
                               bool filter_mode, TvfFormat encoding, bool close_polygons);

// The loader's form: default settings, messages on standard error, TVF in
// `encoding` into `output_stream`. True on success.
bool ConvertShapefile(const std::string& input, FILE* output_stream, TvfFormat encoding);

// Converts every file of the tree under `directory` whose name matches
// `pattern` ("*" and "?"; every file without a pattern) into its name with
// ".tvf" appended. kFailed when any conversion failed.
ConvertStatus ConvertDirectory(Shp2TvfRun& run, const std::string& directory,
                               const std::optional<std::string>& pattern, TvfFormat encoding,
                               bool close_polygons);

// The tool: reads the options in `args` (the arguments after the program
// or mode name), converts, and returns the exit status (0 or 1).
int Shp2TvfMain(const std::vector<std::string>& args, FILE* messages = stderr,
                FILE* standard_output = stdout);

// The usage text of the tool.
std::string Shp2TvfUsage();

}  // namespace vmp
