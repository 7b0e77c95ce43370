// Vector tiles drawn on small maps: polygon groups and holes, culling,
// conditions, location queries, the antimeridian and the globe's far side,
// thick lines, marker symbols and icons, and attribute-map styles.
#include "map_server/rendering/vector_tile_drawer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "map_server/image/tiff_writer.h"
#include "map_server/rendering/markers.h"
#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using namespace vmp::test;  // colours, Canvas, geometries

// A line through lon/lat points (closed when the last repeats the first).
std::unique_ptr<Feature> Line(std::vector<PolygonPoint> points, int8_t flag = 0, const char* name = nullptr) {
  auto p = std::make_unique<PolygonFeature>();
  p->points = std::move(points);
  p->ComputeBounds();
  p->flag = flag;
  if (name) p->AddAttribute(0, TypedValue::String(name));
  return p;
}

// A closed ring along a lat/lon rectangle, points every `step` degrees.
std::unique_ptr<Feature> Rect(double min_lon, double min_lat, double max_lon, double max_lat, int8_t flag = 0,
                              const char* name = nullptr, double step = 1000) {
  const double corners[5][2] = {
      {min_lon, min_lat}, {max_lon, min_lat}, {max_lon, max_lat}, {min_lon, max_lat}, {min_lon, min_lat}};
  std::vector<PolygonPoint> points;
  for (int side = 0; side < 4; ++side) {
    const double *a = corners[side], *b = corners[side + 1];
    const int n = static_cast<int>(std::ceil(std::max(std::fabs(b[0] - a[0]), std::fabs(b[1] - a[1])) / step));
    for (int i = 0; i < n; ++i) points.push_back({a[0] + (b[0] - a[0]) * i / n, a[1] + (b[1] - a[1]) * i / n});
  }
  points.push_back(points.front());
  return Line(std::move(points), flag, name);
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

// Fill white, edges red, 3-pixel blue boxes for markers.
Layer VectorLayer(int64_t fill_type, int32_t line_width = 1, double alpha = 1.0) {
  Layer layer("areas");
  layer.record.layer_type = kLayerVector;
  DrawingAttributes& d = layer.record.drawing;
  d.fill_type = fill_type;
  d.fill_color = {255, 255, 255};
  d.edge_color = {255, 0, 0};
  d.line_width = line_width;
  d.alpha = alpha;
  d.marker_fill_color = {0, 0, 255};
  d.marker_size = 3;
  d.marker_type = kMarkerBoxFill;
  return layer;
}

struct Drawn {
  VectorDrawStats stats;
  bool ok;
  std::vector<size_t> hits;  // of a location query
};
Drawn Draw(Canvas& c, Layer& layer, const VectorData& data, OverrideConditions over = {}) {
  VectorScratch scratch;
  Drawn d;
  d.ok = DrawVectorTile(c.Surface(), scratch, layer, data, over, d.stats, c.g.location_query ? &d.hits : nullptr);
  return d;
}

// 21 x 11 pixels; pixel (x, y) at lon x - 10, lat 5 - y.
MapGeometry SmallWorld() { return RectGeometry(-10, 5, 1, 21, 11); }
// 41 x 21 pixels; pixel (x, y) at lon x, lat 20 - y.
MapGeometry Grid41() { return RectGeometry(0, 20, 1, 41, 21); }

VectorData GroupedTile() {
  VectorData data;
  data.AddFeature(Rect(-8, -3, -2, 3, 1));    // 0: outer ring of a group
  data.AddFeature(Rect(-6, -1, -4, 1, 0));    // 1: its hole
  data.AddFeature(Rect(2, -2, 6, 2));         // 2: a polygon of its own
  data.AddFeature(Marker(0, 0));              // 3
  data.AddFeature(Rect(50, 0, 60, 2));        // 4: outside the view
  data.AddFeature(Rect(0.1, 4, 0.15, 4.05));  // 5: smaller than MinPixelSize
  data.AddFeature(Rect(0.1, 4, 0.3, 4.2));    // 6: not, though it covers no pixel centre
  return data;
}

TEST(VectorTileDrawerTest, GroupsClipsAndCulls) {
  Layer layer = VectorLayer(kFillTypeFill);
  VectorData data = GroupedTile();
  data.features.push_back(std::make_unique<OtherFeature>());
  test::MessageCapture capture;
  Canvas c(SmallWorld());
  const VectorDrawStats stats = Draw(c, layer, data).stats;
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: Only support POLYGONs and MARKERs for now"});
  EXPECT_EQ(stats, (VectorDrawStats{.polygons = 3, .points = 20, .rings = 4, .culled_small = 1, .clipped = 1,
                                    .markers = 1}));
  // The group: columns 2..8, rows 2..7 less the hole's column 5 on rows 4
  // and 5; the other polygon: columns 12..16, rows 3..6; a 3 x 3 marker.
  EXPECT_EQ(c.Count(kWhite), 42u - 2u + 20u);
  EXPECT_EQ(c.At(5, 4), kBack);
  EXPECT_EQ(c.Count(kBlue), 9u);
  EXPECT_EQ(c.At(10, 5), kBlue);
  kav::Messages().verbosity = 5;
  ReportVectorStats(stats);
  EXPECT_TRUE(capture.Contains("Info: Culled small polygons: 1"));

  // Without view testing and culling both are drawn and counted.
  layer.record.clip = 0;
  layer.record.drawing.min_pixel_size = 0;
  Canvas all(SmallWorld());
  EXPECT_EQ(Draw(all, layer, data).stats.polygons, 5);
  // An edge layer draws the rings' edges, no fill.
  layer = VectorLayer(kFillTypeEdge);
  Canvas edges(SmallWorld());
  Draw(edges, layer, data);
  EXPECT_EQ(edges.Count(kWhite), 0u);
  EXPECT_EQ(edges.At(5, 4), kRed);
  EXPECT_EQ(edges.At(3, 4), kBack);
  // An unknown transparency kind stops the layer with one message.
  layer.record.trans_type = 6;
  capture.Clear();
  Canvas none(SmallWorld());
  EXPECT_FALSE(Draw(none, layer, data).ok);
  EXPECT_EQ(capture.Count("Cannot render layer transparency type: 6"), 1u);
  EXPECT_EQ(none.Count(kRed), 0u);
}

TEST(VectorTileDrawerTest, LayerConditionsThenOverrideLists) {
  Layer layer = VectorLayer(kFillTypeFill);
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
    Canvas canvas(SmallWorld());
    EXPECT_EQ(Draw(canvas, layer, data, c.over).stats.polygons, static_cast<int64_t>(c.drawn.size()));
    for (int64_t x : c.drawn) EXPECT_EQ(canvas.At(x, 4), kWhite) << x;
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
    Canvas canvas(SmallWorld());
    canvas.g.location_query = true;
    canvas.g.search_x_from = canvas.g.search_x_to = c.x;
    canvas.g.search_y_from = canvas.g.search_y_to = c.y;
    Layer layer = VectorLayer(c.fill_type);
    const Drawn d = Draw(canvas, layer, data);
    EXPECT_EQ(d.hits, c.hits) << c.x << "," << c.y;
    EXPECT_EQ(canvas.surface->hit(), !c.hits.empty());
    EXPECT_EQ(canvas.Picture(kWhite).find_first_not_of(".|"), std::string::npos);
    EXPECT_EQ(d.stats, VectorDrawStats{});
  }
}

