// The image pass: nearest and bilinear samples, transparency kinds and
// keyed colours, many and wrapped tiles, the globe, elevation colours, runs
// of image layers, and elevations at a point.
#include "map_server/rendering/image_pass.h"

#include <gtest/gtest.h>

#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using test::Canvas;
using test::Rgb3;

// A colour tile (samples per pixel 3 or 4) or a 16-bit elevation row,
// pixels row by row.
LoadedImage Tile(int64_t width, int64_t height, int samples, const std::vector<uint8_t>& pixels) {
  LoadedImage image;
  image.width = width;
  image.height = height;
  image.samples_per_pixel = samples;
  image.pixels.Resize(pixels.size());
  std::copy(pixels.begin(), pixels.end(), image.pixels.data());
  return image;
}
LoadedImage ElevationRow(bool is_signed, const std::vector<uint16_t>& samples) {
  LoadedImage image = Tile(static_cast<int64_t>(samples.size()), 1, 1, {});
  image.elevation = true;
  image.signed_elevation = is_signed;
  image.elevation_samples.Resize(samples.size());
  std::copy(samples.begin(), samples.end(), image.elevation_samples.data());
  return image;
}

void Draw(Canvas& c, ImagePassScratch& scratch, std::vector<ImageLayerInput> layers) {
  c.Clear();
  DrawImageLayers(c.Surface(), scratch, layers);
}

TEST(ImagePassTest, NearestPixelsThroughTheKindsInLayerOrder) {
  // 8 x 4 pixels over lon 0..4, lat 0..2: pixel (x, y) samples tile pixel
  // (x / 2, y / 2) of a 4 x 2 tile over those bounds.
  Canvas c(test::RectGeometry(0.25, 1.75, 2, 8, 4));
  const Box bounds{0, 4, 0, 2};
  ImagePassScratch scratch;
  LoadedImage ramp = Tile(4, 2, 3, {0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5, 5, 6, 6, 6, 7, 7, 7});
  const ImageTileRef ramp_tiles[] = {{&ramp, bounds}};
  Draw(c, scratch, {{"ramp", kTransOpaque, 1.0, {}, 0.0, ramp_tiles}});
  for (int64_t y = 0; y < 4; ++y) {
    for (int64_t x = 0; x < 8; ++x) {
      const int v = static_cast<int>(4 * (y / 2) + x / 2);
      EXPECT_EQ(c.At(x, y), (Rgb3{v, v, v})) << x << "," << y;
    }
  }

  LoadedImage base = Tile(1, 1, 3, {100, 200, 50});
  // RGB over the base: XOR at full alpha.
  LoadedImage xor_tile = Tile(1, 1, 3, {200, 100, 0});
  // Kind 5 with a transparent colour: the left half (exact match) and a
  // pixel within the precision are left alone.
  LoadedImage keyed = Tile(4, 1, 3, {0, 255, 0, 0, 255, 0, 3, 250, 2, 9, 9, 9});
  // Alpha samples: 0 draws nothing, 255 copies, 51 blends a fifth.
  LoadedImage alpha = Tile(4, 1, 4, {255, 0, 0, 0, 0, 255, 255, 255, 3, 3, 3, 51, 0, 0, 0, 255});
  const ImageTileRef base_tiles[] = {{&base, bounds}}, xor_tiles[] = {{&xor_tile, bounds}},
                     keyed_tiles[] = {{&keyed, bounds}}, alpha_tiles[] = {{&alpha, bounds}};
  const ImageLayerInput base_layer{"base", kTransOpaque, 1.0, {}, 0.0, base_tiles};
  Draw(c, scratch, {base_layer, {"xor", kTransXor, 1.0, {}, 0.0, xor_tiles}});
  EXPECT_EQ(c.At(3, 1), (Rgb3{172, 172, 50}));
  Draw(c, scratch, {base_layer, {"keyed", kTransColourOpaque, 1.0, {0, 255, 0}, 6.0 / 255, keyed_tiles}});
  for (int64_t x : {0, 2, 4}) EXPECT_EQ(c.At(x, 0), (Rgb3{100, 200, 50})) << x;  // 4: within 6 of (0, 255, 0)
  EXPECT_EQ(c.At(6, 0), (Rgb3{9, 9, 9}));
  Draw(c, scratch, {base_layer, {"alpha", kTransOpaque, 1.0, {}, 0.0, alpha_tiles}});
  EXPECT_EQ(c.At(0, 0), (Rgb3{100, 200, 50}));
  EXPECT_EQ(c.At(2, 0), (Rgb3{0, 255, 255}));
  EXPECT_EQ(c.At(4, 0), (Rgb3{80, 160, 40}));  // 0.8 p + 0.2 * 3, truncated
  // The layer's Alpha scales the sample's.
  Draw(c, scratch, {base_layer, {"alpha", kTransOpaque, 0.5, {}, 0.0, alpha_tiles}});
  EXPECT_EQ(c.At(2, 0), (Rgb3{50, 227, 152}));
}

