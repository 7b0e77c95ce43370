// The built program run end to end: one line per command line, with the
// exit status and what must appear on standard output and standard error.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "map_server/driver/usage.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::RunMapServer;
using test::RunOptions;
using test::RunResult;
using test::TempDir;
using Args = std::vector<std::string>;
using Env = std::map<std::string, std::optional<std::string>>;

std::string Error(const std::string& message) { return "VmpMap: Error: " + message + "\n"; }
std::string Warning(const std::string& message) { return "VmpMap: Warning: " + message + "\n"; }
std::string Missing(const std::string& name) { return "expected follow up variable: " + name + "\n"; }
std::string Unrecognized(const std::string& arg) { return "Unrecognized command line argument: " + arg + "\n"; }
std::string NoOptions() {
  return "Can't really do anything without any options...\n" + UsageText() +
         "Can't really do anything without any options, see above...\n";
}
const std::string kVersion = "Info: KAV Toolkit and KAV Map Server Version 3.5\n";

struct CliCase {
  Args args;  // "{ARGS}" stands for the path of an argument file holding `arg_file`
  int status;
  std::string out, err;  // exactly, or (when `some_lines`) lines found among others
  Env env = {};
  std::string arg_file = "";
  bool some_lines = false;
};

// The usual shapes of a case: exit 1 with nothing on standard output and
// exactly `err` on standard error; the no-options usage text; the version.
CliCase Fails(Args args, std::string err, Env env = {}) { return {std::move(args), 1, "", std::move(err), std::move(env)}; }
CliCase Usage(Args args) { return {std::move(args), 1, NoOptions(), ""}; }
CliCase Version(Args args) { return {std::move(args), 0, "", kVersion}; }
// In CGI mode the exception report is the XML document on standard output.
CliCase CgiFails(Args args, const std::string& message, Env env) {
  return {std::move(args), 1,
          "Content-Type: text/xml\n\n<ServiceExceptionReport version=\"1.3.0\">\n  <ServiceException>\n    " +
              message + "\n  </ServiceException>\n</ServiceExceptionReport>\n",
          "", std::move(env)};
}
// The command line got through to the map service: with no dataset file
// and a query it cannot parse, the service answers the parse failure.
CliCase Served(Args args, Env env = {}, bool cgi = false) {
  const std::string refused = "The OpenGIS request could not be processed.\n";
  const std::string no_dataset = "Error: Cannot open dataset info file: ";
  if (cgi) return {std::move(args), 1, "Content-Type: text/xml\n" + refused, no_dataset, std::move(env), "", true};
  return {std::move(args), 1, "", no_dataset + "\n" + refused, std::move(env), "", true};
}

Args With(Args base, const Args& more) {
  base.insert(base.end(), more.begin(), more.end());
  return base;
}

void Check(const std::string& expected, const std::string& actual, bool some_lines, const std::string& name) {
  if (!some_lines || expected.empty()) {
    EXPECT_EQ(actual, expected) << name;
    return;
  }
  std::istringstream lines(expected);
  for (std::string line; std::getline(lines, line);) {
    EXPECT_NE(actual.find(line), std::string::npos) << name << " lacks: " << line << "\nwhole: " << actual;
  }
}

void RunCases(const std::vector<CliCase>& cases) {
  for (const CliCase& c : cases) {
    TempDir dir, files;
    Args args = c.args;
    std::string name = "map_server";
    for (const std::string& arg : args) name.append(" ").append(arg, 0, 40);
    for (std::string& arg : args) {
      if (arg == "{ARGS}") arg = files.Write("args.txt", c.arg_file);
    }
    RunOptions options;
    options.env = c.env;
    options.working_dir = dir.path();
    const RunResult r = RunMapServer(args, options);
    EXPECT_EQ(r.status, c.status) << name << "\nstderr: " << r.err;
    Check(c.out, r.out, c.some_lines, name + " (stdout)");
    Check(c.err, r.err, c.some_lines, name + " (stderr)");
    EXPECT_TRUE(std::filesystem::is_empty(dir.path())) << name << ": wrote into its directory";
  }
}

