#include "map_server/geometry/map_geometry.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/map_image.h"
#include "tests/geometry/geometry_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::Orthographic;
using test::Rectangular;

struct SetupResult {
  MapGeometry g;
  MapImage image;
  bool ok = false;
  explicit SetupResult(const MapGeometryInput& in) { ok = SetupMapGeometry(in, g, image); }
};

TEST(MapGeometrySetupTest, AspectCorrectionAndScale) {
  struct Case {
    int64_t width, height;
    double h_extent, v_extent;
    int64_t stretch;
    double expect_h, expect_v;
  } cases[] = {{1000, 500, 10, 10, 0, 20, 10},
               {500, 1000, 10, 10, 0, 10, 20},
               {1000, 500, 30, 10, 0, 30, 15},
               {1000, 500, 20, 10, 0, 20, 10},
               {1000, 500, 10, 10, 1, 10, 10}};
  for (const Case& c : cases) {
    MessageCapture capture;
    MapGeometryInput in = Rectangular(0, 0, c.h_extent, c.v_extent, c.width, c.height);
    in.stretch = c.stretch;
    SetupResult s(in);
    ASSERT_TRUE(s.ok);
    EXPECT_DOUBLE_EQ(2 * s.g.half_h_extent, c.expect_h) << c.width << "x" << c.height;
    EXPECT_DOUBLE_EQ(2 * s.g.half_v_extent, c.expect_v) << c.width << "x" << c.height;
    EXPECT_DOUBLE_EQ(s.g.min_lon, -c.expect_h / 2);
    EXPECT_DOUBLE_EQ(s.g.max_lat, c.expect_v / 2);
    EXPECT_DOUBLE_EQ(s.g.scale_x, (c.width - 1) / c.expect_h);
    EXPECT_DOUBLE_EQ(s.g.scale_y, (c.height - 1) / c.expect_v);
  }
}

TEST(MapGeometrySetupTest, VerbosityReports) {
  struct Case {
    int64_t verbosity, stretch;
    bool sizes, zoom;
    const char *stretch_text, *extent_text, *zoom_text;
  } cases[] = {
      {0, 0, false, false, "Stretching is OFF.", "ExtentX is: 20", "Zoom factor is: 18"},
      {1, 0, false, true, "Stretching is OFF.", "ExtentX is: 20", "Zoom factor is: 18"},
      {2, 0, true, true, "Info: Stretching is OFF.", "Info: ExtentX is: 20", "Zoom factor is: 18"},
      {2, 1, true, true, "Info: Stretching is ON.", "Info: ExtentX is: 10", "Zoom factor is: 36"}};
  for (const Case& c : cases) {
    MessageCapture capture;
    MapGeometryInput in = Rectangular(10, 20, 10, 10, 1000, 500);
    in.verbosity = c.verbosity;
    in.stretch = c.stretch;
    ASSERT_TRUE(SetupResult(in).ok);
    EXPECT_EQ(capture.Contains(c.stretch_text), c.sizes) << c.verbosity;
    EXPECT_EQ(capture.Contains(c.extent_text), c.sizes);
    EXPECT_EQ(capture.Contains("Info: Width is: 1000") &&
                  capture.Contains("Info: CenterX is: 20") &&
                  capture.Contains("Info: CenterY is: 10"),
              c.sizes);
    EXPECT_EQ(capture.Contains(c.zoom_text), c.zoom) << c.verbosity;
  }
}

TEST(MapGeometrySetupTest, SizeCheckAndItsExceptions) {
  struct Case {
    int64_t width, height;
    bool clip_area;
    int64_t clip_max_x;
    const char* huge_env;  // null: unset
    bool ok;
  } cases[] = {{10000, 100, false, 0, nullptr, true},     {10001, 100, false, 0, nullptr, false},
               {100, 10001, false, 0, nullptr, false},    {10001, 100, true, 9999, nullptr, true},
               {10001, 100, true, 10000, nullptr, false}, {10001, 100, false, 0, "true", true},
               {10001, 100, false, 0, "false", false},    {10001, 100, false, 0, "TRUE", false},
               {1, 100, false, 0, "true", false},         {100, 1, false, 0, nullptr, false},
               {-5, 100, false, 0, nullptr, false}};
  for (const Case& c : cases) {
    if (c.huge_env)
      setenv("KAV_ALLOW_HUGE_IMAGE", c.huge_env, 1);
    else
      unsetenv("KAV_ALLOW_HUGE_IMAGE");
    for (bool ortho : {false, true}) {
      MessageCapture capture;
      MapGeometryInput in = ortho ? Orthographic(0, 0, 1e6, 1e6, c.width, c.height)
                                  : Rectangular(0, 0, 10, 10, c.width, c.height);
      in.clip_area = c.clip_area;
      in.clip_max_x = c.clip_max_x;
      in.clip_max_y = 99;
      in.background[0] = 10;
      in.background[2] = 30;
      SetupResult s(in);
      const std::string label = std::to_string(c.width) + "x" + std::to_string(c.height);
      EXPECT_EQ(s.ok, c.ok) << label << " ortho " << ortho;
      EXPECT_EQ(capture.Contains("Error: Invalid Width/Height"), !c.ok) << label;
      if (c.ok) continue;
      // An image can still be returned: 1 x 1 of the background colour.
      ASSERT_EQ(s.image.width() * s.image.height(), 1) << label;
      EXPECT_EQ(std::vector<uint8_t>(s.image.pixels(), s.image.pixels() + 3),
                (std::vector<uint8_t>{10, 0, 30}));
      EXPECT_FALSE(s.g.clip_area);
      EXPECT_EQ(s.g.end_x + s.g.end_y, 2);
    }
  }
  unsetenv("KAV_ALLOW_HUGE_IMAGE");
}

