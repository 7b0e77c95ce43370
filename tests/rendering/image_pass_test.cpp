#include "map_server/rendering/image_pass.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Rgb3 = std::array<int, 3>;

// A colour tile (samples per pixel 3 or 4) or a 16-bit elevation tile,
// pixels given row by row.
LoadedImage Tile(int64_t w, int64_t h, int samples, std::vector<uint8_t> pixels) {
  LoadedImage image;
  image.width = w;
  image.height = h;
  image.samples_per_pixel = samples;
  image.pixels.Resize(pixels.size());
  std::copy(pixels.begin(), pixels.end(), image.pixels.data());
  return image;
}
LoadedImage ElevationTile(int64_t w, int64_t h, bool is_signed, std::vector<uint16_t> samples) {
  LoadedImage image = Tile(w, h, 1, {});
  image.elevation = true;
  image.signed_elevation = is_signed;
  image.elevation_samples.Resize(samples.size());
  std::copy(samples.begin(), samples.end(), image.elevation_samples.data());
  return image;
}

Rgb3 At(const MapImage& image, int64_t x, int64_t y) {
  const uint8_t* p = test::Pixel(image, x, y);
  return {p[0], p[1], p[2]};
}

// 8 x 4 pixels over lon 0..4, lat 0..2: pixel (x, y) samples tile pixel
// (x / 2, y / 2) of a 4 x 2 tile with these bounds.
MapGeometry TwoPixelsPerTilePixel() { return test::RectGeometry(0.25, 1.75, 2, 8, 4); }
const Box kTileBounds{0, 4, 0, 2};

struct Pass {
  MapImage image;
  ImagePassScratch scratch;
};

void RunPass(Pass& pass, const MapGeometry& g, std::vector<ImageLayerInput> layers) {
  test::FillImage(g, pass.image);
  DrawSurface surface(&pass.image, g);
  DrawImageLayers(surface, pass.scratch, layers);
}

TEST(ImagePassTest, NearestPixelOfTheTile) {
  LoadedImage tile = Tile(4, 2, 3, {0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3,  //
                                    4, 4, 4, 5, 5, 5, 6, 6, 6, 7, 7, 7});
  const ImageTileRef tiles[] = {{&tile, kTileBounds}};
  ImageLayerInput layer{"world", kTransOpaque, 1.0, {}, 0.0, tiles};
  Pass pass;
  MapGeometry g = TwoPixelsPerTilePixel();
  RunPass(pass, g, {layer});
  for (int64_t y = 0; y < 4; ++y) {
    for (int64_t x = 0; x < 8; ++x) {
      const int v = static_cast<int>(4 * (y / 2) + x / 2);
      EXPECT_EQ(At(pass.image, x, y), (Rgb3{v, v, v})) << x << "," << y;
    }
  }
}

TEST(ImagePassTest, LayersInOrderThroughTheirKinds) {
  LoadedImage base = Tile(1, 1, 3, {100, 200, 50});
  // RGB over the base: XOR at full alpha.
  LoadedImage xor_tile = Tile(1, 1, 3, {200, 100, 0});
  // Kind 5 with a transparent colour: the left half (exact match) and a
  // pixel within the precision are left alone.
  LoadedImage keyed = Tile(4, 1, 3, {0, 255, 0, 0, 255, 0, 3, 250, 2, 9, 9, 9});
  // Alpha samples: 0 draws nothing, 255 copies, 51 blends a fifth.
  LoadedImage alpha = Tile(4, 1, 4, {255, 0, 0, 0, 0, 255, 255, 255, 3, 3, 3, 51, 0, 0, 0, 255});
  const ImageTileRef base_tiles[] = {{&base, kTileBounds}};
  const ImageTileRef xor_tiles[] = {{&xor_tile, kTileBounds}};
  const ImageTileRef keyed_tiles[] = {{&keyed, kTileBounds}};
  const ImageTileRef alpha_tiles[] = {{&alpha, kTileBounds}};
  const ImageLayerInput base_layer{"base", kTransOpaque, 1.0, {}, 0.0, base_tiles};
  MapGeometry g = TwoPixelsPerTilePixel();
  Pass pass;

  RunPass(pass, g, {base_layer, {"xor", kTransXor, 1.0, {}, 0.0, xor_tiles}});
  EXPECT_EQ(At(pass.image, 3, 1), (Rgb3{172, 172, 50}));

  RunPass(pass, g, {base_layer, {"keyed", kTransColourOpaque, 1.0, {0, 255, 0}, 6.0 / 255, keyed_tiles}});
  EXPECT_EQ(At(pass.image, 0, 0), (Rgb3{100, 200, 50}));
  EXPECT_EQ(At(pass.image, 2, 0), (Rgb3{100, 200, 50}));
  EXPECT_EQ(At(pass.image, 4, 0), (Rgb3{100, 200, 50}));  // within 6 of (0, 255, 0)
  EXPECT_EQ(At(pass.image, 6, 0), (Rgb3{9, 9, 9}));

  RunPass(pass, g, {base_layer, {"alpha", kTransOpaque, 1.0, {}, 0.0, alpha_tiles}});
  EXPECT_EQ(At(pass.image, 0, 0), (Rgb3{100, 200, 50}));
  EXPECT_EQ(At(pass.image, 2, 0), (Rgb3{0, 255, 255}));
  EXPECT_EQ(At(pass.image, 4, 0), (Rgb3{80, 160, 40}));  // 0.8 p + 0.2 * 3, truncated
  // The layer's Alpha scales the sample's.
  RunPass(pass, g, {base_layer, {"alpha", kTransOpaque, 0.5, {}, 0.0, alpha_tiles}});
  EXPECT_EQ(At(pass.image, 2, 0), (Rgb3{50, 227, 152}));
}

