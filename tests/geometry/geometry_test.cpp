// Map geometry setup, the two conversions and the map image.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/lat_lon.h"
#include "map_server/geometry/map_geometry.h"
#include "map_server/geometry/map_image.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using test::MessageCapture;
using Ints = std::vector<int64_t>;

constexpr int64_t kRect = kRectangularProjection;
constexpr int64_t kOrtho = kOrthographicProjection;

// Extents in degrees (rectangular) or metres (orthographic: a whole-globe
// view is 2 * kEquatorialRadius wide).
MapGeometryInput View(int64_t projection, double lat, double lon, double h_extent, double v_extent,
                      int64_t width, int64_t height, int64_t stretch = 0) {
  return {.projection = projection, .center_lat = lat, .center_lon = lon, .h_extent = h_extent,
          .v_extent = v_extent, .width = width, .height = height, .stretch = stretch,
          .dataset_options = DatasetOptions{}};
}

struct SetupResult {
  MapGeometry g;
  MapImage image;
  bool ok;
  explicit SetupResult(const MapGeometryInput& in) : ok(SetupMapGeometry(in, g, image)) {}
};

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kBad = kInvalidCoordinate;
constexpr double kGlobe = 2 * kEquatorialRadius;

MapGeometry MakeGeometry(MapGeometryInput in, double angle = 0) {
  MessageCapture capture;
  in.angle = angle;
  SetupResult s(in);
  EXPECT_TRUE(s.ok);
  return s.g;
}

TEST(NormalizeLatLonTest, FoldsOverThePolesAndWrapsLongitude) {
  struct Case { double lat, lon, expect_lat, expect_lon; int folded; } cases[] = {
      {10, 20, 10, 20, 0},     {90, 0, 90, 0, 0},        {95, 10, 85, -170, 1},
      {-95, 10, -85, -170, 1}, {190, 0, -10, 180, 1},    {180, 0, 0, 180, 1},
      {370, 0, 10, 0, 0},      {-370, 5, -10, 5, 0},     {0, 540, 0, 180, 0},
      {0, -540, 0, -180, 0},   {0, 181, 0, -179, 0},     {100, 170, 80, -10, 1},
      {360010, 0, 10, 0, 0},   {0, -3600090, 0, -90, 0},  // far out: no long loops, same result
  };
  for (const Case& c : cases) {
    double lat = c.lat, lon = c.lon;
    EXPECT_EQ(NormalizeLatLon(lat, lon), c.folded) << c.lat << "," << c.lon;
    EXPECT_NEAR(lat, c.expect_lat, 1e-9) << c.lat << "," << c.lon;
    EXPECT_NEAR(lon, c.expect_lon, 1e-9) << c.lat << "," << c.lon;
  }
  for (double v : {1e300, std::numeric_limits<double>::infinity(), kNaN}) {
    double lat = v, lon = -v;
    NormalizeLatLon(lat, lon);  // returns for any input
  }
}

