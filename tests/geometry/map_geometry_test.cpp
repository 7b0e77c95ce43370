#include "map_server/geometry/map_geometry.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cmath>
#include <limits>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/map_image.h"
#include "tests/geometry/geometry_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::OrthographicInput;
using test::RectangularInput;

struct SetupResult {
  MapGeometry g;
  MapImage image;
  bool ok = false;
  explicit SetupResult(const MapGeometryInput& in) { ok = SetupMapGeometry(in, g, image); }
};

TEST(MapGeometrySetupTest, AspectCorrection) {
  struct Case {
    int64_t width, height;
    double h_extent, v_extent;
    int64_t stretch;
    double expect_h, expect_v;
  } cases[] = {
      {1000, 500, 10, 10, 0, 20, 10},  // wide image widens the horizontal extent
      {500, 1000, 10, 10, 0, 10, 20},  // tall image heightens the vertical one
      {1000, 500, 30, 10, 0, 30, 15},  // extent wider than the image
      {1000, 500, 20, 10, 0, 20, 10},  // ratios already equal
      {1000, 500, 10, 10, 1, 10, 10},  // stretching keeps both
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    MapGeometryInput in = RectangularInput(0, 0, c.h_extent, c.v_extent, c.width, c.height);
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
    int64_t verbosity;
    int64_t stretch;
    bool stretch_line, sizes, zoom;
    const char* stretch_text;
  } cases[] = {
      {0, 0, false, false, false, "Stretching is OFF."},
      {1, 0, false, false, true, "Stretching is OFF."},
      {2, 0, true, true, true, "Stretching is OFF."},
      {2, 1, true, true, true, "Stretching is ON."},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    MapGeometryInput in = RectangularInput(10, 20, 10, 10, 1000, 500);
    in.verbosity = c.verbosity;
    in.stretch = c.stretch;
    ASSERT_TRUE(SetupResult(in).ok);
    EXPECT_EQ(capture.Contains(c.stretch_text), c.stretch_line) << c.verbosity;
    EXPECT_EQ(capture.Contains("Info: Width is: 1000"), c.sizes);
    EXPECT_EQ(capture.Contains("Info: CenterX is: 20"), c.sizes);
    EXPECT_EQ(capture.Contains("Info: CenterY is: 10"), c.sizes);
    EXPECT_EQ(capture.Contains(c.stretch ? "ExtentX is: 10" : "ExtentX is: 20"), c.sizes);
    // 180 over the half horizontal extent (10, or 5 when stretched).
    EXPECT_EQ(capture.Contains(c.stretch ? "Info: Zoom factor is: 36" : "Info: Zoom factor is: 18"),
              c.zoom);
  }
}

