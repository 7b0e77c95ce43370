// Styled drawing checked on rendered pixels: thick lines, fills and edges,
// polylines, markers and icons, grids, outlines with halo, raster styling
// and attribute-map styles.
#include <gtest/gtest.h>

#include <array>

#include "map_server/image/tiff_writer.h"
#include "map_server/layers/layer_string.h"
#include "map_server/rendering/grid_layer.h"
#include "map_server/rendering/image_pass.h"
#include "map_server/rendering/render_map.h"
#include "map_server/rendering/simple_layers.h"
#include "map_server/rendering/vector_tile_drawer.h"
#include "map_server/service/map_service.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/rendering/render_test_util.h"
#include "tests/support/map_fixtures.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using Rgb3 = std::array<int, 3>;
constexpr Rgb3 kBack{test::kBackground[0], test::kBackground[1], test::kBackground[2]};
constexpr Rgb3 kRed{255, 0, 0}, kWhite{255, 255, 255}, kBlue{0, 0, 255};

Rgb3 At(const MapImage& image, int64_t x, int64_t y) {
  const uint8_t* p = test::Pixel(image, x, y);
  return {p[0], p[1], p[2]};
}
using Points = std::vector<std::array<int64_t, 2>>;
void ExpectAll(const MapImage& image, const Points& points, const Rgb3& colour) {
  for (const auto& [x, y] : points) EXPECT_EQ(At(image, x, y), colour) << x << "," << y;
}

// 41 x 21 pixels, pixel (x, y) at lon x, lat 20 - y.
MapGeometry Grid41() { return test::RectGeometry(0, 20, 1, 41, 21); }

std::unique_ptr<Feature> Line(std::vector<PolygonPoint> points, const char* name = nullptr) {
  auto p = std::make_unique<PolygonFeature>();
  p->points = std::move(points);
  p->ComputeBounds();
  if (name) p->AddAttribute(0, TypedValue::String(name));
  return p;
}
// A closed square ring with these lon/lat corners.
std::unique_ptr<Feature> Square(double x0, double y0, double x1, double y1, const char* name = nullptr) {
  return Line({{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}, {x0, y0}}, name);
}

Layer VectorLayer(int64_t fill_type, int32_t width, double alpha = 1.0) {
  Layer layer("styled");
  layer.record.layer_type = kLayerVector;
  layer.record.drawing.fill_type = fill_type;
  layer.record.drawing.fill_color = {255, 255, 255};
  layer.record.drawing.edge_color = {255, 0, 0};
  layer.record.drawing.line_width = width;
  layer.record.drawing.alpha = alpha;
  layer.record.drawing.min_pixel_size = 0;
  return layer;
}

MapImage DrawTile(const MapGeometry& g, Layer& layer, const VectorData& data) {
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  VectorScratch scratch;
  VectorDrawStats stats;
  DrawVectorTile(surface, scratch, layer, data, {}, stats);
  return image;
}

