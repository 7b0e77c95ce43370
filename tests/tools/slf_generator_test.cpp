#include "map_server/tools/slf_generator.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/lif_reader.h"
#include "map_server/dataset/slf_reader.h"
#include "map_server/tools/slf_writer.h"
#include "map_server/tools/tile_info.h"
#include "map_server/tools/tvf_box_scan.h"
#include "map_server/vector/feature_extent.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/vector/tvf_test_support.h"
#include "toolkit/global_config.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::TempDir;
using Texts = std::vector<std::string>;

// A TVF file with one polygon over the box and a labelled, attributed marker
// inside it.
void WriteTvf(const std::string& path, const SlfBox& b) {
  TvfOutput out = OpenTvfOutput(path);
  ASSERT_TRUE(out);
  auto polygon = test::MakePolygon(0, {{b.min_lon, b.min_lat}, {b.max_lon, b.max_lat}, {b.min_lon, b.max_lat}},
                                   {{1, TypedValue::String("a, b")}, {4, TypedValue::Geo(1, 2, 3)}});
  auto marker = test::MakeMarker(2, (b.min_lon + b.max_lon) / 2, b.min_lat, "label",
                                 {{0, TypedValue::Double(5)}});
  ASSERT_TRUE(WriteTvfFeature(out.get(), CurrentTvfOutputFormat(), *polygon));
  ASSERT_TRUE(WriteTvfFeature(out.get(), CurrentTvfOutputFormat(), *marker));
  ASSERT_TRUE(CloseTvfOutput(std::move(out)));
}

// Reads the whole tree below `slf` and returns its leaves' data files
// relative to `top`; any reader message fails the test.
Texts ReadTree(const std::string& slf, const std::string& top, SlfNode* root) {
  MessageCapture capture;
  EXPECT_TRUE(MakeSlfRoot(slf, root));
  EXPECT_EQ(LoadSlfTree(*root), 0u);
  EXPECT_EQ(capture.Texts(), Texts{});
  Texts leaves;
  std::vector<const SlfNode*> stack = {root};
  while (!stack.empty()) {
    const SlfNode* node = stack.back();
    stack.pop_back();
    if (node->IsLeaf()) leaves.push_back(std::filesystem::path(node->leaf_file).lexically_relative(top).string());
    for (const SlfNode& child : node->children) stack.push_back(&child);
  }
  std::sort(leaves.begin(), leaves.end());
  return leaves;
}

bool SameBox(const SlfNode& node, const SlfBox& box) {
  return node.min_lon == box.min_lon && node.max_lon == box.max_lon && node.min_lat == box.min_lat &&
         node.max_lat == box.max_lat;
}

// An image tree: tile info files in a directory, in a sub-directory, and an
// empty sub-directory that no summary may name. Written with and without
// boxes, it reads back the same; the boxes then come from the children.
TEST(SlfGeneratorTest, ImageTreeReadsBackWithAndWithoutBoxes) {
  for (const bool boxes : {true, false}) {
    TempDir dir;
    std::filesystem::create_directories(dir / "top/east");
    std::filesystem::create_directories(dir / "top/empty/deeper");
    MessageCapture capture;
    ASSERT_TRUE(WriteTileInfoFiles(dir / "top/w_%_%.info", "w_%_%.jpg", 100, 100, 2, 1, -90, 90, -180, 0, 0));
    ASSERT_TRUE(WriteTileInfoFiles(dir / "top/east/e_%_%.info", "e_%_%.jpg", 100, 100, 1, 2, -90, 90, 0, 180, 0));
    dir.Write("top/w_0_0.jpg", "image files are never entries");
    SlfGeneratorOptions options{dir / "top", "*", true, false, "world", dir / "world.lif", boxes, 0};
    ASSERT_TRUE(GenerateSlfFiles(options));
    EXPECT_EQ(capture.Texts(), Texts{});
    EXPECT_FALSE(test::FileExists(dir / "top/empty/world.slf"));
    EXPECT_EQ(test::ReadFile(dir / "top/world.slf").find("empty"), std::string::npos);

    SlfNode root;
    EXPECT_EQ(ReadTree(dir / "top/world.slf", dir / "top", &root),
              (Texts{"east/e_0_0.jpg", "east/e_0_1.jpg", "w_0_0.jpg", "w_1_0.jpg"}));
    EXPECT_TRUE(SameBox(root, {-180, 180, -90, 90}));
    ASSERT_EQ(root.children.size(), 3u);  // the directory first, then the files
    EXPECT_TRUE(SameBox(root.children[0], {0, 180, -90, 90}));
    EXPECT_EQ(root.children[0].box_from_parent, boxes);
    EXPECT_TRUE(SameBox(root.children[2], {-90, 0, -90, 90}));
    EXPECT_FALSE(root.children[2].box_from_parent);  // a file entry's box stands on its own line

    // The LIF names the tree; the layer loads it without a message.
    auto dataset = CreateDataset("DefaultDataset", dir / "set.sdf");
    MessageCapture lif_capture;
    Layer* layer = ReadLifFile(*dataset, "world", dir / "world.lif");
    ASSERT_NE(layer, nullptr) << testing::PrintToString(lif_capture.Texts());
    ASSERT_NE(layer->record.tile_tree, nullptr);
    EXPECT_EQ(LoadSlfTree(*layer->record.tile_tree), 0u);
    EXPECT_EQ(lif_capture.Texts(), Texts{});
  }
}

