#include "map_server/rendering/simple_layers.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/int_conversion.h"
#include "map_server/rendering/feature_style.h"
#include "map_server/rendering/line_stroker.h"
#include "map_server/rendering/pixel_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// How far the refinement of a row end may move from its estimate.
constexpr int kOutlineSearchSteps = 8;

// Conversion test of one pixel (the row passed upwards in the orthographic
// projection).
bool OnMap(const MapGeometry& g, int64_t x, int64_t y) {
  const double row = g.projection == kOrthographicProjection ? g.height_m1 - static_cast<double>(y)
                                                             : static_cast<double>(y);
  return PixelToLatLon(g, static_cast<double>(x), row).ok;
}

// Estimated columns where the map begins and ends on row y (doubles; may
// lie outside the image). False when the row misses the map.
bool EstimateRowEnds(const MapGeometry& g, int64_t y, double& left, double& right) {
  if (g.projection == kOrthographicProjection) {
    const double Y = (g.center_y - static_cast<double>(y)) * g.inv_scale_y;
    if (Y * Y > 1.000001) return false;
    // The inverse conversion accepts points up to this squared radius.
    const double X = std::sqrt(std::max(0.0, 1.000001 - Y * Y));
    left = g.center_x - X * g.scale_x;
    right = g.center_x + X * g.scale_x;
    return true;
  }
  // Rectangular: the world rectangle in unrotated pixel coordinates, met by
  // the row after rotation (each rotated coordinate is linear in x).
  const double xa = (g.world_min_lon_tol - g.min_lon) * g.scale_x;
  const double xb = (g.world_max_lon_tol - g.min_lon) * g.scale_x;
  const double ya = g.height_m1 - (g.world_max_lat_tol - g.min_lat) * g.scale_y;
  const double yb = g.height_m1 - (g.world_min_lat_tol - g.min_lat) * g.scale_y;
  const double c = g.rotated ? g.cos_angle : 1.0, s = g.rotated ? g.sin_angle : 0.0;
  const double dy = static_cast<double>(y) - g.center_y;
  // x' = (x - cx) c - dy s + cx,  y' = (x - cx) s + dy c + cy
  double lo = -1e300, hi = 1e300;
  auto bound = [&](double slope, double offset, double min_v, double max_v) {
    if (slope == 0.0) {
      if (offset < min_v || offset > max_v) lo = 1, hi = 0;
      return;
    }
    double t0 = (min_v - offset) / slope, t1 = (max_v - offset) / slope;
    if (t0 > t1) std::swap(t0, t1);
    lo = std::max(lo, t0);
    hi = std::min(hi, t1);
  };
  bound(c, -dy * s + g.center_x, xa, xb);
  bound(s, dy * c + g.center_y, ya, yb);
  if (!(lo <= hi)) return false;
  left = lo + g.center_x;
  right = hi + g.center_x;
  return true;
}

// Refines an estimated end to the pixel where the map begins (direction +1:
// first on-map pixel from the left) or ends (-1). Returns false when the
// pixel is not found near the estimate.
bool RefineEnd(const MapGeometry& g, int64_t y, double estimate, int direction, int64_t min_x,
               int64_t max_x, int64_t& found) {
  int64_t x = direction > 0 ? TruncToInt64(std::ceil(estimate)) : TruncToInt64(std::floor(estimate));
  x = std::clamp(x, min_x, max_x);
  if (OnMap(g, x, y)) {
    // Step outwards while the neighbour is still on the map.
    for (int i = 0; i < kOutlineSearchSteps; ++i) {
      const int64_t out = x - direction;
      if (out < min_x || out > max_x || !OnMap(g, out, y)) {
        found = x;
        return true;
      }
      x = out;
    }
    return false;
  }
  for (int i = 0; i < kOutlineSearchSteps; ++i) {
    x += direction;
    if (x < min_x || x > max_x) return false;
    if (OnMap(g, x, y)) {
      found = x;
      return true;
    }
  }
  return false;
}

}  // namespace

bool CheckLayerType(int64_t layer_type) {
  if (layer_type >= kLayerImage && layer_type <= kLayerBackground) return true;
  ReportNumber(kError, "Cannot render layer type", static_cast<double>(layer_type));
  return false;
}

