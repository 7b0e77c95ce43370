// Setup of the modes: what the option checks hand to the workers, and the
// process-wide settings the options change.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "map_server/driver/command_convert.h"
#include "map_server/driver/command_generate.h"
#include "map_server/driver/command_merge.h"
#include "map_server/driver/command_slf.h"
#include "map_server/driver/command_slim.h"
#include "map_server/driver/command_split.h"
#include "map_server/driver/command_tile.h"
#include "map_server/driver/command_tile_info.h"
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

// "expected follow up variable: <value name>" names the option's value the
// way the option spells it ("-num-x-tiles": "num x tiles"), but for these.
TEST(OptionTablesTest, ValueNamesSpellTheOption) {
  const std::map<std::string, std::string> other_names = {
      {"-oGISreq", "openGIS request"}, {"-min-wlon", "min world lon"}, {"-max-wlon", "max world lon"}};
  GenerateOptions generate;
  TileOptions image_tile, vector_tile;
  vector_tile.kind = DataKind::kVector;
  SplitOptions split;
  MergeOptions merge;
  ConvertOptions convert;
  SlimOptions slim;
  SlfOptions slf;
  TileInfoOptions tile_info;
  for (const OptionTable& table :
       {GenerateOptionTable(generate), TileOptionTable(image_tile), TileOptionTable(vector_tile),
        SplitOptionTable(split), MergeOptionTable(merge), ConvertOptionTable(convert), SlimOptionTable(slim),
        SlfOptionTable(slf), TileInfoOptionTable(tile_info)}) {
    for (const Option& option : table) {
      std::string spelled = IsSwitch(option) ? "" : std::string(option.name.substr(1));
      std::replace(spelled.begin(), spelled.end(), '-', ' ');
      auto other = other_names.find(std::string(option.name));
      if (other != other_names.end()) spelled = other->second;
      if (!option.missing_message.empty()) continue;  // -attr words its own message
      EXPECT_EQ(option.value_name, spelled) << option.name;
    }
  }
}

struct Expected {
  SplitKind kind;
  std::vector<double> extent;  // min x, min y, max x, max y; checked for kTileGivenExtent
  int64_t columns, rows;       // checked for the tiling kinds
  std::vector<double> wrap;    // west, east; empty: no wrapping
};

void ExpectSplit(const VectorSplitOptions& o, const Expected& e, const std::string& name) {
  EXPECT_EQ(o.kind, e.kind) << name;
  if (e.kind == SplitKind::kTileGivenExtent) {
    EXPECT_EQ((std::vector<double>{o.min_x, o.min_y, o.max_x, o.max_y}), e.extent) << name;
  }
  if (e.kind == SplitKind::kTileGivenExtent || e.kind == SplitKind::kTileOwnExtent) {
    EXPECT_EQ(o.columns, e.columns) << name;
    EXPECT_EQ(o.rows, e.rows) << name;
  }
  EXPECT_EQ(o.wrap, !e.wrap.empty()) << name;
  if (o.wrap) { EXPECT_EQ((std::vector<double>{o.wrap_west, o.wrap_east}), e.wrap) << name; }
}

// What -split and -tile -vector hand to the split worker.
TEST_F(SetupTest, SplitKindsExtentsAndWrapRanges) {
  using K = SplitKind;
  const Args split = {"-filename", "in.tvf", "-output", "out.tvf"};
  const Args tile = {"-vector", "-filename", "in.tvf", "-template", "out.tvf", "-num-x-tiles", "5",
                     "-num-y-tiles", "6"};
  struct Case {
    bool tile;
    Args args;
    Expected expected;
  } cases[] = {
      {false, {"-attr", "@1==2", "-attr", "@2==3", "-invert-attr", "-no-range"}, {K::kAttribute, {}, 1, 1, {}}},
      {false, {"-num-points", "2"}, {K::kPoints, {}, 1, 1, {}}},
      {false, {"-num-points", "50", "-pos-range"}, {K::kPoints, {}, 1, 1, {0, 360}}},
      {false, {"-num-points", "50", "-neg-range"}, {K::kPoints, {}, 1, 1, {-180, 180}}},
      {false, {"-num-points", "3", "-custom-range", "-min-wlon", "-20", "-max-wlon", "340"},
       {K::kPoints, {}, 1, 1, {-20, 340}}},
      {false, {"-bbox", "-num-x-tiles", "4", "-num-y-tiles", "3", "-min-lat", "10", "-max-lat", "20",
               "-min-lon", "-5.5", "-max-lon", "7"}, {K::kTileGivenExtent, {-5.5, 10, 7, 20}, 4, 3, {}}},
      {false, {"-bbox", "-tvf-extent", "-num-x-tiles", "2"}, {K::kTileOwnExtent, {}, 2, 1, {}}},
      {false, {"-bbox", "-world-extent"}, {K::kTileGivenExtent, {-180, -90, 180, 90}, 1, 1, {}}},
      {false, {"-bbox", "-world-extent", "-pos-range"},
       {K::kTileGivenExtent, {0, -90, 360, 90}, 1, 1, {0, 360}}},
      {false, {"-bbox", "-world-extent", "-tvf-extent"}, {K::kTileOwnExtent, {}, 1, 1, {}}},  // the last wins
      {true, {"-tvf-extent"}, {K::kTileOwnExtent, {}, 5, 6, {}}},
      {true, {"-world-extent", "-custom-range", "-min-wlon", "-90", "-max-wlon", "270"},
       {K::kTileGivenExtent, {-90, -90, 270, 90}, 5, 6, {-90, 270}}},
      {true, {"-min-lat", "1", "-max-lat", "2", "-min-lon", "3", "-max-lon", "4"},
       {K::kTileGivenExtent, {3, 1, 4, 2}, 5, 6, {}}},
  };
  for (const Case& c : cases) {
    const std::string name = ::testing::PrintToString(c.args);
    MessageCapture capture;
    SplitOptions split_options;
    TileOptions tile_options;
    ASSERT_TRUE(c.tile ? SetupTile(With(tile, c.args), tile_options)
                       : SetupSplit(With(split, c.args), split_options))
        << name << ": " << ::testing::PrintToString(capture.Texts());
    EXPECT_TRUE(capture.messages().empty()) << name;
    const VectorSplitOptions& o = c.tile ? tile_options.vector : split_options;
    ExpectSplit(o, c.expected, name);
    EXPECT_EQ(o.conditions.has_value(), c.expected.kind == K::kAttribute) << name;
    EXPECT_EQ(o.filename, "in.tvf") << name;
    EXPECT_EQ(o.output, "out.tvf") << name;
  }
}

TEST_F(SetupTest, SaveModeFlagLastOneWins) {
  const std::pair<Args, bool> cases[] = {
      {{"-output", "o", "a"}, false}, {{"-b", "-output", "o", "a"}, true},
      {{"-b", "-a", "-output", "o", "a"}, false}};
  for (const auto& [args, binary] : cases) {
    kav::Config().binary_save = false;
    MergeOptions options;
    ASSERT_TRUE(SetupMerge(args, options));
    EXPECT_EQ(kav::Config().binary_save, binary) << ::testing::PrintToString(args);
    EXPECT_EQ(options.files, Args{"a"});
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
