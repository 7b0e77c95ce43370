// The field encoders against the printf formats the file format is
// defined by ("%lx " and "%lf "), and the 8-byte little-endian forms.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "map_server/vector/tvf_encode.h"

namespace vmp {
namespace {

std::string Printed(const char* format, auto value) {
  char text[512];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

TEST(TvfEncodeTest, AsciiFieldsMatchPrintf) {
  std::vector<double> reals = {0.0, -0.0, 0.5, -1.0000005, 2.5e-7, 1.0 / 3.0, 179.9999995,
                               1e300, -1.7976931348623157e308, 4.9e-324,
                               std::numeric_limits<double>::infinity(),
                               -std::numeric_limits<double>::infinity(), std::nan(""),
                               -std::nan("")};
  std::mt19937_64 random(3);
  std::uniform_real_distribution<double> world(-400, 400);
  for (int k = 0; k < 2000; ++k) reals.push_back(world(random));
  for (double v : reals) {
    std::string encoded;
    AppendTvfReal(encoded, TvfFormat::kAscii, v);
    EXPECT_EQ(encoded, Printed("%lf ", v));
  }
  for (int64_t v : {int64_t{0}, int64_t{7}, int64_t{0x69c}, int64_t{-1},
                    std::numeric_limits<int64_t>::min()}) {
    std::string encoded;
    AppendTvfInteger(encoded, TvfFormat::kAscii, v);
    EXPECT_EQ(encoded, Printed("%lx ", static_cast<unsigned long>(v)));
  }
}

TEST(TvfEncodeTest, StringsAndBinaryFields) {
  std::string encoded;
  AppendTvfString(encoded, TvfFormat::kAscii, std::string_view("a\0b", 3));  // ends at the NUL
  AppendTvfString(encoded, TvfFormat::kAscii, std::nullopt);
  AppendTvfString(encoded, TvfFormat::kBinary, std::optional<std::string>("x"));
  AppendTvfReal(encoded, TvfFormat::kBinary, 1.0);
  EXPECT_EQ(encoded, std::string("1 a\0 -1 \1\0\0\0\0\0\0\0x\0\0\0\0\0\0\0\xf0\x3f", 26));
}

}  // namespace
}  // namespace vmp
