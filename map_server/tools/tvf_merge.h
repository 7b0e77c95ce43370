// Merging TVF files into one (the "-merge" tool).
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace vmp {

// Writes the features of `files`, in order, into `output` in the current
// TVF output encoding ("-b"/"-a"), loading each file through
// `filter_command` when it is not empty. Files that cannot be read are
// reported ("Error reading TVF file, skipping") and left out; the output
// still receives the others. Prints "Merged %ld objects in %ld files.\n" on
// `summary` and returns true only when every file was read and the output
// written. The output replaces an earlier file of its name only once it is
// complete, so it may also be one of the inputs.
bool MergeTvfFiles(const std::vector<std::string>& files, const std::string& output,
                   std::string_view filter_command, FILE* summary = stdout);

}  // namespace vmp
