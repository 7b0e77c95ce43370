#include "map_server/driver/arg_file.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::MessageCapture;
using Args = std::vector<std::string>;

// Arguments are scanned 1026 characters at a time and cut to 1024 with a
// toolkit error; what is left of a longer one is the next argument.
TEST(SplitArgTextTest, SplitsUnquotesAndCuts) {
  const std::string a1024(1024, 'a'), a1025(1025, 'a'), a1026(1026, 'a');
  const std::string too_long = "Argument is too long, truncated.";
  struct Case {
    std::string text;
    Args expected;
    size_t cut;  // arguments reported too long
  } cases[] = {
      {" \t\r\n ", {}, 0},
      {"a\tb\nc\r\nd\v\fe", {"a", "b", "c", "d", "e"}, 0},
      {"\"a b\" c \"x\n y\"", {"a b", "c", "x\n y"}, 0},
      {"a \"\" b", {"a", "", "b"}, 0},
      {"a\"b c\"", {"a\"b", "c\""}, 0},  // a quote inside a word stays
      {"\"a\"\"b\"", {"a", "b"}, 0},
      {a1024 + " z", {a1024, "z"}, 0},
      {a1025 + " z", {a1024, "z"}, 1},
      {a1026 + "bbbb z", {a1024, "bbbb", "z"}, 1},
      {"\"" + a1024 + "\"", {a1024}, 0},
      {"\"" + a1026 + "b c\" z", {a1024, "b c", "z"}, 1},  // the rest stays quoted
      {a1025 + " " + a1025, {a1024, a1024}, 2},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    EXPECT_EQ(SplitArgText(c.text), c.expected) << c.text.substr(0, 20);
    EXPECT_EQ(capture.messages().size(), c.cut) << c.text.substr(0, 20);
    for (const auto& m : capture.messages()) {
      EXPECT_EQ(m.text, too_long);
      EXPECT_EQ(m.severity, kError);
      EXPECT_TRUE(m.from_toolkit);
    }
  }
  MessageCapture capture;
  EXPECT_EQ(SplitArgText("a \"b c\n"), (Args{"a", "b c\n"}));  // an open quote runs to the end
  ASSERT_EQ(capture.messages().size(), 1u);
  EXPECT_EQ(capture.messages()[0].severity, kWarning);
  EXPECT_TRUE(capture.messages()[0].from_toolkit);
}

TEST(ReadArgFileTest, Files) {
  test::TempDir dir;
  MessageCapture capture;
  EXPECT_EQ(ReadArgFile(dir.Write("args.txt", "-merge -output \"out put.tvf\"\n  a.tvf\n"), "prog"),
            (Args{"prog", "-merge", "-output", "out put.tvf", "a.tvf"}));
  EXPECT_EQ(ReadArgFile(dir.Write("empty.txt", ""), "prog"), (Args{"prog"}));
  std::string text;
  Args expected{"prog"};
  for (int i = 0; i < 20000; ++i) {  // well beyond one read buffer
    text += "file" + std::to_string(i) + ".tvf ";
    expected.push_back("file" + std::to_string(i) + ".tvf");
  }
  EXPECT_EQ(ReadArgFile(dir.Write("many.txt", text), "prog"), expected);
  EXPECT_TRUE(capture.messages().empty());
  EXPECT_FALSE(ReadArgFile(dir / "missing.txt", "prog").has_value());  // the caller reports it
  EXPECT_TRUE(capture.messages().empty());
  EXPECT_FALSE(ReadArgFile(dir.path(), "prog").has_value());  // a directory opens but cannot be read
  EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"Error reading arguments."}));
  capture.Clear();
  EXPECT_FALSE(ReadArgFile("/dev/zero", "prog").has_value());  // endless input is refused
  EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"Error reading arguments."}));
}

}  // namespace
}  // namespace vmp
