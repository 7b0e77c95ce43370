#include "map_server/rendering/markers.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "map_server/geometry/int_conversion.h"

namespace vmp {

namespace {

// Symbols are drawn with circles this close to the true circle (pixels).
constexpr double kSymbolTolerance = 0.05;
// Far beyond any image, and beyond what pixel integers hold.
constexpr double kFar = 1e15;
constexpr int32_t kSymbolFlags = kMarkerCross | kMarkerBoxEdge | kMarkerBoxFill | kMarkerCircleEdge |
                                 kMarkerCircleFill | kMarkerDot;

// Where a marker's symbols sit: a whole size in pixels, centred on the pixel
// nearest to the position (odd sizes) or on that pixel's top left corner
// (even sizes), so that both come out symmetric.
struct SymbolFrame {
  double cx, cy;      // centre
  double half;        // half the size
  int64_t px, py;     // the marker's pixel
};

SymbolFrame FrameOf(const MarkerStyle& style, double x, double y) {
  SymbolFrame f;
  const double size = std::clamp(std::round(style.size), 1.0, kMaxMarkerSize);
  f.px = RoundToInt64(x);
  f.py = RoundToInt64(y);
  const double shift = std::fmod(size, 2.0) == 0.0 ? -0.5 : 0.0;
  f.cx = static_cast<double>(f.px) + shift;
  f.cy = static_cast<double>(f.py) + shift;
  f.half = size / 2.0;
  return f;
}

}  // namespace

PixelRect MarkerFootprint(const MarkerStyle& style, double x, double y) {
  const SymbolFrame f = FrameOf(style, x, y);
  // The pixels whose centres the symbol box covers.
  PixelRect box{TruncToInt64(std::ceil(f.cx - f.half)), TruncToInt64(std::ceil(f.cx + f.half)) - 1,
                TruncToInt64(std::ceil(f.cy - f.half)), TruncToInt64(std::ceil(f.cy + f.half)) - 1};
  if ((style.type & kMarkerCustomIcon) && style.icon != nullptr && style.icon->width > 0 &&
      style.icon->height > 0) {
    const int64_t left = f.px - style.icon->width / 2, top = f.py - style.icon->height / 2;
    box.min_x = std::min(box.min_x, left);
    box.max_x = std::max(box.max_x, left + style.icon->width - 1);
    box.min_y = std::min(box.min_y, top);
    box.max_y = std::max(box.max_y, top + style.icon->height - 1);
  }
  const int64_t margin = std::clamp<int64_t>(TruncToInt64(style.margin), 0, 1 << 20);
  return {box.min_x - margin, box.max_x + margin, box.min_y - margin, box.max_y + margin};
}

void DrawIcon(DrawSurface& surface, const LoadedImage& icon, int64_t left, int64_t top,
              double alpha, int64_t trans_type) {
  if (surface.location_query() || alpha == 0.0 || !IsKnownTransType(trans_type)) return;
  const int samples = icon.samples_per_pixel;
  if (icon.elevation || samples < 1 || samples > 4 ||
      icon.pixels.size() < static_cast<size_t>(icon.width * icon.height * samples)) {
    return;
  }
  const PixelRect area =
      PixelRect{left, left + icon.width - 1, top, top + icon.height - 1}.Intersect(surface.clip());
  for (int64_t y = area.min_y; y <= area.max_y; ++y) {
    const uint8_t* src = icon.pixels.data() + ((y - top) * icon.width + (area.min_x - left)) * samples;
    uint8_t* dst = surface.PixelAt(area.min_x, y);
    for (int64_t x = area.min_x; x <= area.max_x; ++x, src += samples, dst += 3) {
      uint8_t r = src[0], g = src[0], b = src[0], a = 255;
      if (samples >= 3) {
        g = src[1];
        b = src[2];
      }
      if (samples == 2) a = src[1];
      if (samples == 4) a = src[3];
      if (a == 0) continue;
      BlendPixelOfKind(trans_type, dst, r, g, b, a == 255 ? alpha : alpha * (a / 255.0));
    }
  }
}

void MarkerShapes::Build(int32_t type, double size, double line_width) {
  built_ = true;
  type_ = type;
  size_ = size;
  line_width_ = line_width;
  MarkerStyle style;
  style.size = size;
  const SymbolFrame f = FrameOf(style, 0.0, 0.0);
  const double w = std::clamp(std::round(line_width), kMinLineWidth, std::max(1.0, f.half));
  const double inner = f.half - w;  // the rims' inner size; 0 or less: no hole
  const PixelRect everywhere{std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max(),
                             std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()};

  // Fills, inside the rims when there are rims.
  builder_.Begin(everywhere, 1.0);
  if (type & kMarkerBoxFill) {
    const double h = (type & kMarkerBoxEdge) ? inner : f.half;
    builder_.AddBox(f.cx - h, f.cy - h, f.cx + h, f.cy + h);
  }
  if (type & kMarkerCircleFill) {
    builder_.AddDisc(f.cx, f.cy, (type & kMarkerCircleEdge) ? inner : f.half, false, kSymbolTolerance);
  }
  fills_ = builder_.shapes();

  // Rims, cross and dot: one shape in the edge colour.
  builder_.Begin(everywhere, 1.0);
  if (type & kMarkerBoxEdge) {
    builder_.AddBox(f.cx - f.half, f.cy - f.half, f.cx + f.half, f.cy + f.half);
    if (inner > 0.0) builder_.AddBox(f.cx - inner, f.cy - inner, f.cx + inner, f.cy + inner, true);
  }
  if (type & kMarkerCircleEdge) {
    builder_.AddDisc(f.cx, f.cy, f.half, false, kSymbolTolerance);
    if (inner > 0.0) builder_.AddDisc(f.cx, f.cy, inner, true, kSymbolTolerance);
  }
  if (type & kMarkerCross) {
    builder_.AddBox(f.cx - f.half, f.cy - w / 2, f.cx + f.half, f.cy + w / 2);
    builder_.AddBox(f.cx - w / 2, f.cy - f.half, f.cx + w / 2, f.cy + f.half);
  }
  if (type & kMarkerDot) builder_.AddDisc(f.cx, f.cy, std::max(0.5, f.half / 3.0), false, kSymbolTolerance);
  edges_ = builder_.shapes();
}

bool MarkerShapes::Fill(DrawSurface& surface, EdgeTables& tables, const PixelRings& shape, double dx,
                        double dy, const PixelColour& colour) {
  if (shape.ring_count() == 0) return true;
  placed_.Clear();
  const std::vector<PixelVertex>& points = shape.points();
  for (size_t r = 0; r < shape.ring_count(); ++r) {
    for (size_t i = shape.RingBegin(r); i < shape.RingEnd(r); ++i) placed_.Add(points[i].x + dx, points[i].y + dy);
    placed_.EndRing();
  }
  return FillPolygons(surface, tables, placed_, colour, FillMode::kStroke);
}

void MarkerShapes::Draw(DrawSurface& surface, EdgeTables& tables, double x, double y,
                        const MarkerStyle& style) {
  if (!(std::fabs(x) < kFar && std::fabs(y) < kFar)) return;
  const PixelRect footprint = MarkerFootprint(style, x, y);
  if (surface.location_query()) {
    if (!footprint.Intersect(surface.search_box()).empty()) surface.set_hit(true);
    return;
  }
  if (footprint.Intersect(surface.clip()).empty()) return;
  const int32_t type = style.type & (kSymbolFlags | kMarkerCustomIcon);
  const double size = std::clamp(std::round(style.size), 1.0, kMaxMarkerSize);
  if (!built_ || type != type_ || size != size_ || style.line_width != line_width_) {
    Build(type, size, style.line_width);
  }
  const int64_t px = RoundToInt64(x), py = RoundToInt64(y);
  Fill(surface, tables, fills_, static_cast<double>(px), static_cast<double>(py), style.fill_colour);
  if ((type & kMarkerCustomIcon) && style.icon != nullptr) {
    DrawIcon(surface, *style.icon, px - style.icon->width / 2, py - style.icon->height / 2,
             style.edge_colour.alpha, style.edge_colour.trans_type);
  }
  Fill(surface, tables, edges_, static_cast<double>(px), static_cast<double>(py), style.edge_colour);
}

}  // namespace vmp
