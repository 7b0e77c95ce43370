#include "map_server/geometry/conversions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "map_server/geometry/lat_lon.h"
#include "map_server/geometry/map_image.h"
#include "tests/geometry/geometry_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using test::Orthographic;
using test::Rectangular;

MapGeometry MakeGeometry(const MapGeometryInput& in) {
  test::MessageCapture capture;
  MapGeometry g;
  MapImage image;
  EXPECT_TRUE(SetupMapGeometry(in, g, image));
  return g;
}

TEST(NormalizeLatLonTest, FoldsOverThePolesAndWrapsLongitude) {
  struct Case {
    double lat, lon, expect_lat, expect_lon;
    int folded;
  } cases[] = {
      {10, 20, 10, 20, 0},     {90, 0, 90, 0, 0},        {95, 10, 85, -170, 1},
      {-95, 10, -85, -170, 1}, {190, 0, -10, 180, 1},    {370, 0, 10, 0, 0},
      {-370, 5, -10, 5, 0},    {180, 0, 0, 180, 1},      {0, 540, 0, 180, 0},
      {0, -540, 0, -180, 0},   {0, 181, 0, -179, 0},     {100, 170, 80, -10, 1},
      {360010, 0, 10, 0, 0},   {0, -3600090, 0, -90, 0},  // far out: no long loops, same result
  };
  for (const Case& c : cases) {
    double lat = c.lat, lon = c.lon;
    EXPECT_EQ(NormalizeLatLon(lat, lon), c.folded) << c.lat << "," << c.lon;
    EXPECT_NEAR(lat, c.expect_lat, 1e-9) << c.lat << "," << c.lon;
    EXPECT_NEAR(lon, c.expect_lon, 1e-9) << c.lat << "," << c.lon;
  }
  for (double v :
       {1e300, std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    double lat = v, lon = -v;
    NormalizeLatLon(lat, lon);  // returns for any input
  }
}

TEST(ConversionTest, RectangularInverseTolerance) {
  MapGeometryInput in = Rectangular(88, 0, 20, 10, 201, 101);  // 10 pixels a degree, lat 83..93
  in.stretch = 1;
  const MapGeometry polar = MakeGeometry(in);
  in = Rectangular(0, 0, 400, 10, 401, 101);  // 1 pixel a degree, lon -200..200
  in.stretch = 1;
  const MapGeometry wide = MakeGeometry(in);
  const double invalid = kInvalidCoordinate;
  struct Case {
    const MapGeometry* g;
    double x, y;
    bool ok;
    double lat, lon;
  } cases[] = {
      {&polar, 100, 30, true, 90, 0},
      {&polar, 100, 30 - 0.000005, true, 90.0000005, 0},  // within the tolerance
      {&polar, 100, 29.9, false, invalid, 0},             // the longitude keeps its value
      {&wide, 20, 50, true, 0, -180},
      {&wide, 20 - 0.0000005, 50, true, 0, -180.0000005},  // within the tolerance, no shift
      {&wide, 19.99, 50, false, 0, invalid},
      {&wide, 380.01, 50, false, 0, invalid},
      {&wide, std::numeric_limits<double>::quiet_NaN(), 50, false, 0, invalid}};
  for (const Case& c : cases) {
    LatLonPoint p = PixelToLatLon(*c.g, c.x, c.y);
    EXPECT_EQ(p.ok, c.ok) << c.x << "," << c.y;
    EXPECT_NEAR(p.lat, c.lat, 1e-7) << c.x << "," << c.y;
    EXPECT_NEAR(p.lon, c.lon, 1e-7) << c.x << "," << c.y;
  }
  // Forward: z tells whether the point is in the world seen from the centre.
  const MapGeometry g = MakeGeometry(Rectangular(0, 170, 60, 30, 601, 301));
  EXPECT_EQ(LatLonToPixel(g, 90, 350).z, 1.0);
  EXPECT_EQ(LatLonToPixel(g, 90.01, 170).z, -1.0);
  EXPECT_EQ(LatLonToPixel(g, 0, -10.5).z, -1.0);
  EXPECT_NEAR(LatLonToPixel(g, 15, 140).x, 0, 1e-9);
}

TEST(ConversionTest, OrthographicRim) {
  // h = v = 1 and 256 pixels a unit: the rim of the globe is 256 pixels out.
  MapGeometryInput in = Orthographic(0, 20, 2 * kEquatorialRadius, 2 * kPolarRadius, 513, 513);
  in.stretch = 1;
  const MapGeometry g = MakeGeometry(in);
  struct Case {
    double x, y;
    bool ok;
    double lat, lon;
  } cases[] = {
      {512, 256, true, 0, 110},
      {256 + 256 * std::sqrt(1.0000005), 256, true, 0, 110},  // just past: within tolerance
      {256 + 256 * std::sqrt(1.000002), 256, false, kInvalidCoordinate, kInvalidCoordinate},
      {256, 512, true, 90, 20},  // y counts upwards: the top is north
      {256, 0, true, -90, 20}};
  for (const Case& c : cases) {
    LatLonPoint p = PixelToLatLon(g, c.x, c.y);
    EXPECT_EQ(p.ok, c.ok) << c.x << "," << c.y;
    EXPECT_NEAR(p.lat, c.lat, 1e-6) << c.x << "," << c.y;
    EXPECT_NEAR(p.lon, c.lon, 1e-6) << c.x << "," << c.y;
  }
  EXPECT_LT(LatLonToPixel(g, 0, -160).z, 0);  // behind the globe
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
  struct Case {
    bool ortho;
    double lat, lon, h_extent, v_extent, angle;
  } cases[] = {{false, 0, 0, 360, 180, 0},
               {false, 0, 170, 60, 30, 0},
               {false, 80, 0, 40, 40, 0},
               {false, -45, -120, 5, 3, 0},
               {false, 10, 20, 30, 30, 30},
               {false, 80, 0, 40, 40, -75},
               {false, 0, 179.5, 2, 1, 200},
               {true, 0, 0, 2 * kEquatorialRadius, 0, 0},
               {true, 45, 10, 2 * kEquatorialRadius, 0, 0},
               {true, -60, -150, 3e6, 0, 0},
               {true, 89, 100, 2 * kEquatorialRadius, 0, 0},
               {true, 30, 179, 5e5, 0, 0}};
  for (const Case& c : cases) {
    MapGeometryInput in = c.ortho ? Orthographic(c.lat, c.lon, c.h_extent, c.h_extent, 400, 300)
                                  : Rectangular(c.lat, c.lon, c.h_extent, c.v_extent, 400, 300);
    in.angle = c.angle;
    EXPECT_GT(CheckRoundTrips(MakeGeometry(in)), 100)
        << c.lat << "," << c.lon << " angle " << c.angle;
  }
}

TEST(ConversionTest, UnsupportedProjectionReportsEachCall) {
  test::MessageCapture capture;
  MapGeometry g;
  g.projection = 1;
  EXPECT_FALSE(PixelToLatLon(g, 1, 1).ok);
  EXPECT_EQ(LatLonToPixel(g, 0, 0).z, -1.0);
  EXPECT_EQ(capture.Count("Error: Only support orthographic and rectangular projections for now"),
            2u);
}

}  // namespace
}  // namespace vmp
