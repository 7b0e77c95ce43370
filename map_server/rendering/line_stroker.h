// Thick lines and symbol shapes, drawn as filled shapes through the scan
// converter's stroke mode (scan_converter.h).
//
// A stroke is collected piece by piece and filled once: every segment adds a
// quad of the line's width, every vertex where the line turns a round wedge
// on the outer side, every free end a round cap (a disc) or nothing (butt
// cap). All pieces are wound the same way and filled by the nonzero rule, so
// their union is drawn and each pixel is written once, whatever the
// transparency kind: no double blending where pieces overlap at joins or
// where lines of one stroke cross.
//
// Segments are first clipped to the area being drawn widened by the half
// width and two pixels, so lines far beyond the image cost nothing and huge
// coordinates never reach the scan converter; ends made by that clipping get
// no cap (it would not show). Points that are not numbers break the line.
//
// Thin strokes (lines up to kMaxUnionWidth pixels wide) are filled as the
// union of their convex pieces (PieceSpans), each piece scan-converted into
// spans as it is made: the same pixels as the nonzero fill, at a fraction of
// the cost for the many small pieces of detailed lines. Their pieces are not
// kept as shapes (shapes() holds only discs and boxes then).
//
// The arrays only grow: after the first few features, building and filling a
// stroke allocates nothing.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/pixel_colour.h"
#include "map_server/rendering/pixel_rings.h"
#include "map_server/rendering/scan_converter.h"

namespace vmp {

enum class LineCap { kRound, kButt };

// Widths are clamped to this range (pixels).
inline constexpr double kMinLineWidth = 1.0;
inline constexpr double kMaxLineWidth = 1000.0;
// Strokes up to this width (pixels) are filled piece by piece.
inline constexpr double kMaxUnionWidth = 8.0;

class LineStroker {
 public:
  // Starts a new stroke over `area` (the surface's active rectangle).
  void Begin(const PixelRect& area, double width, LineCap cap = LineCap::kRound);

  // A line through the points; `closed` joins the last point back to the
  // first. An open line's ends get the stroke's cap unless `cap_start` or
  // `cap_end` says otherwise (a line cut at the edge of the globe, say).
  void AddPath(std::span<const PixelVertex> points, bool closed, bool cap_start = true,
               bool cap_end = true);
  // The edges of rings: every stretch of segments whose edge flag is set
  // (a ring whose segments all are edges is a closed path).
  void AddRingEdges(const PixelRings& rings);

  // Whole shapes, for symbols (not clipped; `hole` winds the shape the other
  // way so that it cuts out of a shape added before it): a disc whose
  // outline deviates from the circle by at most `tolerance` pixels, and an
  // axis-parallel box from (x0, y0) to (x1, y1).
  void AddDisc(double x, double y, double radius, bool hole = false, double tolerance = 0.2);
  void AddBox(double x0, double y0, double x1, double y1, bool hole = false);

  bool empty() const { return shapes_.ring_count() == 0 && line_spans_.empty(); }
  const PixelRings& shapes() const { return shapes_; }

  // Fills everything added since Begin (in a location query: tests it
  // against the search box), once. False only for a runaway scan (reported).
  bool Fill(DrawSurface& surface, EdgeTables& tables, const PixelColour& colour);

 private:
  void AddSegmentRun(const PixelVertex* points, size_t count, bool closed, bool cap_start = true,
                     bool cap_end = true);
  void AddQuad(const PixelVertex& a, const PixelVertex& b, double ux, double uy);
  void AddJoin(const PixelVertex& v, double ux1, double uy1, double ux2, double uy2);
  void AddCap(const PixelVertex& v);
  // A join's or cap's points, then its end: into the shapes, or (thin
  // strokes) scan-converted at once.
  void PiecePoint(double x, double y);
  void EndPiece();

  PixelRings shapes_;
  bool has_holes_ = false;        // a shape wound the other way was added
  bool thin_ = true;              // pieces go to line_spans_
  PieceSpans line_spans_;
  std::vector<PixelVertex> piece_;  // the join or cap being made
  bool have_last_cap_ = false;
  PixelVertex last_cap_{0, 0};
  std::vector<PixelVertex> run_;  // a ring's edge run that wraps past its end
  double half_ = 0.5;
  double join_step_ = 1.0;        // radians between the points of a round join
  double single_step_cos_ = 0.5;  // turns with a larger cosine take one chord
  double skip_join_cos_ = 1.0;    // turns with a larger cosine take no join
  std::vector<PixelVertex> cap_points_;  // the cap's disc around (0, 0)
  LineCap cap_ = LineCap::kRound;
  // The area widened: segments are clipped to it.
  double left_ = 0, right_ = -1, top_ = 0, bottom_ = -1;
};

// Strokes one polyline by itself (Begin, AddPath, Fill).
bool StrokePath(DrawSurface& surface, EdgeTables& tables, LineStroker& stroker,
                std::span<const PixelVertex> points, double width, const PixelColour& colour,
                LineCap cap = LineCap::kRound);

}  // namespace vmp
