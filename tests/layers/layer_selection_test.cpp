#include <gtest/gtest.h>

#include "map_server/layers/layer_prepare.h"
#include "map_server/layers/layer_string.h"
#include "map_server/layers/view_box.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

// "name=mode", then "++", include/exclude chain counts, alias zoom and boxes.
std::string Describe(const std::vector<SelectedLayer>& selection) {
  std::string text;
  for (const SelectedLayer& s : selection) {
    text += (text.empty() ? "" : "; ") + s.name + "=" + std::to_string(s.mode);
    if (s.override_zoom) text += " ++";
    if (!s.include_conditions.empty()) text += " inc" + std::to_string(s.include_conditions.chains.size());
    if (!s.exclude_conditions.empty()) text += " exc" + std::to_string(s.exclude_conditions.chains.size());
    if (s.alias_min_zoom != -1 || s.alias_max_zoom != -1) {
      text += " zoom" + std::to_string(static_cast<int>(s.alias_min_zoom)) + ".." +
              std::to_string(static_cast<int>(s.alias_max_zoom));
    }
    if (s.enable_boxes || s.disable_boxes) text += " boxes";
  }
  return text;
}

// A rectangular view of 360 x 180 pixels at `zoom` (360 / HExtent).
test::MapView ZoomView(double zoom, double lat = 0, double lon = 0) {
  return {kRectangularProjection, lat, lon, 360 / zoom, 180 / zoom, 360, 180};
}

class LayerSelectionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string vector = "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=x.tvf\n";
    files_.Write("a.lif", vector + "MIN ZOOM=2\nMAX ZOOM=8\nLABEL MAX ZOOM=5\nALLOW OVERRIDE=1\n");
    files_.Write("b.lif", vector + "MAX ZOOM=8\nALLOW OVERRIDE=0\n");
    files_.Write("c.lif", vector + "LABEL MIN ZOOM=3\nDEFAULT ON=1\n");
    files_.Write("zero.lif", vector + "MAX ZOOM=0\n");
    files_.Write("elev.lif", "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=e.tif\nWIDTH=1\nHEIGHT=1\n"
                             "ELEVATION MODE=DATA\n");
    files_.Write("clear.lif", vector + "ALPHA=-0.5\n");
    files_.Write("redir.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=r.tvf\nREDIRECT FILE=gone.txt\n");
    test::MessageCapture quiet;
    files_.Load(
        "LAYER=a, a.lif\nLAYER=b, b.lif\nLAYER=c, c.lif\nLAYER=zero, zero.lif\nLAYER=elev, elev.lif\n"
        "LAYER=clear, clear.lif\nLAYER=redir, redir.lif\n"
        "ALIAS=ab, \"a,b\"\nALIAS=self, \"a,self,b\"\nALIAS=outer, \"inner,c\"\nALIAS=inner, \"outer,a\"\n"
        "ALIAS=range, c\nALIAS ZOOM RANGE=range, 2, 8\nALIAS ENABLE BOX=range, -10, -10, 10, 10\n"
        "ALIAS=nobound, c\nALIAS ZOOM RANGE=nobound, 0, 0\nALIAS=upper, c\nALIAS ZOOM RANGE=upper, -1, 8\n"
        "ALIAS=allbox, \"*\"\nALIAS ZOOM RANGE=allbox, 1, 5\n"
        "ALIAS=en, c\nALIAS ENABLE BOX=en, 0, 0, 10, 10\nALIAS=dis, c\nALIAS DISABLE BOX=dis, 0, 0, 10, 10\n");
    ASSERT_TRUE(quiet.messages().empty()) << quiet.Texts()[0];
  }

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

  test::DatasetFiles files_;
};

TEST_F(LayerSelectionTest, LayerStrings) {
  const std::string every = "a=1; b=1; c=1; zero=1; elev=1; clear=1; redir=1";
  const struct {
    std::string text, records;
    Texts messages;
    int verbosity = 0;
  } cases[] = {
      {"a,-a", "a=0", {}},
      {"@5==3", "", {"Error: Can't find layer or alias: "}},
      {"x\\,y,A", "", {"Error: Can't find layer or alias: x,y", "Error: Can't find layer or alias: A"}},
      {"self", "a=1; b=1", {"Error: Recursive alias, skipping: self"}},
      {"outer", "a=1; c=1", {"Error: Recursive alias, skipping: outer"}},
      {"++*", every, {"Warning: Ignoring ++ override for default or * layers."}},
      {"allbox", every, {"Warning: Ignoring alias conditions for default or * layers."}},
      {"default", "c=1", {}},
      {"a,b,-*,c", "c=1", {}},
      {"++a, b @5==3", "a=1 ++; b=2 inc1", {}},
      {"a@5==3,a@6==4 || @7==1,-a@8==1", "a=2 inc3 exc1", {}},
      {"a,a@5==3,-b@5==3", "a=1; b=0", {}},  // ignored: a is on, b is off
      {"range", "c=1 zoom2..8 boxes", {}},
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
  EXPECT_EQ(Describe(map->layers), "c=1 zoom0..0; b=0");
}

TEST_F(LayerSelectionTest, ZoomRangesAndOverride) {
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
      {"a", 10, false, false, {off + "a"}},
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
}

TEST_F(LayerSelectionTest, RedirectFileFailureDisablesTheLayer) {
  Texts messages;
  PreparedLayer p = Prepare("redir", ZoomView(1), &messages);
  EXPECT_TRUE(!p.active && p.redirect_failed);
  EXPECT_EQ(messages.back(), "Error: Disabling layer with errors in REDIRECT FILE: redir");
  files_.Write("gone.txt", "REDIRECT PREFIX=" + files_.dir().path() + "\n");
  EXPECT_TRUE(Prepare("redir", ZoomView(1), &messages).active);
  EXPECT_EQ(files_.layer("redir").record.data_path, files_.dir() / "r.tvf");
}

TEST_F(LayerSelectionTest, AliasBoxesOverlapTheView) {
  const struct {
    double lat, lon, h_extent;
    bool in_box;
  } cases[] = {
      {5, 5, 4, true},      // inside the box
      {5, 11.5, 4, true},   // 9.5..13.5 reaches into it
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

}  // namespace
}  // namespace vmp