TEST(SlfGeneratorTest, VectorSingleLayerTree) {
  TempDir dir;
  std::filesystem::create_directories(dir / "v/sub");
  WriteTvf(dir / "v/a.tvf", {-10, 20, 0, 30});
  WriteTvf(dir / "v/sub/b.tvf", {5, 15, -40, -20});  // min lon, max lon, min lat, max lat
  dir.Write("v/sub/notes.txt", "not matched");
  dir.Write("v/sub/broken.tvf", "69c 2 0 \r\n7 9 ");
  SlfGeneratorOptions options{dir / "v", "*.tvf", false, false, "roads", "", true, 0};
  MessageCapture capture;
  EXPECT_FALSE(GenerateSlfFiles(options));  // the broken file is reported and left out
  EXPECT_EQ(capture.Texts(), Texts{"Error: Error in file: " + dir / "v/sub/broken.tvf"});
  EXPECT_EQ(test::ReadFile(dir / "v/a.tvf.slf"),
            "# file generated by a vmp parsing utility\nMIN LAT=0.000000\nMAX LAT=30.000000\n"
            "MIN LON=-10.000000\nMAX LON=20.000000\nFILENAME=a.tvf\n");
  SlfNode root;
  EXPECT_EQ(ReadTree(dir / "v/roads.slf", dir / "v", &root), (Texts{"a.tvf", "sub/b.tvf"}));
  EXPECT_TRUE(SameBox(root, {-10, 20, -40, 30}));

  // Running again takes no generated file as an entry.
  capture.Clear();
  std::filesystem::remove(dir / "v/sub/broken.tvf");
  kav::Messages().verbosity = 1;
  ASSERT_TRUE(GenerateSlfFiles(options));
  EXPECT_EQ(capture.Count("Entry is: "), 2u);
  EXPECT_EQ(capture.Count("    path is: " + dir / "v/sub"), 1u);
  EXPECT_EQ(ReadTree(dir / "v/roads.slf", dir / "v", &root), (Texts{"a.tvf", "sub/b.tvf"}));
}

// The same layer names through the tree: "roads.tvf" here and below gives a
// kind 2 entry, "rivers.tvf" only below a kind 1 entry.
TEST(SlfGeneratorTest, MultiLayerTree) {
  TempDir dir;
  for (const char* d : {"t/a/x", "t/b", "t/empty"}) std::filesystem::create_directories(dir / d);
  WriteTvf(dir / "t/roads.tvf", {-180, 180, -90, 90});
  WriteTvf(dir / "t/a/roads.tvf", {-180, 0, -90, 90});
  WriteTvf(dir / "t/a/x/rivers.tvf", {-100, -50, 0, 10});
  WriteTvf(dir / "t/b/roads.tvf", {0, 180, -90, 90});
  WriteTvf(dir / "t/b/rivers.tvf", {10, 20, 0, 10});
  MessageCapture capture;
  SlfGeneratorOptions options{dir / "t", "*.tvf", false, true, "", dir / "t.lif", true, 0};
  ASSERT_TRUE(GenerateSlfFiles(options));
  // Sub-directory "a" comes before "roads.tvf" in name order.
  EXPECT_EQ(capture.Texts(), (Texts{"Info: Found file AND subdir entries for: roads.tvf",
                                    "Info:     path is: " + dir / "t"}));
  EXPECT_NE(test::ReadFile(dir / "t/roads.tvf.slf")
                .find("SUBLIF FILE=roads.tvf.sub.slf   BBOX= -180.000000 -90.000000 180.000000 90.000000\n"
                      "SUBLIF DIR=a   BBOX="),
            std::string::npos);
  SlfNode root;
  EXPECT_EQ(ReadTree(dir / "t/roads.tvf.slf", dir / "t", &root),
            (Texts{"a/roads.tvf", "b/roads.tvf", "roads.tvf"}));
  EXPECT_EQ(ReadTree(dir / "t/rivers.tvf.slf", dir / "t", &root), (Texts{"a/x/rivers.tvf", "b/rivers.tvf"}));
  EXPECT_TRUE(SameBox(root, {-100, 20, 0, 10}));
  EXPECT_TRUE(test::FileExists(dir / "t_roads.lif"));
  EXPECT_TRUE(test::FileExists(dir / "t_rivers.lif"));
}

