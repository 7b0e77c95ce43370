#include "map_server/rendering/simple_layers.h"

#include <gtest/gtest.h>

#include "map_server/rendering/render_timer.h"
#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

const PixelColour kInk{255, 255, 255, 1.0, kTransOpaque};

bool Inked(const MapImage& image, int64_t x, int64_t y) {
  const uint8_t* p = test::Pixel(image, x, y);
  return p[0] == 255 && p[1] == 255 && p[2] == 255;
}

TEST(LayerTypeTest, UnknownKindsAreReported) {
  test::MessageCapture capture;
  for (int64_t type = 0; type <= 4; ++type) EXPECT_TRUE(CheckLayerType(type));
  EXPECT_TRUE(capture.messages().empty());
  EXPECT_FALSE(CheckLayerType(5));
  EXPECT_FALSE(CheckLayerType(-1));
  EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"Error: Cannot render layer type: 5",
                                                       "Error: Cannot render layer type: -1"}));
}

TEST(BackgroundTest, FillsTheVisibleRectangleThroughTheKind) {
  Layer layer("sea");
  layer.record.layer_type = kLayerBackground;
  layer.record.drawing.fill_color = {200, 100, 0};
  layer.record.drawing.alpha = 0.5;
  MapGeometry g = test::RectGeometry(-10, 5, 1, 21, 11);
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  DrawBackgroundLayer(surface, layer);
  for (int64_t i = 0; i < 21 * 11; ++i) {
    const uint8_t* p = image.pixels() + 3 * i;
    ASSERT_EQ(p[0], 105);  // (10 + 200) / 2
    ASSERT_EQ(p[1], 60);
    ASSERT_EQ(p[2], 15);
  }
  // An orthographic clip area: only the clip is drawn.
  MapGeometryInput in;
  in.projection = kOrthographicProjection;
  in.h_extent = in.v_extent = 2 * kEquatorialRadius;
  in.width = in.height = 8;
  in.clip_area = true;
  in.clip_min_x = 2;
  in.clip_max_x = 4;
  in.clip_min_y = 1;
  in.clip_max_y = 2;
  in.dataset_options = DatasetOptions{};
  MapGeometry clipped;
  MapImage clipped_image;
  ASSERT_TRUE(SetupMapGeometry(in, clipped, clipped_image));
  ASSERT_TRUE(AllocateMapImage(clipped, clipped_image));
  DrawSurface clip_surface(&clipped_image, clipped);
  DrawBackground(clip_surface, kInk);
  EXPECT_EQ(test::Picture(clipped_image, kInk), "?????|??###|??###");  // black outside the clip
}

// Every drawn pixel is on the map next to a pixel off it, and every row's
// first and last on-map pixel is drawn where the map ends there.
void CheckOutline(const MapGeometry& g) {
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  test::MessageCapture capture;
  DrawOutline(surface, kInk);
  EXPECT_TRUE(capture.messages().empty());
  auto on = [&](int64_t x, int64_t y) { return test::PixelLatLon(g, x, y).ok; };
  int drawn = 0;
  for (int64_t y = g.min_y; y <= g.max_y; ++y) {
    int64_t first = -1, last = -1;
    for (int64_t x = g.min_x; x <= g.max_x; ++x) {
      if (on(x, y)) {
        if (first < 0) first = x;
        last = x;
      }
      if (!Inked(image, x, y)) continue;
      ++drawn;
      EXPECT_TRUE(on(x, y)) << x << "," << y;
      bool edge = false;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) edge |= !on(x + dx, y + dy);
      EXPECT_TRUE(edge) << "inside the map " << x << "," << y;
    }
    if (first < 0) continue;
    if (!on(first - 1, y)) {
      EXPECT_TRUE(Inked(image, first, y)) << "left end of row " << y;
    }
    if (!on(last + 1, y)) {
      EXPECT_TRUE(Inked(image, last, y)) << "right end of row " << y;
    }
  }
  EXPECT_GT(drawn, 0);
}

TEST(OutlineTest, EdgeOfTheGlobe) {
  CheckOutline(test::GlobeGeometry(30, 10, 61));
  // Zoomed in: the globe runs beyond the image's sides; nothing is drawn
  // along them.
  MapGeometry zoomed = test::SetUpGeometry(kOrthographicProjection, 0, 0, 1.2 * kEquatorialRadius,
                                           2.2 * kPolarRadius, 61, 41);
  CheckOutline(zoomed);
  MapImage image;
  test::FillImage(zoomed, image);
  DrawSurface surface(&image, zoomed);
  DrawOutline(surface, kInk);
  EXPECT_FALSE(Inked(image, 0, 20));
  EXPECT_FALSE(Inked(image, 60, 20));
  // The rectangular world seen past all its edges, and rotated.
  CheckOutline(test::RectGeometry(-300, 100, 0.25, 120, 50));
  MapGeometryInput in;
  in.projection = kRectangularProjection;
  in.center_lon = 150;
  in.center_lat = 60;
  in.h_extent = 120;
  in.v_extent = 80;
  in.width = 60;
  in.height = 40;
  in.angle = 30;
  in.dataset_options = DatasetOptions{};
  MapGeometry rotated;
  ASSERT_TRUE(SetupMapGeometry(in, rotated, image));
  CheckOutline(rotated);
}

TEST(TileBoundsTest, BoxEdgesAreDrawnInRed) {
  MapGeometry g = test::RectGeometry(-10, 5, 1, 21, 11);
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  const Box boxes[] = {{-5, 5, -2, 2}};
  DrawTileBounds(surface, boxes);
  const PixelColour red{255, 0, 0, 1.0, kTransOpaque};
  EXPECT_EQ(test::Picture(image, red),
            ".....................|.....................|.....................|"
            ".....###########.....|.....#.........#.....|.....#.........#.....|"
            ".....#.........#.....|.....###########.....|.....................|"
            ".....................|.....................");
}

TEST(RenderTimerTest, TimingLinesOnlyAtVerbosityMinusTwo) {
  test::MessageCapture capture;
  { RenderTimer quiet(kVectorLayerTime); }
  kav::Messages().verbosity = -2;
  {
    RenderTimer timer(kTotalRenderTime);
    timer.Finish();
  }
  ASSERT_EQ(capture.Texts().size(), 1u);
  EXPECT_EQ(capture.Texts()[0].rfind("Info: Total map rendering time: ", 0), 0u);
}

}  // namespace
}  // namespace vmp
