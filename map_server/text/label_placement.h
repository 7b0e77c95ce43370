// Where a polygon feature's label goes, by the layer's PolyLabelType, found
// on the feature's rings as drawn (pixel coordinates):
//
//   LINE LABEL      along the line, turned to follow it: on the longest run
//                   of drawn edges, at the stretch as long as the text that
//                   is straightest (preferring the middle); no label when
//                   the line is shorter than the text
//   MID LINE LABEL  at the middle (by length) of that run, turned to the
//                   direction of the line there; always placed
//   AREA LABEL      at an interior point: the middle of the widest span
//                   inside the rings (even-odd, as filled) over a set of
//                   scanlines, so concave and holed shapes are labelled
//                   inside; the PolyLabelCenter attribute, when the feature
//                   has it, gives the point instead (G: lon, lat)
//   BBOX LABEL      at the centre of the rings' bounding box
//
// Line labels are kept readable: their angle is folded into -90..90 degrees.
#pragma once

#include <vector>

#include "map_server/rendering/pixel_rings.h"

namespace vmp {

enum PolyLabelType : int64_t { kLineLabel = 0, kMidLineLabel = 1, kAreaLabel = 2, kBBoxLabel = 3 };

struct LabelPoint {
  double x = 0.0;
  double y = 0.0;
  double angle = 0.0;  // degrees, counter-clockwise on the image
};

class LabelPlacer {
 public:
  // The middle of the widest even-odd span; false when the rings hold none.
  bool InteriorPoint(const PixelRings& rings, LabelPoint* out);
  // The centre of the rings' box; false without points.
  static bool BoxCentre(const PixelRings& rings, LabelPoint* out);
  // A point on the longest run of edges: the middle (`middle`), or the
  // straightest stretch of `text_length` pixels; false when there is no
  // run, or (not `middle`) the run is shorter than the text.
  bool LinePoint(const PixelRings& rings, double text_length, bool middle, LabelPoint* out);

 private:
  std::vector<double> crossings_;
  std::vector<PixelVertex> run_;
  std::vector<double> run_length_;  // cumulative length at each run point
};

}  // namespace vmp
