#include "map_server/dataset/config_reader.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

std::vector<std::string> Lines(std::string_view text) {
  ConfigContext context{"test.cfg", {}};
  LineReader reader(text, context);
  std::vector<std::string> out;
  std::string_view line;
  while (reader.Next(&line)) out.emplace_back(line);
  return out;
}

TEST(ConfigReaderTest, LineRules) {
  struct Case {
    const char* text;
    std::vector<std::string> lines;
  };
  const Case cases[] = {
      {"A=1\nB=2", {"A=1", "B=2"}},
      {"# comment\nA=1\n", {"A=1"}},
      {"\n\n   \t\nA=1", {"A=1"}},
      {"   A=1  ", {"A=1  "}},
      {"A=1\r\nB=2\r\n", {"A=1", "B=2"}},
      // Only a "#" in the first column makes a comment.
      {"  # not a comment", {"# not a comment"}},
      {"", {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(Lines(c.text), c.lines);
  }
}

TEST(ConfigReaderTest, OverlongLineIsCutAndReportedOnce) {
  test::MessageCapture capture;
  std::string text = "A=" + std::string(2000, 'x') + "\nB=2\n";
  auto lines = Lines(text);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].size(), kMaxConfigLine);
  EXPECT_EQ(lines[1], "B=2");
  EXPECT_EQ(capture.Count("Warning: Line is too long, truncated!: test.cfg"), 1u);
}

TEST(ConfigReaderTest, LineOfExactlyTheLimitIsKept) {
  test::MessageCapture capture;
  std::string text = "A=" + std::string(kMaxConfigLine - 2, 'x');
  auto lines = Lines(text);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].size(), kMaxConfigLine);
  EXPECT_TRUE(capture.messages().empty());
}

TEST(ConfigReaderTest, Tokens) {
  struct Case {
    const char* input;
    std::vector<std::string> tokens;
  };
  const Case cases[] = {
      {"roads roads.lif", {"roads", "roads.lif"}},
      {"roads, roads.lif", {"roads", "roads.lif"}},
      {"  ,roads,roads.lif", {"roads", "roads.lif"}},
      {"\"with space, and comma\" next", {"with space, and comma", "next"}},
      {"\"a\\\"b\\\\c\\nd\\te\"", {"a\"b\\c\nd\te"}},
      {"\"unterminated quote", {"unterminated quote"}},
      {"\"\"", {""}},
      {"C:\\data\\x.lif", {"C:\\data\\x.lif"}},  // no escapes outside quotes
      {"   ", {}},
      {",", {}},
  };
  ConfigContext context{"t", {}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.input);
    std::string_view cursor = c.input;
    std::vector<std::string> got;
    std::string token;
    while (ReadToken(&cursor, &token, context)) got.push_back(token);
    EXPECT_EQ(got, c.tokens);
  }
}

TEST(ConfigReaderTest, LongTokenIsTruncated) {
  ConfigContext context{"t", {}};
  for (size_t length : {kMaxConfigToken, kMaxConfigToken + 1, size_t{1500}}) {
    test::MessageCapture capture;
    std::string text = std::string(length, 'a') + " next";
    std::string_view cursor = text;
    std::string token;
    ASSERT_TRUE(ReadToken(&cursor, &token, context));
    EXPECT_EQ(token.size(), std::min(length, kMaxConfigToken));
    EXPECT_EQ(capture.Count("String is too long, truncated!"), length > kMaxConfigToken ? 1u : 0u);
    ASSERT_TRUE(ReadToken(&cursor, &token, context));
    EXPECT_EQ(token, "next");
  }
}

TEST(ConfigReaderTest, MessagesInsideIncludedFilesAreFollowed) {
  test::MessageCapture capture;
  ConfigContext context{"main.lif", "common.inc"};
  context.CannotRead("FILL TYPE");
  auto texts = capture.Texts();
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_EQ(texts[0], "Error: main.lif: cannot read: FILL TYPE");
  EXPECT_EQ(texts[1], "Error: In included file: common.inc");
}

TEST(ConfigReaderTest, Numbers) {
  struct Case {
    const char* input;
    bool ok;
    int64_t value;
  };
  const Case integers[] = {{"42", true, 42},     {"  -7 rest", true, -7}, {"+3", true, 3},
                           {"5abc", true, 5},    {"abc", false, 0},       {"-", false, 0},
                           {"", false, 0},       {"99999999999999999999", true, INT64_MAX}};
  for (const Case& c : integers) {
    SCOPED_TRACE(c.input);
    std::string_view cursor = c.input;
    int64_t v = 0;
    EXPECT_EQ(ReadInteger(&cursor, &v), c.ok);
    if (c.ok) {
      EXPECT_EQ(v, c.value);
    }
  }
  std::string_view reals = " 1.5, -2e1\t3";
  double v[4];
  EXPECT_EQ(ReadReals(&reals, v, 4), 3);
  EXPECT_DOUBLE_EQ(v[1], -20.0);
  Rgb color;
  std::string_view two = "0.1 0.2";
  EXPECT_FALSE(ReadColor(&two, &color));
  std::string_view three = "0.1,0.2 , 0.3";
  ASSERT_TRUE(ReadColor(&three, &color));
  EXPECT_EQ(color, (Rgb{0.1, 0.2, 0.3}));
}

TEST(ConfigReaderTest, WordsTakeTheRestOfTheLine) {
  ConfigContext context{"t", {}};
  struct Case {
    const char* input;
    const char* value;
  };
  const Case cases[] = {{" FILL AND EDGE  ", "FILL AND EDGE"},
                        {"\"ALPHA WHITE OPAQUE\" trailing", "ALPHA WHITE OPAQUE"},
                        {"IMAGE", "IMAGE"}};
  for (const Case& c : cases) {
    std::string_view cursor = c.input;
    std::string value;
    ASSERT_TRUE(ReadWords(&cursor, &value, context));
    EXPECT_EQ(value, c.value);
  }
  std::string_view empty = "   ";
  std::string value;
  EXPECT_FALSE(ReadWords(&empty, &value, context));
}

TEST(ConfigReaderTest, LoadingFiles) {
  test::TempDir dir;
  ConfigFile file;
  std::string path = dir.Write("a.cfg", "A=1\n");
  ASSERT_TRUE(LoadConfigFile(path, &file));
  EXPECT_EQ(file.text, "A=1\n");
  EXPECT_FALSE(file.read_error);
  EXPECT_FALSE(LoadConfigFile(dir / "missing.cfg", &file));
  EXPECT_FALSE(LoadConfigFile("", &file));
  // A directory opens but cannot be read: reading stops early.
  ASSERT_TRUE(LoadConfigFile(dir.path(), &file));
  EXPECT_TRUE(file.read_error);
  // Devices are never read (they could block or never end).
  EXPECT_FALSE(LoadConfigFile("/dev/zero", &file));
}

}  // namespace
}  // namespace vmp
