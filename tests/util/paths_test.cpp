#include "map_server/util/paths.h"

#include "map_server/dataset/layer_paths.h"

#include <gtest/gtest.h>

namespace vmp {
namespace {

TEST(PathsTest, AbsoluteRule) {
  EXPECT_TRUE(IsAbsolutePath("/data/x"));
  EXPECT_TRUE(IsAbsolutePath("\\data\\x"));
  EXPECT_TRUE(IsAbsolutePath("C:\\data"));
  EXPECT_TRUE(IsAbsolutePath("c:"));
  EXPECT_FALSE(IsAbsolutePath("data/x"));
  EXPECT_FALSE(IsAbsolutePath("ab:c"));
  EXPECT_FALSE(IsAbsolutePath(""));
}

TEST(PathsTest, JoinAndResolve) {
  EXPECT_EQ(JoinPath("root", "layer.lif"), "root/layer.lif");
  EXPECT_EQ(JoinPath("root/", "layer.lif"), "root/layer.lif");
  EXPECT_EQ(JoinPath("", "layer.lif"), "layer.lif");
  EXPECT_EQ(ResolvePath("root", "/abs/x"), "/abs/x");
  EXPECT_EQ(ResolvePath("root", "sub/x"), "root/sub/x");
  EXPECT_EQ(ToNativePath("a\\b\\c.tvf"), "a/b/c.tvf");
}

TEST(PathsTest, DirectoryAndBaseName) {
  EXPECT_EQ(DirectoryOf("a/b/c.lif"), "a/b");
  EXPECT_EQ(DirectoryOf("a\\b\\c.lif"), "a\\b");
  EXPECT_EQ(DirectoryOf("c.lif"), "");
  EXPECT_EQ(DirectoryOf("/c.lif"), "/");
  EXPECT_EQ(BaseName("a/b/c.lif"), "c.lif");
  EXPECT_EQ(BaseName("c.lif"), "c.lif");
}

TEST(PathsTest, GridTilePaths) {
  // A single tile names its file; any other grid, a row or a column of
  // tiles too, expands the name with the column and the row.
  LayerRecord r;
  r.data_path = "t/e_%_%.tif";
  for (auto [columns, rows, expect] : {std::tuple{1, 1, "t/e_%_%.tif"}, {4, 1, "t/e_2_0.tif"}, {1, 4, "t/e_2_0.tif"}}) {
    r.num_tiles_x = columns;
    r.num_tiles_y = rows;
    EXPECT_EQ(GridTilePath(r, 2, 0), expect) << columns << "x" << rows;
  }
}

}  // namespace
}  // namespace vmp
