#include "map_server/rendering/image_pass.h"

#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/rendering/pixel_colour.h"
#include "map_server/rendering/pixel_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// How a layer's samples are made.
enum class SampleKind {
  kColour,           // the image's pixels as they are
  kStyledColour,     // the image's pixels, keyed and/or pixel-mapped
  kElevationColour,  // elevations through the palette (keyed there)
  kElevationData,    // the 16-bit samples as colours
};

// What the inner loop needs of a layer.
struct PassLayer {
  const TileSampler* sampler;
  int64_t kind;
  double alpha;
  SampleKind sample;
  bool bilinear;
  bool has_key;
  double key[3];
  double tolerance;
  const ElevationPalette* palette;
  const PixelMapper* mapper;
};

bool WithinKey(const PassLayer& layer, const SampledColour& c) {
  return std::fabs(c.r - layer.key[0]) <= layer.tolerance && std::fabs(c.g - layer.key[1]) <= layer.tolerance &&
         std::fabs(c.b - layer.key[2]) <= layer.tolerance;
}

template <typename Fetch>
bool SampleWith(const PassLayer& layer, double lat, double lon, const Fetch& fetch, SampledColour& out) {
  return layer.bilinear ? layer.sampler->SampleBilinear(lat, lon, fetch, out)
                        : layer.sampler->SampleNearest(lat, lon, fetch, out);
}

bool SampleLayer(const PassLayer& layer, double lat, double lon, SampledColour& out) {
  using Tile = TileSampler::Tile;
  switch (layer.sample) {
    case SampleKind::kColour:
      if (!layer.bilinear) return layer.sampler->Sample(lat, lon, out);
      return SampleWith(layer, lat, lon, [](const Tile& t, int64_t c, int64_t r) { return TileSampler::ColourAt(t, c, r); }, out);
    case SampleKind::kStyledColour:
      return SampleWith(layer, lat, lon, [&layer](const Tile& t, int64_t c, int64_t r) {
        SampledColour s = TileSampler::ColourAt(t, c, r);
        if (layer.has_key && WithinKey(layer, s)) s.a = 0;
        if (layer.mapper != nullptr) s = layer.mapper->Map(s);
        return s;
      }, out);
    case SampleKind::kElevationColour:
      return SampleWith(layer, lat, lon, [&layer](const Tile& t, int64_t c, int64_t r) {
        return layer.palette->Colour(TileSampler::RawElevationAt(t, c, r), t.signed_elevation);
      }, out);
    case SampleKind::kElevationData: {
      SampledColour s{0, 0, 0, 0};
      const bool found = layer.sampler->SampleNearest(lat, lon, [&layer](const Tile& t, int64_t c, int64_t r) {
        const uint16_t raw = TileSampler::RawElevationAt(t, c, r);
        if (t.signed_elevation && raw == 0x8000) return SampledColour{0, 0, 0, 0};
        SampledColour data{static_cast<uint8_t>(raw >> 8), static_cast<uint8_t>(raw & 0xff), 0, 255};
        if (layer.has_key && WithinKey(layer, data)) data.a = 0;
        return data;
      }, s);
      out = s;
      return found;
    }
  }
  return false;
}

// The plain opaque case without overlapping tiles, as SampleRow does it
// pixel by pixel: the points that follow one another inside one RGB tile
// are copied by a loop that keeps the tile in locals (pixel stores may
// alias anything, so the sampler's fields would be read again for every
// pixel); other tiles go through Sample.
void CopyRowRuns(const TileSampler& sampler, int64_t kind, const RowCoordinates& row, int64_t count, uint8_t* pixels) {
  using Tile = TileSampler::Tile;
  int64_t i = 0;
  while (i < count) {
    if (!row.ok[i]) {
      ++i;
      continue;
    }
    const double lat = row.lat[i];
    double lon = row.lon[i];
    const Tile* t = sampler.FindTile(lat, lon);
    if (t == nullptr) {
      ++i;
      continue;
    }
    uint8_t* pixel = pixels + 3 * i;
    if (t->samples != 3) {
      const SampledColour c = TileSampler::ColourAt(*t, TileSampler::Column(*t, lon), TileSampler::Row(*t, lat));
      if (c.a == 255) {
        pixel[0] = c.r;
        pixel[1] = c.g;
        pixel[2] = c.b;
      } else if (c.a != 0) {
        BlendPixelOfKind(kind, pixel, c.r, c.g, c.b, c.a / 255.0);
      }
      ++i;
      continue;
    }
    // The first point may have needed its longitude moved by 360 degrees;
    // the run goes on while the points lie in the tile as they are.
    const Tile tile = *t;
    uint8_t* out = pixel;
    const uint8_t* src = tile.pixels + (tile.width * TileSampler::Row(tile, lat) + TileSampler::Column(tile, lon)) * 3;
    out[0] = src[0];
    out[1] = src[1];
    out[2] = src[2];
    for (++i; i < count && row.ok[i]; ++i) {
      const double la = row.lat[i], lo = row.lon[i];
      if (!(lo >= tile.min_lon && lo <= tile.max_lon && la >= tile.min_lat && la <= tile.max_lat)) break;
      src = tile.pixels + (tile.width * TileSampler::Row(tile, la) + TileSampler::Column(tile, lo)) * 3;
      out = pixels + 3 * i;
      out[0] = src[0];
      out[1] = src[1];
      out[2] = src[2];
    }
  }
}

