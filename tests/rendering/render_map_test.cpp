// RenderMap on small datasets: layer kinds in list order, unknown kinds,
// the polygon iteration guard, and tiles kept or read again across renders.
#include "map_server/rendering/render_map.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "map_server/image/jpeg_writer.h"
#include "map_server/layers/layer_string.h"
#include "map_server/service/map_service.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"
#include "toolkit/global_config.h"

namespace vmp {
namespace {

const char kWorld[] = "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n";

class RenderMapTest : public ::testing::Test {
 protected:
  void SetUp() override { Tiles().Clear(); }
  void TearDown() override {
    Tiles().Clear();
    kav::Config().vmp_iteration_max = saved_iteration_max_;
  }

  void Load(const std::vector<std::pair<std::string, std::string>>& lifs) {
    std::string info;
    for (const auto& [name, lif] : lifs) info += "LAYER=" + name + " " + files_.Write(name + ".lif", lif) + "\n";
    files_.Load(info);
  }
  // Renders `layers` (a world map one pixel a degree unless `view` is
  // given) and returns the map image.
  const MapImage& Render(const std::string& layers, test::MapView view = {}) {
    map_ = test::MakeMap(files_.dataset(), view);
    SelectMapLayers(*map_, layers);
    RenderOutput out;
    EXPECT_GE(RenderMap(*map_, false, 0, 0, out), 0);
    drawn_ = out.layers_drawn;
    return Service().map_image();
  }
  static std::array<int, 3> At(const MapImage& image, int64_t x, int64_t y) {
    const uint8_t* p = image.pixels() + (image.width() * y + x) * 3;
    return {p[0], p[1], p[2]};
  }

  test::DatasetFiles files_;
  std::unique_ptr<MapRequest> map_;
  int64_t drawn_ = 0;
  double saved_iteration_max_ = kav::Config().vmp_iteration_max;
};

TEST_F(RenderMapTest, KindsInListOrderAndUnknownKindsSkipped) {
  Load({{"base", "TYPE=BACKGROUND\nTRANS TYPE=OPAQUE\nFILL COLOR=0.2 0.4 0.6\n"},
        {"odd", "TYPE=BACKGROUND\nTRANS TYPE=OPAQUE\nFILL COLOR=1 0 0\n"},
        {"flip", "TYPE=BACKGROUND\nTRANS TYPE=XOR\nFILL COLOR=1 1 1\n"}});
  files_.layer("odd").record.layer_type = 5;
  test::MessageCapture messages;
  const MapImage& image = Render("base,odd,flip");
  EXPECT_EQ(drawn_, 2);
  EXPECT_EQ(messages.Count("Cannot render layer type: 5"), 1u);
  // 51, 102, 153 XOR 255; the same on every pixel.
  for (auto [x, y] : {std::pair{0, 0}, {180, 90}, {359, 179}}) EXPECT_EQ(At(image, x, y), (std::array{204, 153, 102}));
  EXPECT_EQ(At(Render("flip"), 100, 50), (std::array{255, 255, 255}));  // over the black map background
}

TEST_F(RenderMapTest, IterationGuardAbandonsOnlyTheRunawayPolygon) {
  TvfOutput out = OpenTvfOutput(files_.dir() / "shapes.tvf");
  for (auto [lon0, lat0, lon1, lat1] : {std::array{-50.0, -60.0, 50.0, 60.0}, std::array{100.0, 0.0, 110.0, 10.0}}) {
    PolygonFeature p;
    p.points = {{lon0, lat0}, {lon1, lat0}, {lon1, lat1}, {lon0, lat1}, {lon0, lat0}};
    WriteTvfFeature(out.get(), TvfFormat::kAscii, p);
  }
  CloseTvfOutput(std::move(out));
  Load({{"shapes", std::string("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=shapes.tvf\nFILL TYPE=FILL\n"
                               "FILL COLOR=0 1 0\n") + kWorld}});
  kav::Config().vmp_iteration_max = 40;
  test::MessageCapture messages;
  const MapImage& image = Render("shapes");
  EXPECT_EQ(messages.Count("Detected hanging while rendering filled polygons"), 1u);
  EXPECT_EQ(messages.Count("breaking out after iteration: 41"), 1u);
  EXPECT_EQ(messages.Count("increase $config/VmpIterationMax."), 1u);
  EXPECT_EQ(At(image, 180, 85), (std::array{0, 0, 0}));     // the big square's 120 rows stopped at 40
  EXPECT_EQ(At(image, 285, 85), (std::array{0, 255, 0}));   // the small one is drawn
}

TEST_F(RenderMapTest, TilesAreKeptOrReadAgainAsTheViewNeeds) {
  // A 64 x 32 world image: red, green / blue, white quadrants.
  std::vector<uint8_t> pixels(64 * 32 * 3);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 64; ++x) {
      const std::array<uint8_t, 3> c = y < 16 ? (x < 32 ? std::array<uint8_t, 3>{255, 0, 0} : std::array<uint8_t, 3>{0, 255, 0})
                                              : (x < 32 ? std::array<uint8_t, 3>{0, 0, 255} : std::array<uint8_t, 3>{255, 255, 255});
      std::copy(c.begin(), c.end(), pixels.begin() + (y * 64 + x) * 3);
    }
  ASSERT_TRUE(WriteMapJpeg(nullptr, files_.dir() / "world.jpg", pixels.data(), 64, 32));
  Load({{"world", std::string("TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=world.jpg\nWIDTH=64\nHEIGHT=32\n") + kWorld}});
  auto tile = [&] { return Tiles().FindState(&files_.layer("world"))->grid_slots.at(0); };
  auto near = [](std::array<int, 3> got, std::array<int, 3> want) {
    for (int i = 0; i < 3; ++i)
      if (std::abs(got[i] - want[i]) > 40) return false;
    return true;
  };
  const std::array red{255, 0, 0}, green{0, 255, 0}, blue{0, 0, 255}, white{255, 255, 255};

