// A temporary directory for one test, removed with its contents afterwards.
#pragma once

#include <string>
#include <string_view>

namespace vmp::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // Absolute path of `name` inside the directory.
  std::string operator/(std::string_view name) const;
  // Writes `contents` to `name` (creating parent directories) and returns its path.
  std::string Write(std::string_view name, std::string_view contents) const;

 private:
  std::string path_;
};

// Whole contents of a file ("" when it cannot be read).
std::string ReadFile(const std::string& path);
bool FileExists(const std::string& path);

}  // namespace vmp::test
