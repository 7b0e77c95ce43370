// "-split": splitting vector data by attribute conditions, by number of
// points, or into a rectangle or grid of tiles (-bbox).
#pragma once

#include "map_server/driver/command.h"
#include "map_server/driver/vector_split_options.h"

namespace vmp {

using SplitOptions = VectorSplitOptions;

OptionTable SplitOptionTable(SplitOptions& options);

bool SetupSplit(ArgList args, SplitOptions& options);
int RunSplit(const SplitOptions& options);

}  // namespace vmp
