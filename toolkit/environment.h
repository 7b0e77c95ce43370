// Process environment lookups with the toolkit's conventions.
#pragma once

#include <optional>
#include <string>

namespace kav {

// The toolkit's version tag, appended as "_3_5" to configuration variables.
inline constexpr const char* kVersionTag = "3_5";

// Value of an environment variable; an empty value counts as unset.
std::optional<std::string> GetEnv(const char* name);

// Looks `name` up first as "<name>_3_5", then as `name` itself.
std::optional<std::string> GetVersionedEnv(const char* name);

// A boolean switch: "true" is on, "false" is off, anything else (or no
// variable) leaves `default_value`.
bool GetEnvSwitch(const char* name, bool default_value);

// The address of the running CGI program from the variables the web server
// sets (SERVER_NAME, SERVER_PORT, SCRIPT_NAME; HTTPS "on" or "1" in any
// case), with the port left out when it is the scheme's default. None
// without SERVER_NAME.
std::optional<std::string> CgiScriptAddress();

}  // namespace kav
