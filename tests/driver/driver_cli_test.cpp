// The built program run end to end: one line per command line, with the
// exit status and what must appear on standard output and standard error.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
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

// What one output stream must hold: exactly a text, or some lines among others.
struct Expect {
  bool exact;
  std::vector<std::string> texts;
};
Expect Exactly(std::string text) { return {true, {std::move(text)}}; }
Expect Nothing() { return {true, {""}}; }
Expect Has(std::initializer_list<std::string> lines) { return {false, lines}; }

std::string Error(const std::string& message) { return "VmpMap: Error: " + message + "\n"; }
std::string Warning(const std::string& message) { return "VmpMap: Warning: " + message + "\n"; }
std::string Missing(const std::string& name) {
  return "expected follow up variable: " + name + "\n";
}
std::string Unrecognized(const std::string& arg) {
  return "Unrecognized command line argument: " + arg + "\n";
}
std::string Unavailable(const std::string& capability) {
  return Error(capability + " is not available in this build");
}
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

void Check(const Expect& expect, const std::string& actual, const char* stream,
           const std::string& name) {
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
    if (c.arg_file) {
      const std::string path = files.Write("args.txt", *c.arg_file);
      for (std::string& arg : args) {
        if (arg == "{ARGS}") arg = path;
      }
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
      {"no arguments", {}, 1, Exactly(NoOptions()), Nothing()},
      {"unknown mode", {"-bogus"}, 1, Exactly(NoOptions()), Nothing()},
      {"modes are case-sensitive", {"-Version"}, 1, Exactly(NoOptions()), Nothing()},
      {"-map-server alone", {"-map-server"}, 1, Exactly(NoOptions()), Nothing()},
      {"-map-server once only", {"-map-server", "-map-server", "-version"}, 1,
       Exactly(NoOptions()), Nothing()},
      {"-version", {"-version"}, 0, Nothing(), Exactly(kVersion)},
      {"-map-server -version", {"-map-server", "-version"}, 0, Nothing(), Exactly(kVersion)},
      {"-version ignores the rest", {"-version", "-bogus"}, 0, Nothing(), Exactly(kVersion)},
      {"-version after a mode", {"-generate", "-version"}, 1, Nothing(),
       Exactly(Unrecognized("-version"))},
      {"-version after verbosity", {"-map-server", "-verbosity", "3", "-version"}, 0, Nothing(),
       Exactly(kVersion)},
      {"-version after progress", {"-progress", "10", "-version"}, 0, Nothing(),
       Exactly(kVersion)},
      {"-help", {"-help"}, 0, Exactly(UsageText()), Nothing()},
      {"-help after -map-server", {"-map-server", "-help"}, 0, Exactly(UsageText()), Nothing()},
      {"-verbosity without value", {"-verbosity"}, 1, Nothing(), Exactly(Missing("verbosity"))},
      {"-verbosity not a number", {"-verbosity", "abc", "-version"}, 1, Nothing(),
       Exactly(Missing("verbosity"))},
      {"-verbosity followed by an option", {"-verbosity", "-help"}, 1, Nothing(),
       Exactly(Missing("verbosity"))},
      {"-progress without value", {"-progress"}, 1, Nothing(), Exactly(Missing("progress"))},
      {"-progress not a number", {"-map-server", "-progress", "x"}, 1, Nothing(),
       Exactly(Missing("progress"))},
      {"only one leading level option", {"-verbosity", "2", "-progress", "5", "-version"}, 1,
       Exactly(NoOptions()), Nothing()},
      {"-arg-file without a name", {"-arg-file"}, 1, Exactly(NoOptions()), Nothing()},
  });
}