TEST(CartographyTest, ThickLinesFillsAndPolylines) {
  // An open line 5 pixels wide along row 10 from column 5 to 35: rows 8..12
  // are covered, rows 6 and 14 and the far columns are not. A layer of
  // FillType FILL still strokes polylines.
  VectorData line;
  line.AddFeature(Line({{5, 10}, {35, 10}}));
  Layer fill_only = VectorLayer(kFillTypeFill, 5);
  MapImage image = DrawTile(Grid41(), fill_only, line);
  for (int64_t x = 0; x <= 40; ++x) {
    for (int64_t y = 0; y <= 20; ++y) {
      const bool inside = x >= 5 && x <= 35 && y >= 8 && y <= 12;
      const bool far = x <= 1 || x >= 39 || y <= 6 || y >= 14;
      if (inside || far) {
        EXPECT_EQ(At(image, x, y), inside ? kRed : kBack) << x << "," << y;
      }
    }
  }
  // A sharp zigzag at half alpha: every stroked pixel is blended exactly
  // once, joins and caps included (no pixel of a second blend).
  VectorData zigzag;
  zigzag.AddFeature(Line({{3, 3}, {20, 17}, {24, 3}, {37, 15}}));
  Layer half = VectorLayer(kFillTypeEdge, 4, 0.5);
  image = DrawTile(Grid41(), half, zigzag);
  const Rgb3 once{132, 10, 15};  // 0.5 p + 0.5 c, truncated
  int stroked = 0;
  for (int64_t x = 0; x <= 40; ++x) {
    for (int64_t y = 0; y <= 20; ++y) {
      const Rgb3 c = At(image, x, y);
      EXPECT_TRUE(c == kBack || c == once) << x << "," << y;
      stroked += c == once;
    }
  }
  EXPECT_GT(stroked, 150);
  EXPECT_EQ(At(image, 20, 3), once);  // the sharp turn
  // FILL AND EDGE: a square (columns/rows 10..30 x 5..15) filled white with
  // a red edge 3 pixels wide; an open "U" of the same corners stays unfilled.
  VectorData shapes;
  shapes.AddFeature(Square(10, 5, 30, 15));
  Layer both = VectorLayer(kFillTypeFill | kFillTypeEdge, 3);
  image = DrawTile(Grid41(), both, shapes);
  EXPECT_EQ(At(image, 20, 10), kWhite);
  ExpectAll(image, {{10, 10}, {11, 10}, {30, 10}, {20, 5}, {20, 16}}, kRed);
  EXPECT_EQ(At(image, 13, 10), kWhite);
  EXPECT_EQ(At(image, 7, 10), kBack);
  shapes.features.clear();
  shapes.AddFeature(Line({{10, 15}, {10, 5}, {30, 5}, {30, 15}}));
  image = DrawTile(Grid41(), both, shapes);
  EXPECT_EQ(At(image, 20, 10), kBack);
  EXPECT_EQ(At(image, 10, 10), kRed);
  EXPECT_EQ(At(image, 20, 15), kRed);  // the bottom of the U
}

TEST(CartographyTest, MarkerSymbols) {
  constexpr char E = 'e', F = 'f';  // '.': background
  // Size 7, line width 1, at pixel (10, 10); offsets (0,0) (3,0) (2,0) (2,2)
  // (3,3) (1,1) (1,0).
  const int offsets[7][2] = {{0, 0}, {3, 0}, {2, 0}, {2, 2}, {3, 3}, {1, 1}, {1, 0}};
  struct Case {
    int32_t type;
    const char* expect;
  } cases[] = {
      {0, "......."},
      {kMarkerCross, "eee...e"},
      {kMarkerBoxEdge, ".e..e.."},
      {kMarkerBoxFill, "fffffff"},
      {kMarkerBoxEdge | kMarkerBoxFill, "feffeff"},
      {kMarkerCircleEdge, ".e.e..."},
      {kMarkerCircleFill, "ffff.ff"},
      {kMarkerCircleEdge | kMarkerCircleFill, "fefe.ff"},
      {kMarkerDot, "e.....e"},
  };
  const MapGeometry g = test::RectGeometry(0, 20, 1, 21, 21);
  for (const Case& c : cases) {
    Layer layer = VectorLayer(kFillTypeEdge, 1);
    layer.record.drawing.marker_type = c.type;
    layer.record.drawing.marker_size = 7;
    layer.record.drawing.marker_edge_color = {255, 0, 0};
    layer.record.drawing.marker_fill_color = {0, 0, 255};
    VectorData data;
    auto m = std::make_unique<MarkerFeature>();
    m->x = 10;
    m->y = 10;
    data.AddFeature(std::move(m));
    const MapImage image = DrawTile(g, layer, data);
    for (int i = 0; i < 7; ++i) {
      const char want = c.expect[i];
      const Rgb3 colour = want == E ? kRed : want == F ? kBlue : kBack;
      EXPECT_EQ(At(image, 10 + offsets[i][0], 10 + offsets[i][1]), colour) << c.type << " at " << i;
    }
  }
}

