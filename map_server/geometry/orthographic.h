// The orthographic projection: a view of the globe from space, centred on
// (CenterLat, CenterLon). Called per pixel by the renderers, so everything
// that does not depend on the point is precomputed at setup.
#pragma once

#include <cmath>

#include "map_server/geometry/lat_lon.h"
#include "map_server/geometry/map_geometry.h"

namespace vmp {

inline constexpr double kDegreesToRadians = kPi / 180.0;
inline constexpr double kRadiansToDegrees = 180.0 / kPi;

// z is the cosine of the angular distance from the view centre: positive on
// the visible hemisphere.
inline PixelPoint OrthographicLatLonToPixel(const MapGeometry& g, double lat, double lon) {
  const double phi = lat * kDegreesToRadians;
  const double dlambda = (lon - g.center_lon) * kDegreesToRadians;
  const double sin_phi = std::sin(phi), cos_phi = std::cos(phi);
  const double sin_dl = std::sin(dlambda), cos_dl = std::cos(dlambda);
  PixelPoint p;
  p.x = (cos_phi * sin_dl + g.half_h_extent) * g.scale_x;
  p.y = (g.half_v_extent - (g.cos_center_lat * sin_phi - g.sin_center_lat * cos_phi * cos_dl)) *
        g.scale_y;
  p.z = g.cos_center_lat * cos_dl * cos_phi + g.sin_center_lat * sin_phi;
  return p;
}

// y is measured upwards from the bottom row (callers pass Height - 1 - row).
inline LatLonPoint OrthographicPixelToLatLon(const MapGeometry& g, double x, double y) {
  const double px = (x - g.center_x) * g.inv_scale_x;
  const double py = (y - g.center_y) * g.inv_scale_y;
  double rho2 = px * px + py * py;
  if (!(rho2 <= 1.000001)) return {kInvalidCoordinate, kInvalidCoordinate, false};
  if (rho2 > 1.0) rho2 = 1.0;
  if (rho2 == 0.0) {
    LatLonPoint r{g.center_lat, g.center_lon, true};
    NormalizeLatLon(r.lat, r.lon);
    return r;
  }
  const double rho = std::sqrt(rho2);
  const double cos_c = std::sqrt(1.0 - rho2);
  double s = py * g.cos_center_lat + cos_c * g.sin_center_lat;
  if (s > 1.0)
    s = 1.0;
  else if (s < -1.0)
    s = -1.0;
  LatLonPoint r;
  r.lat = std::asin(s) * kRadiansToDegrees;
  const double d = rho * g.cos_center_lat * cos_c - py * g.sin_center_lat * rho;
  const double n = rho * px;
  // 0 / 0 happens only on the meridian through a pole; take that meridian.
  double t = (d == 0.0 && n == 0.0) ? 0.0 : std::atan(n / d);
  if (d < 0.0) t += kPi;
  r.lon = WrapDegrees180(t * kRadiansToDegrees + g.center_lon);
  r.ok = true;
  return r;
}

}  // namespace vmp