TEST(VectorTileDrawerTest, FeaturesAcrossTheAntimeridian) {
  // The view shows lon 170..190: data at -178..-174 appears at 182..186.
  Canvas c(RectGeometry(170, 5, 1, 21, 11));
  Layer layer = VectorLayer(kFillTypeFill);
  VectorData data;
  data.AddFeature(Rect(-178, -1, -174, 1));
  data.AddFeature(Rect(176, -2, 180, -1, 1));  // a group split at 180
  data.AddFeature(Rect(-180, -2, -177, -1, 0));
  data.AddFeature(Marker(-171, 3));
  Draw(c, layer, data);
  EXPECT_EQ(c.At(14, 5), kWhite);
  for (int64_t x = 6; x <= 13; ++x) EXPECT_EQ(c.At(x, 6), kWhite) << x;
  EXPECT_EQ(c.At(19, 2), kBlue);
}

// Draws `data` on the globe `g` and checks its pixels: `expect` gives 1
// (filled), 0 (not) or -1 (too near an edge to tell) for a lat/lon. Pixels
// off the globe by more than the half pixel that span rounding allows must
// stay background.
void CheckGlobe(const MapGeometry& g, const VectorData& data, const std::function<int(double, double)>& expect) {
  Layer layer = VectorLayer(kFillTypeFill);
  Canvas c(g);
  Draw(c, layer, data);
  int checked = 0;
  for (int64_t y = 0; y < c.image.height(); ++y) {
    for (int64_t x = 0; x < c.image.width(); ++x) {
      const LatLonPoint p = PixelLatLon(g, x, y);
      const double X = (x - g.center_x) * g.inv_scale_x, Y = (g.center_y - y) * g.inv_scale_y;
      const int e = !p.ok ? (X * X + Y * Y > 1.05 ? 0 : -1) : X * X + Y * Y > 0.94 ? -1 : expect(p.lat, p.lon);
      if (e < 0) continue;
      ++checked;
      EXPECT_EQ(c.At(x, y) == kWhite, e == 1) << x << "," << y << ": " << p.lat << " " << p.lon;
    }
  }
  EXPECT_GT(checked, 1000);
}