TEST(DriverCliTest, ArgumentFiles) {
  const std::string a1100 = "-" + std::string(1099, 'x');
  const std::string a1024 = "-" + std::string(1023, 'x');
  RunCases({
      {"quoted argument keeps its blank", {"-arg-file", "{ARGS}"}, 1, Nothing(),
       Exactly(Unrecognized("-x y")), {}, "-generate \"-x y\" c"},
      {"quoted value then a second argument", {"-arg-file", "{ARGS}"}, 1, Nothing(),
       Exactly(Unrecognized("c")), {}, "-generate -dataset \"a b\" c"},
      {"arguments across lines", {"-arg-file", "{ARGS}"}, 0, Nothing(), Exactly(kVersion), {},
       "\n\n   -version\n"},
      {"after the leading options", {"-map-server", "-verbosity", "1", "-arg-file", "{ARGS}"}, 0,
       Nothing(), Exactly(kVersion), {}, "-version"},
      {"the file replaces the rest of the command line", {"-arg-file", "{ARGS}", "-bogus"}, 0,
       Nothing(), Exactly(kVersion), {}, "-version"},
      {"empty file", {"-arg-file", "{ARGS}"}, 1, Exactly(NoOptions()), Nothing(), {}, ""},
      {"over-long argument is cut", {"-arg-file", "{ARGS}"}, 1, Nothing(),
       Exactly("Argument is too long, truncated.\n" + Unrecognized(a1024)), {},
       "-generate " + a1100},
      {"missing file", {"-arg-file", "/nonexistent/args.txt"}, 1, Exactly(NoOptions()),
       Exactly(Error("Could not open arg-file: /nonexistent/args.txt"))},
      {"a directory cannot be read", {"-arg-file", "/"}, 1, Exactly(NoOptions()),
       Exactly("Error reading arguments.\n" + Error("Could not open arg-file: /"))},
  });
}

TEST(DriverCliTest, UnknownOptionsPerMode) {
  RunCases({
      {"-generate", {"-generate", "-bogus"}, 1, Nothing(), Exactly(Unrecognized("-bogus"))},
      {"-generate stops at the first", {"-generate", "-x", "-y"}, 1, Nothing(),
       Exactly(Unrecognized("-x"))},
      {"-generate takes no files", {"-generate", "file.sdf"}, 1, Nothing(),
       Exactly(Unrecognized("file.sdf"))},
      {"-merge", {"-merge", "-output", "o", "-ouput", "a"}, 1, Nothing(),
       Exactly(Unrecognized("-ouput"))},
      {"-convert", {"-convert", "-r"}, 1, Nothing(), Exactly(Unrecognized("-r"))},
      {"-slim", {"-slim", "-b", "-c"}, 1, Nothing(), Exactly(Unrecognized("-c"))},
      {"-tile_info", {"-tile_info", "-a"}, 1, Nothing(), Exactly(Unrecognized("-a"))},
      {"-tile -image", {"-tile", "-image", "-attr", "@1==1"}, 1, Nothing(),
       Exactly(Unrecognized("-attr"))},
      {"-tile -image twice", {"-tile", "-image", "-vector"}, 1, Nothing(),
       Exactly(Unrecognized("-vector"))},
      {"-tile -vector", {"-tile", "-vector", "-elevation"}, 1, Nothing(),
       Exactly(Unrecognized("-elevation"))},
      {"-split", {"-split", "-template", "t"}, 1, Nothing(), Exactly(Unrecognized("-template"))},
      {"-split takes no files", {"-split", "in.tvf"}, 1, Nothing(),
       Exactly(Unrecognized("in.tvf"))},
      {"-slf", {"-slf", "-vector", "-output", "x"}, 1, Nothing(),
       Exactly(Unrecognized("-output"))},
      {"options are case-sensitive", {"-merge", "-Output", "o", "a"}, 1, Nothing(),
       Exactly(Unrecognized("-Output"))},
  });
}

