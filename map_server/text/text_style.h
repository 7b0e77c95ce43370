// How a layer draws its text: size, angle, anchor, text type, colours and
// the label box, read once per layer from its record; and the text frame
// that places text-space coordinates on the map image.
#pragma once

#include <cstdint>

#include "map_server/dataset/layer.h"
#include "map_server/geometry/map_geometry.h"
#include "map_server/rendering/pixel_colour.h"

namespace vmp {

// TextAnchor: horizontal part (low bits) plus vertical part.
enum TextAnchorBits : int32_t {
  kAnchorHCenter = 0,
  kAnchorHLeft = 1,
  kAnchorHRight = 2,
  kAnchorVCenter = 0,
  kAnchorVTop = 16,
  kAnchorVBottom = 32,
};
inline int32_t HorizontalAnchor(int32_t anchor) { return anchor & 15; }
inline int32_t VerticalAnchor(int32_t anchor) { return anchor & 48; }

enum TextType : int64_t { kTextFlat = 0, kTextMappedFlat = 1, kTextTransformed = 2 };

// LabelStyle flags.
enum LabelStyleBits : int32_t { kLabelBgEdge = 1, kLabelBgFill = 2, kLabelOutline = 4 };

// Height of capital letters, in pixels, at FontScale 1.
inline constexpr double kBaseCapHeight = 10.0;

struct TextStyle {
  double font_scale = 1.0;
  double angle = 0.0;  // degrees, counter-clockwise
  int32_t anchor = kAnchorHLeft + kAnchorVTop;
  int64_t text_type = kTextTransformed;
  PixelColour colour;          // LabelColor
  PixelColour outline_colour;  // LabelOutlineColor
  PixelColour box_edge_colour;
  PixelColour box_fill_colour;
  int32_t label_style = 0;
  int32_t box_margin = 0;      // TextBoxMargin, pixels
  int32_t box_line_width = 1;  // TextBoxLineWidth, pixels
  int32_t stroke_width = 1;    // VTextLineWidth, pixels

  double cap_height() const { return kBaseCapHeight * font_scale; }
};

// The style of a layer's record (colours with the layer's Alpha and
// transparency kind). Negative widths and margins count as 0, a stroke
// width below 1 as 1.
TextStyle TextStyleOf(const LayerRecord& record);

// Where text space lands on the image: one text unit along the baseline is
// the pixel vector (ux, uy), one unit downwards (towards the descenders) is
// (dx, dy).
struct TextFrame {
  double ux = 1.0, uy = 0.0;
  double dx = 0.0, dy = 1.0;
  bool IsIdentity() const { return ux == 1.0 && uy == 0.0 && dx == 0.0 && dy == 1.0; }
};

// Screen-aligned text turned counter-clockwise by `angle` degrees.
TextFrame FlatFrame(double angle);

// The frame of text anchored at (lat, lon) by the layer's text type:
// FLAT ignores the map (screen-aligned, turned by `angle`); MAPPED FLAT
// turns the text with the map, so that `angle` is measured from the local
// parallel (east) as the map shows it (a rotated map, the globe's curved
// parallels), without distorting it; TRANSFORMED also lays the text on the
// ground: on the globe its baseline follows the parallel and its upright the
// meridian, each foreshortened as the globe is at that point (down to 15 %).
// On the rectangular map the ground is the map plane, so TRANSFORMED is
// MAPPED FLAT there. Where no local frame exists (the point is off the map,
// or at a pole) the text is FLAT.
TextFrame MapTextFrame(const MapGeometry& geometry, double lat, double lon, int64_t text_type,
                       double angle);

}  // namespace vmp
