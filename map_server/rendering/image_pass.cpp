#include "map_server/rendering/image_pass.h"

#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/rendering/pixel_colour.h"
#include "map_server/rendering/pixel_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// What the inner loop needs of a layer.
struct PassLayer {
  const TileSampler* sampler;
  int64_t kind;
  double alpha;
  bool has_trans_colour;
  double trans[3];
  double tolerance;
};

bool IsTransparentColour(const PassLayer& layer, const SampledColour& c) {
  return std::fabs(c.r - layer.trans[0]) <= layer.tolerance &&
         std::fabs(c.g - layer.trans[1]) <= layer.tolerance &&
         std::fabs(c.b - layer.trans[2]) <= layer.tolerance;
}

// Samples one layer along a row and writes it into the row's pixels.
// kPlainCopy: an opaque layer of alpha 1 without a transparent colour,
// whose samples without alpha are copied as they are.
template <bool kPlainCopy>
void SampleRow(const PassLayer& layer, const RowCoordinates& row, int64_t count, uint8_t* pixel) {
  const TileSampler& sampler = *layer.sampler;
  for (int64_t i = 0; i < count; ++i, pixel += 3) {
    if (!row.ok[i]) continue;
    SampledColour c;
    if (!sampler.Sample(row.lat[i], row.lon[i], c)) continue;
    if (kPlainCopy && c.a == 255) {
      pixel[0] = c.r;
      pixel[1] = c.g;
      pixel[2] = c.b;
      continue;
    }
    const double alpha = c.a == 255 ? layer.alpha : layer.alpha * (c.a / 255.0);
    if (alpha == 0.0) continue;
    if (layer.has_trans_colour && IsTransparentColour(layer, c)) continue;
    BlendPixelOfKind(layer.kind, pixel, c.r, c.g, c.b, alpha);
  }
}

// Row by row: the row's lat/lon once, then each layer in order over it
// (each pixel still receives the layers in their order).
void RunPass(DrawSurface& surface, std::span<const PassLayer> layers, RowCoordinates& row) {
  const PixelRect& clip = surface.clip();
  const MapGeometry& g = surface.geometry();
  for (int64_t y = clip.min_y; y <= clip.max_y; ++y) {
    ComputeRowCoordinates(g, y, clip.min_x, clip.max_x, row);
    if (row.last < row.first) continue;
    const int64_t count = row.last - row.first + 1;
    uint8_t* pixels = surface.PixelAt(row.first, y);
    for (const PassLayer& layer : layers) {
      const bool plain = (layer.kind == kTransOpaque || layer.kind == kTransColourOpaque) &&
                         layer.alpha == 1.0 && !layer.has_trans_colour;
      if (plain) {
        SampleRow<true>(layer, row, count, pixels);
      } else {
        SampleRow<false>(layer, row, count, pixels);
      }
    }
  }
}

}  // namespace

ImageLayerInput ImageLayerInputOf(const Layer& layer, std::span<const ImageTileRef> tiles) {
  ImageLayerInput in;
  in.name = layer.name;
  in.trans_type = layer.record.trans_type;
  in.alpha = layer.record.drawing.alpha;
  in.trans_color = layer.record.trans_color;
  in.trans_color_precision = layer.record.trans_color_precision;
  in.tiles = tiles;
  return in;
}

void DrawImageLayers(DrawSurface& surface, ImagePassScratch& scratch,
                     std::span<const ImageLayerInput> layers) {
  if (surface.location_query() || surface.clip().empty()) return;
  if (scratch.samplers.size() < layers.size()) scratch.samplers.resize(layers.size());
  std::vector<PassLayer> pass;
  pass.reserve(layers.size());
  for (size_t i = 0; i < layers.size(); ++i) {
    const ImageLayerInput& in = layers[i];
    if (!IsKnownTransType(in.trans_type)) {
      ReportUnknownTransType(in.trans_type);
      continue;
    }
    TileSampler& sampler = scratch.samplers[i];
    if (sampler.Build(in.tiles, TileSampler::Kind::kColour) > 0) {
      Report(kError, "Skipping image tiles with errors", in.name);
    }
    if (sampler.empty() || in.alpha == 0.0) continue;
    PassLayer layer{&sampler, in.trans_type, in.alpha, in.trans_type == kTransColourOpaque,
                    {in.trans_color.red, in.trans_color.green, in.trans_color.blue},
                    in.trans_color_precision * 255.0};
    pass.push_back(layer);
  }
  if (pass.empty()) return;

  const MapGeometry& g = surface.geometry();
  if (g.projection != kOrthographicProjection && g.projection != kRectangularProjection) {
    ReportUnsupportedProjection();
    return;
  }
  RunPass(surface, pass, scratch.row);
}

ImageLayerRun FindImageLayerRun(std::span<const LayerSlot> slots, size_t start) {
  ImageLayerRun run;
  run.next = start;
  if (start >= slots.size()) return run;
  run.layers.push_back(start);
  size_t pending_inactive = 0;
  size_t i = start + 1;
  for (; i < slots.size(); ++i) {
    if (!slots[i].active) {
      ++pending_inactive;
      continue;
    }
    if (slots[i].layer_type != kLayerImage) break;
    run.layers.push_back(i);
    run.intervening_inactive += pending_inactive;
    pending_inactive = 0;
  }
  run.skipped_inactive_tail = pending_inactive;
  run.next = i;
  return run;
}

void ReportImageLayerRun(const ImageLayerRun& run) {
  if (Verbosity() < 7) return;
  ReportNumber(kInfo, "Number of adjacent image layers", static_cast<double>(run.layers.size()));
  ReportNumber(kInfo, "Number of intervening inactive layers", static_cast<double>(run.intervening_inactive));
  ReportNumber(kInfo, "Skipped inactive tail layers", static_cast<double>(run.skipped_inactive_tail));
}

}  // namespace vmp
