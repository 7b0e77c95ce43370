#include "map_server/service/request_execution.h"

#include <cstdio>
#include <variant>

#include "map_server/service/capabilities.h"
#include "map_server/service/map_service.h"
#include "map_server/service/ogc_query_parser.h"
#include "map_server/service/query_answers.h"
#include "map_server/service/service_exception.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// One request's answer: where it goes and how it is framed.
class Responder {
 public:
  explicit Responder(const ServeOptions& options) : options_(options) {}

  // Writes `body` on standard output, after the Content-Type header in CGI mode.
  void Answer(const char* content_type, const std::string& body) {
    if (options_.cgi) std::fprintf(stdout, "Content-Type: %s\n\n", content_type);
    std::fwrite(body.data(), 1, body.size(), stdout);
    std::fflush(stdout);
  }

 private:
  const ServeOptions& options_;
};

// Converts the request's parameters and binds it to its dataset.
bool PrepareMapView(MapRequest& map) {
  ConvertConfig(map);
  return VmpSetupMap(map);
}

bool AnswerCapabilities(const ParsedRequest& request, Responder& responder) {
  const Dataset* dataset = Service().FindDataset("DefaultDataset");
  if (request.xml) {
    responder.Answer("text/xml", FormatCapabilitiesXml(dataset, DeploymentDescription()));
  } else {
    responder.Answer("text/plain", dataset ? FormatLayerListingText(*dataset) : std::string());
  }
  return true;
}

// GetLocationInfo in lat/lon mode: the map's LocationLat and LocationLon,
// on the map or not by its projection.
bool AnswerLocationLatLon(const ParsedRequest& request, MapRequest& map, const ServeOptions& options) {
  if (!SetupMapGeometry(map, false)) {
    WriteServiceException("Errors processing map server request.");
    return false;
  }
  const double lat = map.record.location_lat, lon = map.record.location_lon;
  const bool on_map = LocationOnMap(map.geometry, lat, lon);
  WriteAnswer(stdout, FormatLatLonAnswer({request.xml, options.cgi}, on_map, lat, lon));
  return true;
}

const char* RequestName(RequestType type) {
  switch (type) {
    case RequestType::kGetMap: return "GetMap";
    case RequestType::kGetFeatureInfo: return "GetFeatureInfo";
    case RequestType::kGetLocationInfo: return "GetLocationInfo";
    case RequestType::kGetCapabilities: return "GetCapabilities";
    case RequestType::kGetSelection: return "GetSelection";
    default: return "unknown";
  }
}

// Answers a parsed request; true when it produced its result.
bool Execute(RequestType type, const ParsedRequest& request, MapRequest& map,
             const ServeOptions& options) {
  Responder responder(options);
  if (type != RequestType::kGetMap) {
    if (!PrepareMapView(map)) {
      WriteServiceException("Errors processing map server request.");
      return false;
    }
  }
  switch (type) {
    case RequestType::kGetCapabilities:
      return AnswerCapabilities(request, responder);
    case RequestType::kGetMap:
      if (!options.cgi && !options.output) {
        Report(kError, "Mandatory variable output not set in non-CGI mode!");
        return false;
      }
      [[fallthrough]];
    case RequestType::kGetLocationInfo:
      if (request.pick_mode == PickMode::kLatLon) return AnswerLocationLatLon(request, map, options);
      if (request.pick_mode != PickMode::kElevation) {
        WriteServiceException("Unsupported INFO_TYPE of GetLocationInfo request.");
        return false;
      }
      [[fallthrough]];
    case RequestType::kGetFeatureInfo:
    case RequestType::kGetSelection:
      WriteServiceException("Errors processing map server request.",
                            std::string(RequestName(type)) + " is not available in this build");
      return false;
    default:
      WriteServiceException("Unsupported request type.");
      return false;
  }
}

}  // namespace

void ApplyRequestToMap(const ParsedRequest& request, MapRequest& map) {
  for (const MapSetting& setting : request.settings) {
    std::visit(
        [&](const auto& value) {
          using T = std::decay_t<decltype(value)>;
          if constexpr (std::is_same_v<T, double>) {
            map.resources.SetNumber(setting.name, value);
          } else if constexpr (std::is_same_v<T, std::string>) {
            map.resources.SetString(setting.name, value);
          } else {
            map.resources.SetColor(setting.name, Rgb{value[0], value[1], value[2]});
          }
        },
        setting.value);
  }
}

int ServeMapRequest(const ServeOptions& options) {
  MapService& service = Service();
  service.Start(options.dataset);
  std::unique_ptr<MapRequest> map = CreateMapRequest();
  map->resources.SetNumber("Verbosity", static_cast<double>(Verbosity()));

  ParsedRequest request;
  request.xml = options.cgi;
  RequestType type = ParseOgcRequest(options.query.c_str(), request);
  bool ok = false;
  if (type == RequestType::kInvalid) {
    WriteServiceException("The OpenGIS request could not be processed.",
                          "One or more of the variables is probably malformed.");
  } else {
    ApplyRequestToMap(request, *map);
    ok = Execute(type, request, *map, options);
  }

  kav::Messages().error_count = 0;
  map.reset();
  service.Terminate();
  if (Verbosity() >= 2) Report(kInfo, ok ? "Finished request" : "Error processing request");
  return ok ? 0 : 1;
}

}  // namespace vmp