TEST(MapGeometrySetupTest, OtherFailures) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  auto with = [](auto change) {
    MapGeometryInput in = Rectangular(0, 0, 10, 10, 100, 100);
    change(in);
    return in;
  };
  struct Case {
    const char* name;
    MapGeometryInput in;
    const char* text;  // the only message
    int64_t image_width;
  } cases[] = {{"no dataset", with([](auto& in) { in.dataset_options.reset(); }),
                "Error: Unset map object, missing VmpSetupMap() call!", 0},
               {"projection 1", with([](auto& in) { in.projection = 1; }),
                "Error: Only support orthographic and rectangular projections for now", 0},
               {"bad size in a location query",
                with([](auto& in) { in.width = 1, in.location_query = true; }),
                "Error: Invalid Width/Height", 0},
               {"zero extent", with([](auto& in) { in.h_extent = 0; }),
                "Error: Invalid map geometry parameter: HExtent: 0", 1},
               {"negative extent", with([](auto& in) { in.v_extent = -1; }),
                "Error: Invalid map geometry parameter: VExtent: -1", 1},
               {"NaN centre", with([&](auto& in) { in.center_lat = nan; }),
                "Error: Invalid map geometry parameter: CenterLat", 1},
               {"infinite angle", with([](auto& in) { in.angle = INFINITY; }),
                "Error: Invalid map geometry parameter: Angle", 1}};
  for (const Case& c : cases) {
    MessageCapture capture;
    SetupResult s(c.in);
    EXPECT_FALSE(s.ok) << c.name;
    ASSERT_EQ(capture.Texts().size(), 1u) << c.name;
    EXPECT_EQ(capture.Texts()[0].substr(0, std::strlen(c.text)), c.text) << c.name;
    EXPECT_EQ(s.image.width(), c.image_width) << c.name;
  }
}

TEST(MapGeometrySetupTest, ClipArea) {
  MessageCapture capture;
  MapGeometryInput in = Orthographic(0, 0, 2e6, 2e6, 200, 100);
  in.clip_area = true;
  in.clip_min_x = -5;
  in.clip_min_y = -1;
  in.clip_max_x = 150;
  in.clip_max_y = 80;
  SetupResult ortho(in);
  ASSERT_TRUE(ortho.ok);
  EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"Error: Invalid ClipMinX < 0",
                                                       "Error: Invalid ClipMinY < 0"}));
  // The orthographic view is the clip area; the rectangular one is not restricted.
  const MapGeometry& g = ortho.g;
  EXPECT_EQ((std::vector<int64_t>{g.clip_min_x, g.clip_min_y, g.min_x, g.max_x, g.min_y, g.max_y,
                                  g.end_x, g.end_y}),
            (std::vector<int64_t>{0, 0, 0, 150, 0, 80, 151, 81}));
  in.projection = kRectangularProjection;
  in.h_extent = in.v_extent = 10;
  SetupResult rect(in);
  ASSERT_TRUE(rect.ok);
  EXPECT_EQ((std::vector<int64_t>{rect.g.max_x, rect.g.max_y, rect.g.end_x, rect.g.end_y}),
            (std::vector<int64_t>{199, 99, 200, 100}));
}

TEST(MapGeometrySetupTest, CentreAt170ShowsLongitudesPast180) {
  MessageCapture capture;
  SetupResult s(Rectangular(0, 170, 60, 30, 601, 301));
  ASSERT_TRUE(s.ok);
  EXPECT_DOUBLE_EQ(s.g.min_lon, 140);
  EXPECT_DOUBLE_EQ(s.g.max_lon, 200);
  EXPECT_EQ(s.g.max_x, 600);  // nothing clamped: 200 is within 170 + 180
  const double xs[] = {0, 300, 400, 401, 500, 600}, lons[] = {140, 170, 180, -179.9, -170, -160};
  for (int i = 0; i < 6; ++i) {
    LatLonPoint p = PixelToLatLon(s.g, xs[i], 150);
    EXPECT_TRUE(p.ok);
    EXPECT_NEAR(p.lon, lons[i], 1e-9) << xs[i];
  }
}

