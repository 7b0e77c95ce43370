#include "map_server/driver/command_split.h"

namespace vmp {

OptionTable SplitOptionTable(SplitOptions& o) {
  OptionTable table = {
      {"-filename", "filename", &o.filename},
      {"-output", "output", &o.output},
      {"-num-x-tiles", "num x tiles", &o.num_x_tiles},
      {"-num-y-tiles", "num y tiles", &o.num_y_tiles},
  };
  AddVectorSplitOptions(table, o);
  return table;
}

bool SetupSplit(ArgList args, SplitOptions& o) {
  if (!ParseOptions(args, SplitOptionTable(o))) return false;
  return CheckSplitOptions(o);
}

int RunSplit(const SplitOptions& o) {
  // Worker: SplitTvfFile(*o.filename, o.kind, o.filter, *o.output, conditions,
  //   o.invert_attr, o.min_x, o.min_y, o.max_x, o.max_y, o.columns, o.rows,
  //   o.num_points.value_or(0), o.wrap, o.wrap_west, o.wrap_east, ProgressInterval())
  const bool split = ReportUnavailable("Vector splitting");
  return ToolStatus(split, "Split data", "Error splitting data");
}

}  // namespace vmp