TEST(MapGeometrySetupTest, SizeCheckAndItsExceptions) {
  struct Case {
    int64_t width, height;
    bool clip_area;
    int64_t clip_max_x;
    const char* huge_env;  // null: unset
    bool ok;
  } cases[] = {
      {10000, 100, false, 0, nullptr, true},
      {10001, 100, false, 0, nullptr, false},
      {100, 10001, false, 0, nullptr, false},
      {10001, 100, true, 9999, nullptr, true},    // clip area within the limit
      {10001, 100, true, 10000, nullptr, false},  // clip area 10001 wide
      {10001, 100, false, 0, "true", true},
      {10001, 100, false, 0, "false", false},
      {10001, 100, false, 0, "TRUE", false},
      {1, 100, false, 0, "true", false},
      {100, 1, false, 0, nullptr, false},
      {0, 0, false, 0, nullptr, false},
      {-5, 100, false, 0, nullptr, false},
  };
  for (const Case& c : cases) {
    if (c.huge_env) setenv("KAV_ALLOW_HUGE_IMAGE", c.huge_env, 1);
    else unsetenv("KAV_ALLOW_HUGE_IMAGE");
    for (int64_t projection : {kRectangularProjection, kOrthographicProjection}) {
      MessageCapture capture;
      MapGeometryInput in = projection == kRectangularProjection
                                ? RectangularInput(0, 0, 10, 10, c.width, c.height)
                                : OrthographicInput(0, 0, 1e6, 1e6, c.width, c.height);
      in.clip_area = c.clip_area;
      in.clip_max_x = c.clip_max_x;
      in.clip_max_y = 99;
      in.background[0] = 10;
      in.background[1] = 20;
      in.background[2] = 30;
      SetupResult s(in);
      const std::string label = std::to_string(c.width) + "x" + std::to_string(c.height) + " p" +
                                std::to_string(projection);
      EXPECT_EQ(s.ok, c.ok) << label;
      EXPECT_EQ(capture.Contains("Error: Invalid Width/Height"), !c.ok) << label;
      if (!c.ok) {
        // An image can still be returned: 1 x 1 of the background colour.
        ASSERT_EQ(s.image.width(), 1) << label;
        ASSERT_EQ(s.image.height(), 1);
        EXPECT_EQ(s.image.pixels()[0], 10);
        EXPECT_EQ(s.image.pixels()[1], 20);
        EXPECT_EQ(s.image.pixels()[2], 30);
        EXPECT_TRUE(s.image.ready());
        EXPECT_FALSE(s.g.clip_area);
        EXPECT_EQ(s.g.end_x, 1);
        EXPECT_EQ(s.g.end_y, 1);
      }
    }
  }
  unsetenv("KAV_ALLOW_HUGE_IMAGE");
}

TEST(MapGeometrySetupTest, FailuresWithoutImage) {
  MessageCapture capture;
  // An invalid size in a location query reports, but makes no image.
  MapGeometryInput in = RectangularInput(0, 0, 10, 10, 1, 100);
  in.location_query = true;
  SetupResult bad_size(in);
  EXPECT_FALSE(bad_size.ok);
  EXPECT_TRUE(capture.Contains("Error: Invalid Width/Height"));
  EXPECT_EQ(bad_size.image.width(), 0);

  capture.Clear();
  in = RectangularInput(0, 0, 10, 10, 100, 100);
  in.dataset_options.reset();
  EXPECT_FALSE(SetupResult(in).ok);
  EXPECT_EQ(capture.Texts(),
            std::vector<std::string>{"Error: Unset map object, missing VmpSetupMap() call!"});

  capture.Clear();
  in = RectangularInput(0, 0, 10, 10, 100, 100);
  in.projection = 1;
  EXPECT_FALSE(SetupResult(in).ok);
  EXPECT_TRUE(capture.Contains("Error: Only support orthographic and rectangular projections for now"));
}

TEST(MapGeometrySetupTest, UnusableParametersAreRefused) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  struct Case {
    double lat, lon, h_extent, v_extent, angle;
    const char* name;
  } cases[] = {
      {0, 0, 0, 10, 0, "HExtent"},   {0, 0, 10, -1, 0, "VExtent"}, {nan, 0, 10, 10, 0, "CenterLat"},
      {0, inf, 10, 10, 0, "CenterLon"}, {0, 0, nan, 10, 0, "HExtent"}, {0, 0, 10, 10, inf, "Angle"},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    MapGeometryInput in = RectangularInput(c.lat, c.lon, c.h_extent, c.v_extent, 100, 100);
    in.angle = c.angle;
    SetupResult s(in);
    EXPECT_FALSE(s.ok) << c.name;
    EXPECT_TRUE(capture.Contains(std::string("Invalid map geometry parameter: ") + c.name)) << c.name;
    EXPECT_EQ(s.image.width(), 1);
  }
}

