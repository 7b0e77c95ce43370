// Inputs shared by the geometry tests.
#pragma once

#include "map_server/geometry/map_geometry.h"

namespace vmp::test {

inline MapGeometryInput Rectangular(double lat, double lon, double h_extent, double v_extent,
                                    int64_t width, int64_t height) {
  MapGeometryInput in;
  in.projection = kRectangularProjection;
  in.center_lat = lat;
  in.center_lon = lon;
  in.h_extent = h_extent;
  in.v_extent = v_extent;
  in.width = width;
  in.height = height;
  in.dataset_options = DatasetOptions{};
  return in;
}

// Extents in metres; a whole-globe view is 2 * kEquatorialRadius wide.
inline MapGeometryInput Orthographic(double lat, double lon, double h_extent, double v_extent,
                                     int64_t width, int64_t height) {
  MapGeometryInput in = Rectangular(lat, lon, h_extent, v_extent, width, height);
  in.projection = kOrthographicProjection;
  return in;
}

}  // namespace vmp::test
