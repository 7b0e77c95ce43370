// The standard WMS front door: a request as WMS 1.1.1 and 1.3.0 clients send
// it, read the standard way (keys in any case, percent-encoded values with
// "+" as a blank, any order, unknown keys ignored) into a typed record.
//
//   WmsRequest request;
//   if (std::optional<WmsError> error = ParseWmsRequest(query, limits, request)) ...
//
// Nothing here knows the dataset: layer names are checked by wms_layers.h,
// and the record is put into the server's own terms by wms_translate.h.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vmp {

// Longest query string answered; a longer one gets an exception report.
inline constexpr size_t kMaxWmsQueryBytes = 64 * 1024;

enum class WmsVersion { k111, k130 };
enum class WmsOperation { kGetCapabilities, kGetMap, kGetFeatureInfo };
enum class WmsExceptionFormat { kXml, kInImage, kBlank };
enum class WmsImageFormat { kJpeg, kPng };
enum class WmsInfoFormat { kText, kXml, kGml };

// "1.1.1" or "1.3.0".
const char* VersionText(WmsVersion version);

// How the BBOX values of a request are read.
enum class WmsCrsKind {
  kLatLon,        // EPSG:4326 in 1.3.0: minlat,minlon,maxlat,maxlon
  kLonLat,        // CRS:84, and EPSG:4326 in 1.1.1: minlon,minlat,maxlon,maxlat
  kOrthographic,  // AUTO:42003 / AUTO2:42003: x,y around the centre, in units
};

struct WmsCrs {
  WmsCrsKind kind = WmsCrsKind::kLonLat;
  double metres_per_unit = 1.0;  // orthographic BBOX units
  double lon0 = 0.0;             // orthographic centre
  double lat0 = 0.0;
};

// The codes of exception reports (InvalidCRS is InvalidSRS in 1.1.1).
enum class WmsErrorCode {
  kNone,
  kInvalidFormat,
  kInvalidCrs,
  kLayerNotDefined,
  kStyleNotDefined,
  kLayerNotQueryable,
  kInvalidPoint,
  kCurrentUpdateSequence,
  kInvalidUpdateSequence,
  kMissingParameterValue,
  kInvalidParameterValue,
  kMissingDimensionValue,
  kInvalidDimensionValue,
  kOperationNotSupported,
};

// The code's name in a report of that version; null for kNone.
const char* ErrorCodeName(WmsErrorCode code, WmsVersion version);

struct WmsError {
  WmsErrorCode code = WmsErrorCode::kNone;
  std::string message;
  std::string locator;  // the parameter at fault; empty when none
};

// Advertised limits of a GetMap image.
struct WmsLimits {
  int64_t max_width = 4096;
  int64_t max_height = 4096;
};

struct WmsRequest {
  WmsVersion version = WmsVersion::k130;
  WmsOperation operation = WmsOperation::kGetCapabilities;

  // GetCapabilities.
  std::optional<std::string> update_sequence;

  // GetMap and GetFeatureInfo: the map.
  std::vector<std::string> layers;
  WmsCrs crs;
  std::array<double, 4> bbox{};  // as given
  int64_t width = 0;
  int64_t height = 0;
  WmsImageFormat format = WmsImageFormat::kJpeg;
  bool transparent = false;
  std::array<uint8_t, 3> bgcolor{255, 255, 255};
  WmsExceptionFormat exceptions = WmsExceptionFormat::kXml;
  // Set once WIDTH, HEIGHT, FORMAT, BGCOLOR and TRANSPARENT have been read
  // successfully: an INIMAGE or BLANK exception can then be drawn.
  bool image_known = false;

  // GetFeatureInfo.
  std::vector<std::string> query_layers;
  WmsInfoFormat info_format = WmsInfoFormat::kText;
  int64_t feature_count = 1;
  int64_t i = 0;  // pixel column and row, from the top left
  int64_t j = 0;
};

// Percent-decoding of one key or value: "%XX" becomes that byte, "+" a
// blank; a "%" not followed by two hexadecimal digits stays as it is.
std::string DecodeQueryText(std::string_view text);

// The query's KEY=VALUE pairs, keys upper-cased (ASCII) and both decoded;
// empty pairs are skipped.
std::vector<std::pair<std::string, std::string>> DecodeQuery(std::string_view query);

// The version that answers a VERSION value: "1.1.1" is answered in 1.1.1,
// anything else (none, "1.3.0", or a version this server does not know) in
// 1.3.0.
WmsVersion NegotiateVersion(std::optional<std::string_view> version);

// Reads `query` into `request`. On failure the error is returned and
// `request` keeps what was read up to it (at least the version, and for
// GetMap what an image exception needs when image_known is set).
std::optional<WmsError> ParseWmsRequest(std::string_view query, const WmsLimits& limits,
                                        WmsRequest& request);

}  // namespace vmp
