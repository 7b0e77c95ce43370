// The standard capabilities documents: WMS 1.3.0 ("WMS_Capabilities", with
// the WMS and xlink namespaces and the schema location) and WMS 1.1.1
// ("WMT_MS_Capabilities", DTD form).
//
// Layers: one root layer (title only) with the CRSs every layer offers and
// the box of them all; inside it one named layer per WmsLayer with its
// EX_GeographicBoundingBox (1.1.1: LatLonBoundingBox) and a BoundingBox for
// each CRS that has one (CRS:84 and EPSG:4326, the latter latitude first in
// 1.3.0; the AUTO projections are defined by the request and have none),
// queryable when it draws vector features.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "map_server/wms/wms_layers.h"
#include "map_server/wms/wms_request.h"

namespace vmp {

struct WmsServiceInfo {
  std::string title;
  std::vector<std::string> abstract_lines;
  std::string online_resource;  // ends in "?" or "&"
  WmsLimits limits;
  std::optional<std::string> update_sequence;
};

std::string FormatWmsCapabilities(WmsVersion version, const WmsServiceInfo& service,
                                  const std::vector<WmsLayer>& layers);

}  // namespace vmp