void DrawBackground(DrawSurface& surface, const PixelColour& colour) {
  const PixelRect& clip = surface.clip();
  if (clip.empty() || surface.location_query()) return;
  if (!IsKnownTransType(colour.trans_type)) {
    ReportUnknownTransType(colour.trans_type);
    return;
  }
  for (int64_t y = clip.min_y; y <= clip.max_y; ++y) DrawSpan(surface, clip.min_x, y, clip.max_x, colour);
}

void DrawBackgroundLayer(DrawSurface& surface, const Layer& layer) {
  const LayerRecord& r = layer.record;
  DrawBackground(surface, MakePixelColour(r.drawing.fill_color, r.drawing.alpha, r.trans_type));
}

void DrawOutline(DrawSurface& surface, const PixelColour& colour, int64_t width) {
  const PixelRect& clip = surface.clip();
  if (clip.empty() || surface.location_query()) return;
  if (!IsKnownTransType(colour.trans_type)) {
    ReportUnknownTransType(colour.trans_type);
    return;
  }
  const MapGeometry& g = surface.geometry();
  const int64_t w = std::clamp<int64_t>(width, 1, static_cast<int64_t>(kMaxLineWidth));
  // Row ends over the clip's rows and w rows on either side, searched w + 1
  // pixels beyond the clip's sides; an end that lies beyond the search is
  // put far enough out that nothing of it is drawn.
  const int64_t search_min = clip.min_x - w - 1, search_max = clip.max_x + w + 1;
  const int64_t far_left = search_min - w - 2, far_right = search_max + w + 2;
  const int64_t first_row = clip.min_y - w;
  const size_t rows = static_cast<size_t>(clip.max_y - clip.min_y + 2 * w + 1);
  std::vector<int64_t> left_end(rows), right_end(rows);
  std::vector<uint8_t> on_map(rows, 0);
  bool reported = false;
  for (size_t i = 0; i < rows; ++i) {
    const int64_t y = first_row + static_cast<int64_t>(i);
    double left_estimate, right_estimate;
    if (!EstimateRowEnds(g, y, left_estimate, right_estimate) ||
        left_estimate > static_cast<double>(search_max) + 1.0 || right_estimate < static_cast<double>(search_min) - 1.0) {
      continue;
    }
    int64_t left = 0, right = 0;
    const bool found = RefineEnd(g, y, left_estimate, +1, search_min, search_max, left) &&
                       RefineEnd(g, y, right_estimate, -1, search_min, search_max, right);
    if (!found || left > right) {
      // A row that only touches the map near an estimate may have no map
      // pixel; one whose middle is on the map must have been found.
      const int64_t middle =
          std::clamp(RoundToInt64(0.5 * (left_estimate + right_estimate)), search_min, search_max);
      if (OnMap(g, middle, y) && !reported) {
        ReportNumber(kInternalError, "Outline pixel convergence error", static_cast<double>(y));
        reported = true;
      }
      continue;
    }
    on_map[i] = 1;
    left_end[i] = left == search_min && OnMap(g, left - 1, y) ? far_left : left;
    right_end[i] = right == search_max && OnMap(g, right + 1, y) ? far_right : right;
  }
  // Half-widths of the disc of radius w, row by row.
  std::vector<int64_t> reach(static_cast<size_t>(2 * w + 1));
  for (int64_t k = -w; k <= w; ++k) {
    reach[static_cast<size_t>(k + w)] = TruncToInt64(std::floor(std::sqrt(static_cast<double>(w * w - k * k)) + 1e-9));
  }
  for (int64_t y = clip.min_y; y <= clip.max_y; ++y) {
    const size_t i = static_cast<size_t>(y - first_row);
    if (!on_map[i]) continue;
    // The interior: pixels whose whole disc is on the map.
    int64_t inner_lo = std::numeric_limits<int64_t>::min(), inner_hi = std::numeric_limits<int64_t>::max();
    for (int64_t k = -w; k <= w && inner_lo <= inner_hi; ++k) {
      const size_t j = i + static_cast<size_t>(k);
      if (!on_map[j]) {
        inner_lo = 1;
        inner_hi = 0;
        break;
      }
      inner_lo = std::max(inner_lo, left_end[j] + reach[static_cast<size_t>(k + w)]);
      inner_hi = std::min(inner_hi, right_end[j] - reach[static_cast<size_t>(k + w)]);
    }
    const int64_t left = left_end[i], right = right_end[i];
    if (inner_lo > inner_hi) {
      DrawSpan(surface, left, y, right, colour);
      continue;
    }
    DrawSpan(surface, left, y, std::min(right, inner_lo - 1), colour);
    DrawSpan(surface, std::max(left, inner_hi + 1), y, right, colour);
  }
}

