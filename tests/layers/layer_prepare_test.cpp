#include "map_server/layers/layer_prepare.h"

#include <gtest/gtest.h>

#include "map_server/layers/layer_string.h"
#include "map_server/layers/view_box.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Texts = std::vector<std::string>;

// A rectangular view at zoom `zoom` (360 x 180 pixels, so the zoom is 360 /
// HExtent) centred on (lat, lon).
test::MapView ZoomView(double zoom, double lat = 0.0, double lon = 0.0) {
  test::MapView view;
  view.center_lat = lat;
  view.center_lon = lon;
  view.h_extent = 360.0 / zoom;
  view.v_extent = 180.0 / zoom;
  return view;
}

class LayerPrepareTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string vector = "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=x.tvf\n";
    files_.Write("v.lif", vector + "MIN ZOOM=2\nMAX ZOOM=8\nLABEL MAX ZOOM=5\nALLOW OVERRIDE=1\n");
    files_.Write("locked.lif", vector + "MAX ZOOM=8\nALLOW OVERRIDE=0\n");
    files_.Write("free.lif", vector + "LABEL MIN ZOOM=3\n");
    files_.Write("zero.lif", vector + "MAX ZOOM=0\n");
    files_.Write("elev.lif", "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=e.tif\nWIDTH=10\nHEIGHT=10\n"
                             "ELEVATION MODE=DATA\n");
    files_.Write("clear.lif", vector + "ALPHA=-0.5\n");
    files_.Write("redir.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=r.tvf\nREDIRECT FILE=gone.txt\n");
    test::MessageCapture quiet;
    files_.Load(
        "LAYER=v, v.lif\nLAYER=locked, locked.lif\nLAYER=free, free.lif\nLAYER=zero, zero.lif\n"
        "LAYER=elev, elev.lif\nLAYER=clear, clear.lif\nLAYER=redir, redir.lif\n"
        "ALIAS=range, free\nALIAS ZOOM RANGE=range, 2, 8\n"
        "ALIAS=nobound, free\nALIAS ZOOM RANGE=nobound, 0, 0\n"
        "ALIAS=upper, free\nALIAS ZOOM RANGE=upper, -1, 8\n"
        "ALIAS=en, free\nALIAS ENABLE BOX=en, 0, 0, 10, 10\n"
        "ALIAS=dis, free\nALIAS DISABLE BOX=dis, 0, 0, 10, 10\n");
    ASSERT_TRUE(quiet.messages().empty()) << quiet.Texts()[0];
  }

  // Selects `text` (one layer) for `view` and prepares it at verbosity 4.
  PreparedLayer Prepare(const std::string& text, const test::MapView& view, Texts* messages) {
    std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), view);
    test::MessageCapture capture;
    kav::Messages().verbosity = 4;
    SelectMapLayers(*map, text);
    EXPECT_EQ(map->layers.size(), 1u);
    PreparedLayer p;
    if (!map->layers.empty()) {
      p = PrepareLayer(*map, map->layers[0], files_.layer(map->layers[0].name));
    }
    *messages = capture.Texts();
    return p;
  }

  test::DatasetFiles files_;
};