// Rectangular inverse: 0.000001 of tolerance at the world's edges, the
// longitude brought back past 180 once, rotation by Angle before the
// conversion. Orthographic inverse: the rim with its tolerance, y upwards.
TEST(ConversionTest, InverseEdgesAndDirections) {
  // 10 pixels a degree: lat 83..93; lon 140..200; rotated by 90 degrees.
  const MapGeometry polar = MakeGeometry(View(kRect, 88, 0, 20, 10, 201, 101, 1));
  const MapGeometry east = MakeGeometry(View(kRect, 0, 170, 60, 30, 601, 301));
  const MapGeometry turned = MakeGeometry(View(kRect, 0, 0, 20, 20, 201, 201, 1), 90);
  // 1 pixel a degree, lon -200..200.
  const MapGeometry wide = MakeGeometry(View(kRect, 0, 0, 400, 10, 401, 101, 1));
  // Whole globe, 256 pixels a unit: the rim is 256 pixels out.
  const MapGeometry globe =
      MakeGeometry(View(kOrtho, 0, 20, 2 * kEquatorialRadius, 2 * kPolarRadius, 513, 513, 1));
  const double rim_in = 256 + 256 * std::sqrt(1.0000005), rim_out = 256 + 256 * std::sqrt(1.000002);
  struct Case { const MapGeometry* g; double x, y; bool ok; double lat, lon; } cases[] = {
      // clang-format off
      {&polar, 100, 30, true, 90, 0},
      {&polar, 100, 30 - 0.000005, true, 90.0000005, 0},    // within the tolerance
      {&polar, 100, 29.9, false, kBad, 0},                  // the longitude keeps its value
      {&wide, 20, 50, true, 0, -180},
      {&wide, 20 - 0.0000005, 50, true, 0, -180.0000005},   // within the tolerance, no shift
      {&wide, 19.99, 50, false, 0, kBad},   {&wide, 380.01, 50, false, 0, kBad},
      {&wide, kNaN, 50, false, 0, kBad},    {&east, 0, 150, true, 0, 140},
      {&east, 400, 150, true, 0, 180},      {&east, 401, 150, true, 0, -179.9},
      {&east, 600, 150, true, 0, -160},
      {&turned, 150, 100, true, -5, 0},     {&turned, 100, 150, true, 0, -5},  // rotated by +Angle
      {&globe, 512, 256, true, 0, 110},     {&globe, rim_in, 256, true, 0, 110},  // within tolerance
      {&globe, rim_out, 256, false, kBad, kBad},
      {&globe, 256, 512, true, 90, 20},     {&globe, 256, 0, true, -90, 20}};  // y upwards: top is north
  // clang-format on
  for (const Case& c : cases) {
    LatLonPoint p = PixelToLatLon(*c.g, c.x, c.y);
    EXPECT_EQ(p.ok, c.ok) << c.x << "," << c.y;
    EXPECT_NEAR(p.lat, c.lat, 1e-6) << c.x << "," << c.y;
    EXPECT_NEAR(p.lon, c.lon, 1e-6) << c.x << "," << c.y;
  }
  // Forward: z tells whether the point is in the world seen from the centre.
  EXPECT_EQ(LatLonToPixel(east, 90, 350).z, 1.0);
  EXPECT_EQ(LatLonToPixel(east, 90.01, 170).z, -1.0);
  EXPECT_EQ(LatLonToPixel(east, 0, -10.5).z, -1.0);
  EXPECT_NEAR(LatLonToPixel(east, 15, 140).x, 0, 1e-9);
  EXPECT_LT(LatLonToPixel(globe, 0, -160).z, 0);  // behind the globe
}

// pixel -> lat/lon -> pixel over a lattice of the image, for every visible
// point. Longitudes are moved into the world seen from the centre before the
// forward conversion, as tile selection does.
int CheckRoundTrips(const MapGeometry& g) {
  const bool ortho = g.projection == kOrthographicProjection;
  int visible = 0;
  for (double row = 0; row < static_cast<double>(g.height); row += 7.5) {
    for (double x = 0; x < static_cast<double>(g.width); x += 7.5) {
      LatLonPoint p = PixelToLatLon(g, x, ortho ? g.height_m1 - row : row);
      if (!p.ok) continue;
      ++visible;
      double lon = p.lon;
      if (!ortho && lon < g.world_min_lon) lon += 360;
      if (!ortho && lon > g.world_max_lon) lon -= 360;
      PixelPoint back = LatLonToPixel(g, p.lat, lon);
      EXPECT_NEAR(back.x, x, 1e-6) << "row " << row << " lat " << p.lat << " lon " << p.lon;
      EXPECT_NEAR(back.y, row, 1e-6) << "x " << x << " lat " << p.lat << " lon " << p.lon;
      EXPECT_GE(back.z, ortho ? -1e-6 : 1.0);
      if (::testing::Test::HasFailure()) return visible;
    }
  }
  return visible;
}

TEST(ConversionTest, RoundTrips) {
  const double globe = kGlobe;  // metres across
  struct Case {
    int64_t projection;
    double lat, lon, h_extent, v_extent, angle;
  } cases[] = {{kRect, 0, 0, 360, 180, 0},         {kRect, 0, 170, 60, 30, 0},
               {kRect, 80, 0, 40, 40, 0},          {kRect, -45, -120, 5, 3, 0},
               {kRect, 10, 20, 30, 30, 30},        {kRect, 80, 0, 40, 40, -75},
               {kRect, 0, 179.5, 2, 1, 200},       {kOrtho, 0, 0, globe, globe, 0},
               {kOrtho, 45, 10, globe, globe, 0},  {kOrtho, -60, -150, 3e6, 3e6, 0},
               {kOrtho, 89, 100, globe, globe, 0}, {kOrtho, 30, 179, 5e5, 5e5, 0}};
  for (const Case& c : cases) {
    const MapGeometry g =
        MakeGeometry(View(c.projection, c.lat, c.lon, c.h_extent, c.v_extent, 400, 300), c.angle);
    EXPECT_GT(CheckRoundTrips(g), 100) << c.lat << "," << c.lon << " angle " << c.angle;
  }
}

