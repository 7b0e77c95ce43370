#include "map_server/wms/wms_translate.h"

#include "map_server/geometry/map_geometry.h"

namespace vmp {

namespace {

struct Side {
  int64_t rendered;
  int64_t offset;
  double extent_scale;  // native extent = requested extent x this
};

// A side of n pixels over an extent e is rendered as n pixels over
// e (n - 1) / n; a side of 1 as 3 pixels over 2 e (centres at -e, 0, +e).
Side RenderedSide(int64_t pixels) {
  if (pixels == 1) return {3, 1, 2.0};
  return {pixels, 0, static_cast<double>(pixels - 1) / static_cast<double>(pixels)};
}

}  // namespace

NativeView TranslateView(const WmsRequest& r) {
  NativeView view;
  const Side x = RenderedSide(r.width);
  const Side y = RenderedSide(r.height);
  view.render_width = x.rendered;
  view.render_height = y.rendered;
  view.offset_x = x.offset;
  view.offset_y = y.offset;

  const auto& b = r.bbox;
  double projection = static_cast<double>(kRectangularProjection);
  double center_lon = 0, center_lat = 0, h_extent = 0, v_extent = 0;
  switch (r.crs.kind) {
    case WmsCrsKind::kLonLat:
      center_lon = b[0] + (b[2] - b[0]) / 2;
      center_lat = b[1] + (b[3] - b[1]) / 2;
      h_extent = b[2] - b[0];
      v_extent = b[3] - b[1];
      break;
    case WmsCrsKind::kLatLon:
      center_lat = b[0] + (b[2] - b[0]) / 2;
      center_lon = b[1] + (b[3] - b[1]) / 2;
      v_extent = b[2] - b[0];
      h_extent = b[3] - b[1];
      break;
    case WmsCrsKind::kOrthographic:
      projection = static_cast<double>(kOrthographicProjection);
      center_lon = r.crs.lon0;
      center_lat = r.crs.lat0;
      h_extent = (b[2] - b[0]) * r.crs.metres_per_unit;
      v_extent = (b[3] - b[1]) * r.crs.metres_per_unit;
      break;
  }

  ParsedRequest& p = view.request;
  const bool info = r.operation == WmsOperation::kGetFeatureInfo;
  p.type = info ? RequestType::kGetSelection : RequestType::kGetMap;
  p.xml = true;
  auto set = [&p](const char* name, double value) { p.settings.push_back({name, value}); };
  set("Projection", projection);
  set("CenterLon", center_lon);
  set("CenterLat", center_lat);
  set("HExtent", h_extent * x.extent_scale);
  set("VExtent", v_extent * y.extent_scale);
  set("Width", static_cast<double>(x.rendered));
  set("Height", static_cast<double>(y.rendered));
  set("Stretch", 1.0);
  p.settings.push_back({"Background", ColourValue{r.bgcolor[0] / 255.0, r.bgcolor[1] / 255.0,
                                                  r.bgcolor[2] / 255.0}});
  if (info) {
    set("LocationI", static_cast<double>(r.i + x.offset));
    set("LocationJ", static_cast<double>(r.j + y.offset));
  }
  return view;
}

}  // namespace vmp