TEST(MapGeometrySetupTest, NegativeClipOriginIsCorrected) {
  MessageCapture capture;
  MapGeometryInput in = OrthographicInput(0, 0, 2e6, 2e6, 200, 100);
  in.clip_area = true;
  in.clip_min_x = -5;
  in.clip_min_y = -1;
  in.clip_max_x = 150;
  in.clip_max_y = 80;
  SetupResult s(in);
  ASSERT_TRUE(s.ok);
  EXPECT_EQ(capture.Texts(),
            (std::vector<std::string>{"Error: Invalid ClipMinX < 0", "Error: Invalid ClipMinY < 0"}));
  EXPECT_EQ(s.g.clip_min_x, 0);
  EXPECT_EQ(s.g.clip_min_y, 0);
  // In the orthographic projection the clip area is the visible rectangle.
  EXPECT_EQ(s.g.min_x, 0);
  EXPECT_EQ(s.g.max_x, 150);
  EXPECT_EQ(s.g.max_y, 80);
  EXPECT_EQ(s.g.end_x, 151);
  EXPECT_EQ(s.g.end_y, 81);
  EXPECT_DOUBLE_EQ(s.g.max_x_d, 150.0);
}

TEST(MapGeometrySetupTest, RectangularClipAreaDoesNotRestrictView) {
  MessageCapture capture;
  MapGeometryInput in = RectangularInput(0, 0, 20, 10, 200, 100);
  in.clip_area = true;
  in.clip_min_x = 10;
  in.clip_max_x = 50;
  in.clip_max_y = 50;
  SetupResult s(in);
  ASSERT_TRUE(s.ok);
  EXPECT_EQ(s.g.min_x, 0);
  EXPECT_EQ(s.g.max_x, 199);
  EXPECT_EQ(s.g.end_x, 200);
  EXPECT_EQ(s.g.end_y, 100);
}

TEST(MapGeometrySetupTest, CentreAt170ShowsLongitudesPast180) {
  MessageCapture capture;
  SetupResult s(RectangularInput(0, 170, 60, 30, 601, 301));
  ASSERT_TRUE(s.ok);
  EXPECT_DOUBLE_EQ(s.g.min_lon, 140);
  EXPECT_DOUBLE_EQ(s.g.max_lon, 200);
  EXPECT_EQ(s.g.min_x, 0);
  EXPECT_EQ(s.g.max_x, 600);  // nothing clamped: 200 is within 170 + 180
  struct Case {
    double x;
    double lon;
  } cases[] = {{0, 140}, {300, 170}, {400, 180}, {401, -179.9}, {500, -170}, {600, -160}};
  for (const Case& c : cases) {
    LatLonPoint p = PixelToLatLon(s.g, c.x, 150);
    ASSERT_TRUE(p.ok) << c.x;
    EXPECT_NEAR(p.lon, c.lon, 1e-9) << c.x;
  }
}

TEST(MapGeometrySetupTest, Latitude80ClampsAtThePole) {
  MessageCapture capture;
  SetupResult s(RectangularInput(80, 0, 40, 40, 400, 400));
  ASSERT_TRUE(s.ok);
  EXPECT_DOUBLE_EQ(s.g.max_lat, 100);
  EXPECT_DOUBLE_EQ(s.g.clamped_max_lat, 90);
  EXPECT_DOUBLE_EQ(s.g.clamped_min_lat, 60);
  // Latitude 90 lies at row (100 - 90) * 399 / 40 = 99.75, rounded to 100.
  EXPECT_EQ(s.g.min_y, 100);
  EXPECT_EQ(s.g.max_y, 399);
  EXPECT_EQ(s.g.min_x, 0);
  EXPECT_EQ(s.g.max_x, 399);
  EXPECT_TRUE(PixelToLatLon(s.g, 200, s.g.min_y).ok);
  LatLonPoint above = PixelToLatLon(s.g, 200, s.g.min_y - 1);
  EXPECT_FALSE(above.ok);
  EXPECT_EQ(above.lat, kInvalidCoordinate);
}

