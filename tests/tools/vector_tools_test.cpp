// The vector tools on TVF files: splitting by attributes and by number of
// points (with the longitude wrap of pieces), tiling (the cell test, its
// index, the files written) and the snapping of slimming; the slimming
// itself runs in tools_cli_test.cpp.
#include <gtest/gtest.h>

#include <random>
#include <tuple>

#include "map_server/tools/slim.h"
#include "map_server/tools/vector_split.h"
#include "map_server/tools/vector_tile.h"
#include "map_server/util/tile_naming.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/tools_test_support.h"

namespace vmp {
namespace {

using test::Geometry;
using test::MakeMarker;
using test::MakePolygon;
using test::Points;
using Texts = std::vector<std::string>;

Attribute D(int64_t index, double value) { return {index, TypedValue::Double(value)}; }

TEST(VectorSplitTest, ByAttributes) {
  test::TempDir dir;
  const std::string input = test::WriteTvf(
      dir / "in.tvf", test::MakeFeatures(MakePolygon(0, {{0, 0}, {1, 1}}, {D(1, 5)}),
                                         MakeMarker(0, 2, 2, std::nullopt, {D(1, 50)}),
                                         MakePolygon(1, {{3, 3}, {4, 4}}, {D(2, 7)})));
  const Points first = {{0, 0}, {1, 1}}, second = {{2, 2}}, third = {{3, 3}, {4, 4}};
  const struct {
    const char* condition;
    bool invert;
    std::vector<Points> kept;
    Texts messages;
  } cases[] = {
      {"@1>=10", false, {second}, {}},
      {"@1>=10", true, {first, third}, {}},
      {"@1>=abc", true, {first, second, third},
       {"Error: Invalid D-value in attribute condition.: abc", "Warning: Skipped objects with attribute errors!",
        "Warning:   Number of skipped features with attr. errors: 1"}},
  };
  for (const auto& c : cases) {
    test::MessageCapture capture;
    AttrConditionList conditions;
    ASSERT_TRUE(ParseAttrCondition(c.condition, conditions));
    SplitSettings s;
    s.kind = SplitKind::kAttribute;
    s.output = dir / "out.tvf";
    s.conditions = &conditions;
    s.invert = c.invert;
    EXPECT_TRUE(SplitTvfFile(input, s));
    EXPECT_EQ(Geometry(test::LoadOrFail(s.output)), c.kept) << c.condition << c.invert;
    EXPECT_EQ(capture.Texts(), c.messages);
  }
}

// Piece k starts at point k*N, after the previous piece's last point, and
// keeps the feature's head and attributes. With wrapping a piece is shifted
// by the range's width when it lies beyond an edge: east when its running
// maximum is west of the range, west when the last x seen below that maximum
// is east of it. The polygon's last point is never looked at.
TEST(VectorSplitTest, ByNumberOfPointsWithWrapping) {
  test::TempDir dir;
  SplitSettings s;
  s.kind = SplitKind::kPoints;
  s.points_per_piece = 4;
  s.wrap = {true, -180, 180};
  s.output = dir / "out.tvf";
  const std::string input = test::WriteTvf(
      dir / "in.tvf",
      test::MakeFeatures(
          MakePolygon(1, {{200, 0}, {250, 1}, {170, 2}, {230, 3}, {10, 4}, {20, 5}, {400, 6}}, {D(3, 9)}),
          MakeMarker(0, 7, 7), MakePolygon(0, {{-200, 0}, {-250, 1}, {-190, 2}, {-170, 3}})));
  ASSERT_TRUE(SplitTvfFile(input, s));
  const VectorData out = test::LoadOrFail(s.output);
  EXPECT_EQ(Geometry(out), (std::vector<Points>{// m = 230 (not the smallest x, 170): shifted west
                                                {{-160, 0}, {-110, 1}, {-190, 2}, {-130, 3}},
                                                {{230, 3}, {10, 4}, {20, 5}, {400, 6}},
                                                {{7, 7}},
                                                // maximum -190 without the last point: shifted east
                                                {{160, 0}, {110, 1}, {170, 2}, {190, 3}}}));
  for (int k = 0; k < 2; ++k) {
    EXPECT_EQ(out.features[k]->flag, 1);
    EXPECT_EQ(out.features[k]->FindAttribute(3)->value, TypedValue::Double(9));
  }
}

TEST(VectorTileTest, TileNamesExpandColumnThenRow) {
  EXPECT_EQ(ExpandTileName("a/%/b_%", 0, 12) + " " + ExpandTileName("tile_%.tvf", 3, 5) + " " +
                ExpandTileName("tile", 3, 5) + " " + ExpandTileName("%%%", 10, 0),
            "a/0/b_12 tile_3.tvf5 tile35 100%");
}

TEST(VectorTileTest, CellTest) {
  const WrapRange off, world{true, -180, 180};
  const CellBounds west{-180, -170, 0, 10}, east{170, 180, 0, 10};
  const struct {
    const char* name;
    FeatureExtent box;  // min x, max x, min y, max y
    CellBounds cell;
    WrapRange wrap;
    bool taken;
  } cases[] = {
      {"inside", {-175, -174, 1, 2}, west, off, true},
      {"on the east border", {-170, -160, 1, 2}, west, off, true},
      {"on the north border", {-175, -174, 10, 20}, west, off, true},
      {"north of it", {-175, -174, 10.5, 20}, west, world, false},
      {"east, inside the range", {-169, -160, 1, 2}, west, world, false},
      {"beyond the east edge", {185, 188, 1, 2}, west, world, true},
      {"beyond, shifted elsewhere", {200, 210, 1, 2}, west, world, false},
      {"straddling the east edge", {170, 185, 1, 2}, west, world, true},
      {"straddling, not far enough", {170, 179.5, 1, 2}, west, world, false},
      {"beyond the west edge", {-185, -182, 1, 2}, east, world, true},
      {"straddling the west edge", {-190, -175, 1, 2}, east, world, true},
      {"straddling, without wrapping", {-190, -175, 1, 2}, east, off, false},
  };
  for (const auto& c : cases) EXPECT_EQ(CellTakesBox(c.box, c.cell, c.wrap), c.taken) << c.name;
}

// The index must give exactly what testing every cell gives.
TEST(VectorTileTest, CellIndexMatchesTestingEveryCell) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> x(-400, 400), y(-100, 100), size(0, 60);
  VectorData data;
  for (int k = 0; k < 400; ++k) {
    const double x0 = std::round(x(random)), y0 = std::round(y(random));
    const double w = k % 5 == 0 ? 0 : std::round(size(random)), h = std::round(size(random));
    data.AddFeature(MakePolygon(0, {{x0, y0}, {x0 + w, y0 + h}}));
  }
  data.AddFeature(MakeMarker(0, -180, 90));
  using Entry = std::tuple<int64_t, int64_t, int64_t>;
  for (const TileGrid& grid : {TileGrid{-180, -90, 180, 90, 12, 6}, TileGrid{-180, -90, 180, 90, 1, 1},
                               TileGrid{0, 0, 360, 90, 7, 3}, TileGrid{-10, -10, 10, 10, 3, 5}}) {
    for (const WrapRange& wrap : {WrapRange{}, WrapRange{true, -180, 180}, WrapRange{true, 0, 360}}) {
      std::vector<Entry> expected, got;
      for (int64_t i = 0; i < grid.columns; ++i) {
        for (int64_t j = 0; j < grid.rows; ++j) {
          for (size_t f = 0; f < data.features.size(); ++f) {
            FeatureExtent box;
            ComputeFeatureExtent(*data.features[f], &box);
            if (CellTakesBox(box, GridCell(grid, i, j), wrap)) expected.emplace_back(i, j, f);
          }
        }
      }
      for (const CellEntry& e : AssignFeaturesToCells(data, grid, wrap)) got.emplace_back(e.column, e.row, e.feature);
      EXPECT_EQ(got, expected) << grid.columns << "x" << grid.rows << " " << wrap.on;
    }
  }
}

// The rings of a polygon group go together to every cell any of them meets.
TEST(VectorTileTest, PolygonGroupsStayWhole) {
  VectorData data;
  data.AddFeature(MakePolygon(1, {{-170, 1}, {-160, 2}}));  // west ring, group head
  data.AddFeature(MakePolygon(0, {{160, 1}, {170, 2}}));    // east ring closes the group
  data.AddFeature(MakePolygon(0, {{-5, 1}, {5, 2}}));       // a polygon of its own
  const TileGrid grid{-180, -90, 180, 90, 3, 1};
  std::vector<std::pair<int64_t, int64_t>> got;  // (column, feature)
  for (const CellEntry& e : AssignFeaturesToCells(data, grid, {false, 0, 0})) got.push_back({e.column, e.feature});
  EXPECT_EQ(got, (std::vector<std::pair<int64_t, int64_t>>{{0, 0}, {0, 1}, {1, 0}, {1, 1}, {1, 2}, {2, 0}, {2, 1}}));
}

// Given extents run end to end in tools_cli_test.cpp. The own extent of
// these features is [0.1, 1.5] x [0.1, 0.4]: in 2 x 2 tiles the points below
// the middle go to row 0, the rest to row 1; a 1 x 1 grid keeps the template
// as it is.
TEST(VectorTileTest, OwnExtentTiles) {
  test::TempDir dir;
  const std::string input = test::WriteTvf(
      dir / "in.tvf", test::MakeFeatures(MakePolygon(0, {{0.5, 0.2}, {1, 0.4}}),
                                         MakeMarker(0, 1.5, 0.3), MakePolygon(0, {{0.1, 0.1}})));
  SplitSettings s;
  s.kind = SplitKind::kTileOwnExtent;
  s.columns = s.rows = 2;
  s.output = dir / "own_%_%.tvf";
  test::MessageCapture capture;
  ASSERT_TRUE(SplitTvfFile(input, s));
  EXPECT_EQ(Geometry(test::LoadOrFail(dir / "own_0_0.tvf")), (std::vector<Points>{{{0.5, 0.2}, {1, 0.4}}, {{0.1, 0.1}}}));
  EXPECT_EQ(Geometry(test::LoadOrFail(dir / "own_1_1.tvf")), (std::vector<Points>{{{0.5, 0.2}, {1, 0.4}}, {{1.5, 0.3}}}));
  s.columns = s.rows = 1;
  s.output = dir / "whole_%.tvf";
  ASSERT_TRUE(SplitTvfFile(input, s));
  EXPECT_EQ(test::LoadOrFail(dir / "whole_%.tvf").FeatureCount(), 3);
}

TEST(SlimTest, SnapsHalvesAwayFromZero) {
  const double cases[][3] = {{4.9, 10, 0},      {5, 10, 10},        {-5, 10, -10}, {-4.9, 10, -0.0},
                             {0.26, 0.5, 0.5}, {-0.74, 0.5, -0.5}, {1e300, 1, 1e300}};
  for (const auto& [value, resolution, snapped] : cases) {
    EXPECT_EQ(SnapToGrid(value, resolution), snapped) << value << " at " << resolution;
  }
}

}  // namespace
}  // namespace vmp
