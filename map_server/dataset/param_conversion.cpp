#include "map_server/dataset/param_conversion.h"

#include <cmath>
#include <limits>

#include "toolkit/message_log.h"

namespace vmp {

namespace {

double Clamp255(double component) {
  double v = component * 255.0;
  if (std::isnan(v) || v < 0.0) return 0.0;
  return v > 255.0 ? 255.0 : v;
}

template <typename T>
T* FieldAs(const FieldRef& ref) {
  T* const* p = std::get_if<T*>(&ref);
  return p ? *p : nullptr;
}

}  // namespace

int32_t TruncateToInt32(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 2147483647.0) return std::numeric_limits<int32_t>::max();
  if (value <= -2147483648.0) return std::numeric_limits<int32_t>::min();
  return static_cast<int32_t>(value);
}

int64_t TruncateToInt64(double value) {
  if (std::isnan(value)) return 0;
  if (value >= 9.2233720368547758e18) return std::numeric_limits<int64_t>::max();
  if (value <= -9.2233720368547758e18) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(value);
}

Rgb ScaleColor(Rgb color) {
  return {Clamp255(color.red), Clamp255(color.green), Clamp255(color.blue)};
}

void ConvertResources(const ResourceGroup& group, std::span<const ParamEntry> table,
                      const FieldBinder& field) {
  for (size_t i = 0; i < table.size(); ++i) {
    const ParamEntry& entry = table[i];
    FieldRef ref = field(static_cast<int>(i));
    if (std::holds_alternative<std::monostate>(ref)) continue;
    bool stored = false;
    switch (entry.type) {
      case kParamString:
        if (auto* target = FieldAs<std::optional<std::string>>(ref)) {
          if (auto value = group.GetString(entry.name)) *target = *value;
          stored = true;
        }
        break;
      case kParamReal:
        if (auto* target = FieldAs<double>(ref)) {
          if (auto value = group.GetNumber(entry.name)) *target = *value;
          stored = true;
        }
        break;
      case kParamColor:
        if (auto* target = FieldAs<Rgb>(ref)) {
          if (auto value = group.GetColor(entry.name)) *target = ScaleColor(*value);
          stored = true;
        }
        break;
      case kParamInteger:
        if (auto* target = FieldAs<int32_t>(ref)) {
          if (auto value = group.GetNumber(entry.name)) *target = TruncateToInt32(*value);
          stored = true;
        }
        break;
      case kParamEnum:
        if (auto* target = FieldAs<int64_t>(ref)) {
          if (auto value = group.GetNumber(entry.name)) *target = TruncateToInt64(*value);
          stored = true;
        }
        break;
      default: break;
    }
    if (!stored) Report(kError, "Invalid data type", entry.name);
  }
}

}  // namespace vmp
