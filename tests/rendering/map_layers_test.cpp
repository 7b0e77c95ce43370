// Layers drawn without data files: layer types, backgrounds, outlines and
// the globe's halo, grids and their label texts, tile bounds, timing lines.
#include <gtest/gtest.h>

#include "map_server/rendering/grid_labels.h"
#include "map_server/rendering/grid_layer.h"
#include "map_server/rendering/render_timer.h"
#include "map_server/rendering/simple_layers.h"
#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using namespace vmp::test;  // colours, Canvas, geometries

TEST(SimpleLayersTest, LayerTypesBackgroundTileBoundsAndTimingLines) {
  MessageCapture capture;
  for (int64_t type = 0; type <= 4; ++type) EXPECT_TRUE(CheckLayerType(type));
  EXPECT_FALSE(CheckLayerType(5));
  EXPECT_FALSE(CheckLayerType(-1));
  EXPECT_EQ(capture.Texts(),
            (std::vector<std::string>{"Error: Cannot render layer type: 5", "Error: Cannot render layer type: -1"}));

  // A background layer blends its FillColor over the whole visible rectangle.
  Layer layer("sea");
  layer.record.drawing.fill_color = {200, 100, 0};
  layer.record.drawing.alpha = 0.5;
  Canvas c(RectGeometry(-10, 5, 1, 21, 11));  // pixel (x, y) at lon x - 10, lat 5 - y
  DrawBackgroundLayer(c.Surface(), layer);
  EXPECT_EQ(c.Count({105, 60, 15}), 21u * 11);
  // Tile bounds in red: lon -5..5, lat -2..2 is columns 5..15, rows 3..7.
  Canvas tiles(c.g);
  const Box boxes[] = {{-5, 5, -2, 2}};
  DrawTileBounds(tiles.Surface(), boxes);
  EXPECT_EQ(tiles.Count(kRed), 2u * 11 + 2 * 3);
  for (auto [x, y] : {std::pair{5, 3}, {15, 3}, {5, 7}, {15, 7}, {10, 3}, {15, 5}}) EXPECT_EQ(tiles.At(x, y), kRed);

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
  Canvas c(g);
  MessageCapture capture;
  DrawOutline(c.Surface(), Opaque(kWhite));
  EXPECT_TRUE(capture.messages().empty());
  auto on = [&](int64_t x, int64_t y) { return PixelLatLon(g, x, y).ok; };
  for (int64_t y = g.min_y; y <= g.max_y; ++y) {
    int64_t first = -1, last = -1;
    for (int64_t x = g.min_x; x <= g.max_x; ++x) {
      if (on(x, y)) {
        if (first < 0) first = x;
        last = x;
      }
      if (c.At(x, y) != kWhite) continue;
      bool edge = false;
      for (int dy = -1; dy <= 1; ++dy)
        for (int dx = -1; dx <= 1; ++dx) edge |= !on(x + dx, y + dy);
      EXPECT_TRUE(on(x, y) && edge) << x << "," << y;
    }
    if (first >= 0 && !on(first - 1, y)) {
      EXPECT_EQ(c.At(first, y), kWhite) << y;
    }
    if (last >= 0 && !on(last + 1, y)) {
      EXPECT_EQ(c.At(last, y), kWhite) << y;
    }
  }
  EXPECT_GT(c.Count(kWhite), 0u);
}

TEST(SimpleLayersTest, OutlineWhereTheMapEnds) {
  CheckOutline(GlobeGeometry(30, 10, 61));
  // Zoomed in, the globe runs beyond the image's sides: nothing drawn there.
  const MapGeometry zoomed = SetUpGeometry(kOrthographicProjection, 0, 0, 1.2 * kEquatorialRadius,
                                           2.2 * kPolarRadius, 61, 41);
  CheckOutline(zoomed);
  Canvas c(zoomed);
  DrawOutline(c.Surface(), Opaque(kWhite));
  EXPECT_TRUE(c.At(0, 20) == kBack && c.At(60, 20) == kBack);
  // The rectangular world seen past all its edges, and rotated past a pole.
  CheckOutline(RectGeometry(-300, 100, 0.25, 120, 50));
  CheckOutline(SetUpGeometry(kRectangularProjection, 60, 150, 120, 80, 60, 40, 30));
}

