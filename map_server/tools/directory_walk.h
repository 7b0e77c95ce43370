// Listing directories for the tools that walk trees of data files.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace vmp {

struct DirectoryItem {
  std::string name;
  bool is_directory = false;  // else a regular file
};

// Lists the sub-directories and regular files of `dir` (links followed;
// devices, pipes and sockets left out), sorted by name in byte order so that
// a walk visits the same files in the same order on every run and platform.
// False after "Could not be opened" with the directory when it cannot be
// listed.
bool ListDirectory(const std::string& dir, std::vector<DirectoryItem>* items);

// Remembers the directories a walk has entered, so that a link back up the
// tree (or a second link to the same directory) is walked only once.
class DirectoryVisits {
 public:
  // False, with a warning, when `dir` was entered before.
  bool Enter(const std::string& dir);

 private:
  std::set<std::string> entered_;
};

// Names of the converter's temporary and backup files, which no walk takes
// as data files.
bool IsConverterBackupName(std::string_view name);

}  // namespace vmp
