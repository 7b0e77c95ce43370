// The rectangular projection: longitude and latitude map linearly to x and
// y, optionally rotated about the image centre. Called per pixel by the
// renderers, so everything is precomputed at setup.
#pragma once

#include "map_server/geometry/map_geometry.h"
#include "map_server/geometry/rotation.h"

namespace vmp {

inline PixelPoint RectangularLatLonToPixel(const MapGeometry& g, double lat, double lon) {
  PixelPoint p;
  p.z = (lat >= -90.0 && lat <= 90.0 && lon >= g.world_min_lon && lon <= g.world_max_lon) ? 1.0
                                                                                          : -1.0;
  p.x = (lon - g.min_lon) * g.scale_x;
  p.y = (g.max_lat - lat) * g.scale_y;
  if (g.rotated) RotatePoint(g, -1, p.x, p.y);
  return p;
}

// y is the ordinary (downward) row. Longitudes past +-180 (but within the
// world seen from the centre) are shifted by 360 once.
inline LatLonPoint RectangularPixelToLatLon(const MapGeometry& g, double x, double y) {
  if (g.rotated) RotatePoint(g, +1, x, y);
  LatLonPoint r;
  r.lon = x * g.inv_scale_x + g.min_lon;
  r.lat = (g.height_m1 - y) * g.inv_scale_y + g.min_lat;
  r.ok = true;
  // Written so that NaN counts as off the map.
  if (!(r.lat <= g.world_max_lat_tol && r.lat >= g.world_min_lat_tol)) {
    r.lat = kInvalidCoordinate;
    r.ok = false;
    return r;
  }
  if (!(r.lon <= g.world_max_lon_tol && r.lon >= g.world_min_lon_tol)) {
    r.lon = kInvalidCoordinate;
    r.ok = false;
    return r;
  }
  if (r.lon > 180.000001)
    r.lon -= 360.0;
  else if (r.lon < -180.000001)
    r.lon += 360.0;
  return r;
}

}  // namespace vmp