  // A 32 x 16 world map needs half the tile's pixels: decoded at half size.
  const MapImage& small = Render("world", {kRectangularProjection, 0, 0, 360, 180, 32, 16});
  EXPECT_EQ(tile()->image.scale, 2);
  EXPECT_TRUE(near(At(small, 8, 4), red) && near(At(small, 24, 4), green));
  EXPECT_TRUE(near(At(small, 8, 12), blue) && near(At(small, 24, 12), white));

  // The northern half at 64 x 32 needs every pixel, and only the northern rows.
  const test::MapView north{kRectangularProjection, 45, 0, 180, 90, 64, 32};
  const MapImage& top = Render("world", north);
  const auto full = tile();
  EXPECT_EQ(full->image.scale, 1);
  EXPECT_LT(full->image.height, 32);
  EXPECT_TRUE(near(At(top, 16, 16), red) && near(At(top, 48, 16), green));
  Render("world", north);
  EXPECT_EQ(tile(), full);  // the same view: the tile is kept

  // The south is not in the tile read for the north: read again.
  const MapImage& bottom = Render("world", {kRectangularProjection, -45, 0, 180, 90, 64, 32});
  EXPECT_NE(tile(), full);
  EXPECT_TRUE(near(At(bottom, 16, 16), blue) && near(At(bottom, 48, 16), white));
}

TEST_F(RenderMapTest, VectorTilesLoadAttributesOnlyWhenTheDrawingReadsThem) {
  TvfOutput out = OpenTvfOutput(files_.dir() / "shapes.tvf");
  PolygonFeature p;
  p.points = {{-10, -10}, {10, -10}, {10, 10}, {-10, 10}, {-10, -10}};
  p.AddAttribute(0, TypedValue::Double(5));
  WriteTvfFeature(out.get(), TvfFormat::kBinary, p);
  CloseTvfOutput(std::move(out));
  files_.Write("d.thr", "INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_D\n0 1\n");
  files_.Write("g.thr", "INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_G\n0 1 0 0\n");
  const std::string head = std::string("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=shapes.tvf\nFILL TYPE=FILL\n") + kWorld;
  struct Case {
    const char* lines;
    bool read;
  } cases[] = {
      {"", false},
      // A map serving only labels, while the labels are out of their zoom range.
      {"CUSTOM ATTR=200 prio VMP_D\nATTR MAP=prio LabelPriority@0 d.thr ABS\nLABEL MIN ZOOM=1000\n", false},
      {"CUSTOM ATTR=200 prio VMP_D\nATTR MAP=prio LabelPriority@0 d.thr ABS\n", true},
      // Maps that change the drawing: on an attribute, and on the zoom.
      {"CUSTOM ATTR=200 fill VMP_G\nATTR MAP=fill FillColor@0 g.thr ABS\nLABEL MIN ZOOM=1000\n", true},
      {"CUSTOM ATTR=200 fill VMP_G\nATTR MAP=fill FillColor g.thr ABS\n", false},
      {"ATTR COND=@0==5\n", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lines);
    Tiles().Clear();
    Load({{"shapes", head + c.lines}});
    Render("shapes");
    const LayerTiles* state = Tiles().FindState(&files_.layer("shapes"));
    ASSERT_NE(state, nullptr);
    ASSERT_FALSE(state->grid_slots.empty());
    ASSERT_NE(state->grid_slots.at(0), nullptr);
    EXPECT_EQ(state->grid_slots.at(0)->vector.attributes_skipped, !c.read);
  }
}

}  // namespace
}  // namespace vmp
