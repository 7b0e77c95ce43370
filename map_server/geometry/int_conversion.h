// Conversions from double to integer pixel coordinates that stay defined for
// any input (NaN, infinities, values beyond the integer range).
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

namespace vmp {

// Truncates toward zero; NaN gives 0 and out-of-range values saturate.
inline int64_t TruncToInt64(double value) {
  constexpr double kLimit = 9.2233720368547758e18;  // 2^63
  if (!(value == value)) return 0;
  if (value >= kLimit) return std::numeric_limits<int64_t>::max();
  if (value <= -kLimit) return std::numeric_limits<int64_t>::min();
  return static_cast<int64_t>(value);
}

// Rounds half away from zero, then as TruncToInt64.
inline int64_t RoundToInt64(double value) { return TruncToInt64(std::round(value)); }

}  // namespace vmp