TEST(ImagePassTest, BilinearKeyedAndElevationSamples) {
  // Pixel x at lon 0.25 + x / 4: tile pixel centres at lon 0.5 (x 1) and
  // 1.5 (x 5); the next tile's first centre at 2.5 (x 9).
  Canvas c(test::RectGeometry(0.25, 0.5, 4, 13, 2));
  ImagePassScratch scratch;
  LoadedImage left = Tile(2, 1, 3, {0, 0, 0, 200, 200, 200});
  LoadedImage right = Tile(2, 1, 3, {100, 100, 100, 100, 100, 100});
  const ImageTileRef tiles[] = {{&left, {0, 2, 0, 1}}, {&right, {2, 4, 0, 1}}};
  ImageLayerInput smooth{"smooth", kTransOpaque, 1.0, {}, 0.0, tiles};
  smooth.bilinear = true;
  Draw(c, scratch, {smooth});
  const int expect[] = {0, 0, 50, 100, 150, 200, 175, 150, 125, 100};
  for (int x = 0; x < 10; ++x) EXPECT_EQ(c.At(x, 0)[0], expect[x]) << x;

  // Kind 5 keys out black before interpolating: the keyed pixel lends no
  // colour, and where only keyed pixels are the layer below shows.
  ImageLayerInput keyed{"keyed", kTransColourOpaque, 1.0, {0, 0, 0}, 0.0, std::span(tiles, 1)};
  keyed.bilinear = true;
  LoadedImage blue = Tile(1, 1, 3, {0, 0, 255});
  const ImageTileRef below[] = {{&blue, {0, 4, 0, 1}}};
  Draw(c, scratch, {{"below", kTransOpaque, 1.0, {}, 0.0, below}, keyed});
  EXPECT_EQ(c.At(1, 0), test::kBlue);
  EXPECT_EQ(c.At(3, 0), (Rgb3{100, 100, 227}));  // half-way: the grey pixel alone, at half alpha

  // Elevations 99 and 1000 through a pixel map (below 100 blue, from 100
  // red, from 1000 green); DATA AS COLOR writes the sample's bytes; without
  // a pixel map the ramp gives 0 m its green.
  LoadedImage dem = ElevationRow(false, {99, 1000});
  const ImageTileRef dem_tiles[] = {{&dem, {0, 2, 0, 1}}};
  ThresholdTable thresholds = {{TypedValue::Double(0), TypedValue::Geo(0, 0, 1)},
                                     {TypedValue::Double(100), TypedValue::Geo(1, 0, 0)},
                                     {TypedValue::Double(1000), TypedValue::Geo(0, 1, 0)}};
  ImageLayerInput elevation{"dem", kTransOpaque, 1.0, {}, 0.0, dem_tiles};
  elevation.elevation_mode = kElevationColour;
  elevation.pixel_map = &thresholds;
  Draw(c, scratch, {elevation});
  EXPECT_EQ(c.At(1, 0), test::kBlue);
  EXPECT_EQ(c.At(5, 0), test::kGreen);
  // The same table changed in place gives new colours (the palette is not kept by address).
  thresholds[0].output = TypedValue::Geo(1, 0, 0);
  Draw(c, scratch, {elevation});
  EXPECT_EQ(c.At(1, 0), test::kRed);
  elevation.elevation_mode = kElevationDataAsColour;
  Draw(c, scratch, {elevation});
  EXPECT_EQ(c.At(5, 0), (Rgb3{3, 232, 0}));  // 1000 = 0x03e8
  const SampledColour sea_level = HypsometricColour(0);
  EXPECT_EQ((Rgb3{sea_level.r, sea_level.g, sea_level.b}), (Rgb3{72, 136, 72}));
}

TEST(ImagePassTest, ManyTilesWrappedLongitudesAndTilesWithErrors) {
  // A 3 x 3 grid of one-pixel tiles over lon 0..3, lat 0..3; the middle one
  // has errors. A tenth tile stores lon -1..0 as 359..360.
  std::vector<LoadedImage> images;
  for (int i = 0; i < 10; ++i) images.push_back(Tile(1, 1, 3, {uint8_t(10 * i), 0, 0}));
  std::vector<ImageTileRef> tiles;
  for (int i = 0; i < 9; ++i) {
    const double lon = i % 3, lat = i / 3;
    tiles.push_back({&images[i], {lon, lon + 1, lat, lat + 1}, i == 4});
  }
  tiles.push_back({&images[9], {359, 360, 0, 3}});
  // 5 x 3 pixels at lon -1..3 (centres -0.5, 0.5, ...), lat 2.5 .. 0.5.
  Canvas c(test::RectGeometry(-0.5, 2.5, 1, 5, 3));
  ImagePassScratch scratch;
  test::MessageCapture capture;
  Draw(c, scratch, {{"grid", kTransOpaque, 1.0, {}, 0.0, tiles}});
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: Skipping image tiles with errors: grid"});
  for (int64_t y = 0; y < 3; ++y) {
    EXPECT_EQ(c.At(0, y)[0], 90);
    for (int64_t x = 1; x < 4; ++x) {
      const int tile = static_cast<int>((2 - y) * 3 + (x - 1));
      EXPECT_EQ(c.At(x, y), (tile == 4 ? test::kBack : Rgb3{10 * tile, 0, 0})) << x << "," << y;
    }
    EXPECT_EQ(c.At(4, y), test::kBack);  // lon 3.5: no tile
  }
}

