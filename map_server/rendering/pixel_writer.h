// Writing pixels and horizontal runs of pixels into the map image through a
// layer's transparency kind.
#pragma once

#include <cstdint>

#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/pixel_colour.h"

namespace vmp {

// Reports "Cannot render layer transparency type" with the kind (severity 1).
void ReportUnknownTransType(int64_t kind);

// Writes pixel (x, y): nothing outside the clip, nothing for an alpha of
// exactly 0, nothing during a location query; otherwise each channel by the
// colour's transparency kind (pixel_colour.h). An unknown kind is reported
// and nothing is written.
void SetMapPixel(DrawSurface& surface, int64_t x, int64_t y, const PixelColour& colour);

// Writes the pixels of row y from column x1 to column x2, both ends
// included (nothing when x1 > x2), as SetMapPixel would one by one. The run
// is clipped once; an unknown kind is reported once per run.
void DrawSpan(DrawSurface& surface, int64_t x1, int64_t y, int64_t x2, const PixelColour& colour);

// The blend table of a colour of a known kind (built on first use, kept in
// the surface's few tables).
const BlendTable& BlendTableFor(DrawSurface& surface, const PixelColour& colour);

}  // namespace vmp