TEST(VectorTileDrawerTest, GlobeRingsAreClippedToTheVisibleSide) {
  // A band of latitudes whose ends (lon +-170) lie on the far side.
  const MapGeometry g = GlobeGeometry(0, 0, 101);
  VectorData band;
  band.AddFeature(Rect(-170, -30, 170, 30, 0, nullptr, 5));
  CheckGlobe(g, band, [](double lat, double) { return std::fabs(lat) < 28 ? 1 : std::fabs(lat) > 32 ? 0 : -1; });
  // The whole world with a hole: seen from the far side the disc is full;
  // seen from the hole's side the hole stays open.
  VectorData world;
  world.AddFeature(Rect(-180, -90, 180, 90, 1, nullptr, 10));
  world.AddFeature(Rect(150, -10, 170, 10, 0, nullptr, 2));
  CheckGlobe(g, world, [](double, double) { return 1; });
  CheckGlobe(GlobeGeometry(10, 160, 101), world, [](double lat, double lon) {
    if (std::fabs(lat) < 8 && lon > 152 && lon < 168) return 0;
    return std::fabs(lat) > 12 || lon < 148 || lon > 172 ? 1 : -1;
  });
  // A polar cap stored as a lat/lon rectangle reaching the pole.
  VectorData cap;
  cap.AddFeature(Rect(-180, -90, 180, -70, 0, nullptr, 5));
  CheckGlobe(GlobeGeometry(-90, 0, 101), cap, [](double lat, double) { return lat < -72 ? 1 : lat > -68 ? 0 : -1; });
  // A marker just behind the limb passes the view test by its box but is
  // neither drawn nor counted.
  for (auto [lon, count] : {std::pair{88.0, 1}, {91.5, 0}}) {
    VectorData one;
    one.AddFeature(Marker(lon, 0));
    Layer layer = VectorLayer(kFillTypeFill);
    Canvas c(g);
    EXPECT_EQ(Draw(c, layer, one).stats.markers, count) << lon;
    EXPECT_EQ(c.Count(kBlue) > 0, count == 1) << lon;
  }
}

