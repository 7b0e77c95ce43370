#include "map_server/layers/layer_string.h"

#include <gtest/gtest.h>

#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

// "name=mode", then "++", "inc=N"/"exc=N" (condition chains), the alias zoom
// range and "boxes" when they are set.
std::string Describe(const SelectedLayer& s) {
  std::string text = s.name + "=" + std::to_string(s.mode);
  if (s.override_zoom) text += " ++";
  if (!s.include_conditions.empty()) text += " inc=" + std::to_string(s.include_conditions.chains.size());
  if (!s.exclude_conditions.empty()) text += " exc=" + std::to_string(s.exclude_conditions.chains.size());
  if (s.alias_min_zoom != -1.0 || s.alias_max_zoom != -1.0) {
    text += " zoom=" + std::to_string(static_cast<int>(s.alias_min_zoom)) + ".." +
            std::to_string(static_cast<int>(s.alias_max_zoom));
  }
  if (s.enable_boxes || s.disable_boxes) text += " boxes";
  return text;
}

class LayerStringTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* lif = "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=x.tvf\n";
    files_.Write("a.lif", lif);
    files_.Write("b.lif", lif);
    files_.Write("c.lif", std::string(lif) + "DEFAULT ON=1\n");
    test::MessageCapture quiet;
    files_.Load(
        "LAYER=a, a.lif\nLAYER=b, b.lif\nLAYER=c, c.lif\n"
        "ALIAS=ab, \"a,b\"\n"
        "ALIAS=self, \"a,self,b\"\n"
        "ALIAS=outer, \"inner,c\"\nALIAS=inner, \"outer,a\"\n"
        "ALIAS=boxed, a\nALIAS ZOOM RANGE=boxed, 2, 8\nALIAS ENABLE BOX=boxed, -10, -10, 10, 10\n"
        "ALIAS=zero, b\nALIAS ZOOM RANGE=zero, 0, 0\n"
        "ALIAS=allbox, \"*\"\nALIAS ZOOM RANGE=allbox, 1, 5\n");
    ASSERT_TRUE(quiet.messages().empty()) << quiet.Texts()[0];
  }

  test::DatasetFiles files_;
};

TEST_F(LayerStringTest, Grammar) {
  struct Case {
    std::string text;
    Texts records;
    Texts messages;
    int verbosity = 0;
  };
  const Case cases[] = {
      {"a,-a", {"a=0"}, {}},
      {"+a,b,-b", {"a=1", "b=0"}, {}},
      {"@5==3", {}, {"Error: Can't find layer or alias: "}},
      {"nothing", {}, {"Error: Can't find layer or alias: nothing"}},
      {"x\\,y", {}, {"Error: Can't find layer or alias: x,y"}},
      {"self", {"a=1", "b=1"}, {"Error: Recursive alias, skipping: self"}},
      {"outer", {"a=1", "c=1"}, {"Error: Recursive alias, skipping: outer"}},
      {"++*", {"a=1", "b=1", "c=1"}, {"Warning: Ignoring ++ override for default or * layers."}},
      {"default", {"c=1"}, {}},
      {"allbox", {"a=1", "b=1", "c=1"}, {"Warning: Ignoring alias conditions for default or * layers."}},
      {"a,b,-*,c", {"c=1"}, {}},
      {"++a", {"a=1 ++"}, {}},
      {"a@5==3,a@6==4 || @7==1,-a@8==1", {"a=2 inc=3 exc=1"}, {}},
      {" a @5==3", {"a=2 inc=1"}, {}},
      {"a,a@5==3", {"a=1"}, {}},
      {"-b@5==3,b@5==3,b", {"b=1"}, {}},
      {"a@5==3,-a", {"a=0"}, {}},
      {"boxed", {"a=1 zoom=2..8 boxes"}, {}},
      {"boxed,a", {"a=1"}, {}},
      {"zero", {"b=1 zoom=0..0"}, {}},
      {"-ab", {}, {"Warning: Ignoring \"-\" prefix for an alias: ab"}},
      {"++ab@5==1",
       {"a=1", "b=1"},
       {"Warning: Ignoring attribute conditions for an alias: ab",
        "Warning: Ignoring \"++\" override for an alias: ab"}},
      {"a,,b", {"a=1", "b=1"}, {}},
      {"a,,b, ", {"a=1", "b=1"}, {"Warning: Empty token", "Warning: Empty token"}, 1},
      {"A", {}, {"Error: Can't find layer or alias: A"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    test::MessageCapture capture;
    kav::Messages().verbosity = c.verbosity;
    std::vector<SelectedLayer> selection;
    SelectLayers(files_.dataset(), c.text, selection);
    Texts records;
    for (const SelectedLayer& s : selection) records.push_back(Describe(s));
    EXPECT_EQ(records, c.records);
    EXPECT_EQ(capture.Texts(), c.messages);
  }
}

TEST_F(LayerStringTest, BadConditionSkipsTheToken) {
  test::MessageCapture capture;
  std::vector<SelectedLayer> selection;
  SelectLayers(files_.dataset(), "a@5=,b", selection);
  ASSERT_EQ(selection.size(), 1u);
  EXPECT_EQ(selection[0].name, "b");
  EXPECT_GT(kav::Messages().error_count, 0);
}

TEST_F(LayerStringTest, SplitKeepsEscapedCharacters) {
  EXPECT_EQ(SplitLayerString("a\\,b,c\\\\,,d\\"), (Texts{"a,b", "c\\", "", "d"}));
  EXPECT_EQ(SplitLayerString(""), Texts{""});
}

TEST_F(LayerStringTest, MapAndQueryLayers) {
  test::MessageCapture capture;
  std::unique_ptr<MapRequest> map = CreateMapRequest();
  map->record.dataset = &files_.dataset();
  ASSERT_TRUE(SelectMapLayers(*map, "a,b"));
  ASSERT_TRUE(SelectMapLayers(*map, "c"));  // replaces the earlier selection
  ASSERT_EQ(map->layers.size(), 1u);
  EXPECT_EQ(map->layers[0].name, "c");

  EXPECT_FALSE(SelectQueryLayers(*map));  // no QueryLayers
  map->record.query_layers = "zero,-c";
  ASSERT_TRUE(SelectQueryLayers(*map));
  Texts records;
  for (const SelectedLayer& s : map->layers) records.push_back(Describe(s));
  EXPECT_EQ(records, (Texts{"b=1 zoom=0..0", "c=0"}));

  map->record.dataset = nullptr;
  EXPECT_FALSE(SelectMapLayers(*map, "a"));
  EXPECT_TRUE(capture.Contains("Unset map object, missing VmpSetupMap() call!"));
}

}  // namespace
}  // namespace vmp