TEST(CartographyTest, CustomIconBlendsByItsAlpha) {
  test::TempDir dir;
  // 3 x 1 RGBA: opaque red, fully transparent green, half-transparent green.
  const uint8_t pixels[] = {255, 0, 0, 255, 0, 255, 0, 0, 0, 255, 0, 128};
  ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "pin.tif", pixels, 3, 1, 0, true));
  Layer layer = VectorLayer(kFillTypeEdge, 1);
  layer.record.lif_dir = dir.path();
  layer.record.drawing.marker_type = kMarkerCustomIcon;
  layer.record.drawing.marker_icon_file = "pin.tif";
  VectorData data;
  auto m = std::make_unique<MarkerFeature>();
  m->x = 10;
  m->y = 10;
  data.AddFeature(std::move(m));
  const MapImage image = DrawTile(test::RectGeometry(0, 20, 1, 21, 21), layer, data);
  // Centred: the icon covers columns 9..11 of row 10.
  EXPECT_EQ(At(image, 9, 10), kRed);
  EXPECT_EQ(At(image, 10, 10), kBack);
  const Rgb3 half = At(image, 11, 10);
  EXPECT_GT(half[1], kBack[1] + 60);
  EXPECT_LT(half[1], 200);
  EXPECT_EQ(At(image, 12, 10), kBack);
  EXPECT_EQ(At(image, 10, 9), kBack);
}

TEST(CartographyTest, GraticuleRowsAndColumns) {
  struct Case {
    int32_t adaptive;
    double zoom;
    bool decimal;
    double interval;
  } cases[] = {{1, 1, true, 30}, {1, 10, true, 5}, {2, 1, true, 15}, {1, 100, true, 0.5}, {1, 100, false, 1.0 / 3}};
  for (const Case& c : cases) EXPECT_DOUBLE_EQ(AdaptiveGridInterval(c.adaptive, c.zoom, c.decimal), c.interval);

  // 41 x 41 pixels, pixel (x, y) at lon x - 20, lat 20 - y; lines every 10
  // degrees east of GridMinLon 0: columns 20, 30, 40 and rows 0, 10, 20, 30,
  // 40 from column 20 on.
  const MapGeometry g = test::RectGeometry(-20, 20, 1, 41, 41);
  Layer grid("grid");
  grid.record.layer_type = kLayerGrid;
  grid.record.drawing.edge_color = {255, 255, 255};
  grid.record.grid.lat_interval = 10;
  grid.record.grid.lon_interval = 10;
  grid.record.grid.min_lon = 0;
  const GridLines lines = ComputeGridLines(grid, g);
  EXPECT_EQ(lines.meridians, (std::vector<double>{0, 10, 20}));
  EXPECT_EQ(lines.parallels, (std::vector<double>{-20, -10, 0, 10, 20}));
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  LineStroker stroker;
  EdgeTables tables;
  DrawGridLayer(surface, stroker, tables, grid);
  for (int64_t i = 0; i <= 40; ++i) {
    EXPECT_EQ(At(image, 30, i), kWhite) << i;
    if (i >= 20) {
      EXPECT_EQ(At(image, i, 10), kWhite) << i;
    }
  }
  ExpectAll(image, {{10, 10}, {25, 15}, {19, 5}, {21, 5}, {35, 39}}, kBack);

  // On a globe centred on (0, 0) the equator and the prime meridian cross at
  // the centre pixel; nothing is drawn off the globe.
  const MapGeometry globe = test::GlobeGeometry(0, 0, 61);
  grid.record.grid = GridAttributes{};
  grid.record.grid.adaptive = 1;
  test::FillImage(globe, image);
  DrawSurface globe_surface(&image, globe);
  DrawGridLayer(globe_surface, stroker, tables, grid);
  EXPECT_EQ(At(image, 30, 30), kWhite);
  EXPECT_EQ(At(image, 30, 45), kWhite);
  EXPECT_EQ(At(image, 40, 38), kBack);
  EXPECT_EQ(At(image, 2, 2), kBack);
}

