#include "map_server/dataset/map_request.h"

#include "toolkit/message_log.h"

namespace vmp {

std::unique_ptr<MapRequest> CreateMapRequest() {
  auto map = std::make_unique<MapRequest>();
  map->resources.CreateFromTable(MapParamTable());
  map->resources.SetNumber(MapParamTable()[kMapVerbosity].name,
                           static_cast<double>(Verbosity()));
  return map;
}

FieldRef MapField(MapRecord& r, int32_t& verbosity, int index) {
  switch (index) {
    case kMapDatasetName: return &r.dataset_name;
    case kMapProjection: return &r.projection;
    case kMapCenterLat: return &r.center_lat;
    case kMapCenterLon: return &r.center_lon;
    case kMapVExtent: return &r.v_extent;
    case kMapHExtent: return &r.h_extent;
    case kMapWidth: return &r.width;
    case kMapHeight: return &r.height;
    case kMapStretch: return &r.stretch;
    case kMapBackground: return &r.background;
    case kMapImageErrors: return &r.image_errors;
    case kMapVerbosity: return &verbosity;
    case kMapAngle: return &r.angle;
    case kMapImageAntiAliasing: return &r.image_anti_aliasing;
    case kMapLocationLat: return &r.location_lat;
    case kMapLocationLon: return &r.location_lon;
    case kMapLocationI: return &r.location_i;
    case kMapLocationJ: return &r.location_j;
    case kMapQueryLayers: return &r.query_layers;
    case kMapLabelSelectionMode: return &r.label_selection_mode;
    case kMapClipArea: return &r.clip_area;
    case kMapClipMinX: return &r.clip_min_x;
    case kMapClipMaxX: return &r.clip_max_x;
    case kMapClipMinY: return &r.clip_min_y;
    case kMapClipMaxY: return &r.clip_max_y;
    default: return std::monostate{};
  }
}

void ConvertConfig(MapRequest& map) {
  kav::MessageLog& log = kav::Messages();
  int32_t verbosity = static_cast<int32_t>(log.verbosity);
  ConvertResources(map.resources, MapParamTable(), [&](int index) {
    return MapField(map.record, verbosity, index);
  });
  log.verbosity = verbosity;
  if (log.verbosity >= 1000) {
    log.debug_code = log.verbosity;
    log.verbosity = 0;
  }
}

}  // namespace vmp
