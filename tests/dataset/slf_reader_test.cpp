#include "map_server/dataset/slf_reader.h"

#include <gtest/gtest.h>

#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

constexpr const char* kBox = "MIN LON=0\nMIN LAT=0\nMAX LON=10\nMAX LAT=5\n";

struct Read {
  SlfNode node;
  int64_t entries;
  Texts messages;
};

Read ReadText(std::string_view text, std::string path = "/t/tree/x.slf") {
  Read out;
  EXPECT_TRUE(MakeSlfRoot(path, &out.node));
  test::MessageCapture capture;
  out.entries = ReadSlfText(out.node, text);
  out.messages = capture.Texts();
  return out;
}

TEST(SlfReaderTest, LeafNode) {
  Read r = ReadText(std::string(kBox) + "FILENAME=a.tvf\nFILENAME=a.tvf\nUSED WIDTH=332\nUSED HEIGHT=7\n");
  EXPECT_EQ(r.messages, Texts{});
  EXPECT_EQ(r.entries, 1);
  EXPECT_TRUE(r.node.loaded);
  EXPECT_FALSE(r.node.error);
  EXPECT_TRUE(r.node.IsLeaf());
  EXPECT_EQ(r.node.leaf_file, "/t/tree/a.tvf");
  EXPECT_EQ(r.node.used_width, 332);
  EXPECT_EQ(r.node.used_height, 7);
  EXPECT_EQ(r.node.max_lon, 10);
  EXPECT_EQ(r.node.max_lat, 5);
}

TEST(SlfReaderTest, ChildEntriesAndTheirPaths) {
  Read r = ReadText(std::string(kBox) +
                    "SUBLIF DIR=east   BBOX= 5 0 10 5\n"
                    "SUBLIF DIR=/abs/west\n"
                    "SUB LIF=part.slf\n"
                    "SUBLIF FILE=sub\\other.slf BBOX=0,0,5,5\n"
                    "   BBOX= 1 2 3 4\n");  // a box on its own line is skipped
  EXPECT_EQ(r.messages, Texts{});
  EXPECT_EQ(r.entries, 4);
  ASSERT_EQ(r.node.children.size(), 4u);
  const SlfNode& east = r.node.children[0];
  EXPECT_EQ(east.directory, "/t/tree/east");
  EXPECT_EQ(east.slf_path, "/t/tree/east/x.slf");
  EXPECT_FALSE(east.file_entry);
  EXPECT_TRUE(east.box_from_parent);
  EXPECT_EQ(east.min_lon, 5);
  EXPECT_EQ(east.max_lon, 10);
  EXPECT_EQ(east.depth, 1);
  EXPECT_FALSE(east.loaded);
  EXPECT_EQ(r.node.children[1].slf_path, "/abs/west/x.slf");
  EXPECT_FALSE(r.node.children[1].box_from_parent);
  const SlfNode& part = r.node.children[2];
  EXPECT_EQ(part.directory, "/t/tree");
  EXPECT_EQ(part.slf_path, "/t/tree/part.slf");
  EXPECT_TRUE(part.file_entry);
  EXPECT_EQ(r.node.children[3].slf_path, "/t/tree/sub/other.slf");
  EXPECT_TRUE(r.node.children[3].box_from_parent);
}

