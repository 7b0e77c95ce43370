// The helper that runs programs for the end-to-end tests.
#include "tests/support/run_program.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_dir.h"

namespace vmp::test {
namespace {

TEST(RunProgramTest, StatusStreamsAndArguments) {
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string out;
    std::string err;
  } cases[] = {
      {{"-c", "echo out; echo err >&2; exit 3"}, 3, "out\n", "err\n"},
      {{"-c", "printf 'a\\0b'"}, 0, std::string("a\0b", 3), ""},
      {{"-c", "kill -TERM $$"}, 128 + 15, "", ""},
      {{"-c", "for a; do echo \"[$a]\"; done", "sh", "a b", "", "$HOME", "'\"*"}, 0,
       "[a b]\n[]\n[$HOME]\n['\"*]\n", ""},
  };
  for (const Case& c : cases) {
    const RunResult r = RunProgram("/bin/sh", c.args);
    EXPECT_EQ(r.status, c.status) << c.args[1];
    EXPECT_EQ(r.out, c.out) << c.args[1];
    EXPECT_EQ(r.err, c.err) << c.args[1];
    EXPECT_FALSE(r.timed_out);
  }
}

// Megabytes on both streams and on standard input at once must not block,
// nor input that the program never reads.
TEST(RunProgramTest, LargeStreamsDoNotDeadlock) {
  std::string input;
  for (int i = 0; input.size() < 3'000'000; ++i) input += "line " + std::to_string(i) + "\n";
  RunOptions options;
  options.stdin_text = input;
  RunResult r = RunProgram("/bin/sh", {"-c", "tee /dev/stderr"}, options);
  EXPECT_EQ(r.out, input);
  EXPECT_EQ(r.err, input);
  EXPECT_EQ(RunProgram("/bin/sh", {"-c", "exit 4"}, options).status, 4);
}

TEST(RunProgramTest, EnvironmentAndWorkingDirectory) {
  setenv("VMP_RUN_PROGRAM_TEST", "inherited", 1);
  TempDir dir;
  RunOptions options;
  options.working_dir = dir.path();
  options.env = {{"VMP_RUN_PROGRAM_TEST", std::nullopt}, {"QUERY_STRING", "a=1&b=2"}};
  const char* script = "pwd; echo \"${VMP_RUN_PROGRAM_TEST-unset}\"; echo \"$QUERY_STRING\"";
  EXPECT_EQ(RunProgram("/bin/sh", {"-c", script}, options).out, dir.path() + "\nunset\na=1&b=2\n");
  EXPECT_EQ(RunProgram("/bin/sh", {"-c", "echo \"$VMP_RUN_PROGRAM_TEST\""}).out, "inherited\n");
  unsetenv("VMP_RUN_PROGRAM_TEST");
}

TEST(RunProgramTest, ProgramsThatCannotRunOrDoNotEnd) {
  RunResult r = RunProgram("/nonexistent/program", {});
  EXPECT_EQ(r.status, -1);
  EXPECT_NE(r.err.find("/nonexistent/program"), std::string::npos);
  RunOptions bad_dir;
  bad_dir.working_dir = "/nonexistent/dir";
  EXPECT_EQ(RunProgram("/bin/sh", {"-c", "exit 0"}, bad_dir).status, -1);
  RunOptions quick;
  quick.timeout_seconds = 1;
  r = RunProgram("/bin/sleep", {"30"}, quick);
  EXPECT_TRUE(r.timed_out);
  EXPECT_EQ(r.status, 128 + 9);
}

}  // namespace
}  // namespace vmp::test
