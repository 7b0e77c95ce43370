// "-slf" (also "-lif"): sub-LIF files for a directory tree of image or vector
// tiles.
#pragma once

#include <optional>
#include <string>

#include "map_server/driver/command.h"

namespace vmp {

struct SlfOptions {
  DataKind kind = DataKind::kImage;
  std::optional<std::string> path;
  std::optional<std::string> pattern;
  std::optional<std::string> out_slf_name;  // ".slf" is added
  std::optional<std::string> out_lif_name;
  bool single_layer = false;
  bool multi_layer = false;  // ignored (with a warning) for images
  bool suppress_bbox = false;
  SaveModeFlags save_mode;
};

OptionTable SlfOptionTable(SlfOptions& options);

bool SetupSlf(ArgList args, SlfOptions& options);
int RunSlf(const SlfOptions& options);

}  // namespace vmp
