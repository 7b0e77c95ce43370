#include "map_server/layers/layer_pass.h"

#include <gtest/gtest.h>

#include "map_server/layers/layer_string.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

// The 3 x 3 cells around (9, 18) of a 10 x 10 world grid.
const test::MapView kNineCells = {kRectangularProjection, 9, 18, 90, 45, 200, 100};

std::string Grid(const char* extra) {
  return kav::StrPrintf("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=g_%%_%%.tvf\nNUM TILES X=10\n"
                        "NUM TILES Y=10\nMIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n%s",
                        extra);
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
    const std::pair<const char*, std::string> lifs[] = {
        {"detail", Grid("MAX TILES=4\nFALLBACK LAYER=coarse\n")},
        {"alone", Grid("MAX TILES=4\n")},
        {"described", Grid("MAX TILES=4\nFALLBACK=desc.lif\n")},
        {"loopa", Grid("MAX TILES=4\nFALLBACK LAYER=loopb\n")},
        {"loopb", Grid("MAX TILES=4\nFALLBACK LAYER=loopc\n")},
        {"loopc", Grid("MAX TILES=4\nFALLBACK LAYER=loopb\n")},
        {"vgrid", Grid("")},
        {"coarse", Single("VECTOR", "coarse.tvf", "")},
        {"base", Single("IMAGE", "base.tif", "")},
        {"hi", Single("IMAGE", "hi.tif", "BACKGROUND LAYER=base\n")},
        {"hi2", Single("IMAGE", "hi.tif", "BACKGROUND LAYER=base\n")},
        {"nobg", Single("IMAGE", "hi.tif", "BACKGROUND LAYER=missing\n")},
        {"vecbg", Single("IMAGE", "hi.tif", "BACKGROUND LAYER=coarse\n")},
        {"outline", "TYPE=OUTLINE\nTRANS TYPE=OPAQUE\n"},
    };
    std::string info;
    for (const auto& [name, lif] : lifs) {
      files_.Write(std::string(name) + ".lif", lif);
      info += kav::StrPrintf("LAYER=%s, %s.lif\n", name, name);
    }
    files_.Write("desc.lif", Single("VECTOR", "coarse.tvf", ""));
    test::WriteMarkerTvf(files_.dir() / "coarse.tvf", 1);
    for (int cell = 0; cell < 9; ++cell) {
      test::WriteMarkerTvf(files_.dir() / kav::StrPrintf("g_%d_%d.tvf", 4 + cell % 3, 4 + cell / 3), 1);
    }
    test::WriteRgbTiff(files_.dir() / "base.tif", 2, 2);
    test::WriteRgbTiff(files_.dir() / "hi.tif", 2, 2);
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
    *messages = capture.Texts();
    std::erase_if(*messages, [](const std::string& text) {
      return kav::StartsWith(text, "Info: The ") || kav::StartsWith(text, "Info:    and") ||
             kav::StartsWith(text, "Info: Max cache size");
    });
    return active;
  }

  test::DatasetFiles files_;
};

TEST_F(LayerPassTest, FallbackAndBackgroundLayers) {
  const std::string exceeded = "Info: Disabling layer, num tiles exceeded.: ";
  const std::string name = "Info: Fallback layer name: ";
  const std::string switching = "Info: Switching to fallback layer: ";
  const struct {
    std::string layers;
    Texts active, messages;
  } cases[] = {
      {"detail", {"coarse:fallback>detail:1"}, {name + "coarse", switching + "detail"}},
      {"alone", {}, {exceeded + "alone"}},
      {"described", {"described:fallback>described:1"}, {switching + "described"}},
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
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.layers);
    Tiles().Clear();
    Texts messages;
    EXPECT_EQ(Run(c.layers, kNineCells, &messages), c.active);
    EXPECT_EQ(messages, c.messages);
  }
  // A layer over its limit loads none of its tiles (only its fallback's one).
  Tiles().Clear();
  Texts messages;
  Run("detail", kNineCells, &messages);
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
  std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), kNineCells);
  test::MessageCapture capture;
  SelectMapLayers(*map, "vgrid");
  RequestLayers first = PrepareRequestLayers(*map);
  ASSERT_EQ(first.layers.size(), 1u);
  const std::vector<std::shared_ptr<const TileRecord>> tiles = first.layers[0].tiles;
  ASSERT_EQ(tiles.size(), 9u);
  FinishRequestLayers(first);
  for (const auto& tile : tiles) EXPECT_FALSE(tile->updated);

  RequestLayers second = PrepareRequestLayers(*map);
  EXPECT_EQ(second.layers.at(0).tiles, tiles);  // the same records, from the cache
  EXPECT_TRUE(capture.messages().empty());
  // A request that is not finished leaves its marks for the next to report.
  RequestLayers third = PrepareRequestLayers(*map);
  EXPECT_EQ(capture.Count("Unexpected used tile!"), 9u);
  FinishRequestLayers(third);
}

TEST_F(LayerPassTest, FeatureFilter) {
  // Include conditions OR'ed, exclude conditions subtracted, the layer's own ATTR COND on top.
  Layer& layer = files_.layer("vgrid");
  std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), kNineCells);
  SelectMapLayers(*map, "vgrid@1==A,vgrid@1==B,vgrid@1==C,-vgrid@1==B");
  ActiveLayer active;
  active.layer = &layer;
  active.selection = map->layers.at(0);
  std::string drawn;
  for (const char* value : {"A", "B", "C", "D"}) {
    MarkerFeature feature;
    feature.AddAttribute(1, TypedValue::String(value));
    FeatureContext context;
    context.feature = &feature;
    if (FeatureSelected(active, context)) drawn += value;
    ParseAttrCondition("@1!=C", layer.record.conditions);
    if (FeatureSelected(active, context)) drawn += value;
    layer.record.conditions.reset();
  }
  EXPECT_EQ(drawn, "AAC");  // C passes only without the layer's own condition
}

}  // namespace
}  // namespace vmp
