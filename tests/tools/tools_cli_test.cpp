// The tools run as the real program: exit statuses, what goes to standard
// output and standard error, and the files left behind.
#include <gtest/gtest.h>

#include "tests/support/run_program.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/tools_test_support.h"

namespace vmp {
namespace {

using test::MakeMarker;
using test::MakePolygon;
using test::RunMapServer;
using test::RunResult;

TEST(ToolsCliTest, MergeAndInfo) {
  test::TempDir dir;
  const std::string a = test::WriteTvf(
      dir / "a.tvf", test::MakeFeatures(MakePolygon(0, {{-10, 5}, {20, -7.5}}),
                                        MakeMarker(0, 3, 60)));
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
  EXPECT_EQ(test::LoadOrFail(a).FeatureCount(), 3);

  r = RunMapServer({"-merge", "-output", dir / "no/such/dir.tvf", b});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "VmpMap: Error: Could not open output file: " + dir / "no/such/dir.tvf" + "\n");

  r = RunMapServer({"-tvf-info", a, missing});
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_NE(r.err.find("File: " + a + ":\nBounding box:\nMIN LAT= -7.500000\nMAX LAT= 60.000000\n"
                       "MIN LON= -10.000000\nMAX LON= 100.000000\n"),
            std::string::npos) << r.err;
  EXPECT_NE(r.err.find("VmpMap: Error: Error reading file, skipping: " + missing),
            std::string::npos);
}

TEST(ToolsCliTest, SplitTileAndSlim) {
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
  EXPECT_TRUE(test::FileExists(dir / "t0_1.tvf"));
  EXPECT_TRUE(test::FileExists(dir / "t3_0.tvf"));

  r = RunMapServer({"-split", "-filename", in, "-output", dir / "s.tvf", "-attr", "@1==x"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "VmpMap: Warning: No objects fit conditions: " + in +
                       "\nVmpMap: Info: Split data\n");
  EXPECT_FALSE(test::FileExists(dir / "s.tvf"));
  r = RunMapServer({"-split", "-filename", in, "-output", dir / "s.tvf", "-attr", "@1 = 2"});
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Invalid attribute condition: -attr\n"), std::string::npos) << r.err;
  r = RunMapServer({"-slim", "-filename", in, "-output", dir / "slim.tvf", "-resolution", "20"});
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "Points: in/out ratio: 0.500000\n  total: 3, discarded: 1, written out: 2\n"
                   "Polygons: in/out ratio: 1.000000\n"
                   "  total: 1, discarded small: 0, written out: 1\n");
  EXPECT_EQ(r.err, "VmpMap: Info: Slimed data\n");
}

}  // namespace
}  // namespace vmp
