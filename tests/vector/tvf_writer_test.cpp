#include "map_server/vector/tvf_writer.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/vector/tvf_test_support.h"
#include "toolkit/global_config.h"

namespace vmp {
namespace {

using test::Le;
using test::LeReal;
using test::MakeMarker;
using test::MakePolygon;

using namespace std::string_literals;

// The small file both encodings are checked on: a polygon with one
// attribute of each type, a labelled placed marker, a plain marker.
VectorData SampleFile() {
  VectorData data;
  data.AddFeature(MakePolygon(-1, {{10, 20}, {-30.5, 40.25}},
                              {{0, TypedValue::String("ab")},
                               {2, TypedValue::Double(1.5)},
                               {3, TypedValue::Geo(1, 2, 3)}}));
  auto placed = MakeMarker(2, 1, 2, "hello", {{0, TypedValue::Double(7)}});
  placed->placement1 = 0.5;
  placed->placement2 = -0.25;
  placed->flag = 3;
  data.AddFeature(std::move(placed));
  data.AddFeature(MakeMarker(0, 5, 6, std::nullopt, {{1, TypedValue::String(std::nullopt)}}));
  return data;
}

const std::string kAsciiSample =
    "69c 2 0 "
    "\r\n7 0 ffffffffffffffff 2 3 "
    "0 1 2 ab\0 "s
    "2 2 1.500000 "
    "3 3 1.000000 2.000000 3.000000 "
    "10.000000 20.000000 -30.500000 40.250000 "
    "\r\n7 1 2 0.500000 -0.250000 3 5 hello\0 "s
    "1 0 2 7.000000 1.000000 2.000000 "
    "\r\n7 1 0 1 1 1 -1 5.000000 6.000000 ";

const std::string kBinarySample =
    "69c 2 1 " +
    // polygon: marker, type, flag, N, A
    Le(7) + Le(0) + Le(-1) + Le(2) + Le(3) +
    Le(0) + Le(1) + Le(2) + "ab\0"s +
    Le(2) + Le(2) + LeReal(1.5) +
    Le(3) + Le(3) + LeReal(1) + LeReal(2) + LeReal(3) +
    LeReal(10) + LeReal(20) + LeReal(-30.5) + LeReal(40.25) +
    // placed marker: type, placements, flag, label, A, attribute, position
    Le(7) + Le(1) + Le(2) + LeReal(0.5) + LeReal(-0.25) + Le(3) + Le(5) + "hello\0"s +
    Le(1) + Le(0) + Le(2) + LeReal(7) + LeReal(1) + LeReal(2) +
    // plain marker with an absent S value
    Le(7) + Le(1) + Le(0) + Le(1) + Le(1) + Le(1) + Le(-1) + LeReal(5) + LeReal(6);

std::string WriteSample(TvfFormat format, const test::TempDir& dir) {
  std::string path = dir / "out.tvf";
  kav::Config().binary_save = format == TvfFormat::kBinary;
  TvfOutput out = OpenTvfOutput(path);
  kav::Config().binary_save = false;
  EXPECT_TRUE(out);
  VectorData data = SampleFile();
  for (const auto& f : data.features) EXPECT_TRUE(WriteTvfFeature(out.get(), format, *f));
  EXPECT_TRUE(CloseTvfOutput(std::move(out)));
  return test::ReadFile(path);
}

TEST(TvfWriterTest, WritesBothEncodingsByteForByte) {
  test::TempDir dir;
  EXPECT_EQ(WriteSample(TvfFormat::kAscii, dir), kAsciiSample);
  EXPECT_EQ(WriteSample(TvfFormat::kBinary, dir), kBinarySample);
}

TEST(TvfWriterTest, UnsupportedTypesGoToStandardErrorAndKeepTheFileReadable) {
  test::TempDir dir;
  std::string path = dir / "bad.tvf";
  FILE* out = std::fopen(path.c_str(), "wb");
  ASSERT_NE(out, nullptr);
  WriteTvfHeader(out, TvfFormat::kAscii);
  auto polygon = MakePolygon(0, {{1, 1}}, {{0, TypedValue::Double(4)}});
  polygon->attributes.push_back(Attribute{1, TypedValue{}});  // no type
  testing::internal::CaptureStderr();
  WriteTvfFeature(out, TvfFormat::kAscii, *polygon);
  std::string polygon_err = testing::internal::GetCapturedStderr();
  std::fclose(out);
  EXPECT_EQ(polygon_err, "Unsupported data type\n");
  // The entry is left out of the count as well, so the file still reads.
  VectorData data;
  ASSERT_TRUE(test::LoadBytes(test::ReadFile(path), data));
  EXPECT_EQ(data.features[0]->AttributeCount(), 1);

  std::string marker_bytes;
  {
    FILE* m = std::fopen(path.c_str(), "wb");
    testing::internal::CaptureStderr();
    WriteTvfFeature(m, TvfFormat::kAscii, *MakeMarker(9, 1, 2, "x"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unsupported marker type\n");
    std::fclose(m);
    marker_bytes = test::ReadFile(path);
  }
  EXPECT_EQ(marker_bytes, "\r\n7 1 9 0 1.000000 2.000000 ");
}

TEST(TvfWriterTest, OpenFailureIsReported) {
  test::MessageCapture capture;
  EXPECT_FALSE(OpenTvfOutput("/nonexistent-dir/x.tvf"));
  EXPECT_EQ(capture.Texts(),
            std::vector<std::string>{"Error: Could not open output file: /nonexistent-dir/x.tvf"});
}

TEST(TvfWriterTest, StringsEndAtTheirFirstNul) {
  test::TempDir dir;
  std::string path = dir / "s.bin";
  FILE* out = std::fopen(path.c_str(), "wb");
  WriteTvfString(out, TvfFormat::kAscii, "a\0b"s);
  WriteTvfString(out, TvfFormat::kAscii, ""s);
  std::fclose(out);
  EXPECT_EQ(test::ReadFile(path), "1 a\0 0 \0 "s);
}

}  // namespace
}  // namespace vmp