TEST(CartographyTest, GlobeOutlineAndHalo) {
  // A globe of radius 20 pixels in the middle of 61 x 61.
  const MapGeometry g = test::SetUpGeometry(kOrthographicProjection, 0, 0, 3 * kEquatorialRadius,
                                            3 * kPolarRadius, 61, 61);
  Layer outline("outline");
  outline.record.layer_type = kLayerOutline;
  outline.record.drawing.edge_color = {255, 255, 255};
  outline.record.drawing.line_width = 3;
  outline.record.gradient_type = 1;
  outline.record.gradient_color = Rgb{0, 0, 255};
  outline.record.gradient_length = 0.2;
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  DrawOutlineLayer(surface, outline);
  // The middle row: the first pixel on the globe and the next are outline,
  // the interior is not; just off the globe the halo is bluer than the
  // background, far off it nothing is drawn.
  int64_t left = 0;
  while (!test::PixelLatLon(g, left, 30).ok) ++left;
  EXPECT_EQ(At(image, left, 30), kWhite);
  EXPECT_EQ(At(image, left + 1, 30), kWhite);
  EXPECT_EQ(At(image, left + 5, 30), kBack);
  EXPECT_EQ(At(image, 30, 30), kBack);
  EXPECT_EQ(At(image, 60 - left, 30), kWhite);
  const Rgb3 glow = At(image, left - 1, 30);
  EXPECT_GT(glow[2], kBack[2] + 100);
  EXPECT_LT(glow[0], kBack[0]);
  ExpectAll(image, {{30, 0}, {0, 0}, {left - 6, 30}}, kBack);  // beyond 1.2 radii
}

// A colour or elevation tile over lon 0..2 (or 2..4), lat 0..1.
LoadedImage Tile(int64_t w, std::vector<uint8_t> rgb) {
  LoadedImage t;
  t.width = w;
  t.height = 1;
  t.samples_per_pixel = 3;
  t.pixels.Resize(rgb.size());
  std::copy(rgb.begin(), rgb.end(), t.pixels.data());
  return t;
}

