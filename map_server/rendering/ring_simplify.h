// Pixel-space simplification of projected rings before they are filled and
// stroked. Detailed data drawn small has many vertices to a pixel; each one
// costs edges and stroke pieces, yet shows nothing of its own.
//
// Within every stretch of edge segments of a ring, vertices are dropped as
// long as the segment that replaces them passes within `tolerance` pixels of
// each of them (a greedy walk along the stretch, keeping for each start the
// cone of directions that pass close enough to every vertex so far; a
// vertex beyond the segment's end, farther from its start, ends it). The
// simplified line stays within `tolerance` of the original everywhere, so a
// fill changes only at pixel centres that lie within the tolerance of the
// ring's boundary and a stroke only at pixel centres within the tolerance
// of its outline: differences of a fraction of a pixel, never a shifted or
// lost span elsewhere. Kept always: each ring's first and last vertex, the
// vertices where a stretch of edges begins or ends (segments made by
// clipping, such as arcs along the globe's outline, are left as they are)
// and vertices next to coordinates that are not numbers.
//
// Fill and edges use the same simplified rings, so edges stay centred on the
// fill's boundary.
#pragma once

#include "map_server/rendering/pixel_rings.h"

namespace vmp {

// The tolerance the vector drawer uses (pixels): a quarter of a pixel.
inline constexpr double kRingTolerance = 0.25;

// Replaces `out` with `in` simplified (arrays reused). A tolerance of 0 or
// less (or not a number) copies the rings.
void SimplifyRings(const PixelRings& in, double tolerance, PixelRings& out);

}  // namespace vmp
