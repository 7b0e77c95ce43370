// The toolkit's global configuration variables used by the map server.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace kav {

struct GlobalConfig {
  // VmpIterationMax: most scanlines one polygon may take in the scan
  // converter; changed only by "-iteration-max" (at least 10000).
  double vmp_iteration_max = 1000000.0;
  // Toolkit directory set by the application (log file fallback).
  std::optional<std::string> toolkit_dir;
  // TVF output encoding of the tools: set by "-b" (binary), cleared by "-a".
  bool binary_save = false;
  // Progress interval of the tools ("-progress n"); -1 is unset.
  int64_t progress = -1;
};

GlobalConfig& Config();

}  // namespace kav
