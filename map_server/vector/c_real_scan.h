// Reading reals the way the C library's "%lf" input conversion does, over
// memory instead of a FILE*: the same characters are taken and the same
// value results (the conversion itself is the library's, correctly rounded).
//
// Used for the attribute reals of ASCII TVF files and for the D values of
// attribute conditions.
#pragma once

#include <cstddef>
#include <string_view>

namespace vmp {

// Decides character by character how far "%lf" reads: an optional sign, then
// decimal digits with an optional point and exponent, a hexadecimal number
// ("0x" digits, point, "p" exponent), "inf", "infinity" or "nan" (any case).
class RealTokenScanner {
 public:
  // True when `c` continues the number (the caller then takes it); false
  // when the number ends before `c`.
  bool Accept(int c);
  // True when the characters taken so far form a number.
  bool Complete() const;
  bool IsHex() const { return hex_; }

 private:
  enum class State {
    kStart, kSign, kInt, kZero, kHexStart, kPoint, kFrac, kExp, kExpSign, kExpDigits, kWord, kDone
  };
  State state_ = State::kStart;
  bool digits_ = false;   // mantissa digits seen
  bool hex_ = false;
  const char* word_ = nullptr;  // "infinity" or "nan" while matching a word
  int word_pos_ = 0;
};

// Converts a complete token (as collected with RealTokenScanner) to a double.
bool ConvertRealToken(std::string_view token, bool hex, double* out);

// Skips white space, then reads one real from the start of `text` as "%lf"
// would. On success stores the value and, when `consumed` is given, the
// number of characters taken (white space included).
bool ScanLfReal(std::string_view text, double* out, size_t* consumed = nullptr);

}  // namespace vmp
