#include "map_server/rendering/vector_tile_drawer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

const PixelColour kFill{255, 255, 255, 1.0, kTransOpaque};
const PixelColour kMarker{0, 0, 255, 1.0, kTransOpaque};
const PixelColour kEdge{255, 0, 0, 1.0, kTransOpaque};

// A closed ring along a lat/lon rectangle (points every `step` degrees),
// optionally named by attribute 0.
std::unique_ptr<Feature> Rect(double min_lon, double min_lat, double max_lon, double max_lat,
                              int8_t flag = 0, const char* name = nullptr, double step = 1000) {
  auto p = std::make_unique<PolygonFeature>();
  const double corners[5][2] = {{min_lon, min_lat}, {max_lon, min_lat}, {max_lon, max_lat}, {min_lon, max_lat}, {min_lon, min_lat}};
  for (int side = 0; side < 4; ++side) {
    const double* a = corners[side];
    const double* b = corners[side + 1];
    const int n = static_cast<int>(std::ceil(std::max(std::fabs(b[0] - a[0]), std::fabs(b[1] - a[1])) / step));
    for (int i = 0; i < n; ++i) p->points.push_back({a[0] + (b[0] - a[0]) * i / n, a[1] + (b[1] - a[1]) * i / n});
  }
  p->points.push_back(p->points.front());
  p->ComputeBounds();
  p->flag = flag;
  if (name) p->AddAttribute(0, TypedValue::String(name));
  return p;
}

std::unique_ptr<Feature> Marker(double lon, double lat) {
  auto m = std::make_unique<MarkerFeature>();
  m->x = lon;
  m->y = lat;
  return m;
}

class OtherFeature : public Feature {  // a kind the drawer does not know
 public:
  OtherFeature() : Feature(static_cast<FeatureKind>(2)) {}
  std::unique_ptr<Feature> Clone() const override { return std::make_unique<OtherFeature>(); }
};

Layer FillLayer(int64_t fill_type = 2) {
  Layer layer("areas");
  layer.record.layer_type = kLayerVector;
  layer.record.drawing.fill_type = fill_type;
  layer.record.drawing.fill_color = {255, 255, 255};
  layer.record.drawing.edge_color = {255, 0, 0};
  layer.record.drawing.marker_fill_color = {0, 0, 255};
  layer.record.drawing.marker_size = 3;
  layer.record.drawing.marker_type = kMarkerBoxFill;
  return layer;
}

struct Drawn {
  MapImage image;
  VectorDrawStats stats;
  bool ok = false;
};

Drawn Draw(const MapGeometry& g, Layer& layer, const VectorData& data, OverrideConditions over = {}) {
  Drawn d;
  test::FillImage(g, d.image);
  DrawSurface surface(&d.image, g);
  VectorScratch scratch;
  d.ok = DrawVectorTile(surface, scratch, layer, data, over, d.stats);
  return d;
}

size_t CountColour(const MapImage& image, const PixelColour& c) {
  size_t n = 0;
  for (int64_t y = 0; y < image.height(); ++y)
    for (int64_t x = 0; x < image.width(); ++x) n += test::IsColour(image, x, y, c);
  return n;
}

// 21 x 11 pixels; pixel (x, y) at lon x - 10, lat 5 - y.
MapGeometry SmallWorld() { return test::RectGeometry(-10, 5, 1, 21, 11); }

VectorData GroupedTile() {
  VectorData data;
  data.AddFeature(Rect(-8, -3, -2, 3, 1));    // 0: outer ring of a group
  data.AddFeature(Rect(-6, -1, -4, 1, 0));    // 1: its hole
  data.AddFeature(Rect(2, -2, 6, 2));         // 2: a polygon of its own
  data.AddFeature(Marker(0, 0));              // 3
  data.AddFeature(Rect(50, 0, 60, 2));        // 4: outside the view
  data.AddFeature(Rect(0.1, 4, 0.15, 4.05));  // 5: smaller than MinPixelSize
  return data;
}