TEST(CartographyTest, BilinearKeyedAndElevationSamples) {
  // Pixel x at lon 0.25 + x / 4: tile pixel centres at lon 0.5 (x 1) and
  // 1.5 (x 5); the next tile's first centre at 2.5 (x 9).
  const MapGeometry g = test::RectGeometry(0.25, 0.5, 4, 13, 2);
  LoadedImage left = Tile(2, {0, 0, 0, 200, 200, 200});
  LoadedImage right = Tile(2, {100, 100, 100, 100, 100, 100});
  const ImageTileRef tiles[] = {{&left, {0, 2, 0, 1}}, {&right, {2, 4, 0, 1}}};
  ImageLayerInput layer{"smooth", kTransOpaque, 1.0, {}, 0.0, tiles};
  layer.bilinear = true;
  MapImage image;
  ImagePassScratch scratch;
  auto run = [&](std::vector<ImageLayerInput> layers) {
    test::FillImage(g, image);
    DrawSurface surface(&image, g);
    DrawImageLayers(surface, scratch, layers);
  };
  run({layer});
  const int expect[] = {0, 0, 50, 100, 150, 200, 175, 150, 125, 100};
  for (int x = 0; x < 10; ++x) EXPECT_EQ(At(image, x, 0)[0], expect[x]) << x;

  // Kind 5 keys out black before interpolating: the keyed pixel lends no
  // colour, and where only keyed pixels are the layer below shows.
  const ImageTileRef left_only[] = {{&left, {0, 2, 0, 1}}};
  ImageLayerInput keyed{"keyed", kTransColourOpaque, 1.0, {0, 0, 0}, 0.0, left_only};
  keyed.bilinear = true;
  LoadedImage blue = Tile(1, {0, 0, 255});
  const ImageTileRef below[] = {{&blue, {0, 4, 0, 1}}};
  run({{"below", kTransOpaque, 1.0, {}, 0.0, below}, keyed});
  EXPECT_EQ(At(image, 1, 0), kBlue);
  // Half-way: the grey pixel alone, at half alpha over the blue.
  EXPECT_EQ(At(image, 3, 0), (Rgb3{100, 100, 227}));

  // Elevations 50 and 500 through a pixel map (below 100 blue, from 100 red,
  // from 1000 green); without one the ramp gives 0 m its green; DATA AS
  // COLOR writes the sample's bytes.
  LoadedImage dem;
  dem.width = 2;
  dem.height = 1;
  dem.samples_per_pixel = 1;
  dem.elevation = true;
  dem.elevation_samples.Resize(2);
  dem.elevation_samples[0] = 50;
  dem.elevation_samples[1] = 500;
  const ImageTileRef dem_tiles[] = {{&dem, {0, 2, 0, 1}}};
  const ThresholdTable thresholds = {{TypedValue::Double(0), TypedValue::Geo(0, 0, 1)},
                                     {TypedValue::Double(100), TypedValue::Geo(1, 0, 0)},
                                     {TypedValue::Double(1000), TypedValue::Geo(0, 1, 0)}};
  ImageLayerInput elevation{"dem", kTransOpaque, 1.0, {}, 0.0, dem_tiles};
  elevation.elevation_mode = kElevationColour;
  elevation.pixel_map = &thresholds;
  run({elevation});
  EXPECT_EQ(At(image, 1, 0), kBlue);
  EXPECT_EQ(At(image, 5, 0), kRed);
  elevation.elevation_mode = kElevationDataAsColour;
  run({elevation});
  EXPECT_EQ(At(image, 5, 0), (Rgb3{1, 244, 0}));  // 500 = 0x01f4
  const SampledColour sea_level = HypsometricColour(0);
  EXPECT_EQ((Rgb3{sea_level.r, sea_level.g, sea_level.b}), (Rgb3{72, 136, 72}));
}

TEST(CartographyTest, AttributeMapSwitchesFillColour) {
  // Custom attribute 100 (a colour) computed from attribute 0 (the name):
  // "water" blue, "forest" green, anything else grey; it drives FillColor.
  Layer layer = VectorLayer(kFillTypeFill, 1);
  AttributeMapFields map{"class_colour", "FillColor@0", "classes.thr", "ABS",
                         {{TypedValue::String("water"), TypedValue::Geo(0, 0, 1)},
                          {TypedValue::String("forest"), TypedValue::Geo(0, 1, 0)},
                          {TypedValue::String("*"), TypedValue::Geo(0.5, 0.5, 0.5)}}};
  ASSERT_TRUE(BuildLayerAttributes({{100, "class_colour", "VMP_G"}}, {map}, {}, layer.name,
                                   &layer.record.attributes));
  VectorData data;
  data.AddFeature(Square(2, 5, 8, 15, "water"));
  data.AddFeature(Square(12, 5, 18, 15, "forest"));
  data.AddFeature(Square(22, 5, 28, 15, "desert"));
  data.AddFeature(Square(32, 5, 38, 15));  // no name: the layer's white
  const MapImage image = DrawTile(Grid41(), layer, data);
  EXPECT_EQ(At(image, 5, 10), kBlue);
  EXPECT_EQ(At(image, 15, 10), (Rgb3{0, 255, 0}));
  EXPECT_EQ(At(image, 25, 10), (Rgb3{127, 127, 127}));
  EXPECT_EQ(At(image, 35, 10), kWhite);
}

