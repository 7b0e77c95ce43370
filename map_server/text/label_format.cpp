#include "map_server/text/label_format.h"

#include <cmath>
#include <cstdio>

#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Parses a number spec ("-08.2f") into a printf format; false when invalid.
bool CompileSpec(std::string_view spec, std::string* printf_format, char* conversion) {
  size_t i = 0;
  std::string flags;
  while (i < spec.size() && std::string_view("-+ 0#").find(spec[i]) != std::string_view::npos) {
    flags.push_back(spec[i++]);
  }
  size_t digits = 0;
  std::string width;
  while (i < spec.size() && IsDigit(spec[i]) && digits < 3) width.push_back(spec[i++]), ++digits;
  if (digits > 2) return false;
  std::string precision;
  if (i < spec.size() && spec[i] == '.') {
    ++i;
    digits = 0;
    while (i < spec.size() && IsDigit(spec[i]) && digits < 3) precision.push_back(spec[i++]), ++digits;
    if (digits == 0 || digits > 2) return false;
  }
  if (i + 1 != spec.size()) return false;
  const char conv = spec[i];
  if (conv != 'f' && conv != 'e' && conv != 'g' && conv != 'd') return false;
  *conversion = conv;
  if (conv == 'd') {
    *printf_format = "%" + flags + width + "lld";
  } else {
    *printf_format = "%" + flags + width + (precision.empty() ? "" : "." + precision) + conv;
  }
  return true;
}

}  // namespace

void AppendPlainNumber(double value, std::string& out) {
  if (!std::isfinite(value)) {
    out += std::isnan(value) ? "nan" : (value > 0 ? "inf" : "-inf");
    return;
  }
  std::string text = kav::StrPrintf("%.6f", value);
  const size_t point = text.find('.');
  if (point != std::string::npos) {
    size_t end = text.size();
    while (end > point + 1 && text[end - 1] == '0') --end;
    if (end == point + 1) --end;
    text.resize(end);
  }
  if (text == "-0") text = "0";
  out += text;
}

std::optional<LabelFormat> LabelFormat::Compile(std::string_view format) {
  LabelFormat compiled;
  auto fail = [&](const char* reason) -> std::optional<LabelFormat> {
    Report(kError, "Invalid label format", std::string(format) + ": " + reason);
    return std::nullopt;
  };
  std::string literal;
  auto flush = [&] {
    if (!literal.empty()) compiled.parts_.push_back({PartKind::kLiteral, std::move(literal), 0, 0});
    literal.clear();
  };
  size_t i = 0;
  while (i < format.size()) {
    const char c = format[i];
    if (c == '}') {
      literal.push_back('}');
      i += (i + 1 < format.size() && format[i + 1] == '}') ? 2 : 1;
      continue;
    }
    if (c != '{') {
      literal.push_back(c);
      ++i;
      continue;
    }
    if (i + 1 < format.size() && format[i + 1] == '{') {
      literal.push_back('{');
      i += 2;
      continue;
    }
    const size_t close = format.find('}', i + 1);
    if (close == std::string_view::npos) return fail("unterminated {");
    const std::string_view field = format.substr(i + 1, close - i - 1);
    i = close + 1;
    flush();
    if (field == "label") {
      compiled.parts_.push_back({PartKind::kMarkerLabel, {}, 0, 0});
      continue;
    }
    const size_t colon = field.find(':');
    const std::string_view number = field.substr(0, colon);
    if (number.empty()) return fail("empty attribute reference");
    if (number.size() > 5) return fail("attribute number too large");
    int64_t index = 0;
    for (const char d : number) {
      if (!IsDigit(d)) return fail("attribute reference is not a number or {label}");
      index = index * 10 + (d - '0');
    }
    if (index > kTvfMaxAttributeIndex) return fail("attribute number too large");
    Part part{PartKind::kAttribute, {}, index, 0};
    if (colon != std::string_view::npos && !CompileSpec(field.substr(colon + 1), &part.text, &part.conversion)) {
      return fail("invalid number format");
    }
    compiled.parts_.push_back(std::move(part));
  }
  flush();
  return compiled;
}

void LabelFormat::Expand(const Feature& feature, const std::string* marker_label, std::string& out) const {
  out.clear();
  auto number = [&](const Part& part, double value) {
    if (part.conversion == 0) return AppendPlainNumber(value, out);
    if (part.conversion == 'd') {
      const long long whole = std::isfinite(value) && std::fabs(value) < 9e18 ? std::llround(value) : 0;
      out += kav::StrPrintf(part.text.c_str(), whole);
    } else {
      out += kav::StrPrintf(part.text.c_str(), value);
    }
  };
  for (const Part& part : parts_) {
    switch (part.kind) {
      case PartKind::kLiteral: out += part.text; break;
      case PartKind::kMarkerLabel:
        if (marker_label != nullptr) out += *marker_label;
        break;
      case PartKind::kAttribute: {
        const Attribute* a = feature.FindAttribute(part.attribute);
        if (a == nullptr) break;
        const TypedValue& v = a->value;
        if (v.type == ValueType::kString) {
          if (v.text) out += *v.text;
        } else if (v.type == ValueType::kDouble) {
          number(part, v.numbers[0]);
        } else if (v.type == ValueType::kGeo) {
          number(part, v.numbers[0]);
          out.push_back(' ');
          number(part, v.numbers[1]);
        }
        break;
      }
    }
  }
}

}  // namespace vmp
