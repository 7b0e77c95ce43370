#include "map_server/text/text_style.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/conversions.h"

namespace vmp {

namespace {

// Shortest a frame vector gets on the globe's edge.
constexpr double kMinForeshortening = 0.15;

double Length(double x, double y) { return std::sqrt(x * x + y * y); }

TextFrame FromEastNorth(double ex, double ey, double nx, double ny, double angle) {
  const double a = angle * kPi / 180.0;
  const double c = std::cos(a), s = std::sin(a);
  return {c * ex + s * nx, c * ey + s * ny, s * ex - c * nx, s * ey - c * ny};
}

}  // namespace

TextStyle TextStyleOf(const LayerRecord& record) {
  const DrawingAttributes& d = record.drawing;
  TextStyle style;
  style.font_scale = std::isfinite(d.font_scale) && d.font_scale > 0.0 ? d.font_scale : 1.0;
  style.angle = std::isfinite(d.text_angle) ? d.text_angle : 0.0;
  style.anchor = d.text_anchor;
  style.text_type = d.text_type;
  style.colour = MakePixelColour(d.label_color, d.alpha, record.trans_type);
  style.outline_colour = MakePixelColour(d.label_outline_color, d.alpha, record.trans_type);
  style.box_edge_colour = MakePixelColour(d.box_edge_color, d.alpha, record.trans_type);
  style.box_fill_colour = MakePixelColour(d.box_fill_color, d.alpha, record.trans_type);
  style.label_style = d.label_style;
  style.box_margin = std::max(0, d.text_box_margin);
  style.box_line_width = std::max(0, d.text_box_line_width);
  style.stroke_width = std::max(1, d.vtext_line_width);
  return style;
}

TextFrame FlatFrame(double angle) { return FromEastNorth(1.0, 0.0, 0.0, -1.0, angle); }

TextFrame MapTextFrame(const MapGeometry& g, double lat, double lon, int64_t text_type, double angle) {
  if (text_type == kTextFlat) return FlatFrame(angle);
  const double cos_lat = std::cos(lat * kPi / 180.0);
  const double step = g.pixel_size > 0.0 ? g.pixel_size : 1e-3;  // degrees of arc
  if (!(cos_lat > 1e-6) || !std::isfinite(lon)) return FlatFrame(angle);
  const PixelPoint p = LatLonToPixel(g, lat, lon);
  const PixelPoint e = LatLonToPixel(g, lat, lon + step / cos_lat);
  const double north_step = lat + step <= 90.0 ? step : -step;
  const PixelPoint n = LatLonToPixel(g, lat + north_step, lon);
  if (!(p.z >= 0.0) || !(e.z >= 0.0) || !(n.z >= 0.0)) return FlatFrame(angle);
  double ex = e.x - p.x, ey = e.y - p.y;
  double nx = (n.x - p.x) * (north_step > 0 ? 1 : -1), ny = (n.y - p.y) * (north_step > 0 ? 1 : -1);
  const double el = Length(ex, ey), nl = Length(nx, ny);
  if (!(el > 0.0) || !(nl > 0.0) || !std::isfinite(el + nl)) return FlatFrame(angle);
  if (text_type == kTextTransformed && g.projection == kOrthographicProjection) {
    // The step is one pixel at the view centre: the lengths are the scales.
    const double centre_length = step / (g.pixel_size > 0.0 ? g.pixel_size : step);
    const double es = std::clamp(el / centre_length, kMinForeshortening, 1.0);
    const double ns = std::clamp(nl / centre_length, kMinForeshortening, 1.0);
    return FromEastNorth(ex / el * es, ey / el * es, nx / nl * ns, ny / nl * ns, angle);
  }
  if (text_type == kTextTransformed || text_type == kTextMappedFlat) {
    // Undistorted: the east direction gives the turn; upright stays square to it.
    return FromEastNorth(ex / el, ey / el, ey / el, -ex / el, angle);
  }
  return FlatFrame(angle);
}

}  // namespace vmp

