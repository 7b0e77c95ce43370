// Path rules shared by every configuration reader and tool.
#pragma once

#include <string>
#include <string_view>

namespace vmp {

// A path is absolute when it begins with "\" or "/" or its second character
// is ":".
bool IsAbsolutePath(std::string_view path);

// Configuration files may use "\" or "/" as separators; on this platform
// both become "/".
std::string ToNativePath(std::string_view path);

// Joins a directory and a name with "/" (no separator doubled; an empty
// directory yields the name).
std::string JoinPath(std::string_view dir, std::string_view name);

// `name` when it is absolute, else `dir` joined with `name`.
std::string ResolvePath(std::string_view dir, std::string_view name);

// The directory part of a path (without the last separator), or "" when the
// path has none.
std::string DirectoryOf(std::string_view path);

// The last component of a path.
std::string BaseName(std::string_view path);

// Removes what a failed write left at `path`, when it is a regular file
// (never a device such as /dev/null named as the output).
void RemovePartialFile(const std::string& path);

}  // namespace vmp