TEST(MapGeometrySetupTest, VisibleRectangleShrinksToTheWorld) {
  struct Case {
    double lat, lon, h_extent, v_extent;
    int64_t min_x, max_x, min_y, max_y;
  } cases[] = {
      // Twice the world wide: the world is the middle half of the columns.
      // 720 degrees over 1000 columns: lon -180 at column 180 * 999 / 720 = 249.75.
      {0, 0, 720, 360, 250, 749, 125, 374},
      // South pole below the view's bottom edge.
      {-80, 0, 40, 40, 0, 399, 0, 299},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    const int64_t width = c.h_extent == 720 ? 1000 : 400;
    const int64_t height = c.h_extent == 720 ? 500 : 400;
    SetupResult s(RectangularInput(c.lat, c.lon, c.h_extent, c.v_extent, width, height));
    ASSERT_TRUE(s.ok);
    EXPECT_EQ(s.g.min_x, c.min_x) << c.h_extent;
    EXPECT_EQ(s.g.max_x, c.max_x) << c.h_extent;
    EXPECT_EQ(s.g.min_y, c.min_y) << c.h_extent;
    EXPECT_EQ(s.g.max_y, c.max_y) << c.h_extent;
    EXPECT_TRUE(PixelToLatLon(s.g, s.g.min_x, s.g.min_y).ok);
    EXPECT_TRUE(PixelToLatLon(s.g, s.g.max_x, s.g.max_y).ok);
  }
}

TEST(MapGeometrySetupTest, ScrolledOutOfRange) {
  for (int64_t verbosity : {0, 1}) {
    MessageCapture capture;
    MapGeometryInput in = RectangularInput(200, 0, 40, 40, 400, 400);
    in.verbosity = verbosity;
    SetupResult s(in);
    EXPECT_TRUE(s.ok);  // setup goes on
    EXPECT_EQ(capture.Contains("Info: Scrolled out of range in rectangular projection"),
              verbosity >= 1);
    EXPECT_GT(s.g.min_y, s.g.max_y);  // nothing of the world is visible
  }
}

TEST(MapGeometrySetupTest, RotatedViewKeepsTheWholeImage) {
  MessageCapture capture;
  MapGeometryInput in = RectangularInput(80, 0, 40, 40, 400, 300);
  in.angle = 30;
  SetupResult s(in);
  ASSERT_TRUE(s.ok);
  EXPECT_EQ(s.g.min_x, 0);
  EXPECT_EQ(s.g.max_x, 399);
  EXPECT_EQ(s.g.min_y, 0);
  EXPECT_EQ(s.g.max_y, 299);
  EXPECT_TRUE(s.g.rotated);
  EXPECT_NEAR(s.g.cos_angle, std::sqrt(3.0) / 2, 1e-15);
  EXPECT_NEAR(s.g.sin_angle, 0.5, 1e-15);
  // The centre stays where it is; the geographic north moves.
  LatLonPoint centre = PixelToLatLon(s.g, s.g.center_x, s.g.center_y);
  ASSERT_TRUE(centre.ok);
  EXPECT_NEAR(centre.lat, 80, 1e-9);
  EXPECT_NEAR(centre.lon, 0, 1e-9);
}

TEST(MapGeometrySetupTest, ScaleZoomPixelSizeAndSmallView) {
  struct Case {
    double h_extent, v_extent;
    double zoom;
    bool small_view;
  } cases[] = {
      {360, 180, 1, false}, {200, 100, 1.8, true}, {202, 101, 180 / 101.0, false}, {20, 10, 18, true},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    SetupResult s(RectangularInput(0, 0, c.h_extent, c.v_extent, 1000, 500));
    ASSERT_TRUE(s.ok);
    EXPECT_DOUBLE_EQ(s.g.zoom, c.zoom) << c.h_extent;
    EXPECT_EQ(s.g.small_view, c.small_view) << c.h_extent;
    EXPECT_EQ(s.g.apply_alias_boxes, c.small_view);
    // Pixel size: the smaller step, here the longitude step h / 999.
    EXPECT_NEAR(s.g.pixel_size, c.h_extent / 999, 1e-12) << c.h_extent;
  }
}

