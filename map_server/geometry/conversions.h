// Latitude/longitude to pixel and back, in the map's projection. These two
// conversions place everything the renderers draw.
#pragma once

#include "map_server/geometry/map_geometry.h"
#include "map_server/geometry/orthographic.h"
#include "map_server/geometry/rectangular.h"

namespace vmp {

// Reports a projection code other than rectangular or orthographic.
[[gnu::cold]] void ReportUnsupportedProjection();

// Forward conversion. z: rectangular +1 inside the world seen from the
// centre, -1 outside; orthographic the cosine of the angular distance from
// the centre (positive on the visible hemisphere).
inline PixelPoint LatLonToPixel(const MapGeometry& g, double lat, double lon) {
  if (g.projection == kRectangularProjection) return RectangularLatLonToPixel(g, lat, lon);
  if (g.projection == kOrthographicProjection) return OrthographicLatLonToPixel(g, lat, lon);
  ReportUnsupportedProjection();
  return {kInvalidCoordinate, kInvalidCoordinate, -1.0};
}

// Inverse conversion. In the orthographic projection y is measured upwards
// from the bottom row; in the rectangular projection it is the image row.
inline LatLonPoint PixelToLatLon(const MapGeometry& g, double x, double y) {
  if (g.projection == kRectangularProjection) return RectangularPixelToLatLon(g, x, y);
  if (g.projection == kOrthographicProjection) return OrthographicPixelToLatLon(g, x, y);
  ReportUnsupportedProjection();
  return {kInvalidCoordinate, kInvalidCoordinate, false};
}

}  // namespace vmp
