// Argument files ("-arg-file file"): the command line read from a text file.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vmp {

// Arguments are read this many characters at a time ...
inline constexpr size_t kArgScanLimit = 1026;
// ... and an argument longer than this is cut to it.
inline constexpr size_t kMaxArgLength = 1024;
// Largest argument file read; a longer one (or an endless stream such as
// /dev/zero) is a read error.
inline constexpr size_t kMaxArgFileBytes = 16u << 20;

// Splits the text of an argument file into arguments. Arguments are separated
// by white space; one that starts with a double quote runs to the next double
// quote and may hold white space (the quotes are removed; "" is an empty
// argument; a missing closing quote ends it at the end of the text with a
// warning). Each argument is scanned at most kArgScanLimit characters at a
// time: what is left of a longer one is scanned as the next argument (inside
// its quotes for a quoted one). A scanned argument longer than kMaxArgLength
// is cut to it with the toolkit error "Argument is too long, truncated.".
std::vector<std::string> SplitArgText(std::string_view text);

// Reads an argument file: `program` followed by the file's arguments.
// Returns nothing when the file cannot be opened, or when reading it fails
// ("Error reading arguments." is reported then).
std::optional<std::vector<std::string>> ReadArgFile(const std::string& path,
                                                    const std::string& program);

}  // namespace vmp