TEST(SlfGeneratorTest, LayerEntriesJoinFilesAndDirectories) {
  MessageCapture capture;
  SlfLayerEntries entries;
  AddLayerFile(entries, "r.tvf", {0, 1, 0, 1}, "d");
  MergeLayerSubdirectory(entries, "r.tvf", "s", {2, 3, 2, 3});  // file, then directory
  MergeLayerSubdirectory(entries, "w.tvf", "s", {5, 6, 5, 6});
  AddLayerFile(entries, "w.tvf", {-1, 0, -1, 0}, "d");  // directory, then file
  AddLayerFile(entries, "w.tvf", {-2, 0, -2, 0}, "d");  // a second file
  EXPECT_EQ(capture.Texts(), (Texts{"Info: Found file AND subdir entries for: w.tvf", "Info:     path is: d",
                                    "Warning: Dublicate file entry??? Dropping previous for: w.tvf",
                                    "Warning:     path is: d"}));
  for (const char* name : {"r.tvf", "w.tvf"}) {
    const SlfTreeEntry& e = entries.at(name);
    EXPECT_EQ(e.kind, SlfEntryKind::kFileAndSubdirectories) << name;
    ASSERT_NE(e.data_file, nullptr);
    EXPECT_EQ(e.data_file->name, name);
    ASSERT_EQ(e.subdirectories.size(), 1u);
    EXPECT_EQ(e.subdirectories[0].name, "s");
  }
  EXPECT_EQ(entries.at("r.tvf").box, (SlfBox{0, 3, 0, 3}));
  EXPECT_EQ(entries.at("w.tvf").data_file->box, (SlfBox{-2, 0, -2, 0}));
  EXPECT_EQ(entries.at("w.tvf").box, (SlfBox{-2, 6, -2, 6}));
}

TEST(SlfGeneratorTest, EmptyTreesAndBadOptions) {
  TempDir dir;
  std::filesystem::create_directories(dir / "e/sub");
  dir.Write("e/sub/a.tvf", "69c 2 0 ");  // no features: no box, no entry
  dir.Write("e/a.jpg", "");
  struct Case {
    SlfGeneratorOptions options;
    std::string message;
  } cases[] = {
      {{dir / "e", "*.tvf", false, false, "x", "", true, 0}, "Warning: Found no files matching pattern: *.tvf"},
      {{dir / "e", "*.tvf", false, true, "", "", true, 0}, "Warning: Found no files matching pattern: *.tvf"},
      {{dir / "none", "*", true, false, "x", "", true, 0}, "Error: Could not be opened: " + dir / "none"},
      {{dir / "e", "*", true, false, "a/b", "", true, 0}, "Error: The SLF name must be a file name"},
      {{dir / "e", "*.jpg", true, false, "x", "", true, 0}, "Warning: The entries of an image tree"},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    EXPECT_FALSE(GenerateSlfFiles(c.options));
    EXPECT_TRUE(capture.Contains(c.message)) << c.message;
  }
  EXPECT_FALSE(test::FileExists(dir / "e/x.slf"));
  EXPECT_FALSE(test::FileExists(dir / "e/sub/x.slf"));
}

// The box scan agrees with the loader in both encodings, and refuses what
// the loader refuses.
TEST(SlfGeneratorTest, TvfBoxScanMatchesTheLoader) {
  TempDir dir;
  for (const bool binary : {false, true}) {
    kav::Config().binary_save = binary;
    WriteTvf(dir / "f.tvf", {-12.5, 7.25, 3, 4.5});
    kav::Config().binary_save = false;
    std::optional<SlfBox> box;
    ASSERT_TRUE(ScanTvfFileBox(dir / "f.tvf", &box));
    VectorData data;
    ASSERT_TRUE(LoadTvfFile(dir / "f.tvf", TvfSource::kTvf, data));
    SlfBox expected{1e9, -1e9, 1e9, -1e9};
    for (const auto& f : data.features) {
      FeatureExtent e;
      ComputeFeatureExtent(*f, &e);
      expected.Include({e.min_x, e.max_x, e.min_y, e.max_y});
    }
    EXPECT_EQ(box, expected) << binary;
  }
  for (const char* bad : {"69c 3 0 ", "69c 2 0 \r\n7 0 0 2 0 1.0 2.0 3.0", "69c 2 0 \r\n7 1 0 1 0 9 1 2"}) {
    dir.Write("bad.tvf", bad);
    MessageCapture capture;
    std::optional<SlfBox> box;
    EXPECT_FALSE(ScanTvfFileBox(dir / "bad.tvf", &box)) << bad;
    EXPECT_EQ(capture.Texts(), Texts{"Error: Error in file: " + dir / "bad.tvf"});
  }
}

}  // namespace
}  // namespace vmp
