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

template <typename Inverse>
void RunPass(DrawSurface& surface, std::span<const PassLayer> layers, Inverse inverse) {
  const PixelRect& clip = surface.clip();
  for (int64_t y = clip.min_y; y <= clip.max_y; ++y) {
    uint8_t* pixel = surface.PixelAt(clip.min_x, y);
    for (int64_t x = clip.min_x; x <= clip.max_x; ++x, pixel += 3) {
      const LatLonPoint p = inverse(static_cast<double>(x), y);
      if (!p.ok) continue;
      for (const PassLayer& layer : layers) {
        SampledColour c;
        if (!layer.sampler->Sample(p.lat, p.lon, c)) continue;
        const double alpha = c.a == 255 ? layer.alpha : layer.alpha * (c.a / 255.0);
        if (alpha == 0.0) continue;
        if (layer.has_trans_colour && IsTransparentColour(layer, c)) continue;
        BlendPixelOfKind(layer.kind, pixel, c.r, c.g, c.b, alpha);
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
  if (g.projection == kOrthographicProjection) {
    RunPass(surface, pass, [&g](double x, int64_t y) {
      return OrthographicPixelToLatLon(g, x, g.height_m1 - static_cast<double>(y));
    });
  } else if (g.projection == kRectangularProjection) {
    RunPass(surface, pass, [&g](double x, int64_t y) {
      return RectangularPixelToLatLon(g, x, static_cast<double>(y));
    });
  } else {
    ReportUnsupportedProjection();
  }
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
