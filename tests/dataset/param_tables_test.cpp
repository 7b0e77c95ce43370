#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "map_server/dataset/layer.h"
#include "map_server/dataset/map_request.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

// A field's value as text, whatever its type, to compare two records.
std::string Value(const FieldRef& ref) {
  return std::visit([](auto p) -> std::string {
    using T = std::remove_pointer_t<decltype(p)>;
    if constexpr (std::is_same_v<T, std::monostate>) {
      return "-";
    } else if constexpr (std::is_same_v<T, std::optional<std::string>>) {
      return p->value_or("(none)");
    } else if constexpr (std::is_same_v<T, Rgb>) {
      return std::to_string(p->red) + "," + std::to_string(p->green) + "," + std::to_string(p->blue);
    } else {
      return std::to_string(*p);
    }
  }, ref);
}

TEST(ParamTablesTest, NamesAndIndexes) {
  const std::tuple<int, const char*, int> cases[] = {
      {kObjectMapRequest, "Width", 6},     {kObjectLayer, "Width", 31},  {kObjectMapRequest, "ClipMaxY", 24},
      {kObjectLayer, "BGColorBlue", 87}, {kObjectMapRequest, "width", -1}, {kObjectLayer, "Width ", -1}};
  for (const auto& [kind, name, index] : cases) EXPECT_EQ(ParamIndex(kind, name), index) << name;
  test::MessageCapture capture;
  EXPECT_TRUE(ParamTable(2).empty());
  EXPECT_EQ(ParamIndex(7, "Width"), -1);
  EXPECT_EQ(capture.Texts(),
            (Texts{"Error: Object type not supported: 2", "Error: Object type not supported: 7"}));
}

// Every layer entry but those the LIF reader stores itself is bound to a
// field of its own, of the C++ type its type code names.
TEST(ParamTablesTest, EveryLayerEntryIsBoundWithItsType) {
  const std::set<int> stored_by_reader = {0, 28, 30, 31, 32, 33, 34, 35, 36};
  LayerRecord record;
  std::set<const void*> seen;
  for (int i = 0; i < kLayerParamCount; ++i) {
    FieldRef ref = LayerField(record, i);
    // The variant's alternatives are in type code order: 1 string .. 5 int64.
    const size_t type = stored_by_reader.count(i) ? 0 : static_cast<size_t>(LayerParamTable()[i].type);
    EXPECT_EQ(ref.index(), type) << LayerParamTable()[i].name;
    if (type == 0) continue;
    const void* field = std::visit([](auto p) -> const void* {
      if constexpr (std::is_pointer_v<decltype(p)>) return p;
      else return nullptr;
    }, ref);
    EXPECT_TRUE(seen.insert(field).second) << LayerParamTable()[i].name << " shares a field";
  }
}

// The records start at the table defaults: converting fresh resources
// changes no field.
TEST(ParamTablesTest, RecordDefaultsAreTheTableDefaults) {
  test::MessageCapture capture;
  Layer layer("defaults");
  layer.resources.CreateFromTable(LayerParamTable());
  ConvertConfig(layer);
  LayerRecord fresh;
  for (int i = 0; i < kLayerParamCount; ++i) {
    EXPECT_EQ(Value(LayerField(layer.record, i)), Value(LayerField(fresh, i))) << LayerParamTable()[i].name;
  }
  auto map = CreateMapRequest();
  ConvertConfig(*map);
  MapRecord fresh_map;
  int32_t verbosity = 0;
  for (int i = 0; i < kMapParamCount; ++i) {
    EXPECT_EQ(Value(MapField(map->record, verbosity, i)), Value(MapField(fresh_map, verbosity, i)))
        << MapParamTable()[i].name;
  }
  EXPECT_TRUE(capture.messages().empty());
  // A few shipped values, the swapped latitude and longitude among them.
  EXPECT_EQ(map->record.center_lat, -117.0);
  EXPECT_EQ(map->record.location_lon, 44.0);
  EXPECT_EQ(map->record.width, 512);
  EXPECT_EQ(map->record.dataset_name, "DefaultDataset");
  EXPECT_EQ(layer.record.drawing.edge_color, (Rgb{127.5, 127.5, 127.5}));
}

