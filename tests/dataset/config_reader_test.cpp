#include "map_server/dataset/config_reader.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

TEST(ConfigReaderTest, LineRules) {
  const std::string fits = "A=" + std::string(kMaxConfigLine - 2, 'x');
  const std::string cut = "A=" + std::string(2000, 'x');
  const std::string warning = "Warning: Line is too long, truncated!: test.cfg";
  struct Case {
    std::string text;
    Texts lines;
    Texts messages;
  };
  const Case cases[] = {
      {"# comment\n\n   \t\nA=1\r\nB=2", {"A=1", "B=2"}, {}},
      {"   A=1  ", {"A=1  "}, {}},
      {"  # not a comment", {"# not a comment"}, {}},  // only "#" in the first column
      {fits, {fits}, {}},
      // The rest of a long line is dropped, not read as a line of its own.
      {cut + "\nB=2\n", {cut.substr(0, kMaxConfigLine), "B=2"}, {warning}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 40));
    test::MessageCapture capture;
    ConfigContext context{"test.cfg", {}};
    LineReader reader(c.text, context);
    Texts lines;
    std::string_view line;
    while (reader.Next(&line)) lines.emplace_back(line);
    EXPECT_EQ(lines, c.lines);
    EXPECT_EQ(capture.Texts(), c.messages);
  }
}

TEST(ConfigReaderTest, Tokens) {
  const std::string a1024(kMaxConfigToken, 'a');
  struct Case {
    std::string input;
    Texts tokens;
    size_t too_long;  // "String is too long, truncated!" messages
  };
  const Case cases[] = {
      {"roads roads.lif", {"roads", "roads.lif"}, 0},
      {"  ,roads, roads.lif", {"roads", "roads.lif"}, 0},
      {"\"with space, and comma\" next", {"with space, and comma", "next"}, 0},
      {"\"a\\\"b\\\\c\\nd\\te\"", {"a\"b\\c\nd\te"}, 0},
      {"\"unterminated quote", {"unterminated quote"}, 0},
      {"\"\"", {""}, 0},
      {"C:\\data\\x.lif", {"C:\\data\\x.lif"}, 0},  // no escapes outside quotes
      {" , ", {}, 0},
      {a1024 + " next", {a1024, "next"}, 0},
      {a1024 + "b next", {a1024, "next"}, 1},
      {"\"" + a1024 + "bb\"", {a1024}, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input.substr(0, 40));
    test::MessageCapture capture;
    ConfigContext context{"t", {}};
    std::string_view cursor = c.input;
    Texts got;
    std::string token;
    while (ReadToken(&cursor, &token, context)) got.push_back(token);
    EXPECT_EQ(got, c.tokens);
    EXPECT_EQ(capture.Count("String is too long, truncated!"), c.too_long);
  }
}

TEST(ConfigReaderTest, WordsAndNumbers) {
  ConfigContext context{"t", {}};
  std::string value;
  std::string_view cursor = " FILL AND EDGE  ";  // words run to the end of the line
  ASSERT_TRUE(ReadWords(&cursor, &value, context));
  EXPECT_EQ(value, "FILL AND EDGE");
  cursor = "\"ALPHA WHITE OPAQUE\" trailing";
  ASSERT_TRUE(ReadWords(&cursor, &value, context));
  EXPECT_EQ(value, "ALPHA WHITE OPAQUE");
  cursor = "   ";
  EXPECT_FALSE(ReadWords(&cursor, &value, context));

  const std::tuple<const char*, bool, int64_t> integers[] = {
      {"  -7 rest", true, -7}, {"+3", true, 3}, {"5abc", true, 5}, {"abc", false, 0},
      {"-", false, 0},         {"", false, 0},  {"99999999999999999999", true, INT64_MAX}};
  for (const auto& [input, ok, expected] : integers) {
    cursor = input;
    int64_t v = 0;
    EXPECT_EQ(ReadInteger(&cursor, &v), ok) << input;
    if (ok) { EXPECT_EQ(v, expected) << input; }
  }
  cursor = " 1.5, -2e1\t3";
  double v[4];
  EXPECT_EQ(ReadReals(&cursor, v, 4), 3);
  EXPECT_DOUBLE_EQ(v[1], -20.0);
  Rgb color;
  cursor = "0.1 0.2";
  EXPECT_FALSE(ReadColor(&cursor, &color));
  cursor = "0.1,0.2 , 0.3";
  ASSERT_TRUE(ReadColor(&cursor, &color));
  EXPECT_EQ(color, (Rgb{0.1, 0.2, 0.3}));
}

}  // namespace
}  // namespace vmp
