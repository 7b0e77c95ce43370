// Attribute conditions: parsing, matching against a feature, wildcards.
#include "map_server/vector/attr_condition.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

#include "map_server/vector/attr_eval_state.h"
#include "map_server/vector/attr_match.h"
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
      {"@1>5 and @2<3", false, {"@1>[5]"}, {bool_error, "Error:   Syntax error at:: and @2<3"}},
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

  struct Case {
    std::string text;
    bool ok;
    std::string name;
    Texts shape;
  } cases[] = {{"Roads", true, "Roads", {}},
               {"Roads  \t@1==2 || @2==3", true, "Roads", {"@1==[2]", "@2==[3]"}},
               {"@1==2", true, "", {"@1==[2]"}},
               {"Big Roads @1=2", false, "Big Roads", {}}};
  for (const Case& c : cases) {
    MessageCapture capture;
    AttrConditionList split;
    std::string name = "old";
    EXPECT_EQ(SplitNameAndConditions(c.text, &name, split), c.ok) << c.text;
    EXPECT_EQ(name, c.name);
    EXPECT_EQ(Shape(split), c.shape);
  }
  std::optional<AttrConditionList> none;
  std::string name;
  ASSERT_TRUE(SplitNameAndConditions("Rivers", &name, none));
  EXPECT_FALSE(none.has_value());  // without "@" no list is created
}

// One feature with attributes 0 S "Main St", 1 D 1500, 2 D NaN, 3 G, 4 S
// absent, 6 D 1500; its file's largest number is 8 (5, 7 and 8 are missing).
struct Fixture {
  Fixture() {
    data.AddFeature(test::MakePolygon(
        0, {{0, 0}, {1, 1}},
        {{0, TypedValue::String("Main St")},
         {1, TypedValue::Double(1500)},
         {2, TypedValue::Double(std::numeric_limits<double>::quiet_NaN())},
         {3, TypedValue::Geo(1, 2, 3)},
         {4, TypedValue::String(std::nullopt)},
         {6, TypedValue::Double(1500)}}));
    data.AddFeature(test::MakeMarker(0, 0, 0, std::nullopt, {{8, TypedValue::Double(1)}}));
    context.feature = data.features[0].get();
    context.data = &data;
    context.layer_name = "roads";
  }
  VectorData data;
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

}  // namespace
}  // namespace vmp
