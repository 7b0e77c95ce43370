#include "map_server/vector/attribute_map.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "map_server/vector/attr_eval_state.h"
#include "tests/support/message_capture.h"
#include "tests/vector/tvf_test_support.h"

namespace vmp {
namespace {

using test::MessageCapture;
using Texts = std::vector<std::string>;

Threshold D2S(double in, const char* out) {
  return {TypedValue::Double(in), TypedValue::String(out)};
}
Threshold S2D(std::optional<std::string> in, double out) {
  return {TypedValue::String(std::move(in)), TypedValue::Double(out)};
}
Threshold G2D(double a, double b, double c, double out) {
  return {TypedValue::Geo(a, b, c), TypedValue::Double(out)};
}

const ThresholdTable kZoomTable = {D2S(0, "small"), D2S(5, "mid"), D2S(10, "big")};
const ThresholdTable kNameTable = {S2D("Main*", 1), S2D("*St", 2), S2D("Main St", 3)};
const ThresholdTable kColorTable = {G2D(1, 2, 3, 10), G2D(0, 0, 0, 20), G2D(1, 2, 3, 30)};

// A layer with custom attributes 100 (S), 101 (D), 102 (D) over a polygon
// (0 "Main St", 1 7, 3 G(1, 2, 3); extent 2) and a marker (0 "Elm St"): the
// file's largest attribute number is 3.
struct LayerFixture {
  LayerFixture() {
    data.AddFeature(test::MakePolygon(0, {{0, 0}, {2, 1}},
                                      {{0, TypedValue::String("Main St")},
                                       {1, TypedValue::Double(7)},
                                       {3, TypedValue::Geo(1, 2, 3)}}));
    data.AddFeature(test::MakeMarker(0, 4, 5, std::nullopt, {{0, TypedValue::String("Elm St")}}));
    for (auto f : {CustomAttributeFields{100, "size_word", "VMP_S"},
                   CustomAttributeFields{101, "name_class", "VMP_D"},
                   CustomAttributeFields{102, "color_class", "VMP_D"}}) {
      EXPECT_TRUE(AddCustomAttribute(layer, f, "roads"));
    }
    context = {.feature = data.features[0].get(), .data = &data, .layer_name = "roads",
               .layer = &layer};
  }
  bool AddMap(const std::string& attribute, const std::string& resource, const char* kind,
              ThresholdTable table) {
    return AddAttributeMap(layer, {attribute, resource, "t.thr", kind, std::move(table)}, false,
                           "roads");
  }
  const Attribute* Get(int64_t index) { return GetFeatureAttribute(context, index, true, true); }
  std::string Word(int64_t index) {
    const Attribute* a = Get(index);
    return a != nullptr && a->value.text ? *a->value.text : "<none>";
  }
  double Number(int64_t index) {
    const Attribute* a = Get(index);
    return a != nullptr ? a->value.numbers[0] : -1;
  }

