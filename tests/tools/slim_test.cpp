// Slimming: snapping, merging of consecutive duplicates, dropped polygons
// and the report.
#include <gtest/gtest.h>

#include "map_server/tools/slim.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/tools_test_support.h"

namespace vmp {
namespace {

using test::Geometry;
using test::MakeMarker;
using test::MakePolygon;
using test::Points;

TEST(SlimTest, SnapsHalvesAwayFromZero) {
  struct Case {
    double value, resolution, snapped;
  } cases[] = {{4.9, 10, 0},      {5, 10, 10},     {-5, 10, -10},    {-4.9, 10, -0.0},
               {0, 10, 0},        {14.99, 10, 10}, {0.26, 0.5, 0.5}, {-0.74, 0.5, -0.5},
               {1e300, 1, 1e300}};
  for (const Case& c : cases) {
    EXPECT_EQ(SnapToGrid(c.value, c.resolution), c.snapped) << c.value << " at " << c.resolution;
  }
}

TEST(SlimTest, SlimsPolygonsAndReports) {
  test::TempDir dir;
  const std::string input = test::WriteTvf(
      dir / "in.tvf",
      test::MakeFeatures(
          MakePolygon(1, {{4.9, 0}, {5, 0}, {-5, 0}}, {{2, TypedValue::String("keep")}}),
          MakePolygon(0, {{0, 0}, {1, 1}, {-1, 2}}),          // one node: dropped
          MakePolygon(0, {{0, 0}, {20, 0}, {21, 1}, {0, 1}}),  // A, B, B, A: A B A kept
          MakeMarker(1, 1.25, 4.5, "label", {{0, TypedValue::Double(7)}})));
  test::MemoryStream report;
  test::MessageCapture capture;
  ASSERT_TRUE(SlimTvfFile(input, dir / "out.tvf", 10, report.get()));
  const VectorData out = test::LoadOrFail(dir / "out.tvf");
  EXPECT_EQ(Geometry(out),
            (std::vector<Points>{{{0, 0}, {10, 0}, {-10, 0}}, {{0, 0}, {20, 0}, {0, 0}},
                                 {{1.25, 4.5}}}));
  EXPECT_EQ(out.features[0]->flag, 1);
  EXPECT_EQ(*out.features[0]->FindAttribute(2)->value.text, "keep");
  EXPECT_EQ(out.features[2]->AsMarker()->label, "label");
  // 10 points in; 3 duplicates (2 in the dropped polygon, 1 in the third);
  // 6 written: the ratio is duplicates over written.
  EXPECT_EQ(report.text(),
            "Points: in/out ratio: 0.500000\n"
            "  total: 10, discarded: 4, written out: 6\n"
            "Polygons: in/out ratio: 0.666667\n"
            "  total: 3, discarded small: 1, written out: 2\n");
  EXPECT_TRUE(capture.Texts().empty());
}

}  // namespace
}  // namespace vmp
