// Setup of the modes: what the option checks hand to the workers, and the
// process-wide settings the options change.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "map_server/driver/command_generate.h"
#include "map_server/driver/command_merge.h"
#include "map_server/driver/command_split.h"
#include "map_server/driver/command_tile.h"
#include "map_server/driver/command_convert.h"
#include "tests/support/message_capture.h"
#include "toolkit/global_config.h"
#include "toolkit/message_log.h"

namespace vmp {
namespace {

using test::MessageCapture;
using Args = std::vector<std::string>;

// Keeps the global configuration of the test process as it was.
class SetupTest : public ::testing::Test {
 protected:
  void SetUp() override { saved_ = kav::Config(); }
  void TearDown() override { kav::Config() = saved_; }
  kav::GlobalConfig saved_;
};

struct Expected {
  SplitKind kind;
  double min_x, min_y, max_x, max_y;  // checked for kTileGivenExtent
  int64_t columns, rows;              // checked for the tiling kinds
  bool wrap;
  double wrap_west, wrap_east;        // checked when wrap is on
};

void ExpectSplit(const VectorSplitOptions& o, const Expected& e, const std::string& name) {
  EXPECT_EQ(o.kind, e.kind) << name;
  if (e.kind == SplitKind::kTileGivenExtent) {
    EXPECT_EQ(o.min_x, e.min_x) << name;
    EXPECT_EQ(o.min_y, e.min_y) << name;
    EXPECT_EQ(o.max_x, e.max_x) << name;
    EXPECT_EQ(o.max_y, e.max_y) << name;
  }
  if (e.kind == SplitKind::kTileGivenExtent || e.kind == SplitKind::kTileOwnExtent) {
    EXPECT_EQ(o.columns, e.columns) << name;
    EXPECT_EQ(o.rows, e.rows) << name;
  }
  EXPECT_EQ(o.wrap, e.wrap) << name;
  if (e.wrap) {
    EXPECT_EQ(o.wrap_west, e.wrap_west) << name;
    EXPECT_EQ(o.wrap_east, e.wrap_east) << name;
  }
}

TEST_F(SetupTest, SplitKindsExtentsAndWrapRanges) {
  using K = SplitKind;
  const Args io = {"-filename", "in.tvf", "-output", "out.tvf"};
  struct Case {
    const char* name;
    Args args;
    Expected expected;
  } cases[] = {
      {"attr", {"-attr", "@1==2", "-attr", "@2==3"}, {K::kAttribute, 0, 0, 0, 0, 1, 1, false, 0, 0}},
      {"attr inverted", {"-attr", "@1==2", "-invert-attr", "-no-range"},
       {K::kAttribute, 0, 0, 0, 0, 1, 1, false, 0, 0}},
      {"points", {"-num-points", "2"}, {K::kPoints, 0, 0, 0, 0, 1, 1, false, 0, 0}},
      {"points pos range", {"-num-points", "50", "-pos-range"},
       {K::kPoints, 0, 0, 0, 0, 1, 1, true, 0, 360}},
      {"points neg range", {"-num-points", "50", "-neg-range"},
       {K::kPoints, 0, 0, 0, 0, 1, 1, true, -180, 180}},
      {"points custom range",
       {"-num-points", "3", "-custom-range", "-min-wlon", "-20", "-max-wlon", "340"},
       {K::kPoints, 0, 0, 0, 0, 1, 1, true, -20, 340}},
      {"bbox one rectangle",
       {"-bbox", "-min-lat", "10", "-max-lat", "20", "-min-lon", "-5.5", "-max-lon", "7"},
       {K::kTileGivenExtent, -5.5, 10, 7, 20, 1, 1, false, 0, 0}},
      {"bbox grid",
       {"-bbox", "-num-x-tiles", "4", "-num-y-tiles", "3", "-min-lat", "-90", "-max-lat", "90",
        "-min-lon", "-180", "-max-lon", "180"},
       {K::kTileGivenExtent, -180, -90, 180, 90, 4, 3, false, 0, 0}},
      {"bbox own extent", {"-bbox", "-tvf-extent", "-num-x-tiles", "2"},
       {K::kTileOwnExtent, 0, 0, 0, 0, 2, 1, false, 0, 0}},
      {"bbox world", {"-bbox", "-world-extent"},
       {K::kTileGivenExtent, -180, -90, 180, 90, 1, 1, false, 0, 0}},
      {"bbox world in wrap range", {"-bbox", "-world-extent", "-pos-range"},
       {K::kTileGivenExtent, 0, -90, 360, 90, 1, 1, true, 0, 360}},
      {"last extent choice wins", {"-bbox", "-world-extent", "-tvf-extent"},
       {K::kTileOwnExtent, 0, 0, 0, 0, 1, 1, false, 0, 0}},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    Args args = io;
    args.insert(args.end(), c.args.begin(), c.args.end());
    SplitOptions options;
    ASSERT_TRUE(SetupSplit(args, options)) << c.name << ": " << ::testing::PrintToString(capture.Texts());
    EXPECT_TRUE(capture.messages().empty()) << c.name;
    ExpectSplit(options, c.expected, c.name);
    EXPECT_EQ(*options.filename, "in.tvf");
    EXPECT_EQ(*options.output, "out.tvf");
  }
}

TEST_F(SetupTest, VectorTilingHandsTheGridToTheSplitWorker) {
  using K = SplitKind;
  const Args base = {"-vector", "-filename", "in.tvf", "-template", "t_%_%.tvf",
                     "-num-x-tiles", "5", "-num-y-tiles", "6"};
  struct Case {
    const char* name;
    Args args;
    Expected expected;
  } cases[] = {
      {"own extent", {"-tvf-extent"}, {K::kTileOwnExtent, 0, 0, 0, 0, 5, 6, false, 0, 0}},
      {"world", {"-world-extent"}, {K::kTileGivenExtent, -180, -90, 180, 90, 5, 6, false, 0, 0}},
      {"world custom wrap",
       {"-world-extent", "-custom-range", "-min-wlon", "-90", "-max-wlon", "270"},
       {K::kTileGivenExtent, -90, -90, 270, 90, 5, 6, true, -90, 270}},
      {"given extent", {"-min-lat", "1", "-max-lat", "2", "-min-lon", "3", "-max-lon", "4"},
       {K::kTileGivenExtent, 3, 1, 4, 2, 5, 6, false, 0, 0}},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    Args args = base;
    args.insert(args.end(), c.args.begin(), c.args.end());
    TileOptions options;
    ASSERT_TRUE(SetupTile(args, options)) << c.name << ": " << ::testing::PrintToString(capture.Texts());
    EXPECT_EQ(options.kind, DataKind::kVector);
    ExpectSplit(options.vector, c.expected, c.name);
    EXPECT_EQ(options.vector.filename, "in.tvf") << c.name;
    EXPECT_EQ(options.vector.output, "t_%_%.tvf") << c.name;
  }
}

TEST_F(SetupTest, SaveModeFlagLastOneWins) {
  struct Case {
    Args args;
    bool binary;
  } cases[] = {
      {{"-output", "o", "a"}, false},
      {{"-b", "-output", "o", "a"}, true},
      {{"-b", "-a", "-output", "o", "a"}, false},
      {{"-a", "-b", "-output", "o", "a"}, true},
  };
  for (const Case& c : cases) {
    kav::Config().binary_save = false;
    MergeOptions options;
    ASSERT_TRUE(SetupMerge(c.args, options));
    EXPECT_EQ(kav::Config().binary_save, c.binary) << ::testing::PrintToString(c.args);
    EXPECT_EQ(options.files, Args{"a"});
  }
}

TEST_F(SetupTest, ModeOptionsSetTheProcessWideSettings) {
  MessageCapture capture;  // restores the verbosity
  ConvertOptions convert;
  ASSERT_TRUE(SetupConvert(Args{"-verbosity", "-3", "-progress", "25", "-path", "p", "-pattern", "*.tvf"},
                           convert));
  EXPECT_EQ(kav::Messages().verbosity, -3);
  EXPECT_EQ(kav::Config().progress, 25);
  EXPECT_EQ(ProgressInterval(), 25);
  kav::Config().progress = -1;
  EXPECT_EQ(ProgressInterval(), 100);

  GenerateOptions generate;
  ASSERT_TRUE(SetupGenerate(Args{"-dataset", "d.sdf", "-iteration-max", "10000", "-oGISreq", "REQUEST=x",
                             "-verbosity", "1000"},
                            generate));
  EXPECT_EQ(kav::Config().vmp_iteration_max, 10000.0);
  EXPECT_EQ(kav::Messages().verbosity, 1000);
  EXPECT_EQ(generate.query, "REQUEST=x");
  EXPECT_EQ(generate.dataset, "d.sdf");
}

TEST(ReadNumberTest, IntegersReadLikePercentLld) {
  struct Case {
    const char* text;
    std::optional<int64_t> value;
  } cases[] = {
      {"0", 0},         {"42", 42},       {"-7", -7},        {"+5", 5},
      {"  12", 12},     {"12abc", 12},    {"0x10", 0},       {"9223372036854775807", INT64_MAX},
      {"", std::nullopt}, {"abc", std::nullopt}, {"-", std::nullopt}, {" ", std::nullopt},
      {"9223372036854775808", std::nullopt}, {"1e3", 1},
  };
  for (const Case& c : cases) EXPECT_EQ(ReadInteger(c.text), c.value) << c.text;
}

TEST(ReadNumberTest, RealsReadLikePercentLf) {
  struct Case {
    const char* text;
    std::optional<double> value;
  } cases[] = {
      {"10000", 10000.0}, {"-2.5", -2.5},       {"1e4", 10000.0}, {" 3.25xyz", 3.25},
      {".5", 0.5},        {"", std::nullopt},   {"x1", std::nullopt},
      {"nan", std::nullopt}, {"inf", std::nullopt}, {"1e999", std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(ReadReal(c.text), c.value) << c.text;
}

}  // namespace
}  // namespace vmp