TEST(ImagePassTest, GlobeRowsCountFromTheBottom) {
  // North half white, south half black.
  LoadedImage world = Tile(2, 2, 3, {255, 255, 255, 255, 255, 255, 0, 0, 0, 0, 0, 0});
  const ImageTileRef tiles[] = {{&world, {-180, 180, -90, 90}}};
  Canvas c(test::GlobeGeometry(45, 0, 41));
  ImagePassScratch scratch;
  Draw(c, scratch, {{"world", kTransOpaque, 1.0, {}, 0.0, tiles}});
  for (int64_t y = 0; y < 41; ++y) {
    for (int64_t x = 0; x < 41; ++x) {
      // Latitude 0 itself is the first row of the southern half.
      const LatLonPoint p = test::PixelLatLon(c.g, x, y);
      EXPECT_EQ(c.At(x, y), !p.ok ? test::kBack : p.lat > 0 ? test::kWhite : test::kBlack) << x << "," << y;
    }
  }
  EXPECT_EQ(c.At(20, 2), test::kWhite);  // the north is up
}

TEST(ImagePassTest, RunsOfAdjacentImageLayers) {
  const LayerSlot image{kLayerImage, true}, off{kLayerImage, false}, vector{kLayerVector, true},
      off_vector{kLayerVector, false};
  struct Case {
    std::vector<LayerSlot> slots;
    std::vector<size_t> layers;
    size_t intervening, tail, next;
  } cases[] = {
      {{image, image, image}, {0, 1, 2}, 0, 0, 3},
      {{image, off, off_vector, image, off, vector, image}, {0, 3}, 2, 1, 5},
      {{image, off, off}, {0}, 0, 2, 3},
  };
  for (const Case& c : cases) {
    const ImageLayerRun run = FindImageLayerRun(c.slots, 0);
    EXPECT_EQ(run.layers, c.layers);
    EXPECT_EQ((std::array{run.intervening_inactive, run.skipped_inactive_tail, run.next}),
              (std::array{c.intervening, c.tail, c.next}));
  }
  test::MessageCapture capture;
  kav::Messages().verbosity = 7;
  ReportImageLayerRun(FindImageLayerRun(cases[1].slots, 0));
  EXPECT_EQ(capture.Texts(), (std::vector<std::string>{"Info: Number of adjacent image layers: 2",
                                                       "Info: Number of intervening inactive layers: 2",
                                                       "Info: Skipped inactive tail layers: 1"}));
}

TEST(ElevationTest, NearestSampleOrNoData) {
  // 4 x 1 signed cells over the world, one of them no data (-32768).
  LoadedImage dem = ElevationRow(true, {uint16_t(int16_t{-5}), 1200, 0x8000, 7});
  LoadedImage unsigned_dem = ElevationRow(false, {60000});
  LoadedImage colour = Tile(1, 1, 3, {1, 2, 3});
  const ImageTileRef world[] = {{&dem, {-180, 180, -90, 90}}};
  const ImageTileRef small[] = {{&unsigned_dem, {0, 10, 0, 10}}, {&colour, {0, 10, 0, 10}}};
  const ImageTileRef broken[] = {{&dem, {-180, 180, -90, 90}, true}};
  EXPECT_EQ(ElevationAt(world, 0, -135), -5.0);
  EXPECT_EQ(ElevationAt(world, 45, -45), 1200.0);
  EXPECT_EQ(ElevationAt(world, -89, 179.9), 7.0);
  EXPECT_EQ(ElevationAt(world, 10, 45), std::nullopt);
  EXPECT_EQ(ElevationAt(small, 5, 5), 60000.0);
  EXPECT_EQ(ElevationAt(small, 5, 15), std::nullopt);
  EXPECT_EQ(ElevationAt(std::span(small).subspan(1), 5, 5), std::nullopt);  // colour only
  EXPECT_EQ(ElevationAt(broken, 0, -135), std::nullopt);
}

}  // namespace
}  // namespace vmp
