// The tools run as the real program: exit statuses, what goes to standard
// output and standard error, and the files left behind.
#include <gtest/gtest.h>

#include "map_server/image/jpeg_writer.h"
#include "tests/image/test_images.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/tools_test_support.h"

namespace vmp {
namespace {

using test::MakeMarker;
using test::MakePolygon;
using test::RunMapServer;
using test::RunResult;
using Args = std::vector<std::string>;

TEST(ToolsCliTest, MergeAndInfo) {
  test::TempDir dir;
  const std::string a = test::WriteTvf(
      dir / "a.tvf", test::MakeFeatures(MakePolygon(0, {{-10, 5}, {20, -7.5}}), MakeMarker(0, 3, 60)));
  const std::string b = test::WriteTvf(dir / "b.tvf", test::MakeFeatures(MakeMarker(0, 100, 1)));
  const std::string empty = test::WriteTvf(dir / "empty.tvf", {});
  const std::string missing = dir / "missing.tvf";

  RunResult r = RunMapServer({"-merge", "-output", dir / "m.tvf", "-b", a, missing});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "Merged 2 objects in 1 files.\n");
  EXPECT_NE(r.err.find("VmpMap: Error: Error reading TVF file, skipping: " + missing + "\n"),
            std::string::npos) << r.err;
  EXPECT_NE(r.err.find("VmpMap: Error: Errors processing some files\n"), std::string::npos);
  EXPECT_EQ(test::ReadFile(dir / "m.tvf").substr(0, 8), "69c 2 1 ");
  EXPECT_EQ(test::LoadOrFail(dir / "m.tvf").FeatureCount(), 2);

  // The output may be one of the inputs: it is replaced once complete.
  r = RunMapServer({"-merge", "-output", a, a, b, empty});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Merged 3 objects in 3 files.\n");
  const std::vector<test::Points> merged = test::Geometry(test::LoadOrFail(a));
  EXPECT_EQ(merged.size(), 3u);
  EXPECT_EQ(merged.back(), (test::Points{{100, 1}}));  // in the order given

  r = RunMapServer({"-tvf-info", a, missing});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("File: " + a + ":\nBounding box:\nMIN LAT= -7.500000\nMAX LAT= 60.000000\n"
                       "MIN LON= -10.000000\nMAX LON= 100.000000\n"),
            std::string::npos) << r.err;
}

