// The built program run end to end: one line per command line, with the
// exit status and what must appear on standard output and standard error.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "map_server/driver/usage.h"
#include "shp2tvf/shp2tvf.h"
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

// What one output stream must hold: exactly a text, or some lines among others.
struct Expect {
  bool exact;
  std::vector<std::string> texts;
};
Expect Exactly(std::string text) { return {true, {std::move(text)}}; }
Expect Has(std::initializer_list<std::string> lines) { return {false, lines}; }
const Expect kNothing = Exactly("");

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
  const char* name;
  Args args;  // "{ARGS}" stands for the path of an argument file holding `arg_file`
  int status;
  Expect out;
  Expect err;
  Env env = {};
  std::optional<std::string> arg_file = std::nullopt;
};

// The usual shapes of a case: exit 1 with nothing on standard output and
// exactly `err` on standard error; the no-options usage text; the version.
CliCase Fails(const char* name, Args args, std::string err, Env env = {}) {
  return {name, std::move(args), 1, kNothing, Exactly(std::move(err)), std::move(env)};
}
CliCase Usage(const char* name, Args args) { return {name, std::move(args), 1, Exactly(NoOptions()), kNothing}; }
CliCase Version(const char* name, Args args) { return {name, std::move(args), 0, kNothing, Exactly(kVersion)}; }
// In CGI mode the exception report is the XML document on standard output.
CliCase CgiFails(const char* name, Args args, const std::string& message, Env env) {
  return {name, std::move(args), 1,
          Exactly("Content-Type: text/xml\n\n<ServiceExceptionReport version=\"1.3.0\">\n"
                  "  <ServiceException>\n    " + message + "\n  </ServiceException>\n"
                  "</ServiceExceptionReport>\n"),
          kNothing, std::move(env)};
}
// The command line got through to the map service: with no dataset file
// and a query it cannot parse, the service answers the parse failure.
CliCase Served(const char* name, Args args, Env env = {}, bool cgi = false) {
  const std::string refused = "The OpenGIS request could not be processed.";
  const std::string no_dataset = "Error: Cannot open dataset info file: ";
  if (cgi) return {name, std::move(args), 1, Has({"Content-Type: text/xml", refused}), Has({no_dataset}), std::move(env)};
  return {name, std::move(args), 1, kNothing, Has({no_dataset, refused}), std::move(env)};
}

Args With(Args base, const Args& more) {
  base.insert(base.end(), more.begin(), more.end());
  return base;
}

void Check(const Expect& expect, const std::string& actual, const char* stream, const std::string& name) {
  if (expect.exact) {
    EXPECT_EQ(actual, expect.texts[0]) << name << " (" << stream << ")";
    return;
  }
  for (const std::string& line : expect.texts) {
    EXPECT_NE(actual.find(line), std::string::npos)
        << name << " (" << stream << ") lacks: " << line << "\nwhole: " << actual;
  }
}

void RunCases(const std::vector<CliCase>& cases) {
  for (const CliCase& c : cases) {
    TempDir dir, files;
    Args args = c.args;
    for (std::string& arg : args) {
      if (arg == "{ARGS}") arg = files.Write("args.txt", c.arg_file.value_or(""));
    }
    RunOptions options;
    options.env = c.env;
    options.working_dir = dir.path();
    const RunResult r = RunMapServer(args, options);
    EXPECT_EQ(r.status, c.status) << c.name << "\nstderr: " << r.err;
    Check(c.out, r.out, "stdout", c.name);
    Check(c.err, r.err, "stderr", c.name);
    EXPECT_TRUE(std::filesystem::is_empty(dir.path())) << c.name << ": wrote into its directory";
  }
}

TEST(DriverCliTest, StartUpAndModeSelection) {
  RunCases({
      Usage("no arguments", {}),
      Usage("unknown mode", {"-bogus"}),
      Usage("-map-server once only", {"-map-server", "-map-server", "-version"}),
      Usage("only one leading level option", {"-verbosity", "2", "-progress", "5", "-version"}),
      Usage("-arg-file without a name", {"-arg-file"}),
      Version("-version", {"-version", "-bogus"}),
      Version("-version after verbosity", {"-map-server", "-verbosity", "3", "-version"}),
      Version("-version after progress", {"-progress", "10", "-version"}),
      Fails("-version after a mode", {"-generate", "-version"}, Unrecognized("-version")),
      {"-help", {"-map-server", "-help"}, 0, Exactly(UsageText()), kNothing},
      Fails("-verbosity not a number", {"-verbosity", "abc", "-version"}, Missing("verbosity")),
      Fails("-verbosity followed by an option", {"-verbosity", "-help"}, Missing("verbosity")),
      Fails("-progress without value", {"-map-server", "-progress"}, Missing("progress")),
  });
}

