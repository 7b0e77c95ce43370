#include "map_server/wms/wms_service.h"

#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "map_server/geometry/map_geometry.h"
#include "map_server/rendering/render_map.h"
#include "map_server/service/capabilities.h"
#include "map_server/service/map_service.h"
#include "map_server/service/request_execution.h"
#include "map_server/service/service_exception.h"
#include "map_server/wms/wms_feature_info.h"
#include "map_server/wms/wms_image.h"
#include "map_server/wms/wms_layers.h"
#include "map_server/wms/wms_translate.h"
#include "map_server/wms/wms_xml.h"
#include "toolkit/environment.h"
#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

constexpr const char* kDefaultTitle = "KAV Map Server";
constexpr int64_t kDefaultMaxSize = 4096;

// Ends the request's use of the map service, however it ends.
struct ServiceRun {
  explicit ServiceRun(const std::string& dataset) { Service().Start(dataset); }
  ~ServiceRun() {
    kav::Messages().error_count = 0;
    Service().Terminate();
  }
  ServiceRun(const ServiceRun&) = delete;
  ServiceRun& operator=(const ServiceRun&) = delete;
};

// The messages logged while the request ran, as the native report lists them.
std::vector<std::string> LoggedMessages() {
  std::vector<std::string> messages;
  if (const auto& logged = kav::Messages().image_errors) {
    const size_t n = std::min(logged->size(), kMaxListedImageErrors);
    messages.assign(logged->begin(), logged->begin() + static_cast<std::ptrdiff_t>(n));
  }
  return messages;
}

WmsAnswer ExceptionAnswer(const WmsRequest& request, const WmsError& error,
                          const std::vector<std::string>& details = {}) {
  WmsAnswer answer;
  answer.exception = true;
  if (request.operation == WmsOperation::kGetMap && request.image_known &&
      request.exceptions != WmsExceptionFormat::kXml) {
    std::string text = error.message;
    if (const char* code = ErrorCodeName(error.code, request.version)) text = std::string(code) + ": " + text;
    const WmsImage image = request.exceptions == WmsExceptionFormat::kInImage ? MessageImage(request, text)
                                                                              : BlankImage(request);
    if (EncodeImage(image, request.format, answer.body)) {
      answer.content_type = ImageContentType(request.format);
      return answer;
    }
  }
  answer.content_type = ExceptionContentType(request.version);
  answer.body = FormatExceptionReport(request.version, error, details);
  return answer;
}

WmsError Failure(const char* message) { return WmsError{WmsErrorCode::kNone, message, {}}; }

// The newest modification time (seconds) of the dataset info file and the
// layer files: the capabilities change only when one of them does.
std::string UpdateSequence(const std::string& info_path, const Dataset& dataset) {
  long long newest = 0;
  auto consider = [&newest](const std::string& path) {
    struct stat s {};
    if (!path.empty() && ::stat(path.c_str(), &s) == 0) newest = std::max<long long>(newest, s.st_mtime);
  };
  consider(info_path);
  for (const auto& layer : dataset.layers) consider(layer->record.lif_path);
  return std::to_string(newest);
}

std::optional<WmsError> CheckUpdateSequence(const WmsRequest& request, const std::string& current) {
  if (!request.update_sequence) return std::nullopt;
  const std::string& asked = *request.update_sequence;
  const bool number = !asked.empty() && asked.size() <= 18 &&
                      std::all_of(asked.begin(), asked.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (!number || std::stoll(asked) > std::stoll(current)) {
    return WmsError{WmsErrorCode::kInvalidUpdateSequence,
                    kav::StrPrintf("UPDATESEQUENCE '%s' is later than the service's (%s)", asked.c_str(),
                                   current.c_str()),
                    "UPDATESEQUENCE"};
  }
  if (std::stoll(asked) == std::stoll(current)) {
    return WmsError{WmsErrorCode::kCurrentUpdateSequence,
                    "The capabilities have not changed since UPDATESEQUENCE " + asked, "UPDATESEQUENCE"};
  }
  return std::nullopt;
}

// A map request with the view's settings, bound to the dataset, with the
// named layers selected.
std::unique_ptr<MapRequest> PrepareMap(const NativeView& view, const std::vector<std::string>& layers) {
  std::unique_ptr<MapRequest> map = CreateMapRequest();
  map->resources.SetNumber("Verbosity", static_cast<double>(Verbosity()));
  ApplyRequestToMap(view.request, *map);
  if (!VmpSetupMap(*map) || !SelectWmsLayers(*map, layers)) return nullptr;
  return map;
}

WmsAnswer AnswerMap(const WmsRequest& request) {
  const NativeView view = TranslateView(request);
  std::unique_ptr<MapRequest> map = PrepareMap(view, request.layers);
  // A transparent map is drawn over black and over white (wms_image.h).
  const bool matte = request.transparent && request.format == WmsImageFormat::kPng;
  auto draw = [&](const Rgb& background, WmsImage& image) {
    if (matte) map->resources.SetColor("Background", background);
    RenderOutput output;
    return RenderMap(*map, false, 0.0, 0.0, output) >= 0 &&
           CropMapImage(Service().map_image(), view.offset_x, view.offset_y, request.width, request.height, image);
  };
  WmsImage image, over_white;
  if (map == nullptr || !draw(Rgb{0, 0, 0}, image) || (matte && !draw(Rgb{1, 1, 1}, over_white))) {
    return ExceptionAnswer(request, Failure("Errors generating map image."), LoggedMessages());
  }
  if (matte) image = CombineOverBlackAndWhite(image, over_white, request.bgcolor);
  WmsAnswer answer;
  if (!EncodeImage(image, request.format, answer.body)) {
    return ExceptionAnswer(request, Failure("Errors encoding map image."), LoggedMessages());
  }
  answer.content_type = ImageContentType(request.format);
  return answer;
}

WmsAnswer AnswerFeatureInfo(const WmsRequest& request) {
  const NativeView view = TranslateView(request);
  std::unique_ptr<MapRequest> map = PrepareMap(view, request.query_layers);
  kav::Messages().error_count = 0;
  std::vector<WmsFeatureLayer> layers;
  if (map != nullptr) {
    layers = FeaturesAtPixel(*map, static_cast<double>(request.i + view.offset_x),
                             static_cast<double>(request.j + view.offset_y), request.feature_count);
  }
  if (map == nullptr || kav::Messages().error_count > 0) {
    return ExceptionAnswer(request, Failure("Errors processing selection request."), LoggedMessages());
  }
  return WmsAnswer{InfoContentType(request.info_format), FormatFeatureInfo(request.info_format, layers), false};
}

}  // namespace

