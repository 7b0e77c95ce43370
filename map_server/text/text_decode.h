// Label texts as bytes in the dataset's encoding, decoded into code points
// for the fonts.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vmp {

// The dataset's Encoding: 0 Latin-1, 1 UTF-8.
enum class TextEncoding { kLatin1 = 0, kUtf8 = 1 };

// Encoding of a dataset option value: 0 is Latin-1, anything else UTF-8.
inline TextEncoding EncodingOf(int64_t value) {
  return value == 0 ? TextEncoding::kLatin1 : TextEncoding::kUtf8;
}

inline constexpr char32_t kReplacementChar = 0xFFFD;

// Decodes `bytes` into `out` (replacing its contents). Latin-1 maps each
// byte to the code point of the same value. UTF-8 takes well-formed
// sequences only: a stray continuation byte, a truncated or overlong
// sequence, a surrogate or a value above U+10FFFF becomes one U+FFFD per
// offending byte, and decoding goes on with the next byte.
void DecodeText(std::string_view bytes, TextEncoding encoding, std::u32string& out);

}  // namespace vmp