TEST(VectorTileDrawerTest, GroupsClipsAndCulls) {
  MapGeometry g = SmallWorld();
  Layer layer = FillLayer();
  VectorData data = GroupedTile();
  data.features.push_back(std::make_unique<OtherFeature>());
  test::MessageCapture capture;
  Drawn d = Draw(g, layer, data);
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: Only support POLYGONs and MARKERs for now"});
  EXPECT_EQ(d.stats, (VectorDrawStats{.polygons = 2, .points = 15, .rings = 3, .culled_small = 1,
                                       .clipped = 1, .markers = 1}));
  // The group: columns 2..8, rows 2..7 less the hole's column 5 on rows 4
  // and 5; the other polygon: columns 12..16, rows 3..6; a 3 x 3 marker.
  EXPECT_EQ(CountColour(d.image, kFill), 42u - 2u + 20u);
  EXPECT_TRUE(test::IsBackground(d.image, 5, 4));
  EXPECT_EQ(CountColour(d.image, kMarker), 9u);
  EXPECT_TRUE(test::IsColour(d.image, 10, 5, kMarker));
  kav::Messages().verbosity = 5;
  ReportVectorStats(d.stats);
  EXPECT_TRUE(capture.Contains("Info: Culled small polygons: 1"));

  // Without view testing and culling both are drawn and counted.
  layer.record.clip = 0;
  layer.record.drawing.min_pixel_size = 0;
  d = Draw(g, layer, data);
  EXPECT_EQ(d.stats.polygons, 4);
  EXPECT_EQ(d.stats.clipped + d.stats.culled_small, 0);
  // An edge layer draws the rings' edges, no fill.
  layer = FillLayer(1);
  d = Draw(g, layer, data);
  EXPECT_EQ(CountColour(d.image, kFill), 0u);
  EXPECT_TRUE(test::IsColour(d.image, 5, 4, kEdge));
  EXPECT_TRUE(test::IsBackground(d.image, 3, 4));
  // An unknown transparency kind stops the layer with one message.
  layer.record.trans_type = 6;
  capture.Clear();
  d = Draw(g, layer, data);
  EXPECT_FALSE(d.ok);
  EXPECT_EQ(capture.Count("Cannot render layer transparency type: 6"), 1u);
  EXPECT_EQ(CountColour(d.image, kEdge), 0u);
}

TEST(VectorTileDrawerTest, LayerConditionsThenOverrideLists) {
  Layer layer = FillLayer();
  ASSERT_TRUE(ParseAttrCondition("@0==keep*", layer.record.conditions));
  AttrConditionList include, exclude;
  ASSERT_TRUE(ParseAttrCondition("@0!=keep_not", include));
  ASSERT_TRUE(ParseAttrCondition("@0==keep_x", exclude));
  VectorData data;
  data.AddFeature(Rect(-9, 0, -8, 1, 0, "keep_a"));    // column 1
  data.AddFeature(Rect(-6, 0, -5, 1, 0, "drop"));      // column 4: the layer's condition fails
  data.AddFeature(Rect(-3, 0, -2, 1, 0, "keep_not"));  // column 7: include fails
  data.AddFeature(Rect(0, 0, 1, 1, 0, "keep_x"));      // column 10: excluded
  struct Case {
    OverrideConditions over;
    std::vector<int64_t> drawn;
  } cases[] = {{{}, {1, 7, 10}}, {{&include, nullptr}, {1, 10}}, {{&include, &exclude}, {1}}};
  for (const Case& c : cases) {
    Drawn d = Draw(SmallWorld(), layer, data, c.over);
    EXPECT_EQ(d.stats.polygons, static_cast<int64_t>(c.drawn.size()));
    for (int64_t x : c.drawn) EXPECT_TRUE(test::IsColour(d.image, x, 4, kFill)) << x;
  }
}

TEST(VectorTileDrawerTest, LocationQueryHitsWithoutDrawing) {
  const VectorData data = GroupedTile();
  struct Case {
    int64_t fill_type, x, y;
    std::vector<size_t> hits;
  } cases[] = {
      {2, 3, 4, {0}},   // inside the outer ring
      {2, 5, 4, {}},    // in the hole
      {1, 5, 4, {0}},   // on the hole's edge, for an edge layer
      {2, 10, 5, {3}},  // the marker
      {2, 14, 3, {2}},  {2, 10, 10, {}},
  };
  for (const Case& c : cases) {
    MapGeometry g = SmallWorld();
    g.location_query = true;
    g.search_x_from = g.search_x_to = c.x;
    g.search_y_from = g.search_y_to = c.y;
    Layer layer = FillLayer(c.fill_type);
    MapImage image;
    test::FillImage(g, image);
    DrawSurface surface(&image, g);
    VectorScratch scratch;
    VectorDrawStats stats;
    std::vector<size_t> hits;
    DrawVectorTile(surface, scratch, layer, data, {}, stats, &hits);
    EXPECT_EQ(hits, c.hits) << c.x << "," << c.y;
    EXPECT_EQ(surface.hit(), !c.hits.empty());
    EXPECT_EQ(CountColour(image, kFill) + CountColour(image, kMarker) + CountColour(image, kEdge), 0u);
    EXPECT_EQ(stats, VectorDrawStats{});
  }
}