TEST(MapGeometrySetupTest, VisibleRectangleShowsOnlyTheWorld) {
  struct Case {
    double lat, h_extent, v_extent, angle;
    int64_t width, height;
    int64_t min_x, max_x, min_y, max_y;
  } cases[] = {// Latitude 90 lies at row (100 - 90) * 399 / 40 = 99.75, rounded to 100.
               {80, 40, 40, 0, 400, 400, 0, 399, 100, 399},
               {-80, 40, 40, 0, 400, 400, 0, 399, 0, 299},
               // Twice the world: lon -180 at column 180 * 999 / 720 = 249.75.
               {0, 720, 360, 0, 1000, 500, 250, 749, 125, 374},
               // Rotated views keep the whole image.
               {80, 40, 40, 30, 400, 300, 0, 399, 0, 299}};
  for (const Case& c : cases) {
    MessageCapture capture;
    MapGeometryInput in = Rectangular(c.lat, 0, c.h_extent, c.v_extent, c.width, c.height);
    in.angle = c.angle;
    SetupResult s(in);
    ASSERT_TRUE(s.ok);
    EXPECT_EQ((std::vector<int64_t>{s.g.min_x, s.g.max_x, s.g.min_y, s.g.max_y}),
              (std::vector<int64_t>{c.min_x, c.max_x, c.min_y, c.max_y}))
        << c.lat << " " << c.h_extent << " angle " << c.angle;
    EXPECT_EQ(s.g.max_y_d, static_cast<double>(c.max_y));
    if (c.angle != 0) continue;
    EXPECT_TRUE(PixelToLatLon(s.g, s.g.min_x, s.g.min_y).ok);
    EXPECT_TRUE(PixelToLatLon(s.g, s.g.max_x, s.g.max_y).ok);
    if (c.min_y > 0) {
      EXPECT_FALSE(PixelToLatLon(s.g, s.g.min_x, s.g.min_y - 1).ok);
    }
  }
}

TEST(MapGeometrySetupTest, ScrolledOutOfRange) {
  for (int64_t verbosity : {0, 1}) {
    MessageCapture capture;
    MapGeometryInput in = Rectangular(200, 0, 40, 40, 400, 400);
    in.verbosity = verbosity;
    SetupResult s(in);
    EXPECT_TRUE(s.ok);
    EXPECT_EQ(capture.Contains("Info: Scrolled out of range in rectangular projection"),
              verbosity >= 1);
    EXPECT_GT(s.g.min_y, s.g.max_y);  // nothing of the world is visible
  }
}

TEST(MapGeometrySetupTest, ZoomPixelSizeSmallViewAndOptions) {
  struct Case {
    double h_extent, v_extent, zoom;
    bool small_view;
  } cases[] = {{360, 180, 1, false}, {200, 100, 1.8, true}, {202, 101, 180 / 101.0, false}};
  for (const Case& c : cases) {
    MessageCapture capture;
    MapGeometryInput in = Rectangular(0, 0, c.h_extent, c.v_extent, 1000, 500);
    in.dataset_options = DatasetOptions{0.9, 2.5, 12.9, -1.5};
    SetupResult s(in);
    ASSERT_TRUE(s.ok);
    EXPECT_DOUBLE_EQ(s.g.zoom, c.zoom) << c.h_extent;
    EXPECT_EQ(s.g.small_view, c.small_view) << c.h_extent;
    EXPECT_EQ(s.g.apply_alias_boxes, c.small_view);
    EXPECT_NEAR(s.g.pixel_size, c.h_extent / 999, 1e-12);  // the smaller (longitude) step
    EXPECT_EQ((std::vector<int64_t>{s.g.encoding, s.g.glyph_cache_type, s.g.max_image_tiles,
                                    s.g.max_vector_tiles}),
              (std::vector<int64_t>{0, 2, 12, -1}));
  }
}

