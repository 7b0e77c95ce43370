#include "map_server/service/ogc_query_parser.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

constexpr int kRectangular = 0;
constexpr int kOrthographic = 2;

// Everything the parser learns while it reads the pairs.
struct ParserState {
  explicit ParserState(ParsedRequest& r) : request(r) {}
  ParsedRequest& request;
  bool version = false, srs = false, center_known = false, bbox = false, extent = false;
  bool clip = false, format = false, layers = false, query_layers = false;
  bool i_given = false, j_given = false, location = false, select_labels = false;
  bool width = false, height = false;
  int projection = kRectangular;
  bool axis_swap = false;  // CRS:84: first BBOX axis is latitude
  double center[2] = {0.0, 0.0};
  double half_extent[2] = {0.0, 0.0};
  long clip_box[4] = {0, 0, 0, 0};  // min X, max X, min Y, max Y
  std::optional<std::string> info_type;
  double factor = 1.0;  // AUTO2 scale of BBOX and EXTENT values

  void Set(const char* name, double value) { request.settings.push_back({name, value}); }
  void Set(const char* name, std::string value) {
    request.settings.push_back({name, std::move(value)});
  }
  void Set(const char* name, ColourValue value) { request.settings.push_back({name, value}); }
};

bool Fail(const char* message) {
  Report(kError, message);
  return false;
}

bool ScanLong(const std::string& value, long& out) {
  return std::sscanf(value.c_str(), "%ld", &out) == 1;
}

bool ScanDouble(const std::string& value, double& out) {
  return std::sscanf(value.c_str(), "%lf", &out) == 1;
}

bool OnVersion(ParserState& s, const std::string& v) {
  if (v != "1.1.0" && v != "1.2.0" && v != "1.3.0") {
    return Fail("Only support versions 1.1.0 - 1.3.0 of the openGIS protocol for now!");
  }
  s.version = true;
  return true;
}

bool OnRequest(ParserState& s, const std::string& v) {
  static const char* const kNames[] = {"GetMap", "GetFeatureInfo", "GetLocationInfo",
                                       "GetCapabilities", "GetSelection"};
  for (int i = 0; i < 5; ++i) {
    if (v == kNames[i]) {
      s.request.type = static_cast<RequestType>(i + 1);
      return true;
    }
  }
  return Fail("Invalid REQUEST");
}

bool OnService(ParserState&, const std::string& v) {
  return v == "WMS" ? true : Fail("Only WMS service type supported!");
}

bool OnSrs(ParserState& s, const std::string& v) {
  static const char kAuto[] = "AUTO:42003,9001,";
  static const char kAuto2[] = "AUTO2:42003,";
  if (kav::StartsWith(v, kAuto)) {
    double lon, lat;
    if (std::sscanf(v.c_str() + std::strlen(kAuto), "%lf,%lf", &lon, &lat) != 2) {
      return Fail("Invalid AUTO SRS definition");
    }
    s.projection = kOrthographic;
    s.axis_swap = false;
    s.center[0] = lon;
    s.center[1] = lat;
    s.center_known = true;
  } else if (kav::StartsWith(v, kAuto2)) {
    double factor, lon, lat;
    if (std::sscanf(v.c_str() + std::strlen(kAuto2), "%lf,%lf,%lf", &factor, &lon, &lat) != 3) {
      return Fail("Invalid AUTO2 SRS definition");
    }
    s.projection = kOrthographic;
    s.axis_swap = false;
    s.factor = factor;
    s.center[0] = lon;
    s.center[1] = lat;
    s.center_known = true;
  } else if (v == "EPSG:4326") {
    s.projection = kRectangular;
    s.axis_swap = false;
  } else if (v == "CRS:84") {
    s.projection = kRectangular;
    s.axis_swap = true;
  } else {
    return Fail("Invalid SRS definition: no type defined");
  }
  s.srs = true;
  s.Set("Projection", static_cast<double>(s.projection));
  return true;
}

bool OnBbox(ParserState& s, const std::string& v) {
  if (!s.srs) return Fail("Cannot define BBOX before the spatial reference system");
  double b[4];
  if (std::sscanf(v.c_str(), "%lf,%lf,%lf,%lf", &b[0], &b[1], &b[2], &b[3]) != 4) {
    return Fail("Invalid BBOX definition");
  }
  if (!(b[0] < b[2] && b[1] < b[3])) return Fail("BBOX Minimum Lat/Lon is greater than the Maximum");
  if (s.projection == kRectangular) {
    s.center[0] = (b[0] + b[2]) / 2.0;
    s.center[1] = (b[1] + b[3]) / 2.0;
    s.half_extent[0] = b[2] - s.center[0];
    s.half_extent[1] = b[3] - s.center[1];
    s.center_known = true;
  } else {
    if (b[0] != -b[2] || b[1] != -b[3]) return Fail("Non symmetric BBOX");
    for (double& x : b) x *= s.factor;
    s.half_extent[0] = b[2];
    s.half_extent[1] = b[3];
  }
  s.bbox = true;
  return true;
}

