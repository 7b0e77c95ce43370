// Tiling: the cell test with and without wrapping, the cell index against a
// test of every cell, and the tile files written.
#include <gtest/gtest.h>

#include <random>

#include "map_server/util/tile_naming.h"
#include "map_server/tools/vector_tile.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/tools_test_support.h"

namespace vmp {
namespace {

using test::Geometry;
using test::MakeMarker;
using test::MakePolygon;
using test::Points;

TEST(TileNamingTest, ExpandsColumnThenRow) {
  struct Case {
    const char* name_template;
    int64_t column, row;
    const char* expected;
  } cases[] = {
      {"tile_%_%.jpg", 3, 5, "tile_3_5.jpg"}, {"tile_%.tvf", 3, 5, "tile_3.tvf5"},
      {"tile", 3, 5, "tile35"},               {"%%%", 10, 0, "100%"},
      {"a/%/b_%", 0, 12, "a/0/b_12"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ExpandTileName(c.name_template, c.column, c.row), c.expected) << c.name_template;
  }
}

TEST(VectorTileTest, CellTest) {
  const WrapRange off;
  const WrapRange world{true, -180, 180};
  const CellBounds cell{-180, -170, 0, 10};
  struct Case {
    const char* name;
    FeatureExtent box;  // min x, max x, min y, max y
    WrapRange wrap;
    bool taken;
  } cases[] = {
      {"inside", {-175, -174, 1, 2}, off, true},
      {"on the east border", {-170, -160, 1, 2}, off, true},
      {"on the north border", {-175, -174, 10, 20}, off, true},
      {"north of it", {-175, -174, 10.5, 20}, off, false},
      {"east of it", {-169, -160, 1, 2}, off, false},
      {"east, inside the range", {-169, -160, 1, 2}, world, false},
      {"beyond the east edge", {185, 188, 1, 2}, world, true},
      {"beyond, shifted elsewhere", {200, 210, 1, 2}, world, false},
      {"straddling the east edge", {170, 185, 1, 2}, world, true},
      {"straddling, not far enough", {170, 179.5, 1, 2}, world, false},
      {"straddling, other row", {170, 185, 20, 30}, world, false},
  };
  for (const Case& c : cases) EXPECT_EQ(CellTakesBox(c.box, cell, c.wrap), c.taken) << c.name;

  const CellBounds east{170, 180, 0, 10};
  EXPECT_TRUE(CellTakesBox({-185, -182, 1, 2}, east, world));   // beyond the west edge
  EXPECT_TRUE(CellTakesBox({-190, -175, 1, 2}, east, world));   // straddling the west edge
  EXPECT_FALSE(CellTakesBox({-190, -175, 1, 2}, east, off));
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
  const TileGrid grids[] = {{-180, -90, 180, 90, 12, 6}, {-180, -90, 180, 90, 1, 1},
                            {0, 0, 360, 90, 7, 3},       {-10, -10, 10, 10, 3, 5}};
  const WrapRange wraps[] = {{false, 0, 0}, {true, -180, 180}, {true, 0, 360}};
  for (const TileGrid& grid : grids) {
    for (const WrapRange& wrap : wraps) {
      std::vector<CellEntry> expected;
      for (int64_t i = 0; i < grid.columns; ++i) {
        for (int64_t j = 0; j < grid.rows; ++j) {
          for (size_t f = 0; f < data.features.size(); ++f) {
            FeatureExtent box;
            ComputeFeatureExtent(*data.features[f], &box);
            if (CellTakesBox(box, GridCell(grid, i, j), wrap)) {
              expected.push_back({i, j, static_cast<int64_t>(f)});
            }
          }
        }
      }
      const std::vector<CellEntry> got = AssignFeaturesToCells(data, grid, wrap);
      ASSERT_EQ(got.size(), expected.size()) << grid.columns << "x" << grid.rows << " " << wrap.on;
      for (size_t e = 0; e < got.size(); ++e) {
        EXPECT_EQ(got[e].column, expected[e].column);
        EXPECT_EQ(got[e].row, expected[e].row);
        EXPECT_EQ(got[e].feature, expected[e].feature);
      }
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

TEST(VectorTileTest, WritesOneFilePerCellWithFeatures) {
  test::TempDir dir;
  const std::string input = test::WriteTvf(
      dir / "in.tvf", test::MakeFeatures(MakePolygon(0, {{0.5, 0.2}, {1, 0.4}}),
                                         MakeMarker(0, 1.5, 0.3), MakePolygon(0, {{0.1, 0.1}})));
  SplitSettings s;
  s.kind = SplitKind::kTileGivenExtent;
  s.min_x = 0, s.min_y = 0, s.max_x = 2, s.max_y = 2;
  s.columns = 2;
  s.rows = 2;
  s.output = dir / "t_%_%.tvf";
  test::MessageCapture capture;
  ASSERT_TRUE(SplitTvfFile(input, s));
  // The first polygon ends on the border x = 1: it is in both cells.
  EXPECT_EQ(Geometry(test::LoadOrFail(dir / "t_0_0.tvf")),
            (std::vector<Points>{{{0.5, 0.2}, {1, 0.4}}, {{0.1, 0.1}}}));
  EXPECT_EQ(Geometry(test::LoadOrFail(dir / "t_1_0.tvf")),
            (std::vector<Points>{{{0.5, 0.2}, {1, 0.4}}, {{1.5, 0.3}}}));
  EXPECT_FALSE(test::FileExists(dir / "t_0_1.tvf"));
  EXPECT_EQ(capture.Texts(),
            std::vector<std::string>{"Info: Number of skipped tiles with no features: 2"});

  // Own extent, 2 x 2: everything lies in the lower half; a 1 x 1 grid
  // keeps the template as it is.
  s.kind = SplitKind::kTileOwnExtent;
  s.output = dir / "own_%_%.tvf";
  capture.Clear();
  ASSERT_TRUE(SplitTvfFile(input, s));
  EXPECT_TRUE(test::FileExists(dir / "own_0_0.tvf"));
  EXPECT_TRUE(test::FileExists(dir / "own_1_1.tvf"));
  s.columns = s.rows = 1;
  s.output = dir / "whole_%.tvf";
  ASSERT_TRUE(SplitTvfFile(input, s));
  EXPECT_EQ(test::LoadOrFail(dir / "whole_%.tvf").FeatureCount(), 3);
}

}  // namespace
}  // namespace vmp
