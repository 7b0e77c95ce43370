#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "map_server/dataset/layer.h"
#include "map_server/dataset/map_request.h"
#include "map_server/dataset/param_conversion.h"
#include "map_server/dataset/param_tables.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

TEST(ParamTablesTest, MapTableEntries) {
  struct Row {
    int index;
    const char* name;
    int type;
  };
  const Row rows[] = {{0, "DatasetName", kParamString}, {1, "Projection", kParamEnum},
                      {2, "CenterLat", kParamReal},     {9, "Background", kParamColor},
                      {11, "Verbosity", kParamInteger}, {18, "QueryLayers", kParamString},
                      {19, "LabelSelectionMode", kParamInteger}, {24, "ClipMaxY", kParamInteger}};
  ASSERT_EQ(MapParamTable().size(), 25u);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_STREQ(MapParamTable()[row.index].name, row.name);
    EXPECT_EQ(MapParamTable()[row.index].type, row.type);
    EXPECT_EQ(ParamIndex(kObjectMapRequest, row.name), row.index);
  }
}

TEST(ParamTablesTest, LayerTableEntries) {
  struct Row {
    int index;
    const char* name;
    int type;
  };
  const Row rows[] = {{0, "LayerType", kParamEnum},        {2, "TextFont", kParamString},
                      {9, "EdgeColor", kParamColor},       {14, "TextAnchor", kParamInteger},
                      {28, "Filename", kParamString},      {36, "MaxLat", kParamReal},
                      {44, "PolyLabelType", kParamEnum},   {53, "MaxCacheSize", kParamInteger},
                      {63, "RedirectFile", kParamString},  {76, "LayoutType", kParamEnum},
                      {80, "LabelSelectionMode", kParamInteger}, {87, "BGColorBlue", kParamInteger}};
  ASSERT_EQ(LayerParamTable().size(), 88u);
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_STREQ(LayerParamTable()[row.index].name, row.name);
    EXPECT_EQ(LayerParamTable()[row.index].type, row.type);
    EXPECT_EQ(ParamIndex(kObjectLayer, row.name), row.index);
  }
}

TEST(ParamTablesTest, IndexIsExactAndCaseSensitive) {
  EXPECT_EQ(ParamIndex(kObjectMapRequest, "width"), -1);
  EXPECT_EQ(ParamIndex(kObjectMapRequest, "Width "), -1);
  EXPECT_EQ(ParamIndex(kObjectLayer, "Widt"), -1);
  // Both tables have "Width"; each finds its own.
  EXPECT_EQ(ParamIndex(kObjectMapRequest, "Width"), 6);
  EXPECT_EQ(ParamIndex(kObjectLayer, "Width"), 31);
}

TEST(ParamTablesTest, UnsupportedKindIsReported) {
  test::MessageCapture capture;
  EXPECT_TRUE(ParamTable(2).empty());
  EXPECT_EQ(ParamIndex(7, "Width"), -1);
  EXPECT_TRUE(capture.Contains("Error: Object type not supported: 2"));
  EXPECT_TRUE(capture.Contains("Error: Object type not supported: 7"));
}

// Every layer entry except those the LIF reader stores itself must be bound
// to a record field whose C++ type matches the entry's type code.
TEST(ParamTablesTest, EveryLayerEntryIsBoundWithItsType) {
  const std::set<int> stored_by_reader = {0, 28, 30, 31, 32, 33, 34, 35, 36};
  for (int i = 0; i < kLayerParamCount; ++i) {
    SCOPED_TRACE(LayerParamTable()[i].name);
    LayerRecord record;
    FieldRef ref = LayerField(record, i);
    if (stored_by_reader.count(i)) {
      EXPECT_TRUE(std::holds_alternative<std::monostate>(ref));
      continue;
    }
    switch (LayerParamTable()[i].type) {
      case kParamString: EXPECT_TRUE(std::holds_alternative<std::optional<std::string>*>(ref)); break;
      case kParamReal: EXPECT_TRUE(std::holds_alternative<double*>(ref)); break;
      case kParamColor: EXPECT_TRUE(std::holds_alternative<Rgb*>(ref)); break;
      case kParamInteger: EXPECT_TRUE(std::holds_alternative<int32_t*>(ref)); break;
      case kParamEnum: EXPECT_TRUE(std::holds_alternative<int64_t*>(ref)); break;
      default: ADD_FAILURE() << "bad type code";
    }
  }
}

