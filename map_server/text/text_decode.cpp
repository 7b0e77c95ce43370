#include "map_server/text/text_decode.h"

#include <cstdint>

namespace vmp {

namespace {

// Length of the sequence a UTF-8 lead byte starts, or 0 for a byte that
// cannot start one.
int SequenceLength(uint8_t lead) {
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF4) return 4;
  return 0;
}

bool IsContinuation(uint8_t b) { return (b & 0xC0) == 0x80; }

}  // namespace

void DecodeText(std::string_view bytes, TextEncoding encoding, std::u32string& out) {
  out.clear();
  if (encoding == TextEncoding::kLatin1) {
    for (const char ch : bytes) out.push_back(static_cast<uint8_t>(ch));
    return;
  }
  const size_t n = bytes.size();
  size_t i = 0;
  while (i < n) {
    const uint8_t lead = static_cast<uint8_t>(bytes[i]);
    const int length = SequenceLength(lead);
    if (length == 1) {
      out.push_back(lead);
      ++i;
      continue;
    }
    bool ok = length != 0 && i + static_cast<size_t>(length) <= n;
    char32_t c = 0;
    if (ok) {
      c = lead & (0x7F >> length);
      for (int k = 1; k < length && ok; ++k) {
        const uint8_t b = static_cast<uint8_t>(bytes[i + static_cast<size_t>(k)]);
        ok = IsContinuation(b);
        c = (c << 6) | (b & 0x3F);
      }
    }
    // Overlong forms, surrogates and values past the last code point.
    if (ok && length == 3 && (c < 0x800 || (c >= 0xD800 && c <= 0xDFFF))) ok = false;
    if (ok && length == 4 && (c < 0x10000 || c > 0x10FFFF)) ok = false;
    if (!ok) {
      out.push_back(kReplacementChar);
      ++i;
      continue;
    }
    out.push_back(c);
    i += static_cast<size_t>(length);
  }
}

}  // namespace vmp