bool OnExtent(ParserState& s, const std::string& v) {
  if (!s.srs) return Fail("Cannot define EXTENT before the spatial reference system");
  double e1, e2;
  if (std::sscanf(v.c_str(), "%lf,%lf", &e1, &e2) != 2) return Fail("Invalid EXTENT definition");
  s.half_extent[0] = e1 * s.factor / 2.0;
  s.half_extent[1] = e2 * s.factor / 2.0;
  s.extent = true;
  return true;
}

bool OnCenter(ParserState& s, const std::string& v) {
  double c1, c2;
  if (std::sscanf(v.c_str(), "%lf,%lf", &c1, &c2) != 2) return Fail("Invalid CENTER definition");
  s.center[0] = c1;
  s.center[1] = c2;
  s.center_known = true;
  return true;
}

bool OnClipArea(ParserState& s, const std::string& v) {
  long c[4];
  if (std::sscanf(v.c_str(), "%ld,%ld,%ld,%ld", &c[0], &c[1], &c[2], &c[3]) != 4) {
    return Fail("Invalid CLIP_AREA definition");
  }
  if (!(c[0] < c[1] && c[2] < c[3])) return Fail("CLIP_AREA Minimum X/Y is greater than the Maximum");
  std::copy(c, c + 4, s.clip_box);
  s.clip = true;
  return true;
}

bool OnWidth(ParserState& s, const std::string& v) {
  long n;
  if (!ScanLong(v, n)) return Fail("Invalid WIDTH definition");
  s.Set("Width", static_cast<double>(n));
  s.width = true;
  return true;
}

bool OnHeight(ParserState& s, const std::string& v) {
  long n;
  if (!ScanLong(v, n)) return Fail("Invalid HEIGHT definition");
  s.Set("Height", static_cast<double>(n));
  s.height = true;
  return true;
}

bool OnAngle(ParserState& s, const std::string& v) {
  double a;
  if (!ScanDouble(v, a)) return Fail("Invalid ANGLE definition");
  s.Set("Angle", a);
  return true;
}

bool OnStretch(ParserState& s, const std::string& v) {
  long n;
  if (!ScanLong(v, n)) return Fail("Invalid stretch parameter");
  s.Set("Stretch", static_cast<double>(n));
  return true;
}

bool OnImageErrors(ParserState& s, const std::string& v) {
  long n;
  if (!ScanLong(v, n)) return Fail("Invalid image errors paramater");
  s.Set("ImageErrors", static_cast<double>(n));
  return true;
}

bool OnBgColor(ParserState& s, const std::string& v) {
  unsigned long rgb;
  if (std::sscanf(v.c_str(), "%lx", &rgb) != 1) return Fail("Invalid HEX color");
  s.Set("Background", ColourValue{static_cast<double>((rgb >> 16) & 0xff) / 255.0,
                                  static_cast<double>((rgb >> 8) & 0xff) / 255.0,
                                  static_cast<double>(rgb & 0xff) / 255.0});
  return true;
}

bool OnAntiAliasing(ParserState& s, const std::string& v) {
  long n;
  if (!ScanLong(v, n)) return Fail("Invalid IMAGE_ANTIALIASING definition");
  s.Set("ImageAntiAliasing", static_cast<double>(n));
  return true;
}

bool OnStyles(ParserState&, const std::string& v) {
  return v.empty() || v == "default" ? true : Fail("Only default styles supported for now!");
}

bool OnFormat(ParserState& s, const std::string& v) {
  bool image = v == "image/jpeg" || v == "image/jpg";
  bool text = v == "text/xml" || v == "text/plain";
  RequestType type = s.request.type;
  // The request type may come after FORMAT: then any of the four is taken.
  bool ok = type == RequestType::kGetMap ? image : type == RequestType::kInvalid ? image || text : text;
  if (!ok) {
    bool wants_image = type == RequestType::kGetMap ||
                       (type == RequestType::kInvalid && kav::StartsWith(v, "image/"));
    return Fail(wants_image ? "Only image/jpeg output type supported for GetMap!"
                            : "Invalid format: text/xml or text/plain is expected.");
  }
  if (text) s.request.xml = v == "text/xml";
  s.format = true;
  return true;
}