TEST(VectorStrokeTest, ThickLinesJoinsCapsAndEdges) {
  // An open line 5 pixels wide along row 10 from column 5 to 35, in a FILL
  // layer (which still strokes polylines): rows 8..12 are covered up to the
  // round caps, nothing 2 pixels beyond.
  Layer fill_only = VectorLayer(kFillTypeFill, 5);
  VectorData line;
  line.AddFeature(Line({{5, 10}, {35, 10}}));
  Canvas thick(Grid41());
  Draw(thick, fill_only, line);
  for (int64_t x = 0; x <= 40; ++x) {
    for (int64_t y = 0; y <= 20; ++y) {
      const bool inside = x >= 5 && x <= 35 && y >= 8 && y <= 12, far = x <= 1 || x >= 39 || y <= 6 || y >= 14;
      if (inside || far) {
        EXPECT_EQ(thick.At(x, y), inside ? kRed : kBack) << x << "," << y;
      }
    }
  }
  // A sharp zigzag at half alpha: every stroked pixel is blended exactly
  // once, joins and caps included (no pixel of a second blend).
  VectorData zigzag;
  zigzag.AddFeature(Line({{3, 3}, {20, 17}, {24, 3}, {37, 15}}));
  Layer half = VectorLayer(kFillTypeEdge, 4, 0.5);
  Canvas blended(Grid41());
  Draw(blended, half, zigzag);
  const Rgb3 once{132, 10, 15};  // 0.5 p + 0.5 c, truncated
  EXPECT_EQ(blended.Picture(once).find('?'), std::string::npos);
  EXPECT_GT(blended.Count(once), 150u);
  EXPECT_EQ(blended.At(20, 3), once);  // the sharp turn
  // FILL AND EDGE: a square (columns/rows 10..30 x 5..15) filled white with
  // a red edge 3 pixels wide; an open "U" of the same corners stays unfilled.
  Layer both = VectorLayer(kFillTypeFill | kFillTypeEdge, 3);
  VectorData square, u;
  square.AddFeature(Rect(10, 5, 30, 15));
  u.AddFeature(Line({{10, 15}, {10, 5}, {30, 5}, {30, 15}}));
  Canvas filled(Grid41()), open(Grid41());
  Draw(filled, both, square);
  Draw(open, both, u);
  for (auto [x, y, colour] : {std::tuple{20, 10, kWhite}, {13, 10, kWhite}, {7, 10, kBack}, {10, 10, kRed},
                              {11, 10, kRed}, {30, 10, kRed}, {20, 5, kRed}, {20, 16, kRed}}) {
    EXPECT_EQ(filled.At(x, y), colour) << x << "," << y;
  }
  EXPECT_EQ(open.At(20, 10), kBack);
  EXPECT_EQ(open.At(10, 10), kRed);
  EXPECT_EQ(open.At(20, 15), kRed);  // the bottom of the U
  EXPECT_EQ(open.At(9, 16), kRed);   // the round join outside its corner
  EXPECT_EQ(open.At(10, 4), kRed);   // the round cap of its start
  // A line just above the view reaches into its first row.
  VectorData above;
  above.AddFeature(Line({{5, 22}, {35, 22}}));
  Canvas top(Grid41());
  Draw(top, fill_only, above);
  EXPECT_EQ(top.At(20, 0), kRed);
}