TEST(VectorTileDrawerTest, FeaturesAcrossTheAntimeridian) {
  // The view shows lon 170..190: data at -178..-174 appears at 182..186.
  MapGeometry g = test::RectGeometry(170, 5, 1, 21, 11);
  Layer layer = FillLayer();
  VectorData data;
  data.AddFeature(Rect(-178, -1, -174, 1));
  data.AddFeature(Rect(176, -2, 180, -1, 1));  // a group split at 180
  data.AddFeature(Rect(-180, -2, -177, -1, 0));
  data.AddFeature(Marker(-171, 3));
  Drawn d = Draw(g, layer, data);
  EXPECT_TRUE(test::IsColour(d.image, 14, 5, kFill));
  for (int64_t x = 6; x <= 13; ++x) EXPECT_TRUE(test::IsColour(d.image, x, 6, kFill)) << x;
  EXPECT_TRUE(test::IsColour(d.image, 19, 2, kMarker));
}

// Checks the pixels of a globe image: `expect` gives 1 (filled), 0 (not) or
// -1 (too near an edge to tell) for a lat/lon. Pixels off the globe by more
// than the half pixel that span rounding allows must stay background.
void CheckGlobe(const MapGeometry& g, const MapImage& image, const std::function<int(double, double)>& expect) {
  int checked = 0;
  for (int64_t y = 0; y < image.height(); ++y) {
    for (int64_t x = 0; x < image.width(); ++x) {
      const LatLonPoint p = test::PixelLatLon(g, x, y);
      const double X = (x - g.center_x) * g.inv_scale_x, Y = (g.center_y - y) * g.inv_scale_y;
      const int e = !p.ok ? (X * X + Y * Y > 1.05 ? 0 : -1) : X * X + Y * Y > 0.94 ? -1 : expect(p.lat, p.lon);
      if (e < 0) continue;
      ++checked;
      EXPECT_EQ(test::IsColour(image, x, y, kFill), e == 1) << x << "," << y << ": " << p.lat << " " << p.lon;
    }
  }
  EXPECT_GT(checked, 1000);
}

TEST(VectorTileDrawerTest, GlobeRingsAreClippedToTheVisibleSide) {
  Layer layer = FillLayer();
  // A band of latitudes whose ends (lon +-170) lie on the far side.
  MapGeometry g = test::GlobeGeometry(0, 0, 101);
  VectorData band;
  band.AddFeature(Rect(-170, -30, 170, 30, 0, nullptr, 5));
  CheckGlobe(g, Draw(g, layer, band).image,
             [](double lat, double) { return std::fabs(lat) < 28 ? 1 : std::fabs(lat) > 32 ? 0 : -1; });
  // The whole world with a hole: seen from the far side the disc is full;
  // seen from the hole's side the hole stays open.
  VectorData world;
  world.AddFeature(Rect(-180, -90, 180, 90, 1, nullptr, 10));
  world.AddFeature(Rect(150, -10, 170, 10, 0, nullptr, 2));
  CheckGlobe(g, Draw(g, layer, world).image, [](double, double) { return 1; });
  MapGeometry facing = test::GlobeGeometry(10, 160, 101);
  CheckGlobe(facing, Draw(facing, layer, world).image, [](double lat, double lon) {
    if (std::fabs(lat) < 8 && lon > 152 && lon < 168) return 0;
    return std::fabs(lat) > 12 || lon < 148 || lon > 172 ? 1 : -1;
  });
  // A polar cap stored as a lat/lon rectangle reaching the pole.
  MapGeometry south = test::GlobeGeometry(-90, 0, 101);
  VectorData cap;
  cap.AddFeature(Rect(-180, -90, 180, -70, 0, nullptr, 5));
  CheckGlobe(south, Draw(south, layer, cap).image, [](double lat, double) { return lat < -72 ? 1 : lat > -68 ? 0 : -1; });
}

}  // namespace
}  // namespace vmp
