// Bringing latitudes and longitudes into range.
#pragma once

#include <cmath>

namespace vmp {

// Brings an angle into [-180, 180] exactly as repeated additions or
// subtractions of 360 would; large values are first reduced with fmod (exact,
// and the same result) so that no input makes the loops run long.
inline double WrapDegrees180(double degrees) {
  if (std::fabs(degrees) > 1440.0) degrees = std::fmod(degrees, 360.0);
  while (degrees > 180.0) degrees -= 360.0;
  while (degrees < -180.0) degrees += 360.0;
  return degrees;
}

// Brings (lat, lon) into range: the latitude into [-180, 180], then folded
// over a pole into [-90, 90] (the longitude moving by 180), then the
// longitude into [-180, 180]. Returns 1 when the latitude was folded, else 0.
inline int NormalizeLatLon(double& lat, double& lon) {
  int folded = 0;
  lat = WrapDegrees180(lat);
  if (lat > 90.0) {
    lat = 180.0 - lat;
    lon += 180.0;
    folded = 1;
  } else if (lat < -90.0) {
    lat = -180.0 - lat;
    lon += 180.0;
    folded = 1;
  }
  lon = WrapDegrees180(lon);
  return folded;
}

}  // namespace vmp