// Two entries bound to the same field would let one parameter overwrite
// another silently.
TEST(ParamTablesTest, LayerFieldsAreDistinct) {
  LayerRecord record;
  std::set<const void*> seen;
  for (int i = 0; i < kLayerParamCount; ++i) {
    FieldRef ref = LayerField(record, i);
    const void* address = std::visit(
        [](auto p) -> const void* {
          if constexpr (std::is_same_v<decltype(p), std::monostate>) return nullptr;
          else return static_cast<const void*>(p);
        },
        ref);
    if (address == nullptr) continue;
    EXPECT_TRUE(seen.insert(address).second) << LayerParamTable()[i].name;
  }
}

// Record defaults equal the table defaults, so a fresh layer converted from
// its default resources keeps every field unchanged.
TEST(ParamTablesTest, LayerDefaultsSurviveConversion) {
  Layer layer("defaults");
  layer.resources.CreateFromTable(LayerParamTable());
  test::MessageCapture capture;
  ConvertConfig(layer);
  EXPECT_TRUE(capture.messages().empty());
  const LayerRecord& after = layer.record;
  EXPECT_EQ(after.drawing.text_font, "roman");
  EXPECT_EQ(after.drawing.edge_color, (Rgb{127.5, 127.5, 127.5}));
  EXPECT_EQ(after.drawing.text_anchor, 17);
  EXPECT_EQ(after.drawing.label_selection_mode, 3);
  EXPECT_EQ(after.tiles.image_store.max_tiles, -1);
  EXPECT_EQ(after.tiles.image_store.max_cache_size, 100);
  EXPECT_EQ(after.tiles.bg_color_red, -1);
  EXPECT_DOUBLE_EQ(after.grid.lon_interval, 20.0);
  EXPECT_DOUBLE_EQ(after.lock_timeout, 0.05);
  EXPECT_DOUBLE_EQ(after.grid.lon_label_angle, 90.0);
}

TEST(ParamTablesTest, MapRequestDefaults) {
  test::MessageCapture capture;
  auto map = CreateMapRequest();
  EXPECT_EQ(map->resources.name(), "MapRequest");
  EXPECT_EQ(map->resources.resources().size(), 25u);
  EXPECT_TRUE(map->layers.empty());
  ConvertConfig(*map);
  const MapRecord& r = map->record;
  EXPECT_EQ(r.width, 512);
  EXPECT_EQ(r.height, 512);
  EXPECT_DOUBLE_EQ(r.h_extent, 1.2);
  EXPECT_DOUBLE_EQ(r.v_extent, 1.2);
  EXPECT_DOUBLE_EQ(r.center_lat, -117.0);  // the shipped, swapped defaults
  EXPECT_DOUBLE_EQ(r.center_lon, 44.0);
  EXPECT_DOUBLE_EQ(r.location_lat, -117.0);
  EXPECT_DOUBLE_EQ(r.location_lon, 44.0);
  EXPECT_EQ(r.projection, 2);
  EXPECT_EQ(r.dataset_name, "DefaultDataset");
  EXPECT_FALSE(r.query_layers.has_value());
  EXPECT_EQ(r.label_selection_mode, 3);
  EXPECT_EQ(r.image_errors, 1);
}

TEST(ParamTablesTest, ConversionTypeRules) {
  struct Case {
    const char* name;
    double value;
    int64_t expected;
  };
  // Integers truncate toward zero into 32 bits (clamped); the enumeration
  // keeps 64 bits.
  const Case cases[] = {{"Width", 300.9, 300},        {"Width", -7.9, -7},
                        {"Width", 1e12, 2147483647},  {"Width", -1e12, -2147483648LL},
                        {"Width", NAN, 0},            {"Projection", 1e12, 1000000000000LL},
                        {"Projection", -3.7, -3}};
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.value));
    auto map = CreateMapRequest();
    map->resources.SetNumber(c.name, c.value);
    ConvertConfig(*map);
    int64_t got = std::string(c.name) == "Width" ? map->record.width : map->record.projection;
    EXPECT_EQ(got, c.expected);
  }
}

TEST(ParamTablesTest, ColoursScaleAndClamp) {
  struct Case {
    Rgb in;
    Rgb out;
  };
  const Case cases[] = {{{0.5, 1.0, 0.0}, {127.5, 255.0, 0.0}},
                        {{-0.2, 1.5, 2.0}, {0.0, 255.0, 255.0}},
                        {{NAN, 0.2, 0.0}, {0.0, 51.0, 0.0}}};
  for (const Case& c : cases) {
    auto map = CreateMapRequest();
    map->resources.SetColor("Background", c.in);
    ConvertConfig(*map);
    EXPECT_DOUBLE_EQ(map->record.background.red, c.out.red);
    EXPECT_DOUBLE_EQ(map->record.background.green, c.out.green);
    EXPECT_DOUBLE_EQ(map->record.background.blue, c.out.blue);
  }
}

