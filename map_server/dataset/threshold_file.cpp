#include "map_server/dataset/threshold_file.h"

#include "map_server/dataset/config_reader.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Reads one value of `type` from the front of `cursor`.
bool ReadValue(std::string_view* cursor, ValueType type, TypedValue* value,
               const ConfigContext& context) {
  switch (type) {
    case ValueType::kDouble: {
      double d;
      if (!ReadReal(cursor, &d)) return false;
      *value = TypedValue::Double(d);
      return true;
    }
    case ValueType::kGeo: {
      double c[3];
      if (ReadReals(cursor, c, 3) != 3) return false;
      *value = TypedValue::Geo(c[0], c[1], c[2]);
      return true;
    }
    case ValueType::kString: {
      std::string token;
      if (!ReadToken(cursor, &token, context)) return false;
      *value = TypedValue::String(std::move(token));
      return true;
    }
    default: return false;
  }
}

struct TypeKeyword {
  const char* keyword;
  const char* repeated;  // null: repeats are accepted
  const char* invalid;
};

constexpr TypeKeyword kInputType = {"INPUT DATA TYPE=", "Ignoring repeated INPUT DATA TYPE",
                                    "Invalid INPUT DATA TYPE"};
constexpr TypeKeyword kOutputType = {"OUTPUT DATA TYPE=", "Ignoring repeated OUTPUT DATA TYPE",
                                     "Invalid OUTPUT DATA TYPE"};
constexpr TypeKeyword kDataType = {"DATA TYPE=", nullptr, "Invalid DATA TYPE"};

// Handles a type line; false when the line is not one.
bool ReadTypeLine(std::string_view line, const TypeKeyword& keyword, ValueType* type,
                  const ConfigContext& context) {
  std::string_view rest;
  if (!MatchKeyword(line, keyword.keyword, &rest)) return false;
  std::string word;
  if (!ReadToken(&rest, &word, context)) {
    std::string_view name(keyword.keyword);
    context.CannotRead(name.substr(0, name.size() - 1));
    return true;
  }
  ValueType parsed = ValueTypeOfWord(word);
  if (parsed == ValueType::kNone) {
    context.Report(kError, keyword.invalid, word);
  } else if (type != nullptr) {
    if (*type != ValueType::kNone) context.Report(kWarning, keyword.repeated, word);
    else *type = parsed;
  }
  return true;
}

}  // namespace

ValueType ValueTypeOfWord(std::string_view word) {
  if (word == "VMP_S") return ValueType::kString;
  if (word == "VMP_D") return ValueType::kDouble;
  if (word == "VMP_G") return ValueType::kGeo;
  return ValueType::kNone;
}

bool ReadThresholdText(std::string_view path, std::string_view text, ThresholdTable* table) {
  table->clear();
  ConfigContext context{std::string(path), {}};
  ValueType input_type = ValueType::kNone;
  ValueType output_type = ValueType::kNone;
  LineReader lines(text, context);
  std::string_view line;
  while (lines.Next(&line)) {
    if (ReadTypeLine(line, kInputType, &input_type, context)) continue;
    if (ReadTypeLine(line, kOutputType, &output_type, context)) continue;
    if (ReadTypeLine(line, kDataType, nullptr, context)) continue;
    bool ready = true;
    if (input_type == ValueType::kNone) {
      context.Report(kError, "INPUT DATA TYPE must be defined before thresholds", path);
      ready = false;
    }
    if (output_type == ValueType::kNone) {
      context.Report(kError, "OUTPUT DATA TYPE must be defined before thresholds", path);
      ready = false;
    }
    if (!ready) continue;
    Threshold threshold;
    std::string_view cursor = line;
    bool ok = ReadValue(&cursor, input_type, &threshold.input, context);
    if (ok) {
      cursor = SkipSeparators(cursor);
      ok = ReadValue(&cursor, output_type, &threshold.output, context);
    }
    if (!ok) {
      context.Report(kError, "Error reading threshold file", std::string(path) + ": " + std::string(line));
      continue;
    }
    table->push_back(std::move(threshold));
  }
  return true;
}

bool ReadThresholdFile(const std::string& path, ThresholdTable* table) {
  table->clear();
  ConfigFile file;
  if (!LoadConfigFile(path, &file)) {
    Report(kError, path, "Can't open threshold file");
    return false;
  }
  ReadThresholdText(path, file.text, table);
  if (file.read_error) {
    Report(kError, "Error reading threshold file", path);
    table->clear();
    return false;
  }
  return true;
}

}  // namespace vmp
