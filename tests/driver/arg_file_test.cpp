#include "map_server/driver/arg_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::TempDir;
using Args = std::vector<std::string>;

const std::string kTooLong = "Argument is too long, truncated.";

TEST(SplitArgTextTest, SplitsAndUnquotes) {
  struct Case {
    const char* name;
    std::string text;
    Args expected;
  } cases[] = {
      {"empty", "", {}},
      {"blanks only", " \t\r\n ", {}},
      {"words", "-generate -dataset a.sdf", {"-generate", "-dataset", "a.sdf"}},
      {"any white space separates", "a\tb\nc\r\nd\v\fe", {"a", "b", "c", "d", "e"}},
      {"quoted keeps blanks", "\"a b\" c", {"a b", "c"}},
      {"quoted across lines", "\"x\n y\"", {"x\n y"}},
      {"empty quotes", "a \"\" b", {"a", "", "b"}},
      {"quote inside a word stays", "a\"b c\"", {"a\"b", "c\""}},
      {"quoted right after a word", "ab\"c d\"", {"ab\"c", "d\""}},
      {"adjacent quoted", "\"a\"\"b\"", {"a", "b"}},
      {"unicode bytes pass", "\xc3\xa9t\xc3\xa9 x", {"\xc3\xa9t\xc3\xa9", "x"}},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    EXPECT_EQ(SplitArgText(c.text), c.expected) << c.name;
    EXPECT_TRUE(capture.messages().empty()) << c.name;
  }
}

TEST(SplitArgTextTest, UnterminatedQuoteRunsToTheEndWithAWarning) {
  MessageCapture capture;
  EXPECT_EQ(SplitArgText("a \"b c\n"), (Args{"a", "b c\n"}));
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(capture.messages()[0].severity, kWarning);
  EXPECT_TRUE(capture.messages()[0].from_toolkit);
}

// Arguments are scanned 1026 characters at a time and cut to 1024; what is
// left of a longer one is the next argument.
TEST(SplitArgTextTest, LongArgumentsAreCutAt1024) {
  const std::string a1024(1024, 'a'), a1025(1025, 'a'), a1026(1026, 'a');
  struct Case {
    const char* name;
    std::string text;
    Args expected;
    size_t warnings;
  } cases[] = {
      {"1024 fits", a1024 + " z", {a1024, "z"}, 0},
      {"1025 is cut", a1025 + " z", {a1024, "z"}, 1},
      {"1026 is cut", a1026, {a1024}, 1},
      {"1030 leaves 4 for the next", a1026 + "bbbb z", {a1024, "bbbb", "z"}, 1},
      {"quoted 1024 fits", "\"" + a1024 + "\"", {a1024}, 0},
      {"quoted 1026 is cut", "\"" + a1026 + "\" z", {a1024, "z"}, 1},
      {"quoted rest stays quoted", "\"" + a1026 + "b c\" z", {a1024, "b c", "z"}, 1},
      {"two long ones", a1025 + " " + a1025, {a1024, a1024}, 2},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    EXPECT_EQ(SplitArgText(c.text), c.expected) << c.name;
    EXPECT_EQ(capture.Count(kTooLong), c.warnings) << c.name;
    for (const auto& m : capture.messages()) {
      EXPECT_EQ(m.text, kTooLong) << c.name;  // a toolkit error: no prefix
      EXPECT_EQ(m.severity, kError) << c.name;
      EXPECT_TRUE(m.from_toolkit) << c.name;
    }
  }
}

TEST(ReadArgFileTest, ProgramNameComesFirst) {
  TempDir dir;
  const std::string path = dir.Write("args.txt", "-merge -output \"out put.tvf\"\n  a.tvf\n");
  MessageCapture capture;
  EXPECT_EQ(ReadArgFile(path, "prog"),
            (Args{"prog", "-merge", "-output", "out put.tvf", "a.tvf"}));
  EXPECT_EQ(ReadArgFile(dir.Write("empty.txt", ""), "prog"), (Args{"prog"}));
  EXPECT_TRUE(capture.messages().empty());
}

TEST(ReadArgFileTest, MissingAndUnreadableFiles) {
  TempDir dir;
  MessageCapture capture;
  EXPECT_FALSE(ReadArgFile(dir / "missing.txt", "prog").has_value());
  EXPECT_TRUE(capture.messages().empty());  // the caller reports it
  // A directory opens but cannot be read.
  EXPECT_FALSE(ReadArgFile(dir.path(), "prog").has_value());
  EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"Error reading arguments."}));
}

TEST(ReadArgFileTest, LargeFilesAreReadWhole) {
  TempDir dir;
  std::string text;
  Args expected{"prog"};
  for (int i = 0; i < 20000; ++i) {
    text += "file" + std::to_string(i) + ".tvf ";
    expected.push_back("file" + std::to_string(i) + ".tvf");
  }
  EXPECT_EQ(ReadArgFile(dir.Write("many.txt", text), "prog"), expected);
}

}  // namespace
}  // namespace vmp
