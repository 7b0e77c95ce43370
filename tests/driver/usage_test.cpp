#include "map_server/driver/usage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <sstream>
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
#include "map_server/driver/driver.h"

namespace vmp {
namespace {

using Lines = std::vector<std::string>;

const Lines kModeLines = {
    "-generate [options]       command line map generation",
    "-tile     [options]       tiling utility",
    "-split    [options]       vector data splitting",
    "-merge    [options] files...   merges vector data files",
    "-tvf-info [options] files...   prints bounding box of vector data files",
    "-convert  [options]       directory traversing tvf converter",
    "-slim     [options]       slimming utility",
    "-shp2tvf  [options] <list>  shapefile conversion utility",
    "-slf      [options]       Sub-lif (.slf) generator for directory tree based datasets",
};

Lines UsageLines() {
  Lines lines;
  std::istringstream in(UsageText());
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The global options, then the modes in order, each after a blank line;
// option lines keep their column (26) and words letter for letter.
TEST(UsageTest, GlobalOptionsThenModeGroups) {
  const Lines lines = UsageLines();
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + 5),
            (Lines{"Usage: ", "-version                  prints version information",
                   "-arg-file file            filename to read command line args from",
                   "-verbosity n              sets the verbosity level",
                   "-progress n               reports progress every n files"}));
  Lines found;
  for (size_t i = 5; i < lines.size(); ++i) {
    if (lines[i].empty() || lines[i][0] != '-') continue;
    found.push_back(lines[i]);
    EXPECT_EQ(lines[i - 1], "") << "no blank line before " << lines[i];
    EXPECT_NE(FindMode(lines[i].substr(0, lines[i].find(' '))), nullptr) << lines[i];
  }
  EXPECT_EQ(found, kModeLines);
  EXPECT_NE(lines.back(), "");
  for (const char* not_a_mode : {"-map-server", "-arg-file", "-Version", "generate", ""}) {
    EXPECT_EQ(FindMode(not_a_mode), nullptr) << not_a_mode;
  }
  const std::string text = UsageText();
  for (const char* exact : {"          -dataset file   dataset file to use\n",
                            "          -iteration-max  Sets VmpIterationMax global configuration variable.\n",
                            "          -min-lat n      minimum lattitude\n",
                            "          -close-polygons coverts polylines to polygons by adding closing segment\n",
                            "       -image mode only:\n", "       -vector mode only:\n"}) {
    EXPECT_NE(text.find(exact), std::string::npos) << exact;
  }
}

// Every option a mode reads is listed in its group, and nothing else is.
// "expected follow up variable: <value name>" names an option's value the
// way the option spells it ("-num-x-tiles": "num x tiles"), but for a few.
TEST(UsageTest, EveryOptionIsListedAndNamed) {
  const std::map<std::string, std::string> other_names = {
      {"-oGISreq", "openGIS request"}, {"-min-wlon", "min world lon"}, {"-max-wlon", "max world lon"}};
  auto names = [&](const OptionTable& table) {
    std::set<std::string> out;
    for (const Option& option : table) {
      const std::string name(option.name);
      out.insert(name);
      std::string spelled = IsSwitch(option) ? "" : name.substr(1);
      std::replace(spelled.begin(), spelled.end(), '-', ' ');
      if (other_names.count(name) != 0) spelled = other_names.at(name);
      if (!option.missing_message.empty()) continue;  // -attr words its own message
      EXPECT_EQ(option.value_name, spelled) << name;
    }
    return out;
  };
  GenerateOptions generate;
  MergeOptions merge;
  ConvertOptions convert;
  SlimOptions slim;
  SplitOptions split;
  SlfOptions slf;
  TileInfoOptions tile_info;
  TileOptions image_tile, vector_tile;
  vector_tile.kind = DataKind::kVector;
  names(TileInfoOptionTable(tile_info));  // not in the usage text
  std::set<std::string> tile = names(TileOptionTable(image_tile)), slf_names = names(SlfOptionTable(slf));
  tile.merge(names(TileOptionTable(vector_tile)));
  // Read by -tile -vector only to be refused with their own message.
  for (const char* refused : {"-attr", "-invert-attr", "-num-points", "-bbox"}) tile.erase(refused);
  tile.insert({"-image", "-vector"});
  slf_names.insert({"-image", "-vector"});
  const std::set<std::string> expected[] = {names(GenerateOptionTable(generate)), tile,
                                            names(SplitOptionTable(split)), names(MergeOptionTable(merge)), {},
                                            names(ConvertOptionTable(convert)), names(SlimOptionTable(slim))};
  const Lines lines = UsageLines();
  for (size_t mode = 0; mode < kModeLines.size(); ++mode) {
    if (kModeLines[mode].rfind("-shp2tvf", 0) == 0) continue;  // the converter reads its own options
    std::set<std::string> listed;
    auto line = std::find(lines.begin(), lines.end(), kModeLines[mode]);
    for (++line; line != lines.end() && !line->empty(); ++line) {
      if (line->rfind("          -", 0) == 0) listed.insert(line->substr(10, line->find(' ', 10) - 10));
    }
    EXPECT_EQ(listed, mode < std::size(expected) ? expected[mode] : slf_names) << kModeLines[mode];
  }
}

}  // namespace
}  // namespace vmp