TEST(DriverCliTest, MissingValuesNameTheValue) {
  const std::string s1023(1023, 'p'), s1024(1024, 'p');
  const std::string q65535(65535, 'q'), q65536(65536, 'q');
  RunCases({
      {"dataset", {"-generate", "-dataset"}, 1, Nothing(), Exactly(Missing("dataset"))},
      {"iteration max", {"-generate", "-iteration-max"}, 1, Nothing(),
       Exactly(Missing("iteration max"))},
      {"iteration max not a number", {"-generate", "-iteration-max", "many", "-dataset", "d"}, 1,
       Nothing(), Exactly(Missing("iteration max"))},
      {"openGIS request", {"-generate", "-oGISreq"}, 1, Nothing(),
       Exactly(Missing("openGIS request"))},
      {"generate output", {"-generate", "-dataset", "d", "-output"}, 1, Nothing(),
       Exactly(Missing("output"))},
      {"generate verbosity", {"-generate", "-verbosity", "loud"}, 1, Nothing(),
       Exactly(Missing("verbosity"))},
      {"dataset too long for its buffer", {"-generate", "-dataset", s1024}, 1, Nothing(),
       Exactly(Missing("dataset"))},
      {"request too long for its buffer", {"-generate", "-dataset", "d", "-oGISreq", q65536}, 1,
       Nothing(), Exactly(Missing("openGIS request"))},
      {"merge output", {"-merge", "a", "-output"}, 1, Nothing(), Exactly(Missing("output"))},
      {"merge filter", {"-merge", "-filter"}, 1, Nothing(), Exactly(Missing("filter"))},
      {"convert path", {"-convert", "-path"}, 1, Nothing(), Exactly(Missing("path"))},
      {"convert pattern", {"-convert", "-pattern"}, 1, Nothing(), Exactly(Missing("pattern"))},
      {"convert progress", {"-convert", "-progress", "often"}, 1, Nothing(),
       Exactly(Missing("progress"))},
      {"path too long for its buffer", {"-convert", "-path", s1024, "-pattern", "*"}, 1,
       Nothing(), Exactly(Missing("path"))},
      {"pattern too long for its buffer", {"-convert", "-path", "p", "-pattern", s1024}, 1,
       Nothing(), Exactly(Missing("pattern"))},
      {"slf pattern too long", {"-slf", "-image", "-pattern", s1024}, 1, Nothing(),
       Exactly(Missing("pattern"))},
      {"slim filename", {"-slim", "-filename"}, 1, Nothing(), Exactly(Missing("filename"))},
      {"slim resolution", {"-slim", "-resolution", "fine"}, 1, Nothing(),
       Exactly(Missing("resolution"))},
      {"tile_info slf pattern", {"-tile_info", "-slf-pattern"}, 1, Nothing(),
       Exactly(Missing("slf pattern"))},
      {"tile_info data pattern", {"-tile_info", "-data-pattern"}, 1, Nothing(),
       Exactly(Missing("data pattern"))},
      {"tile_info width", {"-tile_info", "-width", "wide"}, 1, Nothing(),
       Exactly(Missing("width"))},
      {"tile_info height", {"-tile_info", "-height"}, 1, Nothing(), Exactly(Missing("height"))},
      {"tile_info num x", {"-tile_info", "-num-x-tiles"}, 1, Nothing(),
       Exactly(Missing("num x tiles"))},
      {"tile_info num y", {"-tile_info", "-num-y-tiles", "y"}, 1, Nothing(),
       Exactly(Missing("num y tiles"))},
      {"tile_info min lat", {"-tile_info", "-min-lat"}, 1, Nothing(), Exactly(Missing("min lat"))},
      {"tile_info max lat", {"-tile_info", "-max-lat", "n"}, 1, Nothing(),
       Exactly(Missing("max lat"))},
      {"tile_info min lon", {"-tile_info", "-min-lon"}, 1, Nothing(), Exactly(Missing("min lon"))},
      {"tile_info max lon", {"-tile_info", "-max-lon"}, 1, Nothing(), Exactly(Missing("max lon"))},
      {"tile filename", {"-tile", "-image", "-filename"}, 1, Nothing(),
       Exactly(Missing("filename"))},
      {"tile template", {"-tile", "-vector", "-template"}, 1, Nothing(),
       Exactly(Missing("template"))},
      {"split num points", {"-split", "-num-points", "some"}, 1, Nothing(),
       Exactly(Missing("num points"))},
      {"split min world lon", {"-split", "-min-wlon"}, 1, Nothing(),
       Exactly(Missing("min world lon"))},
      {"split max world lon", {"-split", "-max-wlon", "east"}, 1, Nothing(),
       Exactly(Missing("max world lon"))},
      {"split attr", {"-split", "-filename", "f", "-attr"}, 1, Nothing(),
       Exactly("expected follow up attribute condition: -attr\n")},
      {"tile attr", {"-tile", "-vector", "-attr"}, 1, Nothing(),
       Exactly("expected follow up attribute condition: -attr\n")},
      {"slf out slf name", {"-slf", "-vector", "-out-slf-name"}, 1, Nothing(),
       Exactly(Missing("out slf name"))},
      // The longest values that fit get through to the mode's work.
      {"fitting dataset and request", {"-generate", "-dataset", s1023, "-oGISreq", q65535}, 1,
       Nothing(), Exactly(Unavailable("The map service"))},
      {"fitting path and pattern", {"-convert", "-path", s1023, "-pattern", s1023}, 1, Nothing(),
       Has({Unavailable("TVF directory conversion")})},
  });
}

