#include "map_server/rendering/row_coordinates.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/conversions.h"

namespace vmp {

namespace {

constexpr double kTanPiOver8 = 0.41421356237309503;
constexpr double kPiOver4 = 0.7853981633974483;
constexpr double kPiOver2 = 1.5707963267948966;
constexpr double kPiValue = 3.141592653589793;
// The globe test of the per-pixel conversion.
constexpr double kGlobeRadius2 = 1.000001;

// atan(a) = a + a z R(z), z = a^2, for |a| <= tan(pi/8): R of degree 10
// fitted on Chebyshev nodes, error below 1e-17. kR[p] is the coefficient
// of z^p; evaluated by Estrin's scheme (short dependency chains).
constexpr double kR[] = {-0.3333333333333333,  0.1999999999999552,   -0.14285714284666542,
                         0.11111111015256361,  -0.09090904578123903, 0.07692183190826087,
                         -0.06664511447381948, 0.0585814891280221,   -0.0508544973794026,
                         0.03923165829558719,  -0.01917688711906226};

inline double AtanR(double z) {
  const double z2 = z * z, z4 = z2 * z2, z8 = z4 * z4;
  const double p01 = kR[0] + kR[1] * z, p23 = kR[2] + kR[3] * z, p45 = kR[4] + kR[5] * z;
  const double p67 = kR[6] + kR[7] * z, p89 = kR[8] + kR[9] * z;
  return (p01 + z2 * p23) + z4 * (p45 + z2 * p67) + z8 * (p89 + z2 * kR[10]);
}

inline double Atan2Kernel(double y, double x) {
  const double ax = std::fabs(x), ay = std::fabs(y);
  const double big = ax > ay ? ax : ay;
  const double small = ax > ay ? ay : ax;
  // small / big in [0, 1]; above tan(pi/8) reduced by atan(a) = pi/4 +
  // atan((a - 1) / (a + 1)). One division either way.
  const bool reduce = small > kTanPiOver8 * big;
  const double num = reduce ? small - big : small;
  const double den = reduce ? small + big : big;
  const double a = num / (den > 0.0 ? den : 1.0);  // (0, 0) gives 0
  const double z = a * a;
  double t = a + a * z * AtanR(z) + (reduce ? kPiOver4 : 0.0);
  t = ay > ax ? kPiOver2 - t : t;
  t = x < 0.0 ? kPiValue - t : t;
  return std::copysign(t, y);
}

// Machines with AVX2 and FMA run the row loops 4 doubles at a time; the
// others take the baseline build of the same code.
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define VMP_ROW_CLONES __attribute__((target_clones("arch=x86-64-v3", "default")))
#else
#define VMP_ROW_CLONES
#endif

// Globe rows: the point (x, y, z) of the unit sphere under each pixel (x
// towards the centre's meridian on the equator, y east, z north), its
// latitude and its longitude east of the centre (degrees, before the
// centre's longitude is added). Columns are counted from `first` in an int
// so that the conversion to double vectorises; a row is never 2^31 wide.
VMP_ROW_CLONES void GlobeRow(const MapGeometry& g, double py, double first, int count,
                             double* __restrict lat, double* __restrict east) {
  const double sin0 = g.sin_center_lat, cos0 = g.cos_center_lat;
  const double cx = g.center_x, isx = g.inv_scale_x;
  const double py2 = py * py;
  for (int i = 0; i < count; ++i) {
    const double px = (first + static_cast<double>(i) - cx) * isx;
    double rho2 = px * px + py2;
    rho2 = rho2 < 1.0 ? rho2 : 1.0;
    const double cos_c = std::sqrt(1.0 - rho2);
    const double x = cos_c * cos0 - py * sin0;
    const double z = py * cos0 + cos_c * sin0;
    lat[i] = Atan2Kernel(z, std::sqrt(x * x + px * px)) * kRadiansToDegrees;
    east[i] = Atan2Kernel(px, x) * kRadiansToDegrees;
  }
}

inline double WrapLongitude(double l) {
  l = l > 180.0 ? l - 360.0 : l;
  return l < -180.0 ? l + 360.0 : l;
}

// Columns of a globe row from the kernel's results: `count` columns taken
// backwards from `lat_end` / `east_end` (mirrors: longitudes east of the
// centre negated), or forwards; the centre's longitude added and wrapped.
VMP_ROW_CLONES void MirrorColumns(const double* __restrict lat_end, const double* __restrict east_end, int count,
                                  double lon0, double* __restrict lat, double* __restrict lon) {
  for (int i = 0; i < count; ++i) {
    lat[i] = lat_end[-i];
    lon[i] = WrapLongitude(-east_end[-i] + lon0);
  }
}
VMP_ROW_CLONES void CopyColumns(const double* __restrict half_lat, const double* __restrict east, int count,
                                double lon0, double* __restrict lat, double* __restrict lon) {
  for (int i = 0; i < count; ++i) {
    lat[i] = half_lat[i];
    lon[i] = WrapLongitude(east[i] + lon0);
  }
}

// Columns x and W - 1 - x lie symmetrically about the centre (their px
// differ in sign only, exactly): the same latitude, and longitudes east of
// the centre that differ in sign only. The kernel runs over the columns at
// or right of the centre that the row needs, directly or as mirrors.
void GlobeRowMirrored(const MapGeometry& g, double py, RowCoordinates& out) {
  const int64_t last_column = g.width - 1;
  const int64_t centre = (last_column + 1) / 2;  // first column with px >= 0
  int64_t lo = std::max(out.first, centre), hi = out.last;
  if (out.first < centre) {
    lo = std::min(lo, last_column - std::min(out.last, centre - 1));
    hi = std::max(hi, last_column - out.first);
  }
  const size_t span = static_cast<size_t>(hi - lo + 1);
  if (out.half_lat.size() < span) {
    out.half_lat.resize(span);
    out.half_east.resize(span);
  }
  GlobeRow(g, py, static_cast<double>(lo), static_cast<int>(span), out.half_lat.data(), out.half_east.data());
  // Left of the centre the mirrors (read backwards, longitudes negated),
  // then the columns themselves: two plain loops that vectorise.
  const int64_t split = std::min(std::max(out.first, centre), out.last + 1);
  if (split > out.first) {
    const int64_t k = last_column - out.first - lo;
    MirrorColumns(out.half_lat.data() + k, out.half_east.data() + k, static_cast<int>(split - out.first),
                  g.center_lon, out.lat.data(), out.lon.data());
  }
  if (out.last >= split) {
    const int64_t k = split - lo, i = split - out.first;
    CopyColumns(out.half_lat.data() + k, out.half_east.data() + k, static_cast<int>(out.last + 1 - split),
                g.center_lon, out.lat.data() + i, out.lon.data() + i);
  }
}

// The per-pixel conversion's globe test.
void GlobeRowTest(const MapGeometry& g, double py, int64_t first, int64_t count, uint8_t* ok) {
  const double py2 = py * py;
  for (int64_t i = 0; i < count; ++i) {
    const double px = (static_cast<double>(first + i) - g.center_x) * g.inv_scale_x;
    ok[i] = px * px + py2 <= kGlobeRadius2;
  }
}

void PerPixelRow(const MapGeometry& g, double row, int64_t first, int64_t count, double* lat, double* lon,
                 uint8_t* ok) {
  for (int64_t i = 0; i < count; ++i) {
    const LatLonPoint p = PixelToLatLon(g, static_cast<double>(first + i), row);
    lat[i] = p.lat;
    lon[i] = p.lon;
    ok[i] = p.ok;
  }
}

// An unrotated rectangular row: RectangularPixelToLatLon's arithmetic with
// the latitude taken once.
void FlatRow(const MapGeometry& g, double y, int64_t first, int64_t count, double* lat, double* lon,
             uint8_t* ok) {
  const double row_lat = (g.height_m1 - y) * g.inv_scale_y + g.min_lat;
  if (!(row_lat <= g.world_max_lat_tol && row_lat >= g.world_min_lat_tol)) {
    std::fill(ok, ok + count, uint8_t{0});
    return;
  }
  for (int64_t i = 0; i < count; ++i) {
    double l = static_cast<double>(first + i) * g.inv_scale_x + g.min_lon;
    ok[i] = l <= g.world_max_lon_tol && l >= g.world_min_lon_tol;
    l = l > 180.000001 ? l - 360.0 : l;
    lon[i] = l < -180.000001 ? l + 360.0 : l;
    lat[i] = row_lat;
  }
}

}  // namespace

double RowAtan2(double y, double x) { return Atan2Kernel(y, x); }

void ComputeRowCoordinates(const MapGeometry& g, int64_t y, int64_t x0, int64_t x1, RowCoordinates& out) {
  out.first = x0;
  out.last = x1;
  if (g.projection == kOrthographicProjection) {
    // Only the columns near the globe's disc can be on it.
    const double py = (g.height_m1 - static_cast<double>(y) - g.center_y) * g.inv_scale_y;
    const double reach = kGlobeRadius2 - py * py;
    if (!(reach >= 0.0)) {
      out.last = x0 - 1;
      return;
    }
    const double half = std::sqrt(reach) * g.scale_x;
    out.first = std::max(x0, static_cast<int64_t>(std::floor(std::max(g.center_x - half, -1e15))) - 1);
    out.last = std::min(x1, static_cast<int64_t>(std::ceil(std::min(g.center_x + half, 1e15))) + 1);
  }
  if (out.last < out.first) return;
  const int64_t count = out.last - out.first + 1;
  if (out.lat.size() < static_cast<size_t>(count)) {
    out.lat.resize(static_cast<size_t>(count));
    out.lon.resize(static_cast<size_t>(count));
    out.ok.resize(static_cast<size_t>(count));
  }
  double* lat = out.lat.data();
  double* lon = out.lon.data();
  uint8_t* ok = out.ok.data();
  if (g.projection == kOrthographicProjection) {
    const bool usual = std::fabs(g.center_lat) <= 90.0 && std::fabs(g.center_lon) <= 180.0;
    const double row = g.height_m1 - static_cast<double>(y);
    if (usual) {
      const double py = (row - g.center_y) * g.inv_scale_y;
      GlobeRowTest(g, py, out.first, count, ok);
      GlobeRowMirrored(g, py, out);
    } else {
      PerPixelRow(g, row, out.first, count, lat, lon, ok);
    }
  } else if (g.projection == kRectangularProjection && !g.rotated) {
    FlatRow(g, static_cast<double>(y), out.first, count, lat, lon, ok);
  } else {
    PerPixelRow(g, static_cast<double>(y), out.first, count, lat, lon, ok);
  }
}

}  // namespace vmp
