// Drawing the features of one loaded vector tile of a layer, in file order:
// polygon groups (a polygon with the continuation flag set, the polygons
// that follow it and the first one without the flag) as one polygon of
// several rings, markers by themselves.
//
// Per feature: the view test (layers with Clip on; in a location query
// always, against the search box), MinPixelSize culling of polygon groups,
// the layer's attribute conditions and then an override's include and
// exclude lists (evaluated on the group's first polygon), then drawing:
// fills through FillPolygons when the layer's FillType has the fill bit (2),
// 1-pixel edges when it has the edge bit (1), markers as filled squares of
// MarkerSize in MarkerFillColor. In a location query nothing is drawn: a
// group is hit when its fill (whatever the FillType) or, for edge layers,
// one of its edges touches the search box; a marker when its square does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/rendering/draw_surface.h"
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

// A layer's drawing settings, read from its record once per layer.
struct VectorLayerStyle {
  bool view_test = true;
  double min_pixel_size = 0.0;
  bool fill = false;
  bool edges = true;
  PixelColour fill_colour;
  PixelColour edge_colour;
  PixelColour marker_colour;
  int64_t marker_size = 5;
};
VectorLayerStyle VectorStyleOf(const LayerRecord& record);

// Arrays the vector drawer reuses from tile to tile (owned by the renderer).
struct VectorScratch {
  EdgeTables edges;
  PixelRings rings;
  RingProjector projector;
  std::vector<const PolygonFeature*> group;
};

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
