// The usage text of the program.
#pragma once

#include <cstdio>
#include <string>

namespace vmp {

// The whole usage text: the global options, then each mode with its option
// lines, groups separated by blank lines.
std::string UsageText();

void PrintUsage(FILE* out);

}  // namespace vmp
