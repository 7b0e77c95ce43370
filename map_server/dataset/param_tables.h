// The parameter tables of the two configured object kinds (map request and
// layer): name, type code and defaults of every parameter, in their fixed
// order. Parameters are set by name as resources and converted into typed
// records by these tables (see param_conversion.h).
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vmp {

// Size in pixels of the default marker: the default of the layer parameter
// MarkerSize, and the search radius of location queries (map_geometry.h).
inline constexpr int32_t kDefaultMarkerSize = 5;

// A colour: three components, 0..1 in resources and parameters, 0..255 in
// records.
struct Rgb {
  double red = 0.0;
  double green = 0.0;
  double blue = 0.0;
  bool operator==(const Rgb&) const = default;
};

enum ParamType : int {
  kParamString = 1,
  kParamReal = 2,
  kParamColor = 3,
  kParamInteger = 4,
  kParamEnum = 5,
};

struct ParamEntry {
  const char* name;
  int type;  // a ParamType code; kept as int because a table may hold any code
  double real_default;
  int32_t integer_default;
  int64_t enum_default;
  const char* string_default;  // null: no string
  Rgb color_default;
};

enum ObjectKind : int {
  kObjectMapRequest = 0,
  kObjectLayer = 1,
};

// Map request parameters (kind 0), by table position.
enum MapParam : int {
  kMapDatasetName,
  kMapProjection,
  kMapCenterLat,
  kMapCenterLon,
  kMapVExtent,
  kMapHExtent,
  kMapWidth,
  kMapHeight,
  kMapStretch,
  kMapBackground,
  kMapImageErrors,
  kMapVerbosity,
  kMapAngle,
  kMapImageAntiAliasing,
  kMapLocationLat,
  kMapLocationLon,
  kMapLocationI,
  kMapLocationJ,
  kMapQueryLayers,
  kMapLabelSelectionMode,
  kMapClipArea,
  kMapClipMinX,
  kMapClipMaxX,
  kMapClipMinY,
  kMapClipMaxY,
  kMapParamCount
};

// Layer parameters (kind 1), by table position.
enum LayerParam : int {
  kLayerType,
  kLayerTransType,
  kLayerTextFont,
  kLayerGridLatInterval,
  kLayerGridLonInterval,
  kLayerGridMaxLon,
  kLayerGridMinLon,
  kLayerGridMaxLat,
  kLayerGridMinLat,
  kLayerEdgeColor,
  kLayerAlpha,
  kLayerTextType,
  kLayerFontScale,
  kLayerTextAngle,
  kLayerTextAnchor,
  kLayerLabelFormat,
  kLayerMarkerType,
  kLayerMarkerSize,
  kLayerMarkerMargin,
  kLayerTextBoxMargin,
  kLayerMarkerEdgeColor,
  kLayerMarkerFillColor,
  kLayerFillColor,
  kLayerFillType,
  kLayerLineWidth,
  kLayerMaxTiles,
  kLayerMinZoom,
  kLayerMaxZoom,
  kLayerFilename,
  kLayerFallback,
  kLayerFilter,
  kLayerWidth,
  kLayerHeight,
  kLayerMinLon,
  kLayerMaxLon,
  kLayerMinLat,
  kLayerMaxLat,
  kLayerAdaptiveGrid,
  kLayerGridLabels,
  kLayerIsDefault,
  kLayerPolyLabelFormat,
  kLayerLabelColor,
  kLayerLabelMinZoom,
  kLayerLabelMaxZoom,
  kLayerPolyLabelType,
  kLayerPolyLabelCenter,
  kLayerBoxEdgeColor,
  kLayerBoxFillColor,
  kLayerImageAntiAliasing,
  kLayerMinPixelSize,
  kLayerClip,
  kLayerTransColor,
  kLayerTransColorPrecision,
  kLayerMaxCacheSize,
  kLayerVolatile,
  kLayerVolatileErrors,
  kLayerLockFile,
  kLayerLockTimeout,
  kLayerLockTiles,
  kLayerFallbackLayer,
  kLayerMarkerIconFile,
  kLayerElevationMode,
  kLayerDecimalGridLabels,
  kLayerRedirectFile,
  kLayerAllowMissingTiles,
  kLayerAllowOverride,
  kLayerLonLabelAngle,
  kLayerGridLabelFormat,
  kLayerGridLabelFormatLon,
  kLayerGridLabelChar,
  kLayerRotateLonLabels,
  kLayerImageMinLon,
  kLayerImageMaxLon,
  kLayerLabelStyle,
  kLayerLabelOutlineColor,
  kLayerLabelPriority,
  kLayerLayoutType,
  kLayerLayoutMargin,
  kLayerTextBoxLineWidth,
  kLayerVTextLineWidth,
  kLayerLabelSelectionMode,
  kLayerGradientType,
  kLayerGradientLength,
  kLayerTilesOverlap,
  kLayerBackgroundLayer,
  kLayerBGColorRed,
  kLayerBGColorGreen,
  kLayerBGColorBlue,
  kLayerParamCount
};

std::span<const ParamEntry> MapParamTable();
std::span<const ParamEntry> LayerParamTable();

// The table of an object kind; any other kind is reported as "Object type
// not supported" with the kind number and yields an empty table.
std::span<const ParamEntry> ParamTable(int kind);

// Position of a parameter in its kind's table by exact, case-sensitive name;
// -1 when absent (an unsupported kind is reported as by ParamTable).
int ParamIndex(int kind, std::string_view name);

}  // namespace vmp
