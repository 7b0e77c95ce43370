// The helper that runs programs for the end-to-end tests.
#include "tests/support/run_program.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/temp_dir.h"

namespace vmp::test {
namespace {

TEST(RunProgramTest, StatusAndSeparateStreams) {
  struct Case {
    const char* script;
    int status;
    std::string out;
    std::string err;
  } cases[] = {
      {"exit 0", 0, "", ""},
      {"echo out; echo err >&2; exit 3", 3, "out\n", "err\n"},
      {"printf 'a\\0b'; exit 1", 1, std::string("a\0b", 3), ""},
      {"kill -TERM $$", 128 + 15, "", ""},
  };
  for (const Case& c : cases) {
    const RunResult r = RunProgram("/bin/sh", {"-c", c.script});
    EXPECT_EQ(r.status, c.status) << c.script;
    EXPECT_EQ(r.out, c.out) << c.script;
    EXPECT_EQ(r.err, c.err) << c.script;
    EXPECT_FALSE(r.timed_out);
  }
}

TEST(RunProgramTest, ArgumentsArriveUnchanged) {
  const RunResult r = RunProgram("/bin/sh", {"-c", "for a; do echo \"[$a]\"; done", "sh", "a b",
                                             "", "$HOME", "'\"*"});
  EXPECT_EQ(r.out, "[a b]\n[]\n[$HOME]\n['\"*]\n");
}

// Megabytes on both streams and on standard input at once must not block,
// nor input that the program never reads.
TEST(RunProgramTest, LargeStreamsDoNotDeadlock) {
  std::string input;
  for (int i = 0; input.size() < 3'000'000; ++i) input += "line " + std::to_string(i) + "\n";
  RunOptions options;
  options.stdin_text = input;
  RunResult r = RunProgram("/bin/sh", {"-c", "tee /dev/stderr"}, options);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, input);
  EXPECT_EQ(r.err, input);
  r = RunProgram("/bin/sh", {"-c", "exit 4"}, options);
  EXPECT_EQ(r.status, 4);
}

TEST(RunProgramTest, EnvironmentAndWorkingDirectory) {
  setenv("VMP_RUN_PROGRAM_TEST", "inherited", 1);
  TempDir dir;
  RunOptions options;
  options.working_dir = dir.path();
  options.env = {{"VMP_RUN_PROGRAM_TEST", std::nullopt}, {"QUERY_STRING", "a=1&b=2"}};
  RunResult r = RunProgram(
      "/bin/sh", {"-c", "pwd; echo \"${VMP_RUN_PROGRAM_TEST-unset}\"; echo \"$QUERY_STRING\""},
      options);
  EXPECT_EQ(r.out, dir.path() + "\nunset\na=1&b=2\n");
  r = RunProgram("/bin/sh", {"-c", "echo \"$VMP_RUN_PROGRAM_TEST\""});
  EXPECT_EQ(r.out, "inherited\n");
  unsetenv("VMP_RUN_PROGRAM_TEST");
}

TEST(RunProgramTest, ProgramsThatCannotRunOrDoNotEnd) {
  RunResult r = RunProgram("/nonexistent/program", {});
  EXPECT_EQ(r.status, -1);
  EXPECT_NE(r.err.find("/nonexistent/program"), std::string::npos);

  RunOptions bad_dir;
  bad_dir.working_dir = "/nonexistent/dir";
  r = RunProgram("/bin/sh", {"-c", "exit 0"}, bad_dir);
  EXPECT_EQ(r.status, -1);

  RunOptions quick;
  quick.timeout_seconds = 1;
  r = RunProgram("/bin/sleep", {"30"}, quick);
  EXPECT_TRUE(r.timed_out);
  EXPECT_EQ(r.status, 128 + 9);
}

TEST(RunProgramTest, MapServerLogsGoToTheTestLogDirectory) {
  const RunResult r = RunMapServer({"-merge"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(ReadFile(LogDirectory() + "/vmp_error.log").find("Missing files to merge!"),
            std::string::npos);
}

}  // namespace
}  // namespace vmp::test
