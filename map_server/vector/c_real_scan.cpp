#include "map_server/vector/c_real_scan.h"

#include <cctype>
#include <charconv>
#include <cstdlib>
#include <string>

namespace vmp {

namespace {

bool IsDigit(int c) { return c >= '0' && c <= '9'; }
bool IsHexDigit(int c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
int Lower(int c) { return (c >= 'A' && c <= 'Z') ? c - 'A' + 'a' : c; }

}  // namespace

bool RealTokenScanner::Accept(int c) {
  auto is_digit = [this](int ch) { return hex_ ? IsHexDigit(ch) : IsDigit(ch); };
  auto is_exp = [this](int ch) { return hex_ ? Lower(ch) == 'p' : Lower(ch) == 'e'; };
  switch (state_) {
    case State::kStart:
      if (c == '+' || c == '-') {
        state_ = State::kSign;
        return true;
      }
      [[fallthrough]];
    case State::kSign:
      if (c == '0') {
        digits_ = true;
        state_ = State::kZero;
        return true;
      }
      if (IsDigit(c)) {
        digits_ = true;
        state_ = State::kInt;
        return true;
      }
      if (c == '.') {
        state_ = State::kPoint;
        return true;
      }
      if (Lower(c) == 'i' || Lower(c) == 'n') {
        word_ = Lower(c) == 'i' ? "infinity" : "nan";
        word_pos_ = 1;
        state_ = State::kWord;
        return true;
      }
      state_ = State::kDone;
      return false;
    case State::kZero:
      if (Lower(c) == 'x') {
        hex_ = true;
        digits_ = false;  // "0x" needs digits of its own
        state_ = State::kHexStart;
        return true;
      }
      state_ = State::kInt;
      return Accept(c);
    case State::kHexStart:
    case State::kInt:
      if (is_digit(c)) {
        digits_ = true;
        state_ = State::kInt;
        return true;
      }
      if (c == '.') {
        state_ = State::kFrac;
        return true;
      }
      if (digits_ && is_exp(c)) {
        state_ = State::kExp;
        return true;
      }
      state_ = State::kDone;
      return false;
    case State::kPoint:
    case State::kFrac:
      if (is_digit(c)) {
        digits_ = true;
        state_ = State::kFrac;
        return true;
      }
      if (digits_ && is_exp(c)) {
        state_ = State::kExp;
        return true;
      }
      state_ = State::kDone;
      return false;
    case State::kExp:
      if (c == '+' || c == '-') {
        state_ = State::kExpSign;
        return true;
      }
      [[fallthrough]];
    case State::kExpSign:
    case State::kExpDigits:
      if (IsDigit(c)) {
        state_ = State::kExpDigits;
        return true;
      }
      state_ = State::kDone;
      return false;
    case State::kWord: {
      // "inf" may go on to "infinity"; "nan" ends after three letters.
      bool more = word_[word_pos_] != '\0' && !(word_[0] == 'n' && word_pos_ >= 3);
      if (more && Lower(c) == word_[word_pos_]) {
        ++word_pos_;
        return true;
      }
      state_ = State::kDone;
      return false;
    }
    case State::kDone:
      return false;
  }
  return false;
}

bool RealTokenScanner::Complete() const {
  if (word_ != nullptr) return word_pos_ == 3 || (word_[0] == 'i' && word_pos_ == 8);
  return digits_;
}

bool ConvertRealToken(std::string_view token, bool hex, double* out) {
  if (token.empty()) return false;
  if (!hex) {
    std::string_view t = token;
    if (t.front() == '+') t.remove_prefix(1);
    double value = 0.0;
    auto [end, ec] = std::from_chars(t.data(), t.data() + t.size(), value);
    if (end != t.data()) {
      // from_chars reports range errors without a value; the C library
      // gives infinity or zero (with the sign) there.
      if (ec == std::errc::result_out_of_range) {
        std::string copy(token);
        value = std::strtod(copy.c_str(), nullptr);
      }
      *out = value;
      return true;
    }
  }
  std::string copy(token);
  char* end = nullptr;
  double value = std::strtod(copy.c_str(), &end);
  if (end == copy.c_str()) return false;
  *out = value;
  return true;
}

bool ScanLfReal(std::string_view text, double* out, size_t* consumed) {
  size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  size_t start = i;
  RealTokenScanner scanner;
  while (i < text.size() && scanner.Accept(static_cast<unsigned char>(text[i]))) ++i;
  if (!scanner.Complete()) return false;
  if (!ConvertRealToken(text.substr(start, i - start), scanner.IsHex(), out)) return false;
  if (consumed != nullptr) *consumed = i;
  return true;
}

}  // namespace vmp
