// Grid layers: parallels and meridians.
//
// Lines lie on the whole multiples of the intervals (so the equator and the
// prime meridian are always among them) within the layer's bounds
// GridMinLat..GridMaxLat and GridMinLon..GridMaxLon; a bound beyond +-1000
// degrees (the defaults are +-10000) means no bound on that side, and
// longitude bounds may cross the antimeridian (170..190 is the 20 degrees
// around it). Parallels run over the longitude bounds, meridians over the
// latitude bounds.
//
// Intervals: GridLatInterval and GridLonInterval, or with AdaptiveGrid = k
// (k > 0) for both the smallest of the steps 90, 45, 30, 20, 15, 10, 5, 2, 1
// degrees and then, below a degree, 0.5, 0.2, 0.1, 0.05 ... (decimal grid
// labels, DecimalGridLabels 1) or 30', 20', 15', 10', 5', 2', 1', 30", 20",
// 15", 10", 5", 2", 1", 0.5" ... (DecimalGridLabels 0) that is at least
// 30 / (k x zoom) degrees: 30 degrees on a map of the whole world (zoom 1),
// a tenth of that ten times closer, k times as dense with k.
//
// Drawing: EdgeColor, LineWidth and Alpha through the layer's transparency
// kind, all lines as one stroke (crossings are written once) with round
// ends. In the rectangular projection the lines are straight; on the globe
// they are drawn as dense polylines over the part of each circle that the
// view can show, cut at the edge of the visible hemisphere (no cap there).
#pragma once

#include <cstdint>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/geometry/map_geometry.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/line_stroker.h"
#include "map_server/rendering/scan_converter.h"

namespace vmp {

// A direction with more lines than this in view is not drawn ("Too many grid
// lines, grid direction not drawn", severity 2).
inline constexpr int64_t kMaxGridLines = 4096;

struct LonRange {
  double min_lon;
  double max_lon;
};

// The lines of a grid layer for a view: what the drawing uses, and what grid
// labels are placed by.
struct GridLines {
  double lat_interval = 0.0;  // degrees; 0: no parallels
  double lon_interval = 0.0;  // degrees; 0: no meridians
  // Latitudes of the parallels, south to north.
  std::vector<double> parallels;
  // Longitudes of the meridians, west to east, as placed in the view: in the
  // rectangular projection within CenterLon +- 180 (so possibly beyond
  // +-180: WrapDegrees180 gives the label's value), on the globe in
  // [-180, 180).
  std::vector<double> meridians;
  // Meridians run from min_lat to max_lat; parallels over lon_ranges (at
  // most three pieces, west to east, in the meridians' longitudes).
  double min_lat = 0.0;
  double max_lat = 0.0;
  std::vector<LonRange> lon_ranges;
  // A direction left out for having more than kMaxGridLines lines in view.
  bool too_many_parallels = false;
  bool too_many_meridians = false;
};

// The interval AdaptiveGrid chooses at this zoom (see above).
double AdaptiveGridInterval(int64_t coefficient, double zoom, bool decimal);

// The grid lines of `layer` for the view of `geometry` (rectangular: the
// lines crossing the visible rectangle; globe: all lines of the bounds).
GridLines ComputeGridLines(const Layer& layer, const MapGeometry& geometry);

// Draws a grid layer (nothing in a location query).
void DrawGridLayer(DrawSurface& surface, LineStroker& stroker, EdgeTables& tables, Layer& layer);

}  // namespace vmp
