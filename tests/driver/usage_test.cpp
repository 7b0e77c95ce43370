#include "map_server/driver/usage.h"

#include <gtest/gtest.h>

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
#include "map_server/driver/driver.h"

namespace vmp {
namespace {

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// The lines of the group that starts with `mode_line`, up to the blank line.
std::vector<std::string> Group(const std::string& mode_line) {
  std::vector<std::string> lines = Lines(UsageText()), group;
  bool inside = false;
  for (const std::string& line : lines) {
    if (line == mode_line) inside = true;
    else if (inside && line.empty()) break;
    if (inside) group.push_back(line);
  }
  return group;
}

// The option names listed in a group ("          -name ...").
std::set<std::string> ListedOptions(const std::vector<std::string>& group) {
  std::set<std::string> names;
  for (const std::string& line : group) {
    if (line.rfind("          -", 0) == 0) names.insert(line.substr(10, line.find(' ', 10) - 10));
  }
  return names;
}

std::set<std::string> TableNames(const OptionTable& table) {
  std::set<std::string> names;
  for (const Option& option : table) names.insert(std::string(option.name));
  return names;
}

TEST(UsageTest, StartsWithTheGlobalOptions) {
  const std::vector<std::string> lines = Lines(UsageText());
  const std::vector<std::string> head(lines.begin(), lines.begin() + 6);
  EXPECT_EQ(head, (std::vector<std::string>{
                      "Usage: ",
                      "-version                  prints version information",
                      "-arg-file file            filename to read command line args from",
                      "-verbosity n              sets the verbosity level",
                      "-progress n               reports progress every n files",
                      "",
                  }));
}

TEST(UsageTest, ModeGroupsInOrderSeparatedByBlankLines) {
  const std::vector<std::string> mode_lines = {
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
  const std::vector<std::string> lines = Lines(UsageText());
  std::vector<std::string> found;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (!lines[i].empty() && lines[i][0] == '-' && i > 5) {
      found.push_back(lines[i]);
      EXPECT_EQ(lines[i - 1], "") << "no blank line before " << lines[i];
    }
  }
  EXPECT_EQ(found, mode_lines);
  EXPECT_NE(lines.back(), "");
}

TEST(UsageTest, OptionLinesKeepTheirColumns) {
  const std::string text = UsageText();
  for (const char* exact : {
           "          -dataset file   dataset file to use\n",
           "          -iteration-max  Sets VmpIterationMax global configuration variable.\n",
           "          -min-lat n      minimum lattitude\n",
           "          -close-polygons coverts polylines to polygons by adding closing segment\n",
           "       -image mode only:\n",
           "       -vector mode only:\n",
       }) {
    EXPECT_NE(text.find(exact), std::string::npos) << exact;
  }
  for (const std::string& line : Lines(text)) {
    if (line.empty() || line[0] == '-' || line == "Usage: ") continue;
    const bool option_line = line.rfind("          -", 0) == 0;
    const bool heading = line.rfind("       -", 0) == 0 && line.back() == ':';
    EXPECT_TRUE(option_line || heading) << line;
    // Short options are padded so that every description starts in column 26.
    if (option_line && line[25] == ' ') {
      ASSERT_GT(line.size(), 26u) << line;
      EXPECT_NE(line[26], ' ') << "description out of column: " << line;
    }
  }
}

// Every option a mode reads is listed in its group, and nothing else is.
TEST(UsageTest, ListsEveryOptionOfEveryMode) {
  GenerateOptions generate;
  MergeOptions merge;
  ConvertOptions convert;
  SlimOptions slim;
  SplitOptions split;
  SlfOptions slf;
  TileOptions image_tile, vector_tile;
  vector_tile.kind = DataKind::kVector;
  std::set<std::string> tile = TableNames(TileOptionTable(image_tile));
  for (const std::string& name : TableNames(TileOptionTable(vector_tile))) tile.insert(name);
  // Read by -tile -vector only to be refused with their own message.
  for (const char* refused : {"-attr", "-invert-attr", "-num-points", "-bbox"}) {
    tile.erase(refused);
  }
  tile.insert({"-image", "-vector"});
  std::set<std::string> slf_names = TableNames(SlfOptionTable(slf));
  slf_names.insert({"-image", "-vector"});

  struct Case {
    const char* mode_line;
    std::set<std::string> options;
  } cases[] = {
      {"-generate [options]       command line map generation",
       TableNames(GenerateOptionTable(generate))},
      {"-tile     [options]       tiling utility", tile},
      {"-split    [options]       vector data splitting", TableNames(SplitOptionTable(split))},
      {"-merge    [options] files...   merges vector data files",
       TableNames(MergeOptionTable(merge))},
      {"-tvf-info [options] files...   prints bounding box of vector data files", {}},
      {"-convert  [options]       directory traversing tvf converter",
       TableNames(ConvertOptionTable(convert))},
      {"-slim     [options]       slimming utility", TableNames(SlimOptionTable(slim))},
      {"-slf      [options]       Sub-lif (.slf) generator for directory tree based datasets",
       slf_names},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ListedOptions(Group(c.mode_line)), c.options) << c.mode_line;
  }
}

TEST(UsageTest, EveryListedModeIsAMode) {
  const std::vector<std::string> lines = Lines(UsageText());
  for (size_t i = 6; i < lines.size(); ++i) {  // past the global options
    const std::string& line = lines[i];
    if (line.empty() || line[0] != '-') continue;
    const std::string option = line.substr(0, line.find(' '));
    EXPECT_NE(FindMode(option), nullptr) << option;
  }
  for (const char* unlisted : {"-help", "-tile_info", "-lif"}) {
    EXPECT_NE(FindMode(unlisted), nullptr) << unlisted;
  }
  for (const char* not_a_mode : {"-map-server", "-arg-file", "-Version", "generate", ""}) {
    EXPECT_EQ(FindMode(not_a_mode), nullptr) << not_a_mode;
  }
}

}  // namespace
}  // namespace vmp
