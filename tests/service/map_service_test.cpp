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
    info_ = dir_.Write("set.sdf", "LAYER DIR=layers\nLAYER=coast, coast.lif\n");
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
  Report(kWarning, "before");
  service_.Start(info_);
  Report(kWarning, "after");  // collected once started
  EXPECT_EQ(*kav::Messages().image_errors, Texts{"Warning: after"});
  capture.Clear();
  EXPECT_TRUE(service_.started());
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

// A font library that fails and a missing info file are reported; start-up goes on.
TEST_F(MapServiceTest, StartUpProblems) {
  service_.set_font_library_init([](FT_LibraryRec_**) { return 1; });
  test::MessageCapture capture;
  service_.Start(info_);
  EXPECT_EQ(capture.Texts(), Texts{"Internal Error: Error occurred during freetype font library initialization"});
  EXPECT_EQ(service_.font_library(), nullptr);
  EXPECT_EQ(service_.FindDataset("DefaultDataset")->layers.size(), 1u);

  MapService other;
  capture.Clear();
  other.Start(dir_ / "missing.sdf");
  EXPECT_EQ(capture.Texts(), Texts{"Error: Cannot open dataset info file: " + dir_ / "missing.sdf"});
  ASSERT_NE(other.FindDataset("DefaultDataset"), nullptr);
  EXPECT_TRUE(other.FindDataset("DefaultDataset")->layers.empty());
  other.Terminate();
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

TEST_F(MapServiceTest, SetupMapBindsTheDataset) {
  struct Case {
    std::optional<std::string> dataset_name;
    bool bound;
    Texts messages;
  };
  const Case cases[] = {
      {"DefaultDataset", true, {}},
      {"defaultdataset", false, {"Error: Could not find dataset: defaultdataset"}},  // names are exact
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

// The map request's own geometry setup: parameters from its resources, the
// dataset's options and tile limits.
TEST(MapGeometrySetupTest, UsesTheMapParametersAndTheDataset) {
  test::TempDir dir;
  std::string info = dir.Write("set.sdf", "MAX IMAGE TILES=12\nMAX VECTOR TILES=7\n");
  test::MessageCapture capture;
  MapService& service = Service();
  service.Start(info);
  std::unique_ptr<MapRequest> map = CreateMapRequest();
  for (const auto& [name, value] : {std::pair{"Projection", 0}, {"Width", 1000}, {"Height", 500}, {"HExtent", 10},
                                    {"VExtent", 10}, {"CenterLon", 5}, {"CenterLat", 0}}) {
    map->resources.SetNumber(name, value);
  }

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
