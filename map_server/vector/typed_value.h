// Typed values shared by TVF attributes, custom layer attributes and
// threshold tables: one type code numbering for all three.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vmp {

// 1 S (string), 2 D (double), 3 G (geo-point, or a colour as three reals).
enum class ValueType : uint32_t { kNone = 0, kString = 1, kDouble = 2, kGeo = 3 };

struct TypedValue {
  ValueType type = ValueType::kNone;
  std::optional<std::string> text;    // kString; nullopt is an absent string
  std::array<double, 3> numbers{};    // kDouble uses [0]; kGeo uses all three

  static TypedValue String(std::optional<std::string> s) {
    TypedValue v;
    v.type = ValueType::kString;
    v.text = std::move(s);
    return v;
  }
  static TypedValue Double(double d) {
    TypedValue v;
    v.type = ValueType::kDouble;
    v.numbers[0] = d;
    return v;
  }
  static TypedValue Geo(double a, double b, double c) {
    TypedValue v;
    v.type = ValueType::kGeo;
    v.numbers = {a, b, c};
    return v;
  }
  bool operator==(const TypedValue&) const = default;
};

// One line of a threshold file: an input value and the output it maps to.
struct Threshold {
  TypedValue input;
  TypedValue output;
  bool operator==(const Threshold&) const = default;
};

// A threshold file's entries, in file order.
using ThresholdTable = std::vector<Threshold>;

}  // namespace vmp
