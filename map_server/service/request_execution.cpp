#include "map_server/service/request_execution.h"

#include <cstdio>
#include <variant>

#include "map_server/layers/layer_string.h"
#include "map_server/rendering/render_map.h"
#include "map_server/service/capabilities.h"
#include "map_server/service/map_output.h"
#include "map_server/service/map_service.h"
#include "map_server/service/ogc_query_parser.h"
#include "map_server/service/query_answers.h"
#include "map_server/service/query_execution.h"
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

// The answer of an info request by its pick mode, for the point (lat, lon)
// that is on the map or not. False when an exception report was written.
bool AnswerByPickMode(const ParsedRequest& request, MapRequest& map, const ServeOptions& options,
                      bool on_map, double lat, double lon) {
  const AnswerFormat format{request.xml, options.cgi};
  switch (request.pick_mode) {
    case PickMode::kLatLon:
      WriteAnswer(stdout, FormatLatLonAnswer(format, on_map, lat, lon));
      return true;
    case PickMode::kElevation: {
      std::optional<double> elevation;
      if (on_map) {
        kav::Messages().error_count = 0;
        elevation = QueryLayerElevation(map, lat, lon);
        if (!elevation && kav::Messages().error_count > 0) {
          WriteServiceException("Errors processing elevation request.");
          return false;
        }
      }
      WriteAnswer(stdout, FormatElevationAnswer(format, elevation));
      return true;
    }
    default:
      WriteServiceException("Unsupported INFO_TYPE of GetLocationInfo request.");
      return false;
  }
}

bool SetupQueryGeometry(MapRequest& map) {
  if (SetupMapGeometry(map, false)) return true;
  WriteServiceException("Errors processing map server request.");
  return false;
}

bool AnswerMap(const ParsedRequest& request, MapRequest& map, const ServeOptions& options) {
  if (!options.cgi && !options.output) {
    Report(kError, "Mandatory variable output not set in non-CGI mode!");
    return false;
  }
  RenderOutput rendered;
  if (!VmpSetupMap(map) || !SelectMapLayers(map, request.layers.value_or(std::string())) ||
      RenderMap(map, false, 0.0, 0.0, rendered) < 0) {
    WriteServiceException("Errors generating map image.");
    return false;
  }
  return WriteMapAnswer(Service().map_image(), options.cgi, options.output);
}

// GetFeatureInfo: the point under pixel (I, J); its result is whether that
// pixel shows the map.
bool AnswerFeatureInfo(const ParsedRequest& request, MapRequest& map, const ServeOptions& options) {
  if (!SetupQueryGeometry(map)) return false;
  const MapGeometry& g = map.geometry;
  const double i = map.record.location_i, j = map.record.location_j;
  LatLonPoint p = FeatureInfoLocation(g, i, j);
  if (i < 0 || j < 0 || i >= static_cast<double>(g.width) || j >= static_cast<double>(g.height)) p.ok = false;
  return AnswerByPickMode(request, map, options, p.ok, p.lat, p.lon) && p.ok;
}

// GetLocationInfo: LocationLat and LocationLon, on the map or not by its
// projection.
bool AnswerLocationInfo(const ParsedRequest& request, MapRequest& map, const ServeOptions& options) {
  if (!SetupQueryGeometry(map)) return false;
  const double lat = map.record.location_lat, lon = map.record.location_lon;
  return AnswerByPickMode(request, map, options, LocationOnMap(map.geometry, lat, lon), lat, lon);
}

bool AnswerSelection(const ParsedRequest& request, MapRequest& map, const ServeOptions& options) {
  kav::Messages().error_count = 0;
  SelectMapLayers(map, request.layers.value_or(std::string()));
  const std::vector<SelectionLayer> layers =
      SelectFeatures(map, map.record.location_i, map.record.location_j,
                     SelectionSearchRadius(request.pick_resolution));
  if (kav::Messages().error_count > 0) {
    WriteServiceException("Errors processing selection request.");
    return false;
  }
  WriteAnswer(stdout, FormatSelectionAnswer({request.xml, options.cgi}, layers));
  return true;
}

// Answers a parsed request; true when it produced its result.
bool Execute(RequestType type, const ParsedRequest& request, MapRequest& map,
             const ServeOptions& options) {
  if (type != RequestType::kGetMap) {
    const bool query = type == RequestType::kGetFeatureInfo || type == RequestType::kGetLocationInfo;
    if (!PrepareMapView(map) || (query && !SelectQueryLayers(map))) {
      WriteServiceException("Errors processing map server request.");
      return false;
    }
  }
  switch (type) {
    case RequestType::kGetCapabilities: {
      Responder responder(options);
      return AnswerCapabilities(request, responder);
    }
    case RequestType::kGetMap: return AnswerMap(request, map, options);
    case RequestType::kGetFeatureInfo: return AnswerFeatureInfo(request, map, options);
    case RequestType::kGetLocationInfo: return AnswerLocationInfo(request, map, options);
    case RequestType::kGetSelection: return AnswerSelection(request, map, options);
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
