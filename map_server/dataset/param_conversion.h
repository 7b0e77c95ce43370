// The table-driven step that copies an object's resources into its typed
// record: for every table entry in order, the resource's current value is
// stored into the record field bound to the entry.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <variant>

#include "map_server/dataset/param_tables.h"
#include "map_server/dataset/resource_group.h"

namespace vmp {

// The record field of one table entry; monostate means the entry is not
// copied by the conversion.
using FieldRef = std::variant<std::monostate, std::optional<std::string>*, double*, Rgb*,
                              int32_t*, int64_t*>;
using FieldBinder = std::function<FieldRef(int index)>;

// Type rules: 1 string, 2 double, 3 colour (each component x 255, clamped to
// 0..255), 4 truncated to a 32-bit integer, 5 truncated to a 64-bit integer.
// A type code outside 1..5 is reported as "Invalid data type" with the
// parameter name and skipped; so is a field bound with the wrong C++ type.
// Missing resources leave their fields unchanged.
void ConvertResources(const ResourceGroup& group, std::span<const ParamEntry> table,
                      const FieldBinder& field);

// Truncation toward zero; values beyond the type's range clamp to it and
// NaN becomes 0 (a C cast would be undefined there).
int32_t TruncateToInt32(double value);
int64_t TruncateToInt64(double value);
// A 0..1 colour as 0..255 components (kept as doubles), clamped.
Rgb ScaleColor(Rgb color);

}  // namespace vmp
