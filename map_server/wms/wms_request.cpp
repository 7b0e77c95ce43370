#include "map_server/wms/wms_request.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>

#include "toolkit/strings.h"

namespace vmp {

namespace {

// Smallest side of a BBOX (degrees or metres): far below any map's pixel, far
// above the numbers whose differences vanish.
constexpr double kMinBoxSide = 1e-9;

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

char AsciiUpper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

std::string Upper(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = AsciiUpper(c);
  return out;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (AsciiUpper(a[i]) != AsciiUpper(b[i])) return false;
  }
  return true;
}

std::string_view Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(" \t\r\n");
  return text.substr(first, last - first + 1);
}

// A whole finite number (blanks around it allowed).
bool ReadDouble(std::string_view text, double& value) {
  const std::string s(Trim(text));
  if (s.empty()) return false;
  char* end = nullptr;
  errno = 0;
  value = std::strtod(s.c_str(), &end);
  return end == s.c_str() + s.size() && errno == 0 && std::isfinite(value);
}

// A whole decimal integer (blanks around it allowed).
bool ReadInteger(std::string_view text, int64_t& value) {
  const std::string s(Trim(text));
  if (s.empty()) return false;
  char* end = nullptr;
  errno = 0;
  const long long v = std::strtoll(s.c_str(), &end, 10);
  if (end != s.c_str() + s.size() || errno != 0) return false;
  value = v;
  return true;
}

std::vector<std::string> SplitList(std::string_view text) {
  std::vector<std::string> items(1);
  for (char c : text) {
    if (c == ',')
      items.emplace_back();
    else
      items.back() += c;
  }
  return items;
}

// Layer names, blanks around each removed.
std::vector<std::string> NameList(std::string_view text) {
  std::vector<std::string> names = SplitList(text);
  for (std::string& name : names) name = std::string(Trim(name));
  return names;
}

WmsError Error(WmsErrorCode code, std::string message, std::string locator = {}) {
  return WmsError{code, std::move(message), std::move(locator)};
}

WmsError Missing(const char* key) {
  return Error(WmsErrorCode::kMissingParameterValue,
               kav::StrPrintf("Mandatory parameter %s is missing", key), key);
}

WmsError Invalid(const char* key, std::string_view value, const char* expected) {
  return Error(WmsErrorCode::kInvalidParameterValue,
               kav::StrPrintf("Invalid %s value '%s': %s", key, std::string(value).c_str(), expected), key);
}

// The decoded pairs; the last value of a key counts.
class QueryParams {
 public:
  explicit QueryParams(std::vector<std::pair<std::string, std::string>> pairs) : pairs_(std::move(pairs)) {}

  std::optional<std::string_view> Get(std::string_view key) const {
    for (auto it = pairs_.rbegin(); it != pairs_.rend(); ++it) {
      if (it->first == key) return std::string_view(it->second);
    }
    return std::nullopt;
  }
  const std::vector<std::pair<std::string, std::string>>& pairs() const { return pairs_; }

 private:
  std::vector<std::pair<std::string, std::string>> pairs_;
};

std::optional<WmsCrs> ReadCrs(std::string_view text, WmsVersion version) {
  const std::string upper = Upper(Trim(text));
  WmsCrs crs;
  if (upper == "EPSG:4326") {
    crs.kind = version == WmsVersion::k130 ? WmsCrsKind::kLatLon : WmsCrsKind::kLonLat;
    return crs;
  }
  if (upper == "CRS:84") {
    crs.kind = WmsCrsKind::kLonLat;
    return crs;
  }
  // AUTO:42003,unit,lon,lat (unit 9001 metre, 9002 foot, 9003 US survey
  // foot) and AUTO2:42003,factor,lon,lat (factor: metres per unit).
  const bool auto1 = kav::StartsWith(upper, "AUTO:42003,");
  const bool auto2 = kav::StartsWith(upper, "AUTO2:42003,");
  if (!auto1 && !auto2) return std::nullopt;
  const std::vector<std::string> parts = SplitList(upper.substr(auto1 ? 11 : 12));
  double values[3];
  if (parts.size() != 3) return std::nullopt;
  for (int k = 0; k < 3; ++k) {
    if (!ReadDouble(parts[k], values[k])) return std::nullopt;
  }
  if (auto1) {
    if (values[0] == 9001) crs.metres_per_unit = 1.0;
    else if (values[0] == 9002) crs.metres_per_unit = 0.3048;
    else if (values[0] == 9003) crs.metres_per_unit = 1200.0 / 3937.0;
    else return std::nullopt;
  } else {
    if (!(values[0] > 0)) return std::nullopt;
    crs.metres_per_unit = values[0];
  }
  crs.kind = WmsCrsKind::kOrthographic;
  crs.lon0 = values[1];
  crs.lat0 = values[2];
  if (crs.lon0 < -180 || crs.lon0 > 180 || crs.lat0 < -90 || crs.lat0 > 90) return std::nullopt;
  return crs;
}

