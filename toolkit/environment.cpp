#include "toolkit/environment.h"

#include <cstdlib>
#include <cstring>

namespace kav {

std::optional<std::string> GetEnv(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || value[0] == '\0') return std::nullopt;
  return std::string(value);
}

std::optional<std::string> GetVersionedEnv(const char* name) {
  std::string versioned = std::string(name) + "_" + kVersionTag;
  if (auto value = GetEnv(versioned.c_str())) return value;
  return GetEnv(name);
}

bool GetEnvSwitch(const char* name, bool default_value) {
  const char* value = std::getenv(name);
  if (value == nullptr) return default_value;
  if (std::strcmp(value, "true") == 0) return true;
  if (std::strcmp(value, "false") == 0) return false;
  return default_value;
}

}  // namespace kav
