// The lat/lon of the pixels of one row of the map, for the image pass.
//
// Rectangular rows use the per-pixel conversion's own arithmetic (the
// latitude once per row when the map is not rotated), with the same results.
// Globe rows use a branch-free atan2 that the compiler vectorises, instead
// of the C library's asin and atan: lat = atan2(z, |(x, y)|) and lon =
// atan2(y, x) for the point (x, y, z) of the unit sphere under the pixel,
// computed for the columns right of the centre only (the left ones mirror
// them). The polynomial is accurate to about 1e-17; the results agree with
// the per-pixel conversion to within about 1e-11 degrees (near the poles the
// per-pixel asin is the less precise of the two), far below any tile's pixel
// size, and the pixels on the globe are the same. Unusual centres
// (|CenterLat| > 90 or |CenterLon| > 180) take the per-pixel conversion.
#pragma once

#include <cstdint>
#include <vector>

#include "map_server/geometry/map_geometry.h"

namespace vmp {

struct RowCoordinates {
  // Pixels first..last of the row (columns); outside them nothing is on the
  // map. ok[i] tells whether pixel first + i is.
  int64_t first = 0;
  int64_t last = -1;
  std::vector<double> lat;
  std::vector<double> lon;
  std::vector<uint8_t> ok;
  // Globe rows: the columns right of the centre (left ones mirror them).
  std::vector<double> half_lat;
  std::vector<double> half_east;
};

// Fills `out` for row y (an image row, counted from the top) between
// columns x0 and x1. The arrays only grow.
void ComputeRowCoordinates(const MapGeometry& geometry, int64_t y, int64_t x0, int64_t x1,
                           RowCoordinates& out);

// atan2(y, x) in radians, in [-pi, pi]; 0 for (0, 0).
double RowAtan2(double y, double x);

}  // namespace vmp
