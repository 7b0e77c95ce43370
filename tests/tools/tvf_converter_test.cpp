#include "map_server/tools/tvf_converter.h"

#include <gtest/gtest.h>

#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"
#include "tests/tools/tools_test_support.h"
#include "toolkit/global_config.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::ReadFile;
using test::TempDir;
using Texts = std::vector<std::string>;

std::string WriteSample(const std::string& path) {
  return test::WriteTvf(path, test::MakeFeatures(
      test::MakePolygon(1, {{0.5, 1.25}, {2, 3}, {-1e-6, 7}}, {{3, TypedValue::String("x y")}}),
      test::MakeMarker(1, 10.125, -20.5, "label", {{0, TypedValue::Geo(1, 2, 3)}})));
}

// To binary and back gives the same bytes; other files, backups and
// unreadable files are left as they are.
TEST(TvfConverterTest, TreeRoundTrip) {
  TempDir dir;
  WriteSample(dir.Write("t/sub/b.tvf", ""));
  const std::string original = ReadFile(WriteSample(dir.Write("t/a.tvf", "")));
  dir.Write("t/sub/c.txt", "left alone");
  for (const bool binary : {true, false}) {
    kav::Config().binary_save = binary;
    int64_t processed = 0;
    MessageCapture capture;
    ASSERT_TRUE(ConvertTvfTree(dir / "t", "*.tvf", 0, &processed));
    EXPECT_EQ(capture.Texts(), Texts{});
    EXPECT_EQ(processed, 2);
    EXPECT_EQ(ReadFile(dir / "t/sub/b.tvf").substr(0, 8), binary ? "69c 2 1 " : "69c 2 0 ");
  }
  EXPECT_EQ(ReadFile(dir / "t/a.tvf"), original);
  EXPECT_EQ(ReadFile(dir / "t/sub/b.tvf"), original);

  dir.Write("t/bad.tvf", "not a tvf file");
  dir.Write("t/a.tvf.vmp_orig_bak", "a backup is never converted");
  int64_t processed = 0;
  MessageCapture capture;
  EXPECT_FALSE(ConvertTvfTree(dir / "t", "*", 0, &processed));
  EXPECT_EQ(processed, 4);  // bad.tvf, a.tvf (its backup name is taken), sub/b.tvf, sub/c.txt
  EXPECT_TRUE(capture.Contains("Backup file exists already: " + dir / "t/a.tvf.vmp_orig_bak"));
  EXPECT_EQ(ReadFile(dir / "t/a.tvf"), original);
  EXPECT_EQ(ReadFile(dir / "t/bad.tvf"), "not a tvf file");
  EXPECT_EQ(ReadFile(dir / "t/a.tvf.vmp_orig_bak"), "a backup is never converted");
  EXPECT_EQ(ReadFile(dir / "t/sub/c.txt"), "left alone");
}

// Whatever step fails, the original stays under its own name (or, when even
// moving it back fails, as the backup), and no temporary file is left.
TEST(TvfConverterTest, NoStepLosesTheOriginal) {
  struct Case {
    const char* name;
    const char* contents;  // null: a valid file
    bool blocked_output;   // a directory stands where the new file goes
    int failing_moves;     // moves from this one on fail (0: none)
    int stop_failing;      // and from this one on work again
    std::string message;
  } cases[] = {
      {"unreadable input", "69c 2 0 \r\n7 5", false, 0, 0, "Error: Error reading TVF file, skipping"},
      {"unwritable new file", nullptr, true, 0, 0, "Warning: Error writing TVF file, skipping "},
      {"first move", nullptr, false, 1, 2, "Warning: Can't replace original TVF file, skipping "},
      {"second move", nullptr, false, 2, 3, "Warning: Can't replace original TVF file, skipping "},
      {"second move and restore", nullptr, false, 2, 9, "Error: Original TVF file kept as"},
  };
  kav::Config().binary_save = true;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const std::string path = c.contents != nullptr ? dir.Write("f.tvf", c.contents) : WriteSample(dir / "f.tvf");
    if (c.blocked_output) dir.Write("f.tvf.vmp_new_bak/x", "");
    const std::string before = ReadFile(path);
    ConverterFileOps ops = SystemFileOps();
    int moves = 0;
    ops.rename = [&](const std::string& from, const std::string& to) {
      ++moves;
      const bool fail = c.failing_moves > 0 && moves >= c.failing_moves && moves < c.stop_failing;
      return !fail && SystemFileOps().rename(from, to);
    };
    MessageCapture capture;
    EXPECT_FALSE(ConvertTvfFile(path, ops));
    EXPECT_TRUE(capture.Contains(c.message)) << testing::PrintToString(capture.Texts());
    const bool kept_as_backup = c.stop_failing == 9;
    EXPECT_EQ(ReadFile(kept_as_backup ? path + ".vmp_orig_bak" : path), before);
    EXPECT_EQ(test::FileExists(path + ".vmp_orig_bak"), kept_as_backup);
    EXPECT_EQ(test::FileExists(path + ".vmp_new_bak"), kept_as_backup || c.blocked_output);
  }
  kav::Config().binary_save = false;
}

}  // namespace
}  // namespace vmp