class Reader {
 public:
  Reader(const QueryParams& q, const WmsLimits& limits, WmsRequest& r) : q_(q), limits_(limits), r_(r) {}

  std::optional<WmsError> Read() {
    if (auto service = q_.Get("SERVICE"); service && !EqualsNoCase(Trim(*service), "WMS")) {
      return Invalid("SERVICE", *service, "this is a WMS");
    }
    const std::optional<std::string_view> request = q_.Get("REQUEST");
    if (!request || Trim(*request).empty()) return Missing("REQUEST");
    const std::string_view name = Trim(*request);
    if (EqualsNoCase(name, "GetCapabilities") || EqualsNoCase(name, "capabilities")) {
      r_.operation = WmsOperation::kGetCapabilities;
      return ReadCapabilities();
    }
    if (EqualsNoCase(name, "GetMap") || EqualsNoCase(name, "map")) {
      r_.operation = WmsOperation::kGetMap;
      if (auto e = ReadExceptions()) return e;
      if (auto e = ReadImage()) return e;
      return ReadMap();
    }
    if (EqualsNoCase(name, "GetFeatureInfo") || EqualsNoCase(name, "feature_info")) {
      r_.operation = WmsOperation::kGetFeatureInfo;
      if (auto e = ReadSize()) return e;
      if (auto e = ReadMap()) return e;
      return ReadFeatureInfo();
    }
    return Error(WmsErrorCode::kOperationNotSupported,
                 kav::StrPrintf("Request '%s' is not supported; supported: GetCapabilities, GetMap, GetFeatureInfo",
                                std::string(name).c_str()),
                 "REQUEST");
  }

 private:
  std::optional<WmsError> ReadCapabilities() {
    if (auto sequence = q_.Get("UPDATESEQUENCE"); sequence && !Trim(*sequence).empty()) {
      r_.update_sequence = std::string(Trim(*sequence));
    }
    return std::nullopt;
  }

  std::optional<WmsError> ReadExceptions() {
    const std::optional<std::string_view> value = q_.Get("EXCEPTIONS");
    if (!value || Trim(*value).empty()) return std::nullopt;
    const std::string_view v = Trim(*value);
    const struct {
      const char* name;
      WmsExceptionFormat format;
    } kFormats[] = {
        {"XML", WmsExceptionFormat::kXml},
        {"INIMAGE", WmsExceptionFormat::kInImage},
        {"BLANK", WmsExceptionFormat::kBlank},
        {"application/vnd.ogc.se_xml", WmsExceptionFormat::kXml},
        {"application/vnd.ogc.se_inimage", WmsExceptionFormat::kInImage},
        {"application/vnd.ogc.se_blank", WmsExceptionFormat::kBlank},
        {"text/xml", WmsExceptionFormat::kXml},
    };
    for (const auto& f : kFormats) {
      if (EqualsNoCase(v, f.name)) {
        r_.exceptions = f.format;
        return std::nullopt;
      }
    }
    return Invalid("EXCEPTIONS", v, "XML, INIMAGE or BLANK is expected");
  }

  std::optional<WmsError> ReadSide(const char* key, int64_t limit, int64_t& side) {
    const std::optional<std::string_view> value = q_.Get(key);
    if (!value || Trim(*value).empty()) return Missing(key);
    if (!ReadInteger(*value, side) || side < 1) return Invalid(key, *value, "a positive whole number is expected");
    if (side > limit) {
      return Error(WmsErrorCode::kInvalidParameterValue,
                   kav::StrPrintf("%s %lld exceeds the largest size this service draws (%lld)", key,
                                  static_cast<long long>(side), static_cast<long long>(limit)),
                   key);
    }
    return std::nullopt;
  }

