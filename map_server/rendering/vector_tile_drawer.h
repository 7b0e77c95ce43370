// Drawing the features of one loaded vector tile of a layer, in file order:
// polygon groups (a polygon with the continuation flag set, the polygons
// that follow it and the first one without the flag) as one polygon of
// several rings, markers by themselves.
//
// Per feature: the view test (layers with Clip on; in a location query
// always, against the search box), MinPixelSize culling of polygon groups,
// the layer's attribute conditions and then an override's include and
// exclude lists (evaluated on the group's first polygon), the style of the
// feature (the layer's, changed by its attribute maps; feature_style.h) with
// its zoom range, then drawing.
//
// Rings are simplified in pixel space before they are stroked
// (ring_simplify.h: within a quarter of a pixel); fills take the rings as
// projected, the scan converter passes over edges between two scanlines at
// little cost.
//
// Polygons and polylines: a ring whose last point repeats its first (with
// at least three points) is closed, any other ring is an open polyline
// (shapefile arcs). Closed rings are filled through FillPolygons when the
// FillType has the fill bit (2) and their edges stroked when it has the edge
// bit (1); open rings are never filled, always stroked. Edges and polylines
// are LineWidth pixels wide in EdgeColor, with round joins and caps, each
// group's edges as one shape (line_stroker.h). Markers are drawn by
// markers.h with the marker settings.
//
// In a location query nothing is drawn: a group is hit when the fill of its
// closed rings (whatever the FillType) or its stroked lines touch the search
// box; a marker when its footprint does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/feature_style.h"
#include "map_server/rendering/icon_cache.h"
#include "map_server/rendering/line_stroker.h"
#include "map_server/rendering/pixel_colour.h"
#include "map_server/rendering/pixel_rings.h"
#include "map_server/rendering/ring_projection.h"
#include "map_server/rendering/scan_converter.h"
#include "map_server/vector/attr_condition.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

class LabelCollector;  // map_server/text/label_layout.h

// Counts kept over the vector tiles of a layer (location queries count nothing).
struct VectorDrawStats {
  int64_t polygons = 0;      // polygon groups drawn
  int64_t points = 0;        // their vertices
  int64_t rings = 0;         // their rings
  int64_t culled_small = 0;  // groups smaller than MinPixelSize
  int64_t clipped = 0;       // groups wholly outside the view
  int64_t markers = 0;       // markers drawn

  VectorDrawStats& operator+=(const VectorDrawStats& o);
  bool operator==(const VectorDrawStats&) const = default;
};

// Reports the counts ("Num polygons", "Num points", "Num rings", "Culled
// small polygons", "Clipped polygons", "Num markers") at verbosity 5 or more.
void ReportVectorStats(const VectorDrawStats& stats);

// The conditions of a "++" override besides the layer's own: features must
// match `include` (when given and not empty) and must not match `exclude`.
struct OverrideConditions {
  const AttrConditionList* include = nullptr;
  const AttrConditionList* exclude = nullptr;
};

// Arrays the vector drawer reuses from tile to tile (owned by the renderer).
struct VectorScratch {
  EdgeTables edges;
  PixelRings rings;       // closed rings of a group
  PixelRings simplified;  // and simplified for their edges
  PixelRings projected;   // open rings as projected
  PixelRings line_rings;  // open rings of a group
  RingProjector projector;
  LineStroker stroker;
  MarkerShapes markers;
  StyleBindings bindings;
  IconCache icons;
  std::vector<const PolygonFeature*> group;
  std::vector<const PolygonFeature*> closed;
  std::vector<const PolygonFeature*> open;
};

// Whether a polygon's ring is closed (at least three points, the last equal
// to the first); an open one is a polyline.
bool IsClosedRing(const PolygonFeature& polygon);

// Draws the features of `data` for `layer`. Returns false only when the
// layer cannot be drawn at all (an unknown transparency kind, reported
// once). With `hits`, a location query appends the index (in data.features)
// of every polygon group head and marker that touches the search box;
// without it the query stops at the first hit.
// With `labels`, every polygon group and marker that is drawn (or, in a
// location query, examined) is handed to the collector as a label
// candidate, once per copy of the world it is drawn in.
bool DrawVectorTile(DrawSurface& surface, VectorScratch& scratch, Layer& layer,
                    const VectorData& data, const OverrideConditions& override_conditions,
                    VectorDrawStats& stats, std::vector<size_t>* hits = nullptr,
                    LabelCollector* labels = nullptr);

}  // namespace vmp
