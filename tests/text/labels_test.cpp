// Text drawing inside its anchor box, label formats, and label layout.
#include <gtest/gtest.h>

#include <ft2build.h>
#include FT_FREETYPE_H

#include "map_server/rendering/draw_surface.h"
#include "map_server/text/label_format.h"
#include "map_server/text/label_layout.h"
#include "map_server/text/label_selection.h"
#include "map_server/text/text_decode.h"
#include "map_server/text/text_painter.h"
#include "map_server/vector/attribute_map.h"
#include "rendering/render_test_util.h"
#include "support/message_capture.h"

namespace vmp {
namespace {

class TextFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(FT_Init_FreeType(&library_), 0);
    dataset_ = CreateDataset("DefaultDataset", "");
  }
  void TearDown() override {
    engine_.Clear();
    FT_Done_FreeType(library_);
  }
  const LoadedFont* Font(const char* name) { return engine_.ResolveFont(*dataset_, std::string(name), library_); }

  FT_Library library_ = nullptr;
  TextEngine engine_;
  std::unique_ptr<Dataset> dataset_;
};

// Every pixel a label changes lies in the box its anchor places, on the
// anchor's side of the anchor point, for both font kinds and box styles.
TEST_F(TextFixture, LabelPixelsLieInsideTheAnchoredBox) {
  const MapGeometry g = test::PixelGrid(260, 200);
  const int32_t anchors[] = {kAnchorHLeft | kAnchorVTop, kAnchorHCenter | kAnchorVCenter,
                             kAnchorHRight | kAnchorVBottom, kAnchorHLeft | kAnchorVBottom};
  const double angles[] = {0.0, 35.0};
  for (const char* font_name : {"roman", "sans"}) {
    for (const int32_t anchor : anchors) {
      for (const double angle : angles) {
        SCOPED_TRACE(std::string(font_name) + " anchor " + std::to_string(anchor) + " angle " + std::to_string(angle));
        MapImage image;
        ASSERT_TRUE(AllocateMapImage(g, image));
        DrawSurface surface(&image, g);
        TextStyle style;
        style.anchor = anchor;
        style.font_scale = 1.5;
        style.colour = {255, 255, 0, 1.0, kTransOpaque};
        style.outline_colour = {0, 0, 0, 1.0, kTransOpaque};
        style.box_edge_colour = {255, 0, 0, 1.0, kTransOpaque};
        style.label_style = kLabelOutline | kLabelBgEdge;
        style.box_margin = 2;
        style.stroke_width = 2;
        TextPainter painter;
        TextBlock block;
        std::u32string text;
        DecodeText("Wgj 42\nline two", TextEncoding::kUtf8, text);
        ASSERT_TRUE(painter.Layout(*Font(font_name), text, style, nullptr, block));
        const TextPlacement p = PlaceText(block, 130, 100, FlatFrame(angle), anchor);
        painter.Draw(surface, block, p, style, nullptr);

        const PixelRect bounds = p.Bounds();
        // The anchor point is the named corner or middle of the box, and the
        // box edge runs round it untouched by the text or its outline.
        if (angle == 0.0) {
          for (int64_t x = bounds.min_x; x <= bounds.max_x; ++x) {
            ASSERT_EQ(test::At(image, x, bounds.min_y), test::kRed);
            ASSERT_EQ(test::At(image, x, bounds.max_y), test::kRed);
          }
          for (int64_t y = bounds.min_y; y <= bounds.max_y; ++y) {
            ASSERT_EQ(test::At(image, bounds.min_x, y), test::kRed);
            ASSERT_EQ(test::At(image, bounds.max_x, y), test::kRed);
          }
          if (HorizontalAnchor(anchor) == kAnchorHLeft) {
            EXPECT_EQ(bounds.min_x, 130);
          }
          if (HorizontalAnchor(anchor) == kAnchorHRight) {
            EXPECT_EQ(bounds.max_x, 129);
          }
          if (VerticalAnchor(anchor) == kAnchorVTop) {
            EXPECT_EQ(bounds.min_y, 100);
          }
          if (VerticalAnchor(anchor) == kAnchorVBottom) {
            EXPECT_EQ(bounds.max_y, 99);
          }
        }
        int changed = 0, text_pixels = 0;
        for (int64_t y = 0; y < image.height(); ++y) {
          for (int64_t x = 0; x < image.width(); ++x) {
            if (test::At(image, x, y) == test::kBack) continue;
            ++changed;
            const test::Rgb3 px = test::At(image, x, y);
            text_pixels += px[0] > 150 && px[1] > 150 && px[2] < 100;  // mostly label colour
            // The centre lies inside the (possibly turned) box.
            const PixelVertex (&c)[4] = p.corners;
            const double cx = x + 0.5, cy = y + 0.5;
            for (int e = 0; e < 4; ++e) {
              const PixelVertex& a = c[e];
              const PixelVertex& b = c[(e + 1) % 4];
              ASSERT_GE((b.x - a.x) * (cy - a.y) - (b.y - a.y) * (cx - a.x), -1e-9) << x << "," << y;
            }
          }
        }
        EXPECT_GT(text_pixels, 150);
        EXPECT_GT(changed, text_pixels);  // outline and edge drawn too
      }
    }
  }
}

