// The answers of the info and selection requests: lat/lon, elevation and
// selection documents in XML or plain text, each after its Content-Type
// header in CGI mode; and the point conversions behind them.
#pragma once

#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "map_server/geometry/map_geometry.h"
#include "map_server/vector/typed_value.h"

namespace vmp {

// XML or plain text; with or without the CGI header.
struct AnswerFormat {
  bool xml = false;
  bool cgi = false;
};

// The lat/lon answer ("VmpLatLonData"). A point off the map answers
// "OutsideException" with 10000 for both values.
std::string FormatLatLonAnswer(const AnswerFormat& format, bool on_map, double lat, double lon);

// The elevation answer ("VmpElevationData"); no elevation answers
// "NoDataException" with -10000.
std::string FormatElevationAnswer(const AnswerFormat& format, std::optional<double> elevation);

// What a selection answer lists.
struct SelectedAttribute {
  std::string name;
  TypedValue value;  // kNone: type "undefined"
};
struct SelectedFeature {
  std::optional<std::string> type;  // "undefined" when unknown
  std::optional<std::string> id;
  double lat = 0.0;
  double lon = 0.0;
  std::vector<SelectedAttribute> attributes;
};
struct Selection {
  std::optional<std::string> type;
  std::vector<SelectedFeature> features;
};
struct SelectionLayer {
  std::string name;
  std::vector<Selection> selections;
};

// The selection answer ("VmpSelectionData").
std::string FormatSelectionAnswer(const AnswerFormat& format, std::span<const SelectionLayer> layers);

// Writes an answer to `out` and flushes it.
void WriteAnswer(std::FILE* out, const std::string& answer);

// GetFeatureInfo: the lat/lon under pixel (i, j). The row passed to the
// conversion is j, or Height - j - 1 in the orthographic projection (whose
// rows count from the bottom); ok tells whether the point is on the map.
LatLonPoint FeatureInfoLocation(const MapGeometry& geometry, double i, double j);

// GetLocationInfo: whether (lat, lon) lies on the map: on the visible side
// of the globe (or inside the world seen from the centre, with the
// longitude also taken +-360) and inside the visible pixel rectangle.
bool LocationOnMap(const MapGeometry& geometry, double lat, double lon);

}  // namespace vmp