TEST(DriverCliTest, ArgumentFiles) {
  const std::string a1100 = "-" + std::string(1099, 'x'), a1024 = "-" + std::string(1023, 'x');
  const Args file = {"-arg-file", "{ARGS}"};
  RunCases({
      {"quoted value, then one more argument", file, 1, kNothing, Exactly(Unrecognized("c")), {},
       "-generate -dataset \"a b\"\n c"},
      {"over-long argument is cut", file, 1, kNothing,
       Exactly("Argument is too long, truncated.\n" + Unrecognized(a1024)), {}, "-generate " + a1100},
      {"after the leading options", {"-map-server", "-verbosity", "1", "-arg-file", "{ARGS}"}, 0, kNothing,
       Exactly(kVersion), {}, "-version"},
      {"the file replaces the rest", {"-arg-file", "{ARGS}", "-bogus"}, 0, kNothing, Exactly(kVersion), {},
       "-version"},
      {"empty file", file, 1, Exactly(NoOptions()), kNothing, {}, ""},
      {"missing file", {"-arg-file", "/nonexistent/args.txt"}, 1, Exactly(NoOptions()),
       Exactly(Error("Could not open arg-file: /nonexistent/args.txt"))},
      {"a directory cannot be read", {"-arg-file", "/"}, 1, Exactly(NoOptions()),
       Exactly("Error reading arguments.\n" + Error("Could not open arg-file: /"))},
  });
}

// Each mode reads its own options only; values are read by their kind and
// must fit the fixed buffers they go to.
TEST(DriverCliTest, OptionsAndValues) {
  const std::string s1023(1023, 'p'), s1024(1024, 'p'), q65535(65535, 'q'), q65536(65536, 'q');
  RunCases({
      Fails("-generate takes no files", {"-generate", "file.sdf"}, Unrecognized("file.sdf")),
      Fails("case-sensitive", {"-merge", "-Output", "o", "a"}, Unrecognized("-Output")),
      Fails("-tile -image", {"-tile", "-image", "-attr", "@1==1"}, Unrecognized("-attr")),
      Fails("-tile -vector", {"-tile", "-vector", "-elevation"}, Unrecognized("-elevation")),
      Fails("-split", {"-split", "-template", "t"}, Unrecognized("-template")),
      Fails("-slf", {"-slf", "-vector", "-output", "x"}, Unrecognized("-output")),
      Fails("text value missing", {"-merge", "a", "-output"}, Missing("output")),
      Fails("integer value", {"-tile_info", "-width", "wide"}, Missing("width")),
      Fails("real value", {"-slim", "-resolution", "fine"}, Missing("resolution")),
      Fails("mode's own verbosity", {"-generate", "-verbosity", "loud"}, Missing("verbosity")),
      Fails("attr", {"-split", "-filename", "f", "-attr"}, "expected follow up attribute condition: -attr\n"),
      Fails("dataset too long", {"-generate", "-dataset", s1024}, Missing("dataset")),
      Fails("request too long", {"-generate", "-oGISreq", q65536}, Missing("openGIS request")),
      Fails("path too long", {"-convert", "-path", s1024, "-pattern", "*"}, Missing("path")),
      Fails("pattern too long", {"-slf", "-image", "-pattern", s1024}, Missing("pattern")),
      // The longest values that fit get through to the mode's work.
      Served("fitting dataset and request", {"-generate", "-dataset", s1023, "-oGISreq", q65535}),
      Fails("fitting path and pattern", {"-convert", "-path", s1023, "-pattern", s1023},
            Error("Could not be opened: " + s1023) + Warning("Errors converting some files for: " + s1023)),
  });
}

