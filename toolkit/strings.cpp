#include "toolkit/strings.h"

#include <cstdio>
#include <vector>

namespace kav {

std::string StrVPrintf(const char* format, va_list args) {
  va_list copy;
  va_copy(copy, args);
  char small[256];
  int needed = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (needed < 0) return {};
  if (static_cast<size_t>(needed) < sizeof small) return std::string(small, static_cast<size_t>(needed));
  std::string out(static_cast<size_t>(needed), '\0');
  std::vsnprintf(out.data(), out.size() + 1, format, args);
  return out;
}

std::string StrPrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::string out = StrVPrintf(format, args);
  va_end(args);
  return out;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
  return text.substr(0, prefix.size()) == prefix;
}

bool EndsWith(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

}  // namespace kav