TEST(ImagePassTest, ManyTilesWrappedLongitudesAndTilesWithErrors) {
  // A 3 x 3 grid of one-pixel tiles over lon 0..3, lat 0..3; the middle one
  // has errors. A fourth tile stores lon -1..0 as 359..360.
  std::vector<LoadedImage> images;
  for (int i = 0; i < 10; ++i) images.push_back(Tile(1, 1, 3, {uint8_t(10 * i), 0, 0}));
  std::vector<ImageTileRef> tiles;
  for (int i = 0; i < 9; ++i) {
    const double lon = i % 3, lat = i / 3;
    tiles.push_back({&images[i], {lon, lon + 1, lat, lat + 1}, i == 4});
  }
  tiles.push_back({&images[9], {359, 360, 0, 3}});
  // 5 x 3 pixels at lon -1..3 (centres -0.5, 0.5, ...), lat 2.5 .. 0.5.
  MapGeometry g = test::RectGeometry(-0.5, 2.5, 1, 5, 3);
  Pass pass;
  test::MessageCapture capture;
  RunPass(pass, g, {{"grid", kTransOpaque, 1.0, {}, 0.0, tiles}});
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: Skipping image tiles with errors: grid"});
  for (int64_t y = 0; y < 3; ++y) {
    EXPECT_EQ(At(pass.image, 0, y)[0], 90);
    for (int64_t x = 1; x < 4; ++x) {
      const int tile = static_cast<int>((2 - y) * 3 + (x - 1));
      if (tile == 4)
        EXPECT_TRUE(test::IsBackground(pass.image, x, y));
      else
        EXPECT_EQ(At(pass.image, x, y)[0], 10 * tile) << x << "," << y;
    }
    EXPECT_TRUE(test::IsBackground(pass.image, 4, y));  // lon 3.5: no tile
  }
}

TEST(ImagePassTest, GlobeRowsCountFromTheBottom) {
  // North half white, south half black.
  LoadedImage world = Tile(2, 2, 3, {255, 255, 255, 255, 255, 255, 0, 0, 0, 0, 0, 0});
  const ImageTileRef tiles[] = {{&world, {-180, 180, -90, 90}}};
  MapGeometry g = test::GlobeGeometry(45, 0, 41);
  Pass pass;
  RunPass(pass, g, {{"world", kTransOpaque, 1.0, {}, 0.0, tiles}});
  for (int64_t y = 0; y < 41; ++y) {
    for (int64_t x = 0; x < 41; ++x) {
      const LatLonPoint p = test::PixelLatLon(g, x, y);
      if (!p.ok) {
        EXPECT_TRUE(test::IsBackground(pass.image, x, y));
        continue;
      }
      // Latitude 0 itself is the first row of the southern half.
      EXPECT_EQ(At(pass.image, x, y), (p.lat > 0 ? Rgb3{255, 255, 255} : Rgb3{0, 0, 0})) << x << "," << y;
    }
  }
  EXPECT_EQ(At(pass.image, 20, 2), (Rgb3{255, 255, 255}));  // the north is up
}

TEST(ImagePassTest, RunsOfAdjacentImageLayers) {
  const LayerSlot image{kLayerImage, true}, off{kLayerImage, false}, vector{kLayerVector, true},
      off_vector{kLayerVector, false};
  struct Case {
    std::vector<LayerSlot> slots;
    size_t start;
    std::vector<size_t> layers;
    size_t intervening, tail, next;
  } cases[] = {
      {{image, image, image}, 0, {0, 1, 2}, 0, 0, 3},
      {{image, off, off_vector, image, off, vector, image}, 0, {0, 3}, 2, 1, 5},
      {{image, off, off}, 0, {0}, 0, 2, 3},
  };
  for (const Case& c : cases) {
    const ImageLayerRun run = FindImageLayerRun(c.slots, c.start);
    EXPECT_EQ(run.layers, c.layers);
    EXPECT_EQ(run.intervening_inactive, c.intervening);
    EXPECT_EQ(run.skipped_inactive_tail, c.tail);
    EXPECT_EQ(run.next, c.next);
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
  LoadedImage dem = ElevationTile(4, 1, true, {uint16_t(int16_t{-5}), 1200, 0x8000, 7});
  LoadedImage unsigned_dem = ElevationTile(1, 1, false, {60000});
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
