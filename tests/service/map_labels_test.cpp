// Labels end to end: a marker's label and grid labels drawn where they
// belong on a GetMap, and GetSelection finding a feature by its label.
#include <gtest/gtest.h>

#include "map_server/image/image_loader.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

class MapLabelsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // A labelled marker at (0, 0) without a symbol: pixel (180, 90) of a 361 x 181 world map.
    MarkerFeature marker;
    marker.marker_type = static_cast<uint32_t>(MarkerType::kLabeled);
    marker.label = "WWW";
    marker.AddAttribute(1, TypedValue::String("Zero"));
    TvfOutput out = OpenTvfOutput(dir_ / "places.tvf");
    WriteTvfFeature(out.get(), TvfFormat::kAscii, marker);
    CloseTvfOutput(std::move(out));
    dir_.Write("places.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=places.tvf\nFONT SCALE=2\nTEXT TYPE=FLAT\n"
                             "VTEXT LINE WIDTH=3\nLABEL COLOR=1 0 0\n");
    // Meridians every 60 degrees labelled in green at the bottom edge, parallels at the left.
    dir_.Write("grid.lif", "TYPE=GRID\nTRANS TYPE=OPAQUE\nGRID LAT INTERVAL=30\nGRID LON INTERVAL=60\n"
                           "EDGE COLOR=0 0 1\nGRID LABELS=1\nROTATE LON LABELS=0\nTEXT ANCHOR=HLEFT VBOTTOM\n"
                           "FONT SCALE=1.5\nVTEXT LINE WIDTH=2\nLABEL COLOR=0 1 0\n");
    dataset_ = dir_.Write("set.sdf", "LAYER=places places.lif\nLAYER=grid grid.lif\n");
  }

  test::RunResult Request(const std::string& query, const std::string& output = "") {
    std::vector<std::string> args = {"-generate", "-dataset", dataset_, "-oGISreq",
                                     "VERSION=1.3.0&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=361&HEIGHT=181&" + query};
    if (!output.empty()) args.insert(args.end(), {"-output", output});
    return test::RunMapServer(args);
  }

  // Pixels of a colour (channel 0 red, 1 green) in a rectangle, allowing for JPEG loss.
  static int Count(const LoadedImage& image, int channel, int x0, int y0, int x1, int y1) {
    int n = 0;
    for (int y = y0; y <= y1; ++y)
      for (int x = x0; x <= x1; ++x) {
        const uint8_t* p = image.pixels.data() + (y * image.width + x) * 3;
        n += p[channel] > 150 && p[(channel + 1) % 3] < 90 && p[(channel + 2) % 3] < 90;
      }
    return n;
  }

  test::TempDir dir_;
  std::string dataset_;
};

TEST_F(MapLabelsTest, MarkerAndGridLabelsAreDrawnWhereTheyBelong) {
  const std::string file = dir_ / "map.jpg";
  test::RunResult r = Request("REQUEST=GetMap&FORMAT=image/jpeg&LAYERS=places,grid", file);
  ASSERT_EQ(r.status, 0) << r.err;
  LoadedImage image;
  ASSERT_TRUE(LoadImageFile(file, kJpegFormat, false, image));
  // HLEFT VTOP: the text hangs right of and below the marker, 20-pixel capitals.
  EXPECT_GT(Count(image, 0, 181, 91, 260, 114), 100);
  EXPECT_EQ(Count(image, 0, 0, 0, 360, 180), Count(image, 0, 178, 88, 265, 118));
  // Meridian labels sit on the bottom edge right of their line (lon 60 at x = 240), parallel
  // labels on the left edge above theirs (lat 30 at y = 60); none in the map's middle.
  EXPECT_GT(Count(image, 1, 241, 160, 290, 177), 20);
  EXPECT_GT(Count(image, 1, 3, 40, 40, 59), 20);
  EXPECT_EQ(Count(image, 1, 70, 20, 360, 140), 0);
}

TEST_F(MapLabelsTest, SelectionFindsTheFeatureUnderItsLabel) {
  struct Case {
    const char* mode;
    int i, j;
    bool found;
  } cases[] = {
      {"NONE", 230, 100, false},   // on the label, far from the marker
      {"YES", 230, 100, true},     // the view's labels as the map shows them
      {"INTILE", 230, 100, false}, // the marker is too far from the point to be looked at
      {"INTILE", 188, 100, true},  // near enough
      {"YES", 100, 100, false},    // nothing there
  };
  for (const Case& c : cases) {
    test::RunResult r = Request(std::string("REQUEST=GetSelection&FORMAT=text/plain&LAYERS=places&SELECT_LABELS=") +
                                c.mode + "&I=" + std::to_string(c.i) + "&J=" + std::to_string(c.j));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.find("<Zero>") != std::string::npos, c.found) << c.mode << " " << c.i << "\n" << r.out;
  }
  // Hit by its shape and its label: listed once.
  test::RunResult both = Request("REQUEST=GetSelection&FORMAT=text/plain&LAYERS=places&SELECT_LABELS=YES&I=182&J=92");
  EXPECT_EQ(both.out.find("<Zero>"), both.out.rfind("<Zero>")) << both.out;
  EXPECT_NE(both.out.find("<Zero>"), std::string::npos);
}

}  // namespace
}  // namespace vmp