TEST(DriverCliTest, StartUpAndModeSelection) {
  RunCases({
      Usage({}),
      Usage({"-bogus"}),
      Usage({"-map-server", "-map-server", "-version"}),
      Usage({"-verbosity", "2", "-progress", "5", "-version"}),  // one leading level option only
      Usage({"-arg-file"}),
      Version({"-version", "-bogus"}),
      Version({"-map-server", "-verbosity", "3", "-version"}),
      Version({"-progress", "10", "-version"}),
      Fails({"-generate", "-version"}, Unrecognized("-version")),
      {{"-map-server", "-help"}, 0, UsageText(), ""},
      Fails({"-verbosity", "abc", "-version"}, Missing("verbosity")),
      Fails({"-verbosity", "-help"}, Missing("verbosity")),
      Fails({"-map-server", "-progress"}, Missing("progress")),
  });
}

TEST(DriverCliTest, ArgumentFiles) {
  const std::string a1100 = "-" + std::string(1099, 'x'), a1024 = "-" + std::string(1023, 'x');
  const Args file = {"-arg-file", "{ARGS}"};
  const std::string too_long = "Argument is too long, truncated.\n";
  RunCases({
      {file, 1, "", Unrecognized("c"), {}, "-generate -dataset \"a b\"\n c"},
      {file, 1, "", too_long + Unrecognized(a1024), {}, "-generate " + a1100},
      {{"-map-server", "-verbosity", "1", "-arg-file", "{ARGS}"}, 0, "", kVersion, {}, "-version"},
      {{"-arg-file", "{ARGS}", "-bogus"}, 0, "", kVersion, {}, "-version"},  // replaces the rest
      {file, 1, NoOptions(), "", {}, ""},
      {{"-arg-file", "/nonexistent/a.txt"}, 1, NoOptions(), Error("Could not open arg-file: /nonexistent/a.txt")},
      {{"-arg-file", "/"}, 1, NoOptions(), "Error reading arguments.\n" + Error("Could not open arg-file: /")},
  });
}

// Each mode reads its own options only; values are read by their kind and
// must fit the fixed buffers they go to.
TEST(DriverCliTest, OptionsAndValues) {
  const std::string s1023(1023, 'p'), s1024(1024, 'p'), q65535(65535, 'q'), q65536(65536, 'q');
  RunCases({
      Fails({"-generate", "file.sdf"}, Unrecognized("file.sdf")),
      Fails({"-merge", "-Output", "o", "a"}, Unrecognized("-Output")),
      Fails({"-tile", "-image", "-attr", "@1==1"}, Unrecognized("-attr")),
      Fails({"-tile", "-vector", "-elevation"}, Unrecognized("-elevation")),
      Fails({"-merge", "a", "-output"}, Missing("output")),
      Fails({"-tile_info", "-width", "wide"}, Missing("width")),
      Fails({"-slim", "-resolution", "fine"}, Missing("resolution")),
      Fails({"-generate", "-verbosity", "loud"}, Missing("verbosity")),
      Fails({"-split", "-filename", "f", "-attr"}, "expected follow up attribute condition: -attr\n"),
      Fails({"-generate", "-dataset", s1024}, Missing("dataset")),
      Fails({"-generate", "-oGISreq", q65536}, Missing("openGIS request")),
      Fails({"-convert", "-path", s1024, "-pattern", "*"}, Missing("path")),
      Fails({"-slf", "-image", "-pattern", s1024}, Missing("pattern")),
      // The longest values that fit get through to the mode's work.
      Served({"-generate", "-dataset", s1023, "-oGISreq", q65535}),
      Fails({"-convert", "-path", s1023, "-pattern", s1023},
            Error("Could not be opened: " + s1023) + Warning("Errors converting some files for: " + s1023)),
  });
}

