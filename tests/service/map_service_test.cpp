#include "map_server/service/map_service.h"

#include <gtest/gtest.h>

#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

class MapServiceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_.Write("layers/coast.lif", "TYPE=OUTLINE\nTRANS TYPE=OPAQUE\n");
    info_ = dir_.Write("set.sdf", "LAYER DIR=layers\nLAYER=coast, coast.lif\nVECTOR FONT=sans, s.vft\n");
  }
  void TearDown() override {
    test::MessageCapture quiet;
    service_.Terminate();
  }

  test::TempDir dir_;
  std::string info_;
  MapService service_;
};

TEST_F(MapServiceTest, StartsOnceAndLoadsTheDefaultDataset) {
  test::MessageCapture capture;
  service_.Start(info_);
  EXPECT_TRUE(service_.started());
  EXPECT_TRUE(kav::Messages().image_errors.has_value());
  EXPECT_NE(service_.font_library(), nullptr);
  ASSERT_EQ(service_.datasets().size(), 1u);
  Dataset* dataset = service_.FindDataset("DefaultDataset");
  ASSERT_NE(dataset, nullptr);
  EXPECT_EQ(dataset->layers.size(), 1u);
  EXPECT_TRUE(service_.cached_layers().empty());

  service_.Start(dir_ / "other.sdf");  // does nothing
  EXPECT_EQ(service_.datasets().size(), 1u);
  EXPECT_EQ(service_.FindDataset("DefaultDataset"), dataset);
  EXPECT_TRUE(capture.messages().empty());
}

TEST_F(MapServiceTest, MessagesAreCollectedOnceStarted) {
  test::MessageCapture capture;
  Report(kWarning, "before");
  service_.Start(info_);
  Report(kWarning, "after");
  EXPECT_EQ(*kav::Messages().image_errors, Texts{"Warning: after"});
}

TEST_F(MapServiceTest, FontLibraryFailureDoesNotStopStartUp) {
  service_.set_font_library_init([](FT_LibraryRec_**) { return 1; });
  test::MessageCapture capture;
  service_.Start(info_);
  EXPECT_EQ(capture.Texts(),
            Texts{"Internal Error: Error occurred during freetype font library initialization"});
  EXPECT_EQ(service_.font_library(), nullptr);
  EXPECT_EQ(service_.FindDataset("DefaultDataset")->layers.size(), 1u);
}

TEST_F(MapServiceTest, MissingInfoFileLeavesAnEmptyDataset) {
  test::MessageCapture capture;
  service_.Start(dir_ / "missing.sdf");
  EXPECT_EQ(capture.Texts(), Texts{"Error: Cannot open dataset info file: " + dir_ / "missing.sdf"});
  ASSERT_NE(service_.FindDataset("DefaultDataset"), nullptr);
  EXPECT_TRUE(service_.FindDataset("DefaultDataset")->layers.empty());
}

TEST_F(MapServiceTest, TerminateReleasesEverything) {
  struct Case {
    int64_t verbosity;
    Texts messages;
  };
  const Case cases[] = {{1, {}}, {2, {"Info: Terminated/Done!"}}};
  for (const Case& c : cases) {
    test::MessageCapture capture;
    service_.Start(info_);
    kav::Messages().verbosity = c.verbosity;
    capture.Clear();
    service_.Terminate();
    EXPECT_EQ(capture.Texts(), c.messages);
    EXPECT_FALSE(service_.started());
    EXPECT_TRUE(service_.datasets().empty());
    EXPECT_FALSE(kav::Messages().image_errors.has_value());
    capture.Clear();
    service_.Terminate();  // a second call only reports the shutdown again
    EXPECT_EQ(capture.Texts(), c.messages);
    EXPECT_FALSE(service_.started());
  }
}

TEST_F(MapServiceTest, DatasetLookups) {
  test::MessageCapture capture;
  service_.Start(info_);
  capture.Clear();
  EXPECT_EQ(service_.FindDataset(""), nullptr);
  EXPECT_EQ(service_.FindDataset("defaultdataset"), nullptr);
  EXPECT_EQ(capture.Texts(),
            (Texts{"Error: NULL or empty dataset name!", "Error: Could not find dataset: defaultdataset"}));
}

