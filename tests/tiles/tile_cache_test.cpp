#include "map_server/tiles/tile_cache.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "map_server/service/map_service.h"
#include "map_server/tiles/tile_loading.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

class TileCacheTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Tiles().Clear();
    const std::string world = "TRANS TYPE=OPAQUE\nMIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n";
    const std::string grid = "TYPE=VECTOR\nFILENAME=%_%.tvf\n" + world;
    files_.Write("abc.lif", grid + "NUM TILES X=3\nMAX CACHE SIZE=2\n");
    files_.Write("one.lif", grid + "NUM TILES X=2\n");
    files_.Write("two.lif", grid + "NUM TILES X=2\n");
    files_.Write("pic.lif", "TYPE=IMAGE\nFILENAME=pic.tif\nWIDTH=4\nHEIGHT=2\n" + world);
    files_.Write("vol.lif", "TYPE=VECTOR\nFILENAME=vol.tvf\nVOLATILE=1\n" + world);
    // 250 x 100 pixels in 3 x 2 tiles of 84 x 50: the last column keeps 82.
    files_.Write("img.lif", "TYPE=IMAGE\nFILENAME=t_%_%.tif\nNUM TILES X=3\nNUM TILES Y=2\nWIDTH=250\nHEIGHT=100\n" + world);
    for (const char* name : {"0_0.tvf", "1_0.tvf", "2_0.tvf"}) test::WriteMarkerTvf(files_.dir() / name, 1);
    test::WriteRgbTiff(files_.dir() / "pic.tif", 4, 2);
    test::MessageCapture quiet;
    files_.Load("MAX VECTOR TILES=3\nMAX IMAGE TILES=1\nLAYER=abc, abc.lif\nLAYER=one, one.lif\n"
                "LAYER=two, two.lif\nLAYER=pic, pic.lif\nLAYER=vol, vol.lif\nLAYER=img, img.lif\n");
    test::MakeMap(files_.dataset(), test::MapView{});  // the service takes the dataset's limits
    vol_ = VolatileSettingsOf(files_.layer("vol"));
  }
  void TearDown() override { Tiles().Clear(); }

  std::shared_ptr<TileRecord> Load(const char* name, int64_t column, int64_t row = 0) {
    Layer& layer = files_.layer(name);
    const VolatileSettings settings = name == std::string("vol") ? vol_ : VolatileSettingsOf(layer);
    if (layer.record.layer_type == kLayerImage) return LoadImageTile(layer, settings, column, row, nullptr);
    return LoadVectorTile(layer, settings, column, row, nullptr);
  }

  test::DatasetFiles files_;
  VolatileSettings vol_;
};

TEST_F(TileCacheTest, LeastRecentlyUsedTileLeavesFirst) {
  std::shared_ptr<TileRecord> a = Load("abc", 0), b = Load("abc", 1), c = Load("abc", 2);
  EXPECT_FALSE(a->in_use);  // freed, though this test still holds it
  EXPECT_TRUE(b->in_use && c->in_use);
  EXPECT_EQ(Load("abc", 1), b);  // B is now the most recent: C goes next
  EXPECT_NE(Load("abc", 0), a);
  EXPECT_FALSE(c->in_use);
  EXPECT_TRUE(b->in_use);
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 2);
}

TEST_F(TileCacheTest, ProcessWideLimitsFlushWholeLayersInOrderOfUse) {
  const auto over = [](const char* kind, int total, int max) {
    return Texts{kav::StrPrintf("Info: Too many %s tiles loaded, flushing %s tile cache.", kind, kind),
                 kav::StrPrintf("Info: Total number of loaded %s tiles: %d", kind, total),
                 kav::StrPrintf("Info: Max total number of %s tiles: %d", kind, max)};
  };
  const auto holding = [] {
    Texts names;
    for (Layer* layer : Service().cached_layers()) names.push_back(layer->name);
    return names;
  };
  test::MessageCapture capture;
  kav::Messages().verbosity = 4;
  for (auto [name, column] : {std::pair{"one", 0}, {"one", 1}, {"pic", 0}, {"two", 0}}) Load(name, column);
  EnforceTileLimits();  // 3 vector tiles and 1 image tile are within the limits
  EXPECT_TRUE(capture.messages().empty());
  Load("two", 1);
  Load("one", 0);  // "one" used last: "two" is flushed
  EnforceTileLimits();
  Texts expected = over("vector", 4, 3);
  expected.insert(expected.end(), {"Info: Flushing layer's tile cache: two", "Info: Number of remaining vector tiles: 2"});
  EXPECT_EQ(capture.Texts(), expected);
  EXPECT_EQ(holding(), (Texts{"pic", "one"}));  // the image layer would not help the vector count
  EXPECT_EQ(Tiles().StateOf(files_.layer("two")).CachedTiles(), 0);

  Service().tile_limits() = {0, 1};  // both at once: image first, then vector
  capture.Clear();
  EnforceTileLimits();
  expected = over("image", 1, 0);
  expected.push_back("Info: Flushing layer's tile cache: pic");
  for (const auto& text : over("vector", 2, 1)) expected.push_back(text);
  expected.insert(expected.end(), {"Info: Flushing layer's tile cache: one", "Info: Number of remaining image tiles: 0",
                                   "Info: Number of remaining vector tiles: 0"});
  EXPECT_EQ(capture.Texts(), expected);
  EXPECT_TRUE(holding().empty());
}

