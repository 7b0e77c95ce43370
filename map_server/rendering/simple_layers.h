// Layers drawn without tiles: backgrounds and globe outlines with their
// halo; the layer kind check of the layer loop; the tile-bounds drawing of
// diagnostic code 1001.
#pragma once

#include <cstdint>
#include <span>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/layer.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/pixel_colour.h"

namespace vmp {

// True for the layer kinds the renderer draws (image, grid, vector,
// outline, background); any other reports "Cannot render layer type" with
// the number (severity 1) and the layer is skipped.
bool CheckLayerType(int64_t layer_type);

// Fills the visible rectangle (the clip) with the colour.
void DrawBackground(DrawSurface& surface, const PixelColour& colour);
// A background layer: its FillColor, Alpha and transparency kind.
void DrawBackgroundLayer(DrawSurface& surface, const Layer& layer);

// The outline of the map, `width` pixels wide, drawn inside the map along
// its edge: for each row the first and last pixel whose pixel-to-lat/lon
// conversion succeeds are found (estimated from the projection, refined
// pixel by pixel), and every map pixel with a pixel off the map within
// `width` pixels (Euclidean distance of pixel centres) is drawn, once. A
// width of 1 draws the map pixels with an off-map neighbour left, right,
// above or below. Where the map runs on beyond the image's sides nothing is
// drawn there. In the orthographic projection this is the edge of the
// globe. When the refinement does not settle within a few pixels, "Outline
// pixel convergence error" is reported (severity 0, once a call) and the row
// is taken as off the map.
void DrawOutline(DrawSurface& surface, const PixelColour& colour, int64_t width = 1);

// The halo of the globe (orthographic projection only): the pixels off the
// globe out to `length` times the globe's radius beyond its edge, in the
// colour with an alpha falling from the colour's at the edge to 0 at the
// halo's end ((1 - t)^2 for t from 0 to 1).
void DrawGlobeHalo(DrawSurface& surface, const PixelColour& colour, double length);

// An outline layer: its EdgeColor, LineWidth, Alpha and transparency kind;
// with GradientType AROUND_GLOBE (1) first the halo in its gradient colour
// (EdgeColor when it has none) over GradientLength radii. Zoom-driven
// attribute maps apply (feature_style.h).
void DrawOutlineLayer(DrawSurface& surface, Layer& layer);

// The bounds of tiles as lat/lon rectangles (edges followed in small steps,
// so they bend with the projection), 1-pixel lines in red: the drawing of
// diagnostic code 1001.
void DrawTileBounds(DrawSurface& surface, std::span<const Box> bounds);

}  // namespace vmp