bool OnInfoFormat(ParserState& s, const std::string& v) {
  if (v != "text/xml" && v != "text/plain") return Fail("Invalid INFO_FORMAT");
  s.request.xml = v == "text/xml";
  return true;
}

bool OnLayers(ParserState& s, const std::string& v) {
  s.request.layers = v;
  s.layers = true;
  return true;
}

bool OnQueryLayers(ParserState& s, const std::string& v) {
  s.Set("QueryLayers", v);
  s.query_layers = true;
  return true;
}

bool OnInfoType(ParserState& s, const std::string& v) {
  s.info_type = v;
  return true;
}

bool OnLonLat(ParserState& s, const std::string& v) {
  double lon, lat;
  if (std::sscanf(v.c_str(), "%lf,%lf", &lon, &lat) != 2) return Fail("Invalid LON_LAT definition");
  s.Set("LocationLon", lon);
  s.Set("LocationLat", lat);
  s.location = true;
  return true;
}

bool OnI(ParserState& s, const std::string& v) {
  long n;
  if (!ScanLong(v, n)) return Fail("Invalid I (pixel column) definition");
  s.Set("LocationI", static_cast<double>(n));
  s.i_given = true;
  return true;
}

bool OnJ(ParserState& s, const std::string& v) {
  long n;
  if (!ScanLong(v, n)) return Fail("Invalid J (pixel row) definition");
  s.Set("LocationJ", static_cast<double>(n));
  s.j_given = true;
  return true;
}

bool OnPickResolution(ParserState& s, const std::string& v) {
  double r;
  if (!ScanDouble(v, r)) return Fail("Invalid PICK_RESOLUTION definition");
  s.request.pick_resolution = r;
  return true;
}

bool OnSelectLabels(ParserState& s, const std::string& v) {
  // Same numbering as a layer's LabelSelectionMode.
  double mode;
  if (v == "NONE") mode = 0;
  else if (v == "INTILE") mode = 1;
  else if (v == "YES") mode = 2;
  else return Fail("Invalid SELECT_LABELS value [NONE/YES/INTILE]");
  s.Set("LabelSelectionMode", mode);
  s.select_labels = true;
  return true;
}

using KeyHandler = bool (*)(ParserState&, const std::string&);
struct KeyEntry {
  const char* key;
  KeyHandler handler;
};

const KeyEntry kKeys[] = {
    {"VERSION", OnVersion},
    {"REQUEST", OnRequest},
    {"SERVICE", OnService},
    {"SRS", OnSrs},
    {"CRS", OnSrs},
    {"BBOX", OnBbox},
    {"EXTENT", OnExtent},
    {"CENTER", OnCenter},
    {"CLIP_AREA", OnClipArea},
    {"WIDTH", OnWidth},
    {"HEIGHT", OnHeight},
    {"ANGLE", OnAngle},
    {"STRETCH", OnStretch},
    {"IERRORS", OnImageErrors},
    {"BGCOLOR", OnBgColor},
    {"IMAGE_ANTIALIASING", OnAntiAliasing},
    {"IMAGEANTIALIASING", OnAntiAliasing},
    {"STYLES", OnStyles},
    {"FORMAT", OnFormat},
    {"INFO_FORMAT", OnInfoFormat},
    {"LAYERS", OnLayers},
    {"QUERY_LAYERS", OnQueryLayers},
    {"INFO_TYPE", OnInfoType},
    {"LON_LAT", OnLonLat},
    {"I", OnI},
    {"J", OnJ},
    {"PICK_RESOLUTION", OnPickResolution},
    {"SELECT_LABELS", OnSelectLabels},
};

// Reads the pairs; false when a value was malformed or a buffer exceeded.
bool ReadPairs(std::string_view query, ParserState& state) {
  size_t pos = 0;
  while (pos < query.size()) {
    size_t end = query.find('&', pos);
    if (end == std::string_view::npos) end = query.size();
    std::string_view pair = query.substr(pos, end - pos);
    size_t next = end + 1;
    if (pair.empty()) {
      if (Verbosity() >= 1) Report(kWarning, "Empty token");
      pos = next;
      continue;
    }
    size_t eq = pair.find('=');
    std::string_view key = pair.substr(0, eq);
    std::string_view value = eq == std::string_view::npos ? std::string_view() : pair.substr(eq + 1);
    if (key.size() > kMaxQueryKey) {
      Report(kError, "Buffer size exceeded", query.substr(pos));
      return false;
    }
    if (value.size() > kMaxQueryValue) {
      Report(kError, "Buffer size exceeded", query.substr(pos + eq + 1));
      return false;
    }
    std::string key_text(key), value_text(value);
    if (Verbosity() >= 2) {
      Report(kInfo, "Token is", key_text);
      Report(kInfo, "     Value is", value_text);
    }
    for (const KeyEntry& entry : kKeys) {
      if (key_text == entry.key) {
        if (!entry.handler(state, value_text)) return false;
        break;
      }
    }
    pos = next;
  }
  return true;
}