TEST_F(LayerPrepareTest, ZoomAndLabelRanges) {
  struct Case {
    std::string text;
    double zoom;
    bool active;
    bool labels;
    Texts messages;
  };
  const std::string off = "Info: Layer inactive, out of min/max zoom range: ";
  const std::string no_labels = "Info: Labels inactive, out of min/max zoom range: ";
  const Case cases[] = {
      {"v", 1, false, false, {off + "v"}},
      {"v", 4, true, true, {}},
      {"v", 6, true, false, {no_labels + "v"}},
      {"v", 10, false, false, {off + "v"}},
      {"++v", 10, true, false, {no_labels + "v"}},
      {"++locked", 10, false, false,
       {"Warning: Ignoring disallowed ++ override for layer: locked", off + "locked"}},
      {"locked", 8, true, true, {}},
      // The layer's own 0 is a limit; an alias's 0 (or anything up to 0) is none.
      {"zero", 1, false, false, {off + "zero"}},
      {"nobound", 500, true, true, {}},
      {"upper", 0.5, true, false, {no_labels + "free"}},
      {"upper", 9, false, false, {off + "free"}},
      {"range", 1, false, false, {off + "free"}},
      {"range", 4, true, true, {}},
      {"++range", 20, false, false,
       {"Warning: Ignoring \"++\" override for an alias: range", off + "free"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text + " at zoom " + std::to_string(c.zoom));
    Texts messages;
    PreparedLayer p = Prepare(c.text, ZoomView(c.zoom), &messages);
    EXPECT_EQ(p.active, c.active);
    EXPECT_EQ(p.labels, c.labels);
    EXPECT_EQ(messages, c.messages);
  }
}

TEST_F(LayerPrepareTest, LayersThatCannotBeDrawn) {
  Texts messages;
  EXPECT_FALSE(Prepare("elev", ZoomView(1), &messages).active);
  EXPECT_EQ(messages, Texts{"Error: Can't draw elevation layer: elev"});
  EXPECT_FALSE(Prepare("clear", ZoomView(1), &messages).active);
  EXPECT_EQ(messages, Texts{});

  PreparedLayer p = Prepare("redir", ZoomView(1), &messages);
  EXPECT_FALSE(p.active);
  EXPECT_TRUE(p.redirect_failed);
  ASSERT_EQ(messages.size(), 2u);
  EXPECT_EQ(messages[0].rfind("Error: Can't open REDIRECT FILE: ", 0), 0u);
  EXPECT_EQ(messages[1], "Error: Disabling layer with errors in REDIRECT FILE: redir");

  // Once the redirect file exists the layer is usable.
  files_.Write("gone.txt", "REDIRECT PREFIX=" + files_.dir().path() + "\n");
  p = Prepare("redir", ZoomView(1), &messages);
  EXPECT_TRUE(p.active);
  EXPECT_EQ(files_.layer("redir").record.data_path, files_.dir() / "r.tvf");
}

TEST_F(LayerPrepareTest, AliasBoxesOverlapTheView) {
  struct Case {
    double lat, lon, h_extent;
    bool enabled_by_en;  // "dis" is always the opposite
  };
  const Case cases[] = {
      {5, 5, 4, true},       // inside the box
      {5, 11.5, 4, true},    // 9.5..13.5 reaches into the box
      {5, 12.5, 4, false},   // 10.5..14.5 misses it
      {12.5, 5, 4, false},   // 11.5..13.5 in latitude misses it
      {5, -355, 4, true},    // the same place, 360 degrees on
      {5, 5, 40, true},      // the view holds the whole box
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.lat) + ", " + std::to_string(c.lon));
    test::MapView view = ZoomView(360.0 / c.h_extent, c.lat, c.lon);
    Texts messages;
    EXPECT_EQ(Prepare("en", view, &messages).active, c.enabled_by_en);
    EXPECT_EQ(messages, c.enabled_by_en ? Texts{}
                                        : Texts{"Info: Layer inactive, outside of the alias enable box: free"});
    EXPECT_EQ(Prepare("dis", view, &messages).active, !c.enabled_by_en);
    EXPECT_EQ(messages, !c.enabled_by_en ? Texts{}
                                         : Texts{"Info: Layer inactive, inside of the alias disable box: free"});
  }
  // Views that are not small ignore the boxes.
  Texts messages;
  EXPECT_TRUE(Prepare("en", ZoomView(1.5, 0, 100), &messages).active);
  EXPECT_TRUE(Prepare("dis", ZoomView(1.5, 0, 5), &messages).active);
}

TEST_F(LayerPrepareTest, ViewBoxOfAnOrthographicView) {
  test::MapView view;
  view.projection = kOrthographicProjection;
  view.center_lat = 0;
  view.center_lon = 179;
  view.h_extent = 1000000;  // metres: about 9 degrees across
  view.v_extent = 1000000;
  view.width = view.height = 100;
  std::unique_ptr<MapRequest> map = test::MakeMap(files_.dataset(), view);
  ASSERT_TRUE(map->geometry.apply_alias_boxes);
  const ViewBox box = ComputeViewBox(map->geometry);
  EXPECT_NEAR(box.min_lon, 179 - 4.5, 0.2);
  EXPECT_NEAR(box.max_lon, 179 + 4.5, 0.2);  // continuous across the date line
  EXPECT_NEAR(box.min_lat, -4.5, 0.2);
  EXPECT_TRUE(ViewFallsInBox(box, Box{-180, -170, -1, 1}));
  EXPECT_FALSE(ViewFallsInBox(box, Box{-170, -160, -1, 1}));

  view.center_lat = 88;  // the pole is in view: every longitude
  map = test::MakeMap(files_.dataset(), view);
  const ViewBox polar = ComputeViewBox(map->geometry);
  EXPECT_EQ(polar.max_lat, 90.0);
  EXPECT_EQ(polar.max_lon - polar.min_lon, 360.0);
}

TEST_F(LayerPrepareTest, RelativeZoomScale) {
  Layer& layer = files_.layer("v");
  layer.record.min_lon = -18;
  layer.record.max_lon = 18;
  layer.record.min_lat = 0;
  layer.record.max_lat = 9;
  EXPECT_EQ(LayerZoomScale(layer), 1.0);  // absolute zoom
  layer.record.relative_zoom = 1;
  EXPECT_EQ(LayerZoomScale(layer), 20.0);  // max(360 / 36, 180 / 9)
  Texts messages;
  // MinZoom 2 now means zoom 40, MaxZoom 8 zoom 160.
  EXPECT_FALSE(Prepare("v", ZoomView(30), &messages).active);
  EXPECT_TRUE(Prepare("v", ZoomView(50), &messages).active);
  layer.record.max_lon = layer.record.min_lon;  // no extent: absolute again
  EXPECT_EQ(LayerZoomScale(layer), 1.0);
}

}  // namespace
}  // namespace vmp
