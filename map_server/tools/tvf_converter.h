// Rewriting TVF files in place in the current save mode (ASCII or BINARY).
//
// Each file is read whole, written to "<name>.vmp_new_bak", the original is
// moved to "<name>.vmp_orig_bak", the new file takes the original's name and
// the backup is deleted. When any step fails the original stays (or is moved
// back) under its own name; if even that move fails, it is kept as the
// ".vmp_orig_bak" file and reported. A file whose backup name is taken
// already is left alone. No step loses data.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace vmp {

// The file operations of the replacement steps; tests put in failing ones.
struct ConverterFileOps {
  std::function<bool(const std::string& from, const std::string& to)> rename;
  std::function<bool(const std::string& path)> remove;
};

// rename(2) and remove(3).
ConverterFileOps SystemFileOps();

// Converts one file. False when it was left as it was: "Error reading TVF
// file, skipping", "Error writing TVF file, skipping " or "Can't replace
// original TVF file, skipping ", with the name.
bool ConvertTvfFile(const std::string& path, const ConverterFileOps& ops = SystemFileOps());

// Converts every file of the tree below `dir` (sub-directories included, in
// name order) whose name matches `pattern`, printing "Convering file #%d"
// every `progress`-th file (0: never). `processed` receives the number of
// matching files. False when some file or directory failed.
bool ConvertTvfTree(const std::string& dir, const std::string& pattern, int64_t progress,
                    int64_t* processed, const ConverterFileOps& ops = SystemFileOps());

}  // namespace vmp
