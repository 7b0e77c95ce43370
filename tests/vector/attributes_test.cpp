// Attribute conditions (parsing, matching, wildcards) and the custom
// attributes that attribute maps compute.
#include "map_server/vector/attr_condition.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "map_server/vector/attr_eval_state.h"
#include "map_server/vector/attr_match.h"
#include "map_server/vector/attribute_map.h"
#include "tests/support/message_capture.h"
#include "tests/vector/tvf_test_support.h"

namespace vmp {
namespace {

using test::MessageCapture;
using Texts = std::vector<std::string>;

// The shape of a parsed list: one string per chain, each condition written
// back as "@first op right" (right: "@n" or the value text in brackets).
Texts Shape(const AttrConditionList& list) {
  static const char* const kOps[] = {"?", "==", "!=", ">", ">=", "<", "<="};
  Texts chains;
  for (const AttrChain& chain : list.chains) {
    std::string text;
    for (const AttrCondition& c : chain.conditions) {
      text.append(text.empty() ? "@" : " & @").append(std::to_string(c.first_index));
      text.append(kOps[static_cast<int>(c.op)]);
      if (c.right_is_attribute) text.append("@").append(std::to_string(c.second_index));
      else text.append("[").append(c.value_text).append("]");
    }
    chains.push_back(text);
  }
  return chains;
}

TEST(AttrConditionTest, Parse) {
  const std::string long_value(1100, 'v'), cut = "[" + long_value.substr(0, 1024) + "]";
  const std::string op_error = "Error: Invalid condition op in attribute condition";
  const std::string bool_error = "Error: Invalid boolean op in attribute condition";
  const std::string quote_error = "Error: Unterminated quote character in a quoted string";
  struct Case { std::string text; bool ok; Texts shape, messages; } cases[] = {
      // clang-format off
      {" \t\r\n", true, {}, {}},
      {"@1==a && @1!=b && @1>c && @1>=d && @1<e && @1<=f", true,
       {"@1==[a] & @1!=[b] & @1>[c] & @1>=[d] & @1<[e] & @1<=[f]"}, {}},
      {"@1>=1000 && @1<2000 || @3==x", true, {"@1>=[1000] & @1<[2000]", "@3==[x]"}, {}},
      {"@1<10||@1>100", true, {"@1<[10||@1>100]"}, {}},      // a bare value runs to white space
      {"@1>=1000@1<2000", true, {"@1>=[1000@1<2000]"}, {}},
      {"@1==a&&b", true, {"@1==[a&&b]"}, {}},
      {" @ 4 \t<=\n7 ", true, {"@4<=[7]"}, {}},
      {"@2==\"Main St\"", true, {"@2==[Main St]"}, {}},
      {"@2==\"a\\tb\\\"c\\\\d\\qe\\n\"", true, {"@2==[a\tb\"c\\dqe\n]"}, {}},
      {"@2==\"\"", true, {"@2==[]"}, {}},
      {"@2==\"x y\"&&@3!=@4", true, {"@2==[x y] & @3!=@4"}, {}},
      {"@-2==@+3", true, {"@-2==@3"}, {}},
      {"@1==5 &&", true, {"@1==[5]"}, {}},                    // a trailing boolean op
      {"@1==" + long_value, true, {"@1==" + cut}, {"Warning: String is too long, truncated!"}},
      {"@1==\"" + long_value + "\" || @2==y", true, {"@1==" + cut, "@2==[y]"},
       {"Warning: String is too long, truncated!"}},
      {"1==5", false, {}, {"Error: Attribute condition must start with @ char!: 1==5"}},
      {"@x==5", false, {}, {"Error: Invalid first attribute index in attribute condition: @x==5"}},
      {"@1=5", false, {}, {op_error, "Error:   Syntax error at:: =5"}},
      {"@1 ! = 5", false, {}, {op_error, "Error:   Syntax error at:: ! = 5"}},
      {"@1==@x", false, {}, {"Error: Invalid second attribute index in attribute condition: @1==@x"}},
      {"@1== ", false, {}, {"Error: Invalid condition value in attribute condition: @1== "}},
      {"@1==\"abc", false, {}, {quote_error, "Error: Invalid condition value in attribute condition: @1==\"abc"}},
      {"@1==\"abc\\", false, {}, {quote_error, "Error: Invalid condition value in attribute condition: @1==\"abc\\"}},
      // A failure keeps the conditions read before it.
      {"@1>5 & @2<3", false, {"@1>[5]"}, {bool_error, "Error:   Syntax error at:: & @2<3"}},
      {"@1>5 || @2<3 && 4", false, {"@1>[5]", "@2<[3]"},
       {"Error: Attribute condition must start with @ char!: @1>5 || @2<3 && 4"}},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 40));
    MessageCapture capture;
    AttrConditionList list;
    EXPECT_EQ(ParseAttrCondition(c.text, list), c.ok);
    EXPECT_EQ(Shape(list), c.shape);
    EXPECT_EQ(capture.Texts(), c.messages);
  }
}

