// The geographic box a map's view covers, and the test of an alias box
// against it.
//
// "The view falls in a box" means the two overlap (share some area; touching
// edges do not count): an alias enable box turns its layers on as soon as any
// part of the view shows the box's region, and a disable box turns them off
// as soon as the view reaches into it. Longitudes are compared also shifted
// by +-360, so boxes across the date line work.
#pragma once

#include "map_server/dataset/dataset.h"
#include "map_server/geometry/map_geometry.h"

namespace vmp {

struct ViewBox {
  double min_lon = 0.0;  // may run past +-180 (continuous across the date line)
  double max_lon = 0.0;
  double min_lat = 0.0;
  double max_lat = 0.0;
};

// The box of the visible rectangle: the clamped bounds of an unrotated
// rectangular view; otherwise the box of points sampled along the visible
// rectangle's border, widened to the pole (and to every longitude) when a
// pole is in view, or to the visible hemisphere when the border leaves the
// globe.
ViewBox ComputeViewBox(const MapGeometry& geometry);

// True when the view and the box overlap.
bool ViewFallsInBox(const ViewBox& view, const Box& box);

}  // namespace vmp