std::string RequestAddress(std::string_view address) {
  std::string out(address);
  if (out.find('?') == std::string::npos) return out + "?";
  if (out.back() != '?' && out.back() != '&') out += '&';
  return out;
}

WmsConfig WmsConfigFromEnvironment() {
  WmsConfig config;
  config.dataset = kav::GetEnv("VMP_WMS_DATASET").value_or("");
  WmsServiceInfo& s = config.service;
  s.title = kav::GetEnv("VMP_WMS_TITLE").value_or(kDefaultTitle);
  if (auto abstract = kav::GetEnv("VMP_WMS_ABSTRACT")) {
    s.abstract_lines.emplace_back();
    for (char c : *abstract) {
      if (c == '|')
        s.abstract_lines.emplace_back();
      else
        s.abstract_lines.back() += c;
    }
  } else {
    s.abstract_lines = DeploymentDescription().abstract_lines;
  }
  std::optional<std::string> address = kav::GetEnv("VMP_WMS_ONLINE_RESOURCE");
  if (!address) address = kav::CgiScriptAddress();
  s.online_resource = RequestAddress(address.value_or("http://localhost/cgi-bin/wms"));

  int64_t size = kDefaultMaxSize;
  if (auto text = kav::GetEnv("VMP_WMS_MAX_SIZE")) {
    char* end = nullptr;
    const long long value = std::strtoll(text->c_str(), &end, 10);
    if (end != text->c_str() && *end == '\0' && value >= 1 && value <= kMaxImageSide) {
      size = value;
    } else {
      Report(kWarning, "Invalid VMP_WMS_MAX_SIZE, using 4096", *text);
    }
  }
  s.limits.max_width = s.limits.max_height = size;
  return config;
}

WmsAnswer AnswerWmsRequest(std::string_view query, const WmsConfig& config) {
  WmsRequest request;
  if (std::optional<WmsError> error = ParseWmsRequest(query, config.service.limits, request)) {
    return ExceptionAnswer(request, *error);
  }
  struct stat info {};
  if (config.dataset.empty() || ::stat(config.dataset.c_str(), &info) != 0) {
    Report(kError, "The dataset of the WMS endpoint cannot be read (VMP_WMS_DATASET)", config.dataset);
    return ExceptionAnswer(request, Failure("The service is not configured: its dataset cannot be read."));
  }

  ServiceRun run(config.dataset);
  Dataset* dataset = Service().FindDataset("DefaultDataset");
  if (dataset == nullptr) return ExceptionAnswer(request, Failure("Errors processing map server request."));
  const std::vector<WmsLayer> layers = ListWmsLayers(*dataset);

  switch (request.operation) {
    case WmsOperation::kGetCapabilities: {
      WmsServiceInfo service = config.service;
      service.update_sequence = UpdateSequence(config.dataset, *dataset);
      if (auto error = CheckUpdateSequence(request, *service.update_sequence)) return ExceptionAnswer(request, *error);
      const char* type = request.version == WmsVersion::k130 ? "text/xml" : "application/vnd.ogc.wms_xml";
      return WmsAnswer{type, FormatWmsCapabilities(request.version, service, layers), false};
    }
    case WmsOperation::kGetMap:
      if (auto error = CheckWmsLayers(layers, request.layers, false, "LAYERS")) return ExceptionAnswer(request, *error);
      return AnswerMap(request);
    case WmsOperation::kGetFeatureInfo:
      if (auto error = CheckWmsLayers(layers, request.layers, false, "LAYERS")) return ExceptionAnswer(request, *error);
      if (auto error = CheckWmsLayers(layers, request.query_layers, true, "QUERY_LAYERS")) {
        return ExceptionAnswer(request, *error);
      }
      return AnswerFeatureInfo(request);
  }
  return ExceptionAnswer(request, Failure("Unsupported request type."));
}

}  // namespace vmp
