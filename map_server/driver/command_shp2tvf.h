// "-shp2tvf": shapefile conversion. The tool reads its own options, so the
// arguments are handed over whole.
#pragma once

#include <string>
#include <vector>

#include "map_server/driver/command.h"

namespace vmp {

struct Shp2TvfOptions {
  std::vector<std::string> args;
};

bool SetupShp2Tvf(ArgList args, Shp2TvfOptions& options);
int RunShp2Tvf(const Shp2TvfOptions& options);

}  // namespace vmp