TEST(DriverCliTest, ToolValidationMessages) {
  const Args vector = {"-tile", "-vector", "-filename", "in", "-template", "t", "-num-x-tiles", "2",
                       "-num-y-tiles", "2"};
  const Args split = {"-split", "-filename", "in.tvf", "-output", "out.tvf"};
  const Args info = {"-tile_info", "-slf-pattern", "s", "-data-pattern", "d", "-width", "10", "-height", "5"};
  const Args box = {"-min-lat", "0", "-max-lat", "10", "-min-lon", "0"};  // -max-lon missing
  const Args slf_vector = {"-slf", "-vector", "-path", "tree", "-pattern", "*.tvf"};
  const Args slf_image = {"-slf", "-image", "-path", "tree", "-pattern", "*.jpg"};
  const std::string one_range = "Only one of -neg-range, -pos-range, -custom-range or -no-range is allowed!";
  const std::string with_extent = "-min/max-lat/lon cannot be used with -world-extent or -tvf-extent!";
  const std::string unset = "Mandatory variables path or pattern not set!";
  const std::string slim_unset = "Mandatory variables filename, output or resolution not set!";
  const std::string misplaced = "Invalid options for -split!";
  const std::string slf_image_name = "Mandatory variable -out-slf-name not set in -image mode!";
  auto fails = [](Args args, const std::string& message) { return Fails(std::move(args), Error(message)); };
  RunCases({
      fails({"-tvf-info"}, "Missing TVF filenames after -tvf-info!"),
      fails({"-merge", "-output", "o.tvf", "-b"}, "Missing files to merge!"),
      fails({"-merge", "a.tvf", "b.tvf"}, "Missing mandatory -output parameter for -merge!"),
      fails({"-convert", "-path", "p"}, unset),
      fails({"-convert", "-path", "p", "-pattern", "*", "-a", "-b"}, "-b and -a are both set!"),
      fails({"-slim", "-filename", "a", "-output", "b"}, slim_unset),
      fails({"-slim", "-filename", "a", "-output", "b", "-resolution", "0"}, slim_unset),
      fails({"-tile_info", "-slf-pattern", "s"}, "Mandatory variables slf_pattern or data-pattern not set!"),
      fails(With(info, {"-height", "0"}), "Mandatory variables width/height not set!"),
      fails(With(info, box), "Mandatory variables min/max_lat/lon not set!"),
      fails(With(info, With(box, {"-max-lon", "20", "-num-x-tiles", "3"})),
            "Mandatory variables num_x or num_y not set!"),
      fails({"-tile", "-filename", "f", "-image"}, "Missing -vector or -image after -tile!"),
      fails({"-tile", "-vector", "-filename", "f"},
            "Mandatory variables filename or template not set for -tile!"),
      fails({"-tile", "-image", "-filename", "i", "-template", "t", "-num-x-tiles", "0", "-num-y-tiles", "2"},
            "Mandatory variables num-x/y-tiles not set for -tile!"),
      fails(With(vector, {"-tvf-extent", "-num-points", "5"}),
            "-attr and -num-points are not allowed for -tile!"),
      fails(With(vector, box), "-world-extent, -tvf-extent or -min/max-lat/lon are required!"),
      fails(With(vector, {"-world-extent", "-min-lat", "0"}), with_extent),
      fails(With(vector, {"-tvf-extent", "-pos-range", "-neg-range"}), one_range),
      fails(With(vector, {"-tvf-extent", "-custom-range", "-min-wlon", "0"}),
            "Min world lon and max world lon not both set!"),
      fails(With(vector, {"-tvf-extent", "-custom-range", "-min-wlon", "9", "-max-wlon", "9"}),
            "Invalid wrap range!"),
      fails({"-split", "-filename", "f", "-bbox"},
            "Mandatory variables filename or output not set for -split!"),
      fails(split, "No -attr, -bbox or -num-points specified for -split!"),
      fails(With(split, {"-attr", "@1==1", "-bbox"}), "Only one -attr, -bbox or -num-points is allowed!"),
      fails(With(split, {"-num-points", "1"}), "Number of points must be at least 2!"),
      fails(With(split, {"-num-points", "3", "-min-wlon", "0", "-max-wlon", "360"}), "Invalid wrap range!"),
      fails(With(split, {"-bbox", "-tvf-extent", "-min-lat", "0"}), with_extent),
      fails(With(split, {"-num-points", "3", "-min-lat", "0"}),
            "-min/max-lat/lon can only be used with -bbox!"),
      fails(With(With(split, {"-bbox"}), box),
            "Mandatory extent variables (min/max-lat/lon) are not set for -bbox!"),
      fails(With(split, {"-num-points", "3", "-invert-attr"}), misplaced),
      fails(With(split, {"-num-points", "3", "-num-x-tiles", "2"}), misplaced),
      fails(With(split, {"-attr", "@1==1", "-pos-range"}), misplaced),
      fails(With(split, {"-bbox", "-tvf-extent", "-num-y-tiles", "0"}), misplaced),
      fails({"-lif", "-path", "p"}, "Missing -vector or -image after -slf!"),
      fails({"-slf", "-image", "-path", "p"}, unset),
      fails(With(slf_vector, {"-multi-layer", "-b", "-a"}), "-b and -a are both set!"),
      fails(slf_vector, "-single-layer or -multi-layer is required in -vector mode!"),
      fails(With(slf_vector, {"-single-layer", "-multi-layer"}),
            "Only one of -single-layer or -multi-layer may be used!"),
      fails(With(slf_vector, {"-single-layer"}),
            "Mandatory variable -out-slf-name not set in -single-layer mode!"),
      fails(slf_image, slf_image_name),
      Fails(With(slf_image, {"-multi-layer"}),
            Warning("-multi-layer is not supported in -image mode, ignored!") + Error(slf_image_name)),
      Fails(With(slf_vector, {"-multi-layer", "-out-slf-name", "all"}),
            Warning("-out-slf-name ignored in -multi-layer mode.") + Error("Could not be opened: tree") +
                Warning("Errors converting some files in: tree")),
  });
}

