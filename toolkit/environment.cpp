#include "toolkit/environment.h"

#include <strings.h>

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

std::optional<std::string> CgiScriptAddress() {
  const auto host = GetEnv("SERVER_NAME");
  if (!host) return std::nullopt;
  const std::string flag = GetEnv("HTTPS").value_or("off");
  const bool https = strcasecmp(flag.c_str(), "on") == 0 || flag == "1";
  const std::string port = GetEnv("SERVER_PORT").value_or("");
  const bool default_port = port.empty() || port == (https ? "443" : "80");
  return (https ? "https://" : "http://") + *host + (default_port ? "" : ":" + port) +
         GetEnv("SCRIPT_NAME").value_or("/");
}

}  // namespace kav
