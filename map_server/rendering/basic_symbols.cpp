#include "map_server/rendering/basic_symbols.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "map_server/geometry/int_conversion.h"
#include "map_server/rendering/pixel_writer.h"

namespace vmp {

namespace {

// Clips the segment to the pixel rectangle widened by half a pixel
// (Liang-Barsky). False when nothing of it is left.
bool ClipSegment(const PixelRect& rect, double& x0, double& y0, double& x1, double& y1) {
  const double dx = x1 - x0, dy = y1 - y0;
  double t0 = 0.0, t1 = 1.0;
  auto edge = [&](double p, double q) {
    if (p == 0.0) return q >= 0.0;
    const double t = q / p;
    if (p < 0.0) {
      if (t > t1) return false;
      if (t > t0) t0 = t;
    } else {
      if (t < t0) return false;
      if (t < t1) t1 = t;
    }
    return true;
  };
  const double left = static_cast<double>(rect.min_x) - 0.5, right = static_cast<double>(rect.max_x) + 0.5;
  const double top = static_cast<double>(rect.min_y) - 0.5, bottom = static_cast<double>(rect.max_y) + 0.5;
  if (!edge(-dx, x0 - left) || !edge(dx, right - x0) || !edge(-dy, y0 - top) || !edge(dy, bottom - y0)) {
    return false;
  }
  const double sx = x0, sy = y0;
  x0 = sx + t0 * dx;
  y0 = sy + t0 * dy;
  x1 = sx + t1 * dx;
  y1 = sy + t1 * dy;
  return true;
}

// Rounds half away from zero, as RoundToInt64 does; the arithmetic below
// serves |v| < 2^52 (every clipped coordinate of a sane segment).
inline int64_t RoundClipped(double v) {
  if (!(std::fabs(v) < 4503599627370496.0)) return RoundToInt64(v);
  const int64_t t = static_cast<int64_t>(v);
  const double f = v - static_cast<double>(t);  // exact
  return f >= 0.5 ? t + 1 : (f <= -0.5 ? t - 1 : t);
}

// The pixels of a line: copied for an opaque colour of alpha 1, else
// through the colour's blend table; the ends may lie just outside the clip.
class LinePixels {
 public:
  // Draws nothing in a location query, for an alpha of 0 or an unknown kind.
  LinePixels(DrawSurface& surface, const PixelColour& colour)
      : surface_(surface), clip_(surface.clip()), colour_(colour),
        draws_(!surface.location_query() && colour.alpha != 0.0 && IsKnownTransType(colour.trans_type)),
        copy_((colour.trans_type == kTransOpaque || colour.trans_type == kTransColourOpaque) &&
              colour.alpha == 1.0),
        table_(draws_ && !copy_ ? &BlendTableFor(surface, colour) : nullptr) {}

  bool draws() const { return draws_; }

  void Put(int64_t x, int64_t y) const {
    if (!clip_.Contains(x, y)) return;
    uint8_t* p = surface_.PixelAt(x, y);
    if (copy_) {
      p[0] = colour_.red;
      p[1] = colour_.green;
      p[2] = colour_.blue;
    } else {
      p[0] = table_->channel[0][p[0]];
      p[1] = table_->channel[1][p[1]];
      p[2] = table_->channel[2][p[2]];
    }
  }

