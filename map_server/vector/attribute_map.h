// Custom attributes and attribute maps of a layer.
//
// A layer file declares custom attributes and attribute maps:
//
//   CUSTOM ATTR= 100 road_color VMP_G
//   ATTR MAP= road_color LabelEdgeColor@3 roads.thr ABS
//   PIXEL MAP= PixelColor PixelColor sea.thr ABS
//
// Custom attribute ("CUSTOM ATTR= number name type"): an attribute the layer
// adds to every feature under `number`, with type VMP_S, VMP_D or VMP_G.
// Attribute conditions reach it like any attribute ("@100==..."): numbers up
// to the largest attribute number of the loaded file are the feature's own
// attributes, larger numbers are custom attributes. Use numbers above every
// number the layer's files use.
//
// Attribute map ("ATTR MAP= attribute resource thresholds ABS|REL"):
// - attribute: the custom attribute the map computes, per feature. Its value
//   is the output of the threshold entry the map chooses; the threshold
//   file's output type must be the custom attribute's type.
// - resource: the layer resource the computed value drives (LabelEdgeColor,
//   MarkerIconFile, TextFont, MinPixelSize, MinZoom, MaxZoom, ...), followed
//   by an optional input:
//     "Resource"          the current zoom value (the default input),
//     "Resource@ZOOM"     the same, written out,
//     "Resource@RANDOM"   a pseudo-random whole number modulo the input value
//                         of the last threshold entry (0 when that is below 1),
//     "Resource@n"        the feature's attribute number n (n >= 0); the
//                         attribute is read as it is, without computing.
//   Zoom and random inputs are of type D; the threshold file's input type
//   must match the input's type.
// - thresholds: the threshold file (read by the layer file reader).
// - ABS or REL: ABS uses the input as it is. REL takes it relative to the
//   feature: the zoom input becomes zoom x the feature's extent (how large
//   the feature appears; a marker has no extent, so it gets 0), and the
//   random input becomes a number derived from the feature's position, so a
//   feature keeps its choice from one request to the next. For attribute
//   inputs REL and ABS are the same. Layers without features (non-vector
//   layers) accept only ABS maps on the zoom or random input.
//
// Choosing the entry: a D input takes, scanning from the last entry down,
// the first entry whose input value is at most the input (none: the first
// entry); an S input takes the first entry before the last whose input
// value, as a wildcard pattern, matches the string (none: the last entry);
// a G input takes the first entry before the last with all three values
// equal (none: the last entry).
//
// When a map gives no value for a feature (missing input attribute, type
// mismatch), its custom attribute is missing for that feature. A map that
// cannot work on its layer at all is reported once and skipped from then on.
//
// Pixel map ("PIXEL MAP= PixelColor resource thresholds ABS", image layers):
// maps an image pixel's colour (G input, 0..1 a channel) to a new colour, or
// for elevation layers the elevation (D input) to a colour; the image
// renderer applies it with SelectThreshold.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "map_server/vector/attr_match.h"
#include "map_server/vector/typed_value.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

// Special inputs of attribute maps (other inputs are attribute numbers).
inline constexpr int64_t kMapInputZoom = -4;
inline constexpr int64_t kMapInputRandom = -3;

enum class ThresholdMode { kAbsolute, kRelative };

struct CustomAttribute {
  std::string name;
  // entry.index is the declared number, entry.value.type the declared type;
  // the value is the last one computed (or the type's empty value).
  Attribute entry;
};

struct AttributeMap {
  std::string attribute_name;  // the custom attribute computed ("PixelColor" for pixel maps)
  std::string resource_name;   // the resource driven, without the input part
  std::string threshold_file;
  int64_t input = kMapInputZoom;  // kMapInputZoom, kMapInputRandom or an attribute number
  int64_t output_index = -1;      // number of the computed custom attribute (-1: pixel map)
  ThresholdMode mode = ThresholdMode::kAbsolute;
  ThresholdTable thresholds;
  bool failed = false;  // refused for its layer; skipped from then on
};

// What a layer holds for attribute evaluation.
class LayerAttributes {
 public:
  std::vector<CustomAttribute> custom_attributes;  // declaration order
  std::vector<AttributeMap> attr_maps;
  std::vector<AttributeMap> pixel_maps;

  // The custom attribute with this number or name (the last declared wins).
  CustomAttribute* FindCustom(int64_t index);
  const CustomAttribute* FindCustom(int64_t index) const;
  CustomAttribute* FindCustomByName(std::string_view name);
  // The attribute map computing custom attribute `index` (the last given wins).
  AttributeMap* FindMapFor(int64_t index);
  bool empty() const {
    return custom_attributes.empty() && attr_maps.empty() && pixel_maps.empty();
  }
};

// The raw fields of the layer file's lines, as its reader stores them.
struct CustomAttributeFields {
  int64_t number = 0;
  std::string name;
  std::string type_word;  // "VMP_D", "VMP_S" or "VMP_G"
};
struct AttributeMapFields {
  std::string attribute_name;
  std::string resource_name;
  std::string threshold_file;
  std::string table_kind;  // "ABS" or "REL"
  ThresholdTable thresholds;
};

// Adds one declared custom attribute. Failures (logged as errors with the
// layer name): "Invalid custom attribute type", "Invalid custom attribute
// index in ConvertConfig." (a negative number).
bool AddCustomAttribute(LayerAttributes& layer, const CustomAttributeFields& fields,
                        std::string_view layer_name);
// Adds one "ATTR MAP=" (or, with `pixel_map`, "PIXEL MAP=") after checking
// it against the declared custom attributes. Failures are logged and the map
// is left out.
bool AddAttributeMap(LayerAttributes& layer, AttributeMapFields fields, bool pixel_map,
                     std::string_view layer_name);
// Builds a layer's attribute data from all its lines (custom attributes
// first). Returns false when any line was refused; the others are kept.
bool BuildLayerAttributes(const std::vector<CustomAttributeFields>& custom,
                          std::vector<AttributeMapFields> attr_maps,
                          std::vector<AttributeMapFields> pixel_maps,
                          std::string_view layer_name, LayerAttributes* out);

// The entry a threshold table chooses for `input` (rules above), or null for
// an empty table or an input of no known type. The caller checks that the
// input's type is the table's input type.
const Threshold* SelectThreshold(const ThresholdTable& table, const TypedValue& input);

// Runs `map` for the feature of `context` and stores the output in `out`;
// false when the map gives no value.
bool ApplyAttributeMap(AttributeMap& map, const FeatureContext& context, TypedValue* out);
// The same without copying: the chosen entry (its output is the value), or
// null when the map gives no value.
const Threshold* ChooseAttributeMapEntry(AttributeMap& map, const FeatureContext& context);

// The custom attribute `index` of the context's layer (computed first by its
// map when `compute` is set), or null. GetFeatureAttribute's custom part.
const Attribute* LookupCustomAttribute(const FeatureContext& context, int64_t index,
                                       bool compute);

}  // namespace vmp