TEST(MapGeometrySetupTest, Orthographic) {
  struct Case {
    double metres, lat;
    int64_t size;
    bool small_view;
  } cases[] = {{2 * kEquatorialRadius, 35, 512, false},
               {2 * kEquatorialRadius, 0, 513, false},
               {1e6, 45, 512, true},
               {1e6, 91, 512, false},
               {8e6, 0, 400, false}};
  for (const Case& c : cases) {
    MessageCapture capture;
    SetupResult s(Orthographic(c.lat, 190, c.metres, c.metres * kPolarRadius / kEquatorialRadius,
                               c.size, c.size));
    ASSERT_TRUE(s.ok);
    // Square pixels widen the vertical extent to the horizontal one; each
    // half is then normalised by its own radius.
    const double h = c.metres / 2 / kEquatorialRadius, v = c.metres / 2 / kPolarRadius;
    EXPECT_DOUBLE_EQ(s.g.half_h_extent, h);
    EXPECT_DOUBLE_EQ(s.g.half_v_extent, v);
    EXPECT_DOUBLE_EQ(s.g.scale_y, s.g.center_y / v);
    EXPECT_DOUBLE_EQ(s.g.zoom, std::max(1 / h, 1 / v));
    EXPECT_EQ(s.g.small_view, c.small_view) << c.metres << " " << c.lat;
    LatLonPoint centre = PixelToLatLon(s.g, s.g.center_x, s.g.center_y);
    EXPECT_TRUE(centre.ok);
    EXPECT_EQ(centre.lat, c.lat > 90 ? 89 : c.lat);  // exact, and normalised
    EXPECT_EQ(centre.lon, c.lat > 90 ? 10 : -170);
    if (c.metres < 2 * kEquatorialRadius) continue;
    LatLonPoint corner = PixelToLatLon(s.g, 0, static_cast<double>(c.size - 1));
    EXPECT_FALSE(corner.ok);
    EXPECT_EQ(corner.lat + corner.lon, 2 * kInvalidCoordinate);
  }
  // Small only when both normalised half extents are.
  MessageCapture capture;
  MapGeometryInput wide = Orthographic(0, 0, 8e6, 1e6, 400, 400);
  wide.stretch = 1;
  EXPECT_FALSE(SetupResult(wide).g.small_view);
}

TEST(MapGeometrySetupTest, LocationQuery) {
  auto query = [](MapGeometryInput in, double i, double j, double radius = kDefaultSearchRadius) {
    in.location_query = true;
    in.location_i = i;
    in.location_j = j;
    in.search_radius = radius;
    return in;
  };
  const MapGeometryInput rect = Rectangular(0, 0, 20, 10, 201, 101);
  MapGeometryInput clipped = Orthographic(0, 0, 2e6, 2e6, 513, 513);
  clipped.clip_area = true;
  clipped.clip_min_x = clipped.clip_min_y = 250;
  clipped.clip_max_x = clipped.clip_max_y = 300;
  const MapGeometryInput globe =
      Orthographic(0, 0, 2 * kEquatorialRadius, 2 * kEquatorialRadius, 513, 513);
  struct Case {
    const char* label;
    MapGeometryInput in;
    bool ok;
    std::vector<int64_t> box;
  } cases[] = {{"middle", query(rect, 100, 50), true, {95, 105, 45, 55}},
               {"corner clamps", query(rect, 2, 99), true, {0, 7, 94, 100}},
               {"radius truncated", query(rect, 100, 50, 2.9), true, {98, 102, 48, 52}},
               {"box clamped to clip", query(clipped, 252, 298), true, {250, 257, 293, 300}},
               {"outside image", query(rect, 201, 50), false, {}},
               {"negative", query(rect, -1, 50), false, {}},
               {"below image", query(rect, 10, 101), false, {}},
               {"off the globe", query(globe, 0, 0), false, {}},
               {"box outside clip", query(clipped, 256, 200), false, {}}};
  for (const Case& c : cases) {
    MessageCapture capture;
    SetupResult s(c.in);
    EXPECT_EQ(s.ok, c.ok) << c.label;
    EXPECT_TRUE(capture.messages().empty()) << c.label;  // failures are silent
    EXPECT_EQ(s.image.width(), 0) << c.label;
    if (c.ok) {
      EXPECT_EQ((std::vector<int64_t>{s.g.search_x_from, s.g.search_x_to, s.g.search_y_from,
                                      s.g.search_y_to}),
                c.box)
          << c.label;
    }
  }

  MessageCapture capture;
  MapGeometryInput in = query(rect, 150, 25);
  in.stretch = 1;  // 10 pixels a degree both ways
  SetupResult plain(in);
  EXPECT_NEAR(plain.g.location_lon, 5, 1e-12);
  EXPECT_NEAR(plain.g.location_lat, 2.5, 1e-12);
  // Past 180 the inverse wraps west; the query keeps the world of the centre.
  SetupResult wrapped(query(Rectangular(0, 170, 60, 30, 601, 301), 500, 150));
  EXPECT_NEAR(wrapped.g.location_lon, 190, 1e-9);
  // Orthographic: the queried row counts from the top (row 100 is north).
  SetupResult ortho(query(globe, 256, 100));
  EXPECT_GT(ortho.g.location_lat, 30);
  EXPECT_NEAR(ortho.g.location_lon, 0, 1e-9);
}

}  // namespace
}  // namespace vmp
