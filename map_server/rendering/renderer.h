// The renderer's process-wide part: the arrays that drawing reuses from
// polygon to polygon and from request to request (the scan converter's edge
// table and active edge list, the projected rings, the line stroker, the
// marker icons, the image samplers and colour tables).
// The map service owns one; every drawing call of a render goes through it
// or through the free functions of this folder with a DrawSurface.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/grid_layer.h"
#include "map_server/rendering/image_pass.h"
#include "map_server/rendering/scan_converter.h"
#include "map_server/rendering/vector_tile_drawer.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

class Renderer {
 public:
  // One loaded vector tile of a layer (vector_tile_drawer.h).
  bool DrawVectorTile(DrawSurface& surface, Layer& layer, const VectorData& data,
                      const OverrideConditions& override_conditions, VectorDrawStats& stats,
                      std::vector<size_t>* hits = nullptr, LabelCollector* labels = nullptr) {
    return vmp::DrawVectorTile(surface, vector_, layer, data, override_conditions, stats, hits, labels);
  }
  // Adjacent image layers in one pixel pass (image_pass.h).
  void DrawImageLayers(DrawSurface& surface, std::span<const ImageLayerInput> layers) {
    vmp::DrawImageLayers(surface, image_, layers);
  }
  // A grid layer (grid_layer.h).
  void DrawGridLayer(DrawSurface& surface, Layer& layer) {
    vmp::DrawGridLayer(surface, vector_.stroker, vector_.edges, layer);
  }
  // One polygon through the shared edge arrays (scan_converter.h).
  bool FillPolygons(DrawSurface& surface, const PixelRings& rings, const PixelColour& colour,
                    FillMode mode = FillMode::kPolygon) {
    return vmp::FillPolygons(surface, vector_.edges, rings, colour, mode);
  }
  // A polyline `width` pixels wide (line_stroker.h), e.g. for text and labels.
  bool StrokePath(DrawSurface& surface, std::span<const PixelVertex> points, double width,
                  const PixelColour& colour, LineCap cap = LineCap::kRound) {
    return vmp::StrokePath(surface, vector_.edges, vector_.stroker, points, width, colour, cap);
  }

  EdgeTables& edge_tables() { return vector_.edges; }
  LineStroker& stroker() { return vector_.stroker; }
  IconCache& icons() { return vector_.icons; }

 private:
  VectorScratch vector_;
  ImagePassScratch image_;
};

}  // namespace vmp
