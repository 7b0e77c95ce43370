// Option tables of the command-line modes and the reader that walks them.
//
// Each mode describes its options as a table of name, value name (used in
// "expected follow up variable: %s") and the field the value goes to; the
// reader converts the values and reports command-line faults on standard
// error. Checks between options belong to the modes and run afterwards.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vmp {

// The options of one mode: the arguments after the mode option.
using ArgList = std::span<const std::string>;

// Text values that the map server keeps in fixed buffers: a value fits when
// it is shorter than the buffer (one byte stays for the terminator).
inline constexpr size_t kPathBufferSize = 1024;
inline constexpr size_t kRequestBufferSize = 65536;

struct Option {
  // Where a value goes. Switches: bool* (set to true). Values: text,
  // repeatable text, integer ("%lld") or real ("%lf").
  using Target = std::variant<bool*, std::optional<std::string>*, std::vector<std::string>*,
                              std::optional<int64_t>*, int64_t*, std::optional<double>*>;

  std::string_view name;        // "-dataset"
  std::string_view value_name;  // "dataset"; empty for switches
  Target target;
  size_t buffer_size = 0;  // text only: size of the fixed buffer it must fit; 0 = no limit
  // Replaces "expected follow up variable: <value name>\n" for this option.
  std::string_view missing_message = {};
  // Switches only: a setting the switch also changes (to `setting_value`),
  // for pairs of which the last one given wins ("-a" / "-b").
  bool* setting = nullptr;
  bool setting_value = false;
};

// A switch that sets `flag` and also sets `setting` to `value`.
Option SwitchWithSetting(std::string_view name, bool* flag, bool* setting, bool value);

using OptionTable = std::vector<Option>;

// True for a switch (an option that takes no value).
bool IsSwitch(const Option& option);

// Reads `args` against `table` in order. Arguments that do not start with
// "-" go to `positional` when it is given; otherwise, like any name that is
// not in the table, they are refused. On a fault prints
// "expected follow up variable: %s\n" (or the option's own message) or
// "Unrecognized command line argument: %s\n" on standard error and returns
// false at once.
bool ParseOptions(ArgList args, const OptionTable& table,
                  std::vector<std::string>* positional = nullptr);

// A signed 64-bit integer read the way "%lld" reads it: leading blanks and a
// sign are accepted, reading stops at the first non-digit, at least one digit
// is needed. Values beyond the 64-bit range are refused.
std::optional<int64_t> ReadInteger(const std::string& text);

// A double read the way "%lf" reads it, refusing values that are not finite
// (a NaN or infinity is of no use as any of our settings).
std::optional<double> ReadReal(const std::string& text);

}  // namespace vmp
