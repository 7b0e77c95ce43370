// Setup of the modes: what the option checks hand to the workers, and the
// process-wide settings the options change.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "map_server/driver/command_convert.h"
#include "map_server/driver/command_generate.h"
#include "map_server/driver/command_merge.h"
#include "map_server/driver/command_split.h"
#include "map_server/driver/command_tile.h"
#include "tests/support/message_capture.h"
#include "toolkit/global_config.h"
#include "toolkit/message_log.h"

namespace vmp {
namespace {

using test::MessageCapture;
using Args = std::vector<std::string>;

Args With(Args base, const Args& more) {
  base.insert(base.end(), more.begin(), more.end());
  return base;
}

// Keeps the global configuration of the test process as it was.
class SetupTest : public ::testing::Test {
 protected:
  void SetUp() override { saved_ = kav::Config(); }
  void TearDown() override { kav::Config() = saved_; }
  kav::GlobalConfig saved_;
};

// Kind, extent (min x, min y, max x, max y), grid and wrap range as one line.
std::string Settings(const VectorSplitOptions& o) {
  const char* kinds[] = {"none", "attr", "points", "own", "given"};
  std::ostringstream s;
  s << kinds[static_cast<int>(o.kind)] << " " << o.min_x << "," << o.min_y << "," << o.max_x << "," << o.max_y
    << " " << o.columns << "x" << o.rows;
  if (o.wrap) s << " wrap " << o.wrap_west << ".." << o.wrap_east;
  return s.str();
}

// What -split and -tile -vector hand to the split worker.
TEST_F(SetupTest, SplitKindsExtentsAndWrapRanges) {
  const Args split = {"-filename", "in.tvf", "-output", "out.tvf"};
  const Args tile = {"-vector", "-filename", "in.tvf", "-template", "out.tvf", "-num-x-tiles", "5",
                     "-num-y-tiles", "6"};
  const struct {
    bool tile;
    Args args;
    std::string settings;
  } cases[] = {
      {false, {"-attr", "@1==2", "-attr", "@2==3", "-invert-attr", "-no-range"}, "attr 0,0,0,0 1x1"},
      {false, {"-num-points", "2"}, "points 0,0,0,0 1x1"},
      {false, {"-num-points", "50", "-pos-range"}, "points 0,0,0,0 1x1 wrap 0..360"},
      {false, {"-num-points", "50", "-neg-range"}, "points 0,0,0,0 1x1 wrap -180..180"},
      {false, {"-num-points", "3", "-custom-range", "-min-wlon", "-20", "-max-wlon", "340"},
       "points 0,0,0,0 1x1 wrap -20..340"},
      {false, {"-bbox", "-num-x-tiles", "4", "-num-y-tiles", "3", "-min-lat", "10", "-max-lat", "20",
               "-min-lon", "-5.5", "-max-lon", "7"}, "given -5.5,10,7,20 4x3"},
      {false, {"-bbox", "-tvf-extent", "-num-x-tiles", "2"}, "own 0,0,0,0 2x1"},
      {false, {"-bbox", "-world-extent"}, "given -180,-90,180,90 1x1"},
      {false, {"-bbox", "-world-extent", "-pos-range"}, "given 0,-90,360,90 1x1 wrap 0..360"},
      {false, {"-bbox", "-world-extent", "-tvf-extent"}, "own 0,0,0,0 1x1"},  // the last wins
      {true, {"-tvf-extent"}, "own 0,0,0,0 5x6"},
      {true, {"-world-extent", "-custom-range", "-min-wlon", "-90", "-max-wlon", "270"},
       "given -90,-90,270,90 5x6 wrap -90..270"},
      {true, {"-min-lat", "1", "-max-lat", "2", "-min-lon", "3", "-max-lon", "4"}, "given 3,1,4,2 5x6"},
  };
  for (const auto& c : cases) {
    const std::string name = ::testing::PrintToString(c.args);
    MessageCapture capture;
    SplitOptions split_options;
    TileOptions tile_options;
    ASSERT_TRUE(c.tile ? SetupTile(With(tile, c.args), tile_options)
                       : SetupSplit(With(split, c.args), split_options))
        << name << ": " << ::testing::PrintToString(capture.Texts());
    EXPECT_TRUE(capture.messages().empty()) << name;
    const VectorSplitOptions& o = c.tile ? tile_options.vector : split_options;
    EXPECT_EQ(Settings(o), c.settings) << name;
    EXPECT_EQ(o.conditions.has_value(), o.kind == SplitKind::kAttribute) << name;
    EXPECT_EQ(o.filename.value_or("") + " " + o.output.value_or(""), "in.tvf out.tvf") << name;
  }
}

TEST_F(SetupTest, ModeOptionsSetTheProcessWideSettings) {
  MessageCapture capture;  // restores the verbosity
  ConvertOptions convert;
  ASSERT_TRUE(
      SetupConvert(Args{"-verbosity", "-3", "-progress", "25", "-path", "p", "-pattern", "*.tvf"}, convert));
  EXPECT_EQ(kav::Messages().verbosity, -3);
  EXPECT_EQ(ProgressInterval(), 25);
  kav::Config().progress = -1;
  EXPECT_EQ(ProgressInterval(), 100);

  GenerateOptions generate;
  ASSERT_TRUE(SetupGenerate(
      Args{"-dataset", "d.sdf", "-iteration-max", "10000", "-oGISreq", "REQUEST=x", "-verbosity", "1000"},
      generate));
  EXPECT_EQ(kav::Config().vmp_iteration_max, 10000.0);
  EXPECT_EQ(kav::Messages().verbosity, 1000);
  EXPECT_EQ(generate.query, "REQUEST=x");
  EXPECT_EQ(generate.dataset, "d.sdf");

  for (const bool binary : {false, true}) {  // of -a and -b the last one wins
    MergeOptions merge;
    ASSERT_TRUE(SetupMerge(binary ? Args{"-a", "-b", "-output", "o", "a"} : Args{"-b", "-a", "-output", "o", "a"},
                           merge));
    EXPECT_EQ(kav::Config().binary_save, binary);
    EXPECT_EQ(merge.files, Args{"a"});
  }
}

TEST(ReadNumberTest, IntegersAndRealsReadLikeScanf) {
  const std::pair<const char*, std::optional<int64_t>> integers[] = {
      {"-7", -7},         {"+5", 5},           {"  12", 12},     {"12abc", 12},  {"0x10", 0},
      {"010", 10},        {"1e3", 1},          {"", std::nullopt}, {"-", std::nullopt}, {" ", std::nullopt},
      {"9223372036854775807", INT64_MAX},     {"9223372036854775808", std::nullopt}};
  for (const auto& [text, value] : integers) EXPECT_EQ(ReadInteger(text), value) << text;
  const std::pair<const char*, std::optional<double>> reals[] = {
      {"-2.5", -2.5},      {"1e4", 10000.0},     {" 3.25xyz", 3.25},  {".5", 0.5},           {"", std::nullopt},
      {"x1", std::nullopt}, {"nan", std::nullopt}, {"inf", std::nullopt}, {"1e999", std::nullopt}};
  for (const auto& [text, value] : reals) EXPECT_EQ(ReadReal(text), value) << text;
}

}  // namespace
}  // namespace vmp
