// RenderMap on small datasets: layer kinds in list order, unknown kinds,
// the map's image anti-aliasing, and tiles kept or read again across renders.
#include "map_server/rendering/render_map.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "map_server/image/jpeg_writer.h"
#include "map_server/image/tiff_writer.h"
#include "map_server/layers/layer_string.h"
#include "map_server/service/map_service.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/rendering/render_test_util.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using test::At;
using test::Rgb3;
const char kWorld[] = "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n";

class RenderMapTest : public ::testing::Test {
 protected:
  void SetUp() override { Tiles().Clear(); }
  void TearDown() override { Tiles().Clear(); }

  void Load(const std::vector<std::pair<std::string, std::string>>& lifs) {
    std::string info;
    for (const auto& [name, lif] : lifs) info += "LAYER=" + name + " " + files_.Write(name + ".lif", lif) + "\n";
    files_.Load(info);
  }
  // Renders `layers` (a world map one pixel a degree unless `view` is
  // given) and returns the map image.
  const MapImage& Render(const std::string& layers, test::MapView view = {}, bool anti_aliasing = false) {
    map_ = test::MakeMap(files_.dataset(), view);
    map_->resources.SetNumber("ImageAntiAliasing", anti_aliasing ? 1 : 0);
    SelectMapLayers(*map_, layers);
    RenderOutput out;
    EXPECT_GE(RenderMap(*map_, false, 0, 0, out), 0);
    drawn_ = out.layers_drawn;
    return Service().map_image();
  }

  test::DatasetFiles files_;
  std::unique_ptr<MapRequest> map_;
  int64_t drawn_ = 0;
};

TEST_F(RenderMapTest, KindsInListOrderUnknownKindsAndAntiAliasing) {
  const uint8_t bw[] = {0, 0, 0, 255, 255, 255};  // west black, east white
  ASSERT_TRUE(VmpWriteTiff(nullptr, files_.dir() / "bw.tif", bw, 2, 1, 0, false));
  Load({{"base", "TYPE=BACKGROUND\nTRANS TYPE=OPAQUE\nFILL COLOR=0.2 0.4 0.6\n"},
        {"odd", "TYPE=BACKGROUND\nTRANS TYPE=OPAQUE\nFILL COLOR=1 0 0\n"},
        {"flip", "TYPE=BACKGROUND\nTRANS TYPE=XOR\nFILL COLOR=1 1 1\n"},
        {"bw", std::string("TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=bw.tif\nWIDTH=2\nHEIGHT=1\n") + kWorld}});
  files_.layer("odd").record.layer_type = 5;
  test::MessageCapture messages;
  const MapImage& image = Render("base,odd,flip");
  EXPECT_EQ(drawn_, 2);
  EXPECT_EQ(messages.Count("Cannot render layer type: 5"), 1u);
  // 51, 102, 153 XOR 255; the same on every pixel.
  for (auto [x, y] : {std::pair{0, 0}, {180, 90}, {359, 179}}) EXPECT_EQ(At(image, x, y), (Rgb3{204, 153, 102}));
  EXPECT_EQ(At(Render("bw,flip"), 100, 50), test::kWhite);  // the image under the XOR
  EXPECT_EQ(At(Render("flip,bw"), 100, 50), test::kBlack);
  // The map's ImageAntiAliasing blends the two image pixels half-way.
  EXPECT_EQ(At(Render("bw"), 170, 100), test::kBlack);
  const Rgb3 middle = At(Render("bw", {}, true), 170, 100);
  EXPECT_TRUE(middle[0] > 100 && middle[0] < 155) << middle[0];
}

TEST_F(RenderMapTest, TilesAreKeptOrReadAgainAsTheViewNeeds) {
  // A 64 x 32 world image: red, green / blue, white quadrants.
  const Rgb3 quadrants[2][2] = {{test::kRed, test::kGreen}, {test::kBlue, test::kWhite}};
  std::vector<uint8_t> pixels;
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 64; ++x)
      for (int c : quadrants[y / 16][x / 32]) pixels.push_back(static_cast<uint8_t>(c));
  ASSERT_TRUE(WriteMapJpeg(nullptr, files_.dir() / "world.jpg", pixels.data(), 64, 32));
  Load({{"world", std::string("TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=world.jpg\nWIDTH=64\nHEIGHT=32\n") + kWorld}});
  auto tile = [&] { return Tiles().FindState(&files_.layer("world"))->grid_slots.at(0); };
  // The pixels at (x0, y) and (x1, y) are near the quadrants of row `half` (JPEG loss allowed).
  auto expect_row = [&](const MapImage& image, int64_t x0, int64_t x1, int64_t y, int half) {
    for (int side = 0; side < 2; ++side) {
      const Rgb3 got = At(image, side ? x1 : x0, y), want = quadrants[half][side];
      for (int i = 0; i < 3; ++i) EXPECT_NEAR(got[i], want[i], 40) << side << " " << i;
    }
  };

  // A 32 x 16 world map needs half the tile's pixels: decoded at half size.
  const MapImage& small = Render("world", {kRectangularProjection, 0, 0, 360, 180, 32, 16});
  EXPECT_EQ(tile()->image.scale, 2);
  expect_row(small, 8, 24, 4, 0);
  expect_row(small, 8, 24, 12, 1);

  // The northern half at 64 x 32 needs every pixel, and only the northern rows.
  const test::MapView north{kRectangularProjection, 45, 0, 180, 90, 64, 32};
  const MapImage& top = Render("world", north);
  const auto full = tile();
  EXPECT_EQ(full->image.scale, 1);
  EXPECT_LT(full->image.height, 32);
  expect_row(top, 16, 48, 16, 0);
  Render("world", north);
  EXPECT_EQ(tile(), full);  // the same view: the tile is kept

  // The south is not in the tile read for the north: read again.
  const MapImage& bottom = Render("world", {kRectangularProjection, -45, 0, 180, 90, 64, 32});
  EXPECT_NE(tile(), full);
  expect_row(bottom, 16, 48, 16, 1);
}

TEST_F(RenderMapTest, VectorTilesLoadAttributesOnlyWhenTheDrawingReadsThem) {
  TvfOutput out = OpenTvfOutput(files_.dir() / "shapes.tvf");
  PolygonFeature p;
  p.points = {{-10, -10}, {10, -10}, {10, 10}, {-10, 10}, {-10, -10}};
  p.AddAttribute(0, TypedValue::Double(5));
  WriteTvfFeature(out.get(), CurrentTvfOutputFormat(), p);
  ASSERT_TRUE(CloseTvfOutput(std::move(out)));
  files_.Write("d.thr", "INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_D\n0 1\n");
  files_.Write("g.thr", "INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_G\n0 1 0 0\n");
  const std::string head =
      std::string("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=shapes.tvf\nFILL TYPE=FILL\nFILL COLOR=1 1 1\n") + kWorld;
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
  test::MessageCapture messages;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lines);
    Tiles().Clear();
    Load({{"shapes", head + c.lines}});
    const MapImage& image = Render("shapes");
    EXPECT_NE(At(image, 180, 90), test::kBlack);  // the square is drawn
    const LayerTiles* state = Tiles().FindState(&files_.layer("shapes"));
    ASSERT_TRUE(state != nullptr && !state->grid_slots.empty() && state->grid_slots.at(0) != nullptr);
    EXPECT_EQ(state->grid_slots.at(0)->vector.attributes_skipped, !c.read);
  }
  EXPECT_EQ(messages.Texts(), std::vector<std::string>{});
}

}  // namespace
}  // namespace vmp
