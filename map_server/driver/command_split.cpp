#include "map_server/driver/command_split.h"

#include "toolkit/message_log.h"

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
  if (o.kind == SplitKind::kNone) {
    Report(kWarning, "Invalid split type", "Check input options");
    return kExitFailure;
  }
  const bool split = SplitTvfFile(*o.filename, MakeSplitSettings(o, ProgressInterval()));
  return ToolStatus(split, "Split data", "Error splitting data");
}

}  // namespace vmp