// Valid command lines reach the mode's worker, whose result is the exit status.
TEST(DriverCliTest, ValidCommandLinesReachTheWorkers) {
  const std::string no_input = Error("Could not open TVF file: a") + Error("Could not read input file: a");
  const Args grid = {"-num-x-tiles", "2", "-num-y-tiles", "3"};
  RunCases({
      Fails({"-tvf-info", "a.tvf", "-b.tvf"},
            Error("Could not open TVF file: a.tvf") + Error("Error reading file, skipping: a.tvf") +
                Error("Could not open TVF file: -b.tvf") + Error("Error reading file, skipping: -b.tvf") +
                Error("Errors processing some files")),
      Fails({"-merge", "-output", "/nonexistent/o.tvf", "a.tvf", "-", "-a", "-b", "-filter", "f"},
            Error("Could not open output file: /nonexistent/o.tvf")),
      // "Terminated/Done!" shows at verbosity 2; a leading -progress leaves the verbosity alone.
      Fails({"-verbosity", "2", "-convert", "-b", "-path", "p", "-pattern", "*"},
            Error("Could not be opened: p") + Warning("Errors converting some files for: p") +
                "VmpMap: Info: Terminated/Done!\n"),
      Fails({"-progress", "2", "-convert", "-progress", "5", "-path", "p", "-pattern", "*"},
            Error("Could not be opened: p") + Warning("Errors converting some files for: p")),
      Fails({"-slim", "-verbosity", "1", "-filename", "a", "-output", "b", "-resolution", "0.1", "-b"},
            no_input + Error("Error sliming data")),
      Fails(With({"-tile", "-image", "-filename", "a.jpg", "-template", "t", "-elevation"}, grid),
            Error("Only TIFF format is supported for elevation data.") + Error("Error tiling image")),
      Fails(With({"-tile", "-vector", "-filename", "a", "-template", "t", "-tvf-extent", "-custom-range",
                  "-min-wlon", "-10", "-max-wlon", "350", "-b"}, grid),
            no_input + Error("Error tiling vector data")),
      Fails({"-split", "-filename", "a", "-output", "b", "-attr", "@1==2", "-invert-attr"},
            no_input + Error("Error splitting data")),
      Fails({"-tile_info", "-verbosity", "1", "-slf-pattern", "no/s", "-data-pattern", "d", "-width", "10",
             "-height", "10", "-num-x-tiles", "1", "-num-y-tiles", "1", "-min-lat", "0", "-max-lat", "1",
             "-min-lon", "0", "-max-lon", "1"},
            Error("Could not open tile info file: no/s00") + Error("Error generating tile info files")),
      Fails({"-lif", "-image", "-path", "p", "-pattern", "*.jpg", "-out-slf-name", "x"},
            Error("Could not be opened: p") + Warning("Errors converting some files in: p")),
  });
}

