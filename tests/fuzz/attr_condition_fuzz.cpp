// Parses arbitrary text as an attribute condition, then evaluates whatever
// was parsed against a few fixed features of a layer with custom attributes
// and attribute maps.
#include <cmath>
#include <cstdint>
#include <limits>
#include <string_view>

#include "map_server/vector/attr_condition.h"
#include "map_server/vector/attr_eval_state.h"
#include "map_server/vector/attr_match.h"
#include "map_server/vector/attribute_map.h"
#include "toolkit/message_log.h"

namespace {

struct Setup {
  Setup() {
    kav::Messages().cgi = true;
    vmp::VmpSetErrorHandler([](const char*, int) {});
    auto polygon = std::make_unique<vmp::PolygonFeature>();
    polygon->points = {{0, 0, 0}, {3, 1, 0}};
    polygon->ComputeBounds();
    polygon->AddAttribute(0, vmp::TypedValue::String("Main St"));
    polygon->AddAttribute(1, vmp::TypedValue::Double(1500));
    polygon->AddAttribute(2, vmp::TypedValue::Double(std::numeric_limits<double>::quiet_NaN()));
    polygon->AddAttribute(3, vmp::TypedValue::Geo(1, 2, 3));
    polygon->AddAttribute(5, vmp::TypedValue::String(std::nullopt));
    data.AddFeature(std::move(polygon));
    auto marker = std::make_unique<vmp::MarkerFeature>();
    marker->AddAttribute(0, vmp::TypedValue::String("*?*"));
    marker->AddAttribute(4, vmp::TypedValue::Double(-1));
    data.AddFeature(std::move(marker));

    vmp::ThresholdTable zoom = {{vmp::TypedValue::Double(0), vmp::TypedValue::String("small")},
                                {vmp::TypedValue::Double(5), vmp::TypedValue::String("big")}};
    vmp::ThresholdTable names = {{vmp::TypedValue::String("Main*"), vmp::TypedValue::Double(1)},
                                 {vmp::TypedValue::String("x"), vmp::TypedValue::Double(2)}};
    vmp::BuildLayerAttributes({{10, "size", "VMP_S"}, {11, "cls", "VMP_D"}, {12, "rnd", "VMP_S"}},
                              {{"size", "TextFont", "z.thr", "REL", zoom},
                               {"cls", "MinZoom@0", "n.thr", "ABS", names},
                               {"rnd", "MarkerIconFile@RANDOM", "r.thr", "ABS", zoom}},
                              {}, "fuzz", &layer);
  }
  vmp::VectorData data;
  vmp::LayerAttributes layer;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  static Setup setup;
  std::string_view text(reinterpret_cast<const char*>(bytes), size);
  vmp::AttrConditionList list;
  vmp::ParseAttrCondition(text, list);
  std::string name;
  vmp::AttrConditionList split;
  vmp::SplitNameAndConditions(text, &name, split);
  if (name.size() > text.size()) __builtin_trap();

  for (bool vector_layer : {true, false}) {
    for (const auto& feature : setup.data.features) {
      vmp::FeatureContext context;
      context.feature = feature.get();
      context.data = &setup.data;
      context.layer = &setup.layer;
      context.layer_name = "fuzz";
      context.vector_layer = vector_layer;
      context.zoom = 2.5;
      vmp::MatchAttrConditions(list, context);
      vmp::MatchAttrConditions(split, context);
    }
  }
  vmp::ResetAttrConditionMessages();
  return 0;
}