TEST(ParamTablesTest, MapConversionRules) {
  // Integers truncate toward zero into 32 bits (clamped); enumerations keep 64.
  const std::tuple<const char*, double, int64_t> numbers[] = {
      {"Width", -7.9, -7}, {"Width", 1e12, INT32_MAX}, {"Width", -1e12, INT32_MIN}, {"Width", NAN, 0},
      {"Projection", 1e12, 1000000000000LL}};
  for (const auto& [name, value, expected] : numbers) {
    auto map = CreateMapRequest();
    map->resources.SetNumber(name, value);
    ConvertConfig(*map);
    EXPECT_EQ(std::string(name) == "Width" ? map->record.width : map->record.projection, expected) << value;
  }
  // Colours scale to 0..255, clamped; strings are copied.
  const std::pair<Rgb, Rgb> colors[] = {{{0.5, 1.0, 0.0}, {127.5, 255.0, 0.0}},
                                        {{-0.2, 1.5, NAN}, {0.0, 255.0, 0.0}}};
  for (const auto& [in, out] : colors) {
    auto map = CreateMapRequest();
    map->resources.SetColor("Background", in);
    map->resources.SetString("QueryLayers", "roads");
    ConvertConfig(*map);
    EXPECT_EQ(map->record.background, out);
    EXPECT_EQ(map->record.query_layers, "roads");
  }
  // Verbosity goes process-wide; from 1000 on it is a diagnostic code instead.
  for (const auto& [set, verbosity, code] : {std::tuple{999, 999, 0}, std::tuple{1000, 0, 1000}}) {
    test::MessageCapture capture;  // restores verbosity and code afterwards
    kav::Messages().debug_code = 0;
    auto map = CreateMapRequest();
    map->resources.SetNumber("Verbosity", set);
    ConvertConfig(*map);
    EXPECT_EQ(Verbosity(), verbosity);
    EXPECT_EQ(kav::Messages().debug_code, code);
  }
  test::MessageCapture capture;
  kav::Messages().verbosity = 4;
  auto map = CreateMapRequest();  // carries the process verbosity
  kav::Messages().verbosity = 0;
  ConvertConfig(*map);
  EXPECT_EQ(Verbosity(), 4);
}

TEST(ParamTablesTest, BadTypesAndKindsAreRefused) {
  const ParamEntry table[] = {{"Good", kParamReal, 1.0, 0, 0, nullptr, {}},
                              {"Bad", 9, 0.0, 0, 0, nullptr, {}},
                              {"Mismatch", kParamString, 0.0, 0, 0, nullptr, {}}};
  ResourceGroup group("g");
  group.SetNumber("Good", 2.5);
  group.SetNumber("Bad", 3.0);
  group.SetString("Mismatch", "x");
  double fields[3] = {0, 0, 0};  // "Mismatch" is bound with the wrong C++ type
  test::MessageCapture capture;
  ConvertResources(group, table, [&](int i) -> FieldRef { return &fields[i]; });
  EXPECT_EQ(fields[0], 2.5);
  EXPECT_EQ(fields[1], 0.0);
  group.CreateFromTable(MapParamTable());
  EXPECT_FALSE(group.SetString("Width", "300"));
  EXPECT_EQ(group.GetNumber("Width"), 512.0);
  EXPECT_EQ(capture.Texts(), (Texts{"Error: Invalid data type: Bad", "Error: Invalid data type: Mismatch",
                                    "Internal Error: Resource set with the wrong kind: Width"}));
}

TEST(ParamTablesTest, CustomAttributesConvertThroughIndexMap) {
  Layer layer("roads");
  std::vector<CustomAttribute>& customs = layer.record.attributes.custom_attributes;
  const std::tuple<const char*, int64_t, ValueType> attributes[] = {
      {"Width3", 3, ValueType::kDouble}, {"Name0", 0, ValueType::kString},
      {"Neg", -2, ValueType::kDouble}, {"Unmapped", 5, ValueType::kGeo}};
  for (const auto& [name, index, type] : attributes) {
    customs.emplace_back().name = name;
    customs.back().entry.index = index;
    customs.back().entry.value.type = type;
  }
  layer.record.custom_attr_index = {1, -1, -1, 0};  // 5 is beyond, -2 below
  layer.resources.SetNumber("Width3", 7.5);
  layer.resources.SetString("Name0", "main");
  test::MessageCapture capture;
  ConvertConfig(layer);
  EXPECT_EQ(customs[0].entry.value, TypedValue::Double(7.5));
  EXPECT_EQ(customs[1].entry.value, TypedValue::String("main"));
  EXPECT_EQ(capture.Count("Error: Invalid custom attribute index in ConvertConfig.: roads"), 2u);
}

}  // namespace
}  // namespace vmp
