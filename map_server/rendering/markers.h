// Marker symbols of point features.
//
// A marker is centred on the pixel nearest to its position. Its symbols, by
// the flags of the layer's MarkerType (added together; 0 draws no symbol):
//
//   BOX_FILL 4, CIRCLE_FILL 16   a square / disc of MarkerSize pixels across
//                                in MarkerFillColor (inside the edge when
//                                the matching edge flag is set too)
//   CUSTOM_ICON 64               the MarkerIconFile image at its own size,
//                                centred, blended by its alpha
//   BOX_EDGE 2, CIRCLE_EDGE 8    the square's / circle's rim, LineWidth
//                                pixels wide, inside MarkerSize
//   CROSS 1                      a "+" of MarkerSize with arms LineWidth wide
//   DOT 32                       a disc of MarkerSize / 3 pixels across
//                                (at least one pixel)
//
// drawn in that order; the rims, the cross and the dot are in
// MarkerEdgeColor and form one shape, as do the two fills. Every pixel of a
// shape is written once (line_stroker.h), through the layer's transparency
// kind and Alpha.
//
// The footprint of a marker is the box of its symbols and icon widened by
// MarkerMargin on every side: location queries hit a marker when its
// footprint touches the search box, and labels keep out of it.
#pragma once

#include <cstdint>

#include "map_server/image/image_record.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/line_stroker.h"
#include "map_server/rendering/pixel_colour.h"
#include "map_server/rendering/scan_converter.h"

namespace vmp {

// MarkerType flags.
enum MarkerFlag : int32_t {
  kMarkerCross = 1,
  kMarkerBoxEdge = 2,
  kMarkerBoxFill = 4,
  kMarkerCircleEdge = 8,
  kMarkerCircleFill = 16,
  kMarkerDot = 32,
  kMarkerCustomIcon = 64,
};

// Symbol sizes are clamped to this many pixels.
inline constexpr double kMaxMarkerSize = 4096.0;

struct MarkerStyle {
  int32_t type = 0;
  double size = 5.0;         // pixels across
  double margin = 1.0;       // pixels around the footprint
  double line_width = 1.0;   // of rims and the cross
  PixelColour edge_colour;
  PixelColour fill_colour;
  // CUSTOM_ICON, when its file loaded; blended with the edge colour's alpha
  // and transparency kind (the layer's).
  const LoadedImage* icon = nullptr;
};

// The footprint of a marker centred at (x, y) (pixel coordinates).
PixelRect MarkerFootprint(const MarkerStyle& style, double x, double y);

// The symbol shapes of the last style drawn, built once and moved to each
// marker's pixel (reused arrays: drawing markers allocates nothing once the
// shapes are built).
class MarkerShapes {
 public:
  // Draws the marker at (x, y); in a location query sets the surface's hit
  // flag when the footprint touches the search box. Positions that are not
  // numbers or lie far beyond the image are skipped.
  void Draw(DrawSurface& surface, EdgeTables& tables, double x, double y, const MarkerStyle& style);

 private:
  void Build(int32_t type, double size, double line_width);
  bool Fill(DrawSurface& surface, EdgeTables& tables, const PixelRings& shape, double dx, double dy,
            const PixelColour& colour);

  bool built_ = false;
  int32_t type_ = 0;
  double size_ = 0, line_width_ = 0;
  LineStroker builder_;
  PixelRings fills_, edges_;  // around the marker's pixel (0, 0)
  PixelRings placed_;
};

// Blends an image with its alpha (times the colour's alpha) through the
// colour's transparency kind, its top left pixel at (left, top).
void DrawIcon(DrawSurface& surface, const LoadedImage& icon, int64_t left, int64_t top,
              double alpha, int64_t trans_type);

}  // namespace vmp