  std::optional<WmsError> ReadSize() {
    if (auto e = ReadSide("WIDTH", limits_.max_width, r_.width)) return e;
    return ReadSide("HEIGHT", limits_.max_height, r_.height);
  }

  // FORMAT, WIDTH, HEIGHT, BGCOLOR, TRANSPARENT: what any GetMap answer,
  // an image exception included, needs.
  std::optional<WmsError> ReadImage() {
    const std::optional<std::string_view> format = q_.Get("FORMAT");
    if (!format || Trim(*format).empty()) return Missing("FORMAT");
    // Options after ";" (as in "image/png; mode=24bit") do not change the answer.
    const std::string_view type = Trim(format->substr(0, format->find(';')));
    if (EqualsNoCase(type, "image/jpeg") || EqualsNoCase(type, "image/jpg")) {
      r_.format = WmsImageFormat::kJpeg;
    } else if (EqualsNoCase(type, "image/png")) {
      r_.format = WmsImageFormat::kPng;
    } else {
      return Error(WmsErrorCode::kInvalidFormat,
                   kav::StrPrintf("Format '%s' is not supported for GetMap; supported: image/jpeg, image/png",
                                  std::string(*format).c_str()),
                   "FORMAT");
    }
    if (auto e = ReadSize()) return e;
    if (auto value = q_.Get("BGCOLOR"); value && !Trim(*value).empty()) {
      std::string_view hex = Trim(*value);
      if (kav::StartsWith(hex, "0x") || kav::StartsWith(hex, "0X")) hex.remove_prefix(2);
      else if (kav::StartsWith(hex, "#")) hex.remove_prefix(1);
      bool ok = hex.size() == 6;
      for (size_t k = 0; ok && k < 6; ++k) ok = HexDigit(hex[k]) >= 0;
      if (!ok) return Invalid("BGCOLOR", *value, "0xRRGGBB is expected");
      for (int k = 0; k < 3; ++k) {
        r_.bgcolor[k] = static_cast<uint8_t>(HexDigit(hex[2 * k]) * 16 + HexDigit(hex[2 * k + 1]));
      }
    }
    if (auto value = q_.Get("TRANSPARENT"); value && !Trim(*value).empty()) {
      if (EqualsNoCase(Trim(*value), "TRUE")) r_.transparent = true;
      else if (EqualsNoCase(Trim(*value), "FALSE")) r_.transparent = false;
      else return Invalid("TRANSPARENT", *value, "TRUE or FALSE is expected");
    }
    r_.image_known = true;
    return std::nullopt;
  }

  // LAYERS, STYLES, CRS (SRS), BBOX and the dimensions.
  std::optional<WmsError> ReadMap() {
    const std::optional<std::string_view> layers = q_.Get("LAYERS");
    if (!layers || Trim(*layers).empty()) return Missing("LAYERS");
    r_.layers = NameList(*layers);
    if (auto e = ReadStyles()) return e;

    const bool v130 = r_.version == WmsVersion::k130;
    const char* crs_key = v130 ? "CRS" : "SRS";
    std::optional<std::string_view> crs = q_.Get(crs_key);
    if (!crs) crs = q_.Get(v130 ? "SRS" : "CRS");
    if (!crs || Trim(*crs).empty()) return Missing(crs_key);
    std::optional<WmsCrs> parsed = ReadCrs(*crs, r_.version);
    if (!parsed) {
      return Error(WmsErrorCode::kInvalidCrs,
                   kav::StrPrintf("%s '%s' is not supported; supported: CRS:84, EPSG:4326, AUTO2:42003, AUTO:42003",
                                  crs_key, std::string(*crs).c_str()),
                   crs_key);
    }
    r_.crs = *parsed;

    const std::optional<std::string_view> bbox = q_.Get("BBOX");
    if (!bbox || Trim(*bbox).empty()) return Missing("BBOX");
    const std::vector<std::string> values = SplitList(*bbox);
    bool ok = values.size() == 4;
    for (size_t k = 0; ok && k < 4; ++k) ok = ReadDouble(values[k], r_.bbox[k]);
    if (!ok) return Invalid("BBOX", *bbox, "four numbers minx,miny,maxx,maxy are expected");
    if (!(r_.bbox[0] < r_.bbox[2]) || !(r_.bbox[1] < r_.bbox[3])) {
      return Invalid("BBOX", *bbox, "each minimum must be less than its maximum");
    }
    const double scale = r_.crs.kind == WmsCrsKind::kOrthographic ? r_.crs.metres_per_unit : 1.0;
    const double box_width = (r_.bbox[2] - r_.bbox[0]) * scale, box_height = (r_.bbox[3] - r_.bbox[1]) * scale;
    if (!std::isfinite(box_width) || !std::isfinite(box_height)) return Invalid("BBOX", *bbox, "the box is too large");
    if (box_width < kMinBoxSide || box_height < kMinBoxSide) return Invalid("BBOX", *bbox, "the box is too small");
    if (r_.crs.kind == WmsCrsKind::kOrthographic) {
      auto centred = [](double a, double b) { return std::fabs(a + b) <= 1e-9 * std::max(std::fabs(a), std::fabs(b)); };
      if (!centred(r_.bbox[0], r_.bbox[2]) || !centred(r_.bbox[1], r_.bbox[3])) {
        return Invalid("BBOX", *bbox, "an AUTO projection is drawn around its centre: -x,-y,x,y is expected");
      }
    }
    for (const auto& [key, value] : q_.pairs()) {
      if ((key == "TIME" || key == "ELEVATION" || kav::StartsWith(key, "DIM_")) && !Trim(value).empty()) {
        return Error(WmsErrorCode::kInvalidDimensionValue,
                     kav::StrPrintf("No layer of this service has the dimension %s", key.c_str()), key);
      }
    }
    return std::nullopt;
  }

