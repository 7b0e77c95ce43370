// Polygon scan conversion: all rings of one polygon together, even-odd
// pairs of edges, spans written through DrawSpan (or, in a location query,
// tested against the search box).
//
// Scanline s is the pixel row whose centre lies at y = s. An edge from y0 to
// y1 (y0 < y1) covers the scanlines s with y0 <= s < y1, so its record runs
// from ceil(y0) to ceil(y1), the upper one excluded; an edge that covers no
// scanline (horizontal edges among them) never enters the edge table, which
// keeps every scanline crossing an even number of edges. Span ends become
// pixel columns by the rule of the edge: an edge with slope dx/dy >= 0 has
// its x rounded half away from zero, one with a negative slope has it
// truncated toward zero. Both end columns are drawn.
//
// Strokes (thick lines, marker symbols) are filled in the stroke mode: the
// nonzero winding rule, so that the overlapping pieces a stroke is built of
// (one quad a segment, wedges at the joins, discs at the caps, all wound the
// same way) make one shape, and pixel-centre coverage on both axes: column c
// is drawn when x_left <= c < x_right. The spans of a scanline then never
// share a pixel, so every pixel of a stroke is written once.
//
// Thin strokes have a faster way to the same pixels (FillConvexUnion): their
// pieces are convex, so each piece covers one stretch of every scanline it
// crosses, and the nonzero fill of pieces wound alike is the union of those
// stretches. Each piece is scan-converted by itself, the stretches are
// collected by scanline, sorted, merged and drawn, so that every pixel is
// still written once; no edge table and no active list are needed.
//
// Only the scanlines that can show are processed: those of the clip (the
// search box in a location query); stretches without active edges are
// jumped. The scanlines so processed count against VmpIterationMax, so the
// guard trips only for polygons that need that much real work, not for
// polygons that merely extend far beyond the image at a high zoom.
#pragma once

#include <cstdint>
#include <vector>

#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/pixel_colour.h"
#include "map_server/rendering/pixel_rings.h"

namespace vmp {

// One edge of the scan converter.
struct PolygonEdge {
  int64_t y_low;   // first scanline covered
  int64_t y_high;  // first scanline no longer covered
  double x_low;    // x at y_low
  double slope;    // dx/dy
  double x;        // x at the current scanline
  int32_t winding; // +1 for an edge running down the image in ring order, -1 up
};

// The pixel columns x1..x2 (both drawn) a convex piece covers on a scanline.
struct RowSpan {
  int64_t row;
  int64_t x1;
  int64_t x2;
};

enum class FillMode {
  kPolygon,  // even-odd pairs, the span-end rounding of polygons
  kStroke,   // nonzero winding, pixel centres (strokes and symbols)
};

class EdgeTables;

// The spans of convex pieces (each a convex polygon, all wound alike),
// collected piece by piece and drawn once as their union: each piece covers
// one stretch of every scanline it crosses (the pixel centres from its
// leftmost to its rightmost edge, by the edge arithmetic of the scan
// converter), and the stretches are merged by scanline before they are
// drawn, so every pixel is written once. The same pixels as the nonzero fill
// of the pieces (FillPolygons in FillMode::kStroke); the arrays only grow.
class PieceSpans {
 public:
  // Starts over; spans are kept within `area`.
  void Clear(const PixelRect& area);
  bool empty() const { return spans_.empty(); }
  const std::vector<RowSpan>& spans() const { return spans_; }

  // Adds the convex polygon p[0..n-1] (n >= 3; fewer have no area).
  // `finite`: the caller knows every coordinate to be a finite number of
  // moderate size (the pieces of the line stroker), which saves the checks.
  void AddPiece(const PixelVertex* p, size_t n, bool finite = false);

  // Draws the union in `colour` (nothing for an alpha of 0; an unknown kind
  // is reported), or in a location query tests it against the search box.
  // The scanlines holding spans count against VmpIterationMax as
  // FillPolygons counts its scanlines; false for a runaway (reported).
  bool Draw(DrawSurface& surface, EdgeTables& tables, const PixelColour& colour) const;

 private:
  PixelRect area_;
  double top_ = 0, bottom_ = -1;  // the area's first and last scanline
  std::vector<RowSpan> spans_;    // as made (a span meeting the last one joins it)
  int64_t first_row_ = 0, last_row_ = -1;
  std::vector<double> rows_of_;   // a piece's vertices' first scanlines
  std::vector<double> lefts_, rights_;  // its stretch on each scanline
};

// The global edge table and the active edge list. Owned process-wide by the
// renderer and reused by every polygon: both arrays only grow, so polygons
// after the first allocate nothing.
class EdgeTables {
 public:
  size_t edge_capacity() const { return edges_.capacity(); }
  size_t unsorted_capacity() const { return unsorted_.capacity(); }
  size_t active_capacity() const { return active_.capacity(); }
  // Scanlines processed by the last FillPolygons call.
  int64_t last_scanlines() const { return last_scanlines_; }

 private:
  friend bool FillPolygons(DrawSurface&, EdgeTables&, const PixelRings&, const PixelColour&,
                           FillMode);
  friend bool FillConvexUnion(DrawSurface&, EdgeTables&, const PixelRings&, const PixelColour&);
  friend class PieceSpans;
  // Moves the built edges into the edge table ordered by first scanline.
  void SortByFirstRow(const PixelRect& area);

  std::vector<PolygonEdge> unsorted_;  // the edges as built, before the bucket sort
  std::vector<PolygonEdge> edges_;     // the global edge table, by first scanline
  std::vector<PolygonEdge> active_;
  std::vector<PolygonEdge> joining_;   // edges joining the active list, for the merge
  std::vector<uint32_t> row_counts_;   // bucket sort: edges (or spans) per scanline
  std::vector<RowSpan> row_spans_;     // PieceSpans::Draw: the spans by scanline
  PieceSpans pieces_;                  // FillConvexUnion's collector
  int64_t last_scanlines_ = 0;
};

// The pixel column of a span end on an edge with this slope.
int64_t SpanColumn(double x, double slope);

// Scan-converts the polygon made of all rings of `rings`. In a location
// query a span that touches the search box sets the surface's hit flag and
// ends the scan at once. Returns false when the polygon was abandoned
// because it took more than VmpIterationMax scanlines (three messages,
// severity 1); the caller goes on with the next polygon.
bool FillPolygons(DrawSurface& surface, EdgeTables& tables, const PixelRings& rings,
                  const PixelColour& colour, FillMode mode = FillMode::kPolygon);

// The stroke mode's fill of `pieces` when every ring is a convex polygon and
// all are wound the same way (no holes): the same pixels as FillPolygons in
// FillMode::kStroke, each written once (PieceSpans). Its memory grows with
// the scanlines each piece covers: meant for thin strokes.
bool FillConvexUnion(DrawSurface& surface, EdgeTables& tables, const PixelRings& pieces,
                     const PixelColour& colour);

}  // namespace vmp
