#include "map_server/tiles/tile_selection.h"

#include <gtest/gtest.h>

#include <array>
#include <set>

#include "map_server/dataset/slf_reader.h"
#include "map_server/geometry/conversions.h"
#include "map_server/tiles/tile_grid.h"
#include "map_server/tiles/tile_walk.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;
using Bounds = std::array<double, 4>;  // min lon, max lon, min lat, max lat

std::string WorldGrid(const char* type, int columns, int rows, const char* extra = "") {
  return kav::StrPrintf("TYPE=%s\nTRANS TYPE=OPAQUE\nFILENAME=t_%%_%%.x\nNUM TILES X=%d\nNUM TILES Y=%d\n"
                        "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n%s",
                        type, columns, rows, extra);
}

// A tree over the world: two halves in sub-directories, each of 4 x 4 leaves.
void WriteTree(const test::DatasetFiles& files) {
  files.Write("tree/root.slf", "MIN LON=-180\nMIN LAT=-90\nMAX LON=180\nMAX LAT=90\n"
                               "SUBLIF DIR=w BBOX= -180 -90 0 90\nSUBLIF DIR=e BBOX= 0 -90 180 90\n");
  for (int half = 0; half < 2; ++half) {
    std::string root = kav::StrPrintf("MIN LON=%d\nMAX LON=%d\nMIN LAT=-90\nMAX LAT=90\n", half * 180 - 180, half * 180);
    for (int leaf = 0; leaf < 16; ++leaf) {
      const int west = half * 180 - 180 + leaf % 4 * 45, south = -90 + leaf / 4 * 45;
      root += kav::StrPrintf("SUB LIF=l%d.slf\n", leaf);
      files.Write(kav::StrPrintf("tree/%c/l%d.slf", "we"[half], leaf),
                  kav::StrPrintf("MIN LON=%d\nMAX LON=%d\nMIN LAT=%d\nMAX LAT=%d\nFILENAME=l.tvf\n", west,
                                 west + 45, south, south + 45));
    }
    files.Write(kav::StrPrintf("tree/%c/root.slf", "we"[half]), root);
  }
}

void CollectLeaves(const SlfNode& node, std::vector<Bounds>* leaves) {
  if (node.children.empty()) leaves->push_back({node.min_lon, node.max_lon, node.min_lat, node.max_lat});
  for (const SlfNode& child : node.children) CollectLeaves(child, leaves);
}

class TileSelectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Tiles().Clear();
    const std::pair<const char*, std::string> lifs[] = {
        {"vgrid", WorldGrid("VECTOR", 10, 10)},
        {"igrid", WorldGrid("IMAGE", 10, 10, "WIDTH=1000\nHEIGHT=500\n")},
        {"tree", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=tree/root.slf\n"},
        {"capped", WorldGrid("VECTOR", 10, 10, "MAX TILES=4\n")},
        {"big", WorldGrid("VECTOR", 100, 50, "MAX TILES=4\n")},
        {"island", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=i.tvf\nMAX LON=10\nMAX LAT=10\n"},
        {"flat", WorldGrid("VECTOR", 0, 10)},
        {"lost", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nTILES SUBLIF=nowhere/root.slf\n"},
        {"whole", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=w.tvf\n"},
        {"whole360", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=w.tvf\nPOS RANGE=1\n"},
        {"noimage", "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=w.jpg\nWIDTH=4\nHEIGHT=4\n"}};
    std::string info;
    for (const auto& [name, lif] : lifs) info += "LAYER=" + std::string(name) + ", " + files_.Write(std::string(name) + ".lif", lif) + "\n";
    WriteTree(files_);
    test::MessageCapture quiet;
    files_.Load(info);
  }
  void TearDown() override { Tiles().Clear(); }

  // The tiles some visible pixel centre falls in: the test's own oracle.
  std::set<Bounds> PixelOracle(const MapGeometry& g, Layer& layer) {
    std::vector<Bounds> tiles;
    if (layer.record.tile_tree) {
      LoadSlfTree(*layer.record.tile_tree);
      CollectLeaves(*layer.record.tile_tree, &tiles);
    } else {
      TileGrid grid;
      EXPECT_TRUE(MakeTileGrid(layer, &grid));
      for (int64_t cell = 0; cell < grid.columns * grid.rows; ++cell) {
        const TileBounds b = CellBounds(grid, cell % grid.columns, cell / grid.columns);
        tiles.push_back({b.min_lon, b.max_lon, b.min_lat, b.max_lat});
      }
    }
    std::set<Bounds> seen;
    for (int64_t y = g.min_y; y <= g.max_y; ++y) {
      for (int64_t x = g.min_x; x <= g.max_x; ++x) {
        const LatLonPoint p = PixelToLatLon(g, x, g.projection == kOrthographicProjection ? g.height_m1 - y : y);
        for (const Bounds& b : tiles) {
          if (p.ok && BoundsContain({b[0], b[1], b[2], b[3]}, p.lat, p.lon)) seen.insert(b);
        }
      }
    }
    return seen;
  }

  std::set<Bounds> Run(TileOp op, Layer& layer) {
    std::set<Bounds> bounds;
    TileWalk walk;
    walk.op = op;
    walk.layer = &layer;
    walk.on_bounds = [&](const TileBounds& b) { bounds.insert({b.min_lon, b.max_lon, b.min_lat, b.max_lat}); };
    ForEachGridTile(walk);
    return bounds;
  }

  test::DatasetFiles files_;
};

// A tile that shows only in the last pixel at the globe's edge, where no pixel centre need fall.
bool AtGlobeEdge(const MapGeometry& g, const Bounds& b) {
  double z = -1;
  for (double u : {0.0, 0.5, 1.0}) {
    for (double v : {0.0, 0.5, 1.0}) z = std::max(z, LatLonToPixel(g, b[2] + v * (b[3] - b[2]), b[0] + u * (b[1] - b[0])).z);
  }
  return g.projection == kOrthographicProjection && z < 0.2;
}

TEST_F(TileSelectionTest, MarksTheTilesTheViewShows) {
  const double globe = 2 * kEquatorialRadius;
  const test::MapView views[] = {
      {kRectangularProjection, 9, 18, 90, 45, 200, 100},      // 3 x 3 grid cells
      {kRectangularProjection, 0, 0, 360, 180, 360, 180},     // the world
      {kRectangularProjection, 5, 170, 60, 30, 120, 60},      // across the date line
      {kOrthographicProjection, 20, 40, globe, globe, 200, 200},
      {kOrthographicProjection, 30, 40, 3e6, 3e6, 100, 100},  // inside one or two tiles
      {kOrthographicProjection, 80, -100, 4e6, 4e6, 100, 100},  // over the pole
  };
  for (const char* name : {"vgrid", "igrid", "tree"}) {
    for (const test::MapView& view : views) {
      SCOPED_TRACE(std::string(name) + " at " + std::to_string(view.center_lon));
      Layer& layer = files_.layer(name);
      std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), view);
      test::MessageCapture capture;
      ASSERT_EQ(SelectLayerTiles(*map, layer), TileSelection::kSelected);
      const std::set<Bounds> expected = PixelOracle(map->geometry, layer);
      const std::set<Bounds> marked = Run(kTileBoundsAction, layer);
      ASSERT_FALSE(expected.empty());
      for (const Bounds& b : expected) EXPECT_EQ(marked.count(b), 1u) << b[0] << " " << b[2];
      for (const Bounds& b : marked) EXPECT_TRUE(expected.count(b) || AtGlobeEdge(map->geometry, b)) << b[0] << " " << b[2];
      EXPECT_EQ(Tiles().StateOf(layer).needed_count, static_cast<int64_t>(marked.size()));
      Run(kTileReset, layer);
      EXPECT_TRUE(Run(kTileBoundsAction, layer).empty());
      EXPECT_TRUE(capture.messages().empty()) << capture.Texts()[0];
    }
  }
}

TEST_F(TileSelectionTest, OutcomesAndCounts) {
  const test::MapView four = {kRectangularProjection, 18, 36, 30, 15, 200, 100};  // around a cell corner
  const test::MapView nine = {kRectangularProjection, 9, 18, 90, 45, 200, 100};
  const test::MapView world = {kRectangularProjection, 0, 0, 360, 180, 400, 200};
  const test::MapView far = {kRectangularProjection, 0, 100, 20, 10, 200, 100};
  const auto counts = [](const char* kind, const char* layer, int count, int max_tiles, int cache) {
    return Texts{kav::StrPrintf("Info: The %s map request requires tiles: %s: %d", kind, layer, count),
                 kav::StrPrintf("Info:    and the server allows: %d", max_tiles),
                 kav::StrPrintf("Info: Max cache size: %d", cache)};
  };
  Texts clipped = counts("vector", "island", 0, -1, -1);
  clipped.push_back("Info: Clipped out layer disabled, no tiles used.: island");
  const struct {
    const char* layer;
    test::MapView view;
    int verbosity;
    TileSelection outcome;
    Texts messages;
  } cases[] = {
      {"capped", four, 3, TileSelection::kSelected, counts("vector", "capped", 4, 4, 100)},
      {"capped", nine, 0, TileSelection::kExceeded, {}},
      {"capped", nine, 3, TileSelection::kExceeded, counts("vector", "capped", 9, 4, 100)},
      {"big", world, 3, TileSelection::kExceeded, counts("vector", "big", 1001, 4, 100)},  // of 5000
      {"igrid", nine, 3, TileSelection::kSelected, counts("image", "igrid", 9, -1, -1)},
      {"island", far, 0, TileSelection::kClippedOut, {}},
      {"island", far, 3, TileSelection::kClippedOut, clipped},
      {"flat", nine, 0, TileSelection::kUnusable, {"Error: Invalid tile grid for layer: flat"}},
      {"lost", nine, 0, TileSelection::kUnusable, {"Error: Skipping layer's tiles with errors: lost"}},
  };
  for (const auto& c : cases) {
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
    EXPECT_EQ(Run(kTileBoundsAction, layer).empty(), c.outcome != TileSelection::kSelected);
    EXPECT_EQ(state.CachedTiles(), 0);  // selection never loads
    Run(kTileReset, layer);
  }

  // A tree left marked by an unfinished request is reported by the next selection.
  std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), nine);
  test::MessageCapture capture;
  SelectLayerTiles(*map, files_.layer("tree"));
  SelectLayerTiles(*map, files_.layer("tree"));
  EXPECT_TRUE(capture.Contains("Unexpected used tree tile!"));
  EXPECT_TRUE(capture.Contains("Unexpected HitBorder flag, tile: " + files_.dir() / "tree/root.slf"));
  EXPECT_TRUE(capture.messages().at(0).from_toolkit);
}

// A single vector file without an extent covers the world; an image still needs one.
TEST_F(TileSelectionTest, VectorFileWithoutExtentCoversTheWorld) {
  TileGrid grid;
  ASSERT_TRUE(MakeTileGrid(files_.layer("whole"), &grid));
  EXPECT_EQ((Bounds{grid.min_lon, grid.max_lon, grid.min_lat, grid.max_lat}), (Bounds{-180, 180, -90, 90}));
  ASSERT_TRUE(MakeTileGrid(files_.layer("whole360"), &grid));
  EXPECT_EQ((Bounds{grid.min_lon, grid.max_lon, grid.min_lat, grid.max_lat}), (Bounds{0, 360, -90, 90}));
  test::MessageCapture capture;
  EXPECT_FALSE(MakeTileGrid(files_.layer("noimage"), &grid));
  EXPECT_EQ(capture.Texts(), Texts{"Error: Invalid tile grid for layer: noimage"});
}

}  // namespace
}  // namespace vmp
