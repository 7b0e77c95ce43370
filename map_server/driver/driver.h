// The program's entry: start-up, mode dispatch and exit status.
#pragma once

#include <string_view>

#include "map_server/driver/option_parser.h"

namespace vmp {

// Runs the program on its command line and returns the exit status.
int RunDriver(int argc, char** argv);

// One mode of the program, selected by its option.
struct Mode {
  std::string_view option;
  int (*main)(ArgList args);  // the arguments after the option
  bool tool;  // an offline tool: releases the arguments and stops the map service at the end
};

// The mode for `option` (compared exactly), or null.
const Mode* FindMode(std::string_view option);

}  // namespace vmp
