// Label formats (LabelFormat, PolyLabelFormat): literal text with references
// to the feature's attributes, compiled once per layer and expanded per
// feature.
//
//   {3}        attribute 3: an S value as it is, a D value as a plain
//              number (up to six decimals, trailing zeros dropped), a G
//              value as its first two numbers separated by a blank
//   {3:.1f}    attribute 3 with a number format: optional flags (-+ 0#),
//              width and .precision (each at most two digits), then one of
//              f, e, g (the C meanings) or d (rounded to a whole number);
//              the format applies to D and G values, S values ignore it
//   {label}    the marker's own label (empty for polygons)
//   {{  }}     a literal brace
//
// A missing attribute expands to nothing. "Pop. {7:,d}" is refused: an
// unknown flag, an unterminated "{", an empty or non-numeric reference is
// reported as "Invalid label format" with the format and the reason.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "map_server/vector/vector_data.h"

namespace vmp {

class LabelFormat {
 public:
  // Compiles `format`; on a syntax error reports "Invalid label format"
  // (detail: the format and the reason) and returns nothing.
  static std::optional<LabelFormat> Compile(std::string_view format);

  // Expands the format for `feature` into `out` (replacing its contents).
  // `marker_label` is the marker's label for {label} (null: none).
  void Expand(const Feature& feature, const std::string* marker_label, std::string& out) const;

 private:
  enum class PartKind { kLiteral, kAttribute, kMarkerLabel };
  struct Part {
    PartKind kind = PartKind::kLiteral;
    std::string text;         // literal text, or the printf format of a number
    int64_t attribute = 0;
    char conversion = 0;      // 0: plain number
  };
  std::vector<Part> parts_;
};

// A D value as the plain number format writes it: up to six decimals,
// trailing zeros and a trailing point dropped ("3.5", "1234567", "-0.25").
void AppendPlainNumber(double value, std::string& out);

}  // namespace vmp
