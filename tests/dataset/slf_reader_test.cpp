#include "map_server/dataset/slf_reader.h"

#include <gtest/gtest.h>

#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

const std::string kBox = "MIN LON=0\nMIN LAT=0\nMAX LON=10\nMAX LAT=5\n";

std::vector<double> Corners(const SlfNode& n) { return {n.min_lon, n.min_lat, n.max_lon, n.max_lat}; }

// Loads the tree whose top SLF is `top` and returns the messages.
Texts LoadTree(SlfNode* root, const std::string& top, size_t errors) {
  EXPECT_TRUE(MakeSlfRoot(top, root));
  test::MessageCapture capture;
  EXPECT_EQ(LoadSlfTree(*root), errors);
  return capture.Texts();
}

TEST(SlfReaderTest, NodesAndChildEntries) {
  test::MessageCapture capture;
  SlfNode leaf;
  ASSERT_TRUE(MakeSlfRoot("/t/tree\\x.slf", &leaf));
  EXPECT_EQ(leaf.slf_path + " " + leaf.directory + " " + leaf.slf_base_name, "/t/tree/x.slf /t/tree x.slf");
  EXPECT_EQ(ReadSlfText(leaf, kBox + "FILENAME=a.tvf\nFILENAME=a.tvf\nUSED WIDTH=332\nUSED HEIGHT=7\n"), 1);
  EXPECT_TRUE(leaf.IsLeaf());
  EXPECT_FALSE(leaf.error);
  EXPECT_EQ(leaf.leaf_file, "/t/tree/a.tvf");
  EXPECT_EQ(leaf.used_width, 332);
  EXPECT_EQ(leaf.used_height, 7);
  EXPECT_EQ(Corners(leaf), (std::vector<double>{0, 0, 10, 5}));

  SlfNode node;
  ASSERT_TRUE(MakeSlfRoot("/t/tree/x.slf", &node));
  EXPECT_EQ(ReadSlfText(node, kBox + "SUBLIF DIR=east   BBOX= 5 0 10 5\nSUBLIF DIR=/abs/west\n"
                                     "SUB LIF=part.slf\nSUBLIF FILE=sub\\other.slf BBOX=0,0,5,5\n"
                                     "   BBOX= 1 2 3 4\n"),  // a box on its own line is skipped
            4);
  EXPECT_TRUE(capture.messages().empty());
  ASSERT_EQ(node.children.size(), 4u);
  const std::tuple<std::string, bool, bool> children[] = {  // SLF, file entry, box from the parent
      {"/t/tree/east/x.slf", false, true}, {"/abs/west/x.slf", false, false},
      {"/t/tree/part.slf", true, false},   {"/t/tree/sub/other.slf", true, true}};
  for (size_t i = 0; i < 4; ++i) {
    const auto& [slf, file_entry, parent_box] = children[i];
    const SlfNode& child = node.children[i];
    EXPECT_EQ(child.slf_path, slf);
    EXPECT_EQ(child.file_entry, file_entry) << slf;
    EXPECT_EQ(child.box_from_parent, parent_box) << slf;
    EXPECT_TRUE(child.depth == 1 && !child.loaded) << slf;  // read when needed
  }
  EXPECT_EQ(Corners(node.children[0]), (std::vector<double>{5, 0, 10, 5}));
  EXPECT_EQ(node.children[2].directory, "/t/tree");
}

TEST(SlfReaderTest, Messages) {
  const std::string path = "/t/tree/x.slf", cannot = "Error: " + path + ": cannot read: ";
  struct Case {
    std::string text;
    Texts messages;
    bool error;
    int64_t entries;
  };
  const Case cases[] = {
      {kBox, {"Error: Empty sublif file: " + path}, true, 0},
      {"FILENAME=a.tvf\nMIN LON=0\n", {"Error: Bounding box is not defined in slf: " + path}, true, 1},
      {kBox + "FILENAME=a.tvf\nSUBLIF DIR=d\n",
       {"Warning: File: " + path, "Warning: a.tvf: FILENAME is overriden by SUBLIF DIR"}, false, 1},
      {kBox + "SUBLIF DIR=d junk\n", {"Error: skipping junk after SUBLIF DIR/FILE (BBOX expected): junk"},
       false, 1},
      {kBox + "SUBLIF DIR=d BBOX=1 2 3\n", {"Error: cannot read BBOX for SUBLIF DIR/FILE: BBOX=1 2 3"},
       false, 1},
      {kBox + "SUBLIF DIR=\n", {cannot + "SUBLIF DIR", "Error: Empty sublif file: " + path}, true, 0},
      {kBox + "MAX LAT=north\nFILENAME=a\n", {cannot + "MAX LAT"}, false, 1},
      {kBox + "USED WIDTH=wide\nFILENAME=a\n", {cannot + "USED WIDTH"}, false, 1},
      {kBox + "FILENAME=a\nFILENAME=b\n", {"Warning: Repeated FILENAME in slf: " + path}, false, 1},
      {kBox + "FILENAME=a\nLAYER=x\n", {"Error: SLF file: " + path, "Warning: Unrecognized variable: LAYER=x"},
       false, 1},
  };
  for (const Case& c : cases) {
    SlfNode node;
    ASSERT_TRUE(MakeSlfRoot(path, &node));
    test::MessageCapture capture;
    EXPECT_EQ(ReadSlfText(node, c.text), c.entries) << c.text;
    EXPECT_EQ(capture.Texts(), c.messages) << c.text;
    EXPECT_EQ(node.error, c.error) << c.text;
  }
  test::MessageCapture capture;
  SlfNode root;
  EXPECT_FALSE(MakeSlfRoot("tiles/", &root));
  test::TempDir dir;
  ASSERT_TRUE(MakeSlfRoot(dir.path(), &root));  // a directory named like a file
  EXPECT_EQ(ReadSlfFile(root), 0);
  EXPECT_TRUE(root.error);
  EXPECT_EQ(capture.Texts(), (Texts{"Error: Can't determine slf_name in TILES SUBLIF: tiles/",
                                    "Error: Error reading sub lif file!: " + dir.path(),
                                    "Error: Bounding box is not defined in slf: " + dir.path(),
                                    "Error: Empty sublif file: " + dir.path()}));
}

