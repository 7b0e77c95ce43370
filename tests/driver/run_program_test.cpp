// The helper that runs programs for the end-to-end tests: status, streams,
// arguments without a shell, environment changes, working directory and the
// time limit.
#include "tests/support/run_program.h"

#include <gtest/gtest.h>

#include <tuple>

#include "tests/support/temp_dir.h"

namespace vmp::test {
namespace {

TEST(RunProgramTest, StatusStreamsArgumentsAndEnvironment) {
  TempDir dir;
  RunOptions changed;
  changed.working_dir = dir.path();
  changed.env = {{"HOME", std::nullopt}, {"QUERY_STRING", "a=1&b=2"}};
  changed.stdin_text = std::string(3'000'000, 'x');  // megabytes on every stream must not block
  const struct {
    std::vector<std::string> args;
    int status;
    std::string out, err;
  } cases[] = {
      {{"-c", "echo out; echo err >&2; exit 3"}, 3, "out\n", "err\n"},
      {{"-c", "kill -TERM $$"}, 128 + 15, "", ""},
      {{"-c", "for a; do echo \"[$a]\"; done", "sh", "a b", "", "$HOME", "'\"*"}, 0, "[a b]\n[]\n[$HOME]\n['\"*]\n", ""},
      {{"-c", "pwd; echo \"${HOME-unset} $QUERY_STRING\""}, 0, dir.path() + "\nunset a=1&b=2\n", ""},
      {{"-c", "tee /dev/stderr | wc -c"}, 0, "3000000\n", *changed.stdin_text},
  };
  for (const auto& c : cases) {
    const RunResult r = RunProgram("/bin/sh", c.args, changed);
    EXPECT_EQ(std::make_tuple(r.status, r.out, r.err), std::make_tuple(c.status, c.out, c.err)) << c.args[1];
  }
  RunOptions quick;
  quick.timeout_seconds = 1;
  const RunResult r = RunProgram("/bin/sleep", {"30"}, quick);
  EXPECT_TRUE(r.timed_out && r.status == 128 + 9);
  EXPECT_EQ(RunProgram("/nonexistent/program", {}).status, -1);
}

}  // namespace
}  // namespace vmp::test