  std::optional<WmsError> ReadStyles() {
    const std::optional<std::string_view> styles = q_.Get("STYLES");
    if (!styles || Trim(*styles).empty()) return std::nullopt;  // every layer in its default style
    const std::vector<std::string> names = SplitList(*styles);
    if (names.size() != r_.layers.size()) {
      return Error(WmsErrorCode::kStyleNotDefined,
                   kav::StrPrintf("STYLES names %zu styles for %zu layers", names.size(), r_.layers.size()),
                   "STYLES");
    }
    for (size_t k = 0; k < names.size(); ++k) {
      const std::string_view style = Trim(names[k]);
      if (!style.empty() && !EqualsNoCase(style, "default")) {
        return Error(WmsErrorCode::kStyleNotDefined,
                     kav::StrPrintf("Style '%s' is not defined for layer '%s' (only the default style is)",
                                    names[k].c_str(), r_.layers[k].c_str()),
                     "STYLES");
      }
    }
    return std::nullopt;
  }

  std::optional<WmsError> ReadFeatureInfo() {
    const std::optional<std::string_view> layers = q_.Get("QUERY_LAYERS");
    if (!layers || Trim(*layers).empty()) return Missing("QUERY_LAYERS");
    r_.query_layers = NameList(*layers);

    if (auto format = q_.Get("INFO_FORMAT"); format && !Trim(*format).empty()) {
      const std::string_view f = Trim(*format);
      if (EqualsNoCase(f, "text/plain")) r_.info_format = WmsInfoFormat::kText;
      else if (EqualsNoCase(f, "text/xml")) r_.info_format = WmsInfoFormat::kXml;
      else if (EqualsNoCase(f, "application/vnd.ogc.gml")) r_.info_format = WmsInfoFormat::kGml;
      else {
        return Error(WmsErrorCode::kInvalidFormat,
                     kav::StrPrintf("INFO_FORMAT '%s' is not supported; supported: text/plain, text/xml, "
                                    "application/vnd.ogc.gml",
                                    std::string(f).c_str()),
                     "INFO_FORMAT");
      }
    }
    if (auto count = q_.Get("FEATURE_COUNT"); count && !Trim(*count).empty()) {
      if (!ReadInteger(*count, r_.feature_count) || r_.feature_count < 1) {
        return Invalid("FEATURE_COUNT", *count, "a positive whole number is expected");
      }
    }
    // I and J in 1.3.0, X and Y in 1.1.1; either pair is taken from either version.
    const bool v130 = r_.version == WmsVersion::k130;
    const char* keys[2] = {v130 ? "I" : "X", v130 ? "J" : "Y"};
    const char* other[2] = {v130 ? "X" : "I", v130 ? "Y" : "J"};
    int64_t* targets[2] = {&r_.i, &r_.j};
    const int64_t sides[2] = {r_.width, r_.height};
    for (int k = 0; k < 2; ++k) {
      std::optional<std::string_view> value = q_.Get(keys[k]);
      if (!value) value = q_.Get(other[k]);
      if (!value || Trim(*value).empty()) return Missing(keys[k]);
      if (!ReadInteger(*value, *targets[k]) || *targets[k] < 0 || *targets[k] >= sides[k]) {
        return Error(WmsErrorCode::kInvalidPoint,
                     kav::StrPrintf("%s '%s' is not a pixel of the %lld x %lld map", keys[k],
                                    std::string(*value).c_str(), static_cast<long long>(r_.width),
                                    static_cast<long long>(r_.height)),
                     keys[k]);
      }
    }
    return std::nullopt;
  }

