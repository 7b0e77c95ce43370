// Laying text out with a stroke or glyph font and drawing it, with its
// outline and label box, into the map image.
//
// Text space: x runs along the baseline, y downwards, in pixels at the
// layer's size; the origin is the top-left corner of the text's box. The
// box holds the ink of every line plus a pad: the outline's radius (with
// LabelStyle OUTLINE) or the stroke's half width, TextBoxMargin, and
// TextBoxLineWidth (with BG_EDGE), so that everything a label draws lies
// inside its box. TextAnchor names the point of this box that sits at the
// anchor point; lines of a multi-line text ("\n") are aligned by the
// horizontal anchor.
//
// Drawing renders the text upright into a coverage mask (stroke fonts as
// anti-aliased polylines of VTextLineWidth pixels, glyph fonts from their
// FreeType coverage bitmaps), then maps every image pixel whose centre lies
// in the placed box back into text space and blends, in this order, the
// box fill (BG_FILL), the box edge (BG_EDGE), the outline (OUTLINE) and the
// text, each through SetMapPixel with the layer's transparency kind and its
// alpha times the coverage.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/pixel_rings.h"
#include "map_server/text/text_engine.h"
#include "map_server/text/text_style.h"

namespace vmp {

struct TextBlock {
  struct Glyph {
    char32_t c;
    double x;         // pen position
    double baseline;  // y of the baseline
  };
  const LoadedFont* font = nullptr;
  double width = 0.0;   // whole pixels
  double height = 0.0;
  int pixel_size = 0;        // glyph fonts: pixels per em
  double stroke_scale = 0;   // stroke fonts: pixels per font unit
  int stroke_width = 1;
  int halo = 0;              // outline radius in pixels (0: no outline)
  std::vector<Glyph> glyphs;

  bool empty() const { return glyphs.empty(); }
};

// A text box placed on the image.
struct TextPlacement {
  TextFrame frame;
  double origin_x = 0.0;  // the box's top-left corner in pixels
  double origin_y = 0.0;
  PixelVertex corners[4];  // top-left, top-right, bottom-right, bottom-left
  // The pixels whose centres the box can hold (bounds inclusive).
  PixelRect Bounds() const;
};

// Places `block` so that the point of its box named by `anchor` lies at
// pixel (x, y). Screen-aligned boxes get a whole-pixel origin so that
// their text stays crisp.
TextPlacement PlaceText(const TextBlock& block, double x, double y, const TextFrame& frame,
                        int32_t anchor);

class TextPainter {
 public:
  // Lays `text` out; false (and an empty block) when it holds nothing to
  // draw. `cache` keeps glyph bitmaps (null: render every time).
  bool Layout(const LoadedFont& font, std::u32string_view text, const TextStyle& style,
              GlyphCache* cache, TextBlock& block);
  // Draws a laid-out block (nothing in a location query).
  void Draw(DrawSurface& surface, const TextBlock& block, const TextPlacement& placement,
            const TextStyle& style, GlyphCache* cache);

 private:
  bool GlyphOf(const LoadedFont& font, char32_t c, int pixel_size, GlyphCache* cache, GlyphImage& out);
  void RenderMask(const TextBlock& block, GlyphCache* cache);

  std::vector<uint8_t> text_mask_;  // upright coverage, block.width x block.height
  std::vector<uint8_t> halo_mask_;
  std::vector<uint8_t> column_;
  int mask_width_ = 0;
  int mask_height_ = 0;
};

}  // namespace vmp
