// "-tvf-info": the bounding boxes of TVF files.
#pragma once

#include <string>
#include <vector>

#include "map_server/driver/command.h"

namespace vmp {

struct TvfInfoOptions {
  std::vector<std::string> files;  // every argument is a file name
};

bool SetupTvfInfo(ArgList args, TvfInfoOptions& options);
int RunTvfInfo(const TvfInfoOptions& options);

}  // namespace vmp
