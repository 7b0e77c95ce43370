#include "map_server/rendering/simple_layers.h"

#include <gtest/gtest.h>

#include "map_server/rendering/render_timer.h"
#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

const PixelColour kInk{255, 255, 255, 1.0, kTransOpaque};

TEST(SimpleLayersTest, LayerTypesBackgroundAndTimingLines) {
  test::MessageCapture capture;
  for (int64_t type = 0; type <= 4; ++type) EXPECT_TRUE(CheckLayerType(type));
  EXPECT_FALSE(CheckLayerType(5));
  EXPECT_FALSE(CheckLayerType(-1));
  EXPECT_EQ(capture.Texts(),
            (std::vector<std::string>{"Error: Cannot render layer type: 5", "Error: Cannot render layer type: -1"}));

  // A background layer blends its FillColor over the whole visible rectangle.
  Layer layer("sea");
  layer.record.drawing.fill_color = {200, 100, 0};
  layer.record.drawing.alpha = 0.5;
  MapGeometry g = test::RectGeometry(-10, 5, 1, 21, 11);
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  DrawBackgroundLayer(surface, layer);
  EXPECT_EQ(test::Picture(image, {105, 60, 15}).find_first_not_of("#|"), std::string::npos);

  capture.Clear();
  { RenderTimer quiet(kVectorLayerTime); }
  kav::Messages().verbosity = -2;
  { RenderTimer timer(kTotalRenderTime); }
  ASSERT_EQ(capture.Texts().size(), 1u);
  EXPECT_EQ(capture.Texts()[0].rfind("Info: Total map rendering time: ", 0), 0u);
}

// Every drawn pixel is on the map next to one off it, and each row's first
// and last map pixel is drawn where the map ends there.
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
      if (!test::IsColour(image, x, y, kInk)) continue;
      ++drawn;
      bool edge = false;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) edge |= !on(x + dx, y + dy);
      EXPECT_TRUE(on(x, y) && edge) << x << "," << y;
    }
    if (first >= 0 && !on(first - 1, y)) {
      EXPECT_TRUE(test::IsColour(image, first, y, kInk)) << y;
    }
    if (last >= 0 && !on(last + 1, y)) {
      EXPECT_TRUE(test::IsColour(image, last, y, kInk)) << y;
    }
  }
  EXPECT_GT(drawn, 0);
}

TEST(SimpleLayersTest, OutlineWhereTheMapEnds) {
  CheckOutline(test::GlobeGeometry(30, 10, 61));
  // Zoomed in, the globe runs beyond the image's sides: nothing drawn there.
  MapGeometry zoomed = test::SetUpGeometry(kOrthographicProjection, 0, 0, 1.2 * kEquatorialRadius,
                                           2.2 * kPolarRadius, 61, 41);
  CheckOutline(zoomed);
  MapImage image;
  test::FillImage(zoomed, image);
  DrawSurface surface(&image, zoomed);
  DrawOutline(surface, kInk);
  EXPECT_TRUE(test::IsBackground(image, 0, 20) && test::IsBackground(image, 60, 20));
  // The rectangular world seen past all its edges, and rotated past a pole.
  CheckOutline(test::RectGeometry(-300, 100, 0.25, 120, 50));
  CheckOutline(test::SetUpGeometry(kRectangularProjection, 60, 150, 120, 80, 60, 40, 30));
}

TEST(SimpleLayersTest, TileBoundsInRed) {
  MapGeometry g = test::RectGeometry(-10, 5, 1, 21, 11);  // pixel (x, y) at lon x - 10, lat 5 - y
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  const Box boxes[] = {{-5, 5, -2, 2}};
  DrawTileBounds(surface, boxes);
  const PixelColour red{255, 0, 0, 1.0, kTransOpaque};
  for (int64_t x = 5; x <= 15; ++x) EXPECT_TRUE(test::IsColour(image, x, 3, red) && test::IsColour(image, x, 7, red));
  for (int64_t y = 3; y <= 7; ++y) EXPECT_TRUE(test::IsColour(image, 5, y, red) && test::IsColour(image, 15, y, red));
  EXPECT_EQ(test::Picture(image, red).find('?'), std::string::npos);
  EXPECT_TRUE(test::IsBackground(image, 10, 5));
}

}  // namespace
}  // namespace vmp
