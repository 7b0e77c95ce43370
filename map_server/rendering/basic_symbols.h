// Plain renderings of polygon edges (1-pixel lines) and markers (filled
// squares). Full cartography (line widths, marker kinds, icons, labels)
// replaces these functions; the vector drawer calls nothing else for them.
// In a location query they draw nothing and set the surface's hit flag when
// what they would draw touches the search box.
#pragma once

#include <cstdint>

#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/pixel_colour.h"
#include "map_server/rendering/pixel_rings.h"

namespace vmp {

// A 1-pixel line between two points in pixel coordinates (both end pixels
// drawn), clipped to the surface first so that only its visible part is
// walked. Segments with a coordinate that is not a number are skipped.
void DrawLine(DrawSurface& surface, double x0, double y0, double x1, double y1,
              const PixelColour& colour);

// The edges of every ring: each segment whose edge flag is set.
void DrawRingEdges(DrawSurface& surface, const PixelRings& rings, const PixelColour& colour);

// A filled square of `size` pixels a side centred on the point.
void DrawMarkerSquare(DrawSurface& surface, double x, double y, int64_t size,
                      const PixelColour& colour);

}  // namespace vmp