TEST(MapGeometrySetupTest, OrthographicNormalisation) {
  struct Case {
    double h_metres, v_metres;
    int64_t width, height;
    double lat;
    bool small_view;
  } cases[] = {
      {2 * kEquatorialRadius, 2 * kPolarRadius, 512, 512, 0, false},
      {1e6, 1e6, 512, 512, 45, true},
      {1e6, 1e6, 512, 512, 91, false},  // centre past the pole
      {8e6, 1e6, 400, 400, 0, false},   // h = 0.627
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    MapGeometryInput in = OrthographicInput(c.lat, 10, c.h_metres, c.v_metres, c.width, c.height);
    SetupResult s(in);
    ASSERT_TRUE(s.ok);
    // Square pixels: the larger extent wins, then each half is normalised
    // by its own radius.
    const double full = std::max(c.h_metres, c.v_metres);
    const double h = full / 2 / kEquatorialRadius, v = full / 2 / kPolarRadius;
    EXPECT_DOUBLE_EQ(s.g.half_h_extent, h);
    EXPECT_DOUBLE_EQ(s.g.half_v_extent, v);
    EXPECT_DOUBLE_EQ(s.g.scale_x, s.g.center_x / h);
    EXPECT_DOUBLE_EQ(s.g.scale_y, s.g.center_y / v);
    EXPECT_DOUBLE_EQ(s.g.zoom, std::max(1 / h, 1 / v));
    EXPECT_EQ(s.g.small_view, c.small_view) << c.h_metres << " " << c.lat;
    EXPECT_DOUBLE_EQ(s.g.cos_center_lat, std::cos(c.lat / 180 * kPi));
  }
}

TEST(MapGeometrySetupTest, OrthographicCentreAndCorners) {
  MessageCapture capture;
  for (int64_t size : {512, 513}) {
    SetupResult s(OrthographicInput(35, 190, 2 * kEquatorialRadius, 2 * kPolarRadius, size, size));
    ASSERT_TRUE(s.ok);
    LatLonPoint centre = PixelToLatLon(s.g, s.g.center_x, s.g.center_y);
    ASSERT_TRUE(centre.ok);
    EXPECT_EQ(centre.lat, 35);
    EXPECT_EQ(centre.lon, -170);  // 190 normalised
    const double last = static_cast<double>(size - 1);
    for (auto [x, y] : {std::pair{0.0, 0.0}, {last, 0.0}, {0.0, last}, {last, last}}) {
      LatLonPoint corner = PixelToLatLon(s.g, x, y);
      EXPECT_FALSE(corner.ok);
      EXPECT_EQ(corner.lat, kInvalidCoordinate);
      EXPECT_EQ(corner.lon, kInvalidCoordinate);
    }
  }
}

TEST(MapGeometrySetupTest, DatasetOptionsAreTruncated) {
  MessageCapture capture;
  MapGeometryInput in = RectangularInput(0, 0, 10, 10, 100, 100);
  in.dataset_options = DatasetOptions{0.9, 2.5, 12.9, -1.5};
  SetupResult s(in);
  ASSERT_TRUE(s.ok);
  EXPECT_EQ(s.g.encoding, 0);
  EXPECT_EQ(s.g.glyph_cache_type, 2);
  EXPECT_EQ(s.g.max_image_tiles, 12);
  EXPECT_EQ(s.g.max_vector_tiles, -1);
}