// Aspect correction (one extent grows unless stretching is on), scales,
// zoom, small views, the pixel size and the dataset options (truncated).
TEST(MapGeometrySetupTest, DerivedValues) {
  const double h = 1e6 / 2 / kEquatorialRadius, v = 1e6 / 2 / kPolarRadius;  // orthographic 1e6
  struct Case { MapGeometryInput in; double half_h, half_v, zoom; bool small_view; } cases[] = {
      // clang-format off
      {View(kRect, 0, 0, 10, 10, 1000, 500), 10, 5, 18, true},
      {View(kRect, 0, 0, 10, 10, 500, 1000), 5, 10, 36, true},
      {View(kRect, 0, 0, 30, 10, 1000, 500), 15, 7.5, 12, true},
      {View(kRect, 0, 0, 20, 10, 1000, 500), 10, 5, 18, true},
      {View(kRect, 0, 0, 10, 10, 1000, 500, 1), 5, 5, 36, true},
      {View(kRect, 0, 0, 360, 180, 1000, 500), 180, 90, 1, false},
      {View(kRect, 0, 0, 200, 100, 1000, 500), 100, 50, 1.8, true},
      {View(kRect, 0, 0, 202, 101, 1000, 500), 101, 50.5, 180 / 101.0, false},
      // Square pixels widen the vertical extent to the horizontal one; each
      // half is then normalised by its own radius.
      {View(kOrtho, 35, 190, kGlobe, kGlobe * kPolarRadius / kEquatorialRadius, 512, 512), 1,
       kEquatorialRadius / kPolarRadius, 1, false},
      {View(kOrtho, 45, 190, 1e6, 1e6 * kPolarRadius / kEquatorialRadius, 512, 512), h, v, 1 / h, true},
      {View(kOrtho, 91, 190, 1e6, 1e6, 400, 400), h, v, 1 / h, false},
      {View(kOrtho, 0, 190, 1e6 * 8, 1e6, 400, 400, 1), 8 * h, v, 1 / v, false},  // small only if both are
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.in.h_extent) + " x " + std::to_string(c.in.v_extent));
    MessageCapture capture;
    MapGeometryInput in = c.in;
    in.dataset_options = DatasetOptions{0.9, 2.5, 12.9, -1.5};
    SetupResult s(in);
    ASSERT_TRUE(s.ok);
    const MapGeometry& g = s.g;
    EXPECT_DOUBLE_EQ(g.half_h_extent, c.half_h);
    EXPECT_DOUBLE_EQ(g.half_v_extent, c.half_v);
    EXPECT_DOUBLE_EQ(g.zoom, c.zoom);
    EXPECT_EQ(g.small_view, c.small_view);
    EXPECT_EQ(g.apply_alias_boxes, c.small_view);
    EXPECT_EQ((Ints{g.encoding, g.glyph_cache_type, g.max_image_tiles, g.max_vector_tiles}),
              (Ints{0, 2, 12, -1}));
    if (in.projection == kRect) {
      EXPECT_DOUBLE_EQ(g.scale_x, g.width_m1 / (2 * c.half_h));
      EXPECT_DOUBLE_EQ(g.scale_y, g.height_m1 / (2 * c.half_v));
      EXPECT_NEAR(g.pixel_size, std::min(2 * c.half_h / g.width_m1, 2 * c.half_v / g.height_m1),
                  1e-12);
      continue;
    }
    EXPECT_DOUBLE_EQ(g.scale_y, g.center_y / c.half_v);
    const LatLonPoint centre = PixelToLatLon(g, g.center_x, g.center_y);
    EXPECT_TRUE(centre.ok);
    EXPECT_EQ(centre.lat, in.center_lat > 90 ? 89 : in.center_lat);  // exact, and normalised
    EXPECT_EQ(centre.lon, in.center_lat > 90 ? 10 : -170);
  }
}

