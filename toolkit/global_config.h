// The toolkit's global configuration variables used by the map server.
#pragma once

#include <optional>
#include <string>

namespace kav {

struct GlobalConfig {
  // VmpIterationMax: most scanlines one polygon may take in the scan
  // converter; changed only by "-iteration-max" (at least 10000).
  double vmp_iteration_max = 1000000.0;
  // Toolkit directory set by the application (log file fallback).
  std::optional<std::string> toolkit_dir;
};

GlobalConfig& Config();

}  // namespace kav