  const QueryParams& q_;
  const WmsLimits& limits_;
  WmsRequest& r_;
};

}  // namespace

const char* VersionText(WmsVersion version) { return version == WmsVersion::k111 ? "1.1.1" : "1.3.0"; }

const char* ErrorCodeName(WmsErrorCode code, WmsVersion version) {
  switch (code) {
    case WmsErrorCode::kNone: return nullptr;
    case WmsErrorCode::kInvalidFormat: return "InvalidFormat";
    case WmsErrorCode::kInvalidCrs: return version == WmsVersion::k111 ? "InvalidSRS" : "InvalidCRS";
    case WmsErrorCode::kLayerNotDefined: return "LayerNotDefined";
    case WmsErrorCode::kStyleNotDefined: return "StyleNotDefined";
    case WmsErrorCode::kLayerNotQueryable: return "LayerNotQueryable";
    case WmsErrorCode::kInvalidPoint: return "InvalidPoint";
    case WmsErrorCode::kCurrentUpdateSequence: return "CurrentUpdateSequence";
    case WmsErrorCode::kInvalidUpdateSequence: return "InvalidUpdateSequence";
    case WmsErrorCode::kMissingParameterValue: return "MissingParameterValue";
    case WmsErrorCode::kInvalidParameterValue: return "InvalidParameterValue";
    case WmsErrorCode::kMissingDimensionValue: return "MissingDimensionValue";
    case WmsErrorCode::kInvalidDimensionValue: return "InvalidDimensionValue";
    case WmsErrorCode::kOperationNotSupported: return "OperationNotSupported";
  }
  return nullptr;
}

std::string DecodeQueryText(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (size_t k = 0; k < text.size(); ++k) {
    const char c = text[k];
    if (c == '+') {
      out += ' ';
    } else if (c == '%' && k + 2 < text.size() && HexDigit(text[k + 1]) >= 0 && HexDigit(text[k + 2]) >= 0) {
      out += static_cast<char>(HexDigit(text[k + 1]) * 16 + HexDigit(text[k + 2]));
      k += 2;
    } else {
      out += c;
    }
  }
  return out;
}

std::vector<std::pair<std::string, std::string>> DecodeQuery(std::string_view query) {
  std::vector<std::pair<std::string, std::string>> pairs;
  size_t start = 0;
  while (start <= query.size()) {
    size_t end = query.find('&', start);
    if (end == std::string_view::npos) end = query.size();
    const std::string_view pair = query.substr(start, end - start);
    if (!pair.empty()) {
      const size_t eq = pair.find('=');
      std::string key = Upper(DecodeQueryText(pair.substr(0, eq)));
      std::string value = eq == std::string_view::npos ? std::string() : DecodeQueryText(pair.substr(eq + 1));
      if (!key.empty()) pairs.emplace_back(std::move(key), std::move(value));
    }
    start = end + 1;
  }
  return pairs;
}

WmsVersion NegotiateVersion(std::optional<std::string_view> version) {
  return version && Trim(*version) == "1.1.1" ? WmsVersion::k111 : WmsVersion::k130;
}

std::optional<WmsError> ParseWmsRequest(std::string_view query, const WmsLimits& limits,
                                        WmsRequest& request) {
  request = WmsRequest{};
  if (query.size() > kMaxWmsQueryBytes) {
    return Error(WmsErrorCode::kInvalidParameterValue,
                 kav::StrPrintf("The request is longer than %zu bytes", kMaxWmsQueryBytes));
  }
  const QueryParams params(DecodeQuery(query));
  request.version = NegotiateVersion(params.Get("VERSION"));
  return Reader(params, limits, request).Read();
}

}  // namespace vmp
