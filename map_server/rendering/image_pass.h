// Image layers that follow one another in the layer list are drawn in one
// pass over the visible rectangle: each pixel is converted to lat/lon once
// (the row passed as Height - 1 - y in the orthographic projection), pixels
// off the map are skipped, and the layers are sampled at that point in
// order, each written through its transparency kind.
//
// A layer's samples: the colour of its image, or of its elevations
// (raster_style.h: ElevationMode COLOR and DATA AS COLOR), recoloured by its
// pixel map when it has one. With kind 5 a source pixel whose colour (as it
// is about to be drawn: after elevation colouring and pixel map) lies within
// TransColorPrecision of TransColor on every channel is transparent; the
// precision is on the scale of colour parameters (0..1 of the full channel
// range), so 0 means an exact match.
//
// Sampling is nearest-pixel, or bilinear (tile_sampler.h) when both the
// map's and the layer's ImageAntiAliasing are on (the map's is off unless the
// request turns it on, the layer's on unless its file turns it off); DATA
// AS COLOR layers are never interpolated. Transparent source pixels lend no
// colour to the interpolation.
//
// The colour's alpha is the layer's Alpha, times the sample's own alpha /
// 255 for images with alpha.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/raster_style.h"
#include "map_server/rendering/row_coordinates.h"
#include "map_server/rendering/tile_sampler.h"

namespace vmp {

// One image layer of a pass with its loaded tiles.
struct ImageLayerInput {
  std::string_view name;
  int64_t trans_type = 0;
  double alpha = 1.0;
  Rgb trans_color;  // 0..255
  double trans_color_precision = 0.0;
  std::span<const ImageTileRef> tiles;
  bool bilinear = false;
  int32_t elevation_mode = 0;  // ElevationMode: 0 colour tiles, 2 or 3 elevation tiles
  const ThresholdTable* pixel_map = nullptr;  // the layer's "PIXEL MAP=", when given
};
// `map_anti_aliasing`: the map's ImageAntiAliasing.
ImageLayerInput ImageLayerInputOf(const Layer& layer, std::span<const ImageTileRef> tiles,
                                  bool map_anti_aliasing = false);

// Samplers, colour tables and row coordinates of a pass, reused from pass
// to pass (owned by the renderer); a sampler and colour tables per layer.
struct ImagePassScratch {
  std::vector<TileSampler> samplers;
  std::vector<ElevationPalette> palettes;
  std::vector<PixelMapper> pixel_maps;
  RowCoordinates row;
};

// Draws the layers in one pass. A layer with an unknown transparency kind is
// reported ("Cannot render layer transparency type") and left out; a layer
// with tiles that have errors reports "Skipping image tiles with errors"
// (severity 1) with its name and is drawn from its other tiles. A location
// query draws nothing.
void DrawImageLayers(DrawSurface& surface, ImagePassScratch& scratch,
                     std::span<const ImageLayerInput> layers);

// How the layer loop groups image layers: the kind and activity of each
// entry of the layer list.
struct LayerSlot {
  int64_t layer_type = kLayerImage;
  bool active = true;
};

// A run of image layers drawn in one pass.
struct ImageLayerRun {
  std::vector<size_t> layers;        // indices of the active image layers
  size_t intervening_inactive = 0;   // inactive layers passed over between them
  size_t skipped_inactive_tail = 0;  // inactive layers passed over after the last
  size_t next = 0;                   // where the layer loop goes on
};

// The run starting at `start` (an active image layer): active image layers
// that follow one another, inactive layers between and after them passed
// over; it ends before the next active layer of another kind.
ImageLayerRun FindImageLayerRun(std::span<const LayerSlot> slots, size_t start);

// "Number of adjacent image layers", "Number of intervening inactive
// layers" and "Skipped inactive tail layers" at verbosity 7 or more.
void ReportImageLayerRun(const ImageLayerRun& run);

}  // namespace vmp
