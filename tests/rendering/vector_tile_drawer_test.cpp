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

// A closed rectangular ring (first point repeated), optionally named by
// attribute 0.
std::unique_ptr<Feature> Rect(double min_lon, double min_lat, double max_lon, double max_lat,
                              int8_t flag = 0, const char* name = nullptr) {
  auto p = std::make_unique<PolygonFeature>();
  p->points = {{min_lon, min_lat}, {max_lon, min_lat}, {max_lon, max_lat}, {min_lon, max_lat}, {min_lon, min_lat}};
  p->ComputeBounds();
  p->flag = flag;
  if (name) p->AddAttribute(0, TypedValue::String(name));
  return p;
}

// A ring following a lat/lon rectangle's edges in steps of `step` degrees.
std::unique_ptr<Feature> DenseRect(double min_lon, double min_lat, double max_lon, double max_lat,
                                   double step, int8_t flag = 0) {
  auto p = std::make_unique<PolygonFeature>();
  auto walk = [&](double lon0, double lat0, double lon1, double lat1) {
    const int n = static_cast<int>(std::ceil(std::max(std::fabs(lon1 - lon0), std::fabs(lat1 - lat0)) / step));
    for (int i = 0; i < n; ++i) p->points.push_back({lon0 + (lon1 - lon0) * i / n, lat0 + (lat1 - lat0) * i / n});
  };
  walk(min_lon, min_lat, max_lon, min_lat);
  walk(max_lon, min_lat, max_lon, max_lat);
  walk(max_lon, max_lat, min_lon, max_lat);
  walk(min_lon, max_lat, min_lon, min_lat);
  p->points.push_back(p->points.front());
  p->ComputeBounds();
  p->flag = flag;
  return p;
}

std::unique_ptr<Feature> Marker(double lon, double lat) {
  auto m = std::make_unique<MarkerFeature>();
  m->x = lon;
  m->y = lat;
  return m;
}

// A feature of a kind the drawer does not know.
class OtherFeature : public Feature {
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
  for (int64_t i = 0; i < image.width() * image.height(); ++i) {
    const uint8_t* p = image.pixels() + i * 3;
    if (p[0] == c.red && p[1] == c.green && p[2] == c.blue) ++n;
  }
  return n;
}

bool IsColour(const MapImage& image, int64_t x, int64_t y, const PixelColour& c) {
  const uint8_t* p = test::Pixel(image, x, y);
  return p[0] == c.red && p[1] == c.green && p[2] == c.blue;
}

// 21 x 11 pixels, pixel (x, y) at lon x - 10, lat 5 - y.
MapGeometry SmallWorld() { return test::RectGeometry(-10, 5, 1, 21, 11); }

VectorData GroupedTile() {
  VectorData data;
  data.AddFeature(Rect(-8, -3, -2, 3, 1));     // 0: outer ring of a group
  data.AddFeature(Rect(-6, -1, -4, 1, 0));     // 1: its hole
  data.AddFeature(Rect(2, -2, 6, 2));          // 2: a polygon of its own
  data.AddFeature(Marker(0, 0));               // 3
  data.AddFeature(Rect(50, 0, 60, 2));         // 4: outside the view
  data.AddFeature(Rect(0.1, 4, 0.15, 4.05));   // 5: smaller than MinPixelSize
  data.features.push_back(std::make_unique<OtherFeature>());
  return data;
}

TEST(VectorTileDrawerTest, GroupsClipsAndCulls) {
  MapGeometry g = SmallWorld();
  Layer layer = FillLayer();
  VectorData data = GroupedTile();
  test::MessageCapture capture;
  Drawn d = Draw(g, layer, data);
  EXPECT_TRUE(d.ok);
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: Only support POLYGONs and MARKERs for now"});
  EXPECT_EQ(d.stats.polygons, 2);
  EXPECT_EQ(d.stats.rings, 3);
  EXPECT_EQ(d.stats.points, 15);
  EXPECT_EQ(d.stats.clipped, 1);
  EXPECT_EQ(d.stats.culled_small, 1);
  EXPECT_EQ(d.stats.markers, 1);
  // Outer ring: columns 2..8, rows 2..7 less the hole's column 5 on rows
  // 4 and 5; the other polygon columns 12..16, rows 3..6.
  EXPECT_EQ(CountColour(d.image, kFill), 42u - 2u + 20u);
  EXPECT_TRUE(test::IsBackground(d.image, 5, 4));
  EXPECT_TRUE(IsColour(d.image, 4, 4, kFill));
  EXPECT_TRUE(IsColour(d.image, 14, 4, kFill));
  EXPECT_EQ(CountColour(d.image, kMarker), 9u);
  EXPECT_TRUE(IsColour(d.image, 10, 5, kMarker));
  EXPECT_TRUE(test::IsBackground(d.image, 10, 1));  // the culled polygon's place

  // Without view testing and culling the two are drawn (and counted).
  layer.record.clip = 0;
  layer.record.drawing.min_pixel_size = 0;
  capture.Clear();
  d = Draw(g, layer, data);
  EXPECT_EQ(d.stats.polygons, 4);
  EXPECT_EQ(d.stats.clipped, 0);
  EXPECT_EQ(d.stats.culled_small, 0);
  // Edges only: the ring edges, no fill (one edge pixel of the hole ring).
  layer = FillLayer(1);
  d = Draw(g, layer, data);
  EXPECT_EQ(CountColour(d.image, kFill), 0u);
  EXPECT_TRUE(IsColour(d.image, 5, 4, kEdge));
  EXPECT_TRUE(test::IsBackground(d.image, 3, 4));
}

