#include "map_server/driver/option_parser.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace vmp {

namespace {

void PrintMissingValue(const Option& option) {
  if (!option.missing_message.empty()) {
    std::fwrite(option.missing_message.data(), 1, option.missing_message.size(), stderr);
  } else {
    std::fprintf(stderr, "expected follow up variable: %.*s\n",
                 static_cast<int>(option.value_name.size()), option.value_name.data());
  }
}

const Option* FindOption(const OptionTable& table, const std::string& name) {
  for (const Option& option : table) {
    if (option.name == name) return &option;
  }
  return nullptr;
}

// Stores `value` into the option's target; false when it cannot be read.
bool StoreValue(const Option& option, const std::string& value) {
  struct Visitor {
    const Option& option;
    const std::string& value;
    bool operator()(bool*) const { return false; }
    bool operator()(std::optional<std::string>* text) const {
      if (option.buffer_size != 0 && value.size() >= option.buffer_size) return false;
      *text = value;
      return true;
    }
    bool operator()(std::vector<std::string>* texts) const {
      if (option.buffer_size != 0 && value.size() >= option.buffer_size) return false;
      texts->push_back(value);
      return true;
    }
    bool operator()(std::optional<int64_t>* number) const {
      std::optional<int64_t> read = ReadInteger(value);
      if (read) *number = read;
      return read.has_value();
    }
    bool operator()(int64_t* number) const {
      std::optional<int64_t> read = ReadInteger(value);
      if (read) *number = *read;
      return read.has_value();
    }
    bool operator()(std::optional<double>* number) const {
      std::optional<double> read = ReadReal(value);
      if (read) *number = read;
      return read.has_value();
    }
  };
  return std::visit(Visitor{option, value}, option.target);
}

}  // namespace

bool IsSwitch(const Option& option) { return std::holds_alternative<bool*>(option.target); }

Option SwitchWithSetting(std::string_view name, bool* flag, bool* setting, bool value) {
  Option option{name, "", flag};
  option.setting = setting;
  option.setting_value = value;
  return option;
}

bool ParseOptions(ArgList args, const OptionTable& table, std::vector<std::string>* positional) {
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const Option* option = FindOption(table, arg);
    if (option == nullptr) {
      if (positional != nullptr && (arg.empty() || arg[0] != '-' || arg == "-")) {
        positional->push_back(arg);
        continue;
      }
      std::fprintf(stderr, "Unrecognized command line argument: %s\n", arg.c_str());
      return false;
    }
    if (bool* const* flag = std::get_if<bool*>(&option->target)) {
      **flag = true;
      if (option->setting != nullptr) *option->setting = option->setting_value;
      continue;
    }
    if (i + 1 >= args.size() || !StoreValue(*option, args[i + 1])) {
      PrintMissingValue(*option);
      return false;
    }
    ++i;
  }
  return true;
}

std::optional<int64_t> ReadInteger(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  errno = 0;
  long long value = std::strtoll(begin, &end, 10);
  if (end == begin || errno == ERANGE) return std::nullopt;
  return static_cast<int64_t>(value);
}

std::optional<double> ReadReal(const std::string& text) {
  const char* begin = text.c_str();
  char* end = nullptr;
  double value = std::strtod(begin, &end);
  if (end == begin || !std::isfinite(value)) return std::nullopt;
  return value;
}

}  // namespace vmp
