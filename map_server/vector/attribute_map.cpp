#include "map_server/vector/attribute_map.h"

#include <cstdlib>
#include <cstring>

#include "map_server/vector/attr_eval_state.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

struct TypeWord {
  const char* word;
  ValueType type;
};
constexpr TypeWord kCustomTypes[] = {
    {"VMP_S", ValueType::kString},
    {"VMP_D", ValueType::kDouble},
    {"VMP_G", ValueType::kGeo},
};

struct InputWord {
  const char* word;
  int64_t input;
};
constexpr InputWord kMapInputs[] = {
    {"ZOOM", kMapInputZoom},
    {"RANDOM", kMapInputRandom},
};

constexpr const char* kPixelAttributeName = "PixelColor";

void ReportError(std::string_view message, std::string_view detail) {
  if (detail.empty()) Report(kError, message);
  else Report(kError, message, detail);
}

// "Resource[@input]" into the resource name and the input.
bool ParseMapResource(std::string_view field, std::string* resource, int64_t* input) {
  size_t at = field.find('@');
  *resource = std::string(field.substr(0, at));
  *input = kMapInputZoom;
  if (at == std::string_view::npos) return !resource->empty();
  std::string word(field.substr(at + 1));
  for (const InputWord& w : kMapInputs) {
    if (word == w.word) {
      *input = w.input;
      return !resource->empty();
    }
  }
  char* end = nullptr;
  long number = std::strtol(word.c_str(), &end, 10);
  if (word.empty() || end != word.c_str() + word.size()) return false;
  if (number != kMapInputZoom && number != kMapInputRandom && number < 0) return false;
  *input = number;
  return !resource->empty();
}

uint64_t Mix(uint64_t z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  return z ^ (z >> 31);
}

uint64_t DoubleBits(double d) {
  uint64_t bits;
  std::memcpy(&bits, &d, sizeof bits);
  return bits;
}

// A number that depends only on where the feature is.
uint64_t FeatureRandom(const Feature& feature) {
  double x = 0.0, y = 0.0;
  uint64_t count = 0;
  if (const MarkerFeature* marker = feature.AsMarker()) {
    x = marker->x;
    y = marker->y;
  } else if (const PolygonFeature* polygon = feature.AsPolygon()) {
    count = polygon->points.size();
    if (!polygon->points.empty()) {
      x = polygon->points[0].x;
      y = polygon->points[0].y;
    }
  }
  return Mix(Mix(DoubleBits(x)) ^ DoubleBits(y) ^ (count << 1));
}

double FeatureSize(const Feature* feature) {
  const PolygonFeature* polygon = feature != nullptr ? feature->AsPolygon() : nullptr;
  return polygon != nullptr ? polygon->extent : 0.0;
}

bool SameGeo(const TypedValue& a, const TypedValue& b) {
  return a.numbers[0] == b.numbers[0] && a.numbers[1] == b.numbers[1] &&
         a.numbers[2] == b.numbers[2];
}

}  // namespace

CustomAttribute* LayerAttributes::FindCustom(int64_t index) {
  for (auto it = custom_attributes.rbegin(); it != custom_attributes.rend(); ++it) {
    if (it->entry.index == index) return &*it;
  }
  return nullptr;
}

const CustomAttribute* LayerAttributes::FindCustom(int64_t index) const {
  return const_cast<LayerAttributes*>(this)->FindCustom(index);
}

CustomAttribute* LayerAttributes::FindCustomByName(std::string_view name) {
  for (auto it = custom_attributes.rbegin(); it != custom_attributes.rend(); ++it) {
    if (it->name == name) return &*it;
  }
  return nullptr;
}

AttributeMap* LayerAttributes::FindMapFor(int64_t index) {
  for (auto it = attr_maps.rbegin(); it != attr_maps.rend(); ++it) {
    if (it->output_index == index) return &*it;
  }
  return nullptr;
}

bool AddCustomAttribute(LayerAttributes& layer, const CustomAttributeFields& fields,
                        std::string_view layer_name) {
  const TypeWord* type = nullptr;
  for (const TypeWord& t : kCustomTypes) {
    if (fields.type_word == t.word) type = &t;
  }
  if (type == nullptr) {
    ReportError("Invalid custom attribute type", fields.type_word);
    return false;
  }
  if (fields.number < 0) {
    ReportError("Invalid custom attribute index in ConvertConfig.", layer_name);
    return false;
  }
  CustomAttribute custom;
  custom.name = fields.name;
  custom.entry.index = fields.number;
  custom.entry.value.type = type->type;
  if (type->type == ValueType::kString) custom.entry.value.text.emplace();
  layer.custom_attributes.push_back(std::move(custom));
  return true;
}

