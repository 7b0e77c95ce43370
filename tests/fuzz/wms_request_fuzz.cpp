// Feeds arbitrary query strings to the standard request reader and its
// translation into the server's own terms: every request is either refused
// with a report that is pure XML-safe text, or becomes a view the renderer
// can take (finite centre and positive finite extents, a drawable size).
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "map_server/wms/wms_request.h"
#include "map_server/wms/wms_translate.h"
#include "map_server/wms/wms_xml.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string query(reinterpret_cast<const char*>(data), size);
  vmp::WmsRequest request;
  const vmp::WmsLimits limits{512, 512};
  if (std::optional<vmp::WmsError> error = vmp::ParseWmsRequest(query, limits, request)) {
    const std::string report = vmp::FormatExceptionReport(request.version, *error);
    const std::string escaped = vmp::XmlEscape(error->message);
    if (escaped.find('<') != std::string::npos || escaped.find('\0') != std::string::npos) std::abort();
    (void)report;
    return 0;
  }
  if (request.operation == vmp::WmsOperation::kGetCapabilities) return 0;
  const vmp::NativeView view = vmp::TranslateView(request);
  for (const char* name : {"CenterLon", "CenterLat", "HExtent", "VExtent"}) {
    const std::optional<double> value = view.request.Number(name);
    if (!value || !std::isfinite(*value)) std::abort();
  }
  if (!(*view.request.Number("HExtent") > 0) || !(*view.request.Number("VExtent") > 0)) std::abort();
  if (view.render_width < 2 || view.render_height < 2 || view.render_width > 512 || view.render_height > 512 ||
      view.offset_x + request.width > view.render_width || view.offset_y + request.height > view.render_height) {
    std::abort();
  }
  return 0;
}
