// Rotation of pixel coordinates about the image centre by the map's Angle.
#pragma once

#include "map_server/geometry/map_geometry.h"

namespace vmp {

// Rotates (x, y) in place about (center_x, center_y). Direction +1 rotates by
// Angle (used before the inverse conversion), -1 by -Angle (after the forward
// conversion).
inline void RotatePoint(const MapGeometry& g, int direction, double& x, double& y) {
  const double c = g.cos_angle;
  const double s = direction < 0 ? -g.sin_angle : g.sin_angle;
  const double dx = x - g.center_x;
  const double dy = y - g.center_y;
  x = dx * c - dy * s + g.center_x;
  y = dx * s + dy * c + g.center_y;
}

}  // namespace vmp
