#include "map_server/tools/tvf_converter.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "map_server/vector/tvf_reader.h"
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

void WriteSample(const std::string& path) {
  TvfOutput out = OpenTvfOutput(path);
  ASSERT_TRUE(out);
  auto polygon = test::MakePolygon(1, {{0.5, 1.25}, {2, 3}, {-1e-6, 7}}, {{3, TypedValue::String("x y")}});
  auto marker = test::MakeMarker(1, 10.125, -20.5, "label", {{0, TypedValue::Geo(1, 2, 3)}});
  WriteTvfFeature(out.get(), CurrentTvfOutputFormat(), *polygon);
  WriteTvfFeature(out.get(), CurrentTvfOutputFormat(), *marker);
  ASSERT_TRUE(CloseTvfOutput(std::move(out)));
}

// Features as text, to compare what two files hold.
std::string Describe(const std::string& path) {
  VectorData data;
  if (!LoadTvfFile(path, TvfSource::kTvf, data)) return "unreadable";
  std::string text;
  for (const auto& f : data.features) {
    if (const PolygonFeature* p = f->AsPolygon()) {
      for (const PolygonPoint& q : p->points) text += std::to_string(q.x) + "," + std::to_string(q.y) + " ";
    } else {
      text += *f->AsMarker()->label + "@" + std::to_string(f->AsMarker()->x) + " ";
    }
    text += std::to_string(f->attributes.size()) + "|";
  }
  return text;
}

class TvfConverterTest : public ::testing::Test {
 protected:
  void TearDown() override { kav::Config().binary_save = false; }
  TempDir dir_;
};

TEST_F(TvfConverterTest, TreeRoundTripBetweenEncodings) {
  std::filesystem::create_directories(dir_ / "t/sub");
  WriteSample(dir_ / "t/a.tvf");
  WriteSample(dir_ / "t/sub/b.tvf");
  dir_.Write("t/sub/c.txt", "left alone");
  const std::string original = test::ReadFile(dir_ / "t/a.tvf");
  const std::string features = Describe(dir_ / "t/a.tvf");
  for (const bool binary : {true, false}) {
    kav::Config().binary_save = binary;
    int64_t processed = 0;
    MessageCapture capture;
    ASSERT_TRUE(ConvertTvfTree(dir_ / "t", "*.tvf", 0, &processed));
    EXPECT_EQ(capture.Texts(), Texts{});
    EXPECT_EQ(processed, 2);
    for (const char* name : {"t/a.tvf", "t/sub/b.tvf"}) {
      EXPECT_EQ(test::ReadFile(dir_ / name).substr(0, 8), binary ? "69c 2 1 " : "69c 2 0 ");
      EXPECT_EQ(Describe(dir_ / name), features);
    }
  }
  EXPECT_EQ(test::ReadFile(dir_ / "t/a.tvf"), original);  // back to the same bytes
  EXPECT_EQ(test::ReadFile(dir_ / "t/sub/c.txt"), "left alone");
  for (const auto& entry : std::filesystem::recursive_directory_iterator(dir_ / "t")) {
    EXPECT_EQ(entry.path().string().find("_bak"), std::string::npos) << entry.path();
  }
}

// Whatever step fails, the original stays readable under its own name (or,
// when even moving it back fails, as the backup) and no new file is left.
TEST_F(TvfConverterTest, NoStepLosesTheOriginal) {
  enum Failure { kNone, kFirstMove, kSecondMove, kSecondMoveAndRestore };
  struct Case {
    const char* name;
    bool garbage;         // the input cannot be read
    bool blocked_output;  // a directory stands where the new file goes
    Failure failure;
    std::string message;
    bool kept_as_backup;
  } cases[] = {
      {"unreadable input", true, false, kNone, "Error: Error reading TVF file, skipping", false},
      {"unwritable new file", false, true, kNone, "Warning: Error writing TVF file, skipping ", false},
      {"first move", false, false, kFirstMove, "Warning: Can't replace original TVF file, skipping ", false},
      {"second move", false, false, kSecondMove, "Warning: Can't replace original TVF file, skipping ", false},
      {"second move and restore", false, false, kSecondMoveAndRestore,
       "Error: Original TVF file kept as", true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    const std::string path = dir / "f.tvf";
    if (c.garbage) dir.Write("f.tvf", "69c 2 0 \r\n7 5");
    else WriteSample(path);
    if (c.blocked_output) dir.Write("f.tvf.vmp_new_bak/x", "");
    const std::string before = test::ReadFile(path);

    ConverterFileOps ops = SystemFileOps();
    int moves = 0;
    ops.rename = [&](const std::string& from, const std::string& to) {
      ++moves;
      if (c.failure == kFirstMove && moves == 1) return false;
      if (c.failure == kSecondMove && moves == 2) return false;
      if (c.failure == kSecondMoveAndRestore && moves >= 2) return false;
      return SystemFileOps().rename(from, to);
    };
    kav::Config().binary_save = true;
    MessageCapture capture;
    EXPECT_FALSE(ConvertTvfFile(path, ops));
    EXPECT_TRUE(capture.Contains(c.message)) << testing::PrintToString(capture.Texts());
    const std::string kept = c.kept_as_backup ? path + ".vmp_orig_bak" : path;
    EXPECT_EQ(test::ReadFile(kept), before);
    EXPECT_EQ(test::FileExists(path + ".vmp_orig_bak"), c.kept_as_backup);
    if (!c.blocked_output) {
      EXPECT_EQ(test::FileExists(path + ".vmp_new_bak"), c.kept_as_backup);
    }
  }
}

TEST_F(TvfConverterTest, CountsAndFailuresOfATree) {
  std::filesystem::create_directories(dir_ / "t");
  WriteSample(dir_ / "t/good.tvf");
  dir_.Write("t/bad.tvf", "not a tvf file");
  dir_.Write("t/left.tvf.vmp_orig_bak", "a backup is never converted");
  int64_t processed = -1;
  MessageCapture capture;
  EXPECT_FALSE(ConvertTvfTree(dir_ / "t", "*", 0, &processed));
  EXPECT_EQ(processed, 2);
  EXPECT_TRUE(capture.Contains("Error reading TVF file, skipping: " + dir_ / "t/bad.tvf"));
  EXPECT_EQ(test::ReadFile(dir_ / "t/bad.tvf"), "not a tvf file");
  EXPECT_EQ(test::ReadFile(dir_ / "t/left.tvf.vmp_orig_bak"), "a backup is never converted");

  capture.Clear();
  EXPECT_TRUE(ConvertTvfTree(dir_ / "t", "*.none", 0, &processed));
  EXPECT_EQ(processed, 0);
  EXPECT_FALSE(ConvertTvfTree(dir_ / "missing", "*", 0, &processed));
  EXPECT_EQ(capture.Texts(), Texts{"Error: Could not be opened: " + dir_ / "missing"});
}

}  // namespace
}  // namespace vmp