void DrawGlobeHalo(DrawSurface& surface, const PixelColour& colour, double length) {
  const PixelRect& clip = surface.clip();
  const MapGeometry& g = surface.geometry();
  if (clip.empty() || surface.location_query() || g.projection != kOrthographicProjection) return;
  if (!(length > 0.0) || !std::isfinite(length) || colour.alpha == 0.0) return;
  if (!IsKnownTransType(colour.trans_type)) {
    ReportUnknownTransType(colour.trans_type);
    return;
  }
  const double outer = 1.0 + length;
  for (int64_t y = clip.min_y; y <= clip.max_y; ++y) {
    const double Y = (g.center_y - static_cast<double>(y)) * g.inv_scale_y;
    if (!(Y * Y < outer * outer)) continue;
    const double half = std::sqrt(outer * outer - Y * Y) * std::fabs(g.scale_x);
    const int64_t x0 = std::max(clip.min_x, TruncToInt64(std::floor(g.center_x - half)));
    const int64_t x1 = std::min(clip.max_x, TruncToInt64(std::ceil(g.center_x + half)));
    for (int64_t x = x0; x <= x1; ++x) {
      const double X = (static_cast<double>(x) - g.center_x) * g.inv_scale_x;
      const double r2 = X * X + Y * Y;
      if (r2 <= 1.000001) {  // on the globe: jump to its other side
        x = std::max(x, TruncToInt64(std::floor(2.0 * g.center_x - static_cast<double>(x)) - 1.0));
        continue;
      }
      const double t = (std::sqrt(r2) - 1.0) / length;
      if (t >= 1.0) continue;
      const double a = colour.alpha * (1.0 - t) * (1.0 - t);
      BlendPixelOfKind(colour.trans_type, surface.PixelAt(x, y), colour.red, colour.green, colour.blue, a);
    }
  }
}

void DrawOutlineLayer(DrawSurface& surface, Layer& layer) {
  const LayerRecord& r = layer.record;
  const FeatureStyle style = ResolveLayerStyle(layer, surface.geometry().zoom);
  if (r.gradient_type == 1) {
    PixelColour halo = style.edge_colour;
    if (r.gradient_color) {
      halo.red = StoreChannel(r.gradient_color->red);
      halo.green = StoreChannel(r.gradient_color->green);
      halo.blue = StoreChannel(r.gradient_color->blue);
    }
    DrawGlobeHalo(surface, halo, r.gradient_length);
  }
  DrawOutline(surface, style.edge_colour, TruncToInt64(style.line_width));
}

void DrawTileBounds(DrawSurface& surface, std::span<const Box> bounds) {
  const PixelColour red{255, 0, 0, 1.0, kTransOpaque};
  const MapGeometry& g = surface.geometry();
  constexpr int kSteps = 64;
  LineStroker stroker;
  EdgeTables tables;
  stroker.Begin(surface.active_rect(), 1.0);
  PixelVertex side_points[kSteps + 1];
  for (const Box& b : bounds) {
    const double corners[5][2] = {{b.min_lat, b.min_lon}, {b.min_lat, b.max_lon}, {b.max_lat, b.max_lon},
                                  {b.max_lat, b.min_lon}, {b.min_lat, b.min_lon}};
    for (int side = 0; side < 4; ++side) {
      // Runs of visible points (the far side of the globe breaks them).
      size_t count = 0;
      for (int i = 0; i <= kSteps; ++i) {
        const double t = static_cast<double>(i) / kSteps;
        const double lat = corners[side][0] + t * (corners[side + 1][0] - corners[side][0]);
        const double lon = corners[side][1] + t * (corners[side + 1][1] - corners[side][1]);
        const PixelPoint p = LatLonToPixel(g, lat, lon);
        if (p.z >= 0.0) {
          side_points[count++] = {p.x, p.y};
          continue;
        }
        stroker.AddPath({side_points, count}, false);
        count = 0;
      }
      stroker.AddPath({side_points, count}, false);
    }
  }
  stroker.Fill(surface, tables, red);
}

}  // namespace vmp