TEST(MapGeometrySetupTest, VerbosityReports) {
  for (int64_t verbosity : {0, 1, 2}) {
    for (int64_t stretch : {0, 1}) {
      MessageCapture capture;
      MapGeometryInput in = View(kRect, 10, 20, 10, 10, 1000, 500, stretch);
      in.verbosity = verbosity;
      ASSERT_TRUE(SetupResult(in).ok);
      EXPECT_EQ(
          capture.Contains(stretch ? "Info: Stretching is ON." : "Info: Stretching is OFF.") &&
              capture.Contains(stretch ? "Info: ExtentX is: 10" : "Info: ExtentX is: 20") &&
              capture.Contains("Info: Width is: 1000") &&
              capture.Contains("Info: CenterX is: 20") && capture.Contains("Info: CenterY is: 10"),
          verbosity >= 2);
      EXPECT_EQ(capture.Contains(stretch ? "Zoom factor is: 36" : "Zoom factor is: 18"),
                verbosity >= 1);
    }
    MessageCapture capture;
    MapGeometryInput in = View(kRect, 200, 0, 40, 40, 400, 400);
    in.verbosity = verbosity;
    SetupResult s(in);
    EXPECT_TRUE(s.ok);
    EXPECT_EQ(capture.Contains("Info: Scrolled out of range in rectangular projection"),
              verbosity >= 1);
    EXPECT_GT(s.g.min_y, s.g.max_y);  // nothing of the world is visible
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
    for (int64_t projection : {kRect, kOrtho}) {
      SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height) + " projection " +
                   std::to_string(projection));
      MessageCapture capture;
      MapGeometryInput in = View(projection, 0, 0, 10, 10, c.width, c.height);
      in.clip_area = c.clip_area;
      in.clip_max_x = c.clip_max_x;
      in.clip_max_y = 99;
      in.background[0] = 10;
      in.background[2] = 30;
      SetupResult s(in);
      EXPECT_EQ(s.ok, c.ok);
      EXPECT_EQ(capture.Contains("Error: Invalid Width/Height"), !c.ok);
      if (c.ok) continue;
      // An image can still be returned: 1 x 1 of the background colour.
      ASSERT_EQ(s.image.width() * s.image.height(), 1);
      EXPECT_EQ(std::vector<uint8_t>(s.image.pixels(), s.image.pixels() + 3),
                (std::vector<uint8_t>{10, 0, 30}));
      EXPECT_FALSE(s.g.clip_area);
      EXPECT_EQ(s.g.end_x + s.g.end_y, 2);
    }
  }
  unsetenv("KAV_ALLOW_HUGE_IMAGE");
}

TEST(MapGeometrySetupTest, OtherFailures) {
  auto with = [](auto change) {
    MapGeometryInput in = View(kRect, 0, 0, 10, 10, 100, 100);
    change(in);
    return in;
  };
  struct Case {
    MapGeometryInput in;
    const char* text;  // the only message
    int64_t image_width;
  } cases[] = {// clang-format off
      {with([](auto& in) { in.dataset_options.reset(); }), "Error: Unset map object, missing VmpSetupMap() call!", 0},
      {with([](auto& in) { in.projection = 1; }), "Error: Only support orthographic and rectangular projections for now", 0},
      {with([](auto& in) { in.width = 1, in.location_query = true; }), "Error: Invalid Width/Height", 0},
      {with([](auto& in) { in.h_extent = 0; }), "Error: Invalid map geometry parameter: HExtent: 0", 1},
      {with([](auto& in) { in.v_extent = -1; }), "Error: Invalid map geometry parameter: VExtent: -1", 1},
      {with([](auto& in) { in.center_lat = NAN; }), "Error: Invalid map geometry parameter: CenterLat", 1},
      {with([](auto& in) { in.angle = INFINITY; }), "Error: Invalid map geometry parameter: Angle", 1}};
  // clang-format on
  for (const Case& c : cases) {
    MessageCapture capture;
    SetupResult s(c.in);
    EXPECT_FALSE(s.ok) << c.text;
    ASSERT_EQ(capture.Texts().size(), 1u) << c.text;
    EXPECT_EQ(capture.Texts()[0].substr(0, std::strlen(c.text)), c.text);
    EXPECT_EQ(s.image.width(), c.image_width) << c.text;
  }
  // The conversions report an unknown projection at each call.
  MessageCapture capture;
  MapGeometry g{.projection = 1};
  EXPECT_FALSE(PixelToLatLon(g, 1, 1).ok);
  EXPECT_EQ(LatLonToPixel(g, 0, 0).z, -1.0);
  EXPECT_EQ(capture.Count("Error: Only support orthographic and rectangular projections for now"),
            2u);
}