TEST(LabelFormat, ExpandsStringAndNumberAttributes) {
  MarkerFeature f;
  f.AddAttribute(1, TypedValue::String("Lyon"));
  f.AddAttribute(2, TypedValue::Double(513275.0));
  f.AddAttribute(3, TypedValue::Double(-0.25));
  f.AddAttribute(4, TypedValue::Geo(4.835, 45.76, 0));
  const std::string label = "L";
  const struct {
    const char* format;
    const char* expected;
  } cases[] = {
      {"{1}", "Lyon"},
      {"{1} ({2})", "Lyon (513275)"},
      {"{3} / {3:.1f} / {3:+08.3f}", "-0.25 / -0.2 / -000.250"},
      {"{2:d} {2:.2e} {2:g}", "513275 5.13e+05 513275"},
      {"{4:.1f}", "4.8 45.8"},
      {"[{9}]{{x}} {label}}", "[]{x} L}"},
  };
  std::string out;
  for (const auto& c : cases) {
    std::optional<LabelFormat> format = LabelFormat::Compile(c.format);
    ASSERT_TRUE(format) << c.format;
    format->Expand(f, &label, out);
    EXPECT_EQ(out, c.expected) << c.format;
  }
  for (const char* bad : {"{1", "{}", "{name}", "{1:,d}", "{1:.f}", "{1:123f}", "{1:s}"}) {
    test::MessageCapture capture;
    EXPECT_FALSE(LabelFormat::Compile(bad)) << bad;
    EXPECT_TRUE(capture.Contains("Invalid label format")) << bad;
  }
}

// Markers whose labels overlap in a LAYER layout: the label of higher
// priority (lower number, from an attribute map) stays even when it comes
// second; a label elsewhere is kept; the kept labels are selectable.
TEST_F(TextFixture, LayerLayoutKeepsTheHigherPriorityOfOverlappingLabels) {
  const MapGeometry g = test::RectGeometry(0.0, 10.0, 20.0, 201, 201);
  MapImage image;
  ASSERT_TRUE(AllocateMapImage(g, image));
  DrawSurface surface(&image, g);

  Layer layer("places");
  layer.record.layer_type = kLayerVector;
  DrawingAttributes& d = layer.record.drawing;
  d.layout_type = kLayoutLayer;
  d.text_type = kTextFlat;
  d.label_format = "{1}";
  d.label_selection_mode = kSelectLabelsYes;
  ASSERT_TRUE(AddCustomAttribute(layer.record.attributes, {100, "prio", "VMP_D"}, layer.name));
  AttributeMapFields map{"prio", "LabelPriority@2", "prio.thr", "ABS",
                         {{TypedValue::Double(0), TypedValue::Double(5)},
                          {TypedValue::Double(10), TypedValue::Double(1)}}};
  ASSERT_TRUE(AddAttributeMap(layer.record.attributes, map, false, layer.name));

  VectorData data;
  auto add = [&](const char* name, double importance, double lon, double lat) {
    auto m = std::make_unique<MarkerFeature>();
    m->AddAttribute(1, TypedValue::String(name));
    m->AddAttribute(2, TypedValue::Double(importance));
    m->x = lon;
    m->y = lat;
    data.AddFeature(std::move(m));
  };
  add("Minor", 0, 2.0, 8.0);   // priority 5, first
  add("Major", 20, 2.2, 8.1);  // priority 1, overlaps Minor
  add("Far", 0, 6.0, 3.0);     // priority 5, alone

  LabelCollector labels(engine_, library_, surface, *dataset_);
  ASSERT_TRUE(labels.BeginLayer(layer, true));
  for (size_t i = 0; i < data.features.size(); ++i) {
    const MarkerFeature& m = *data.features[i]->AsMarker();
    const PixelPoint p = LatLonToPixel(g, m.y, m.x);
    labels.AddMarker(data, i, m, p.x, p.y);
  }
  EXPECT_TRUE(labels.placed().empty());  // LAYER labels wait for the layer's end
  labels.EndLayer();
  labels.Finish();

  ASSERT_EQ(labels.placed().size(), 2u);
  EXPECT_EQ(labels.placed()[0].text, "Major");
  EXPECT_EQ(labels.placed()[0].priority, 1);
  EXPECT_EQ(labels.placed()[1].text, "Far");

  // Selection: the search box over Major's label finds it (not under NONE).
  const PlacedLabel& major = labels.placed()[0];
  const PixelRect on{major.bounds.min_x + 2, major.bounds.min_x + 4, major.bounds.min_y + 2, major.bounds.min_y + 4};
  const auto hits = SelectLabels(labels.placed(), on, kSelectLabelsYes);
  ASSERT_EQ(hits.size(), 1u);
  EXPECT_EQ(hits[0]->owner.feature, 1u);
  EXPECT_TRUE(SelectLabels(labels.placed(), on, kSelectLabelsNone).empty());
  EXPECT_EQ(EffectiveLabelSelectionMode(kSelectLabelsYes, kSelectLabelsInTile), kSelectLabelsInTile);
  EXPECT_EQ(EffectiveLabelSelectionMode(kSelectLabelsUnset, kSelectLabelsUnset), kSelectLabelsNone);
}

}  // namespace
}  // namespace vmp