TEST(CartographyTest, StylesFromLayerFilesThroughRenderMap) {
  // A world map, 360 x 180 pixels: a black/white image, a grid every 30
  // degrees 3 pixels wide, a red "U" polyline 5 pixels wide (in a FILL AND
  // EDGE layer) and a green disc marker of 9 pixels at (0, 45 N).
  test::DatasetFiles files;
  const uint8_t bw[] = {0, 0, 0, 255, 255, 255};
  ASSERT_TRUE(VmpWriteTiff(nullptr, files.dir() / "bw.tif", bw, 2, 1, 0, false));
  TvfOutput out = OpenTvfOutput(files.dir() / "roads.tvf");
  PolygonFeature road;
  road.points = {{-100, -15}, {-100, -45}, {100, -45}, {100, -15}};
  MarkerFeature town;
  town.y = 45;
  WriteTvfFeature(out.get(), TvfFormat::kAscii, road);
  WriteTvfFeature(out.get(), TvfFormat::kAscii, town);
  ASSERT_TRUE(CloseTvfOutput(std::move(out)));
  const std::string world = "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n";
  const std::pair<const char*, std::string> lifs[] = {
      {"bw", "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=bw.tif\nWIDTH=2\nHEIGHT=1\n" + world},
      {"grid", "TYPE=GRID\nTRANS TYPE=OPAQUE\nGRID LAT INTERVAL=30\nGRID LON INTERVAL=30\nEDGE COLOR=0 0 1\n"
               "LINE WIDTH=3\n"},
      {"roads", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=roads.tvf\nFILL TYPE=FILL AND EDGE\nFILL COLOR=1 1 0\n"
                "EDGE COLOR=1 0 0\nLINE WIDTH=5\nMARKER ICON TYPE=CIRCLE_FILL\nMARKER ICON SIZE=9\n"
                "MARKER FILL COLOR=0 1 0\n" + world}};
  std::string info;
  for (const auto& [name, lif] : lifs) info += std::string("LAYER=") + name + " " + files.Write(std::string(name) + ".lif", lif) + "\n";
  files.Load(info);
  auto render = [&](bool anti_aliasing) -> const MapImage& {
    std::unique_ptr<MapRequest> map = test::MakeMap(files.dataset(), {});
    map->resources.SetNumber("ImageAntiAliasing", anti_aliasing ? 1 : 0);
    SelectMapLayers(*map, "bw,grid,roads");
    RenderOutput output;
    EXPECT_EQ(RenderMap(*map, false, 0, 0, output), 3);
    return Service().map_image();
  };
  const MapImage& sharp = render(false);
  // Row 60 is the parallel 30 N, column 209 the meridian 30 E.
  ExpectAll(sharp, {{100, 60}, {140, 61}, {209, 100}, {208, 20}}, kBlue);
  ExpectAll(sharp, {{100, 75}, {10, 100}}, (Rgb3{0, 0, 0}));
  ExpectAll(sharp, {{230, 75}, {350, 100}}, kWhite);
  ExpectAll(sharp, {{100, 134}, {250, 136}, {80, 110}}, kRed);
  EXPECT_EQ(At(sharp, 130, 114), (Rgb3{0, 0, 0}));  // the polyline is not filled
  EXPECT_EQ(At(sharp, 177, 45), (Rgb3{0, 255, 0}));
  EXPECT_EQ(At(sharp, 182, 45), (Rgb3{0, 255, 0}));
  EXPECT_EQ(At(sharp, 170, 45), (Rgb3{0, 0, 0}));
  // The map's ImageAntiAliasing blends the two image pixels half-way.
  const Rgb3 middle = At(render(true), 170, 100);
  EXPECT_GT(middle[0], 100);
  EXPECT_LT(middle[0], 155);
}

}  // namespace
}  // namespace vmp