// The checks after the last pair; every one runs, all failures are reported.
bool FinalChecks(ParserState& s) {
  bool ok = true;
  auto require = [&ok](bool condition, const char* message) {
    if (!condition) ok = Fail(message);
  };
  require(s.version, "Mandatory parameter VERSION not set!");
  require(s.request.type != RequestType::kInvalid, "Mandatory parameter REQUEST not set!");

  RequestType type = s.request.type;
  switch (type) {
    case RequestType::kGetMap:
      require(s.format, "Mandatory parameter FORMAT not set!");
      require(s.layers, "Mandatory parameter LAYERS not set!");
      break;
    case RequestType::kGetFeatureInfo:
      require(s.i_given && s.j_given, "Mandatory parameter I or J not set!");
      require(s.query_layers, "Mandatory parameter QUERY_LAYERS not set!");
      require(s.info_type.has_value(), "Mandatory parameter INFO_TYPE not set!");
      break;
    case RequestType::kGetLocationInfo:
      require(s.location, "Mandatory parameter LOCATION not set!");
      require(s.query_layers, "Mandatory parameter QUERY_LAYERS not set!");
      if (!s.info_type) return Fail("Mandatory parameter INFO_TYPE not set!");
      return ok;
    case RequestType::kGetSelection:
      require(s.i_given && s.j_given, "Mandatory parameter I or J not set!");
      require(s.format, "Mandatory parameter FORMAT not set!");
      require(s.layers, "Mandatory parameter LAYERS not set!");
      require(s.select_labels, "Mandatory parameter SELECT_LABELS not set!");
      break;
    default:
      break;
  }

  if (type == RequestType::kGetMap || type == RequestType::kGetFeatureInfo ||
      type == RequestType::kGetSelection) {
    require(s.srs, "Mandatory SRS projection definition not set!");
    require(s.width && s.height, "Mandatory parameters WIDTH or HEIGHT not set!");
    if (s.bbox && s.extent) ok = Fail("Only one of the BBOX or EXTENT parameters is allowed!");
    if (!s.bbox && !s.extent) ok = Fail("Mandatory parameters BBOX or EXTENT not set!");
    require(s.center_known, "Mandatory CENTER not set!");
    if (s.clip && s.projection != kOrthographic) {
      Report(kWarning, "Ignoring CLIP_AREA for RECTANGULAR projection");
      s.clip = false;
    }
  }
  return ok;
}

void WriteMapSettings(ParserState& s) {
  int lon = s.axis_swap ? 1 : 0, lat = 1 - lon;
  if (s.center_known) {
    s.Set("CenterLon", s.center[lon]);
    s.Set("CenterLat", s.center[lat]);
  }
  if (s.bbox || s.extent) {
    s.Set("HExtent", 2.0 * s.half_extent[lon]);
    s.Set("VExtent", 2.0 * s.half_extent[lat]);
  }
  s.Set("ClipArea", s.clip ? 1.0 : 0.0);
  if (s.clip) {
    s.Set("ClipMinX", static_cast<double>(s.clip_box[0]));
    s.Set("ClipMaxX", static_cast<double>(s.clip_box[1]));
    s.Set("ClipMinY", static_cast<double>(s.clip_box[2]));
    s.Set("ClipMaxY", static_cast<double>(s.clip_box[3]));
  }
}

}  // namespace

RequestType ParseOgcRequest(const char* query, ParsedRequest& request) {
  request.type = RequestType::kInvalid;
  if (query == nullptr) {
    Report(kError, "There is no query string!");
    return RequestType::kInvalid;
  }
  ParserState state(request);
  if (!ReadPairs(query, state) || !FinalChecks(state)) {
    request.type = RequestType::kInvalid;
    return RequestType::kInvalid;
  }
  WriteMapSettings(state);

  if (request.type == RequestType::kGetFeatureInfo || request.type == RequestType::kGetLocationInfo) {
    if (*state.info_type == "elevation") {
      request.pick_mode = PickMode::kElevation;
    } else if (*state.info_type == "lat_lon") {
      request.pick_mode = PickMode::kLatLon;
    } else {
      Report(kError, "INFO_TYPE", "OperationNotSupported exception");
    }
  }
  return request.type;
}

}  // namespace vmp