TEST_F(TileCacheTest, VolatileTilesFollowTheirFiles) {
  const std::string path = files_.dir() / "vol.tvf";
  test::WriteMarkerTvf(path, 2);
  test::MessageCapture capture;
  kav::Messages().verbosity = 6;
  std::shared_ptr<TileRecord> first = Load("vol", 0);
  capture.Clear();
  EXPECT_EQ(Load("vol", 0), first);
  EXPECT_EQ(capture.Texts(), Texts{"Info: Vector tile unchanged, using existing: " + path});
  test::WriteMarkerTvf(path, 3);
  kav::Messages().verbosity = 5;
  capture.Clear();
  std::shared_ptr<TileRecord> second = Load("vol", 0);
  EXPECT_EQ(second->vector.FeatureCount(), 3);
  EXPECT_EQ(capture.Texts(), Texts{"Info: Vector tile changed, reloading: " + path});

  // An unreadable rewrite keeps the good tile; only VolatileErrors reports it.
  files_.Write("vol.tvf", "69c 2 0 \n7 0 zz");
  kav::Messages().verbosity = 0;
  for (bool report : {false, true}) {
    vol_.report_errors = report;
    capture.Clear();
    EXPECT_EQ(Load("vol", 0), second);
    EXPECT_EQ(capture.Contains("New tile loading error, switching to existing one"), report);
    EXPECT_EQ(capture.messages().empty(), !report);
  }
  std::filesystem::remove(path);
  EXPECT_EQ(Load("vol", 0), second);
  EXPECT_TRUE(capture.Contains("Warning: Tile file does not exist, using old tile: " + path));
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 1);
}

TEST_F(TileCacheTest, FixedAndMissingTiles) {
  test::MessageCapture capture;
  std::shared_ptr<TileRecord> tile = Load("one", 0);
  EXPECT_TRUE(tile->Good() && tile->path.empty());  // the path is released: never looked at again
  EXPECT_EQ(tile->bounds, (TileBounds{-180, 0, -90, 90}));
  test::WriteMarkerTvf(files_.dir() / "0_0.tvf", 5);
  EXPECT_EQ(Load("one", 0)->vector.FeatureCount(), 1);

  std::filesystem::remove(files_.dir() / "2_0.tvf");
  std::shared_ptr<TileRecord> missing = Load("abc", 2);
  EXPECT_TRUE(missing->dead);
  EXPECT_EQ(Load("abc", 2), missing);  // reported once, then kept
  EXPECT_EQ(capture.Texts(), Texts{"Error: File does not exist: " + files_.dir() / "2_0.tvf"});
  Tiles().Clear();
  capture.Clear();
  VolatileSettings settings = VolatileSettingsOf(files_.layer("abc"));
  settings.allow_missing = true;  // holes of a sparse grid are not reported
  EXPECT_TRUE(LoadVectorTile(files_.layer("abc"), settings, 2, 0, nullptr)->dead);
  EXPECT_TRUE(capture.messages().empty());
}

TEST_F(TileCacheTest, ImageTilesTakeTheirSizeIntoTheirBounds) {
  const struct {
    int64_t column, row, width, height;
    TileBounds bounds;  // tiles are 84 x 50 pixels of 1.44 x 1.8 degrees, rows from the top
    bool mismatch;
  } cases[] = {
      {0, 0, 84, 50, {-180, -59.04, 0, 90}, false},
      {2, 0, 84, 50, {61.92, 182.88, 0, 90}, false},  // padded by the tiler
      {2, 1, 82, 50, {61.92, 180, -90, 0}, false},    // cut to what remains
      {1, 0, 82, 50, {-59.04, 61.92, 0, 90}, true},   // inner tiles are full size
      {0, 1, 84, 40, {-180, -59.04, -90, 0}, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.column) + "," + std::to_string(c.row));
    Tiles().Clear();
    const std::string path = files_.dir() / kav::StrPrintf("t_%lld_%lld.tif", static_cast<long long>(c.column),
                                                           static_cast<long long>(c.row));
    test::WriteRgbTiff(path, c.width, c.height);
    test::MessageCapture capture;
    std::shared_ptr<TileRecord> tile = Load("img", c.column, c.row);
    ASSERT_TRUE(tile->Good());
    EXPECT_NEAR(tile->bounds.min_lon, c.bounds.min_lon, 1e-9);
    EXPECT_NEAR(tile->bounds.max_lon, c.bounds.max_lon, 1e-9);
    EXPECT_NEAR(tile->bounds.min_lat, c.bounds.min_lat, 1e-9);
    EXPECT_NEAR(tile->image.max_lat, c.bounds.max_lat, 1e-9);
    EXPECT_EQ(capture.Texts(), c.mismatch ? Texts{"Warning: Image size mismatch: " + path} : Texts{});
  }
}

// A volatile layer that asks for the lock waits for it before loading: ten
// waits in LockTimeout (its default, 0.05 s), then the message at verbosity
// 5, or as a warning with VolatileErrors.
TEST_F(TileCacheTest, LockFileWait) {
  const std::string lock = files_.dir() / "tiles.lock";
  test::WriteMarkerTvf(files_.dir() / "vol.tvf", 1);
  vol_.lock_file = lock;
  vol_.lock_tiles = true;
  test::MessageCapture capture;
  kav::Messages().verbosity = 5;
  EXPECT_TRUE(Load("vol", 0)->Good());
  Texts expected(10, "Info: Waiting for a lock file: " + lock);
  expected.push_back("Info: Lock file does not exist: " + lock);
  EXPECT_EQ(capture.Texts(), expected);
  vol_.report_errors = true;
  kav::Messages().verbosity = 0;
  capture.Clear();
  EXPECT_FALSE(WaitForLockFile(vol_));
  EXPECT_EQ(capture.Texts(), Texts{"Warning: Lock file does not exist: " + lock});
  files_.Write("tiles.lock", "");
  EXPECT_TRUE(WaitForLockFile(vol_));
}

}  // namespace
}  // namespace vmp
