#include "map_server/util/paths.h"

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

}  // namespace
}  // namespace vmp
