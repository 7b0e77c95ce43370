// Layer strings and aliases, the preparation of a selected layer (zoom
// ranges, override, redirect file, alias boxes) and the request's layer pass
// (tiles, fallbacks, backgrounds, location queries, feature filters).
#include <gtest/gtest.h>

#include "map_server/layers/layer_pass.h"
#include "map_server/layers/layer_prepare.h"
#include "map_server/layers/layer_string.h"
#include "map_server/layers/view_box.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

// The 3 x 3 cells around (9, 18) of a 10 x 10 world grid.
const test::MapView kNineCells = {kRectangularProjection, 9, 18, 90, 45, 200, 100};

// A rectangular view of 360 x 180 pixels at `zoom` (360 / HExtent).
test::MapView ZoomView(double zoom, double lat = 0, double lon = 0) {
  return {kRectangularProjection, lat, lon, 360 / zoom, 180 / zoom, 360, 180};
}

std::string Grid(const char* extra) {
  return kav::StrPrintf("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=g_%%_%%.tvf\nNUM TILES X=10\n"
                        "NUM TILES Y=10\nMIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n%s", extra);
}

std::string Single(const char* type, const char* file, const char* extra) {
  return kav::StrPrintf("TYPE=%s\nTRANS TYPE=OPAQUE\nFILENAME=%s\nWIDTH=2\nHEIGHT=2\n"
                        "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n%s", type, file, extra);
}

// "name=mode", then "++" and the include/exclude chain counts.
std::string Describe(const std::vector<SelectedLayer>& selection) {
  std::string text;
  for (const SelectedLayer& s : selection) {
    text += (text.empty() ? "" : "; ") + s.name + "=" + std::to_string(s.mode);
    if (s.override_zoom) text += " ++";
    if (!s.include_conditions.empty()) text += " inc" + std::to_string(s.include_conditions.chains.size());
    if (!s.exclude_conditions.empty()) text += " exc" + std::to_string(s.exclude_conditions.chains.size());
  }
  return text;
}

// "name:role[>stands for]:tiles"
std::string Describe(const ActiveLayer& a) {
  static const char* const kRoles[] = {"selected", "fallback", "background"};
  std::string text = a.layer->name + ":" + kRoles[static_cast<int>(a.role)];
  if (!a.stands_for.empty()) text += ">" + a.stands_for;
  return text + ":" + std::to_string(a.tiles.size());
}

class LayersTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Tiles().Clear();
    const std::string vector = "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=x.tvf\n";
    const std::pair<const char*, std::string> lifs[] = {
        {"a", vector + "MIN ZOOM=2\nMAX ZOOM=8\nLABEL MAX ZOOM=5\nALLOW OVERRIDE=1\n"},
        {"b", vector + "MAX ZOOM=8\nALLOW OVERRIDE=0\n"},
        {"c", vector + "LABEL MIN ZOOM=3\nDEFAULT ON=1\n"},
        {"zero", vector + "MAX ZOOM=0\n"},
        {"elev", Single("IMAGE", "e.tif", "ELEVATION MODE=DATA\n")},
        {"clear", vector + "ALPHA=-0.5\n"},
        {"redir", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=r.tvf\nREDIRECT FILE=gone.txt\n"},
        {"detail", Grid("MAX TILES=4\nFALLBACK LAYER=coarse\n")}, {"alone", Grid("MAX TILES=4\n")},
        {"described", Grid("MAX TILES=4\nFALLBACK=desc.lif\n")},  {"vgrid", Grid("")},
        {"loopa", Grid("MAX TILES=4\nFALLBACK LAYER=loopb\n")},
        {"loopb", Grid("MAX TILES=4\nFALLBACK LAYER=loopc\n")},
        {"loopc", Grid("MAX TILES=4\nFALLBACK LAYER=loopb\n")},   {"coarse", Single("VECTOR", "coarse.tvf", "")},
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
      every_ += (every_.empty() ? "" : "; ") + std::string(name) + "=1";
    }
    files_.Write("desc.lif", Single("VECTOR", "coarse.tvf", ""));
    test::WriteMarkerTvf(files_.dir() / "coarse.tvf", 1);
    for (int cell = 0; cell < 9; ++cell) {
      test::WriteMarkerTvf(files_.dir() / kav::StrPrintf("g_%d_%d.tvf", 4 + cell % 3, 4 + cell / 3), 1);
    }
    test::WriteRgbTiff(files_.dir() / "base.tif", 2, 2);
    test::WriteRgbTiff(files_.dir() / "hi.tif", 2, 2);
    test::MessageCapture quiet;
    files_.Load(info +
        "ALIAS=ab, \"a,b\"\nALIAS=self, \"a,self,b\"\nALIAS=outer, \"inner,c\"\nALIAS=inner, \"outer,a\"\n"
        "ALIAS=range, c\nALIAS ZOOM RANGE=range, 2, 8\nALIAS ENABLE BOX=range, -10, -10, 10, 10\n"
        "ALIAS=nobound, c\nALIAS ZOOM RANGE=nobound, 0, 0\nALIAS=upper, c\nALIAS ZOOM RANGE=upper, -1, 8\n"
        "ALIAS=allbox, \"*\"\nALIAS ZOOM RANGE=allbox, 1, 5\n"
        "ALIAS=en, c\nALIAS ENABLE BOX=en, 0, 0, 10, 10\nALIAS=dis, c\nALIAS DISABLE BOX=dis, 0, 0, 10, 10\n");
    ASSERT_TRUE(quiet.messages().empty()) << quiet.Texts()[0];
  }
  void TearDown() override { Tiles().Clear(); }

  // Selects `text` (one layer) for `view` and prepares it at verbosity 4.
  PreparedLayer Prepare(const std::string& text, const test::MapView& view, Texts* messages) {
    std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), view);
    test::MessageCapture capture;
    kav::Messages().verbosity = 4;
    SelectMapLayers(*map, text);
    EXPECT_EQ(map->layers.size(), 1u);
    PreparedLayer p = PrepareLayer(*map, map->layers.at(0), files_.layer(map->layers[0].name));
    *messages = capture.Texts();
    return p;
  }

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
  std::string every_;  // every layer selected
};

