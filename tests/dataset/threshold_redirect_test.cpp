#include <gtest/gtest.h>

#include "map_server/dataset/lif_reader.h"
#include "map_server/dataset/redirect_file.h"
#include "map_server/dataset/threshold_file.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

void ExpectTable(const ThresholdTable& got, const ThresholdTable& want) {
  ASSERT_EQ(got.size(), want.size());
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].input, want[i].input) << i;
    EXPECT_EQ(got[i].output, want[i].output) << i;
  }
}

TEST(ThresholdFileTest, ValueTypes) {
  struct Case {
    std::string text;
    ThresholdTable table;
  };
  const Case cases[] = {
      {"INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_D\n1.5 2\n-3, 4e1\n",
       {{TypedValue::Double(1.5), TypedValue::Double(2)}, {TypedValue::Double(-3), TypedValue::Double(40)}}},
      {"INPUT DATA TYPE=VMP_S\nOUTPUT DATA TYPE=VMP_G\nmotorway 1,0,0\n\"minor road\", 0.5 0.5 0.5\n",
       {{TypedValue::String("motorway"), TypedValue::Geo(1, 0, 0)},
        {TypedValue::String("minor road"), TypedValue::Geo(0.5, 0.5, 0.5)}}},
      {"OUTPUT DATA TYPE=VMP_S\nINPUT DATA TYPE=VMP_G\nDATA TYPE=VMP_D\n0 0 0 black\n",
       {{TypedValue::Geo(0, 0, 0), TypedValue::String("black")}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::MessageCapture capture;
    ThresholdTable table;
    EXPECT_TRUE(ReadThresholdText("t.thr", c.text, &table));
    ExpectTable(table, c.table);
    EXPECT_TRUE(capture.messages().empty());
  }
}

TEST(ThresholdFileTest, Messages) {
  struct Case {
    std::string text;
    Texts messages;
    size_t kept;
  };
  const std::string types = "INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_D\n";
  const Case cases[] = {
      {"INPUT DATA TYPE=VMP_D\n1 2\nOUTPUT DATA TYPE=VMP_D\n3 4\n",
       {"Error: OUTPUT DATA TYPE must be defined before thresholds: t.thr"}, 1},
      {"1 2\n",
       {"Error: INPUT DATA TYPE must be defined before thresholds: t.thr",
        "Error: OUTPUT DATA TYPE must be defined before thresholds: t.thr"}, 0},
      {types + "INPUT DATA TYPE=VMP_S\n1 2\n", {"Warning: Ignoring repeated INPUT DATA TYPE: VMP_S"}, 1},
      {types + "OUTPUT DATA TYPE=VMP_G\n1 2\n", {"Warning: Ignoring repeated OUTPUT DATA TYPE: VMP_G"}, 1},
      {"INPUT DATA TYPE=double\n", {"Error: Invalid INPUT DATA TYPE: double"}, 0},
      {"OUTPUT DATA TYPE=vmp_d\n", {"Error: Invalid OUTPUT DATA TYPE: vmp_d"}, 0},
      {"DATA TYPE=X\n", {"Error: Invalid DATA TYPE: X"}, 0},
      {types + "1 2\nabc 3\n4\n5 6\n",
       {"Error: Error reading threshold file: t.thr: abc 3", "Error: Error reading threshold file: t.thr: 4"}, 2},
      {"INPUT DATA TYPE=VMP_G\nOUTPUT DATA TYPE=VMP_D\n1 1 2\n", {"Error: Error reading threshold file: t.thr: 1 1 2"}, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::MessageCapture capture;
    ThresholdTable table;
    ReadThresholdText("t.thr", c.text, &table);
    EXPECT_EQ(capture.Texts(), c.messages);
    EXPECT_EQ(table.size(), c.kept);
  }
}

TEST(ThresholdFileTest, Files) {
  test::TempDir dir;
  ThresholdTable table = {{TypedValue::Double(1), TypedValue::Double(1)}};
  test::MessageCapture capture;
  EXPECT_FALSE(ReadThresholdFile(dir / "none.thr", &table));
  EXPECT_TRUE(table.empty());
  // A read that stops early discards the table.
  EXPECT_FALSE(ReadThresholdFile(dir.path(), &table));
  EXPECT_EQ(capture.Texts(), (Texts{"Error: " + dir / "none.thr" + ": Can't open threshold file",
                                    "Error: Error reading threshold file: " + dir.path()}));
  dir.Write("ok.thr", "INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_D\n1 2\n");
  EXPECT_TRUE(ReadThresholdFile(dir / "ok.thr", &table));
  EXPECT_EQ(table.size(), 1u);
}

TEST(RedirectFileTest, Reading) {
  struct Case {
    std::string text;
    RedirectRead result;
    std::string prefix;
    Texts messages;
  };
  const Case cases[] = {
      {"REDIRECT PREFIX=/data/a\n", RedirectRead::kOk, "/data/a", {}},
      {"# moved\nREDIRECT PREFIX=/a\nREDIRECT PREFIX=\"/data/b c\"\n", RedirectRead::kOk, "/data/b c", {}},
      {"", RedirectRead::kMissingPrefix, "", {}},
      {"PREFIX=/x\nREDIRECT PREFIX=/y\n", RedirectRead::kOk, "/y",
       {"Warning: Unexpected token in REDIRECT FILE, skipping: PREFIX=/x"}},
      {"REDIRECT PREFIX=\n", RedirectRead::kMissingPrefix, "", {"Error: r.txt: cannot read: REDIRECT PREFIX"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::MessageCapture capture;
    std::string prefix;
    EXPECT_EQ(ReadRedirectText("r.txt", c.text, false, &prefix), c.result);
    if (c.result == RedirectRead::kOk) {
      EXPECT_EQ(prefix, c.prefix);
    }
    EXPECT_EQ(capture.Texts(), c.messages);
  }
  test::MessageCapture capture;
  std::string prefix;
  EXPECT_EQ(ReadRedirectText("r.txt", "REDIRECT PREFIX=/a\n", true, &prefix),
            RedirectRead::kMissingPrefix);
  EXPECT_EQ(capture.Texts(), Texts{"Error: Error reading redirect file: r.txt"});
}

class RedirectLayerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dataset_ = CreateDataset("DefaultDataset", dir_ / "set.sdf");
    dir_.Write("v1/roads.tvf", "");
    dir_.Write("v2/low.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=low.tvf\n");
    dir_.Write("v1/low.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=low.tvf\n");
    dir_.Write("v1/tree.slf", "MIN LON=0\nMIN LAT=0\nMAX LON=1\nMAX LAT=1\nFILENAME=t.tvf\n");
    dir_.Write("v2/tree.slf", "MIN LON=0\nMIN LAT=0\nMAX LON=1\nMAX LAT=1\nFILENAME=t.tvf\n");
  }

  Layer* Load(std::string_view lif_text) {
    std::string lif = dir_.Write("roads.lif", lif_text);
    test::MessageCapture capture;
    Layer* layer = ReadLifFile(*dataset_, "roads", lif);
    EXPECT_TRUE(capture.messages().empty());
    return layer;
  }

  RedirectResult Prepare(Layer& layer, Texts* messages) {
    test::MessageCapture capture;
    RedirectResult result = PrepareLayerRedirect(*dataset_, layer);
    *messages = capture.Texts();
    return result;
  }

  test::TempDir dir_;
  std::unique_ptr<Dataset> dataset_;
};

TEST_F(RedirectLayerTest, PrefixChangesRebuildPaths) {
  Layer* layer = Load("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=roads.tvf\nREDIRECT FILE=r.txt\n"
                      "FALLBACK=low.lif\nTILES SUBLIF=tree.slf\n");
  ASSERT_NE(layer, nullptr);
  EXPECT_TRUE(layer->record.data_path.empty());  // waits for the first prefix
  EXPECT_EQ(layer->record.redirect_path, dir_ / "r.txt");

  dir_.Write("r.txt", "REDIRECT PREFIX=" + dir_ / "v1" + "\n");
  Texts messages;
  RedirectResult first = Prepare(*layer, &messages);
  EXPECT_EQ(messages, Texts{});
  EXPECT_TRUE(first.layer_enabled);
  EXPECT_TRUE(first.prefix_changed);
  EXPECT_EQ(layer->record.data_path, dir_ / "v1/roads.tvf");
  ASSERT_NE(layer->record.tile_tree, nullptr);
  EXPECT_EQ(layer->record.tile_tree->leaf_file, dir_ / "v1/t.tvf");
  ASSERT_NE(layer->fallback_file_layer, nullptr);
  EXPECT_EQ(layer->fallback_file_layer->record.data_path, dir_ / "v1/low.tvf");

  RedirectResult same = Prepare(*layer, &messages);
  EXPECT_FALSE(same.prefix_changed);
  EXPECT_EQ(messages, Texts{});

  dir_.Write("r.txt", "REDIRECT PREFIX=" + dir_ / "v2" + "\n");
  RedirectResult moved = Prepare(*layer, &messages);
  EXPECT_TRUE(moved.prefix_changed);
  EXPECT_EQ(layer->record.data_path, dir_ / "v2/roads.tvf");
  EXPECT_EQ(layer->record.tile_tree->leaf_file, dir_ / "v2/t.tvf");
  EXPECT_EQ(layer->fallback_file_layer->record.data_path, dir_ / "v2/low.tvf");

  // The file vanishes or loses its prefix: the previous prefix stays.
  std::remove((dir_ / "r.txt").c_str());
  RedirectResult gone = Prepare(*layer, &messages);
  EXPECT_TRUE(gone.layer_enabled);
  EXPECT_EQ(messages,
            Texts{"Error: Can't open REDIRECT FILE, using previous PREFIX value.: " + dir_ / "r.txt"});
  dir_.Write("r.txt", "# nothing\n");
  Prepare(*layer, &messages);
  EXPECT_EQ(messages, Texts{"Error: Missing REDIRECT PREFIX, using previous value.: " + dir_ / "r.txt"});
  EXPECT_EQ(layer->record.data_path, dir_ / "v2/roads.tvf");
}

TEST_F(RedirectLayerTest, FailureWithoutPreviousPrefixDisables) {
  Layer* layer = Load("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=roads.tvf\nREDIRECT FILE=r.txt\n"
                      "FALLBACK=low.lif\n");
  ASSERT_NE(layer, nullptr);
  Texts messages;
  RedirectResult result = Prepare(*layer, &messages);
  EXPECT_FALSE(result.layer_enabled);
  EXPECT_FALSE(result.fallback_file_enabled);
  EXPECT_EQ(messages, (Texts{"Error: Can't open REDIRECT FILE: " + dir_ / "r.txt",
                             "Error: Disabling layer with errors in REDIRECT FILE: roads",
                             "Error: Errors in REDIRECT FILE: disabling FALLBACK FILE layer: roads"}));
  dir_.Write("r.txt", "");
  Prepare(*layer, &messages);
  EXPECT_EQ(messages, (Texts{"Error: Missing REDIRECT PREFIX: " + dir_ / "r.txt",
                             "Error: Disabling layer with errors in REDIRECT FILE: roads",
                             "Error: Errors in REDIRECT FILE: disabling FALLBACK FILE layer: roads"}));
}

TEST_F(RedirectLayerTest, LayersWithoutRedirectAreUntouched) {
  Layer* layer = Load("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=v1/roads.tvf\n");
  Texts messages;
  RedirectResult result = Prepare(*layer, &messages);
  EXPECT_TRUE(result.layer_enabled);
  EXPECT_FALSE(result.prefix_changed);
  EXPECT_EQ(layer->record.data_path, dir_ / "v1/roads.tvf");
}

}  // namespace
}  // namespace vmp
