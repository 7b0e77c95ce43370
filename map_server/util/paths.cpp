#include "map_server/util/paths.h"

#include <filesystem>

namespace vmp {

namespace {
bool IsSeparator(char c) { return c == '/' || c == '\\'; }
}  // namespace

bool IsAbsolutePath(std::string_view path) {
  if (path.empty()) return false;
  return IsSeparator(path[0]) || (path.size() > 1 && path[1] == ':');
}

std::string ToNativePath(std::string_view path) {
  std::string out(path);
  for (char& c : out) {
    if (c == '\\') c = '/';
  }
  return out;
}

std::string JoinPath(std::string_view dir, std::string_view name) {
  if (dir.empty()) return std::string(name);
  std::string out(dir);
  if (!IsSeparator(out.back())) out += '/';
  while (!name.empty() && IsSeparator(name.front())) name.remove_prefix(1);
  out += name;
  return out;
}

std::string ResolvePath(std::string_view dir, std::string_view name) {
  if (IsAbsolutePath(name)) return std::string(name);
  return JoinPath(dir, name);
}

std::string DirectoryOf(std::string_view path) {
  size_t pos = path.find_last_of("/\\");
  if (pos == std::string_view::npos) return "";
  if (pos == 0) return std::string(path.substr(0, 1));
  return std::string(path.substr(0, pos));
}

std::string BaseName(std::string_view path) {
  size_t pos = path.find_last_of("/\\");
  return std::string(pos == std::string_view::npos ? path : path.substr(pos + 1));
}

void RemovePartialFile(const std::string& path) {
  std::error_code error;
  if (std::filesystem::is_regular_file(path, error)) std::filesystem::remove(path, error);
}

}  // namespace vmp
