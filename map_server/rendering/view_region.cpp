#include "map_server/rendering/view_region.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/rotation.h"

namespace vmp {

namespace {

// Widening of the pixel rectangle: half a pixel to its outer border, one
// more for rounding in the drawers.
constexpr double kMargin = 1.5;

// Largest cosine of the angular distance between the cap centre and a point
// of the meridian `dlon_deg` away, with latitude in [lat1, lat2] (radians).
// f(phi) = A sin(phi) + B cos(phi) has one interior maximum, at atan2(A, B).
double MeridianMaxCos(double sin_lat0, double cos_lat0, double dlon_deg, double lat1, double lat2) {
  const double a = sin_lat0;
  const double b = cos_lat0 * std::cos(dlon_deg * kDegreesToRadians);
  auto f = [&](double phi) { return a * std::sin(phi) + b * std::cos(phi); };
  double best = std::max(f(lat1), f(lat2));
  const double peak = std::atan2(a, b);
  if (peak > lat1 && peak < lat2) best = std::max(best, f(peak));
  return best;
}

}  // namespace

ViewRegion::ViewRegion(const MapGeometry& g, const PixelRect& rect) {
  orthographic_ = g.projection == kOrthographicProjection;
  if (rect.empty()) return;
  const double x_lo = static_cast<double>(rect.min_x) - kMargin;
  const double x_hi = static_cast<double>(rect.max_x) + kMargin;
  const double y_lo = static_cast<double>(rect.min_y) - kMargin;
  const double y_hi = static_cast<double>(rect.max_y) + kMargin;

  if (!orthographic_) {
    // The inverse of the rectangular conversion without its range checks.
    bool first = true;
    for (double x : {x_lo, x_hi}) {
      for (double y : {y_lo, y_hi}) {
        double rx = x, ry = y;
        if (g.rotated) RotatePoint(g, +1, rx, ry);
        const double lon = rx * g.inv_scale_x + g.min_lon;
        const double lat = (g.height_m1 - ry) * g.inv_scale_y + g.min_lat;
        if (first) {
          box_ = {lon, lon, lat, lat};
          first = false;
        }
        box_.min_lon = std::min(box_.min_lon, lon);
        box_.max_lon = std::max(box_.max_lon, lon);
        box_.min_lat = std::min(box_.min_lat, lat);
        box_.max_lat = std::max(box_.max_lat, lat);
      }
    }
    empty_ = !(box_.min_lon <= box_.max_lon && box_.min_lat <= box_.max_lat);
    return;
  }

  // Normalised view-frame coordinates: X east, Y up, unit globe.
  const double X0 = (x_lo - g.center_x) * g.inv_scale_x, X1 = (x_hi - g.center_x) * g.inv_scale_x;
  const double Y0 = (g.center_y - y_hi) * g.inv_scale_y, Y1 = (g.center_y - y_lo) * g.inv_scale_y;
  double r2_max = 0, a2 = 0;
  double qx = 0.5 * (X0 + X1), qy = 0.5 * (Y0 + Y1);
  const double q_len = std::hypot(qx, qy);
  if (q_len > 0.999) {
    qx *= 0.999 / q_len;
    qy *= 0.999 / q_len;
  }
  for (double X : {X0, X1}) {
    for (double Y : {Y0, Y1}) {
      r2_max = std::max(r2_max, X * X + Y * Y);
      a2 = std::max(a2, (X - qx) * (X - qx) + (Y - qy) * (Y - qy));
    }
  }
  // Points of the globe lie in the unit disc, so no farther than 1 + |Q| from Q.
  a2 = std::min(a2, (1.0 + std::hypot(qx, qy)) * (1.0 + std::hypot(qx, qy)));
  const double nx = std::clamp(0.0, X0, X1), ny = std::clamp(0.0, Y0, Y1);
  const double r2_min = nx * nx + ny * ny;
  if (!(r2_min <= 1.0)) return;  // the rectangle misses the globe
  r2_max = std::min(r2_max, 1.0);
  const double qz = std::sqrt(std::max(0.0, 1.0 - qx * qx - qy * qy));
  const double z_min = std::sqrt(1.0 - r2_max), z_max = std::sqrt(1.0 - r2_min);
  const double dz = std::max(std::fabs(z_min - qz), std::fabs(z_max - qz));
  // Every visible point lies within this chord of the centre.
  const double chord2 = a2 + dz * dz;
  cos_radius_ = std::max(-1.0, 1.0 - chord2 / 2.0) - 1e-9;
  const LatLonPoint centre =
      OrthographicPixelToLatLon(g, g.center_x + qx * g.scale_x, g.center_y + qy * g.scale_y);
  if (!centre.ok) return;
  cap_lat_ = centre.lat;
  cap_lon_ = centre.lon;
  sin_cap_lat_ = std::sin(cap_lat_ * kDegreesToRadians);
  cos_cap_lat_ = std::cos(cap_lat_ * kDegreesToRadians);
  empty_ = false;
}

bool ViewRegion::CapTouches(const Box& box) const {
  if (cos_radius_ <= -1.0) return true;
  const double lat1 = std::clamp(box.min_lat, -90.0, 90.0) * kDegreesToRadians;
  const double lat2 = std::clamp(box.max_lat, -90.0, 90.0) * kDegreesToRadians;
  const double width = box.max_lon - box.min_lon;
  if (!(lat1 <= lat2) || !(width >= 0.0)) return false;
  const double lat0 = cap_lat_ * kDegreesToRadians;
  double t = std::fmod(cap_lon_ - box.min_lon, 360.0);
  if (t < 0) t += 360.0;
  double best;
  if (width >= 360.0 || t <= width) {
    // The cap centre's meridian crosses the box: the nearest point is on it.
    best = std::cos(lat0 - std::clamp(lat0, lat1, lat2));
  } else {
    best = std::max(MeridianMaxCos(sin_cap_lat_, cos_cap_lat_, t - width, lat1, lat2),
                    MeridianMaxCos(sin_cap_lat_, cos_cap_lat_, 360.0 - t, lat1, lat2));
  }
  return best >= cos_radius_;
}

int ViewRegion::Shifts(const Box& box, double shifts[3]) const {
  if (empty_) return 0;
  if (orthographic_) {
    shifts[0] = 0.0;
    return CapTouches(box) ? 1 : 0;
  }
  if (!(box.max_lat >= box_.min_lat && box.min_lat <= box_.max_lat)) return 0;
  int count = 0;
  for (double shift : {0.0, 360.0, -360.0}) {
    if (box.max_lon + shift >= box_.min_lon && box.min_lon + shift <= box_.max_lon) shifts[count++] = shift;
  }
  return count;
}

}  // namespace vmp

