#include "map_server/text/text_painter.h"

#include <algorithm>
#include <cmath>

#include "map_server/rendering/pixel_writer.h"

namespace vmp {

namespace {

// Largest text box side drawn, in pixels: keeps a runaway FontScale or a
// huge label from allocating a mask of gigabytes.
constexpr double kMaxBoxSide = 4096.0;
// Extra space between the lines of a multi-line text, per cap height.
constexpr double kLineGap = 0.25;

struct LineExtent {
  size_t first = 0;  // glyph range in the block
  size_t end = 0;
  double min_x = 0.0, max_x = 0.0;  // ink and advance, from the line's pen start
  double min_y = 0.0, max_y = 0.0;  // from the baseline, downwards positive
};

double Sample(const std::vector<uint8_t>& mask, int w, int h, double tx, double ty) {
  const double sx = tx - 0.5, sy = ty - 0.5;
  const double fx0 = std::floor(sx), fy0 = std::floor(sy);
  const int x0 = static_cast<int>(fx0), y0 = static_cast<int>(fy0);
  const double fx = sx - fx0, fy = sy - fy0;
  auto at = [&](int x, int y) -> double {
    if (x < 0 || y < 0 || x >= w || y >= h) return 0.0;
    return mask[static_cast<size_t>(y) * static_cast<size_t>(w) + static_cast<size_t>(x)];
  };
  const double top = at(x0, y0) * (1 - fx) + at(x0 + 1, y0) * fx;
  const double bottom = at(x0, y0 + 1) * (1 - fx) + at(x0 + 1, y0 + 1) * fx;
  return top * (1 - fy) + bottom * fy;
}

// An anti-aliased segment of `width` pixels with round ends, kept as the
// maximum coverage per texel.
void StrokeSegment(std::vector<uint8_t>& mask, int w, int h, double x0, double y0, double x1, double y1,
                   double width) {
  const double reach = width / 2.0 + 0.5;
  const int min_x = std::max(0, static_cast<int>(std::floor(std::min(x0, x1) - reach)));
  const int max_x = std::min(w - 1, static_cast<int>(std::ceil(std::max(x0, x1) + reach)));
  const int min_y = std::max(0, static_cast<int>(std::floor(std::min(y0, y1) - reach)));
  const int max_y = std::min(h - 1, static_cast<int>(std::ceil(std::max(y0, y1) + reach)));
  const double vx = x1 - x0, vy = y1 - y0;
  const double len2 = vx * vx + vy * vy;
  for (int y = min_y; y <= max_y; ++y) {
    for (int x = min_x; x <= max_x; ++x) {
      const double px = x + 0.5 - x0, py = y + 0.5 - y0;
      const double t = len2 > 0.0 ? std::clamp((px * vx + py * vy) / len2, 0.0, 1.0) : 0.0;
      const double dx = px - t * vx, dy = py - t * vy;
      const double coverage = std::clamp(reach - std::sqrt(dx * dx + dy * dy), 0.0, 1.0);
      uint8_t& texel = mask[static_cast<size_t>(y) * static_cast<size_t>(w) + static_cast<size_t>(x)];
      texel = std::max(texel, static_cast<uint8_t>(coverage * 255.0 + 0.5));
    }
  }
}

}  // namespace

PixelRect TextPlacement::Bounds() const {
  double min_x = corners[0].x, max_x = corners[0].x, min_y = corners[0].y, max_y = corners[0].y;
  for (const PixelVertex& c : corners) {
    min_x = std::min(min_x, c.x);
    max_x = std::max(max_x, c.x);
    min_y = std::min(min_y, c.y);
    max_y = std::max(max_y, c.y);
  }
  // Pixel x holds its centre x + 0.5.
  return {static_cast<int64_t>(std::ceil(min_x - 0.5)), static_cast<int64_t>(std::floor(max_x - 0.5)),
          static_cast<int64_t>(std::ceil(min_y - 0.5)), static_cast<int64_t>(std::floor(max_y - 0.5))};
}

TextPlacement PlaceText(const TextBlock& block, double x, double y, const TextFrame& frame, int32_t anchor) {
  const int32_t h = HorizontalAnchor(anchor);
  const int32_t v = VerticalAnchor(anchor);
  const double ax = h == kAnchorHLeft ? 0.0 : h == kAnchorHRight ? block.width : block.width / 2.0;
  const double ay = v == kAnchorVTop ? 0.0 : v == kAnchorVBottom ? block.height : block.height / 2.0;
  TextPlacement p;
  p.frame = frame;
  p.origin_x = x - ax * frame.ux - ay * frame.dx;
  p.origin_y = y - ax * frame.uy - ay * frame.dy;
  if (frame.IsIdentity()) {
    p.origin_x = std::round(p.origin_x);
    p.origin_y = std::round(p.origin_y);
  }
  const double w = block.width, hh = block.height;
  p.corners[0] = {p.origin_x, p.origin_y};
  p.corners[1] = {p.origin_x + w * frame.ux, p.origin_y + w * frame.uy};
  p.corners[2] = {p.origin_x + w * frame.ux + hh * frame.dx, p.origin_y + w * frame.uy + hh * frame.dy};
  p.corners[3] = {p.origin_x + hh * frame.dx, p.origin_y + hh * frame.dy};
  return p;
}

bool TextPainter::GlyphOf(const LoadedFont& font, char32_t c, int pixel_size, GlyphCache* cache,
                          GlyphImage& out) {
  if (cache != nullptr) return cache->Get(*font.glyph, c, pixel_size, out);
  return font.glyph->Render(c, pixel_size, out);
}

bool TextPainter::Layout(const LoadedFont& font, std::u32string_view text, const TextStyle& style,
                         GlyphCache* cache, TextBlock& block) {
  block.glyphs.clear();
  block.font = &font;
  block.width = block.height = 0.0;
  const double cap = style.cap_height();
  const bool stroke = font.stroke.has_value();
  double ascent = 0.0, descent = 0.0;
  if (stroke) {
    block.stroke_scale = cap / font.stroke->cap_height();
    block.stroke_width = style.stroke_width;
    ascent = font.stroke->ascent() * block.stroke_scale;
    descent = font.stroke->descent() * block.stroke_scale;
  } else {
    block.pixel_size = std::max(1, static_cast<int>(std::lround(cap / font.glyph->cap_ratio())));
    ascent = font.glyph->Ascender(block.pixel_size);
    descent = font.glyph->Descender(block.pixel_size);
  }
  block.halo = (style.label_style & kLabelOutline) ? (cap >= 20.0 ? 2 : 1) : 0;

  // Pass 1: pen positions per line and each line's ink.
  std::vector<LineExtent> lines(1);
  double pen = 0.0;
  char32_t previous = 0;
  const double half_stroke = stroke ? style.stroke_width / 2.0 + 0.5 : 0.0;
  auto widen = [](LineExtent& line, double x0, double x1, double y0, double y1) {
    line.min_x = std::min(line.min_x, x0);
    line.max_x = std::max(line.max_x, x1);
    line.min_y = std::min(line.min_y, y0);
    line.max_y = std::max(line.max_y, y1);
  };
  for (const char32_t c : text) {
    if (c == '\n') {
      lines.back().end = block.glyphs.size();
      lines.push_back({});
      lines.back().first = block.glyphs.size();
      pen = 0.0;
      previous = 0;
      continue;
    }
    if (c < 0x20 || c == 0x7F) continue;  // other control characters draw nothing
    LineExtent& line = lines.back();
    if (stroke) {
      const StrokeGlyph& g = font.stroke->Glyph(c);
      const double s = block.stroke_scale;
      for (const StrokePoint& p : font.stroke->Points(g)) {
        const double x = pen + (p.x - g.left) * s;
        const double y = (p.y - font.stroke->baseline()) * s;
        widen(line, x - half_stroke, x + half_stroke, y - half_stroke, y + half_stroke);
      }
      block.glyphs.push_back({c, pen, 0.0});
      pen += (g.right - g.left) * s;
    } else {
      if (previous != 0) pen += std::round(font.glyph->Kerning(previous, c, block.pixel_size));
      GlyphImage image;
      if (!GlyphOf(font, c, block.pixel_size, cache, image)) continue;
      if (image.width > 0 && image.rows > 0) {
        const double x = pen + image.left;
        widen(line, x, x + image.width, -image.top, image.rows - image.top);
      }
      block.glyphs.push_back({c, pen, 0.0});
      pen += std::round(image.advance);
      previous = c;
    }
    widen(line, 0.0, pen, -ascent, descent);
  }
  lines.back().end = block.glyphs.size();
  if (block.glyphs.empty()) return false;

  // Pass 2: align the lines and add the pad.
  double content_width = 0.0;
  for (LineExtent& line : lines) {
    widen(line, 0.0, 0.0, -ascent, descent);
    content_width = std::max(content_width, line.max_x - line.min_x);
  }
  const int pad = std::max(block.halo, static_cast<int>(std::ceil(half_stroke))) + style.box_margin +
                  ((style.label_style & kLabelBgEdge) ? style.box_line_width : 0);
  const int32_t h = HorizontalAnchor(style.anchor);
  const double line_step = ascent + descent + kLineGap * cap;
  double baseline = pad - lines.front().min_y;
  double bottom = 0.0;
  for (size_t i = 0; i < lines.size(); ++i) {
    const LineExtent& line = lines[i];
    if (i > 0) baseline = std::max(baseline + line_step, bottom - line.min_y);
    const double width = line.max_x - line.min_x;
    double shift = h == kAnchorHLeft ? 0.0 : h == kAnchorHRight ? content_width - width : (content_width - width) / 2.0;
    shift = std::round(shift + pad - line.min_x);
    const double rounded_baseline = std::round(baseline);
    for (size_t g = line.first; g < line.end; ++g) {
      block.glyphs[g].x += shift;
      block.glyphs[g].baseline = rounded_baseline;
    }
    bottom = rounded_baseline + line.max_y;
  }
  block.width = std::ceil(content_width + 2.0 * pad) + 1.0;
  block.height = std::ceil(bottom + pad) + 1.0;
  if (block.width > kMaxBoxSide || block.height > kMaxBoxSide) {
    block.glyphs.clear();
    return false;
  }
  return true;
}

void TextPainter::RenderMask(const TextBlock& block, GlyphCache* cache) {
  mask_width_ = static_cast<int>(block.width);
  mask_height_ = static_cast<int>(block.height);
  const size_t size = static_cast<size_t>(mask_width_) * static_cast<size_t>(mask_height_);
  text_mask_.assign(size, 0);
  const LoadedFont& font = *block.font;
  if (font.stroke) {
    const StrokeFont& sf = *font.stroke;
    const double s = block.stroke_scale;
    for (const TextBlock::Glyph& placed : block.glyphs) {
      const StrokeGlyph& g = sf.Glyph(placed.c);
      const auto points = sf.Points(g);
      for (size_t i = 0; i < points.size(); ++i) {
        const StrokePoint& b = points[i];
        const double bx = placed.x + (b.x - g.left) * s, by = placed.baseline + (b.y - sf.baseline()) * s;
        const bool starts = b.pen_up || i == 0;
        const bool alone = starts && (i + 1 == points.size() || points[i + 1].pen_up);
        if (starts && !alone) continue;
        const StrokePoint& a = starts ? b : points[i - 1];
        const double ax = placed.x + (a.x - g.left) * s, ay = placed.baseline + (a.y - sf.baseline()) * s;
        StrokeSegment(text_mask_, mask_width_, mask_height_, ax, ay, bx, by, block.stroke_width);
      }
    }
  } else {
    for (const TextBlock::Glyph& placed : block.glyphs) {
      GlyphImage image;
      if (!GlyphOf(font, placed.c, block.pixel_size, cache, image) || image.pixels == nullptr) continue;
      const int gx = static_cast<int>(placed.x) + image.left;
      const int gy = static_cast<int>(placed.baseline) - image.top;
      for (int y = 0; y < image.rows; ++y) {
        const int ty = gy + y;
        if (ty < 0 || ty >= mask_height_) continue;
        for (int x = 0; x < image.width; ++x) {
          const int tx = gx + x;
          if (tx < 0 || tx >= mask_width_) continue;
          uint8_t& texel = text_mask_[static_cast<size_t>(ty) * static_cast<size_t>(mask_width_) + static_cast<size_t>(tx)];
          texel = std::max(texel, image.pixels[static_cast<size_t>(y) * static_cast<size_t>(image.width) + static_cast<size_t>(x)]);
        }
      }
    }
  }
  halo_mask_.clear();
  if (block.halo <= 0) return;
  // Square dilation by the radius, separably: rows into the halo mask,
  // then columns back through a scratch column.
  halo_mask_.assign(size, 0);
  const int r = block.halo;
  const size_t w = static_cast<size_t>(mask_width_);
  for (int y = 0; y < mask_height_; ++y) {
    const uint8_t* src = text_mask_.data() + static_cast<size_t>(y) * w;
    uint8_t* dst = halo_mask_.data() + static_cast<size_t>(y) * w;
    for (int x = 0; x < mask_width_; ++x) {
      uint8_t best = 0;
      for (int xx = std::max(0, x - r); xx <= std::min(mask_width_ - 1, x + r); ++xx) best = std::max(best, src[xx]);
      dst[x] = best;
    }
  }
  column_.resize(static_cast<size_t>(mask_height_));
  for (int x = 0; x < mask_width_; ++x) {
    for (int y = 0; y < mask_height_; ++y) column_[static_cast<size_t>(y)] = halo_mask_[static_cast<size_t>(y) * w + static_cast<size_t>(x)];
    for (int y = 0; y < mask_height_; ++y) {
      uint8_t best = 0;
      for (int yy = std::max(0, y - r); yy <= std::min(mask_height_ - 1, y + r); ++yy) best = std::max(best, column_[static_cast<size_t>(yy)]);
      halo_mask_[static_cast<size_t>(y) * w + static_cast<size_t>(x)] = best;
    }
  }
}

void TextPainter::Draw(DrawSurface& surface, const TextBlock& block, const TextPlacement& placement,
                       const TextStyle& style, GlyphCache* cache) {
  if (surface.location_query() || surface.image() == nullptr || block.empty()) return;
  if (!IsKnownTransType(style.colour.trans_type)) {
    ReportUnknownTransType(style.colour.trans_type);
    return;
  }
  const TextFrame& f = placement.frame;
  const double det = f.ux * f.dy - f.uy * f.dx;
  if (!(std::fabs(det) > 1e-9)) return;
  const PixelRect rect = placement.Bounds().Intersect(surface.clip());
  if (rect.empty()) return;
  RenderMask(block, cache);

  const bool fill = (style.label_style & kLabelBgFill) != 0;
  const bool edge = (style.label_style & kLabelBgEdge) != 0 && style.box_line_width > 0;
  const double w = block.width, h = block.height, edge_width = style.box_line_width;
  auto blend = [&](int64_t x, int64_t y, PixelColour colour, double coverage) {
    if (coverage <= 0.0) return;
    colour.alpha *= std::min(1.0, coverage);
    SetMapPixel(surface, x, y, colour);
  };
  // A screen-aligned box at a whole-pixel origin maps pixels onto texels.
  const bool aligned = f.IsIdentity() && placement.origin_x == std::floor(placement.origin_x) &&
                       placement.origin_y == std::floor(placement.origin_y);
  const size_t mw = static_cast<size_t>(mask_width_);
  auto coverage = [&](const std::vector<uint8_t>& mask, double tx, double ty) {
    if (aligned) return mask[static_cast<size_t>(ty) * mw + static_cast<size_t>(tx)] / 255.0;
    return Sample(mask, mask_width_, mask_height_, tx, ty) / 255.0;
  };
  for (int64_t y = rect.min_y; y <= rect.max_y; ++y) {
    for (int64_t x = rect.min_x; x <= rect.max_x; ++x) {
      const double px = x + 0.5 - placement.origin_x, py = y + 0.5 - placement.origin_y;
      const double tx = (px * f.dy - py * f.dx) / det;
      const double ty = (py * f.ux - px * f.uy) / det;
      if (tx < 0.0 || ty < 0.0 || tx >= w || ty >= h) continue;
      if (fill) blend(x, y, style.box_fill_colour, 1.0);
      if (edge && std::min(std::min(tx, w - tx), std::min(ty, h - ty)) < edge_width) {
        blend(x, y, style.box_edge_colour, 1.0);
      }
      if (block.halo > 0) {
        blend(x, y, style.outline_colour, coverage(halo_mask_, tx, ty));
      }
      blend(x, y, style.colour, coverage(text_mask_, tx, ty));
    }
  }
}

}  // namespace vmp