TEST(MapGeometrySetupTest, LocationQuery) {
  struct Case {
    const char* label;
    MapGeometryInput in;
    bool ok;
    int64_t x_from, x_to, y_from, y_to;
  };
  auto rect = [](double i, double j) {
    MapGeometryInput in = RectangularInput(0, 0, 20, 10, 201, 101);
    in.location_query = true;
    in.location_i = i;
    in.location_j = j;
    return in;
  };
  auto ortho_clip = [](double i, double j) {
    MapGeometryInput in = OrthographicInput(0, 0, 2e6, 2e6, 513, 513);
    in.location_query = true;
    in.location_i = i;
    in.location_j = j;
    in.clip_area = true;
    in.clip_min_x = in.clip_min_y = 250;
    in.clip_max_x = in.clip_max_y = 300;
    return in;
  };
  MapGeometryInput radius2 = rect(100, 50);
  radius2.search_radius = 2.9;  // truncated to 2
  MapGeometryInput whole_globe = OrthographicInput(0, 0, 2 * kEquatorialRadius,
                                                   2 * kEquatorialRadius, 513, 513);
  whole_globe.location_query = true;  // corner pixel (0, 0): off the globe

  Case cases[] = {
      {"middle", rect(100, 50), true, 95, 105, 45, 55},
      {"corner clamps", rect(2, 99), true, 0, 7, 94, 100},
      {"radius", radius2, true, 98, 102, 48, 52},
      {"outside image", rect(201, 50), false, 0, 0, 0, 0},
      {"negative", rect(-1, 50), false, 0, 0, 0, 0},
      {"below image", rect(10, 101), false, 0, 0, 0, 0},
      {"off the globe", whole_globe, false, 0, 0, 0, 0},
      {"box clamped to clip", ortho_clip(252, 298), true, 250, 257, 293, 300},
      {"box outside clip", ortho_clip(256, 200), false, 0, 0, 0, 0},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    SetupResult s(c.in);
    EXPECT_EQ(s.ok, c.ok) << c.label;
    EXPECT_TRUE(capture.messages().empty()) << c.label;  // failures are silent
    EXPECT_EQ(s.image.width(), 0) << c.label;
    if (!c.ok) continue;
    EXPECT_EQ(s.g.search_x_from, c.x_from) << c.label;
    EXPECT_EQ(s.g.search_x_to, c.x_to) << c.label;
    EXPECT_EQ(s.g.search_y_from, c.y_from) << c.label;
    EXPECT_EQ(s.g.search_y_to, c.y_to) << c.label;
  }
}

TEST(MapGeometrySetupTest, LocationLatLon) {
  MessageCapture capture;
  MapGeometryInput in = RectangularInput(0, 0, 20, 10, 201, 101);
  in.stretch = 1;  // 10 pixels a degree both ways
  in.location_query = true;
  in.location_i = 150;
  in.location_j = 25;
  SetupResult rect(in);
  ASSERT_TRUE(rect.ok);
  EXPECT_NEAR(rect.g.location_lon, 5, 1e-12);
  EXPECT_NEAR(rect.g.location_lat, 2.5, 1e-12);

  // Past 180 the inverse wraps to the west; the query keeps the longitude
  // in the world seen from the centre.
  in = RectangularInput(0, 170, 60, 30, 601, 301);
  in.location_query = true;
  in.location_i = 500;
  in.location_j = 150;
  SetupResult wrapped(in);
  ASSERT_TRUE(wrapped.ok);
  EXPECT_NEAR(wrapped.g.location_lon, 190, 1e-9);

  // Orthographic rows count from the top in the query and from the bottom
  // in the inverse conversion.
  in = OrthographicInput(0, 0, 2 * kEquatorialRadius, 2 * kEquatorialRadius, 513, 513);
  in.location_query = true;
  in.location_i = 256;
  in.location_j = 100;
  SetupResult ortho(in);
  ASSERT_TRUE(ortho.ok);
  EXPECT_GT(ortho.g.location_lat, 30);  // upper half of the globe: north
  EXPECT_NEAR(ortho.g.location_lon, 0, 1e-9);
  EXPECT_EQ(ortho.g.search_y_from, 95);
}

}  // namespace
}  // namespace vmp