TEST(SlfReaderTest, ParentBoxesAndFileEntries) {
  test::TempDir dir;
  dir.Write("x.slf", kBox + "SUBLIF DIR=a   BBOX= 0.000000 0.000000 5.000000 5.000000\n"
                            "SUBLIF DIR=b   BBOX= 5.000000 0.000000 10.000000 5.000001\n"
                            "SUBLIF FILE=f.slf\n");
  dir.Write("a/x.slf", "MIN LAT=0.000000\nMAX LAT=5.000000\nMIN LON=0.000000\nMAX LON=5.000000\nFILENAME=a\n");
  dir.Write("b/x.slf", "MIN LAT=0.000000\nMAX LAT=5.000000\nMIN LON=5.000000\nMAX LON=10.000000\nFILENAME=b\n");
  dir.Write("f.slf", kBox + "SUB LIF=g.slf\n");
  dir.Write("g.slf", kBox + "FILENAME=g.tvf\n");
  SlfNode root;
  EXPECT_EQ(LoadTree(&root, dir / "x.slf", 0),
            (Texts{"Error: BBOX mismatch in slf: " + dir / "b/x.slf", "Warning: File: " + dir / "f.slf",
                   "Warning: Unexpected SUBLIF DIR or SUBLIF FILE in SUBLIF FILE: FILENAME is expected"}));
  EXPECT_TRUE(root.children[0].IsLeaf());
  EXPECT_EQ(root.children[0].leaf_file, dir / "a/a");
  EXPECT_EQ(root.children[1].max_lat, 5.000001);  // the parent's box stays
  EXPECT_FALSE(root.children[2].file_entry);
  EXPECT_TRUE(root.children[2].children[0].file_entry);
}

TEST(SlfReaderTest, OnDemandLoadingAndErrors) {
  test::TempDir dir;
  dir.Write("x.slf", kBox + "SUBLIF DIR=a\nSUBLIF DIR=missing\nSUB LIF=x.slf\nSUBLIF DIR=.\n");
  dir.Write("a/x.slf", kBox + "FILENAME=a.tvf\n");
  SlfNode root;
  ASSERT_TRUE(MakeSlfRoot(dir / "x.slf", &root));
  test::MessageCapture capture;
  EXPECT_TRUE(EnsureSlfNodeLoaded(root));
  ASSERT_EQ(root.children.size(), 4u);
  EXPECT_FALSE(root.children[0].loaded);  // children wait until needed
  EXPECT_TRUE(EnsureSlfNodeLoaded(root.children[0]));
  EXPECT_FALSE(EnsureSlfNodeLoaded(root.children[1]));
  EXPECT_FALSE(EnsureSlfNodeLoaded(root.children[2]));  // names its own parent
  EXPECT_FALSE(EnsureSlfNodeLoaded(root.children[3]));  // so does "." with the same name
  EXPECT_EQ(capture.Texts(), (Texts{"Error: Could not be opened: " + dir / "missing/x.slf",
                                    "Error: Recursive sub lif, skipping: " + dir / "x.slf",
                                    "Error: Recursive sub lif, skipping: " + dir / "./x.slf"}));
  capture.Clear();  // a node in error is read once and skipped afterwards
  EXPECT_FALSE(EnsureSlfNodeLoaded(root.children[1]));
  EXPECT_TRUE(capture.messages().empty());

  // Each level names a deeper directory with the same SLF name; the nodes
  // down to depth kMaxSlfDepth are read, the one below is refused.
  for (int levels : {kMaxSlfDepth + 1, kMaxSlfDepth + 2}) {
    test::TempDir deep;
    std::string rel;
    for (int i = 1; i < levels; ++i, rel += "d/") deep.Write(rel + "x.slf", kBox + "SUBLIF DIR=d\n");
    deep.Write(rel + "x.slf", kBox + "FILENAME=x.tvf\n");
    const bool too_deep = levels > kMaxSlfDepth + 1;
    SlfNode top;
    EXPECT_EQ(LoadTree(&top, deep / "x.slf", too_deep ? 1 : 0),
              too_deep ? Texts{"Error: Sub lif tree is too deep: " + deep / (rel + "x.slf")} : Texts{});
  }
}

}  // namespace
}  // namespace vmp
