#include "map_server/rendering/simple_layers.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/int_conversion.h"
#include "map_server/rendering/basic_symbols.h"
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

void DrawOutline(DrawSurface& surface, const PixelColour& colour) {
  const PixelRect& clip = surface.clip();
  if (clip.empty() || surface.location_query()) return;
  if (!IsKnownTransType(colour.trans_type)) {
    ReportUnknownTransType(colour.trans_type);
    return;
  }
  const MapGeometry& g = surface.geometry();
  bool reported = false;
  bool have_previous = false;  // the row above had map pixels
  int64_t prev_left = 0, prev_right = 0;
  for (int64_t y = clip.min_y; y <= clip.max_y; ++y) {
    double left_estimate, right_estimate;
    int64_t left = 0, right = 0;
    bool row_on_map = EstimateRowEnds(g, y, left_estimate, right_estimate) &&
                      left_estimate <= static_cast<double>(clip.max_x) + 1.0 &&
                      right_estimate >= static_cast<double>(clip.min_x) - 1.0;
    if (row_on_map) {
      const bool found = RefineEnd(g, y, left_estimate, +1, clip.min_x, clip.max_x, left) &&
                         RefineEnd(g, y, right_estimate, -1, clip.min_x, clip.max_x, right);
      if (!found || left > right) {
        // A row that only touches the map near an estimate may have no map
        // pixel; one whose middle is on the map must have been found.
        const int64_t middle = std::clamp(RoundToInt64(0.5 * (left_estimate + right_estimate)), clip.min_x, clip.max_x);
        if (OnMap(g, middle, y) && !reported) {
          ReportNumber(kInternalError, "Outline pixel convergence error", static_cast<double>(y));
          reported = true;
        }
        row_on_map = false;
      }
    }
    if (!row_on_map) {
      // The row above was the map's last: its whole width is outline.
      if (have_previous) DrawSpan(surface, prev_left, y - 1, prev_right, colour);
      have_previous = false;
      continue;
    }
    // Only real ends of the map are drawn, not the sides of the rectangle.
    const bool left_is_end = left > clip.min_x || !OnMap(g, left - 1, y);
    const bool right_is_end = right < clip.max_x || !OnMap(g, right + 1, y);
    const bool map_above = have_previous || (y == clip.min_y && OnMap(g, (left + right) / 2, y - 1));
    if (!map_above) {
      DrawSpan(surface, left, y, right, colour);  // the map's first row
    } else {
      if (left_is_end) {
        SetMapPixel(surface, left, y, colour);
        // Joined to the row above on the row whose pixels are on the map.
        if (have_previous && left < prev_left) DrawSpan(surface, left, y, prev_left - 1, colour);
        if (have_previous && left > prev_left) DrawSpan(surface, prev_left + 1, y - 1, left, colour);
      }
      if (right_is_end) {
        SetMapPixel(surface, right, y, colour);
        if (have_previous && right > prev_right) DrawSpan(surface, prev_right + 1, y, right, colour);
        if (have_previous && right < prev_right) DrawSpan(surface, right, y - 1, prev_right - 1, colour);
      }
    }
    if (y == clip.max_y && !OnMap(g, (left + right) / 2, y + 1)) DrawSpan(surface, left, y, right, colour);
    have_previous = true;
    prev_left = left;
    prev_right = right;
  }
}

void DrawOutlineLayer(DrawSurface& surface, const Layer& layer) {
  const LayerRecord& r = layer.record;
  DrawOutline(surface, MakePixelColour(r.drawing.edge_color, r.drawing.alpha, r.trans_type));
}

void DrawTileBounds(DrawSurface& surface, std::span<const Box> bounds) {
  const PixelColour red{255, 0, 0, 1.0, kTransOpaque};
  const MapGeometry& g = surface.geometry();
  constexpr int kSteps = 64;
  for (const Box& b : bounds) {
    const double corners[5][2] = {{b.min_lat, b.min_lon}, {b.min_lat, b.max_lon}, {b.max_lat, b.max_lon},
                                  {b.max_lat, b.min_lon}, {b.min_lat, b.min_lon}};
    for (int side = 0; side < 4; ++side) {
      PixelPoint prev = LatLonToPixel(g, corners[side][0], corners[side][1]);
      for (int i = 1; i <= kSteps; ++i) {
        const double t = static_cast<double>(i) / kSteps;
        const double lat = corners[side][0] + t * (corners[side + 1][0] - corners[side][0]);
        const double lon = corners[side][1] + t * (corners[side + 1][1] - corners[side][1]);
        const PixelPoint p = LatLonToPixel(g, lat, lon);
        if (prev.z >= 0.0 && p.z >= 0.0) DrawLine(surface, prev.x, prev.y, p.x, p.y, red);
        prev = p;
      }
    }
  }
}

}  // namespace vmp