TEST(VectorTileDrawerTest, LayerConditionsThenOverrideLists) {
  MapGeometry g = SmallWorld();
  Layer layer = FillLayer();
  ASSERT_TRUE(ParseAttrCondition("@0==keep*", layer.record.conditions));
  AttrConditionList include, exclude;
  ASSERT_TRUE(ParseAttrCondition("@0!=keep_not", include));
  ASSERT_TRUE(ParseAttrCondition("@0==keep_x", exclude));
  VectorData data;
  data.AddFeature(Rect(-9, 0, -8, 1, 0, "keep_a"));    // drawn
  data.AddFeature(Rect(-6, 0, -5, 1, 0, "drop"));      // layer condition fails
  data.AddFeature(Rect(-3, 0, -2, 1, 0, "keep_not"));  // include fails
  data.AddFeature(Rect(0, 0, 1, 1, 0, "keep_x"));      // excluded
  struct Case {
    OverrideConditions over;
    std::vector<int64_t> drawn_columns;
  } cases[] = {
      {{}, {1, 7, 10}},
      {{&include, nullptr}, {1, 10}},
      {{&include, &exclude}, {1}},
  };
  for (const Case& c : cases) {
    Drawn d = Draw(g, layer, data, c.over);
    EXPECT_EQ(d.stats.polygons, static_cast<int64_t>(c.drawn_columns.size()));
    for (int64_t x : c.drawn_columns) EXPECT_TRUE(IsColour(d.image, x, 4, kFill)) << x;
    EXPECT_TRUE(test::IsBackground(d.image, 4, 4));
  }
}

TEST(VectorTileDrawerTest, LocationQueryHitsWithoutDrawing) {
  VectorData data = GroupedTile();
  data.features.pop_back();
  struct Case {
    int64_t fill_type;
    int64_t x, y;
    std::vector<size_t> hits;
  } cases[] = {
      {2, 3, 4, {0}},    // inside the outer ring
      {2, 5, 4, {}},     // in the hole
      {1, 5, 4, {0}},    // on the hole's edge of an edge layer
      {2, 10, 5, {3}},   // the marker
      {2, 10, 10, {}},   // nothing there
      {2, 14, 3, {2}},
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
    EXPECT_EQ(CountColour(image, kFill) + CountColour(image, kMarker), 0u);
    EXPECT_EQ(stats.polygons + stats.markers + stats.clipped + stats.culled_small, 0);
  }
}

TEST(VectorTileDrawerTest, FeaturesAcrossTheAntimeridian) {
  // The view shows longitudes 170..190: data at -178..-174 appears at 182..186.
  MapGeometry g = test::RectGeometry(170, 5, 1, 21, 11);
  Layer layer = FillLayer();
  VectorData data;
  data.AddFeature(Rect(-178, -1, -174, 1));
  data.AddFeature(Rect(176, -2, 180, -1, 1));  // a group split at 180
  data.AddFeature(Rect(-180, -2, -177, -1, 0));
  data.AddFeature(Marker(-171, 3));
  Drawn d = Draw(g, layer, data);
  EXPECT_EQ(d.stats.clipped, 0);
  EXPECT_TRUE(IsColour(d.image, 14, 5, kFill));
  for (int64_t x = 6; x <= 13; ++x) EXPECT_TRUE(IsColour(d.image, x, 6, kFill)) << x;
  EXPECT_TRUE(IsColour(d.image, 19, 2, kMarker));
}

