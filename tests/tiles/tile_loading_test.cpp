#include "map_server/tiles/tile_loading.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "map_server/tiles/tile_cache.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

class TileLoadingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Tiles().Clear();
    const std::string world = "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n";
    files_.Write("vol.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=vol.tvf\nVOLATILE=1\n" + world);
    files_.Write("still.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=t%_%.tvf\nNUM TILES X=2\n" + world);
    // 250 x 100 pixels in 3 x 2 tiles of 84 x 50: the last column keeps 82.
    files_.Write("img.lif", "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=t_%_%.tif\nNUM TILES X=3\n"
                            "NUM TILES Y=2\nWIDTH=250\nHEIGHT=100\n" + world);
    test::MessageCapture quiet;
    files_.Load("LAYER=vol, vol.lif\nLAYER=still, still.lif\nLAYER=img, img.lif\n");
    vol_ = VolatileSettingsOf(files_.layer("vol"));
  }
  void TearDown() override { Tiles().Clear(); }

  std::shared_ptr<TileRecord> LoadVol() {
    return LoadVectorTile(files_.layer("vol"), vol_, 0, 0, nullptr);
  }

  test::DatasetFiles files_;
  VolatileSettings vol_;
};

TEST_F(TileLoadingTest, VolatileTilesFollowTheirFiles) {
  const std::string path = files_.dir() / "vol.tvf";
  test::WriteMarkerTvf(path, 2);
  test::MessageCapture capture;
  kav::Messages().verbosity = 6;
  std::shared_ptr<TileRecord> first = LoadVol();
  EXPECT_EQ(first->vector.FeatureCount(), 2);
  EXPECT_EQ(first->path, path);  // kept for the next change test
  capture.Clear();
  EXPECT_EQ(LoadVol(), first);
  EXPECT_EQ(capture.Texts(), Texts{"Info: Vector tile unchanged, using existing: " + path});

  test::WriteMarkerTvf(path, 3);
  kav::Messages().verbosity = 5;
  capture.Clear();
  std::shared_ptr<TileRecord> second = LoadVol();
  EXPECT_NE(second, first);
  EXPECT_EQ(second->vector.FeatureCount(), 3);
  EXPECT_EQ(capture.Texts(), Texts{"Info: Vector tile changed, reloading: " + path});
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 1);

  // An unreadable rewrite keeps the good tile; only VolatileErrors reports it.
  files_.Write("vol.tvf", "69c 2 0 \n7 0 zz");
  for (bool report : {false, true}) {
    SCOPED_TRACE(report);
    vol_.report_errors = report;
    kav::Messages().verbosity = 0;
    capture.Clear();
    EXPECT_EQ(LoadVol(), second);
    EXPECT_EQ(capture.Contains("New tile loading error, switching to existing one"), report);
    EXPECT_EQ(capture.messages().empty(), !report);
  }
  std::filesystem::remove(path);
  capture.Clear();
  EXPECT_EQ(LoadVol(), second);
  EXPECT_EQ(capture.Texts(), Texts{"Warning: Tile file does not exist, using old tile: " + path});
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 1);
}

TEST_F(TileLoadingTest, FixedTilesAreReadOnce) {
  Layer& layer = files_.layer("still");
  VolatileSettings settings = VolatileSettingsOf(layer);
  test::WriteMarkerTvf(files_.dir() / "t0_0.tvf", 1);
  test::MessageCapture capture;
  std::shared_ptr<TileRecord> tile = LoadVectorTile(layer, settings, 0, 0, nullptr);
  EXPECT_TRUE(tile->Good());
  EXPECT_TRUE(tile->path.empty());  // released: the file is not looked at again
  EXPECT_EQ(tile->bounds, (TileBounds{-180, 0, -90, 90}));
  test::WriteMarkerTvf(files_.dir() / "t0_0.tvf", 5);
  EXPECT_EQ(LoadVectorTile(layer, settings, 0, 0, nullptr)->vector.FeatureCount(), 1);

  // A missing tile is dead, reported once and kept.
  std::shared_ptr<TileRecord> missing = LoadVectorTile(layer, settings, 1, 0, nullptr);
  EXPECT_TRUE(missing->dead);
  EXPECT_EQ(LoadVectorTile(layer, settings, 1, 0, nullptr), missing);
  EXPECT_EQ(capture.Texts(), Texts{"Error: File does not exist: " + files_.dir() / "t1_0.tvf"});

  // A sparse grid (AllowMissingTiles) does not report it; a tree leaf in error is dead.
  Tiles().Clear();
  settings.allow_missing = true;
  capture.Clear();
  EXPECT_TRUE(LoadVectorTile(layer, settings, 1, 0, nullptr)->dead);
  SlfNode broken;
  broken.slf_path = "broken.slf";
  broken.error = true;
  EXPECT_TRUE(LoadVectorTile(layer, settings, 0, 0, &broken)->dead);
  EXPECT_EQ(capture.Texts(), Texts{"Error: Skipping error sublif: broken.slf"});
}