// Samples one layer along a row and writes it into the row's pixels.
// kPlainSample: the image's nearest pixel as it is (the common case);
// kPlainCopy: besides, an opaque layer of alpha 1 without a transparent
// colour, whose samples without alpha are copied as they are.
template <bool kPlainSample, bool kPlainCopy>
void SampleRow(const PassLayer& layer, const RowCoordinates& row, int64_t count, uint8_t* pixel) {
  const TileSampler& sampler = *layer.sampler;
  if constexpr (kPlainSample && kPlainCopy) {
    if (!sampler.overlapping()) {
      CopyRowRuns(sampler, layer.kind, row, count, pixel);
      return;
    }
  }
  for (int64_t i = 0; i < count; ++i, pixel += 3) {
    if (!row.ok[i]) continue;
    SampledColour c;
    if (!(kPlainSample ? sampler.Sample(row.lat[i], row.lon[i], c) : SampleLayer(layer, row.lat[i], row.lon[i], c))) {
      continue;
    }
    if (c.a == 0) continue;
    if (kPlainCopy && c.a == 255) {
      pixel[0] = c.r;
      pixel[1] = c.g;
      pixel[2] = c.b;
      continue;
    }
    const double alpha = c.a == 255 ? layer.alpha : layer.alpha * (c.a / 255.0);
    if (alpha == 0.0) continue;
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
      const bool plain_sample = layer.sample == SampleKind::kColour && !layer.bilinear;
      const bool plain_copy = (layer.kind == kTransOpaque || layer.kind == kTransColourOpaque) &&
                              layer.alpha == 1.0 && !layer.has_key;
      if (plain_sample && plain_copy) {
        SampleRow<true, true>(layer, row, count, pixels);
      } else if (plain_sample) {
        SampleRow<true, false>(layer, row, count, pixels);
      } else if (plain_copy) {
        SampleRow<false, true>(layer, row, count, pixels);
      } else {
        SampleRow<false, false>(layer, row, count, pixels);
      }
    }
  }
}

}  // namespace

ImageLayerInput ImageLayerInputOf(const Layer& layer, std::span<const ImageTileRef> tiles,
                                  bool map_anti_aliasing) {
  ImageLayerInput in;
  const LayerRecord& r = layer.record;
  in.name = layer.name;
  in.trans_type = r.trans_type;
  in.alpha = r.drawing.alpha;
  in.trans_color = r.trans_color;
  in.trans_color_precision = r.trans_color_precision;
  in.tiles = tiles;
  in.bilinear = map_anti_aliasing && r.tiles.image_anti_aliasing != 0;
  in.elevation_mode = r.tiles.elevation_mode;
  // The last pixel map given wins.
  for (const AttributeMap& map : r.attributes.pixel_maps) {
    if (!map.failed && !map.thresholds.empty()) in.pixel_map = &map.thresholds;
  }
  return in;
}

void DrawImageLayers(DrawSurface& surface, ImagePassScratch& scratch,
                     std::span<const ImageLayerInput> layers) {
  if (surface.location_query() || surface.clip().empty()) return;
  if (scratch.samplers.size() < layers.size()) {
    scratch.samplers.resize(layers.size());
    scratch.palettes.resize(layers.size());
    scratch.pixel_maps.resize(layers.size());
  }
  std::vector<PassLayer> pass;
  pass.reserve(layers.size());
  for (size_t i = 0; i < layers.size(); ++i) {
    const ImageLayerInput& in = layers[i];
    if (!IsKnownTransType(in.trans_type)) {
      ReportUnknownTransType(in.trans_type);
      continue;
    }
    const bool elevation = in.elevation_mode == kElevationColour || in.elevation_mode == kElevationDataAsColour;
    if (in.elevation_mode != kElevationNone && !elevation) continue;  // data only: nothing to draw
    TileSampler& sampler = scratch.samplers[i];
    if (sampler.Build(in.tiles, elevation ? TileSampler::Kind::kElevation : TileSampler::Kind::kColour) > 0) {
      Report(kError, "Skipping image tiles with errors", in.name);
    }
    if (sampler.empty() || in.alpha == 0.0) continue;
    PassLayer layer{&sampler, in.trans_type, in.alpha, SampleKind::kColour, in.bilinear,
                    in.trans_type == kTransColourOpaque,
                    {in.trans_color.red, in.trans_color.green, in.trans_color.blue},
                    in.trans_color_precision * 255.0, nullptr, nullptr};
    const bool colour_map = in.pixel_map != nullptr && !in.pixel_map->empty() &&
                            in.pixel_map->front().input.type == ValueType::kGeo;
    if (in.elevation_mode == kElevationDataAsColour) {
      layer.sample = SampleKind::kElevationData;
      layer.bilinear = false;
    } else if (elevation) {
      layer.sample = SampleKind::kElevationColour;
      const bool elevation_map = in.pixel_map != nullptr && !in.pixel_map->empty() &&
                                 in.pixel_map->front().input.type == ValueType::kDouble;
      scratch.palettes[i].Build(elevation_map ? in.pixel_map : nullptr, layer.has_key, layer.key, layer.tolerance);
      layer.palette = &scratch.palettes[i];
    } else if (layer.has_key || colour_map) {
      layer.sample = SampleKind::kStyledColour;
      if (colour_map) {
        scratch.pixel_maps[i].Build(*in.pixel_map);
        layer.mapper = &scratch.pixel_maps[i];
      }
    }
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
