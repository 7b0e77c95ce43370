#include <gtest/gtest.h>

#include "map_server/dataset/lif_reader.h"
#include "map_server/dataset/redirect_file.h"
#include "map_server/dataset/threshold_file.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

TEST(ThresholdFileTest, TextAndFiles) {
  const std::string types = "INPUT DATA TYPE=VMP_D\nOUTPUT DATA TYPE=VMP_D\n";
  const TypedValue d1 = TypedValue::Double(1), d2 = TypedValue::Double(2);
  struct Case {
    std::string text;
    ThresholdTable table;
    Texts messages;
  };
  const Case cases[] = {
      {types + "1 2\n-3, 4e1\n", {{d1, d2}, {TypedValue::Double(-3), TypedValue::Double(40)}}, {}},
      {"OUTPUT DATA TYPE=VMP_S\nINPUT DATA TYPE=VMP_G\nDATA TYPE=VMP_D\n0 0 0 \"dark blue\"\n",
       {{TypedValue::Geo(0, 0, 0), TypedValue::String("dark blue")}}, {}},
      {"INPUT DATA TYPE=VMP_S\nOUTPUT DATA TYPE=VMP_G\n\"minor road\", 0.5 0.5 0.5\n",
       {{TypedValue::String("minor road"), TypedValue::Geo(0.5, 0.5, 0.5)}}, {}},
      {"INPUT DATA TYPE=VMP_D\n1 2\nOUTPUT DATA TYPE=VMP_D\n1 2\n", {{d1, d2}},
       {"Error: OUTPUT DATA TYPE must be defined before thresholds: t.thr"}},
      {"1 2\n", {},
       {"Error: INPUT DATA TYPE must be defined before thresholds: t.thr",
        "Error: OUTPUT DATA TYPE must be defined before thresholds: t.thr"}},
      {types + "INPUT DATA TYPE=VMP_S\n1 2\n", {{d1, d2}},
       {"Warning: Ignoring repeated INPUT DATA TYPE: VMP_S"}},
      {types + "OUTPUT DATA TYPE=VMP_G\n1 2\n", {{d1, d2}},
       {"Warning: Ignoring repeated OUTPUT DATA TYPE: VMP_G"}},
      {"INPUT DATA TYPE=double\n", {}, {"Error: Invalid INPUT DATA TYPE: double"}},
      {"OUTPUT DATA TYPE=vmp_d\n", {}, {"Error: Invalid OUTPUT DATA TYPE: vmp_d"}},
      {"DATA TYPE=X\nINPUT DATA TYPE=\n", {},
       {"Error: Invalid DATA TYPE: X", "Error: t.thr: cannot read: INPUT DATA TYPE"}},
      {types + "abc 3\n4\n1 2\n", {{d1, d2}},
       {"Error: Error reading threshold file: t.thr: abc 3", "Error: Error reading threshold file: t.thr: 4"}},
      {"INPUT DATA TYPE=VMP_G\nOUTPUT DATA TYPE=VMP_D\n1 1 2\n", {},
       {"Error: Error reading threshold file: t.thr: 1 1 2"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::MessageCapture capture;
    ThresholdTable table;
    EXPECT_TRUE(ReadThresholdText("t.thr", c.text, &table));
    EXPECT_EQ(capture.Texts(), c.messages);
    ASSERT_EQ(table.size(), c.table.size());
    for (size_t i = 0; i < table.size(); ++i) {
      EXPECT_EQ(table[i].input, c.table[i].input);
      EXPECT_EQ(table[i].output, c.table[i].output);
    }
  }
  test::TempDir dir;
  ThresholdTable table = {{d1, d1}};
  test::MessageCapture capture;
  EXPECT_FALSE(ReadThresholdFile(dir / "none.thr", &table));
  EXPECT_TRUE(table.empty());
  EXPECT_FALSE(ReadThresholdFile(dir.path(), &table));  // a read that stops early
  EXPECT_FALSE(ReadThresholdFile("/dev/zero", &table));  // devices could block or never end
  EXPECT_EQ(capture.Texts(), (Texts{"Error: " + dir / "none.thr" + ": Can't open threshold file",
                                    "Error: Error reading threshold file: " + dir.path(),
                                    "Error: /dev/zero: Can't open threshold file"}));
}

TEST(RedirectFileTest, Reading) {
  const RedirectRead missing = RedirectRead::kMissingPrefix;
  struct Case {
    std::string text;
    bool read_error;
    RedirectRead result;
    std::string prefix;
    Texts messages;
  };
  const Case cases[] = {
      {"# moved\nREDIRECT PREFIX=/a\nREDIRECT PREFIX=\"/b c\"\n", false, RedirectRead::kOk, "/b c", {}},
      {"", false, missing, "", {}},
      {"PREFIX=/x\nREDIRECT PREFIX=/y\n", false, RedirectRead::kOk, "/y",
       {"Warning: Unexpected token in REDIRECT FILE, skipping: PREFIX=/x"}},
      {"REDIRECT PREFIX=\n", false, missing, "", {"Error: r.txt: cannot read: REDIRECT PREFIX"}},
      {"REDIRECT PREFIX=/a\n", true, missing, "", {"Error: Error reading redirect file: r.txt"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::MessageCapture capture;
    std::string prefix;
    EXPECT_EQ(ReadRedirectText("r.txt", c.text, c.read_error, &prefix), c.result);
    if (c.result == RedirectRead::kOk) { EXPECT_EQ(prefix, c.prefix); }
    EXPECT_EQ(capture.Texts(), c.messages);
  }
}

// A layer's redirect prefix: none at first (the layer and its fallback file
// are disabled), then each new prefix rebuilds the data, tree and fallback
// paths; a later failure keeps the previous prefix.
TEST(RedirectFileTest, PrefixChangesRebuildPaths) {
  test::TempDir dir;
  auto dataset = CreateDataset("DefaultDataset", dir / "set.sdf");
  for (std::string version : {"v1", "v2"}) {
    dir.Write(version + "/low.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=low.tvf\nFALLBACK=again.lif\n");
    dir.Write(version + "/tree.slf", "MIN LON=0\nMIN LAT=0\nMAX LON=1\nMAX LAT=1\nFILENAME=t.tvf\n");
  }
  auto load = [&](const char* name, std::string_view text) {
    test::MessageCapture capture;
    Layer* layer = ReadLifFile(*dataset, name, dir.Write(std::string(name) + ".lif", text));
    EXPECT_TRUE(capture.messages().empty());
    return layer;
  };
  Texts messages;
  auto prepare = [&](Layer& layer) {
    test::MessageCapture capture;
    RedirectResult result = PrepareLayerRedirect(*dataset, layer);
    messages = capture.Texts();
    return result;
  };
  Layer* layer = load("roads", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=roads.tvf\nREDIRECT FILE=r.txt\n"
                               "FALLBACK=low.lif\nTILES SUBLIF=tree.slf\n");
  ASSERT_NE(layer, nullptr);
  const LayerRecord& r = layer->record;
  EXPECT_TRUE(r.data_path.empty());  // waits for the first prefix
  EXPECT_EQ(r.redirect_path, dir / "r.txt");
  for (const char* first : {"Error: Can't open REDIRECT FILE: ", "Error: Missing REDIRECT PREFIX: "}) {
    RedirectResult result = prepare(*layer);
    EXPECT_FALSE(result.layer_enabled);
    EXPECT_FALSE(result.fallback_file_enabled);
    EXPECT_EQ(messages, (Texts{first + dir / "r.txt", "Error: Disabling layer with errors in REDIRECT FILE: roads",
                               "Error: Errors in REDIRECT FILE: disabling FALLBACK FILE layer: roads"}));
    dir.Write("r.txt", "");
  }
  for (const char* version : {"v1", "v2"}) {
    dir.Write("r.txt", "REDIRECT PREFIX=" + dir / version + "\n");
    RedirectResult result = prepare(*layer);
    EXPECT_EQ(messages, Texts{});
    EXPECT_TRUE(result.layer_enabled && result.prefix_changed);
    EXPECT_EQ(r.data_path, dir / version + "/roads.tvf");
    ASSERT_NE(r.tile_tree, nullptr);
    EXPECT_EQ(r.tile_tree->leaf_file, dir / version + "/t.tvf");
    EXPECT_EQ(r.fallback_file_path, dir / version + "/low.lif");
    ASSERT_NE(layer->fallback_file_layer, nullptr);  // a description of its own, with no fallback
    EXPECT_TRUE(layer->fallback_file_layer->is_fallback_description);
    EXPECT_EQ(layer->fallback_file_layer->fallback_file_layer, nullptr);
    EXPECT_EQ(layer->fallback_file_layer->record.data_path, dir / version + "/low.tvf");
    EXPECT_FALSE(prepare(*layer).prefix_changed);  // the same prefix again
  }
  std::remove((dir / "r.txt").c_str());
  EXPECT_TRUE(prepare(*layer).layer_enabled);
  EXPECT_EQ(messages, Texts{"Error: Can't open REDIRECT FILE, using previous PREFIX value.: " + dir / "r.txt"});
  dir.Write("r.txt", "# nothing\n");
  prepare(*layer);
  EXPECT_EQ(messages, Texts{"Error: Missing REDIRECT PREFIX, using previous value.: " + dir / "r.txt"});
  EXPECT_EQ(r.data_path, dir / "v2/roads.tvf");

  // A layer without a redirect file is left alone.
  Layer* plain = load("plain", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=v1/roads.tvf\n");
  RedirectResult result = prepare(*plain);
  EXPECT_TRUE(result.layer_enabled && !result.prefix_changed);
  EXPECT_EQ(plain->record.data_path, dir / "v1/roads.tvf");
}

}  // namespace
}  // namespace vmp
