// A parsed OGC Web Map Service request: its type and the map settings it
// makes, ready to be applied to a map object.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace vmp {

// Request type codes; 0 means the parse failed.
enum class RequestType : int {
  kInvalid = 0,
  kGetMap = 1,
  kGetFeatureInfo = 2,
  kGetLocationInfo = 3,
  kGetCapabilities = 4,
  kGetSelection = 5,
};

// What an info request answers: the lat/lon or the elevation under a point.
enum class PickMode { kNone, kLatLon, kElevation };

using ColourValue = std::array<double, 3>;  // red, green, blue in 0..1

// One map parameter set by the request, by its name in the map parameter
// table ("Width", "CenterLon", "Background", ...).
struct MapSetting {
  std::string name;
  std::variant<double, std::string, ColourValue> value;
};

struct ParsedRequest {
  RequestType type = RequestType::kInvalid;
  std::vector<MapSetting> settings;        // in the order they are applied
  std::optional<std::string> layers;       // LAYERS, for layer selection
  std::optional<double> pick_resolution;   // PICK_RESOLUTION, for selections
  PickMode pick_mode = PickMode::kNone;
  // XML or plain text for non-image answers. The caller presets it (on in
  // CGI mode); FORMAT and INFO_FORMAT change it.
  bool xml = false;

  // The last value set for a parameter, or null.
  const MapSetting* Find(std::string_view name) const;
  std::optional<double> Number(std::string_view name) const;
  std::optional<std::string> Text(std::string_view name) const;
};

}  // namespace vmp
