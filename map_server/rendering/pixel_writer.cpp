#include "map_server/rendering/pixel_writer.h"

#include <algorithm>
#include <cstring>

#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Runs at least this long go through the blend table.
constexpr int64_t kTableRun = 32;

template <int64_t Kind>
void BlendRun(uint8_t* pixel, int64_t count, const PixelColour& c) {
  for (int64_t i = 0; i < count; ++i, pixel += 3) BlendPixel<Kind>(pixel, c.red, c.green, c.blue, c.alpha);
}

template <int64_t Kind>
void FillTable(BlendTable& t, const PixelColour& c) {
  for (int p = 0; p < 256; ++p) {
    const uint8_t old = static_cast<uint8_t>(p);
    t.channel[0][p] = BlendChannel<Kind>(old, c.red, c.alpha);
    t.channel[1][p] = BlendChannel<Kind>(old, c.green, c.alpha);
    t.channel[2][p] = BlendChannel<Kind>(old, c.blue, c.alpha);
  }
}

}  // namespace

const BlendTable& BlendTableFor(DrawSurface& surface, const PixelColour& c) {
  for (int i = 0; i < DrawSurface::kBlendTables; ++i) {
    const BlendTable& t = surface.blend_table(i);
    if (t.valid && t.trans_type == c.trans_type && t.red == c.red && t.green == c.green &&
        t.blue == c.blue && t.alpha == c.alpha) {
      return t;
    }
  }
  int& next = surface.next_blend_table();
  BlendTable& t = surface.blend_table(next);
  next = (next + 1) % DrawSurface::kBlendTables;
  switch (c.trans_type) {
    case kTransAlphaWhite: FillTable<kTransAlphaWhite>(t, c); break;
    case kTransAlphaBlack: FillTable<kTransAlphaBlack>(t, c); break;
    case kTransXor: FillTable<kTransXor>(t, c); break;
    case kTransBumpMap: FillTable<kTransBumpMap>(t, c); break;
    default: FillTable<kTransOpaque>(t, c); break;
  }
  t.valid = true;
  t.trans_type = c.trans_type;
  t.red = c.red;
  t.green = c.green;
  t.blue = c.blue;
  t.alpha = c.alpha;
  return t;
}

namespace {

void TableRun(uint8_t* pixel, int64_t count, const BlendTable& t) {
  for (int64_t i = 0; i < count; ++i, pixel += 3) {
    pixel[0] = t.channel[0][pixel[0]];
    pixel[1] = t.channel[1][pixel[1]];
    pixel[2] = t.channel[2][pixel[2]];
  }
}

// An opaque copy: the first pixel is written, then doubled until the run is full.
void CopyRun(uint8_t* pixel, int64_t count, const PixelColour& c) {
  pixel[0] = c.red;
  pixel[1] = c.green;
  pixel[2] = c.blue;
  const size_t total = static_cast<size_t>(count) * 3;
  size_t done = 3;
  while (done < total) {
    const size_t n = std::min(done, total - done);
    std::memcpy(pixel + done, pixel, n);
    done += n;
  }
}

}  // namespace

void ReportUnknownTransType(int64_t kind) {
  ReportNumber(kError, "Cannot render layer transparency type", static_cast<double>(kind));
}

void SetMapPixel(DrawSurface& surface, int64_t x, int64_t y, const PixelColour& colour) {
  if (!surface.clip().Contains(x, y)) return;
  if (colour.alpha == 0.0 || surface.location_query()) return;
  if (!BlendPixelOfKind(colour.trans_type, surface.PixelAt(x, y), colour.red, colour.green,
                        colour.blue, colour.alpha)) {
    ReportUnknownTransType(colour.trans_type);
  }
}

namespace {

// A run of a known kind blended pixel by pixel.
void BlendRunOfKind(uint8_t* pixel, int64_t count, const PixelColour& colour) {
  switch (colour.trans_type) {
    case kTransAlphaWhite: BlendRun<kTransAlphaWhite>(pixel, count, colour); return;
    case kTransAlphaBlack: BlendRun<kTransAlphaBlack>(pixel, count, colour); return;
    case kTransXor: BlendRun<kTransXor>(pixel, count, colour); return;
    case kTransBumpMap: BlendRun<kTransBumpMap>(pixel, count, colour); return;
    default: BlendRun<kTransOpaque>(pixel, count, colour); return;
  }
}

bool IsCopy(const PixelColour& colour) {
  return (colour.trans_type == kTransOpaque || colour.trans_type == kTransColourOpaque) && colour.alpha == 1.0;
}

}  // namespace

void DrawSpan(DrawSurface& surface, int64_t x1, int64_t y, int64_t x2, const PixelColour& colour) {
  const PixelRect& clip = surface.clip();
  if (y < clip.min_y || y > clip.max_y) return;
  x1 = std::max(x1, clip.min_x);
  x2 = std::min(x2, clip.max_x);
  if (x1 > x2) return;
  if (colour.alpha == 0.0 || surface.location_query()) return;
  if (!IsKnownTransType(colour.trans_type)) {
    ReportUnknownTransType(colour.trans_type);
    return;
  }
  uint8_t* pixel = surface.PixelAt(x1, y);
  const int64_t count = x2 - x1 + 1;
  if (IsCopy(colour)) {
    CopyRun(pixel, count, colour);
  } else if (count >= kTableRun) {
    TableRun(pixel, count, BlendTableFor(surface, colour));
  } else {
    BlendRunOfKind(pixel, count, colour);
  }
}

SpanWriter::SpanWriter(DrawSurface& surface, const PixelColour& colour)
    : surface_(surface),
      colour_(colour),
      skip_(colour.alpha == 0.0 || surface.location_query()),
      known_(IsKnownTransType(colour.trans_type)),
      copy_(IsCopy(colour)) {}

void SpanWriter::Draw(int64_t x1, int64_t y, int64_t x2) {
  if (skip_) return;
  if (!known_) {
    DrawSpan(surface_, x1, y, x2, colour_);  // reports the kind
    return;
  }
  const PixelRect& clip = surface_.clip();
  if (y < clip.min_y || y > clip.max_y) return;
  x1 = std::max(x1, clip.min_x);
  x2 = std::min(x2, clip.max_x);
  if (x1 > x2) return;
  uint8_t* pixel = surface_.PixelAt(x1, y);
  const int64_t count = x2 - x1 + 1;
  if (copy_) {
    CopyRun(pixel, count, colour_);
    return;
  }
  if (table_ == nullptr) {
    // Short runs blend by themselves until they add up to a table's worth.
    blended_ += count;
    if (blended_ < kTableRun) {
      BlendRunOfKind(pixel, count, colour_);
      return;
    }
    table_ = &BlendTableFor(surface_, colour_);
  }
  TableRun(pixel, count, *table_);
}

}  // namespace vmp
