// Writing pixels and horizontal runs of pixels into the map image through a
// layer's transparency kind.
#pragma once

#include <cstdint>

#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/pixel_colour.h"

namespace vmp {

// Reports "Cannot render layer transparency type" with the kind (severity 1).
void ReportUnknownTransType(int64_t kind);

// Writes pixel (x, y): nothing outside the clip, nothing for an alpha of
// exactly 0, nothing during a location query; otherwise each channel by the
// colour's transparency kind (pixel_colour.h). An unknown kind is reported
// and nothing is written.
void SetMapPixel(DrawSurface& surface, int64_t x, int64_t y, const PixelColour& colour);

// Writes the pixels of row y from column x1 to column x2, both ends
// included (nothing when x1 > x2), as SetMapPixel would one by one. The run
// is clipped once; an unknown kind is reported once per run.
void DrawSpan(DrawSurface& surface, int64_t x1, int64_t y, int64_t x2, const PixelColour& colour);

// Writes many runs in one colour, each as DrawSpan would: the colour is
// examined once, and once the runs add up to a few dozen pixels the blend
// goes through the colour's blend table whatever the runs' lengths (the
// scan converter's many short spans of thin lines). The surface must not
// build other blend tables while the writer is in use.
class SpanWriter {
 public:
  SpanWriter(DrawSurface& surface, const PixelColour& colour);
  void Draw(int64_t x1, int64_t y, int64_t x2);

 private:
  DrawSurface& surface_;
  const PixelColour& colour_;
  const bool skip_;   // alpha 0, or a location query
  const bool known_;  // a known transparency kind
  const bool copy_;   // opaque at full alpha: copied
  int64_t blended_ = 0;
  const BlendTable* table_ = nullptr;
};

// The blend table of a colour of a known kind (built on first use, kept in
// the surface's few tables).
const BlendTable& BlendTableFor(DrawSurface& surface, const PixelColour& colour);

}  // namespace vmp