  VectorData data;
  LayerAttributes layer;
  FeatureContext context;
};

TEST(AttributeMapTest, BuilderRefusesBadLines) {
  const ThresholdTable colours = {{TypedValue::Geo(0, 0, 0), TypedValue::Geo(1, 1, 1)}};
  const std::vector<CustomAttributeFields> s_attr = {{100, "a", "VMP_S"}};
  struct Case {
    std::vector<CustomAttributeFields> custom;
    std::vector<AttributeMapFields> maps, pixel_maps;
    bool ok;
    size_t custom_kept, maps_kept;
    Texts messages;
  } cases[] = {
      // clang-format off
      {s_attr, {{"a", "TextFont@ZOOM", "t", "ABS", kZoomTable}},
       {{"PixelColor", "PixelColor", "p", "ABS", colours}}, true, 1, 1, {}},
      {{{100, "a", "VMP_X"}}, {}, {}, false, 0, 0, {"Error: Invalid custom attribute type: VMP_X"}},
      {{{-4, "a", "VMP_D"}}, {}, {}, false, 0, 0, {"Error: Invalid custom attribute index in ConvertConfig.: roads"}},
      {{}, {{"a", "TextFont", "t", "ABS", kZoomTable}}, {}, false, 0, 0,
       {"Error: Invalid attribute name (define custom attrs first): a"}},
      {s_attr, {{"a", "TextFont", "t", "abs", kZoomTable}}, {}, false, 1, 0,
       {"Error: Invalid threshold table type (REL or ABS): abs"}},
      {s_attr, {{"a", "TextFont@size", "t", "ABS", kZoomTable}}, {}, false, 1, 0,
       {"Error: Invalid attribute map input: TextFont@size"}},
      {s_attr, {{"a", "TextFont@-1", "t", "ABS", kZoomTable}}, {}, false, 1, 0,
       {"Error: Invalid attribute map input: TextFont@-1"}},
      {{{100, "a", "VMP_D"}}, {{"a", "TextFont", "t.thr", "ABS", kZoomTable}}, {}, false, 1, 0,
       {"Error: Threshold output type does not match type of custom attribute: t.thr"}},
      {s_attr, {{"a", "TextFont", "t.thr", "ABS", {}}}, {}, false, 1, 0,
       {"Warning: Attribute map has no thresholds: t.thr"}},
      {{}, {}, {{"Color", "PixelColor", "p", "ABS", kColorTable}}, false, 0, 0,
       {"Error: Invalid attribute name (PixelColor expected): Color"}},
      {{}, {}, {{"PixelColor", "PixelColor", "p", "REL", kColorTable}}, false, 0, 0,
       {"Error: Only absolute attribute maps are supported for non-vector layers.: roads"}},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.messages.empty() ? "good" : c.messages[0]);
    MessageCapture capture;
    LayerAttributes layer;
    EXPECT_EQ(BuildLayerAttributes(c.custom, c.maps, c.pixel_maps, "roads", &layer), c.ok);
    EXPECT_EQ(layer.custom_attributes.size(), c.custom_kept);
    EXPECT_EQ(layer.attr_maps.size(), c.maps_kept);
    EXPECT_EQ(capture.Texts(), c.messages);
  }
}

TEST(AttributeMapTest, ThresholdSelection) {
  // Numbers: the last entry at or below the input (the first below them all).
  LayerFixture f;
  ASSERT_TRUE(f.AddMap("size_word", "TextFont", "ABS", kZoomTable));
  const std::pair<double, const char*> zooms[] = {{-1, "small"}, {0, "small"}, {4.9, "small"},
                                                  {5, "mid"},    {9, "mid"},   {10, "big"},
                                                  {1e9, "big"}};
  for (auto [zoom, word] : zooms) {
    f.context.zoom = zoom;
    EXPECT_EQ(f.Word(100), word) << zoom;
    AttrConditionList list;  // conditions see the computed value
    ASSERT_TRUE(ParseAttrCondition(std::string("@100==") + word, list));
    EXPECT_TRUE(MatchAttrConditions(list, f.context));
  }
  // Strings: the first pattern that matches, else the last entry; colours:
  // the first equal entry, else the last.
  ASSERT_TRUE(f.AddMap("name_class", "MinZoom@0", "ABS", kNameTable));
  ASSERT_TRUE(f.AddMap("color_class", "LabelEdgeColor@3", "ABS", kColorTable));
  EXPECT_EQ(f.Number(101), 1);  // "Main St" matches "Main*"
  EXPECT_EQ(f.Number(102), 10);
  f.context.feature = f.data.features[1].get();
  EXPECT_EQ(f.Number(101), 2);        // "Elm St" matches "*St"
  EXPECT_EQ(f.Get(102), nullptr);     // the marker lacks attribute 3: no value
  EXPECT_EQ(SelectThreshold(kNameTable, TypedValue::String("Oak Rd"))->output.numbers[0], 3);
  EXPECT_EQ(SelectThreshold(kColorTable, TypedValue::Geo(0, 0, 0))->output.numbers[0], 20);
  EXPECT_EQ(SelectThreshold(kColorTable, TypedValue::Geo(4, 4, 4))->output.numbers[0], 30);
  EXPECT_EQ(SelectThreshold({S2D(std::nullopt, 5), S2D("x", 6)}, TypedValue::String("q"))
                ->output.numbers[0], 5);  // an absent pattern matches everything
  EXPECT_EQ(SelectThreshold({}, TypedValue::Double(1)), nullptr);

  ResetAttrConditionMessages();
  MessageCapture capture;
  LayerFixture g;
  ASSERT_TRUE(g.AddMap("size_word", "TextFont@0", "ABS", kZoomTable));  // S input, D table
  EXPECT_EQ(g.Get(100), nullptr);
  EXPECT_EQ(capture.Texts(),
            Texts{"Error: Threshold input type does not match type of attribute!: roads"});
}

TEST(AttributeMapTest, RandomAndRelativeInputs) {
  LayerFixture f;  // random numbers stay below the last entry's input
  ASSERT_TRUE(f.AddMap("size_word", "MarkerIconFile@RANDOM", "ABS",
                       {D2S(0, "a"), D2S(1, "b"), D2S(2, "c"), D2S(3, "d")}));
  std::set<std::string> seen;
  for (int i = 0; i < 300; ++i) seen.insert(f.Word(100));
  EXPECT_EQ(seen, (std::set<std::string>{"a", "b", "c"}));

  LayerFixture r;  // relative: zoom times the feature's extent, randomness fixed by the feature
  ASSERT_TRUE(r.AddMap("size_word", "MinPixelSize", "REL", kZoomTable));
  r.context.zoom = 3;
  EXPECT_EQ(r.Word(100), "mid");
  r.context.feature = r.data.features[1].get();  // a marker has no extent
  EXPECT_EQ(r.Word(100), "small");
  LayerFixture p;
  ASSERT_TRUE(p.AddMap("size_word", "MarkerIconFile@RANDOM", "REL",
                       {D2S(0, "a"), D2S(1, "b"), D2S(2, "c"), D2S(1000, "d")}));
  const std::string first = p.Word(100);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(p.Word(100), first);
}

TEST(AttributeMapTest, NonVectorLayersTakeOnlyAbsoluteSpecialInputs) {
  const std::string absolute_only =
      "Error: Only absolute attribute maps are supported for non-vector layers.: roads";
  const std::string zoom_only =
      "Error: Only zoom-based attribute maps are supported for non-vector layers.: roads";
  struct Case { const char *resource, *kind; bool gives_value; Texts messages; } cases[] = {
      {"TextFont", "ABS", true, {}},
      {"TextFont@RANDOM", "ABS", true, {}},
      {"TextFont", "REL", false, {absolute_only}},
      {"TextFont@1", "ABS", false, {zoom_only}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.resource + std::string(" ") + c.kind);
    MessageCapture capture;
    LayerFixture f;
    f.context = {.layer_name = "roads", .layer = &f.layer, .vector_layer = false, .zoom = 7};
    ASSERT_TRUE(f.AddMap("size_word", c.resource, c.kind, kZoomTable));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(f.Get(100) != nullptr, c.gives_value);
    EXPECT_EQ(f.layer.attr_maps[0].failed, !c.gives_value);
    EXPECT_EQ(capture.Texts(), c.messages);  // a refused map reports once
  }
}

TEST(AttributeMapTest, LookupRules) {
  LayerFixture f;
  ASSERT_TRUE(f.AddMap("size_word", "TextFont", "ABS", kZoomTable));
  ASSERT_TRUE(AddCustomAttribute(f.layer, {2, "shadowed", "VMP_D"}, "roads"));
  f.context.zoom = 20;
  // Without computing, the custom attribute keeps its current value.
  EXPECT_EQ(*GetFeatureAttribute(f.context, 100, true, false)->value.text, "");
  EXPECT_EQ(f.Word(100), "big");
  f.context.zoom = 0;
  EXPECT_EQ(*GetFeatureAttribute(f.context, 100, true, false)->value.text, "big");
  EXPECT_EQ(GetFeatureAttribute(f.context, 100, false, true), nullptr);  // custom not allowed
  EXPECT_EQ(f.Get(2), nullptr);   // numbers within the file are the feature's own
  EXPECT_EQ(f.Get(99), nullptr);  // no such custom attribute
  EXPECT_EQ(f.Number(1), 7);
}

}  // namespace
}  // namespace vmp
