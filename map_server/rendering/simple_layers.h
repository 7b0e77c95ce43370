// Layers drawn without tiles: backgrounds and globe outlines; the layer
// kind check of the layer loop; the tile-bounds drawing of diagnostic code
// 1001.
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

// The outline of the map: for each row of the visible rectangle the first
// and last pixel whose pixel-to-lat/lon conversion succeeds, drawn only
// where the map really ends there (the pixel beyond fails too), and joined
// to the previous row's ends so that the outline has no gaps; the first and
// last rows of the map are drawn whole. In the orthographic projection this
// is the edge of the globe. Each end is estimated from the projection and
// refined pixel by pixel; when the refinement does not settle within a few
// pixels, "Outline pixel convergence error" is reported (severity 0, once a
// layer) and the row is left out.
void DrawOutline(DrawSurface& surface, const PixelColour& colour);
// An outline layer: its EdgeColor, Alpha and transparency kind.
void DrawOutlineLayer(DrawSurface& surface, const Layer& layer);

// The bounds of tiles as lat/lon rectangles (edges followed in small steps,
// so they bend with the projection), in red: the drawing of diagnostic
// code 1001.
void DrawTileBounds(DrawSurface& surface, std::span<const Box> bounds);

}  // namespace vmp
