#include "map_server/tiles/tile_selection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <set>
#include <utility>

#include "map_server/dataset/slf_reader.h"
#include "map_server/geometry/conversions.h"
#include "map_server/service/map_service.h"
#include "map_server/tiles/tile_grid.h"
#include "map_server/tiles/tile_walk.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;
// Tiles by their bounds: min lon, max lon, min lat, max lat.
using CellSet = std::set<std::array<double, 4>>;

std::array<double, 4> Key(const TileBounds& b) { return {b.min_lon, b.max_lon, b.min_lat, b.max_lat}; }

// A tile that shows only in the last pixel at the globe's edge: no pixel
// centre need fall in it.
bool AtGlobeEdge(const MapGeometry& g, const std::array<double, 4>& b) {
  if (g.projection != kOrthographicProjection) return false;
  double z = -1.0;
  for (double u : {0.0, 0.5, 1.0}) {
    for (double v : {0.0, 0.5, 1.0}) {
      z = std::max(z, LatLonToPixel(g, b[2] + v * (b[3] - b[2]), b[0] + u * (b[1] - b[0])).z);
    }
  }
  return z < 0.2;
}

constexpr double kRadius = kEquatorialRadius;

std::string WorldGrid(const char* type, int columns, int rows, const char* extra = "") {
  return kav::StrPrintf(
      "TYPE=%s\nTRANS TYPE=OPAQUE\nFILENAME=t_%%_%%.x\nNUM TILES X=%d\nNUM TILES Y=%d\n"
      "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n%s",
      type, columns, rows, extra);
}

// A two-level tree over the world: east and west halves, each 4 x 4 leaves.
void WriteTree(const test::DatasetFiles& files) {
  files.Write("tree/root.slf",
              "MIN LON=-180\nMIN LAT=-90\nMAX LON=180\nMAX LAT=90\n"
              "SUBLIF DIR=west BBOX= -180 -90 0 90\nSUBLIF DIR=east BBOX= 0 -90 180 90\n");
  for (int half = 0; half < 2; ++half) {
    const char* dir = half == 0 ? "tree/west/" : "tree/east/";
    std::string root = kav::StrPrintf("MIN LON=%d\nMAX LON=%d\nMIN LAT=-90\nMAX LAT=90\n",
                                      half * 180 - 180, half * 180);
    for (int i = 0; i < 4; ++i) {
      for (int j = 0; j < 4; ++j) {
        const int west = half * 180 - 180 + i * 45, south = -90 + j * 45;
        const std::string leaf = kav::StrPrintf("l%d%d.slf", i, j);
        root += "SUB LIF=" + leaf + "\n";
        files.Write(dir + leaf,
                    kav::StrPrintf("MIN LON=%d\nMAX LON=%d\nMIN LAT=%d\nMAX LAT=%d\nFILENAME=l%d%d.tvf\n",
                                   west, west + 45, south, south + 45, i, j));
      }
    }
    files.Write(std::string(dir) + "root.slf", root);
  }
}

void CollectLeaves(const SlfNode& node, std::vector<const SlfNode*>* leaves) {
  if (node.children.empty()) leaves->push_back(&node);
  for (const SlfNode& child : node.children) CollectLeaves(child, leaves);
}

class TileSelectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Tiles().Clear();
    files_.Write("vgrid.lif", WorldGrid("VECTOR", 10, 10));
    files_.Write("igrid.lif", WorldGrid("IMAGE", 10, 10, "WIDTH=1000\nHEIGHT=500\n"));
    files_.Write("tree.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=tree/root.slf\n");
    files_.Write("capped.lif", WorldGrid("VECTOR", 10, 10, "MAX TILES=4\n"));
    files_.Write("big.lif", WorldGrid("VECTOR", 100, 50, "MAX TILES=4\n"));
    files_.Write("island.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=i.tvf\n"
                               "MIN LON=0\nMAX LON=10\nMIN LAT=0\nMAX LAT=10\n");
    files_.Write("flat.lif", WorldGrid("VECTOR", 0, 10));
    files_.Write("lost.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=nowhere/root.slf\n");
    WriteTree(files_);
    test::MessageCapture quiet;
    files_.Load("LAYER=vgrid, vgrid.lif\nLAYER=igrid, igrid.lif\nLAYER=tree, tree.lif\n"
                "LAYER=capped, capped.lif\nLAYER=big, big.lif\nLAYER=island, island.lif\n"
                "LAYER=flat, flat.lif\nLAYER=lost, lost.lif\n");
  }
  void TearDown() override { Tiles().Clear(); }

  // The tiles that some visible pixel falls in: the test's own oracle.
  CellSet PixelOracle(const MapGeometry& g, Layer& layer) {
    CellSet cells;
    TileGrid grid;
    std::vector<const SlfNode*> leaves;
    if (layer.record.tile_tree) {
      LoadSlfTree(*layer.record.tile_tree);
      CollectLeaves(*layer.record.tile_tree, &leaves);
    } else {
      EXPECT_TRUE(MakeTileGrid(layer, &grid));
    }
    for (int64_t y = g.min_y; y <= g.max_y; ++y) {
      for (int64_t x = g.min_x; x <= g.max_x; ++x) {
        const double row = g.projection == kOrthographicProjection ? g.height_m1 - y : y;
        const LatLonPoint p = PixelToLatLon(g, static_cast<double>(x), row);
        if (!p.ok) continue;
        if (!leaves.empty()) {
          for (const SlfNode* leaf : leaves) {
            if (BoundsContain({leaf->min_lon, leaf->max_lon, leaf->min_lat, leaf->max_lat}, p.lat, p.lon)) {
              cells.insert({leaf->min_lon, leaf->max_lon, leaf->min_lat, leaf->max_lat});
              break;
            }
          }
          continue;
        }
        int64_t column = 0, r = 0;
        if (CellOfPoint(grid, p.lat, p.lon, &column, &r)) {
          cells.insert(Key(CellBounds(grid, column, r)));
        }
      }
    }
    return cells;
  }

  CellSet Marked(Layer& layer) {
    CellSet cells;
    TileWalk walk;
    walk.op = kTileBoundsAction;
    walk.layer = &layer;
    walk.on_bounds = [&](const TileBounds& b) { cells.insert(Key(b)); };
    ForEachGridTile(walk);
    return cells;
  }

  void Reset(Layer& layer) {
    TileWalk walk;
    walk.op = kTileReset;
    walk.layer = &layer;
    ForEachGridTile(walk);
  }

  test::DatasetFiles files_;
};

TEST_F(TileSelectionTest, MarksTheTilesTheViewShows) {
  struct View {
    const char* name;
    test::MapView view;
    size_t min_cells;  // guards against an oracle that sees nothing
  };
  const View views[] = {
      {"3 x 3 cells", {kRectangularProjection, 9, 18, 90, 45, 200, 100}, 4},
      {"world", {kRectangularProjection, 0, 0, 360, 180, 360, 180}, 32},
      {"across the date line", {kRectangularProjection, 5, 170, 60, 30, 120, 60}, 3},
      {"globe", {kOrthographicProjection, 20, 40, 2 * kRadius, 2 * kRadius, 200, 200}, 10},
      {"close globe", {kOrthographicProjection, 30, 40, 3000000, 3000000, 100, 100}, 1},
      {"globe over the pole", {kOrthographicProjection, 80, -100, 4000000, 4000000, 100, 100}, 2},
  };
  for (const char* name : {"vgrid", "igrid", "tree"}) {
    for (const View& v : views) {
      SCOPED_TRACE(std::string(name) + ", " + v.name);
      Layer& layer = files_.layer(name);
      std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), v.view);
      test::MessageCapture capture;
      ASSERT_EQ(SelectLayerTiles(*map, layer), TileSelection::kSelected);
      const CellSet expected = PixelOracle(map->geometry, layer);
      EXPECT_GE(expected.size(), std::min<size_t>(v.min_cells, 9));
      const CellSet marked = Marked(layer);
      for (const auto& cell : expected) EXPECT_EQ(marked.count(cell), 1u) << cell[0] << " " << cell[2];
      for (const auto& cell : marked) {
        if (expected.count(cell) == 0) {
          EXPECT_TRUE(AtGlobeEdge(map->geometry, cell)) << cell[0] << " " << cell[2];
        }
      }
      EXPECT_EQ(Tiles().StateOf(layer).needed_count, static_cast<int64_t>(marked.size()));
      Reset(layer);
      EXPECT_TRUE(capture.messages().empty()) << capture.Texts()[0];
    }
  }
}