bool AddAttributeMap(LayerAttributes& layer, AttributeMapFields fields, bool pixel_map,
                     std::string_view layer_name) {
  AttributeMap map;
  if (fields.table_kind == "ABS") {
    map.mode = ThresholdMode::kAbsolute;
  } else if (fields.table_kind == "REL") {
    map.mode = ThresholdMode::kRelative;
  } else {
    ReportError("Invalid threshold table type (REL or ABS)", fields.table_kind);
    return false;
  }
  if (fields.thresholds.empty()) {
    Report(kWarning, "Attribute map has no thresholds", fields.threshold_file);
    return false;
  }
  const Threshold& first = fields.thresholds.front();
  if (pixel_map) {
    if (fields.attribute_name != kPixelAttributeName) {
      ReportError("Invalid attribute name (PixelColor expected)", fields.attribute_name);
      return false;
    }
    if (map.mode == ThresholdMode::kRelative) {
      ReportError("Only absolute attribute maps are supported for non-vector layers.",
                  layer_name);
      return false;
    }
    // Colours of colour images, or elevations of elevation images, to colours.
    if ((first.input.type != ValueType::kGeo && first.input.type != ValueType::kDouble) ||
        first.output.type != ValueType::kGeo) {
      ReportError("Pixel map thresholds must map colours or elevations to colours",
                  fields.threshold_file);
      return false;
    }
    map.resource_name = fields.resource_name;
  } else {
    const CustomAttribute* custom = layer.FindCustomByName(fields.attribute_name);
    if (custom == nullptr) {
      ReportError("Invalid attribute name (define custom attrs first)", fields.attribute_name);
      return false;
    }
    if (!ParseMapResource(fields.resource_name, &map.resource_name, &map.input)) {
      ReportError("Invalid attribute map input", fields.resource_name);
      return false;
    }
    if (first.output.type != custom->entry.value.type) {
      ReportError("Threshold output type does not match type of custom attribute",
                  fields.threshold_file);
      return false;
    }
    map.output_index = custom->entry.index;
  }
  map.attribute_name = std::move(fields.attribute_name);
  map.threshold_file = std::move(fields.threshold_file);
  map.thresholds = std::move(fields.thresholds);
  (pixel_map ? layer.pixel_maps : layer.attr_maps).push_back(std::move(map));
  return true;
}

bool BuildLayerAttributes(const std::vector<CustomAttributeFields>& custom,
                          std::vector<AttributeMapFields> attr_maps,
                          std::vector<AttributeMapFields> pixel_maps,
                          std::string_view layer_name, LayerAttributes* out) {
  *out = LayerAttributes{};
  bool ok = true;
  for (const CustomAttributeFields& fields : custom) {
    ok = AddCustomAttribute(*out, fields, layer_name) && ok;
  }
  for (AttributeMapFields& fields : attr_maps) {
    ok = AddAttributeMap(*out, std::move(fields), false, layer_name) && ok;
  }
  for (AttributeMapFields& fields : pixel_maps) {
    ok = AddAttributeMap(*out, std::move(fields), true, layer_name) && ok;
  }
  return ok;
}

const Threshold* SelectThreshold(const ThresholdTable& table, const TypedValue& input) {
  if (table.empty()) return nullptr;
  switch (input.type) {
    case ValueType::kString: {
      std::string_view text = input.text ? std::string_view(*input.text) : "";
      for (size_t i = 0; i + 1 < table.size(); ++i) {
        const std::optional<std::string>& pattern = table[i].input.text;
        if (!pattern || WildcardMatch(*pattern, text)) return &table[i];
      }
      return &table.back();
    }
    case ValueType::kDouble:
      for (size_t i = table.size(); i-- > 0;) {
        if (table[i].input.numbers[0] <= input.numbers[0]) return &table[i];
      }
      return &table.front();
    case ValueType::kGeo:
      for (size_t i = 0; i + 1 < table.size(); ++i) {
        if (SameGeo(table[i].input, input)) return &table[i];
      }
      return &table.back();
    default:
      return nullptr;
  }
}

bool ApplyAttributeMap(AttributeMap& map, const FeatureContext& context, TypedValue* out) {
  const Threshold* chosen = ChooseAttributeMapEntry(map, context);
  if (chosen == nullptr) return false;
  *out = chosen->output;
  return true;
}

const Threshold* ChooseAttributeMapEntry(AttributeMap& map, const FeatureContext& context) {
  if (map.failed || map.thresholds.empty()) return nullptr;
  TypedValue special;
  const TypedValue* input = nullptr;
  const bool relative = map.mode == ThresholdMode::kRelative;
  if (map.input == kMapInputZoom || map.input == kMapInputRandom) {
    if (relative && !context.vector_layer) {
      ReportError("Only absolute attribute maps are supported for non-vector layers.",
                  context.layer_name);
      map.failed = true;
      return nullptr;
    }
    double value = 0.0;
    if (map.input == kMapInputZoom) {
      value = relative ? context.zoom * FeatureSize(context.feature) : context.zoom;
    } else {
      double modulus = map.thresholds.back().input.numbers[0];
      uint64_t n = relative && context.feature != nullptr ? FeatureRandom(*context.feature)
                                                          : NextMapRandom();
      // Moduli beyond 2^63 leave the number as it is.
      if (modulus >= 1.0 && modulus < 9.2e18) n %= static_cast<uint64_t>(modulus);
      else if (modulus < 1.0) n = 0;
      value = static_cast<double>(n);
    }
    special = TypedValue::Double(value);
    input = &special;
  } else {
    if (!context.vector_layer) {
      ReportError("Only zoom-based attribute maps are supported for non-vector layers.",
                  context.layer_name);
      map.failed = true;
      return nullptr;
    }
    const Attribute* attribute = GetFeatureAttribute(context, map.input, true, false);
    if (attribute == nullptr) return nullptr;
    input = &attribute->value;
  }
  if (map.thresholds.front().input.type != input->type) {
    ReportAttrConditionMessage("Threshold input type does not match type of attribute!",
                               context.layer_name);
    return nullptr;
  }
  const Threshold* chosen = SelectThreshold(map.thresholds, *input);
  if (chosen == nullptr) {
    ReportAttrConditionMessage("Invalid threshold input attribute type.", context.layer_name);
  }
  return chosen;
}

const Attribute* LookupCustomAttribute(const FeatureContext& context, int64_t index,
                                       bool compute) {
  if (context.layer == nullptr) return nullptr;
  CustomAttribute* custom = context.layer->FindCustom(index);
  if (custom == nullptr) return nullptr;
  if (compute) {
    if (AttributeMap* map = context.layer->FindMapFor(index)) {
      if (!ApplyAttributeMap(*map, context, &custom->entry.value)) return nullptr;
    }
  }
  return &custom->entry;
}

}  // namespace vmp
