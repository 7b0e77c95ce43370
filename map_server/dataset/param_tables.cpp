#include "map_server/dataset/param_tables.h"

#include <array>

#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr ParamEntry String(const char* name, const char* value = nullptr) {
  return {name, kParamString, 0.0, 0, 0, value, {}};
}
constexpr ParamEntry Real(const char* name, double value) {
  return {name, kParamReal, value, 0, 0, nullptr, {}};
}
constexpr ParamEntry Color(const char* name, double r = 0.0, double g = 0.0, double b = 0.0) {
  return {name, kParamColor, 0.0, 0, 0, nullptr, {r, g, b}};
}
constexpr ParamEntry Integer(const char* name, int32_t value) {
  return {name, kParamInteger, 0.0, value, 0, nullptr, {}};
}
constexpr ParamEntry Enum(const char* name, int64_t value) {
  return {name, kParamEnum, 0.0, 0, value, nullptr, {}};
}

// The latitude entries carry -117.0 and the longitude entries 44.0: the
// table ships that way and stays so.
constexpr std::array<ParamEntry, kMapParamCount> kMapTable = {{
    String("DatasetName", "DefaultDataset"),
    Enum("Projection", 2),
    Real("CenterLat", -117.0),
    Real("CenterLon", 44.0),
    Real("VExtent", 1.2),
    Real("HExtent", 1.2),
    Integer("Width", 512),
    Integer("Height", 512),
    Integer("Stretch", 0),
    Color("Background"),
    Integer("ImageErrors", 1),
    Integer("Verbosity", 0),
    Real("Angle", 0.0),
    Integer("ImageAntiAliasing", 0),
    Real("LocationLat", -117.0),
    Real("LocationLon", 44.0),
    Integer("LocationI", 0),
    Integer("LocationJ", 0),
    String("QueryLayers"),
    Integer("LabelSelectionMode", 3),
    Integer("ClipArea", 0),
    Integer("ClipMinX", 0),
    Integer("ClipMaxX", 0),
    Integer("ClipMinY", 0),
    Integer("ClipMaxY", 0),
}};

constexpr std::array<ParamEntry, kLayerParamCount> kLayerTable = {{
    Enum("LayerType", 0),
    Enum("TransType", 0),
    String("TextFont", "roman"),
    Real("GridLatInterval", 10.0),
    Real("GridLonInterval", 20.0),
    Real("GridMaxLon", 10000.0),
    Real("GridMinLon", -10000.0),
    Real("GridMaxLat", 10000.0),
    Real("GridMinLat", -10000.0),
    Color("EdgeColor", 0.5, 0.5, 0.5),
    Real("Alpha", 1.0),
    Enum("TextType", 2),
    Real("FontScale", 1.0),
    Real("TextAngle", 0.0),
    Integer("TextAnchor", 17),
    String("LabelFormat"),
    Integer("MarkerType", 0),
    Integer("MarkerSize", kDefaultMarkerSize),
    Integer("MarkerMargin", 1),
    Integer("TextBoxMargin", 0),
    Color("MarkerEdgeColor"),
    Color("MarkerFillColor"),
    Color("FillColor"),
    Enum("FillType", 1),
    Integer("LineWidth", 1),
    Integer("MaxTiles", -1),
    Real("MinZoom", -1.0),
    Real("MaxZoom", -1.0),
    String("Filename"),
    String("Fallback"),
    String("Filter"),
    Integer("Width", 0),
    Integer("Height", 0),
    Real("MinLon", 0.0),
    Real("MaxLon", 0.0),
    Real("MinLat", 0.0),
    Real("MaxLat", 0.0),
    Integer("AdaptiveGrid", 0),
    Integer("GridLabels", 0),
    Integer("IsDefault", 0),
    String("PolyLabelFormat"),
    Color("LabelColor"),
    Real("LabelMinZoom", -1.0),
    Real("LabelMaxZoom", -1.0),
    Enum("PolyLabelType", 0),
    Integer("PolyLabelCenter", -1),
    Color("BoxEdgeColor"),
    Color("BoxFillColor"),
    Integer("ImageAntiAliasing", 1),
    Real("MinPixelSize", 0.1),
    Integer("Clip", 1),
    Color("TransColor"),
    Real("TransColorPrecision", 0.0),
    Integer("MaxCacheSize", 100),
    Integer("Volatile", 0),
    Integer("VolatileErrors", 0),
    String("LockFile"),
    Real("LockTimeout", 0.05),
    Integer("LockTiles", 0),
    String("FallbackLayer"),
    String("MarkerIconFile"),
    Integer("ElevationMode", 0),
    Integer("DecimalGridLabels", 1),
    String("RedirectFile"),
    Integer("AllowMissingTiles", 0),
    Integer("AllowOverride", 0),
    Real("LonLabelAngle", 90.0),
    String("GridLabelFormat"),
    String("GridLabelFormatLon"),
    Integer("GridLabelChar", 1),
    Integer("RotateLonLabels", 1),
    Real("ImageMinLon", -10000.0),
    Real("ImageMaxLon", 10000.0),
    Integer("LabelStyle", 0),
    Color("LabelOutlineColor"),
    Integer("LabelPriority", 9),
    Enum("LayoutType", 0),
    Integer("LayoutMargin", 1),
    Integer("TextBoxLineWidth", 1),
    Integer("VTextLineWidth", 1),
    Integer("LabelSelectionMode", 3),
    Integer("GradientType", 0),
    Real("GradientLength", 1.0),
    Integer("TilesOverlap", 0),
    String("BackgroundLayer"),
    Integer("BGColorRed", -1),
    Integer("BGColorGreen", -1),
    Integer("BGColorBlue", -1),
}};

}  // namespace

std::span<const ParamEntry> MapParamTable() { return kMapTable; }
std::span<const ParamEntry> LayerParamTable() { return kLayerTable; }

std::span<const ParamEntry> ParamTable(int kind) {
  switch (kind) {
    case kObjectMapRequest: return kMapTable;
    case kObjectLayer: return kLayerTable;
    default:
      ReportNumber(kError, "Object type not supported", kind);
      return {};
  }
}

int ParamIndex(int kind, std::string_view name) {
  std::span<const ParamEntry> table = ParamTable(kind);
  for (size_t i = 0; i < table.size(); ++i) {
    if (name == table[i].name) return static_cast<int>(i);
  }
  return -1;
}

}  // namespace vmp