TEST(DriverCliTest, ToolValidationMessages) {
  const Args vector = {"-tile", "-vector", "-filename", "in.tvf", "-template", "t_%_%.tvf",
                       "-num-x-tiles", "2", "-num-y-tiles", "2"};
  const Args split = {"-split", "-filename", "in.tvf", "-output", "out.tvf"};
  const Args info = {"-tile_info", "-slf-pattern", "s", "-data-pattern", "d", "-width", "10", "-height", "5"};
  const Args box = {"-min-lat", "0", "-max-lat", "10", "-min-lon", "0"};  // -max-lon missing
  const Args slf_vector = {"-slf", "-vector", "-path", "tree", "-pattern", "*.tvf"};
  const Args slf_image = {"-slf", "-image", "-path", "tree", "-pattern", "*.jpg"};
  const std::string one_range = "Only one of -neg-range, -pos-range, -custom-range or -no-range is allowed!";
  const std::string both_wlon = "Min world lon and max world lon not both set!";
  const std::string with_extent = "-min/max-lat/lon cannot be used with -world-extent or -tvf-extent!";
  const std::string misplaced = "Invalid options for -split!";
  const std::string slf_image_name = "Mandatory variable -out-slf-name not set in -image mode!";
  auto fails = [](const char* name, Args args, const std::string& message) {
    return Fails(name, std::move(args), Error(message));
  };
  RunCases({
      fails("tvf-info", {"-tvf-info"}, "Missing TVF filenames after -tvf-info!"),
      fails("merge without files", {"-merge", "-output", "o.tvf", "-b"}, "Missing files to merge!"),
      fails("merge without output", {"-merge", "a.tvf", "b.tvf"}, "Missing mandatory -output parameter for -merge!"),
      fails("convert without pattern", {"-convert", "-path", "p"}, "Mandatory variables path or pattern not set!"),
      fails("convert -a -b", {"-convert", "-path", "p", "-pattern", "*", "-a", "-b"}, "-b and -a are both set!"),
      fails("slim without resolution", {"-slim", "-filename", "a", "-output", "b"},
            "Mandatory variables filename, output or resolution not set!"),
      fails("slim with zero resolution", {"-slim", "-filename", "a", "-output", "b", "-resolution", "0"},
            "Mandatory variables filename, output or resolution not set!"),
      fails("tile_info data pattern", {"-tile_info", "-slf-pattern", "s"},
            "Mandatory variables slf_pattern or data-pattern not set!"),
      fails("tile_info zero height", With(info, {"-height", "0"}), "Mandatory variables width/height not set!"),
      fails("tile_info three bounds", With(info, box), "Mandatory variables min/max_lat/lon not set!"),
      fails("tile_info one count", With(info, With(box, {"-max-lon", "20", "-num-x-tiles", "3"})),
            "Mandatory variables num_x or num_y not set!"),
      fails("tile kind not first", {"-tile", "-filename", "f", "-image"}, "Missing -vector or -image after -tile!"),
      fails("tile without template", {"-tile", "-vector", "-filename", "f"},
            "Mandatory variables filename or template not set for -tile!"),
      fails("tile zero columns", {"-tile", "-image", "-filename", "i", "-template", "t", "-num-x-tiles", "0",
                                  "-num-y-tiles", "2"}, "Mandatory variables num-x/y-tiles not set for -tile!"),
      fails("tile -num-points", With(vector, {"-tvf-extent", "-num-points", "5"}),
            "-attr and -num-points are not allowed for -tile!"),
      fails("tile three bounds", With(vector, box), "-world-extent, -tvf-extent or -min/max-lat/lon are required!"),
      fails("tile world and bounds", With(vector, {"-world-extent", "-min-lat", "0"}), with_extent),
      fails("tile two ranges", With(vector, {"-tvf-extent", "-pos-range", "-neg-range"}), one_range),
      fails("tile custom without east", With(vector, {"-tvf-extent", "-custom-range", "-min-wlon", "0"}), both_wlon),
      fails("tile empty custom range",
            With(vector, {"-tvf-extent", "-custom-range", "-min-wlon", "9", "-max-wlon", "9"}), "Invalid wrap range!"),
      fails("split without output", {"-split", "-filename", "f", "-bbox"},
            "Mandatory variables filename or output not set for -split!"),
      fails("split without kind", split, "No -attr, -bbox or -num-points specified for -split!"),
      fails("split attr and bbox", With(split, {"-attr", "@1==1", "-bbox"}),
            "Only one -attr, -bbox or -num-points is allowed!"),
      fails("split one point", With(split, {"-num-points", "1"}), "Number of points must be at least 2!"),
      fails("split custom without bounds", With(split, {"-num-points", "3", "-custom-range"}), both_wlon),
      fails("split wlon without custom", With(split, {"-num-points", "3", "-min-wlon", "0", "-max-wlon", "360"}),
            "Invalid wrap range!"),
      fails("split own extent and bounds", With(split, {"-bbox", "-tvf-extent", "-min-lat", "0"}), with_extent),
      fails("split bounds without bbox", With(split, {"-num-points", "3", "-min-lat", "0"}),
            "-min/max-lat/lon can only be used with -bbox!"),
      fails("split bbox three bounds", With(With(split, {"-bbox"}), box),
            "Mandatory extent variables (min/max-lat/lon) are not set for -bbox!"),
      fails("split invert without attr", With(split, {"-num-points", "3", "-invert-attr"}), misplaced),
      fails("split tiles without bbox", With(split, {"-num-points", "3", "-num-x-tiles", "2"}), misplaced),
      fails("split extent without bbox", With(split, {"-num-points", "3", "-tvf-extent"}), misplaced),
      fails("split attr with wrap", With(split, {"-attr", "@1==1", "-pos-range"}), misplaced),
      fails("split zero rows", With(split, {"-bbox", "-tvf-extent", "-num-y-tiles", "0"}), misplaced),
      fails("lif", {"-lif", "-path", "p"}, "Missing -vector or -image after -slf!"),
      fails("slf without pattern", {"-slf", "-image", "-path", "p"}, "Mandatory variables path or pattern not set!"),
      fails("slf -b -a", With(slf_vector, {"-multi-layer", "-b", "-a"}), "-b and -a are both set!"),
      fails("slf vector layer mode", slf_vector, "-single-layer or -multi-layer is required in -vector mode!"),
      fails("slf both layer modes", With(slf_vector, {"-single-layer", "-multi-layer"}),
            "Only one of -single-layer or -multi-layer may be used!"),
      fails("slf single layer name", With(slf_vector, {"-single-layer"}),
            "Mandatory variable -out-slf-name not set in -single-layer mode!"),
      fails("slf image name", slf_image, slf_image_name),
      Fails("slf image multi-layer", With(slf_image, {"-multi-layer"}),
            Warning("-multi-layer is not supported in -image mode, ignored!") + Error(slf_image_name)),
      Fails("slf multi-layer name", With(slf_vector, {"-multi-layer", "-out-slf-name", "all"}),
            Warning("-out-slf-name ignored in -multi-layer mode.") + Error("Could not be opened: tree") +
                Warning("Errors converting some files in: tree")),
  });
}