TEST(SimpleLayersTest, OutlineLayerWithHalo) {
  // A globe of radius 20 pixels in the middle of 61 x 61; an outline 3
  // pixels wide and a blue halo to 1.2 radii.
  Canvas c(GlobeGeometry(0, 0, 61, 2.0 / 3));
  Layer outline("outline");
  outline.record.layer_type = kLayerOutline;
  outline.record.drawing.edge_color = {255, 255, 255};
  outline.record.drawing.line_width = 3;
  outline.record.gradient_type = 1;
  outline.record.gradient_color = Rgb{0, 0, 255};
  outline.record.gradient_length = 0.2;
  DrawOutlineLayer(c.Surface(), outline);
  // The middle row: the globe's first two pixels are outline, the interior
  // is not; just off the globe the halo is bluer than the background, far
  // off it nothing is drawn.
  int64_t left = 0;
  while (!PixelLatLon(c.g, left, 30).ok) ++left;
  for (auto [x, colour] : {std::pair{left, kWhite}, {left + 1, kWhite}, {60 - left, kWhite}, {left + 5, kBack},
                           {30, kBack}, {left - 6, kBack}}) {
    EXPECT_EQ(c.At(x, 30), colour) << x;
  }
  for (int64_t x : {left - 1, left - 3}) {  // the halo's alpha falls off with the square of the distance
    const double t = (std::fabs((x - c.g.center_x) * c.g.inv_scale_x) - 1) / 0.2, a = (1 - t) * (1 - t);
    EXPECT_NEAR(c.At(x, 30)[2], 30 + 225 * a, 1) << x;
    EXPECT_NEAR(c.At(x, 30)[0], 10 - 10 * a, 1) << x;
  }
  EXPECT_TRUE(c.At(30, 0) == kBack && c.At(0, 0) == kBack);  // beyond 1.2 radii
}

TEST(GridLayerTest, IntervalsLinesAndGlobe) {
  struct Case {
    int32_t adaptive;
    double zoom;
    bool decimal;
    double interval;
  } cases[] = {{1, 1, true, 30}, {1, 10, true, 5}, {2, 1, true, 15}, {1, 100, true, 0.5}, {1, 100, false, 1.0 / 3}};
  for (const Case& c : cases) EXPECT_DOUBLE_EQ(AdaptiveGridInterval(c.adaptive, c.zoom, c.decimal), c.interval);

  // 41 x 41 pixels, pixel (x, y) at lon x - 20, lat 20 - y; parallels every
  // 10 degrees, meridians every 15 east of GridMinLon 0: columns 20, 35 and
  // rows 0, 10, 20, 30, 40 from column 20 on.
  Canvas c(RectGeometry(-20, 20, 1, 41, 41));
  Layer grid("grid");
  grid.record.layer_type = kLayerGrid;
  grid.record.drawing.edge_color = {255, 255, 255};
  grid.record.grid.lat_interval = 10;
  grid.record.grid.lon_interval = 15;
  grid.record.grid.min_lon = 0;
  const GridLines lines = ComputeGridLines(grid, c.g);
  EXPECT_EQ(lines.meridians, (std::vector<double>{0, 15}));
  EXPECT_EQ(lines.parallels, (std::vector<double>{-20, -10, 0, 10, 20}));
  LineStroker stroker;
  EdgeTables tables;
  DrawGridLayer(c.Surface(), stroker, tables, grid);
  for (int64_t i = 0; i <= 40; ++i) {
    EXPECT_EQ(c.At(35, i), kWhite) << i;
    EXPECT_EQ(c.At(i, 10), i >= 20 ? kWhite : kBack) << i;
  }
  for (auto [x, y] : {std::pair{25, 15}, {19, 5}, {21, 5}, {30, 5}, {34, 39}}) {
    EXPECT_EQ(c.At(x, y), kBack) << x << "," << y;
  }

  // On a globe centred on (0, 0) the equator and the prime meridian cross at
  // the centre pixel; nothing is drawn off the globe.
  Canvas globe(GlobeGeometry(0, 0, 61));
  grid.record.grid = GridAttributes{};
  grid.record.grid.adaptive = 1;
  DrawGridLayer(globe.Surface(), stroker, tables, grid);
  EXPECT_EQ(globe.At(30, 30), kWhite);
  EXPECT_EQ(globe.At(30, 45), kWhite);
  EXPECT_EQ(globe.At(40, 38), kBack);
  EXPECT_EQ(globe.At(2, 2), kBack);
}