TEST(ParamTablesTest, VerbosityGoesProcessWideAndCodesMove) {
  struct Case {
    double set;
    int64_t verbosity;
    int64_t code;
  };
  const Case cases[] = {{5, 5, 0}, {999, 999, 0}, {1000, 0, 1000}, {2001, 0, 2001}};
  for (const Case& c : cases) {
    test::MessageCapture capture;  // restores verbosity and code afterwards
    kav::Messages().debug_code = 0;
    auto map = CreateMapRequest();
    map->resources.SetNumber("Verbosity", c.set);
    ConvertConfig(*map);
    EXPECT_EQ(Verbosity(), c.verbosity);
    EXPECT_EQ(kav::Messages().debug_code, c.code);
  }
}

TEST(ParamTablesTest, NewRequestCarriesProcessVerbosity) {
  test::MessageCapture capture;
  kav::Messages().verbosity = 4;
  auto map = CreateMapRequest();
  ConvertConfig(*map);
  EXPECT_EQ(Verbosity(), 4);
}

TEST(ParamTablesTest, InvalidDataTypeIsReportedAndSkipped) {
  const ParamEntry table[] = {{"Good", kParamReal, 1.0, 0, 0, nullptr, {}},
                              {"Bad", 9, 0.0, 0, 0, nullptr, {}},
                              {"Mismatch", kParamString, 0.0, 0, 0, nullptr, {}}};
  ResourceGroup group("g");
  group.SetNumber("Good", 2.5);
  group.SetNumber("Bad", 3.0);
  group.SetString("Mismatch", "x");
  double good = 0, bad = 0;
  double mismatch = 0;  // bound with the wrong C++ type on purpose
  test::MessageCapture capture;
  ConvertResources(group, table, [&](int i) -> FieldRef {
    if (i == 0) return &good;
    if (i == 1) return &bad;
    return &mismatch;
  });
  EXPECT_DOUBLE_EQ(good, 2.5);
  EXPECT_DOUBLE_EQ(bad, 0.0);
  EXPECT_TRUE(capture.Contains("Error: Invalid data type: Bad"));
  EXPECT_TRUE(capture.Contains("Error: Invalid data type: Mismatch"));
}

TEST(ParamTablesTest, SettingWithAnotherKindIsRefused) {
  ResourceGroup group("g");
  group.CreateFromTable(MapParamTable());
  test::MessageCapture capture;
  EXPECT_FALSE(group.SetString("Width", "300"));
  EXPECT_EQ(group.GetNumber("Width"), 512.0);
  EXPECT_EQ(capture.Count("Internal Error: Resource set with the wrong kind: Width"), 1u);
  EXPECT_TRUE(group.SetNumber("NewOne", 3));
  EXPECT_EQ(group.GetNumber("NewOne"), 3.0);
}

TEST(ParamTablesTest, VectorLayerLimitsGoToVectorStore) {
  for (int64_t type : {kLayerImage, kLayerVector}) {
    Layer layer("l");
    layer.resources.CreateFromTable(LayerParamTable());
    layer.record.layer_type = type;
    layer.resources.SetNumber("MaxTiles", 12);
    layer.resources.SetNumber("MaxCacheSize", 40);
    ConvertConfig(layer);
    const TileStoreLimits& used =
        type == kLayerVector ? layer.record.tiles.vector_store : layer.record.tiles.image_store;
    const TileStoreLimits& other =
        type == kLayerVector ? layer.record.tiles.image_store : layer.record.tiles.vector_store;
    EXPECT_EQ(used.max_tiles, 12);
    EXPECT_EQ(used.max_cache_size, 40);
    EXPECT_EQ(other.max_tiles, -1);
  }
}

TEST(ParamTablesTest, CustomAttributesConvertThroughIndexMap) {
  Layer layer("roads");
  layer.resources.CreateFromTable(LayerParamTable());
  auto custom = [](const char* name, int64_t index, ValueType type) {
    CustomAttribute c;
    c.name = name;
    c.entry.index = index;
    c.entry.value.type = type;
    return c;
  };
  std::vector<CustomAttribute>& customs = layer.record.attributes.custom_attributes;
  customs = {custom("Width3", 3, ValueType::kDouble), custom("Name0", 0, ValueType::kString),
             custom("Neg", -2, ValueType::kDouble), custom("Unmapped", 5, ValueType::kGeo)};
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