TEST(AttrConditionTest, ChainsNamesAndOptionalLists) {
  AttrConditionList list;
  ASSERT_TRUE(ParseAttrCondition("@1==a", list));
  ASSERT_TRUE(ParseAttrCondition("@2==b || @3==c", list));
  ASSERT_TRUE(ParseAttrCondition("@4==d || @5==e", list, &list.chains[0]));  // continues chain 0
  EXPECT_EQ(Shape(list), (Texts{"@1==[a] & @4==[d]", "@2==[b]", "@3==[c]", "@5==[e]"}));
  std::optional<AttrConditionList> created;
  ASSERT_TRUE(ParseAttrCondition("  ", created));
  EXPECT_TRUE(created.has_value() && created->empty());  // created, even though nothing was added
  // A name before the conditions, its trailing blanks dropped.
  for (auto [text, name, shape] : {std::tuple<std::string, std::string, Texts>{
                                       "Roads  \t@1==2 || @2==3", "Roads", {"@1==[2]", "@2==[3]"}},
                                   {"@1==2", "", {"@1==[2]"}}}) {
    AttrConditionList split;
    std::string split_name = "old";
    EXPECT_TRUE(SplitNameAndConditions(text, &split_name, split)) << text;
    EXPECT_EQ(split_name, name);
    EXPECT_EQ(Shape(split), shape);
  }
}

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