// Valid command lines reach the mode's worker, whose result is the exit status.
TEST(DriverCliTest, ValidCommandLinesReachTheWorkers) {
  const std::string no_input = Error("Could not open TVF file: a") + Error("Could not read input file: a");
  RunCases({
      Fails("tvf-info", {"-tvf-info", "a.tvf", "-b.tvf"},
            Error("Could not open TVF file: a.tvf") + Error("Error reading file, skipping: a.tvf") +
                Error("Could not open TVF file: -b.tvf") + Error("Error reading file, skipping: -b.tvf") +
                Error("Errors processing some files")),
      Fails("merge", {"-merge", "-output", "/nonexistent/o.tvf", "a.tvf", "-", "-a", "-b", "-filter", "f"},
            Error("Could not open output file: /nonexistent/o.tvf")),
      Fails("convert", {"-convert", "-verbosity", "2", "-progress", "5", "-b", "-path", "p", "-pattern", "*"},
            Error("Could not be opened: p") + Warning("Errors converting some files for: p") +
                "VmpMap: Info: Terminated/Done!\n"),
      Fails("slim", {"-slim", "-verbosity", "1", "-filename", "a", "-output", "b", "-resolution", "0.1", "-b"},
            no_input + Error("Error sliming data")),
      Fails("tile image", {"-tile", "-image", "-filename", "a.jpg", "-template", "t", "-num-x-tiles", "2",
                           "-num-y-tiles", "3", "-elevation"},
            Error("Only TIFF format is supported for elevation data.") + Error("Error tiling image")),
      Fails("tile vector", {"-tile", "-vector", "-filename", "a", "-template", "t", "-num-x-tiles", "2",
                            "-num-y-tiles", "3", "-tvf-extent", "-custom-range", "-min-wlon", "-10",
                            "-max-wlon", "350", "-b"},
            no_input + Error("Error tiling vector data")),
      Fails("split", {"-split", "-filename", "a", "-output", "b", "-attr", "@1==2", "-invert-attr"},
            no_input + Error("Error splitting data")),
      Fails("tile_info", {"-tile_info", "-verbosity", "1", "-slf-pattern", "no/s", "-data-pattern", "d", "-width",
                          "10", "-height", "10", "-num-x-tiles", "1", "-num-y-tiles", "1", "-min-lat", "0",
                          "-max-lat", "1", "-min-lon", "0", "-max-lon", "1"},
            Error("Could not open tile info file: no/s00") + Error("Error generating tile info files")),
      Fails("slf", {"-lif", "-image", "-path", "p", "-pattern", "*.jpg", "-out-slf-name", "x"},
            Error("Could not be opened: p") + Warning("Errors converting some files in: p")),
      Fails("shp2tvf reads its own options", {"-shp2tvf", "-r", "-bogus", "dir"},
            "Unknown option: -bogus\n\n" + Shp2TvfUsage()),
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
      Fails("no dataset", {"-generate", "-oGISreq", "x", "-output", "o.jpg"}, no_dataset + "\n"),
      Fails("dataset before iteration max", {"-generate", "-iteration-max", "5"}, no_dataset + "\n"),
      Fails("iteration max 9999.5", With(valid, {"-iteration-max", "9999.5"}), too_small),
      Served("iteration max 10000", With(valid, {"-iteration-max", "10000"})),
      Fails("no request", {"-generate", "-dataset", "world.sdf"}, "Mandatory variable oGISreq not set in non-CGI mode!\n"),
      Served("request", With(valid, {"-output", "-", "-verbosity", "1"})),
      Fails("fcgi before everything", {"-generate", "-fcgi", "-cgi"}, fcgi, query),
      CgiFails("cgi ignores -oGISreq", With(valid, {"-cgi"}), no_query_string, no_query),
      CgiFails("cgi without dataset", {"-generate", "-cgi"}, no_dataset, query),
      Served("cgi with QUERY_STRING", cgi, query, true),
      Served("cgi with an empty QUERY_STRING", cgi, {{"QUERY_STRING", ""}}, true),
  });
}