TEST(ToolsCliTest, SplitAndTile) {
  test::TempDir dir;
  const std::string in = test::WriteTvf(
      dir / "in.tvf", test::MakeFeatures(MakePolygon(0, {{-170, 10}, {-160, 20}, {-150, 10}}),
                                         MakeMarker(0, 100, -40)));
  RunResult r = RunMapServer({"-progress", "3", "-tile", "-vector", "-filename", in, "-template",
                              dir / "t%_%.tvf", "-num-x-tiles", "4", "-num-y-tiles", "2",
                              "-world-extent", "-b"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Writing tile #3\nWriting tile #6\n");
  EXPECT_EQ(r.err, "VmpMap: Info: Number of skipped tiles with no features: 6\n"
                   "VmpMap: Info: Tiled vector data\n");
  EXPECT_EQ(test::Geometry(test::LoadOrFail(dir / "t0_1.tvf")).size(), 1u);
  EXPECT_EQ(test::Geometry(test::LoadOrFail(dir / "t3_0.tvf")), (std::vector<test::Points>{{{100, -40}}}));

  r = RunMapServer({"-split", "-filename", in, "-output", dir / "s.tvf", "-attr", "@1==x"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "VmpMap: Warning: No objects fit conditions: " + in + "\nVmpMap: Info: Split data\n");
  EXPECT_FALSE(test::FileExists(dir / "s.tvf"));
  r = RunMapServer({"-split", "-filename", in, "-output", dir / "s.tvf", "-attr", "@1 = 2"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Invalid attribute condition: -attr\n"), std::string::npos) << r.err;
}

// Snapping, merging of consecutive duplicates, dropped polygons, kept heads
// and attributes, and the report.
TEST(ToolsCliTest, Slim) {
  test::TempDir dir;
  const std::string in = test::WriteTvf(
      dir / "in.tvf",
      test::MakeFeatures(
          MakePolygon(1, {{4.9, 0}, {5, 0}, {-5, 0}}, {{2, TypedValue::String("keep")}}),
          MakePolygon(0, {{0, 0}, {1, 1}, {-1, 2}}),           // one node: dropped
          MakePolygon(0, {{0, 0}, {20, 0}, {21, 1}, {0, 1}}),  // A, B, B, A: A B A kept
          MakeMarker(1, 1.25, 4.5, "label", {{0, TypedValue::Double(7)}})));
  const RunResult r = RunMapServer({"-slim", "-filename", in, "-output", dir / "out.tvf", "-resolution", "10"});
  EXPECT_EQ(r.status, 0) << r.err;
  // 10 points in; 3 duplicates (2 in the dropped polygon, 1 in the third);
  // 6 written: the ratio is duplicates over written.
  EXPECT_EQ(r.out, "Points: in/out ratio: 0.500000\n  total: 10, discarded: 4, written out: 6\n"
                   "Polygons: in/out ratio: 0.666667\n  total: 3, discarded small: 1, written out: 2\n");
  EXPECT_EQ(r.err, "VmpMap: Info: Slimed data\n");
  const VectorData out = test::LoadOrFail(dir / "out.tvf");
  EXPECT_EQ(test::Geometry(out), (std::vector<test::Points>{{{0, 0}, {10, 0}, {-10, 0}}, {{0, 0}, {20, 0}, {0, 0}},
                                                            {{1.25, 4.5}}}));
  EXPECT_EQ(out.features[0]->flag, 1);
  EXPECT_EQ(*out.features[0]->FindAttribute(2)->value.text, "keep");
  EXPECT_EQ(out.features[2]->AsMarker()->label, "label");
}

// Image, tiles, tile info files, SLF tree and LIF, as a user prepares a
// tiled image layer; then the converter on the tree.
TEST(ToolsCliTest, TileAnImageAndDescribeItsTree) {
  test::TempDir dir;
  const std::vector<uint8_t> pixels = test::Pattern(300, 100, 3);
  ASSERT_TRUE(WriteMapJpeg(nullptr, dir / "world.jpg", pixels.data(), 300, 100));
  dir.Write("tiles/roads.tvf", "69c 2 0 \r\n7 0 0 2 0 1.5 2 3 4 ");
  test::RunOptions in_dir;
  in_dir.working_dir = dir.path();
  const struct {
    Args args;
    std::string out, err;
  } steps[] = {
      {{"-progress", "2", "-tile", "-image", "-filename", "world.jpg", "-template", "tiles/w_%_%.jpg",
        "-num-x-tiles", "4", "-num-y-tiles", "1"},
       "Writing tile #2\nWriting tile #4\n", "VmpMap: Info: Tiled image\n"},
      {{"-tile_info", "-verbosity", "1", "-slf-pattern", "tiles/w_%_%.info", "-data-pattern", "w_%_%.jpg",
        "-width", "300", "-height", "100", "-num-x-tiles", "4", "-num-y-tiles", "1", "-min-lat", "-90",
        "-max-lat", "90", "-min-lon", "-180", "-max-lon", "180"},
       "", "VmpMap: Info: Generated tile info files\n"},  // every image was found
      {{"-progress", "3", "-slf", "-image", "-path", "tiles", "-pattern", "*.info", "-out-slf-name",
        "world", "-out-lif-name", "world.lif"},
       "Processing file #3\n", ""},
      {{"-convert", "-b", "-progress", "1", "-path", "tiles", "-pattern", "*.tvf"}, "Convering file #1\n",
       "VmpMap: Info: Number of processed files: 1\n"},
      {{"-convert", "-path", "tiles", "-pattern", "*.shp"}, "",
       "VmpMap: Warning: Found no files matching pattern: *.shp\n"},
  };
  for (const auto& step : steps) {
    const RunResult r = RunMapServer(step.args, in_dir);
    EXPECT_EQ(r.status, 0) << step.args[2] << ": " << r.err;
    EXPECT_EQ(r.out, step.out);
    EXPECT_EQ(r.err, step.err);
  }
  EXPECT_EQ(test::ReadFile(dir / "world.lif"),
            "# file generated by a vmp parsing utility\nTYPE=IMAGE\nTRANS TYPE=OPAQUE\n"
            "TILES SUBLIF=tiles/world.slf\nMIN LAT=-90.000000\nMAX LAT=90.000000\n"
            "MIN LON=-180.000000\nMAX LON=180.000000\n");
  EXPECT_EQ(test::ReadFile(dir / "tiles/roads.tvf").substr(0, 8), "69c 2 1 ");
  EXPECT_NE(test::ReadFile(dir / "tiles/w_3_0.info").find("USED WIDTH=75\nUSED HEIGHT=100\nFILENAME=w_3_0.jpg\n"),
            std::string::npos);
  EXPECT_NE(test::ReadFile(dir / "tiles/world.slf").find("SUBLIF FILE=w_3_0.info\n"), std::string::npos);
}

}  // namespace
}  // namespace vmp
