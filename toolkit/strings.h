// Small string helpers shared by every module.
#pragma once

#include <cstdarg>
#include <string>
#include <string_view>

namespace kav {

// printf into a std::string (no fixed buffers, no truncation).
std::string StrPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string StrVPrintf(const char* format, va_list args);

// The first `limit` characters of `text` (the "%.1024s" rule of messages).
inline std::string_view Cut(std::string_view text, size_t limit) {
  return text.substr(0, text.size() < limit ? text.size() : limit);
}

bool StartsWith(std::string_view text, std::string_view prefix);
bool EndsWith(std::string_view text, std::string_view suffix);

}  // namespace kav
