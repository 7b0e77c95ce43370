#include "map_server/rendering/globe_points.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

#include "map_server/geometry/conversions.h"

namespace vmp {

namespace {

constexpr double kTwoOverPi = 0.6366197723675814;
// pi/2 in three parts; the first two have 33 significant bits, so k times
// them is exact for |k| < 2^20.
constexpr double kPiOver2Hi = 1.5707963267341256;
constexpr double kPiOver2Mid = 6.077100506303966e-11;
constexpr double kPiOver2Lo = 2.0222662487959506e-21;
// Adding and subtracting it rounds to an integer, held in the low bits.
constexpr double kRoundMagic = 6755399441055744.0;  // 1.5 * 2^52
constexpr double kLargestAngle = 1e5;

// sin(r) = r + r^3 S(r^2), cos(r) = 1 - r^2 / 2 + r^4 C(r^2) for |r| <= pi/4.
constexpr double kS[] = {-0.16666666666666666, 0.008333333333330948, -0.00019841269836758574,
                         2.755731610255244e-06, -2.5051131845003624e-08, 1.5918129294866608e-10};
constexpr double kC[] = {0.041666666666666664, -0.0013888888888887398, 2.480158729876569e-05,
                         -2.7557317271729793e-07, 2.08761462684032e-09, -1.1382632425521717e-11};

inline void SinCos(double a, double& sin_a, double& cos_a) {
  const double shifted = a * kTwoOverPi + kRoundMagic;
  const double k = shifted - kRoundMagic;
  const uint64_t quadrant = std::bit_cast<uint64_t>(shifted) & 3;
  const double r = ((a - k * kPiOver2Hi) - k * kPiOver2Mid) - k * kPiOver2Lo;
  const double z = r * r, z2 = z * z;
  const double s = r + r * z * ((kS[0] + kS[1] * z) + z2 * (kS[2] + kS[3] * z) + z2 * z2 * (kS[4] + kS[5] * z));
  const double c = (1.0 - 0.5 * z) + z2 * ((kC[0] + kC[1] * z) + z2 * (kC[2] + kC[3] * z) + z2 * z2 * (kC[4] + kC[5] * z));
  // sin(r + q pi/2) and cos(r + q pi/2).
  const double sin_q = (quadrant & 1) ? c : s;
  const double cos_q = (quadrant & 1) ? s : c;
  sin_a = (quadrant & 2) ? -sin_q : sin_q;
  cos_a = ((quadrant + 1) & 2) ? -cos_q : cos_q;
}

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define VMP_GLOBE_CLONES __attribute__((target_clones("arch=x86-64-v3", "default")))
#else
#define VMP_GLOBE_CLONES
#endif

VMP_GLOBE_CLONES void ProjectKernel(const MapGeometry& g, const PolygonPoint* __restrict points, int count,
                                    double* __restrict x, double* __restrict y, double* __restrict z) {
  const double cos0 = g.cos_center_lat, sin0 = g.sin_center_lat, lon0 = g.center_lon;
  const double h = g.half_h_extent, v = g.half_v_extent, sx = g.scale_x, sy = g.scale_y;
  for (int i = 0; i < count; ++i) {
    double sin_phi, cos_phi, sin_dl, cos_dl;
    SinCos(points[i].y * kDegreesToRadians, sin_phi, cos_phi);
    SinCos((points[i].x - lon0) * kDegreesToRadians, sin_dl, cos_dl);
    x[i] = (cos_phi * sin_dl + h) * sx;
    y[i] = (v - (cos0 * sin_phi - sin0 * cos_phi * cos_dl)) * sy;
    z[i] = cos0 * cos_dl * cos_phi + sin0 * sin_phi;
  }
}

}  // namespace

void ProjectGlobePoints(const MapGeometry& g, const PolygonPoint* points, size_t count, double* x, double* y,
                        double* z) {
  // Chunks an int can count.
  constexpr size_t kChunk = size_t{1} << 30;
  for (size_t done = 0; done < count; done += kChunk) {
    const size_t n = std::min(kChunk, count - done);
    ProjectKernel(g, points + done, static_cast<int>(n), x + done, y + done, z + done);
  }
  for (size_t i = 0; i < count; ++i) {
    const double lat = points[i].y * kDegreesToRadians, dl = (points[i].x - g.center_lon) * kDegreesToRadians;
    if (std::fabs(lat) <= kLargestAngle && std::fabs(dl) <= kLargestAngle) continue;
    const PixelPoint p = OrthographicLatLonToPixel(g, points[i].y, points[i].x);
    x[i] = p.x;
    y[i] = p.y;
    z[i] = p.z;
  }
}

}  // namespace vmp