TEST_F(TileLoadingTest, ImageTilesTakeTheirSizeIntoTheirBounds) {
  struct Case {
    int64_t column, row, width, height;
    TileBounds bounds;
    bool mismatch;
  };
  // Tiles are 84 x 50 pixels of 1.44 x 1.8 degrees; rows count from the top.
  const Case cases[] = {
      {0, 0, 84, 50, {-180, -59.04, 0, 90}, false},
      {1, 1, 84, 50, {-59.04, 61.92, -90, 0}, false},
      {2, 0, 84, 50, {61.92, 182.88, 0, 90}, false},  // padded by the tiler
      {2, 1, 82, 50, {61.92, 180, -90, 0}, false},    // cut to what remains
      {1, 0, 82, 50, {-59.04, 61.92, 0, 90}, true},   // inner tiles are full size
      {0, 1, 84, 40, {-180, -59.04, -90, 0}, true},
  };
  Layer& layer = files_.layer("img");
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.column) + "," + std::to_string(c.row));
    Tiles().Clear();
    const std::string path =
        files_.dir() / ("t_" + std::to_string(c.column) + "_" + std::to_string(c.row) + ".tif");
    test::WriteRgbTiff(path, c.width, c.height);
    test::MessageCapture capture;
    std::shared_ptr<TileRecord> tile =
        LoadImageTile(layer, VolatileSettingsOf(layer), c.column, c.row, nullptr);
    ASSERT_TRUE(tile->Good());
    EXPECT_NEAR(tile->bounds.min_lon, c.bounds.min_lon, 1e-9);
    EXPECT_NEAR(tile->bounds.max_lon, c.bounds.max_lon, 1e-9);
    EXPECT_NEAR(tile->bounds.min_lat, c.bounds.min_lat, 1e-9);
    EXPECT_NEAR(tile->bounds.max_lat, c.bounds.max_lat, 1e-9);
    EXPECT_EQ(tile->image.max_lon, tile->bounds.max_lon);
    EXPECT_EQ(capture.Texts(), c.mismatch ? Texts{"Warning: Image size mismatch: " + path} : Texts{});
  }
  // An unreadable image tile is kept with read errors.
  files_.Write("t_0_0.tif", "not a tiff");
  Tiles().Clear();
  test::MessageCapture capture;
  EXPECT_TRUE(LoadImageTile(layer, VolatileSettingsOf(layer), 0, 0, nullptr)->read_errors);
  EXPECT_TRUE(capture.Contains("Could not be read: " + files_.dir() / "t_0_0.tif"));
}

TEST_F(TileLoadingTest, LockFileWait) {
  using Clock = std::chrono::steady_clock;
  const std::string lock = files_.dir() / "tiles.lock";
  struct Case {
    bool present;
    bool report_errors;
    int verbosity;
    Texts messages;
  };
  Texts waiting(10, "Info: Waiting for a lock file: " + lock);
  Texts quiet_miss = waiting;
  quiet_miss.push_back("Info: Lock file does not exist: " + lock);
  const Case cases[] = {
      {false, false, 0, {}},
      {false, true, 0, {"Warning: Lock file does not exist: " + lock}},
      {false, false, 5, quiet_miss},
      {true, false, 5, {"Info: Got lock file: " + lock}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.present) + std::to_string(c.report_errors));
    if (c.present) files_.Write("tiles.lock", "");
    VolatileSettings settings;
    settings.lock_file = lock;
    settings.lock_timeout = 0.05;
    settings.report_errors = c.report_errors;
    test::MessageCapture capture;
    kav::Messages().verbosity = c.verbosity;
    const Clock::time_point start = Clock::now();
    EXPECT_EQ(WaitForLockFile(settings), c.present);
    if (!c.present) {
      EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
    }
    EXPECT_EQ(capture.Texts(), c.messages);
  }
  VolatileSettings none;
  none.lock_file = lock;
  none.lock_timeout = 0;
  EXPECT_TRUE(WaitForLockFile(none));

  // Loading a volatile tile of a layer that asks for the lock waits first.
  std::filesystem::remove(lock);
  test::WriteMarkerTvf(files_.dir() / "vol.tvf", 1);
  vol_.lock_file = lock;
  vol_.lock_tiles = true;
  const Clock::time_point start = Clock::now();
  EXPECT_TRUE(LoadVol()->Good());
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(50));
}

}  // namespace
}  // namespace vmp
