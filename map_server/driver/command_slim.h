// "-slim": snapping a TVF file's points to a grid of a given resolution.
#pragma once

#include <optional>
#include <string>

#include "map_server/driver/command.h"

namespace vmp {

struct SlimOptions {
  std::optional<std::string> filename;
  std::optional<std::string> output;
  std::optional<double> resolution;
  SaveModeFlags save_mode;
};

OptionTable SlimOptionTable(SlimOptions& options);

// A resolution of zero or below counts as not set (it cannot be slimmed to).
bool SetupSlim(ArgList args, SlimOptions& options);
int RunSlim(const SlimOptions& options);

}  // namespace vmp