TEST(DriverCliTest, MapServerMode) {
  const Args valid = {"-generate", "-dataset", "world.sdf", "-oGISreq", "REQUEST=GetCapabilities"};
  const Args cgi = {"-generate", "-cgi", "-dataset", "world.sdf"};
  const Env no_query = {{"QUERY_STRING", std::nullopt}};
  const Env query = {{"QUERY_STRING", "SERVICE=WMS&REQUEST=GetCapabilities"}};
  const std::string no_dataset = "Mandatory variable dataset is not set!";
  const std::string too_small = "iteration_max is too small: min=10000.\n\n";
  const std::string fcgi = "-fcgi option is not supported on this platform\n";
  const std::string no_query_string = "Missing QUERY_STRING environment variable in CGI mode!";
  RunCases({
      Fails({"-generate", "-oGISreq", "x", "-output", "o.jpg"}, no_dataset + "\n"),
      Fails({"-generate", "-iteration-max", "5"}, no_dataset + "\n"),
      Fails(With(valid, {"-iteration-max", "9999.5"}), too_small),
      Served(With(valid, {"-iteration-max", "10000"})),
      Fails({"-generate", "-dataset", "world.sdf"}, "Mandatory variable oGISreq not set in non-CGI mode!\n"),
      Served(With(valid, {"-output", "-", "-verbosity", "1"})),
      Fails({"-generate", "-fcgi", "-cgi"}, fcgi, query),
      CgiFails(With(valid, {"-cgi"}), no_query_string, no_query),
      CgiFails({"-generate", "-cgi"}, no_dataset, query),
      Served(cgi, query, true),
      Served(cgi, {{"QUERY_STRING", ""}}, true),
  });
}

// Log files go to the directory named by the environment, and never in CGI mode.
TEST(DriverCliTest, LogFiles) {
  TempDir logs, cgi_logs;
  RunOptions options;
  options.env = {{"VMP_LOG_DIR", logs.path()}, {"KAV_LOG_DIR", logs.path()}, {"QUERY_STRING", "REQUEST=GetMap"}};
  EXPECT_EQ(RunMapServer({"-merge", "a.tvf"}, options).status, 1);
  EXPECT_EQ(RunMapServer({"-version"}, options).status, 0);
  EXPECT_EQ(test::ReadFile(logs / "vmp_error.log"), "VmpMap: Error: Missing mandatory -output parameter for -merge!\n");
  EXPECT_EQ(test::ReadFile(logs / "kav_error.log"), "\nInfo: KAV Toolkit and KAV Map Server Version 3.5\n");
  options.env["VMP_LOG_DIR"] = options.env["KAV_LOG_DIR"] = cgi_logs.path();
  const RunResult r = RunMapServer({"-generate", "-cgi", "-dataset", "d.sdf"}, options);
  EXPECT_NE(r.err.find("Cannot open dataset info file"), std::string::npos);
  EXPECT_TRUE(std::filesystem::is_empty(cgi_logs.path()));
}

}  // namespace
}  // namespace vmp