TEST(DriverCliTest, ToolValidationMessages) {
  const Args tile_image = {"-tile", "-image", "-filename", "in.jpg", "-template", "t_%_%.jpg"};
  const Args tile_vector = {"-tile", "-vector", "-filename", "in.tvf", "-template", "t_%_%.tvf",
                            "-num-x-tiles", "2", "-num-y-tiles", "2"};
  const Args split = {"-split", "-filename", "in.tvf", "-output", "out.tvf"};
  const Args info = {"-tile_info", "-slf-pattern", "t_%_%.slf", "-data-pattern", "t_%_%.jpg"};
  const Args size = {"-width", "1000", "-height", "500"};
  const Args box = {"-min-lat", "0", "-max-lat", "10", "-min-lon", "0", "-max-lon", "20"};
  const Args slf_vector = {"-slf", "-vector", "-path", "tree", "-pattern", "*.tvf"};
  const Args slf_image = {"-slf", "-image", "-path", "tree", "-pattern", "*.jpg"};
  auto with = [](Args base, std::initializer_list<Args> more) {
    for (const Args& m : more) base.insert(base.end(), m.begin(), m.end());
    return base;
  };
  auto fails = [](const char* name, Args args, const std::string& message) {
    return CliCase{name, std::move(args), 1, Nothing(), Exactly(Error(message))};
  };
  RunCases({
      fails("tvf-info without files", {"-tvf-info"}, "Missing TVF filenames after -tvf-info!"),
      fails("merge without anything", {"-merge"}, "Missing files to merge!"),
      fails("merge without files", {"-merge", "-output", "o.tvf", "-b"}, "Missing files to merge!"),
      fails("merge without output", {"-merge", "a.tvf", "b.tvf"},
            "Missing mandatory -output parameter for -merge!"),
      fails("convert without path", {"-convert", "-pattern", "*.tvf"},
            "Mandatory variables path or pattern not set!"),
      fails("convert without pattern", {"-convert", "-path", "p"},
            "Mandatory variables path or pattern not set!"),
      fails("convert with -a and -b", {"-convert", "-path", "p", "-pattern", "*", "-a", "-b"},
            "-b and -a are both set!"),
      fails("slf without pattern", {"-slf", "-image", "-path", "p"},
            "Mandatory variables path or pattern not set!"),
      fails("slf with -b and -a", with(slf_vector, {{"-multi-layer", "-b", "-a"}}),
            "-b and -a are both set!"),
      fails("slim without anything", {"-slim"},
            "Mandatory variables filename, output or resolution not set!"),
      fails("slim without resolution", {"-slim", "-filename", "a", "-output", "b"},
            "Mandatory variables filename, output or resolution not set!"),
      fails("slim with zero resolution", {"-slim", "-filename", "a", "-output", "b", "-resolution", "0"},
            "Mandatory variables filename, output or resolution not set!"),
      fails("slim with negative resolution",
            {"-slim", "-filename", "a", "-output", "b", "-resolution", "-0.5"},
            "Mandatory variables filename, output or resolution not set!"),
      fails("tile_info without patterns", {"-tile_info"},
            "Mandatory variables slf_pattern or data-pattern not set!"),
      fails("tile_info without data pattern", {"-tile_info", "-slf-pattern", "s"},
            "Mandatory variables slf_pattern or data-pattern not set!"),
      fails("tile_info without size", info, "Mandatory variables width/height not set!"),
      fails("tile_info with zero height", with(info, {{"-width", "10", "-height", "0"}}),
            "Mandatory variables width/height not set!"),
      fails("tile_info without extent", with(info, {size}),
            "Mandatory variables min/max_lat/lon not set!"),
      fails("tile_info with three bounds",
            with(info, {size, {"-min-lat", "0", "-max-lat", "1", "-min-lon", "0"}}),
            "Mandatory variables min/max_lat/lon not set!"),
      fails("tile_info without tile counts", with(info, {size, box}),
            "Mandatory variables num_x or num_y not set!"),
      fails("tile_info with one tile count", with(info, {size, box, {"-num-x-tiles", "3"}}),
            "Mandatory variables num_x or num_y not set!"),
      fails("tile without kind", {"-tile"}, "Missing -vector or -image after -tile!"),
      fails("tile with kind not first", {"-tile", "-filename", "f", "-image"},
            "Missing -vector or -image after -tile!"),
      fails("tile without filename", {"-tile", "-image", "-template", "t"},
            "Mandatory variables filename or template not set for -tile!"),
      fails("tile without template", {"-tile", "-vector", "-filename", "f"},
            "Mandatory variables filename or template not set for -tile!"),
      fails("tile without counts", tile_image, "Mandatory variables num-x/y-tiles not set for -tile!"),
      fails("tile with zero columns", with(tile_image, {{"-num-x-tiles", "0", "-num-y-tiles", "2"}}),
            "Mandatory variables num-x/y-tiles not set for -tile!"),
      fails("tile with -attr", with(tile_vector, {{"-tvf-extent", "-attr", "@1==1"}}),
            "-attr and -num-points are not allowed for -tile!"),
      fails("tile with -num-points", with(tile_vector, {{"-tvf-extent", "-num-points", "5"}}),
            "-attr and -num-points are not allowed for -tile!"),
      fails("tile without extent", tile_vector,
            "-world-extent, -tvf-extent or -min/max-lat/lon are required!"),
      fails("tile with three bounds",
            with(tile_vector, {{"-min-lat", "0", "-max-lat", "1", "-max-lon", "3"}}),
            "-world-extent, -tvf-extent or -min/max-lat/lon are required!"),
      fails("tile with world and bounds", with(tile_vector, {{"-world-extent", "-min-lat", "0"}}),
            "-min/max-lat/lon cannot be used with -world-extent or -tvf-extent!"),
      fails("tile with two ranges", with(tile_vector, {{"-tvf-extent", "-pos-range", "-neg-range"}}),
            "Only one of -neg-range, -pos-range, -custom-range or -no-range is allowed!"),
      fails("tile custom range without east",
            with(tile_vector, {{"-tvf-extent", "-custom-range", "-min-wlon", "0"}}),
            "Min world lon and max world lon not both set!"),
      fails("tile with an empty custom range",
            with(tile_vector, {{"-tvf-extent", "-custom-range", "-min-wlon", "10", "-max-wlon", "10"}}),
            "Invalid wrap range!"),
      fails("split without anything", {"-split"},
            "Mandatory variables filename or output not set for -split!"),
      fails("split without output", {"-split", "-filename", "f", "-bbox"},
            "Mandatory variables filename or output not set for -split!"),
      fails("split without a kind", split, "No -attr, -bbox or -num-points specified for -split!"),
      fails("split by attr and bbox", with(split, {{"-attr", "@1==1", "-bbox"}}),
            "Only one -attr, -bbox or -num-points is allowed!"),
      fails("split by bbox and points", with(split, {{"-bbox", "-num-points", "3"}}),
            "Only one -attr, -bbox or -num-points is allowed!"),
      fails("split into one-point pieces", with(split, {{"-num-points", "1"}}),
            "Number of points must be at least 2!"),
      fails("split with two ranges", with(split, {{"-num-points", "3", "-neg-range", "-no-range"}}),
            "Only one of -neg-range, -pos-range, -custom-range or -no-range is allowed!"),
      fails("split custom range without bounds", with(split, {{"-num-points", "3", "-custom-range"}}),
            "Min world lon and max world lon not both set!"),
      fails("split world lons without custom range",
            with(split, {{"-num-points", "3", "-min-wlon", "0", "-max-wlon", "360"}}),
            "Invalid wrap range!"),
      fails("split with a reversed custom range",
            with(split, {{"-num-points", "3", "-custom-range", "-min-wlon", "100", "-max-wlon", "-100"}}),
            "Invalid wrap range!"),
      fails("split bbox with own extent and bounds", with(split, {{"-bbox", "-tvf-extent", "-min-lat", "0"}}),
            "-min/max-lat/lon cannot be used with -world-extent or -tvf-extent!"),
      fails("split bounds without bbox", with(split, {{"-num-points", "3", "-min-lat", "0"}}),
            "-min/max-lat/lon can only be used with -bbox!"),
      fails("split bbox without extent", with(split, {{"-bbox"}}),
            "Mandatory extent variables (min/max-lat/lon) are not set for -bbox!"),
      fails("split bbox with three bounds",
            with(split, {{"-bbox", "-min-lat", "0", "-max-lat", "1", "-min-lon", "0"}}),
            "Mandatory extent variables (min/max-lat/lon) are not set for -bbox!"),
      fails("split inverting without attr", with(split, {{"-num-points", "3", "-invert-attr"}}),
            "Invalid options for -split!"),
      fails("split tiles without bbox", with(split, {{"-num-points", "3", "-num-x-tiles", "2"}}),
            "Invalid options for -split!"),
      fails("split own extent without bbox", with(split, {{"-num-points", "3", "-tvf-extent"}}),
            "Invalid options for -split!"),
      fails("split attr with a wrap range", with(split, {{"-attr", "@1==1", "-pos-range"}}),
            "Invalid options for -split!"),
      fails("split bbox with zero rows", with(split, {{"-bbox", "-tvf-extent", "-num-y-tiles", "0"}}),
            "Invalid options for -split!"),
      fails("slf without kind", {"-slf"}, "Missing -vector or -image after -slf!"),
      fails("lif without kind", {"-lif", "-path", "p"}, "Missing -vector or -image after -slf!"),
      fails("slf vector without layer mode", slf_vector,
            "-single-layer or -multi-layer is required in -vector mode!"),
      fails("slf vector with both layer modes", with(slf_vector, {{"-single-layer", "-multi-layer"}}),
            "Only one of -single-layer or -multi-layer may be used!"),
      fails("slf single layer without name", with(slf_vector, {{"-single-layer"}}),
            "Mandatory variable -out-slf-name not set in -single-layer mode!"),
      fails("slf image without name", slf_image,
            "Mandatory variable -out-slf-name not set in -image mode!"),
      {"slf image multi-layer warns", with(slf_image, {{"-multi-layer"}}), 1, Nothing(),
       Exactly(Warning("-multi-layer is not supported in -image mode, ignored!") +
               Error("Mandatory variable -out-slf-name not set in -image mode!"))},
      {"slf multi-layer ignores the name",
       with(slf_vector, {{"-multi-layer", "-out-slf-name", "all"}}), 1, Nothing(),
       Exactly(Warning("-out-slf-name ignored in -multi-layer mode.") + Unavailable("SLF generation") +
               Warning("Errors converting some files in: tree"))},
  });
}

