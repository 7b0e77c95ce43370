// Arbitrary bytes as a stroke font file, a label format, or a label text
// drawn with a stroke font: parsing refuses or accepts, drawing stays in
// bounds.
#include <cstdint>
#include <string>
#include <string_view>

#include "map_server/geometry/map_geometry.h"
#include "map_server/geometry/map_image.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/text/label_format.h"
#include "map_server/text/text_decode.h"
#include "map_server/text/text_painter.h"
#include "toolkit/message_log.h"

namespace {

struct Setup {
  Setup() {
    vmp::VmpSetErrorHandler([](const char*, int) {});
    geometry.max_x = 79;
    geometry.max_y = 39;
    geometry.end_x = 80;
    geometry.end_y = 40;
    image.Resize(80, 40);
    marker.AddAttribute(1, vmp::TypedValue::String("Name"));
    marker.AddAttribute(2, vmp::TypedValue::Double(-12.5));
    marker.AddAttribute(3, vmp::TypedValue::Geo(1, 2, 3));
  }
  vmp::MapGeometry geometry;
  vmp::MapImage image;
  vmp::MarkerFeature marker;
};

void Draw(Setup& s, const vmp::LoadedFont& font, const std::u32string& text, uint8_t variant) {
  vmp::DrawSurface surface(&s.image, s.geometry);
  vmp::TextStyle style;
  style.font_scale = 0.5 + (variant & 7) * 0.5;
  style.anchor = (variant & 3) | ((variant >> 2) & 3) << 4;
  style.label_style = variant >> 4;
  style.stroke_width = 1 + (variant & 3);
  vmp::TextPainter painter;
  vmp::TextBlock block;
  if (!painter.Layout(font, text, style, nullptr, block)) return;
  painter.Draw(surface, block, vmp::PlaceText(block, 40, 20, vmp::FlatFrame(variant * 7.0), style.anchor), style,
               nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Setup setup;
  if (size < 2) return 0;
  const std::string_view rest(reinterpret_cast<const char*>(data + 2), size - 2);
  vmp::LoadedFont font;
  std::u32string text;
  switch (data[0] % 3) {
    case 0:  // a font file, drawn with
      font.stroke = vmp::StrokeFont::Parse(rest, "fuzz.jhf");
      if (font.stroke) Draw(setup, font, U"Ag \u00B0\n?x", data[1]);
      break;
    case 1: {  // a label format
      std::optional<vmp::LabelFormat> format = vmp::LabelFormat::Compile(rest);
      std::string out;
      const std::string label = "L";
      if (format) format->Expand(setup.marker, &label, out);
      break;
    }
    default:  // a label text
      font.stroke = vmp::StrokeFont::Parse("    1  3JZRFR[\n    2  5JZRFR[ RV[\n", "fixed.jhf");
      vmp::DecodeText(rest, data[1] & 1 ? vmp::TextEncoding::kUtf8 : vmp::TextEncoding::kLatin1, text);
      if (font.stroke) Draw(setup, font, text, data[1]);
      break;
  }
  return 0;
}