TEST_F(LayersTest, LayerStrings) {
  const struct {
    std::string text, records;
    Texts messages;
    int verbosity = 0;
  } cases[] = {
      {"a,-a", "a=0", {}},
      {"x\\,y,A", "", {"Error: Can't find layer or alias: x,y", "Error: Can't find layer or alias: A"}},
      {"self", "a=1; b=1", {"Error: Recursive alias, skipping: self"}},
      {"outer", "a=1; c=1", {"Error: Recursive alias, skipping: outer"}},
      {"++*", every_, {"Warning: Ignoring ++ override for default or * layers."}},
      {"allbox", every_, {"Warning: Ignoring alias conditions for default or * layers."}},
      {"default", "c=1", {}},
      {"a,,b,-*,c", "c=1", {}},  // an empty token is reported from verbosity 1 on
      {"++a, b @5==3", "a=1 ++; b=2 inc1", {}},
      {"a@5==3,a@6==4 || @7==1,-a@8==1", "a=2 inc3 exc1", {}},
      {"a,a@5==3,-b@5==3", "a=1; b=0", {}},  // ignored: a is on, b is off
      {"-ab", "", {"Warning: Ignoring \"-\" prefix for an alias: ab"}},
      {"++ab@5==1", "a=1; b=1",
       {"Warning: Ignoring attribute conditions for an alias: ab", "Warning: Ignoring \"++\" override for an alias: ab"}},
      {"a,,b, ", "a=1; b=1", {"Warning: Empty token", "Warning: Empty token"}, 1},
      {"a@5=,b", "b=1", {"Error: Invalid condition op in attribute condition", "Error:   Syntax error at:: ="}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    test::MessageCapture capture;
    kav::Messages().verbosity = c.verbosity;
    std::vector<SelectedLayer> selection;
    SelectLayers(files_.dataset(), c.text, selection);
    EXPECT_EQ(Describe(selection), c.records);
    EXPECT_EQ(capture.Texts(), c.messages);
  }
  EXPECT_EQ(SplitLayerString("a\\,b,c\\\\,,d\\"), (Texts{"a,b", "c\\", "", "d"}));

  std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), ZoomView(1));
  test::MessageCapture capture;
  SelectMapLayers(*map, "a,b");
  EXPECT_FALSE(SelectQueryLayers(*map));  // no QueryLayers: nothing selected
  map->record.query_layers = "nobound,-b";
  ASSERT_TRUE(SelectQueryLayers(*map));
  EXPECT_EQ(Describe(map->layers), "c=1; b=0");
}