TEST(MapGeometrySetupTest, VisibleRectangle) {
  struct Case {
    MapGeometryInput in;
    double angle;
    bool clip;  // ClipArea -5..150 x -1..80 (negative minima are reported and taken as 0)
    Ints rect;  // min x, max x, min y, max y, drawing end x, end y
  } cases[] = {
      // clang-format off
      // Latitude 90 lies at row (100 - 90) * 399 / 40 = 99.75, rounded to 100.
      {View(kRect, 80, 0, 40, 40, 400, 400), 0, false, {0, 399, 100, 399, 400, 400}},
      {View(kRect, -80, 0, 40, 40, 400, 400), 0, false, {0, 399, 0, 299, 400, 400}},
      // Twice the world: lon -180 at column 180 * 999 / 720 = 249.75.
      {View(kRect, 0, 0, 720, 360, 1000, 500), 0, false, {250, 749, 125, 374, 1000, 500}},
      {View(kRect, 0, 170, 60, 30, 601, 301), 0, false, {0, 600, 0, 300, 601, 301}},  // 200 is within 170 + 180
      {View(kRect, 80, 0, 40, 40, 400, 300), 30, false, {0, 399, 0, 299, 400, 300}},  // rotated: the whole image
      // The orthographic view is the clip area, the rectangular one is not restricted.
      {View(kOrtho, 0, 0, 2e6, 2e6, 200, 100), 0, true, {0, 150, 0, 80, 151, 81}},
      {View(kRect, 0, 0, 10, 10, 200, 100), 0, true, {0, 199, 0, 99, 200, 100}},
      // clang-format on
  };
  for (Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.in.center_lat) + " " + std::to_string(c.in.h_extent));
    MessageCapture capture;
    c.in.angle = c.angle;
    if (c.clip) {
      c.in.clip_area = true;
      c.in.clip_min_x = -5, c.in.clip_min_y = -1, c.in.clip_max_x = 150, c.in.clip_max_y = 80;
    }
    SetupResult s(c.in);
    ASSERT_TRUE(s.ok);
    const MapGeometry& g = s.g;
    EXPECT_EQ((Ints{g.min_x, g.max_x, g.min_y, g.max_y, g.end_x, g.end_y}), c.rect);
    EXPECT_EQ(g.max_y_d, static_cast<double>(c.rect[3]));
    const std::vector<std::string> clip_messages = {"Error: Invalid ClipMinX < 0",
                                                    "Error: Invalid ClipMinY < 0"};
    EXPECT_EQ(capture.Texts(), c.clip ? clip_messages : std::vector<std::string>{});
    if (c.angle != 0 || c.clip) continue;
    EXPECT_TRUE(PixelToLatLon(g, g.min_x, g.min_y).ok);
    EXPECT_TRUE(PixelToLatLon(g, g.max_x, g.max_y).ok);
    // The row above is off the world exactly when the rectangle was cut there.
    EXPECT_EQ(PixelToLatLon(g, g.min_x, g.min_y - 1).ok, g.min_y == 0);
  }
}

TEST(MapGeometrySetupTest, LocationQuery) {
  auto query = [](MapGeometryInput in, double i, double j, double radius = kDefaultSearchRadius) {
    in.location_query = true;
    in.location_i = i;
    in.location_j = j;
    in.search_radius = radius;
    return in;
  };
  const MapGeometryInput rect = View(kRect, 0, 0, 20, 10, 201, 101, 1);  // 10 pixels a degree
  const MapGeometryInput east = View(kRect, 0, 170, 60, 30, 601, 301);
  const MapGeometryInput globe = View(kOrtho, 0, 0, kGlobe, kGlobe, 513, 513);
  MapGeometryInput clipped = View(kOrtho, 0, 0, 2e6, 2e6, 513, 513);
  clipped.clip_area = true;
  clipped.clip_min_x = clipped.clip_min_y = 250;
  clipped.clip_max_x = clipped.clip_max_y = 300;
  // Row 100 of 513 is 156 pixels above the centre; a unit is 256 pixels across and
  // kEquatorialRadius / kPolarRadius units upwards.
  const double north = std::asin(156 / 256.0 * kEquatorialRadius / kPolarRadius) * 180 / kPi;
  struct Case {
    MapGeometryInput in;
    Ints box;  // empty: the setup fails
    double lat, lon;
  } cases[] = {
      // clang-format off
      {query(rect, 100, 50), {95, 105, 45, 55}, 0, 0},
      {query(rect, 2, 99), {0, 7, 94, 100}, -4.9, -9.8},              // clamped at the corner
      {query(rect, 150, 25, 2.9), {148, 152, 23, 27}, 2.5, 5},        // radius truncated
      {query(east, 500, 150), {495, 505, 145, 155}, 0, 190},          // the world of the centre
      {query(globe, 256, 100), {251, 261, 95, 105}, north, 0},        // rows count from the top
      {query(clipped, 252, 298), {250, 257, 293, 300}, kNaN, kNaN},   // clamped to the clip area
      {query(rect, 201, 50), {}, kNaN, kNaN},  {query(rect, -1, 50), {}, kNaN, kNaN},
      {query(rect, 10, 101), {}, kNaN, kNaN},  {query(globe, 0, 0), {}, kNaN, kNaN},  // off the globe
      {query(clipped, 256, 200), {}, kNaN, kNaN}};  // box outside the clip area
  // clang-format on
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.in.location_i) + "," + std::to_string(c.in.location_j));
    MessageCapture capture;
    SetupResult s(c.in);
    EXPECT_EQ(s.ok, !c.box.empty());
    EXPECT_TRUE(capture.messages().empty());  // failures are silent
    EXPECT_EQ(s.image.width(), 0);
    if (!s.ok) continue;
    EXPECT_EQ((Ints{s.g.search_x_from, s.g.search_x_to, s.g.search_y_from, s.g.search_y_to}),
              c.box);
    if (std::isnan(c.lat)) continue;
    EXPECT_NEAR(s.g.location_lat, c.lat, 1e-9);
    EXPECT_NEAR(s.g.location_lon, c.lon, 1e-9);
  }
}