 private:
  DrawSurface& surface_;
  const PixelRect& clip_;
  const PixelColour& colour_;
  const bool draws_;
  const bool copy_;
  const BlendTable* table_;
};

// A line with its pixel writer (the colour's kind known).
void DrawLineWith(DrawSurface& surface, double x0, double y0, double x1, double y1, const LinePixels& pixels) {
  if (!std::isfinite(x0) || !std::isfinite(y0) || !std::isfinite(x1) || !std::isfinite(y1)) return;
  const PixelRect& area = surface.active_rect();
  if (area.empty()) return;
  const double left = static_cast<double>(area.min_x) - 0.5, right = static_cast<double>(area.max_x) + 0.5;
  const double top = static_cast<double>(area.min_y) - 0.5, bottom = static_cast<double>(area.max_y) + 0.5;
  const bool inside = x0 >= left && x0 <= right && x1 >= left && x1 <= right && y0 >= top &&
                      y0 <= bottom && y1 >= top && y1 <= bottom;
  if (inside) {
    // What clipping computes for a segment it keeps whole.
    x1 = x0 + (x1 - x0);
    y1 = y0 + (y1 - y0);
  } else if (!ClipSegment(area, x0, y0, x1, y1)) {
    return;
  }
  if (surface.location_query()) {
    surface.set_hit(true);
    return;
  }
  if (!pixels.draws()) return;
  // Bresenham between the rounded ends; the clipped segment spans at most
  // the clip's width and height.
  // Clipping leaves the ends within half a pixel of the area; segments of
  // extreme coordinates may land farther by rounding and are held near it.
  auto column = [&](double v) { return std::clamp(RoundClipped(v), area.min_x - 1, area.max_x + 1); };
  auto row = [&](double v) { return std::clamp(RoundClipped(v), area.min_y - 1, area.max_y + 1); };
  int64_t ax = column(x0), ay = row(y0);
  const int64_t bx = column(x1), by = row(y1);
  const int64_t dx = std::llabs(bx - ax), dy = -std::llabs(by - ay);
  const int64_t step_x = ax < bx ? 1 : -1, step_y = ay < by ? 1 : -1;
  int64_t error = dx + dy;
  while (true) {
    pixels.Put(ax, ay);
    if (ax == bx && ay == by) break;
    const int64_t e2 = 2 * error;
    if (e2 >= dy) {
      error += dy;
      ax += step_x;
    }
    if (e2 <= dx) {
      error += dx;
      ay += step_y;
    }
  }
}

}  // namespace

void DrawLine(DrawSurface& surface, double x0, double y0, double x1, double y1,
              const PixelColour& colour) {
  if (!surface.location_query() && colour.alpha != 0.0 && !IsKnownTransType(colour.trans_type)) {
    ReportUnknownTransType(colour.trans_type);
    return;
  }
  DrawLineWith(surface, x0, y0, x1, y1, LinePixels(surface, colour));
}

void DrawRingEdges(DrawSurface& surface, const PixelRings& rings, const PixelColour& colour) {
  if (!surface.location_query() && colour.alpha != 0.0 && !IsKnownTransType(colour.trans_type)) {
    ReportUnknownTransType(colour.trans_type);
    return;
  }
  const LinePixels pixels(surface, colour);
  const auto& points = rings.points();
  const auto& follows = rings.edge_follows();
  for (size_t r = 0; r < rings.ring_count(); ++r) {
    const size_t begin = rings.RingBegin(r), end = rings.RingEnd(r);
    for (size_t i = begin; i < end; ++i) {
      if (!follows[i]) continue;
      const PixelVertex& a = points[i];
      const PixelVertex& b = points[i + 1 < end ? i + 1 : begin];
      DrawLineWith(surface, a.x, a.y, b.x, b.y, pixels);
      if (surface.location_query() && surface.hit()) return;
    }
  }
}

void DrawMarkerSquare(DrawSurface& surface, double x, double y, int64_t size,
                      const PixelColour& colour) {
  // Far beyond any image (and beyond what the integer corners can hold).
  constexpr double kFar = 1e15;
  if (!(std::fabs(x) < kFar && std::fabs(y) < kFar)) return;
  size = std::clamp<int64_t>(size, 1, 1 << 20);
  const int64_t x0 = RoundToInt64(x) - size / 2, y0 = RoundToInt64(y) - size / 2;
  const PixelRect square{x0, x0 + size - 1, y0, y0 + size - 1};
  const PixelRect visible = square.Intersect(surface.active_rect());
  if (visible.empty()) return;
  if (surface.location_query()) {
    surface.set_hit(true);
    return;
  }
  for (int64_t row = visible.min_y; row <= visible.max_y; ++row) {
    DrawSpan(surface, visible.min_x, row, visible.max_x, colour);
  }
}

}  // namespace vmp