// Log files go to the directory named by the environment, and never in CGI mode.
TEST(DriverCliTest, LogFiles) {
  TempDir logs, cwd;
  RunOptions options;
  options.working_dir = cwd.path();
  options.env = {{"VMP_LOG_DIR", logs.path()}, {"KAV_LOG_DIR", logs.path()}, {"QUERY_STRING", "REQUEST=GetMap"}};
  RunResult r = RunMapServer({"-merge", "a.tvf"}, options);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(test::ReadFile(logs / "vmp_error.log"), "VmpMap: Error: Missing mandatory -output parameter for -merge!\n");
  r = RunMapServer({"-version"}, options);
  EXPECT_EQ(test::ReadFile(logs / "kav_error.log"), "\nInfo: KAV Toolkit and KAV Map Server Version 3.5\n");
  EXPECT_TRUE(std::filesystem::is_empty(cwd.path()));

  TempDir cgi_logs;
  options.env["VMP_LOG_DIR"] = cgi_logs.path();
  options.env["KAV_LOG_DIR"] = cgi_logs.path();
  r = RunMapServer({"-generate", "-cgi", "-dataset", "d.sdf"}, options);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Cannot open dataset info file"), std::string::npos);
  EXPECT_TRUE(std::filesystem::is_empty(cgi_logs.path()));
  EXPECT_TRUE(std::filesystem::is_empty(cwd.path()));
}

}  // namespace
}  // namespace vmp
