#include "map_server/geometry/conversions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "map_server/geometry/lat_lon.h"
#include "map_server/geometry/map_image.h"
#include "map_server/geometry/rotation.h"
#include "tests/geometry/geometry_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using test::OrthographicInput;
using test::RectangularInput;

MapGeometry MakeGeometry(const MapGeometryInput& in) {
  test::MessageCapture capture;
  MapGeometry g;
  MapImage image;
  EXPECT_TRUE(SetupMapGeometry(in, g, image));
  return g;
}

TEST(NormalizeLatLonTest, FoldsOverThePolesAndWrapsLongitude) {
  struct Case {
    double lat, lon;
    double expect_lat, expect_lon;
    int folded;
  } cases[] = {
      {10, 20, 10, 20, 0},       {90, 0, 90, 0, 0},          {-90, 0, -90, 0, 0},
      {95, 10, 85, -170, 1},     {-95, 10, -85, -170, 1},    {190, 0, -10, 180, 1},
      {370, 0, 10, 0, 0},        {-370, 5, -10, 5, 0},       {180, 0, 0, 180, 1},
      {0, 180, 0, 180, 0},       {0, -180, 0, -180, 0},      {0, 540, 0, 180, 0},
      {0, -540, 0, -180, 0},     {0, 181, 0, -179, 0},       {0, 725, 0, 5, 0},
      {360010, 0, 10, 0, 0},   {100, 170, 80, -10, 1},     {0, -3600090, 0, -90, 0},
  };
  for (const Case& c : cases) {
    double lat = c.lat, lon = c.lon;
    EXPECT_EQ(NormalizeLatLon(lat, lon), c.folded) << c.lat << "," << c.lon;
    EXPECT_NEAR(lat, c.expect_lat, 1e-9) << c.lat << "," << c.lon;
    EXPECT_NEAR(lon, c.expect_lon, 1e-9) << c.lat << "," << c.lon;
  }
}

TEST(NormalizeLatLonTest, EndsForAnyInput) {
  const double inputs[] = {1e300, -1e300, std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN()};
  for (double v : inputs) {
    double lat = v, lon = v;
    NormalizeLatLon(lat, lon);  // must return; the values of non-finite input are not defined
    if (std::isfinite(v)) {
      EXPECT_LE(std::fabs(lat), 90);
      EXPECT_LE(std::fabs(lon), 180);
    }
  }
}

TEST(RotatePointTest, RotatesAboutTheCentre) {
  MapGeometry g;
  g.center_x = 10;
  g.center_y = 20;
  g.cos_angle = 0;
  g.sin_angle = 1;  // 90 degrees
  double x = 13, y = 20;
  RotatePoint(g, +1, x, y);
  EXPECT_NEAR(x, 10, 1e-12);
  EXPECT_NEAR(y, 23, 1e-12);
  RotatePoint(g, -1, x, y);
  EXPECT_NEAR(x, 13, 1e-12);
  EXPECT_NEAR(y, 20, 1e-12);
}

TEST(RectangularConversionTest, InverseToleranceRules) {
  // 10 pixels a degree both ways, view lon -10..10, lat -5..5.
  MapGeometryInput in = RectangularInput(0, 0, 20, 10, 201, 101);
  in.stretch = 1;
  MapGeometry g = MakeGeometry(in);
  // Moving the view to the pole lets rows fall past latitude 90.
  in.center_lat = 88;
  MapGeometry polar = MakeGeometry(in);
  // A view wider than the world lets columns fall outside centre +- 180.
  in = RectangularInput(0, 0, 400, 10, 401, 101);
  in.stretch = 1;
  MapGeometry wide = MakeGeometry(in);  // 1 pixel a degree, lon -200..200

  struct Case {
    const MapGeometry* g;
    double x, y;
    bool ok;
    double lat, lon;  // expected (kInvalidCoordinate marks the failing one)
  } cases[] = {
      {&g, 100, 50, true, 0, 0},
      {&g, 0, 0, true, 5, -10},
      {&polar, 100, 30, true, 90, 0},                       // lat exactly 90
      {&polar, 100, 30 - 0.000005, true, 90.0000005, 0},    // within the tolerance
      {&polar, 100, 29.9, false, kInvalidCoordinate, 0},    // lon keeps its value
      {&wide, 20, 50, true, 0, -180},                       // the world's edge
      {&wide, 20 - 0.0000005, 50, true, 0, -180.0000005},  // inside the tolerance, no shift
      {&wide, 19.99, 50, false, 0, kInvalidCoordinate},
      {&wide, 380.01, 50, false, 0, kInvalidCoordinate},
  };
  for (const Case& c : cases) {
    LatLonPoint p = PixelToLatLon(*c.g, c.x, c.y);
    EXPECT_EQ(p.ok, c.ok) << c.x << "," << c.y;
    EXPECT_NEAR(p.lat, c.lat, 1e-7) << c.x << "," << c.y;
    EXPECT_NEAR(p.lon, c.lon, 1e-7) << c.x << "," << c.y;
  }
  EXPECT_FALSE(PixelToLatLon(g, std::numeric_limits<double>::quiet_NaN(), 3).ok);
}