// A layer "roads" with custom attributes 100 (S), 101 (D), 102 (D) over a
// polygon (extent 2) with attributes 0 S "Main St", 1 D 1500, 2 D NaN, 3 G,
// 4 S absent, 6 D 1500, and a marker with 0 S "Elm St", 8 D 1: the file's
// largest attribute number is 8 (5 and 7 are missing).
struct Fixture {
  Fixture() {
    data.AddFeature(test::MakePolygon(
        0, {{0, 0}, {2, 1}},
        {{0, TypedValue::String("Main St")},
         {1, TypedValue::Double(1500)},
         {2, TypedValue::Double(std::numeric_limits<double>::quiet_NaN())},
         {3, TypedValue::Geo(1, 2, 3)},
         {4, TypedValue::String(std::nullopt)},
         {6, TypedValue::Double(1500)}}));
    data.AddFeature(test::MakeMarker(
        0, 4, 5, std::nullopt, {{0, TypedValue::String("Elm St")}, {8, TypedValue::Double(1)}}));
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

TEST(AttrMatchTest, Conditions) {
  const std::string mismatch = "Error: Skipping condition with attribute types mismatch: roads";
  const std::string negative = "Error: Negative attribute index in attribute condition: roads";
  const std::string bad_value = "Error: Invalid D-value in attribute condition.: abc";
  struct Case { const char* text; bool match; Texts messages; } cases[] = {
      // clang-format off
      {"@0==\"Main St\"", true, {}},  {"@0==Main*", true, {}},      {"@0==main*", false, {}},
      {"@0==M?in?St", true, {}},      {"@0==Main", false, {}},      {"@0!=Main*", false, {}},
      {"@0!=Elm*", true, {}},
      {"@4==\"\"", true, {}},         {"@4==?", false, {}},         // an absent string is empty
      {"@0==@4", true, {}},           {"@0!=@4", false, {}},        // an absent pattern matches all
      {"@0==@0", true, {}},
      {"@0>Main", false, {"Error: Skipping invalid condition for S-attribute.: roads"}},
      {"@1>=1000 && @1<2000", true, {}},  {"@1>=1000 && @1<1500", false, {}},
      {"@1<10 || @1>100", true, {}},      {"@1<10 || @1>2000", false, {}},
      {"@1==1.5e3", true, {}},   {"@1!=1500", false, {}},   {"@1>1500", false, {}},
      {"@1<=1500", true, {}},    {"@1==@6", true, {}},      {"@1<@6", false, {}},
      {"@1>=1000@1<2000", true, {}},  // one condition, its value read as 1000
      {"@2==@2", false, {}},     {"@2!=@2", true, {}},      {"@2>0 || @2<=0", false, {}},  // NaN
      {"@1==abc", false, {bad_value}},  {"@1!=abc", false, {bad_value}},
      // Missing attributes: only "!=" holds.
      {"@5!=5", true, {}},       {"@5==5", false, {}},      {"@5>5", false, {}},
      {"@20!=5", true, {}},      {"@1!=@5", true, {}},      {"@1==@5", false, {}},
      {"@0==@1", false, {mismatch}},
      {"@3==1", false, {"Error: Skipping unsupported attr. condition for G-attribute: roads"}},
      {"@-1==5", false, {negative}},  {"@-1!=5", true, {negative}},
      {"@5!=1 && @0==Main*", true, {}},
      {"@5==1 && @3==1", false, {}},  // stops at the first condition that fails
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    ResetAttrConditionMessages();
    MessageCapture capture;
    Fixture f;
    AttrConditionList list;
    ASSERT_TRUE(ParseAttrCondition(c.text, list));
    EXPECT_EQ(MatchAttrConditions(list, f.context), c.match);
    EXPECT_EQ(capture.Texts(), c.messages);
  }
  Fixture f;  // a missing or empty list never matches
  EXPECT_FALSE(MatchAttrConditions(AttrConditionList{}, f.context));
  EXPECT_FALSE(MatchAttrConditions(nullptr, f.context));
  EXPECT_FALSE(MatchAttrConditions(std::optional<AttrConditionList>{}, f.context));
}

TEST(AttrMatchTest, ValuesReadOnceAndAtMostFiveMessagesUntilReset) {
  ResetAttrConditionMessages();
  MessageCapture capture;
  Fixture f;
  AttrConditionList list;
  ASSERT_TRUE(ParseAttrCondition("@1>=abc || @1>=1000", list));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(MatchAttrConditions(list, f.context));
  EXPECT_EQ(capture.Count("Invalid D-value"), 1u);
  EXPECT_EQ(list.chains[0].conditions[0].value_state, ValueState::kInvalid);
  EXPECT_EQ(list.chains[1].conditions[0].value_state, ValueState::kRead);
  EXPECT_EQ(list.chains[1].conditions[0].parsed_value, 1000);

  ResetAttrConditionMessages();
  capture.Clear();
  AttrConditionList noisy;  // four messages a match
  ASSERT_TRUE(ParseAttrCondition("@0==@1 || @3==1 || @0>x || @-2==1", noisy));
  for (int i = 0; i < 4; ++i) EXPECT_FALSE(MatchAttrConditions(noisy, f.context));
  EXPECT_EQ(capture.Texts().size(), 5u);
  EXPECT_EQ(AttrEval().messages_given, AttrEvalState::kMessageLimit);
  ResetAttrConditionMessages();
  EXPECT_FALSE(MatchAttrConditions(noisy, f.context));
  EXPECT_EQ(capture.Texts().size(), 9u);
}

TEST(AttrMatchTest, WildcardMatch) {
  struct Case {
    const char *pattern, *text;
    bool match;
  } cases[] = {{"", "", true},          {"", "a", false},          {"*", "", true},
               {"?", "", false},        {"a*b*c", "aXbYc", true},  {"a*b*c", "aXbYcZ", false},
               {"*a", "bbba", true},    {"*a", "bbab", false},     {"a?c", "abc", true},
               {"a?c", "ac", false},    {"**", "abc", true},       {"*ab*ab", "xabyabab", true},
               {"*?*?", "a", false},    {"A*", "abc", false},      {"a*", "abc", true}};
  for (const Case& c : cases) {
    EXPECT_EQ(WildcardMatch(c.pattern, c.text), c.match) << c.pattern << " / " << c.text;
  }
  EXPECT_FALSE(WildcardMatch("*a*a*a*a*a*b", std::string(20000, 'a')));  // no exponential search
}

// (Refusals that configuration files show are checked with their readers.)
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
      {s_attr, {{"a", "TextFont@size", "t", "ABS", kZoomTable}}, {}, false, 1, 0,
       {"Error: Invalid attribute map input: TextFont@size"}},
      {s_attr, {{"a", "TextFont@-1", "t", "ABS", kZoomTable}}, {}, false, 1, 0,
       {"Error: Invalid attribute map input: TextFont@-1"}},
      {{{100, "a", "VMP_D"}}, {{"a", "TextFont", "t.thr", "ABS", kZoomTable}}, {}, false, 1, 0,
       {"Error: Threshold output type does not match type of custom attribute: t.thr"}},
      {s_attr, {{"a", "TextFont", "t.thr", "ABS", {}}}, {}, false, 1, 0,
       {"Warning: Attribute map has no thresholds: t.thr"}},
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
  Fixture f;
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
  EXPECT_EQ(SelectThreshold(kNameTable, TypedValue::String("Oak Rd"))->output.numbers[0], 3);
  EXPECT_EQ(SelectThreshold(kColorTable, TypedValue::Geo(0, 0, 0))->output.numbers[0], 20);
  EXPECT_EQ(SelectThreshold(kColorTable, TypedValue::Geo(4, 4, 4))->output.numbers[0], 30);
  EXPECT_EQ(SelectThreshold({S2D(std::nullopt, 5), S2D("x", 6)}, TypedValue::String("q"))
                ->output.numbers[0], 5);  // an absent pattern matches everything
  EXPECT_EQ(SelectThreshold({}, TypedValue::Double(1)), nullptr);

  ResetAttrConditionMessages();
  MessageCapture capture;
  ASSERT_TRUE(f.AddMap("size_word", "TextFont@0", "ABS", kZoomTable));  // S input, D table
  EXPECT_EQ(f.Get(100), nullptr);
  f.context.feature = f.data.features[1].get();
  EXPECT_EQ(f.Number(101), 2);     // "Elm St" matches "*St"
  EXPECT_EQ(f.Get(102), nullptr);  // the marker lacks attribute 3: no value
  EXPECT_EQ(capture.Texts(),
            Texts{"Error: Threshold input type does not match type of attribute!: roads"});
}

TEST(AttributeMapTest, RandomAndRelativeInputs) {
  Fixture f;  // random numbers stay below the last entry's input
  ASSERT_TRUE(f.AddMap("size_word", "MarkerIconFile@RANDOM", "ABS",
                       {D2S(0, "a"), D2S(1, "b"), D2S(2, "c"), D2S(3, "d")}));
  std::set<std::string> seen;
  for (int i = 0; i < 300; ++i) seen.insert(f.Word(100));
  EXPECT_EQ(seen, (std::set<std::string>{"a", "b", "c"}));
  // Relative: zoom times the feature's extent, randomness fixed by the feature.
  ASSERT_TRUE(f.AddMap("size_word", "MinPixelSize", "REL", kZoomTable));
  f.context.zoom = 3;
  EXPECT_EQ(f.Word(100), "mid");
  f.context.feature = f.data.features[1].get();  // a marker has no extent
  EXPECT_EQ(f.Word(100), "small");
  ASSERT_TRUE(f.AddMap("size_word", "MarkerIconFile@RANDOM", "REL",
                       {D2S(0, "a"), D2S(1, "b"), D2S(2, "c"), D2S(1000, "d")}));
  const std::string first = f.Word(100);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(f.Word(100), first);
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
    Fixture f;
    f.context = {.layer_name = "roads", .layer = &f.layer, .vector_layer = false, .zoom = 7};
    ASSERT_TRUE(f.AddMap("size_word", c.resource, c.kind, kZoomTable));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(f.Get(100) != nullptr, c.gives_value);
    EXPECT_EQ(f.layer.attr_maps[0].failed, !c.gives_value);
    EXPECT_EQ(capture.Texts(), c.messages);  // a refused map reports once
  }
}

TEST(AttributeMapTest, LookupRules) {
  Fixture f;
  ASSERT_TRUE(f.AddMap("size_word", "TextFont", "ABS", kZoomTable));
  ASSERT_TRUE(AddCustomAttribute(f.layer, {5, "shadowed", "VMP_D"}, "roads"));
  f.context.zoom = 20;
  // Without computing, the custom attribute keeps its current value.
  EXPECT_EQ(*GetFeatureAttribute(f.context, 100, true, false)->value.text, "");
  EXPECT_EQ(f.Word(100), "big");
  f.context.zoom = 0;
  EXPECT_EQ(*GetFeatureAttribute(f.context, 100, true, false)->value.text, "big");
  EXPECT_EQ(GetFeatureAttribute(f.context, 100, false, true), nullptr);  // custom not allowed
  EXPECT_EQ(f.Get(5), nullptr);   // numbers within the file are the feature's own
  EXPECT_EQ(f.Get(99), nullptr);  // no such custom attribute
  EXPECT_EQ(f.Number(1), 1500);
}

}  // namespace
}  // namespace vmp
