#include "map_server/layers/layer_pass.h"

#include <gtest/gtest.h>

#include "map_server/layers/layer_string.h"
#include "map_server/tiles/tile_walk.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

// The 3 x 3 cells around (9, 18) of a 10 x 10 world grid.
const test::MapView kNineCells = {kRectangularProjection, 9, 18, 90, 45, 200, 100};

std::string Grid(const char* prefix, const char* extra) {
  return kav::StrPrintf("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=%s_%%_%%.tvf\nNUM TILES X=10\n"
                        "NUM TILES Y=10\nMIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n%s",
                        prefix, extra);
}

std::string Single(const char* type, const char* file, const char* extra) {
  return kav::StrPrintf("TYPE=%s\nTRANS TYPE=OPAQUE\nFILENAME=%s\nWIDTH=2\nHEIGHT=2\n"
                        "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n%s",
                        type, file, extra);
}

// "name:role[>stands for]:tiles"
std::string Describe(const ActiveLayer& a) {
  static const char* const kRoles[] = {"selected", "fallback", "background"};
  std::string text = a.layer->name + ":" + kRoles[static_cast<int>(a.role)];
  if (!a.stands_for.empty()) text += ">" + a.stands_for;
  return text + ":" + std::to_string(a.tiles.size());
}

class LayerPassTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Tiles().Clear();
    files_.Write("detail.lif", Grid("g", "MAX TILES=4\nFALLBACK LAYER=coarse\n"));
    files_.Write("alone.lif", Grid("g", "MAX TILES=4\n"));
    files_.Write("described.lif", Grid("g", "MAX TILES=4\nFALLBACK=desc.lif\n"));
    files_.Write("desc.lif", Single("VECTOR", "coarse.tvf", ""));
    files_.Write("chain.lif", Grid("g", "MAX TILES=4\nFALLBACK LAYER=chain2\n"));
    files_.Write("chain2.lif", Grid("g", "MAX TILES=4\nFALLBACK LAYER=coarse\n"));
    files_.Write("loopa.lif", Grid("g", "MAX TILES=4\nFALLBACK LAYER=loopb\n"));
    files_.Write("loopb.lif", Grid("g", "MAX TILES=4\nFALLBACK LAYER=loopc\n"));
    files_.Write("loopc.lif", Grid("g", "MAX TILES=4\nFALLBACK LAYER=loopb\n"));
    files_.Write("vgrid.lif", Grid("g", ""));
    files_.Write("coarse.lif", Single("VECTOR", "coarse.tvf", ""));
    files_.Write("base.lif", Single("IMAGE", "base.tif", ""));
    files_.Write("hi.lif", Single("IMAGE", "hi.tif", "BACKGROUND LAYER=base\n"));
    files_.Write("hi2.lif", Single("IMAGE", "hi.tif", "BACKGROUND LAYER=base\n"));
    files_.Write("nobg.lif", Single("IMAGE", "hi.tif", "BACKGROUND LAYER=missing\n"));
    files_.Write("vecbg.lif", Single("IMAGE", "hi.tif", "BACKGROUND LAYER=coarse\n"));
    files_.Write("selfbg.lif", Single("IMAGE", "hi.tif", "BACKGROUND LAYER=selfbg\n"));
    files_.Write("outline.lif", "TYPE=OUTLINE\nTRANS TYPE=OPAQUE\n");
    test::WriteMarkerTvf(files_.dir() / "coarse.tvf", 1);
    for (int column = 4; column <= 6; ++column) {
      for (int row = 4; row <= 6; ++row) {
        test::WriteMarkerTvf(files_.dir() / kav::StrPrintf("g_%d_%d.tvf", column, row), 1);
      }
    }
    test::WriteRgbTiff(files_.dir() / "base.tif", 2, 2);
    test::WriteRgbTiff(files_.dir() / "hi.tif", 2, 2);
    std::string info;
    for (const char* name : {"detail", "alone", "described", "chain", "chain2", "loopa", "loopb",
                             "loopc", "vgrid", "coarse", "base", "hi", "hi2", "nobg", "vecbg",
                             "selfbg", "outline"}) {
      info += kav::StrPrintf("LAYER=%s, %s.lif\n", name, name);
    }
    test::MessageCapture quiet;
    files_.Load(info);
    ASSERT_TRUE(quiet.messages().empty()) << quiet.Texts()[0];
  }
  void TearDown() override { Tiles().Clear(); }

  // Runs the pass for `layers` at verbosity 4; the messages leave out the
  // tile counts of verbosity 3.
  Texts Run(const std::string& layers, const test::MapView& view, Texts* messages) {
    std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), view);
    test::MessageCapture capture;
    kav::Messages().verbosity = 4;
    SelectMapLayers(*map, layers);
    RequestLayers pass = PrepareRequestLayers(*map);
    Texts active;
    for (const ActiveLayer& a : pass.layers) active.push_back(Describe(a));
    FinishRequestLayers(pass);
    messages->clear();
    for (const std::string& text : capture.Texts()) {
      if (!kav::StartsWith(text, "Info: The ") && !kav::StartsWith(text, "Info:    and") &&
          !kav::StartsWith(text, "Info: Max cache size")) {
        messages->push_back(text);
      }
    }
    return active;
  }

  test::DatasetFiles files_;
};