// The image as one character a pixel: 'b' the colour, '0' black, '?' other.
std::string Picture(const MapImage& image, uint8_t r, uint8_t g, uint8_t b) {
  std::string out;
  for (int64_t i = 0; i < image.width() * image.height(); ++i) {
    const uint8_t* p = image.pixels() + i * 3;
    out += (p[0] == r && p[1] == g && p[2] == b) ? 'b' : (p[0] + p[1] + p[2] == 0 ? '0' : '?');
  }
  return out;
}

MapGeometry Drawing(int64_t end_x, int64_t end_y, uint8_t r, uint8_t g, uint8_t b,
                    int64_t clip_x = -1, int64_t clip_y = -1) {
  MapGeometry geometry{.clip_area = clip_x >= 0, .clip_min_x = clip_x, .clip_min_y = clip_y};
  geometry.end_x = end_x;
  geometry.end_y = end_y;
  geometry.background[0] = r, geometry.background[1] = g, geometry.background[2] = b;
  return geometry;
}

TEST(MapImageTest, BackgroundClipFillAndGrowth) {
  MapImage image;
  ASSERT_TRUE(AllocateMapImage(Drawing(100, 100, 200, 100, 50), image));
  EXPECT_EQ(Picture(image, 200, 100, 50), std::string(100 * 100, 'b'));
  EXPECT_TRUE(image.ready());
  const uint8_t* buffer = image.pixels();
  ASSERT_TRUE(AllocateMapImage(Drawing(4, 3, 77, 77, 77), image));  // gray: the byte fill
  EXPECT_EQ(Picture(image, 77, 77, 77), std::string(12, 'b'));
  EXPECT_EQ(image.pixels(), buffer);  // the buffer only grows
  EXPECT_EQ(image.capacity(), 100u * 100 * 3);
  EXPECT_EQ(image.size_bytes(), 4u * 3 * 3);
  // With a clip area: black, and background from the clip origin to the
  // drawing end (the colour left by the previous image is cleared).
  ASSERT_TRUE(AllocateMapImage(Drawing(5, 4, 200, 100, 50, 2, 1), image));
  EXPECT_EQ(Picture(image, 200, 100, 50), "00000" + std::string("00bbb00bbb00bbb"));
  ASSERT_TRUE(AllocateMapImage(Drawing(200, 100, 1, 2, 3), image));
  EXPECT_GE(image.capacity(), 200u * 100 * 3);
  EXPECT_EQ(Picture(image, 1, 2, 3), std::string(200 * 100, 'b'));

  struct Case {
    int64_t end_x, end_y;
    const char* text;
  } refused[] = {{0, 10, "Error: Overflow calculating image size.: 0"},
                 {-4, -4, "Error: Overflow calculating image size.: 48"},  // positive product
                 {int64_t{1} << 40, int64_t{1} << 40, "Error: Overflow calculating image size."}};
  for (const Case& c : refused) {
    MessageCapture capture;
    EXPECT_FALSE(AllocateMapImage(Drawing(c.end_x, c.end_y, 0, 0, 0), image));
    EXPECT_TRUE(capture.Contains(c.text)) << c.end_x;
  }
}

}  // namespace
}  // namespace vmp
