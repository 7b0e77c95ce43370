#include "map_server/vector/attr_condition.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using test::MessageCapture;

// The shape of a parsed list: one string per chain, each condition written
// back as "@first op right" (right: "@n" or the value text in brackets).
std::vector<std::string> Shape(const AttrConditionList& list) {
  static const char* const kOps[] = {"?", "==", "!=", ">", ">=", "<", "<="};
  std::vector<std::string> chains;
  for (const AttrChain& chain : list.chains) {
    std::string text;
    for (const AttrCondition& c : chain.conditions) {
      if (!text.empty()) text += " & ";
      text += '@';
      text += std::to_string(c.first_index);
      text += kOps[static_cast<int>(c.op)];
      if (c.right_is_attribute) {
        text += '@';
        text += std::to_string(c.second_index);
      } else {
        text += '[';
        text += c.value_text;
        text += ']';
      }
    }
    chains.push_back(text);
  }
  return chains;
}

struct ParseCase {
  const char* name;
  std::string text;
  bool ok;
  std::vector<std::string> shape;
  std::vector<std::string> messages;
};

TEST(AttrConditionTest, Parse) {
  const std::string long_value(1100, 'v');
  const ParseCase cases[] = {
      {"empty", "", true, {}, {}},
      {"blank", " \t\r\n", true, {}, {}},
      {"one condition", "@1==5", true, {"@1==[5]"}, {}},
      {"all operators", "@1==a && @1!=b && @1>c && @1>=d && @1<e && @1<=f", true,
       {"@1==[a] & @1!=[b] & @1>[c] & @1>=[d] & @1<[e] & @1<=[f]"}, {}},
      {"and then or", "@1>=1000 && @1<2000 || @3==x", true, {"@1>=[1000] & @1<[2000]", "@3==[x]"}, {}},
      {"or chains", "@1<10 ||@1>100", true, {"@1<[10]", "@1>[100]"}, {}},
      {"bare value swallows ||", "@1<10||@1>100", true, {"@1<[10||@1>100]"}, {}},
      {"white space between tokens", " @ 4 \t<=\n7 ", true, {"@4<=[7]"}, {}},
      {"bare value runs to white space", "@1>=1000@1<2000", true, {"@1>=[1000@1<2000]"}, {}},
      {"bare value keeps & and |", "@1==a&&b", true, {"@1==[a&&b]"}, {}},
      {"quoted value", "@2==\"Main St\"", true, {"@2==[Main St]"}, {}},
      {"escapes", "@2==\"a\\tb\\\"c\\\\d\\qe\\n\"", true, {"@2==[a\tb\"c\\dqe\n]"}, {}},
      {"empty quoted value", "@2==\"\"", true, {"@2==[]"}, {}},
      {"quoted value then and", "@2==\"x y\"&&@3!=@4", true, {"@2==[x y] & @3!=@4"}, {}},
      {"signed indices", "@-2==@+3", true, {"@-2==@3"}, {}},
      {"trailing boolean op", "@1==5 &&", true, {"@1==[5]"}, {}},
      {"long bare value is cut", "@1==" + long_value, true, {"@1==[" + long_value.substr(0, 1024) + "]"},
       {"Warning: String is too long, truncated!"}},
      {"long quoted value is cut", "@1==\"" + long_value + "\" || @2==y", true,
       {"@1==[" + long_value.substr(0, 1024) + "]", "@2==[y]"},
       {"Warning: String is too long, truncated!"}},
      {"no @", "1==5", false, {},
       {"Error: Attribute condition must start with @ char!: 1==5"}},
      {"no first index", "@x==5", false, {},
       {"Error: Invalid first attribute index in attribute condition: @x==5"}},
      {"lone =", "@1=5", false, {},
       {"Error: Invalid condition op in attribute condition", "Error:   Syntax error at:: =5"}},
      {"lone !", "@1 ! = 5", false, {},
       {"Error: Invalid condition op in attribute condition", "Error:   Syntax error at:: ! = 5"}},
      {"no second index", "@1==@x", false, {},
       {"Error: Invalid second attribute index in attribute condition: @1==@x"}},
      {"no value", "@1== ", false, {},
       {"Error: Invalid condition value in attribute condition: @1== "}},
      {"unterminated quote", "@1==\"abc", false, {},
       {"Error: Unterminated quote character in a quoted string",
        "Error: Invalid condition value in attribute condition: @1==\"abc"}},
      {"escape at the end", "@1==\"abc\\", false, {},
       {"Error: Unterminated quote character in a quoted string",
        "Error: Invalid condition value in attribute condition: @1==\"abc\\"}},
      {"word as boolean op keeps the first condition", "@1>5 and @2<3", false, {"@1>[5]"},
       {"Error: Invalid boolean op in attribute condition",
        "Error:   Syntax error at:: and @2<3"}},
      {"single &", "@1>5 & @2<3", false, {"@1>[5]"},
       {"Error: Invalid boolean op in attribute condition", "Error:   Syntax error at:: & @2<3"}},
      {"failure after an or keeps both sides", "@1>5 || @2<3 && 4", false, {"@1>[5]", "@2<[3]"},
       {"Error: Attribute condition must start with @ char!: @1>5 || @2<3 && 4"}},
  };
  for (const ParseCase& c : cases) {
    SCOPED_TRACE(c.name);
    MessageCapture capture;
    AttrConditionList list;
    EXPECT_EQ(ParseAttrCondition(c.text, list), c.ok);
    EXPECT_EQ(Shape(list), c.shape);
    EXPECT_EQ(capture.Texts(), c.messages);
  }
}

TEST(AttrConditionTest, CallsAddChainsAndCanContinueOne) {
  AttrConditionList list;
  ASSERT_TRUE(ParseAttrCondition("@1==a", list));
  ASSERT_TRUE(ParseAttrCondition("@2==b || @3==c", list));
  ASSERT_TRUE(ParseAttrCondition("@4==d || @5==e", list, &list.chains[0]));
  EXPECT_EQ(Shape(list), (std::vector<std::string>{"@1==[a] & @4==[d]", "@2==[b]", "@3==[c]", "@5==[e]"}));

  std::optional<AttrConditionList> missing;
  ASSERT_TRUE(ParseAttrCondition("  ", missing));
  ASSERT_TRUE(missing.has_value());  // created, even though nothing was added
  EXPECT_TRUE(missing->empty());
}

TEST(AttrConditionTest, SplitNameAndConditions) {
  struct Case {
    std::string text;
    bool ok;
    std::string name;
    std::vector<std::string> shape;
  } cases[] = {
      {"Roads", true, "Roads", {}},
      {"Roads  \t@1==2 || @2==3", true, "Roads", {"@1==[2]", "@2==[3]"}},
      {"@1==2", true, "", {"@1==[2]"}},
      {"Big Roads @1=2", false, "Big Roads", {}},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    AttrConditionList list;
    std::string name = "old";
    EXPECT_EQ(SplitNameAndConditions(c.text, &name, list), c.ok) << c.text;
    EXPECT_EQ(name, c.name);
    EXPECT_EQ(Shape(list), c.shape);
  }
  std::optional<AttrConditionList> none;
  std::string name;
  ASSERT_TRUE(SplitNameAndConditions("Rivers", &name, none));
  EXPECT_FALSE(none.has_value());  // without "@" no list is created
}

}  // namespace
}  // namespace vmp
