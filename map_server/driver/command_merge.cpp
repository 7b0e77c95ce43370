#include "map_server/driver/command_merge.h"

#include "map_server/tools/tvf_merge.h"

namespace vmp {

OptionTable MergeOptionTable(MergeOptions& o) {
  OptionTable table = {
      {"-output", "output", &o.output},
      {"-filter", "filter", &o.filter},
  };
  AddSaveModeOptions(table, o.save_mode);
  return table;
}

bool SetupMerge(ArgList args, MergeOptions& o) {
  if (!ParseOptions(args, MergeOptionTable(o), &o.files)) return false;
  if (o.files.empty()) return CheckFailed("Missing files to merge!");
  if (!o.output) return CheckFailed("Missing mandatory -output parameter for -merge!");
  return true;
}

int RunMerge(const MergeOptions& o) {
  const bool merged = MergeTvfFiles(o.files, *o.output, o.filter.value_or(""));
  return merged ? kExitSuccess : kExitFailure;
}

}  // namespace vmp