// Valid command lines reach the mode's worker; while a worker is missing
// from the build the mode says so and fails.
TEST(DriverCliTest, ValidCommandLinesReachTheWorkers) {
  RunCases({
      {"tvf-info", {"-tvf-info", "a.tvf", "-b.tvf"}, 1, Nothing(), Exactly(Unavailable("TVF info"))},
      {"merge", {"-merge", "-output", "o.tvf", "a.tvf", "-", "b.tvf", "-filter", "f"}, 1,
       Nothing(), Exactly(Unavailable("TVF merging"))},
      {"merge with -a and -b", {"-merge", "-a", "-b", "-output", "o.tvf", "a.tvf"}, 1, Nothing(),
       Exactly(Unavailable("TVF merging"))},
      {"convert", {"-convert", "-verbosity", "2", "-progress", "5", "-b", "-path", "p", "-pattern", "*"},
       1, Nothing(),
       Exactly(Unavailable("TVF directory conversion") + Warning("Errors converting some files for: p"))},
      {"slim", {"-slim", "-verbosity", "1", "-filename", "a", "-output", "b", "-resolution", "0.1", "-b"},
       1, Nothing(), Exactly(Unavailable("Slimming") + Error("Error sliming data"))},
      {"tile image",
       {"-tile", "-image", "-filename", "a.jpg", "-template", "t", "-num-x-tiles", "2",
        "-num-y-tiles", "3", "-elevation"},
       1, Nothing(), Exactly(Unavailable("Image tiling") + Error("Error tiling image"))},
      {"tile vector",
       {"-tile", "-vector", "-filename", "a", "-template", "t", "-num-x-tiles", "2", "-num-y-tiles",
        "3", "-tvf-extent", "-custom-range", "-min-wlon", "-10", "-max-wlon", "350", "-b"},
       1, Nothing(), Exactly(Unavailable("Vector tiling") + Error("Error tiling vector data"))},
      {"split", {"-split", "-filename", "a", "-output", "b", "-attr", "@1==2", "-invert-attr"}, 1,
       Nothing(), Exactly(Unavailable("Vector splitting") + Error("Error splitting data"))},
      {"tile_info",
       {"-tile_info", "-verbosity", "1", "-slf-pattern", "s", "-data-pattern", "d", "-width", "10",
        "-height", "10", "-num-x-tiles", "1", "-num-y-tiles", "1", "-min-lat", "0", "-max-lat",
        "1", "-min-lon", "0", "-max-lon", "1"},
       1, Nothing(),
       Exactly(Unavailable("Tile info generation") + Error("Error generating tile info files"))},
      {"slf", {"-lif", "-image", "-path", "p", "-pattern", "*.jpg", "-out-slf-name", "x"}, 1,
       Nothing(),
       Exactly(Unavailable("SLF generation") + Warning("Errors converting some files in: p"))},
      {"shp2tvf takes any arguments", {"-shp2tvf", "-r", "-bogus", "dir"}, 1, Nothing(),
       Exactly(Unavailable("Shapefile conversion"))},
  });
}