TEST_F(MapServiceTest, SetupMapBindsTheDataset) {
  struct Case {
    std::optional<std::string> dataset_name;
    bool bound;
    Texts messages;
  };
  const Case cases[] = {
      {"DefaultDataset", true, {}},
      {"Elsewhere", false, {"Error: Could not find dataset: Elsewhere"}},
      {std::nullopt, false, {"Error: NULL or empty dataset name!"}},
  };
  test::MessageCapture start_quiet;
  Service().Start(info_);
  for (const Case& c : cases) {
    test::MessageCapture capture;
    auto map = CreateMapRequest();
    map->resources.SetString("DatasetName", c.dataset_name);
    EXPECT_EQ(VmpSetupMap(*map), c.bound);
    EXPECT_EQ(map->record.dataset != nullptr, c.bound);
    EXPECT_EQ(CheckMapSetup(*map), c.bound);
    Texts expected = c.messages;
    if (!c.bound) expected.push_back("Error: Unset map object, missing VmpSetupMap() call!");
    EXPECT_EQ(capture.Texts(), expected);
  }
  MapRequest bare;  // no resources at all
  test::MessageCapture capture;
  EXPECT_FALSE(VmpSetupMap(bare));
  EXPECT_EQ(capture.Texts(), Texts{"Error: Can't get map's dataset name"});
  Service().Terminate();
}

TEST_F(MapServiceTest, LayerAndFontLookupsThroughTheService) {
  test::MessageCapture capture;
  service_.Start(info_);
  Dataset* dataset = service_.FindDataset("DefaultDataset");
  EXPECT_NE(FindLayer(*dataset, "coast"), nullptr);
  EXPECT_NE(FindFont(*dataset, std::string("sans")), nullptr);
  EXPECT_EQ(FindFont(*dataset, std::string("serif"), /*quiet=*/true), nullptr);
  EXPECT_TRUE(capture.messages().empty());
}

}  // namespace
}  // namespace vmp

namespace vmp {
namespace {

// The map request's own geometry setup: parameters from its resources, the
// dataset's options and tile limits.
TEST(MapGeometrySetupTest, UsesTheMapParametersAndTheDataset) {
  test::TempDir dir;
  std::string info = dir.Write("set.sdf", "MAX IMAGE TILES=12\nMAX VECTOR TILES=7\n");
  test::MessageCapture capture;
  MapService& service = Service();
  service.Start(info);
  std::unique_ptr<MapRequest> map = CreateMapRequest();
  map->resources.SetNumber("Projection", 0);
  map->resources.SetNumber("Width", 1000);
  map->resources.SetNumber("Height", 500);
  map->resources.SetNumber("HExtent", 10);
  map->resources.SetNumber("VExtent", 10);
  map->resources.SetNumber("CenterLon", 5);
  map->resources.SetNumber("CenterLat", 0);

  // Without a bound dataset the setup refuses.
  EXPECT_FALSE(SetupMapGeometry(*map, true));
  EXPECT_TRUE(capture.Contains("Unset map object, missing VmpSetupMap() call!"));

  ASSERT_TRUE(VmpSetupMap(*map));
  ASSERT_TRUE(SetupMapGeometry(*map, true));
  EXPECT_EQ(map->geometry.half_h_extent, 10);  // widened to the 2:1 image
  EXPECT_EQ(map->geometry.half_v_extent, 5);
  EXPECT_EQ(map->geometry.min_lon, -5);
  EXPECT_EQ(service.tile_limits().max_image_tiles, 12);
  EXPECT_EQ(service.tile_limits().max_vector_tiles, 7);
  // A second setup of the same parameters gives the same geometry.
  ASSERT_TRUE(SetupMapGeometry(*map, false));
  EXPECT_EQ(map->geometry.half_h_extent, 10);
  service.Terminate();
}

}  // namespace
}  // namespace vmp