GridAttributes Labels(int decimal, int label_char, const char* format = nullptr, const char* format_lon = nullptr) {
  GridAttributes a;
  a.decimal_labels = decimal;
  a.label_char = label_char;
  if (format) a.label_format = format;
  if (format_lon) a.label_format_lon = format_lon;
  return a;
}

TEST(GridLayerTest, LabelTextsAndFormats) {
  struct Case {
    GridAttributes grid;
    bool longitude;
    double value;
    const char* text;
  } cases[] = {
      {Labels(1, 1), false, 30, "30\xC2\xB0N"}, {Labels(1, 1), false, -45, "45\xC2\xB0S"},
      {Labels(1, 1), false, 3 * 0.1, "0.3\xC2\xB0N"}, {Labels(1, 1), false, -1e-12, "0\xC2\xB0"},
      {Labels(1, 1), true, -120, "120\xC2\xB0W"}, {Labels(1, 1), true, -180, "180\xC2\xB0"},
      {Labels(1, 1), true, 200, "160\xC2\xB0W"},  // placed beyond 180 on a map centred east
      {Labels(1, 2), true, 90, "E90\xC2\xB0"}, {Labels(1, 0), false, -45, "-45\xC2\xB0"},
      {Labels(0, 1), false, 45.5, "45\xC2\xB0" "30'N"}, {Labels(0, 1), true, -0.25, "0\xC2\xB0" "15'W"},
      {Labels(0, 1), false, 10 + 1 / 3600.0, "10\xC2\xB0" "0'1\"N"},
      {Labels(0, 1), false, 0.5 / 3600, "0\xC2\xB0" "0'0.5\"N"}, {Labels(0, 0), false, -0.5, "-0\xC2\xB0" "30'"},
      {Labels(1, 1, "%.1f deg"), false, -30, "30.0 degS"}, {Labels(1, 0, "%+d%%"), false, 12.6, "+13%"},
      {Labels(1, 1, "%g", "%03d"), true, -5, "005W"}, {Labels(1, 1, "%g", "%03d"), false, -5, "5S"},
      {Labels(0, 1, "%d:%02d"), false, 45.5, "45:30N"},
      {Labels(0, 1, "%dd%02dm%04.1fs"), true, 7.50625, "7d30m22.5sE"},
  };
  for (const Case& c : cases) {
    const std::optional<GridLabelFormatter> f = GridLabelFormatter::Create(c.grid, 1);
    ASSERT_TRUE(f.has_value());
    EXPECT_EQ(c.longitude ? f->Longitude(c.value) : f->Latitude(c.value), c.text) << c.value;
  }
  EXPECT_EQ(GridLabelFormatter::Create(Labels(1, 1), 0)->Latitude(10), "10\xB0N");  // Latin-1 dataset

  // Malformed formats give no labels.
  for (const char* format : {"%s", "%d and %d", "%123f", "%.1", "100%"}) {
    MessageCapture capture;
    EXPECT_FALSE(GridLabelFormatter::Create(Labels(1, 1, format), 1).has_value()) << format;
    EXPECT_TRUE(capture.Contains("Invalid grid label format")) << format;
  }
  MessageCapture capture;
  EXPECT_FALSE(GridLabelFormatter::Create(Labels(0, 1, "%d %d %d %d"), 1).has_value());
  EXPECT_FALSE(GridLabelFormatter::Create(Labels(1, 1, "%g", "%x"), 1).has_value());
}

}  // namespace
}  // namespace vmp
