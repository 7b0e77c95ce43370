// "-convert": rewrites every matching TVF file of a directory tree in the
// chosen save mode.
#pragma once

#include <optional>
#include <string>

#include "map_server/driver/command.h"

namespace vmp {

struct ConvertOptions {
  std::optional<std::string> path;
  std::optional<std::string> pattern;
  SaveModeFlags save_mode;
};

OptionTable ConvertOptionTable(ConvertOptions& options);

bool SetupConvert(ArgList args, ConvertOptions& options);
int RunConvert(const ConvertOptions& options);

}  // namespace vmp
