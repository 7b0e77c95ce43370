// Splitting by attributes and by number of points, with the longitude wrap
// of pieces.
#include <gtest/gtest.h>

#include "map_server/tools/vector_split.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/tools_test_support.h"

namespace vmp {
namespace {

using test::Geometry;
using test::MakeMarker;
using test::MakePolygon;
using test::Points;

Attribute D(int64_t index, double value) { return {index, TypedValue::Double(value)}; }

TEST(VectorSplitTest, ByAttributes) {
  test::TempDir dir;
  const std::string input = test::WriteTvf(
      dir / "in.tvf",
      test::MakeFeatures(MakePolygon(0, {{0, 0}, {1, 1}}, {D(1, 5)}),
                         MakeMarker(0, 2, 2, std::nullopt, {D(1, 50)}),
                         MakePolygon(1, {{3, 3}, {4, 4}}, {D(2, 7)})));
  struct Case {
    const char* name;
    const char* condition;
    bool invert;
    std::vector<Points> kept;  // empty: no output file
    std::vector<std::string> warnings;
  } cases[] = {
      {"match", "@1>=10", false, {{{2, 2}}}, {}},
      {"inverted", "@1>=10", true, {{{0, 0}, {1, 1}}, {{3, 3}, {4, 4}}}, {}},
      {"missing attribute", "@1!=5", false, {{{2, 2}}, {{3, 3}, {4, 4}}}, {}},
      {"nothing", "@1>100", false, {}, {"Warning: No objects fit conditions: " + input}},
      {"bad number", "@1>=abc", true, {{{0, 0}, {1, 1}}, {{2, 2}}, {{3, 3}, {4, 4}}},
       {"Warning: Skipped objects with attribute errors!",
        "Warning:   Number of skipped features with attr. errors: 1"}},
  };
  for (const Case& c : cases) {
    test::MessageCapture capture;
    AttrConditionList conditions;
    ASSERT_TRUE(ParseAttrCondition(c.condition, conditions));
    SplitSettings s;
    s.kind = SplitKind::kAttribute;
    s.output = dir / (std::string(c.name) + ".tvf");
    s.conditions = &conditions;
    s.invert = c.invert;
    EXPECT_TRUE(SplitTvfFile(input, s)) << c.name;
    EXPECT_EQ(test::FileExists(s.output), !c.kept.empty()) << c.name;
    if (!c.kept.empty()) {
      EXPECT_EQ(Geometry(test::LoadOrFail(s.output)), c.kept) << c.name;
    }
    for (const std::string& w : c.warnings) EXPECT_TRUE(capture.Contains(w)) << c.name << ": " << w;
  }
}

TEST(VectorSplitTest, ByNumberOfPoints) {
  test::TempDir dir;
  const std::string input = test::WriteTvf(
      dir / "in.tvf",
      test::MakeFeatures(
          MakePolygon(1, {{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 0}}, {D(3, 9)}),
          MakeMarker(0, 7, 7), MakePolygon(0, {{0, 1}, {1, 1}})));
  SplitSettings s;
  s.kind = SplitKind::kPoints;
  s.points_per_piece = 3;
  s.output = dir / "out.tvf";
  ASSERT_TRUE(SplitTvfFile(input, s));
  const VectorData out = test::LoadOrFail(s.output);
  const std::vector<Points> expected = {{{0, 0}, {1, 0}, {2, 0}},
                                        {{2, 0}, {3, 0}, {4, 0}, {5, 0}},
                                        {{5, 0}, {6, 0}},
                                        {{7, 7}},
                                        {{0, 1}, {1, 1}}};
  EXPECT_EQ(Geometry(out), expected);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(out.features[k]->flag, 1);
    EXPECT_EQ(out.features[k]->FindAttribute(3)->value, TypedValue::Double(9));
  }
}

// Each piece is shifted by the range's width when it lies beyond an edge:
// east when its running maximum is west of the range, west when the last x
// seen below that maximum is east of it. The polygon's last point is never
// looked at.
TEST(VectorSplitTest, PiecesWrapAroundTheWorld) {
  test::TempDir dir;
  const std::string input = test::WriteTvf(
      dir / "in.tvf",
      test::MakeFeatures(
          MakePolygon(0, {{200, 0}, {250, 1}, {170, 2}, {230, 3}, {10, 4}, {20, 5}, {400, 6}}),
          MakePolygon(0, {{-200, 0}, {-250, 1}, {-190, 2}, {-170, 3}})));
  SplitSettings s;
  s.kind = SplitKind::kPoints;
  s.points_per_piece = 4;
  s.wrap = {true, -180, 180};
  s.output = dir / "out.tvf";
  ASSERT_TRUE(SplitTvfFile(input, s));
  const std::vector<Points> expected = {
      // m = 230 (not the smallest x, 170): shifted west
      {{-160, 0}, {-110, 1}, {-190, 2}, {-130, 3}},
      {{230, 3}, {10, 4}, {20, 5}, {400, 6}},
      // maximum -190 without the last point: shifted east
      {{160, 0}, {110, 1}, {170, 2}, {190, 3}}};
  EXPECT_EQ(Geometry(test::LoadOrFail(s.output)), expected);
}

}  // namespace
}  // namespace vmp