TEST_F(LayersTest, ZoomRangesAndOverride) {
  const std::string off = "Info: Layer inactive, out of min/max zoom range: ";
  const std::string no_labels = "Info: Labels inactive, out of min/max zoom range: ";
  const struct {
    std::string text;
    double zoom;
    bool active, labels;
    Texts messages;
  } cases[] = {
      {"a", 1, false, false, {off + "a"}},
      {"a", 4, true, true, {}},
      {"a", 6, true, false, {no_labels + "a"}},
      {"++a", 10, true, false, {no_labels + "a"}},
      {"++b", 10, false, false, {"Warning: Ignoring disallowed ++ override for layer: b", off + "b"}},
      {"b", 8, true, true, {}},
      // The layer's own 0 is a limit; an alias's 0 (or anything up to 0) is none.
      {"zero", 1, false, false, {off + "zero"}},
      {"nobound", 500, true, true, {}},
      {"upper", 0.5, true, false, {no_labels + "c"}},
      {"upper", 9, false, false, {off + "c"}},
      {"range", 1, false, false, {off + "c"}},
      {"++range", 20, false, false, {"Warning: Ignoring \"++\" override for an alias: range", off + "c"}},
      {"elev", 1, false, false, {"Error: Can't draw elevation layer: elev"}},
      {"clear", 1, false, false, {}},  // negative Alpha
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text + " at zoom " + std::to_string(c.zoom));
    Texts messages;
    PreparedLayer p = Prepare(c.text, ZoomView(c.zoom, 50, 50), &messages);
    EXPECT_EQ(p.active, c.active);
    EXPECT_EQ(p.labels, c.labels);
    EXPECT_EQ(messages, c.messages);
  }
  // Relative zoom: limits count from the zoom at which the layer's extent fills the view.
  Layer& a = files_.layer("a");
  a.record.max_lon = 36;
  a.record.max_lat = 9;
  a.record.relative_zoom = 1;
  EXPECT_EQ(LayerZoomScale(a), 20.0);  // max(360 / 36, 180 / 9): MinZoom 2 is zoom 40
  Texts messages;
  EXPECT_FALSE(Prepare("a", ZoomView(30), &messages).active);
  EXPECT_TRUE(Prepare("a", ZoomView(50), &messages).active);

  PreparedLayer p = Prepare("redir", ZoomView(1), &messages);  // its REDIRECT FILE is missing
  EXPECT_TRUE(!p.active && p.redirect_failed);
  EXPECT_EQ(messages.back(), "Error: Disabling layer with errors in REDIRECT FILE: redir");
  files_.Write("gone.txt", "REDIRECT PREFIX=" + files_.dir().path() + "\n");
  EXPECT_TRUE(Prepare("redir", ZoomView(1), &messages).active);
  EXPECT_EQ(files_.layer("redir").record.data_path, files_.dir() / "r.tvf");
}

TEST_F(LayersTest, AliasBoxesOverlapTheView) {
  const struct {
    double lat, lon, h_extent;
    bool in_box;
  } cases[] = {
      {5, 11.5, 4, true},   // 9.5..13.5 reaches into the box
      {5, 12.5, 4, false},  // 10.5..14.5 misses it
      {12.5, 5, 4, false},  // 11.5..13.5 in latitude misses it
      {5, -355, 4, true},   // the same place, 360 degrees on
      {5, 5, 40, true},     // the view holds the whole box
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.lat) + ", " + std::to_string(c.lon));
    const test::MapView view = ZoomView(360 / c.h_extent, c.lat, c.lon);
    Texts messages;
    EXPECT_EQ(Prepare("en", view, &messages).active, c.in_box);
    EXPECT_EQ(messages, c.in_box ? Texts{} : Texts{"Info: Layer inactive, outside of the alias enable box: c"});
    EXPECT_EQ(Prepare("dis", view, &messages).active, !c.in_box);
    EXPECT_EQ(messages, c.in_box ? Texts{"Info: Layer inactive, inside of the alias disable box: c"} : Texts{});
  }
  Texts messages;  // views that are not small ignore the boxes
  EXPECT_TRUE(Prepare("en", ZoomView(1.5, 0, 100), &messages).active);

  // An orthographic view across the date line.
  const test::MapView globe = {kOrthographicProjection, 0, 179, 1e6, 1e6, 100, 100};  // ~9 degrees
  const ViewBox box = ComputeViewBox(test::MakeMap(files_.dataset(), globe)->geometry);
  EXPECT_TRUE(ViewFallsInBox(box, Box{-180, -170, -1, 1}));
  EXPECT_FALSE(ViewFallsInBox(box, Box{-170, -160, -1, 1}));
}

TEST_F(LayersTest, FallbackAndBackgroundLayers) {
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

  // A location query at the centre, (9, 18) in the middle of cell (5, 5),
  // uses vector layers only.
  test::MapView query = kNineCells;
  query.location_query = true;
  query.location_i = 100;
  query.location_j = 50;
  EXPECT_EQ(Run("hi,outline,vgrid,coarse", query, &messages), (Texts{"vgrid:selected:1", "coarse:selected:1"}));
  EXPECT_TRUE(messages.empty()) << messages[0];
  EXPECT_EQ(Tiles().FindState(&files_.layer("hi")), nullptr);  // never selected
}

TEST_F(LayersTest, TileCachesLiveAcrossRequests) {
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

// Include conditions OR'ed, exclude conditions subtracted, the layer's own
// ATTR COND on top.
TEST_F(LayersTest, FeatureFilter) {
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
