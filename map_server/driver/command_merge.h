// "-merge": merging TVF files into one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "map_server/driver/command.h"

namespace vmp {

struct MergeOptions {
  std::optional<std::string> output;
  std::optional<std::string> filter;
  SaveModeFlags save_mode;
  std::vector<std::string> files;  // the arguments that are no option, in order
};

OptionTable MergeOptionTable(MergeOptions& options);

bool SetupMerge(ArgList args, MergeOptions& options);
int RunMerge(const MergeOptions& options);

}  // namespace vmp
