#include "map_server/dataset/lif_keywords.h"

#include <array>
#include <string>
#include <unordered_map>

#include "map_server/dataset/config_reader.h"
#include "map_server/dataset/param_tables.h"

namespace vmp {

namespace {

constexpr EnumWord kLayerTypes[] = {
    {"IMAGE", 0}, {"GRID", 1}, {"VECTOR", 2}, {"OUTLINE", 3}, {"BACKGROUND", 4}};
constexpr EnumWord kTransTypes[] = {{"OPAQUE", 0},   {"ALPHA WHITE OPAQUE", 1},
                                    {"ALPHA BLACK OPAQUE", 2}, {"XOR", 3},
                                    {"BUMP MAP", 4}, {"TRANSPARENT COLOR OPAQUE", 5}};
constexpr EnumWord kImageFormats[] = {{"JPEG", 1}, {"TIF", 2}, {"PNG", 3},
                                      {"GIF", 4},  {"BMP", 5}, {"RGB", 6}};
constexpr EnumWord kVectorFormats[] = {{"TVF", 1}, {"SHP", 2}};
constexpr EnumWord kTextTypes[] = {{"FLAT", 0}, {"MAPPED FLAT", 1}, {"TRANSFORMED", 2}};
constexpr EnumWord kFillTypes[] = {{"EDGE", 1}, {"FILL", 2}, {"FILL AND EDGE", 3}};
constexpr EnumWord kLabelTypes[] = {
    {"LINE LABEL", 0}, {"MID LINE LABEL", 1}, {"AREA LABEL", 2}, {"BBOX LABEL", 3}};
constexpr EnumWord kLayoutTypes[] = {{"NONE", 0}, {"LAYER", 1}, {"GLOBAL", 2}};
constexpr EnumWord kElevationModes[] = {
    {"NONE", 0}, {"DATA", 1}, {"COLOR", 2}, {"DATA AS COLOR", 3}};
// "UNSET" gives the table default back without a message.
constexpr EnumWord kLabelSelectionModes[] = {
    {"NONE", 0}, {"INTILE", 1}, {"YES", 2}, {"UNSET", 3}};
constexpr EnumWord kGridLabelChars[] = {{"NONE", 0}, {"APPEND", 1}, {"PREPEND", 2}};
constexpr EnumWord kGradientTypes[] = {{"NONE", 0}, {"AROUND_GLOBE", 1}};

constexpr EnumWord kHAnchors[] = {{"HCENTER", 0}, {"HLEFT", 1}, {"HRIGHT", 2}};
constexpr EnumWord kVAnchors[] = {{"VCENTER", 0}, {"VTOP", 16}, {"VBOTTOM", 32}};
constexpr EnumWord kLabelStyles[] = {{"BG_EDGE", 1}, {"BG_FILL", 2}, {"OUTLINE", 4}};
constexpr EnumWord kMarkerTypes[] = {{"CROSS", 1},        {"BOX_EDGE", 2},   {"BOX_FILL", 4},
                                     {"CIRCLE_EDGE", 8},  {"CIRCLE_FILL", 16}, {"DOT", 32},
                                     {"CUSTOM_ICON", 64}};
constexpr EnumWord kMarkerBackgrounds[] = {{"BG_EDGE", 1}, {"BG_FILL", 2}};

using F = LifForm;
using A = LifAction;

constexpr LifKeyword Param(const char* keyword, F form, int param, const char* long_name = nullptr) {
  return {keyword, long_name, form, param, A::kSetParam, {}, nullptr};
}
constexpr LifKeyword EnumParam(const char* keyword, int param, std::span<const EnumWord> words,
                               const char* invalid, const char* long_name = nullptr) {
  return {keyword, long_name, F::kEnum, param, A::kSetParam, words, invalid};
}
constexpr LifKeyword Action(const char* keyword, F form, A action) {
  return {keyword, nullptr, form, -1, action, {}, nullptr};
}
constexpr LifKeyword EnumAction(const char* keyword, A action, std::span<const EnumWord> words,
                                const char* invalid, const char* long_name = nullptr) {
  return {keyword, long_name, F::kEnum, -1, action, words, invalid};
}

const LifKeyword kKeywords[] = {
    EnumAction("TYPE=", A::kLayerType, kLayerTypes, "Invalid layer type", "OBJECT TYPE"),
    EnumParam("TRANS TYPE=", kLayerTransType, kTransTypes, "Invalid TRANS TYPE",
              "TRANSPARENCY TYPE"),
    Param("FILENAME=", F::kToken, kLayerFilename),
    Param("FILTER=", F::kToken, kLayerFilter),
    EnumAction("IMAGE FORMAT=", A::kImageFormat, kImageFormats, "Invalid image format"),
    EnumAction("IMAGE TYPE=", A::kImageFormat, kImageFormats, "Invalid image format"),
    EnumAction("VECTOR FORMAT=", A::kVectorFormat, kVectorFormats, "Invalid vector format"),
    Param("FALLBACK=", F::kToken, kLayerFallback),
    Param("FALLBACK LAYER=", F::kToken, kLayerFallbackLayer),
    Param("BACKGROUND LAYER=", F::kToken, kLayerBackgroundLayer),
    Param("MAX TILES=", F::kInteger, kLayerMaxTiles),
    Param("MAX CACHE SIZE=", F::kInteger, kLayerMaxCacheSize),
    Param("VOLATILE=", F::kInteger, kLayerVolatile),
    Param("VOLATILE ERRORS=", F::kInteger, kLayerVolatileErrors),
    Param("LOCK FILE=", F::kToken, kLayerLockFile),
    Param("LOCK TIMEOUT=", F::kReal, kLayerLockTimeout),
    Param("LOCK TILES=", F::kInteger, kLayerLockTiles),
    Param("REDIRECT FILE=", F::kToken, kLayerRedirectFile),
    Param("TILES OVERLAP=", F::kInteger, kLayerTilesOverlap),
    Action("NUM TILES X=", F::kInteger, A::kNumTilesX),
    Action("NUM TILES Y=", F::kInteger, A::kNumTilesY),
    Param("WIDTH=", F::kInteger, kLayerWidth),
    Param("HEIGHT=", F::kInteger, kLayerHeight),
    Param("MIN LON=", F::kReal, kLayerMinLon),
    Param("MIN LAT=", F::kReal, kLayerMinLat),
    Param("MAX LON=", F::kReal, kLayerMaxLon),
    Param("MAX LAT=", F::kReal, kLayerMaxLat),
    Param("MIN ZOOM=", F::kReal, kLayerMinZoom),
    Param("MAX ZOOM=", F::kReal, kLayerMaxZoom),
    Param("FONT=", F::kToken, kLayerTextFont),
    Param("FONT SCALE=", F::kReal, kLayerFontScale),
    EnumParam("TEXT TYPE=", kLayerTextType, kTextTypes, "Invalid text type"),
    EnumParam("FONT TYPE=", kLayerTextType, kTextTypes, "Invalid text type"),
    Param("TEXT ANGLE=", F::kReal, kLayerTextAngle),
    Param("FONT ANGLE=", F::kReal, kLayerTextAngle),
    Action("TEXT ANCHOR=", F::kSpecial, A::kTextAnchor),
    Action("FONT ANCHOR=", F::kSpecial, A::kTextAnchor),
    Param("LABEL FORMAT=", F::kToken, kLayerLabelFormat),
    Action("LABEL STYLE=", F::kSpecial, A::kLabelStyle),
    Action("MARKER ICON TYPE=", F::kSpecial, A::kMarkerType),
    Param("MARKER ICON SIZE=", F::kInteger, kLayerMarkerSize),
    Param("MARKER MARGIN=", F::kInteger, kLayerMarkerMargin),
    Param("TBOX MARGIN=", F::kInteger, kLayerTextBoxMargin, "TEXT BOX MARGIN"),
    Param("MARKER EDGE COLOR=", F::kColor, kLayerMarkerEdgeColor),
    Param("MARKER FILL COLOR=", F::kColor, kLayerMarkerFillColor),
    Param("MARKER ICON FILE=", F::kToken, kLayerMarkerIconFile),
    Param("EDGE COLOR=", F::kColor, kLayerEdgeColor),
    Param("FILL COLOR=", F::kColor, kLayerFillColor),
    Action("BACKGROUND COLOR=", F::kColor, A::kBackgroundColor),
    EnumParam("FILL TYPE=", kLayerFillType, kFillTypes, "Invalid fill type"),
    Param("ALPHA=", F::kReal, kLayerAlpha),
    Param("LINE WIDTH=", F::kInteger, kLayerLineWidth),
    Param("TBOX LINE WIDTH=", F::kInteger, kLayerTextBoxLineWidth, "TEXT BOX LINE WIDTH"),
    Param("VTEXT LINE WIDTH=", F::kInteger, kLayerVTextLineWidth),
    Action("POS RANGE=", F::kInteger, A::kPosRange),
    Param("DEFAULT ON=", F::kInteger, kLayerIsDefault),
    Param("ALLOW MISSING TILES=", F::kInteger, kLayerAllowMissingTiles),
    Param("POLY LABEL FORMAT=", F::kToken, kLayerPolyLabelFormat),
    Param("LABEL COLOR=", F::kColor, kLayerLabelColor),
    Param("LABEL EDGE COLOR=", F::kColor, kLayerLabelOutlineColor),
    Param("LABEL OUTLINE COLOR=", F::kColor, kLayerLabelOutlineColor),
    Param("LABEL MIN ZOOM=", F::kReal, kLayerLabelMinZoom),
    Param("LABEL MAX ZOOM=", F::kReal, kLayerLabelMaxZoom),
    Param("LABEL PRIORITY=", F::kInteger, kLayerLabelPriority),
    EnumParam("POLY LABEL TYPE=", kLayerPolyLabelType, kLabelTypes, "Invalid label type"),
    Param("POLY LABEL CENTER=", F::kInteger, kLayerPolyLabelCenter),
    Param("LABEL CENTER=", F::kInteger, kLayerPolyLabelCenter),
    EnumParam("LABEL TYPE=", kLayerPolyLabelType, kLabelTypes, "Invalid label type"),
    EnumParam("LAYOUT TYPE=", kLayerLayoutType, kLayoutTypes, "Invalid layout type"),
    Param("LAYOUT MARGIN=", F::kInteger, kLayerLayoutMargin),
    Param("BOX EDGE COLOR=", F::kColor, kLayerBoxEdgeColor),
    Param("BOX FILL COLOR=", F::kColor, kLayerBoxFillColor),
    Param("IMAGE ANTIALIASING=", F::kInteger, kLayerImageAntiAliasing),
    EnumParam("ELEVATION MODE=", kLayerElevationMode, kElevationModes, "Invalid elevation mode"),
    Param("MIN PIXEL SIZE=", F::kReal, kLayerMinPixelSize),
    Param("CLIP=", F::kInteger, kLayerClip),
    Param("TRANS COLOR=", F::kColor, kLayerTransColor, "TRANSPARENT COLOR"),
    Param("TRANS COLOR PRECISION=", F::kReal, kLayerTransColorPrecision,
          "TRANSPARENT COLOR PRECISION"),
    Param("ALLOW OVERRIDE=", F::kInteger, kLayerAllowOverride),
    EnumParam("LABEL SELECTION MODE=", kLayerLabelSelectionMode, kLabelSelectionModes,
              "Invalid select labels mode"),
    Param("GRID LAT INTERVAL=", F::kReal, kLayerGridLatInterval),
    Param("GRID LON INTERVAL=", F::kReal, kLayerGridLonInterval),
    Param("ADAPTIVE GRID=", F::kInteger, kLayerAdaptiveGrid),
    Param("ADAPTIVE=", F::kInteger, kLayerAdaptiveGrid),
    Param("GRID LABELS=", F::kInteger, kLayerGridLabels),
    Param("LABELS=", F::kInteger, kLayerGridLabels),
    Param("DECIMAL GRID LABELS=", F::kInteger, kLayerDecimalGridLabels),
    Param("GRID LABEL FORMAT=", F::kToken, kLayerGridLabelFormat),
    Param("GRID LABEL FORMAT LON=", F::kToken, kLayerGridLabelFormatLon),
    EnumParam("GRID LABEL CHAR=", kLayerGridLabelChar, kGridLabelChars,
              "Invalid grid label char value"),
    Param("LON LABEL ANGLE=", F::kReal, kLayerLonLabelAngle),
    Param("ROTATE LON LABELS=", F::kInteger, kLayerRotateLonLabels),
    Param("GRID MIN LON=", F::kReal, kLayerGridMinLon),
    Param("GRID MIN LAT=", F::kReal, kLayerGridMinLat),
    Param("GRID MAX LON=", F::kReal, kLayerGridMaxLon),
    Param("GRID MAX LAT=", F::kReal, kLayerGridMaxLat),
    Param("IMAGE MIN LON=", F::kReal, kLayerImageMinLon),
    Param("IMAGE MAX LON=", F::kReal, kLayerImageMaxLon),
    Action("GRADIENT COLOR=", F::kColor, A::kGradientColor),
    EnumParam("GRADIENT TYPE=", kLayerGradientType, kGradientTypes, "Invalid gradient type"),
    Param("GRADIENT LENGTH=", F::kReal, kLayerGradientLength),
    Action("TILES SUBLIF=", F::kToken, A::kTilesSublif),
    Action("INCLUDE=", F::kToken, A::kInclude),
    Action("CUSTOM ATTR=", F::kSpecial, A::kCustomAttr),
    Action("ATTR MAP=", F::kSpecial, A::kAttrMap),
    Action("PIXEL MAP=", F::kSpecial, A::kPixelMap),
    Action("ATTR COND=", F::kSpecial, A::kAttrCond),
};

}  // namespace

std::string_view LifKeyword::LongName() const {
  if (long_name != nullptr) return long_name;
  std::string_view name(keyword);
  return name.substr(0, name.size() - 1);
}

std::span<const LifKeyword> LifKeywords() { return kKeywords; }

const LifKeyword* FindLifKeyword(std::string_view line) {
  // Every keyword ends in its only "=", so the line's text up to its first
  // "=" names the one keyword it can start with: matching it is the same as
  // trying the keywords in order as prefixes.
  static const std::unordered_map<std::string_view, const LifKeyword*> kIndex = [] {
    std::unordered_map<std::string_view, const LifKeyword*> index;
    for (const LifKeyword& k : kKeywords) index.emplace(k.keyword, &k);
    return index;
  }();
  auto it = kIndex.find(KeywordOf(line));
  return it == kIndex.end() ? nullptr : it->second;
}

std::span<const EnumWord> HorizontalAnchorWords() { return kHAnchors; }
std::span<const EnumWord> VerticalAnchorWords() { return kVAnchors; }
std::span<const EnumWord> LabelStyleFlags() { return kLabelStyles; }
std::span<const EnumWord> MarkerTypeFlags() { return kMarkerTypes; }
std::span<const EnumWord> MarkerBackgroundFlags() { return kMarkerBackgrounds; }

bool LookupWord(std::span<const EnumWord> words, std::string_view word, int64_t* value) {
  for (const EnumWord& w : words) {
    if (word == w.word) {
      *value = w.value;
      return true;
    }
  }
  return false;
}

}  // namespace vmp
