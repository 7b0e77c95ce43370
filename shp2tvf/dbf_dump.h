// The table listing behind "-shp2tvf -show-attrs": the fields of a dBase
// table and its records.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

namespace vmp {

// dbfdump [-h] [-r] [-m] xbase_file
//   -h  the field descriptions first
//   -r  raw field text, numbers not reformatted
//   -m  one line per field instead of one line per record
// The listing goes to `out`, faults to `err`; returns the exit status.
int DbfDumpMain(const std::vector<std::string>& args, FILE* out, FILE* err);

}  // namespace vmp
