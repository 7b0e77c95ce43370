#include "map_server/vector/attr_match.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "map_server/vector/attr_eval_state.h"
#include "tests/support/message_capture.h"
#include "tests/vector/tvf_test_support.h"

namespace vmp {
namespace {

using test::MessageCapture;

// One feature with attributes 0 S "Main St", 1 D 1500, 2 D NaN, 3 G, 4 S
// absent, 6 D 1500; its file's largest number is 8 (attribute 5, 7 and 8
// are missing).
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
  bool Match(const std::string& text) {
    AttrConditionList list;
    EXPECT_TRUE(ParseAttrCondition(text, list)) << text;
    return MatchAttrConditions(list, context);
  }
  VectorData data;
  FeatureContext context;
};

struct MatchCase {
  const char* text;
  bool match;
  std::vector<std::string> messages;
};

void RunCases(const std::vector<MatchCase>& cases) {
  for (const MatchCase& c : cases) {
    SCOPED_TRACE(c.text);
    ResetAttrConditionMessages();
    MessageCapture capture;
    Fixture f;
    EXPECT_EQ(f.Match(c.text), c.match);
    EXPECT_EQ(capture.Texts(), c.messages);
  }
}

TEST(AttrMatchTest, StringConditions) {
  RunCases({
      {"@0==\"Main St\"", true, {}},
      {"@0==Main*", true, {}},
      {"@0==main*", false, {}},
      {"@0==M?in?St", true, {}},
      {"@0==*St", true, {}},
      {"@0==*", true, {}},
      {"@0==Main", false, {}},
      {"@0==\"Main St?\"", false, {}},
      {"@0!=Main*", false, {}},
      {"@0!=Elm*", true, {}},
      {"@4==\"\"", true, {}},      // an absent string counts as empty
      {"@4==?", false, {}},
      {"@0==@4", true, {}},        // an absent pattern matches everything
      {"@0!=@4", false, {}},
      {"@0==@0", true, {}},
      {"@0>Main", false, {"Error: Skipping invalid condition for S-attribute.: roads"}},
  });
}

TEST(AttrMatchTest, DoubleConditions) {
  RunCases({
      {"@1>=1000 && @1<2000", true, {}},
      {"@1>=1000 && @1<1500", false, {}},
      {"@1<10 || @1>100", true, {}},
      {"@1<10 || @1>2000", false, {}},
      {"@1==1500", true, {}},
      {"@1==1.5e3", true, {}},
      {"@1!=1500", false, {}},
      {"@1>1500", false, {}},
      {"@1<=1500", true, {}},
      {"@1>=1000@1<2000", true, {}},  // one condition, value read as 1000
      {"@1==@6", true, {}},
      {"@1<@6", false, {}},
      {"@2==@2", false, {}},  // NaN equals nothing
      {"@2!=@2", true, {}},
      {"@2>0 || @2<=0", false, {}},
      {"@2!=1", true, {}},
      {"@1==abc", false, {"Error: Invalid D-value in attribute condition.: abc"}},
      {"@1!=abc", false, {"Error: Invalid D-value in attribute condition.: abc"}},
  });
}

TEST(AttrMatchTest, MissingAttributesAndMismatches) {
  RunCases({
      {"@5!=5", true, {}},  // missing within the file's numbers
      {"@5==5", false, {}},
      {"@5>5", false, {}},
      {"@20!=5", true, {}},  // beyond the file, no layer custom attributes
      {"@1!=@5", true, {}},
      {"@1==@5", false, {}},
      {"@0==@1", false, {"Error: Skipping condition with attribute types mismatch: roads"}},
      {"@3==1", false, {"Error: Skipping unsupported attr. condition for G-attribute: roads"}},
      {"@-1==5", false, {"Error: Negative attribute index in attribute condition: roads"}},
      {"@-1!=5", true, {"Error: Negative attribute index in attribute condition: roads"}},
      {"@5!=1 && @0==Main*", true, {}},
      {"@5==1 && @3==1", false, {}},  // stops at the first condition that fails
  });
}

TEST(AttrMatchTest, MissingOrEmptyListNeverMatches) {
  Fixture f;
  AttrConditionList empty;
  std::optional<AttrConditionList> none;
  EXPECT_FALSE(MatchAttrConditions(empty, f.context));
  EXPECT_FALSE(MatchAttrConditions(nullptr, f.context));
  EXPECT_FALSE(MatchAttrConditions(none, f.context));
}

TEST(AttrMatchTest, DValueIsReadOnceAndAnInvalidOneStaysSilent) {
  ResetAttrConditionMessages();
  MessageCapture capture;
  Fixture f;
  AttrConditionList list;
  ASSERT_TRUE(ParseAttrCondition("@1>=abc || @1>=1000", list));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(MatchAttrConditions(list, f.context));
  EXPECT_EQ(capture.Count("Invalid D-value"), 1u);
  const AttrCondition& bad = list.chains[0].conditions[0];
  const AttrCondition& good = list.chains[1].conditions[0];
  EXPECT_EQ(bad.value_state, ValueState::kInvalid);
  EXPECT_EQ(good.value_state, ValueState::kRead);
  EXPECT_EQ(good.parsed_value, 1000);
}

TEST(AttrMatchTest, AtMostFiveMessagesUntilReset) {
  ResetAttrConditionMessages();
  MessageCapture capture;
  Fixture f;
  AttrConditionList list;
  ASSERT_TRUE(ParseAttrCondition("@0==@1 || @3==1 || @0>x || @-2==1", list));
  for (int i = 0; i < 4; ++i) EXPECT_FALSE(MatchAttrConditions(list, f.context));
  EXPECT_EQ(capture.Texts().size(), 5u);
  EXPECT_EQ(AttrEval().messages_given, AttrEvalState::kMessageLimit);
  ResetAttrConditionMessages();
  EXPECT_FALSE(MatchAttrConditions(list, f.context));
  EXPECT_EQ(capture.Texts().size(), 9u);
}

TEST(AttrMatchTest, WildcardMatch) {
  struct Case {
    const char* pattern;
    const char* text;
    bool match;
  } cases[] = {
      {"", "", true},          {"", "a", false},       {"*", "", true},
      {"?", "", false},        {"a*b*c", "aXbYc", true}, {"a*b*c", "aXbYcZ", false},
      {"*a", "bbba", true},    {"*a", "bbab", false},  {"a?c", "abc", true},
      {"a?c", "ac", false},    {"**", "abc", true},    {"*ab*ab", "xabyabab", true},
      {"*?*?", "a", false},    {"A*", "abc", false},   {"a*", "abc", true},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(WildcardMatch(c.pattern, c.text), c.match) << c.pattern << " / " << c.text;
  }
  // Long inputs stay fast (no exponential backtracking).
  std::string text(20000, 'a');
  EXPECT_FALSE(WildcardMatch("*a*a*a*a*a*b", text));
}

}  // namespace
}  // namespace vmp