TEST(DriverCliTest, MapServerMode) {
  const Args valid = {"-generate", "-dataset", "world.sdf", "-oGISreq", "REQUEST=GetCapabilities"};
  auto with = [](Args base, Args more) {
    base.insert(base.end(), more.begin(), more.end());
    return base;
  };
  const Env no_query = {{"QUERY_STRING", std::nullopt}};
  const Env query = {{"QUERY_STRING", "SERVICE=WMS&REQUEST=GetCapabilities"}};
  const Env empty_query = {{"QUERY_STRING", ""}};
  const std::string served = Unavailable("The map service");
  RunCases({
      {"no arguments at all", {"-generate"}, 1, Nothing(),
       Exactly("Mandatory variable dataset is not set!\n")},
      {"no dataset", {"-generate", "-oGISreq", "x", "-output", "o.jpg"}, 1, Nothing(),
       Exactly("Mandatory variable dataset is not set!\n")},
      {"dataset is checked before iteration max", {"-generate", "-iteration-max", "5"}, 1,
       Nothing(), Exactly("Mandatory variable dataset is not set!\n")},
      {"iteration max 9999", with(valid, {"-iteration-max", "9999"}), 1, Nothing(),
       Exactly("iteration_max is too small: min=10000.\n\n")},
      {"iteration max 9999.5", with(valid, {"-iteration-max", "9999.5"}), 1, Nothing(),
       Exactly("iteration_max is too small: min=10000.\n\n")},
      {"iteration max 10000", with(valid, {"-iteration-max", "10000"}), 1, Nothing(),
       Exactly(served)},
      {"no request", {"-generate", "-dataset", "world.sdf"}, 1, Nothing(),
       Exactly("Mandatory variable oGISreq not set in non-CGI mode!\n")},
      {"request", valid, 1, Nothing(), Exactly(served)},
      {"request with output and verbosity", with(valid, {"-output", "-", "-verbosity", "4"}), 1,
       Nothing(), Exactly(served)},
      {"fcgi with a valid command line", with(valid, {"-fcgi"}), 1, Nothing(),
       Exactly("-fcgi option is not supported on this platform\n")},
      {"fcgi before everything else", {"-generate", "-fcgi", "-cgi"}, 1, Nothing(),
       Exactly("-fcgi option is not supported on this platform\n"), query},
      {"cgi without QUERY_STRING", {"-generate", "-cgi", "-dataset", "world.sdf"}, 1, Nothing(),
       Exactly("Missing QUERY_STRING environment variable in CGI mode!\n"), no_query},
      {"cgi ignores -oGISreq", with(valid, {"-cgi"}), 1, Nothing(),
       Exactly("Missing QUERY_STRING environment variable in CGI mode!\n"), no_query},
      {"cgi with QUERY_STRING", {"-generate", "-cgi", "-dataset", "world.sdf"}, 1, Nothing(),
       Exactly(served), query},
      {"cgi with an empty QUERY_STRING", {"-generate", "-cgi", "-dataset", "world.sdf"}, 1,
       Nothing(), Exactly(served), empty_query},
      {"cgi without dataset", {"-generate", "-cgi"}, 1, Nothing(),
       Exactly("Mandatory variable dataset is not set!\n"), query},
  });
}