TEST(RectangularConversionTest, ForwardVisibility) {
  MapGeometry g = MakeGeometry(RectangularInput(0, 170, 60, 30, 601, 301));
  struct Case {
    double lat, lon, z;
  } cases[] = {{0, 170, 1}, {90, 350, 1}, {-90, -10, 1}, {90.01, 170, -1}, {0, -10.5, -1}, {0, -160, -1}, {0, 200, 1}};
  for (const Case& c : cases) {
    EXPECT_EQ(LatLonToPixel(g, c.lat, c.lon).z, c.z) << c.lat << "," << c.lon;
  }
  PixelPoint p = LatLonToPixel(g, 15, 140);
  EXPECT_NEAR(p.x, 0, 1e-9);
  EXPECT_NEAR(p.y, (g.max_lat - 15) * g.scale_y, 1e-9);
}

// pixel -> lat/lon -> pixel over a lattice of the image, for every visible
// point. Longitudes are moved into the world seen from the centre before the
// forward conversion, as the tile selection does.
void ExpectRoundTrips(const MapGeometry& g, int* visible) {
  const bool ortho = g.projection == kOrthographicProjection;
  *visible = 0;
  for (double row = 0; row < static_cast<double>(g.height); row += 7.5) {
    for (double x = 0; x < static_cast<double>(g.width); x += 7.5) {
      LatLonPoint p = PixelToLatLon(g, x, ortho ? g.height_m1 - row : row);
      if (!p.ok) continue;
      ++*visible;
      double lon = p.lon;
      if (!ortho && lon < g.world_min_lon) lon += 360;
      if (!ortho && lon > g.world_max_lon) lon -= 360;
      PixelPoint back = LatLonToPixel(g, p.lat, lon);
      ASSERT_NEAR(back.x, x, 1e-6) << "row " << row << " lat " << p.lat << " lon " << p.lon;
      ASSERT_NEAR(back.y, row, 1e-6) << "x " << x << " lat " << p.lat << " lon " << p.lon;
      ASSERT_GE(back.z, ortho ? -1e-6 : 1.0);
    }
  }
}

TEST(ConversionRoundTripTest, Rectangular) {
  struct Case {
    double lat, lon, h_extent, v_extent, angle;
  } cases[] = {
      {0, 0, 360, 180, 0},   {0, 170, 60, 30, 0},  {80, 0, 40, 40, 0},  {-45, -120, 5, 3, 0},
      {10, 20, 30, 30, 30},  {80, 0, 40, 40, -75}, {0, 0, 720, 360, 0}, {0, 179.5, 2, 1, 200},
  };
  for (const Case& c : cases) {
    MapGeometryInput in = RectangularInput(c.lat, c.lon, c.h_extent, c.v_extent, 400, 300);
    in.angle = c.angle;
    MapGeometry g = MakeGeometry(in);
    int visible = 0;
    ExpectRoundTrips(g, &visible);
    EXPECT_GT(visible, 100) << c.lat << "," << c.lon << " angle " << c.angle;
  }
}

TEST(ConversionRoundTripTest, Orthographic) {
  struct Case {
    double lat, lon, metres;
  } cases[] = {
      {0, 0, 2 * kEquatorialRadius}, {45, 10, 2 * kEquatorialRadius}, {-60, -150, 3e6},
      {89, 100, 2 * kEquatorialRadius}, {-90, 0, 2 * kEquatorialRadius}, {30, 179, 5e5},
  };
  for (const Case& c : cases) {
    MapGeometry g = MakeGeometry(OrthographicInput(c.lat, c.lon, c.metres, c.metres, 400, 300));
    int visible = 0;
    ExpectRoundTrips(g, &visible);
    EXPECT_GT(visible, 100) << c.lat << "," << c.lon;
  }
}

TEST(OrthographicConversionTest, RimToleranceAndCentre) {
  // h = v = 1 and 256 pixels a unit: the globe's rim is 256 pixels out.
  MapGeometryInput in = OrthographicInput(0, 20, 2 * kEquatorialRadius, 2 * kPolarRadius, 513, 513);
  in.stretch = 1;
  MapGeometry g = MakeGeometry(in);
  struct Case {
    double x, y;
    bool ok;
    double lat, lon;
  } cases[] = {
      {256, 256, true, 0, 20},
      {512, 256, true, 0, 110},                                // on the rim
      {256 + 256 * std::sqrt(1.0000005), 256, true, 0, 110},   // just past, within tolerance
      {256 + 256 * std::sqrt(1.000002), 256, false, kInvalidCoordinate, kInvalidCoordinate},
      {256, 512, true, 90, 20},                                // north pole (y upwards)
      {256, 0, true, -90, 20},
  };
  for (const Case& c : cases) {
    LatLonPoint p = PixelToLatLon(g, c.x, c.y);
    EXPECT_EQ(p.ok, c.ok) << c.x << "," << c.y;
    EXPECT_NEAR(p.lat, c.lat, 1e-6) << c.x << "," << c.y;
    EXPECT_NEAR(p.lon, c.lon, 1e-6) << c.x << "," << c.y;
  }
  // The far side of the globe is behind it: z < 0.
  EXPECT_LT(LatLonToPixel(g, 0, -160).z, 0);
  EXPECT_NEAR(LatLonToPixel(g, 0, 20).z, 1, 1e-15);
}

TEST(ConversionTest, UnsupportedProjectionReportsEachCall) {
  test::MessageCapture capture;
  MapGeometry g;
  g.projection = 1;
  LatLonPoint p = PixelToLatLon(g, 1, 1);
  EXPECT_FALSE(p.ok);
  EXPECT_EQ(LatLonToPixel(g, 0, 0).z, -1.0);
  EXPECT_EQ(capture.Count("Error: Only support orthographic and rectangular projections for now"), 2u);
}

}  // namespace
}  // namespace vmp
