// Runs a program as a child process and captures what it did, for tests that
// run the real map_server binary.
//
//   RunResult r = RunMapServer({"-merge", "a.tvf"});
//   EXPECT_EQ(r.status, 1);
//   EXPECT_EQ(r.err, "VmpMap: Error: Missing mandatory -output parameter for -merge!\n");
//
// No shell is involved: arguments reach the program exactly as given.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace vmp::test {

struct RunOptions {
  // Changes to the inherited environment: a value sets the variable, nullopt
  // removes it (e.g. {"QUERY_STRING", std::nullopt}).
  std::map<std::string, std::optional<std::string>> env;
  // Text on the program's standard input; without it standard input is empty.
  std::optional<std::string> stdin_text;
  // Working directory of the program; empty: the caller's.
  std::string working_dir;
  // The program is killed after this many seconds (then `timed_out` is set).
  int timeout_seconds = 60;
};

struct RunResult {
  // The exit status; 128 + the signal number when a signal ended the program;
  // -1 when it could not be started (the reason is in `err`).
  int status = -1;
  std::string out;  // everything written to standard output
  std::string err;  // everything written to standard error
  bool timed_out = false;
};

// Runs `program` (a path; not looked up in PATH) with `args`.
RunResult RunProgram(const std::string& program, const std::vector<std::string>& args,
                     const RunOptions& options = {});

// Runs the built map_server (VMP_MAP_SERVER_BIN). Unless `options.env` says
// otherwise, VMP_LOG_DIR and KAV_LOG_DIR point to a temporary directory that
// lives as long as the test program (LogDirectory()), so no log file lands in
// the working directory, and their "_3_5" forms are removed.
RunResult RunMapServer(const std::vector<std::string>& args, const RunOptions& options = {});

// The directory RunMapServer sends log files to.
const std::string& LogDirectory();

}  // namespace vmp::test
