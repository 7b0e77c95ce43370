#include "map_server/vector/tvf_encode.h"

#include <charconv>
#include <cstring>

namespace vmp {

namespace {

char* EncodeLittleEndian(char* out, uint64_t bits) {
  for (int i = 0; i < 8; ++i) *out++ = static_cast<char>(bits >> (8 * i));
  return out;
}

}  // namespace

char* EncodeTvfInteger(char* out, TvfFormat format, int64_t value) {
  if (format == TvfFormat::kBinary) return EncodeLittleEndian(out, static_cast<uint64_t>(value));
  // "%lx" of the value's 64-bit pattern: -1 is ffffffffffffffff.
  char* end = std::to_chars(out, out + 16, static_cast<uint64_t>(value), 16).ptr;
  *end++ = ' ';
  return end;
}

char* EncodeTvfReal(char* out, TvfFormat format, double value) {
  if (format == TvfFormat::kBinary) {
    uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return EncodeLittleEndian(out, bits);
  }
  // Fixed notation with six decimals, correctly rounded: the bytes "%lf"
  // gives, "inf", "-inf", "nan" and "-nan" included.
  char* end =
      std::to_chars(out, out + kTvfMaxFieldBytes - 1, value, std::chars_format::fixed, 6).ptr;
  *end++ = ' ';
  return end;
}

void AppendTvfInteger(std::string& buffer, TvfFormat format, int64_t value) {
  char field[kTvfMaxFieldBytes];
  buffer.append(field, EncodeTvfInteger(field, format, value));
}

void AppendTvfReal(std::string& buffer, TvfFormat format, double value) {
  char field[kTvfMaxFieldBytes];
  buffer.append(field, EncodeTvfReal(field, format, value));
}

void AppendTvfString(std::string& buffer, TvfFormat format, std::string_view text) {
  // Strings end at their first NUL, as the reader will see them.
  const size_t nul = text.find('\0');
  if (nul != std::string_view::npos) text = text.substr(0, nul);
  AppendTvfInteger(buffer, format, static_cast<int64_t>(text.size()));
  buffer.append(text);
  buffer.push_back('\0');
  if (format == TvfFormat::kAscii) buffer.push_back(' ');
}

void AppendTvfString(std::string& buffer, TvfFormat format,
                     const std::optional<std::string>& text) {
  if (!text) {
    // Written "-1 " in ASCII (not as the hexadecimal pattern of -1).
    if (format == TvfFormat::kAscii) buffer += "-1 ";
    else AppendTvfInteger(buffer, format, -1);
    return;
  }
  AppendTvfString(buffer, format, std::string_view(*text));
}

}  // namespace vmp