TEST_F(LayerPassTest, FallbackAndBackgroundLayers) {
  struct Case {
    std::string layers;
    Texts active;
    Texts messages;
  };
  const std::string exceeded = "Info: Disabling layer, num tiles exceeded.: ";
  const std::string name = "Info: Fallback layer name: ";
  const std::string switching = "Info: Switching to fallback layer: ";
  const Case cases[] = {
      {"detail", {"coarse:fallback>detail:1"}, {name + "coarse", switching + "detail"}},
      {"alone", {}, {exceeded + "alone"}},
      {"described", {"described:fallback>described:1"}, {switching + "described"}},
      {"chain",
       {"coarse:fallback>chain:1"},
       {name + "chain2", switching + "chain", name + "coarse", switching + "chain2"}},
      {"loopa",
       {},
       {name + "loopb", switching + "loopa", name + "loopc", switching + "loopb", name + "loopb",
        "Info: Ignoring fallback layer: already tried.: loopb", exceeded + "loopc"}},
      {"detail,coarse",
       {"coarse:selected:1"},
       {name + "coarse", "Info: Ignoring fallback layer: already selected.: coarse", exceeded + "detail"}},
      {"hi", {"base:background:1", "hi:selected:1"}, {}},
      {"outline,hi,hi2", {"outline:selected:0", "base:background:1", "hi:selected:1", "hi2:selected:1"}, {}},
      {"hi,base", {"hi:selected:1", "base:selected:1"}, {"Warning: Ignoring BACKGROUND LAYER: already selected.: base"}},
      {"nobg", {"nobg:selected:1"}, {"Error: Can't find background layer: missing"}},
      {"vecbg", {"vecbg:selected:1"}, {"Warning: Ignoring BACKGROUND LAYER (non-image layer or bg_layer).: coarse"}},
      {"selfbg", {"selfbg:selected:1"}, {"Warning: Ignoring BACKGROUND LAYER: already selected.: selfbg"}},
      {"vgrid,-outline,outline,-outline", {"vgrid:selected:9"}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.layers);
    Tiles().Clear();
    Texts messages;
    EXPECT_EQ(Run(c.layers, kNineCells, &messages), c.active);
    EXPECT_EQ(messages, c.messages);
  }
  // A layer over its limit loads none of its tiles.
  Tiles().Clear();
  Texts messages;
  Run("detail", kNineCells, &messages);
  EXPECT_EQ(Tiles().StateOf(files_.layer("detail")).CachedTiles(), 0);
  EXPECT_EQ(Tiles().loaded_tiles(TileKind::kVector), 1);
}

TEST_F(LayerPassTest, LocationQueriesUseVectorLayersOnly) {
  test::MapView view = kNineCells;
  view.location_query = true;
  view.location_i = 100;  // the centre: (9, 18), in the middle of cell (5, 5)
  view.location_j = 50;
  Texts messages;
  EXPECT_EQ(Run("hi,outline,vgrid,coarse", view, &messages), (Texts{"vgrid:selected:1", "coarse:selected:1"}));
  EXPECT_TRUE(messages.empty()) << messages[0];
  EXPECT_EQ(Tiles().FindState(&files_.layer("hi")), nullptr);  // never selected
}

TEST_F(LayerPassTest, CachesLiveAcrossRequests) {
  Layer& layer = files_.layer("vgrid");
  std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), kNineCells);
  test::MessageCapture capture;
  SelectMapLayers(*map, "vgrid");
  RequestLayers first = PrepareRequestLayers(*map);
  ASSERT_EQ(first.layers.size(), 1u);
  const std::vector<std::shared_ptr<const TileRecord>> tiles = first.layers[0].tiles;
  ASSERT_EQ(tiles.size(), 9u);
  FinishRequestLayers(first);
  TileWalk test_walk;
  test_walk.op = kTileTest;
  test_walk.layer = &layer;
  EXPECT_EQ(ForEachGridTile(test_walk), 0);  // no marks left
  for (const auto& tile : tiles) EXPECT_FALSE(tile->updated);

  RequestLayers second = PrepareRequestLayers(*map);
  ASSERT_EQ(second.layers.size(), 1u);
  EXPECT_EQ(second.layers[0].tiles, tiles);  // the same records, from the cache
  EXPECT_TRUE(capture.messages().empty());

  // A request that is not finished leaves its marks for the next to report.
  RequestLayers third = PrepareRequestLayers(*map);
  EXPECT_EQ(capture.Count("Unexpected used tile!"), 9u);
  FinishRequestLayers(third);
  FinishRequestLayers(second);
}

TEST_F(LayerPassTest, FeatureFilter) {
  struct Case {
    const char* layers;
    const char* layer_condition;  // ATTR COND of the layer, or null
    bool a_drawn, b_drawn, c_drawn;
  };
  const Case cases[] = {
      {"vgrid", nullptr, true, true, true},
      {"vgrid@1==A", nullptr, true, false, false},
      {"vgrid@1==A,vgrid@1==B", nullptr, true, true, false},
      {"vgrid,-vgrid@1==B", nullptr, true, false, true},
      {"vgrid@1==A,-vgrid@1==A", nullptr, false, false, false},
      {"vgrid,-vgrid@1==B", "@1!=C", true, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.layers);
    std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), kNineCells);
    test::MessageCapture capture;
    SelectMapLayers(*map, c.layers);
    ActiveLayer active;
    active.layer = &files_.layer("vgrid");
    active.selection = map->layers[0];
    active.layer->record.conditions.reset();
    if (c.layer_condition) ParseAttrCondition(c.layer_condition, active.layer->record.conditions);
    const bool expected[] = {c.a_drawn, c.b_drawn, c.c_drawn};
    const char* values[] = {"A", "B", "C"};
    for (int i = 0; i < 3; ++i) {
      MarkerFeature feature;
      feature.AddAttribute(1, TypedValue::String(values[i]));
      FeatureContext context;
      context.feature = &feature;
      EXPECT_EQ(FeatureSelected(active, context), expected[i]) << values[i];
    }
    active.layer->record.conditions.reset();
  }
}

}  // namespace
}  // namespace vmp
