#include "map_server/tiles/tile_cache.h"

#include <gtest/gtest.h>

#include "map_server/service/map_service.h"
#include "map_server/tiles/tile_loading.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

class TileCacheTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Tiles().Clear();
    const std::string grid = "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=%_%.tvf\nNUM TILES Y=1\n"
                             "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n";
    files_.Write("abc.lif", grid + "NUM TILES X=3\nMAX CACHE SIZE=2\n");
    files_.Write("one.lif", grid + "NUM TILES X=2\n");
    files_.Write("two.lif", grid + "NUM TILES X=2\n");
    files_.Write("pic.lif", "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=pic.tif\nWIDTH=4\nHEIGHT=2\n"
                            "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n");
    for (const char* name : {"0_0.tvf", "1_0.tvf", "2_0.tvf"}) test::WriteMarkerTvf(files_.dir() / name, 1);
    test::WriteRgbTiff(files_.dir() / "pic.tif", 4, 2);
    test::MessageCapture quiet;
    files_.Load("MAX VECTOR TILES=3\nMAX IMAGE TILES=1\n"
                "LAYER=abc, abc.lif\nLAYER=one, one.lif\nLAYER=two, two.lif\nLAYER=pic, pic.lif\n");
    map_ = test::MakeMap(files_.dataset(), test::MapView{});
  }
  void TearDown() override { Tiles().Clear(); }

  std::shared_ptr<TileRecord> Load(const char* layer, int64_t column) {
    Layer& l = files_.layer(layer);
    if (l.record.layer_type == kLayerImage) return LoadImageTile(l, VolatileSettingsOf(l), 0, 0, nullptr);
    return LoadVectorTile(l, VolatileSettingsOf(l), column, 0, nullptr);
  }

  std::vector<int64_t> Slots(const char* layer) {
    std::vector<int64_t> cells;
    for (const auto& tile : Tiles().StateOf(files_.layer(layer)).lru[1]) cells.push_back(tile->cell);
    return cells;  // most recently used first
  }

  Texts Holding() {
    Texts names;
    for (Layer* layer : Service().cached_layers()) names.push_back(layer->name);
    return names;
  }

  test::DatasetFiles files_;
  std::unique_ptr<MapRequest> map_;
};

TEST_F(TileCacheTest, LeastRecentlyUsedTileLeavesFirst) {
  test::MessageCapture capture;
  std::shared_ptr<TileRecord> a = Load("abc", 0);
  std::shared_ptr<TileRecord> b = Load("abc", 1);
  std::shared_ptr<TileRecord> c = Load("abc", 2);
  EXPECT_EQ(Slots("abc"), (std::vector<int64_t>{2, 1}));
  EXPECT_FALSE(a->in_use);  // freed, though this test still holds it
  EXPECT_TRUE(b->in_use && c->in_use);
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 2);

  EXPECT_EQ(Load("abc", 1), b);  // B becomes the most recent: C goes next
  std::shared_ptr<TileRecord> a2 = Load("abc", 0);
  EXPECT_NE(a2, a);
  EXPECT_EQ(Slots("abc"), (std::vector<int64_t>{0, 1}));
  EXPECT_FALSE(c->in_use);
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 2);
  EXPECT_TRUE(capture.messages().empty());
}

TEST_F(TileCacheTest, ProcessWideLimitsFlushWholeLayersInOrderOfUse) {
  test::MessageCapture capture;
  kav::Messages().verbosity = 4;
  Load("one", 0);
  Load("one", 1);
  Load("pic", 0);
  Load("two", 0);
  EnforceTileLimits();  // 3 vector tiles, 1 image tile: within the limits
  EXPECT_TRUE(capture.messages().empty());
  Load("two", 1);
  EXPECT_EQ(Holding(), (Texts{"one", "pic", "two"}));
  EnforceTileLimits();
  EXPECT_EQ(capture.Texts(), (Texts{"Info: Too many vector tiles loaded, flushing vector tile cache.",
                                    "Info: Total number of loaded vector tiles: 4",
                                    "Info: Max total number of vector tiles: 3",
                                    "Info: Flushing layer's tile cache: one",
                                    "Info: Number of remaining vector tiles: 2"}));
  // The image layer stays: flushing it would not bring the vector count down.
  EXPECT_EQ(Holding(), (Texts{"pic", "two"}));
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 2);
  EXPECT_EQ(Tiles().StateOf(files_.layer("one")).CachedTiles(), 0);

  Load("one", 0);
  Load("one", 1);
  Load("two", 0);  // "two" used again: "one" is now the least recent
  capture.Clear();
  EnforceTileLimits();
  EXPECT_TRUE(capture.Contains("Flushing layer's tile cache: one"));
  EXPECT_EQ(Holding(), (Texts{"pic", "two"}));

  // Both limits at once: image first, then vector.
  Service().tile_limits() = {0, 1};
  capture.Clear();
  EnforceTileLimits();
  EXPECT_EQ(capture.Texts(), (Texts{"Info: Too many image tiles loaded, flushing image tile cache.",
                                    "Info: Total number of loaded image tiles: 1",
                                    "Info: Max total number of image tiles: 0",
                                    "Info: Flushing layer's tile cache: pic",
                                    "Info: Too many vector tiles loaded, flushing vector tile cache.",
                                    "Info: Total number of loaded vector tiles: 2",
                                    "Info: Max total number of vector tiles: 1",
                                    "Info: Flushing layer's tile cache: two",
                                    "Info: Number of remaining image tiles: 0",
                                    "Info: Number of remaining vector tiles: 0"}));
  EXPECT_TRUE(Holding().empty());

  // No limit (negative) never flushes, and below verbosity 4 nothing is said.
  Service().tile_limits() = {-1, -1};
  kav::Messages().verbosity = 0;
  Load("one", 0);
  Load("one", 1);
  capture.Clear();
  EnforceTileLimits();
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 2);
  EXPECT_TRUE(capture.messages().empty());
}

TEST_F(TileCacheTest, DroppingAndClearingLeaveNoCounts) {
  Load("one", 0);
  Load("pic", 0);
  Tiles().DropLayer(&files_.layer("one"));
  EXPECT_EQ(Tiles().FindState(&files_.layer("one")), nullptr);
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 0);
  EXPECT_EQ(Holding(), Texts{"pic"});
  Tiles().Clear();
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kImage), 0);
  EXPECT_TRUE(Holding().empty());
}

}  // namespace
}  // namespace vmp