// Log files go to the directory named by the environment, and never in CGI
// mode.
TEST(DriverCliTest, LogFiles) {
  TempDir logs, cwd;
  RunOptions options;
  options.working_dir = cwd.path();
  options.env = {{"VMP_LOG_DIR", logs.path()}, {"KAV_LOG_DIR", logs.path()},
                 {"QUERY_STRING", "REQUEST=GetMap"}};
  RunResult r = RunMapServer({"-merge", "a.tvf"}, options);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(test::ReadFile(logs / "vmp_error.log"),
            "VmpMap: Error: Missing mandatory -output parameter for -merge!\n");
  r = RunMapServer({"-version"}, options);
  EXPECT_EQ(test::ReadFile(logs / "kav_error.log"),
            "\nInfo: KAV Toolkit and KAV Map Server Version 3.5\n");
  EXPECT_TRUE(std::filesystem::is_empty(cwd.path()));

  TempDir cgi_logs;
  options.env["VMP_LOG_DIR"] = cgi_logs.path();
  options.env["KAV_LOG_DIR"] = cgi_logs.path();
  r = RunMapServer({"-generate", "-cgi", "-dataset", "d.sdf"}, options);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, Unavailable("The map service"));
  EXPECT_TRUE(std::filesystem::is_empty(cgi_logs.path()));
  EXPECT_TRUE(std::filesystem::is_empty(cwd.path()));
}

}  // namespace
}  // namespace vmp