TEST(SlfReaderTest, Messages) {
  struct Case {
    std::string text;
    Texts messages;
    bool error;
    int64_t entries;
  };
  const std::string path = "/t/tree/x.slf";
  const Case cases[] = {
      {kBox, {"Error: Empty sublif file: " + path}, true, 0},
      {"FILENAME=a.tvf\nMIN LON=0\n", {"Error: Bounding box is not defined in slf: " + path}, true, 1},
      {std::string(kBox) + "FILENAME=a.tvf\nSUBLIF DIR=d\n",
       {"Warning: File: " + path, "Warning: a.tvf: FILENAME is overriden by SUBLIF DIR"}, false, 1},
      {std::string(kBox) + "SUBLIF DIR=d junk\n",
       {"Error: skipping junk after SUBLIF DIR/FILE (BBOX expected): junk"}, false, 1},
      {std::string(kBox) + "SUBLIF DIR=d BBOX=1 2 3\n",
       {"Error: cannot read BBOX for SUBLIF DIR/FILE: BBOX=1 2 3"}, false, 1},
      {std::string(kBox) + "SUBLIF DIR=\n", {"Error: " + path + ": cannot read: SUBLIF DIR", "Error: Empty sublif file: " + path}, true, 0},
      {std::string(kBox) + "MAX LAT=north\nFILENAME=a\n", {"Error: " + path + ": cannot read: MAX LAT"}, false, 1},
      {std::string(kBox) + "USED WIDTH=wide\nFILENAME=a\n", {"Error: " + path + ": cannot read: USED WIDTH"}, false, 1},
      {std::string(kBox) + "FILENAME=a\nFILENAME=b\n", {"Warning: Repeated FILENAME in slf: " + path}, false, 1},
      {std::string(kBox) + "FILENAME=a\nLAYER=x\n",
       {"Error: SLF file: " + path, "Warning: Unrecognized variable: LAYER=x"}, false, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    Read r = ReadText(c.text);
    EXPECT_EQ(r.messages, c.messages);
    EXPECT_EQ(r.node.error, c.error);
    EXPECT_EQ(r.entries, c.entries);
  }
}

TEST(SlfReaderTest, ParentBoxMustMatchExactly) {
  test::TempDir dir;
  dir.Write("tree/x.slf",
            "MIN LON=0\nMIN LAT=0\nMAX LON=10\nMAX LAT=5\n"
            "SUBLIF DIR=a   BBOX= 0.000000 0.000000 5.000000 5.000000\n"
            "SUBLIF DIR=b   BBOX= 5.000000 0.000000 10.000000 5.000001\n");
  dir.Write("tree/a/x.slf", "MIN LAT=0.000000\nMAX LAT=5.000000\nMIN LON=0.000000\nMAX LON=5.000000\nFILENAME=a.tvf\n");
  dir.Write("tree/b/x.slf", "MIN LAT=0.000000\nMAX LAT=5.000000\nMIN LON=5.000000\nMAX LON=10.000000\nFILENAME=b.tvf\n");
  SlfNode root;
  ASSERT_TRUE(MakeSlfRoot(dir / "tree/x.slf", &root));
  test::MessageCapture capture;
  EXPECT_EQ(LoadSlfTree(root), 0u);
  EXPECT_EQ(capture.Texts(), Texts{"Error: BBOX mismatch in slf: " + dir / "tree/b/x.slf"});
  EXPECT_EQ(root.children[1].max_lat, 5.000001);  // the parent's box stays
  EXPECT_EQ(root.children[0].leaf_file, dir / "tree/a/a.tvf");
  EXPECT_TRUE(root.children[0].IsLeaf());
}

TEST(SlfReaderTest, FileEntryWithChildren) {
  test::TempDir dir;
  dir.Write("x.slf", std::string(kBox) + "SUBLIF FILE=f.slf\n");
  dir.Write("f.slf", std::string(kBox) + "SUB LIF=g.slf\n");
  dir.Write("g.slf", std::string(kBox) + "FILENAME=g.tvf\n");
  SlfNode root;
  ASSERT_TRUE(MakeSlfRoot(dir / "x.slf", &root));
  test::MessageCapture capture;
  EXPECT_EQ(LoadSlfTree(root), 0u);
  EXPECT_EQ(capture.Texts(),
            (Texts{"Warning: File: " + dir / "f.slf",
                   "Warning: Unexpected SUBLIF DIR or SUBLIF FILE in SUBLIF FILE: FILENAME is expected"}));
  EXPECT_FALSE(root.children[0].file_entry);
  EXPECT_TRUE(root.children[0].children[0].file_entry);
}

TEST(SlfReaderTest, OnDemandLoadingAndErrors) {
  test::TempDir dir;
  dir.Write("x.slf", std::string(kBox) + "SUBLIF DIR=a\nSUBLIF DIR=missing\nSUB LIF=x.slf\nSUBLIF DIR=.\n");
  dir.Write("a/x.slf", std::string(kBox) + "FILENAME=a.tvf\n");
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
  // A node in error is read once and skipped afterwards.
  capture.Clear();
  EXPECT_FALSE(EnsureSlfNodeLoaded(root.children[1]));
  EXPECT_TRUE(capture.messages().empty());
}

TEST(SlfReaderTest, DeepChainsStop) {
  test::TempDir dir;
  // Each level names a deeper directory with the same SLF name.
  std::string rel;
  for (int i = 0; i <= kMaxSlfDepth + 1; ++i) {
    dir.Write(rel + "x.slf", std::string(kBox) + "SUBLIF DIR=d\n");
    rel += "d/";
  }
  SlfNode root;
  ASSERT_TRUE(MakeSlfRoot(dir / "x.slf", &root));
  test::MessageCapture capture;
  EXPECT_EQ(LoadSlfTree(root), 1u);
  EXPECT_EQ(capture.Count("Sub lif tree is too deep"), 1u);
}

TEST(SlfReaderTest, RootNames) {
  test::MessageCapture capture;
  SlfNode root;
  EXPECT_TRUE(MakeSlfRoot("tiles\\world.slf", &root));
  EXPECT_EQ(root.slf_path, "tiles/world.slf");
  EXPECT_EQ(root.directory, "tiles");
  EXPECT_EQ(root.slf_base_name, "world.slf");
  EXPECT_FALSE(MakeSlfRoot("tiles/", &root));
  EXPECT_EQ(capture.Texts(), Texts{"Error: Can't determine slf_name in TILES SUBLIF: tiles/"});
}

TEST(SlfReaderTest, UnreadableFile) {
  test::TempDir dir;
  SlfNode node;
  ASSERT_TRUE(MakeSlfRoot(dir.path(), &node));  // a directory named like a file
  test::MessageCapture capture;
  ReadSlfFile(node);
  EXPECT_TRUE(node.error);
  EXPECT_EQ(capture.Texts(), (Texts{"Error: Error reading sub lif file!: " + dir.path(),
                                    "Error: Bounding box is not defined in slf: " + dir.path(),
                                    "Error: Empty sublif file: " + dir.path()}));
}

}  // namespace
}  // namespace vmp
