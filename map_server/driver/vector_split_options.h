// Options shared by vector tiling ("-tile -vector") and vector splitting
// ("-split"), and the checks both run on them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "map_server/driver/command.h"
#include "map_server/driver/option_parser.h"
#include "map_server/tools/vector_split.h"
#include "map_server/vector/attr_condition.h"

namespace vmp {

struct VectorSplitOptions {
  // As given on the command line.
  std::optional<std::string> filename;
  std::optional<std::string> output;  // -output (-split) or -template (-tile)
  std::optional<std::string> filter;
  SaveModeFlags save_mode;
  std::vector<std::string> attr_conditions;  // the -attr texts, in order
  bool invert_attr = false;
  bool bbox = false;
  std::optional<int64_t> num_points;
  std::optional<int64_t> num_x_tiles;
  std::optional<int64_t> num_y_tiles;
  bool pos_range = false;
  bool neg_range = false;
  bool custom_range = false;
  bool no_range = false;
  std::optional<double> min_wlon;
  std::optional<double> max_wlon;
  bool world_extent = false;  // of these two the last one given wins
  bool tvf_extent = false;
  std::optional<double> min_lat;
  std::optional<double> max_lat;
  std::optional<double> min_lon;
  std::optional<double> max_lon;

  // Filled by the checks, in the form the split worker takes.
  SplitKind kind = SplitKind::kNone;
  std::optional<AttrConditionList> conditions;        // the parsed -attr texts
  double min_x = 0, min_y = 0, max_x = 0, max_y = 0;  // kTileGivenExtent
  int64_t columns = 1, rows = 1;                      // tiling kinds
  bool wrap = false;                                  // longitude wrapping on
  double wrap_west = 0, wrap_east = 0;
};

// Adds the options both modes share (everything but -filename, -output /
// -template and the tile counts, which each mode names itself).
void AddVectorSplitOptions(OptionTable& table, VectorSplitOptions& options);

// The checks of "-tile -vector" and of "-split"; each reports its message as
// an error (or prints it, for the -attr faults) and returns false.
bool CheckVectorTileOptions(VectorSplitOptions& options);
bool CheckSplitOptions(VectorSplitOptions& options);

// Parses the collected -attr texts into `conditions` for the split worker
// (each text adds its OR chains to the one list); prints "Invalid attribute
// condition: -attr\n" on standard error for a text that does not parse.
bool ParseAttrOptions(VectorSplitOptions& options);

// The split worker's settings for checked options, with `progress` as the
// tiling progress interval.
SplitSettings MakeSplitSettings(const VectorSplitOptions& options, int64_t progress);

// The world in the file's longitudes: the wrap range when one is set,
// else -180..180; latitudes -90..90.
inline constexpr double kWorldMinLon = -180.0;
inline constexpr double kWorldMaxLon = 180.0;
inline constexpr double kWorldMinLat = -90.0;
inline constexpr double kWorldMaxLat = 90.0;

}  // namespace vmp