TEST(VectorStrokeTest, MarkerSymbolsAndIcons) {
  // Size 7 (unless given), line width 1, at pixel (10, 10) (the nearest to
  // (9.6, 10.4)); 'e' edge colour, 'f' fill colour, '.' background at
  // offsets (0,0) (3,0) (2,0) (2,2) (3,3) (1,1) (1,0).
  const int offsets[7][2] = {{0, 0}, {3, 0}, {2, 0}, {2, 2}, {3, 3}, {1, 1}, {1, 0}};
  struct Case {
    int32_t type;
    const char* expect;
    int size = 7;
  } cases[] = {
      {0, "......."}, {kMarkerCross, "eee...e"}, {kMarkerBoxEdge, ".e..e.."}, {kMarkerBoxFill, "fffffff"},
      {kMarkerBoxEdge | kMarkerBoxFill, "feffeff"}, {kMarkerCircleEdge, ".e.e..."}, {kMarkerCircleFill, "ffff.ff"},
      {kMarkerCircleEdge | kMarkerCircleFill, "fefe.ff"}, {kMarkerDot, "e.....e"},
      {kMarkerBoxFill, "f....ff", 4},  // even sizes: centred on the pixel's top left corner
  };
  VectorData marker;
  marker.AddFeature(Marker(9.6, 9.6));
  const MapGeometry g = RectGeometry(0, 20, 1, 21, 21);
  for (const Case& c : cases) {
    Layer layer = VectorLayer(kFillTypeEdge);
    layer.record.drawing.marker_type = c.type;
    layer.record.drawing.marker_size = c.size;
    layer.record.drawing.marker_edge_color = {255, 0, 0};
    Canvas canvas(g);
    Draw(canvas, layer, marker);
    for (int i = 0; i < 7; ++i) {
      const Rgb3 want = c.expect[i] == 'e' ? kRed : c.expect[i] == 'f' ? kBlue : kBack;
      EXPECT_EQ(canvas.At(10 + offsets[i][0], 10 + offsets[i][1]), want) << c.type << " at " << i;
    }
  }

  // A 3 x 1 RGBA icon, centred: opaque red, fully transparent green,
  // half-transparent green over columns 9..11 of row 10.
  TempDir dir;
  const uint8_t pixels[] = {255, 0, 0, 255, 0, 255, 0, 0, 0, 255, 0, 128};
  ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "pin.tif", pixels, 3, 1, 0, true));
  Layer layer = VectorLayer(kFillTypeEdge);
  layer.record.lif_dir = dir.path();
  layer.record.drawing.marker_type = kMarkerCustomIcon;
  layer.record.drawing.marker_icon_file = "pin.tif";
  Canvas icon(g);
  Draw(icon, layer, marker);
  std::string want(21, '.');
  for (int y = 1; y < 21; ++y) want.append("|").append(21, '.');
  want.replace(10 * 22 + 9, 3, "#.?");
  EXPECT_EQ(icon.Picture(kRed), want);
  const Rgb3 half = icon.At(11, 10);
  EXPECT_GT(half[1], kBack[1] + 60);
  EXPECT_LT(half[1], 200);
}

TEST(VectorStrokeTest, AttributeMapSwitchesFillColour) {
  // Custom attribute 100 (a colour) computed from attribute 0 (the name):
  // "water" blue, "forest" green, anything else grey; it drives FillColor.
  Layer layer = VectorLayer(kFillTypeFill);
  AttributeMapFields map{"class_colour", "FillColor@0", "classes.thr", "ABS",
                         {{TypedValue::String("water"), TypedValue::Geo(0, 0, 1)},
                          {TypedValue::String("forest"), TypedValue::Geo(0, 1, 0)},
                          {TypedValue::String("*"), TypedValue::Geo(0.5, 0.5, 0.5)}}};
  ASSERT_TRUE(BuildLayerAttributes({{100, "class_colour", "VMP_G"}}, {map}, {}, layer.name,
                                   &layer.record.attributes));
  VectorData data;
  data.AddFeature(Rect(2, 5, 8, 15, 0, "water"));
  data.AddFeature(Rect(12, 5, 18, 15, 0, "forest"));
  data.AddFeature(Rect(22, 5, 28, 15, 0, "desert"));
  data.AddFeature(Rect(32, 5, 38, 15));  // no name: the layer's white
  Canvas c(Grid41());
  Draw(c, layer, data);
  EXPECT_EQ(c.At(5, 10), kBlue);
  EXPECT_EQ(c.At(15, 10), kGreen);
  EXPECT_EQ(c.At(25, 10), (Rgb3{127, 127, 127}));
  EXPECT_EQ(c.At(35, 10), kWhite);
}

}  // namespace
}  // namespace vmp