TEST(VectorTileDrawerTest, UnknownTransparencyKindSkipsTheLayer) {
  MapGeometry g = SmallWorld();
  Layer layer = FillLayer();
  layer.record.trans_type = 6;
  VectorData data = GroupedTile();
  data.features.pop_back();
  test::MessageCapture capture;
  Drawn d = Draw(g, layer, data);
  EXPECT_FALSE(d.ok);
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: Cannot render layer transparency type: 6"});
  EXPECT_EQ(CountColour(d.image, kFill), 0u);
}

// Checks every pixel of a globe image against `inside` (lat, lon) away from
// the edges of the filled area (`margin` degrees) and of the globe.
void CheckGlobe(const MapGeometry& g, const MapImage& image,
                const std::function<int(double lat, double lon)>& expect) {
  int checked = 0;
  for (int64_t y = 0; y < image.height(); ++y) {
    for (int64_t x = 0; x < image.width(); ++x) {
      const LatLonPoint p = test::PixelLatLon(g, x, y);
      const double X = (x - g.center_x) * g.inv_scale_x, Y = (g.center_y - y) * g.inv_scale_y;
      if (!p.ok) {
        // Span ends are rounded, so the outline's pixels may be drawn up to
        // half a pixel beyond it; nothing farther out.
        if (X * X + Y * Y > 1.05) {
          EXPECT_TRUE(test::IsBackground(image, x, y)) << "off the globe " << x << "," << y;
        }
        continue;
      }
      if (X * X + Y * Y > 0.94) continue;  // next to the outline
      const int e = expect(p.lat, p.lon);
      if (e < 0) continue;
      ++checked;
      EXPECT_EQ(IsColour(image, x, y, kFill), e == 1) << x << "," << y << " lat " << p.lat << " lon " << p.lon;
    }
  }
  EXPECT_GT(checked, 1000);
}

TEST(VectorTileDrawerTest, GlobeRingsAreClippedToTheVisibleSide) {
  Layer layer = FillLayer();
  {
    // A band of latitudes around most of the globe; seen from lon 0 its ends
    // (lon +-170) are on the far side.
    MapGeometry g = test::GlobeGeometry(0, 0, 101);
    VectorData data;
    data.AddFeature(DenseRect(-170, -30, 170, 30, 5));
    Drawn d = Draw(g, layer, data);
    CheckGlobe(g, d.image, [](double lat, double) { return std::fabs(lat) < 28 ? 1 : std::fabs(lat) > 32 ? 0 : -1; });
  }
  {
    // The whole world with a hole on the far side fills the disc; seen from
    // the hole's side, the hole stays open.
    VectorData data;
    data.AddFeature(DenseRect(-180, -90, 180, 90, 10, 1));
    data.AddFeature(DenseRect(150, -10, 170, 10, 2, 0));
    MapGeometry away = test::GlobeGeometry(0, 0, 101);
    Drawn d = Draw(away, layer, data);
    CheckGlobe(away, d.image, [](double, double) { return 1; });
    MapGeometry facing = test::GlobeGeometry(10, 160, 101);
    d = Draw(facing, layer, data);
    CheckGlobe(facing, d.image, [](double lat, double lon) {
      const bool in = std::fabs(lat) < 8 && lon > 152 && lon < 168;
      const bool out = std::fabs(lat) > 12 || lon < 148 || lon > 172;
      return in ? 0 : out ? 1 : -1;
    });
  }
  {
    // A polar cap stored as a lat/lon rectangle reaching the pole.
    MapGeometry g = test::GlobeGeometry(-90, 0, 101);
    VectorData data;
    data.AddFeature(DenseRect(-180, -90, 180, -70, 5));
    Drawn d = Draw(g, layer, data);
    CheckGlobe(g, d.image, [](double lat, double) { return lat < -72 ? 1 : lat > -68 ? 0 : -1; });
  }
}

TEST(VectorTileDrawerTest, StatsAreReportedAtVerbosityFive) {
  VectorDrawStats stats;
  stats.polygons = 2;
  stats.markers = 1;
  test::MessageCapture capture;
  kav::Messages().verbosity = 4;
  ReportVectorStats(stats);
  EXPECT_TRUE(capture.messages().empty());
  kav::Messages().verbosity = 5;
  ReportVectorStats(stats);
  EXPECT_EQ(capture.Texts(),
            (std::vector<std::string>{"Info: Num polygons: 2", "Info: Num points: 0", "Info: Num rings: 0",
                                      "Info: Culled small polygons: 0", "Info: Clipped polygons: 0",
                                      "Info: Num markers: 1"}));
}

}  // namespace
}  // namespace vmp