TEST_F(TileSelectionTest, OutcomesAndCounts) {
  struct Case {
    const char* layer;
    test::MapView view;
    int verbosity;
    TileSelection outcome;
    Texts messages;
  };
  const test::MapView nine = {kRectangularProjection, 9, 18, 90, 45, 200, 100};
  const test::MapView world = {kRectangularProjection, 0, 0, 360, 180, 400, 200};
  const test::MapView far = {kRectangularProjection, 0, 100, 20, 10, 200, 100};
  const Case cases[] = {
      {"capped", nine, 0, TileSelection::kExceeded, {}},
      {"capped", nine, 3, TileSelection::kExceeded,
       {"Info: The vector map request requires tiles: capped: 9", "Info:    and the server allows: 4",
        "Info: Max cache size: 100"}},
      // Counting stops just above 1000 of the 5000 tiles.
      {"big", world, 3, TileSelection::kExceeded,
       {"Info: The vector map request requires tiles: big: 1001", "Info:    and the server allows: 4",
        "Info: Max cache size: 100"}},
      {"igrid", nine, 3, TileSelection::kSelected,
       {"Info: The image map request requires tiles: igrid: 9", "Info:    and the server allows: -1",
        "Info: Max cache size: -1"}},
      {"island", far, 0, TileSelection::kClippedOut, {}},
      {"island", far, 3, TileSelection::kClippedOut,
       {"Info: The vector map request requires tiles: island: 0", "Info:    and the server allows: -1",
        "Info: Max cache size: -1", "Info: Clipped out layer disabled, no tiles used.: island"}},
      {"flat", nine, 0, TileSelection::kUnusable, {"Error: Invalid tile grid for layer: flat"}},
      {"lost", nine, 0, TileSelection::kUnusable, {"Error: Skipping layer's tiles with errors: lost"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.layer) + " at verbosity " + std::to_string(c.verbosity));
    Layer& layer = files_.layer(c.layer);
    std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), c.view);
    test::MessageCapture capture;
    kav::Messages().verbosity = c.verbosity;
    EXPECT_EQ(SelectLayerTiles(*map, layer), c.outcome);
    EXPECT_EQ(capture.Texts(), c.messages);
    const LayerTiles& state = Tiles().StateOf(layer);
    EXPECT_EQ(state.tiles_exceeded, c.outcome == TileSelection::kExceeded);
    EXPECT_EQ(state.enabled, c.outcome == TileSelection::kSelected);
    if (c.outcome == TileSelection::kExceeded) {
      EXPECT_TRUE(Marked(layer).empty());
    }
    EXPECT_EQ(state.CachedTiles(), 0);  // selection never loads
    Reset(layer);
  }
}

TEST_F(TileSelectionTest, MarksLeftFromAnEarlierRequestAreReported) {
  const test::MapView nine = {kRectangularProjection, 9, 18, 90, 45, 200, 100};
  for (const char* name : {"vgrid", "tree"}) {
    SCOPED_TRACE(name);
    Layer& layer = files_.layer(name);
    std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), nine);
    test::MessageCapture capture;
    ASSERT_EQ(SelectLayerTiles(*map, layer), TileSelection::kSelected);
    const int64_t count = Tiles().StateOf(layer).needed_count;
    ASSERT_EQ(SelectLayerTiles(*map, layer), TileSelection::kSelected);  // no reset in between
    EXPECT_EQ(Tiles().StateOf(layer).needed_count, count);
    ASSERT_FALSE(capture.messages().empty());
    for (const test::CapturedMessage& m : capture.messages()) {
      EXPECT_TRUE(m.from_toolkit);
      EXPECT_EQ(m.severity, kInternalError);
    }
    if (std::string(name) == "vgrid") {
      EXPECT_EQ(capture.Count("Unexpected used tile!"), static_cast<size_t>(count));
    } else {
      EXPECT_TRUE(capture.Contains("Unexpected used tree tile!"));
      EXPECT_TRUE(capture.Contains("Unexpected HitBorder flag, tile: " + files_.dir() / "tree/root.slf"));
    }
    Reset(layer);
  }
}

}  // namespace
}  // namespace vmp
