#include "map_server/tools/image_tiler.h"
#include "map_server/tools/tile_info.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "map_server/dataset/layer.h"
#include "map_server/image/image_loader.h"
#include "map_server/image/tiff_writer.h"
#include "tests/image/test_images.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::TempDir;
using Texts = std::vector<std::string>;

constexpr int kElevation = 2;  // "samples" of a signed 16-bit grid: two bytes a pixel

// Writes a pattern image with 1 (gray PNG), 3 or 4 (TIFF) samples, or a
// signed elevation TIFF, and returns its bytes.
std::vector<uint8_t> WriteInput(const std::string& path, int samples, int w, int h) {
  std::vector<uint8_t> pixels = test::Pattern(w, h, samples);
  if (samples == 1) {
    test::PngLayout layout{static_cast<uint32_t>(w), static_cast<uint32_t>(h), PNG_COLOR_TYPE_GRAY};
    layout.row_bytes = w;
    EXPECT_TRUE(test::WritePng(path, layout, pixels.data()));
  } else if (samples == kElevation) {
    test::TiffLayout layout{static_cast<uint32_t>(w), static_cast<uint32_t>(h), 1, 16, PHOTOMETRIC_MINISBLACK};
    layout.sample_format = SAMPLEFORMAT_INT;
    EXPECT_TRUE(test::WriteTiff(path, layout, pixels.data()));
  } else {
    // Clear pixels (colour 0) next to opaque ones: the TIFF reader's
    // premultiplied decoding keeps both exact.
    for (size_t p = 0; samples == 4 && p < pixels.size(); p += 4) {
      if (p % 8 == 0) std::fill_n(pixels.begin() + p, 4, 0);
      else pixels[p + 3] = 255;
    }
    EXPECT_TRUE(VmpWriteTiff(nullptr, path, pixels.data(), w, h, 0, samples == 4));
  }
  return pixels;
}

// Every tile decodes to its part of the image, padded past the right and
// bottom edges with the fill colour (zero for elevation). The last case is
// one tile written straight from the image.
TEST(ImageTilerTest, TilesDecodeToTheImageAndPadding) {
  ImageTiler().fill_colour = TileFillColour{10, 20, 30, 255};
  const uint8_t fill[4] = {10, 20, 30, 255};
  struct Case {
    int samples, width, height, nx, ny, tile_width, tile_height;
  } cases[] = {{3, 10, 7, 3, 2, 4, 4}, {4, 5, 5, 2, 2, 3, 3}, {1, 7, 3, 4, 1, 2, 3},
               {kElevation, 9, 4, 2, 1, 5, 4}, {3, 6, 5, 1, 1, 6, 5}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.samples << ": " << c.width << " in " << c.nx);
    TempDir dir;
    const std::string input = dir / (c.samples == 1 ? "in.png" : "in.tif");
    const std::vector<uint8_t> image = WriteInput(input, c.samples, c.width, c.height);
    const bool elevation = c.samples == kElevation;
    const int out_bytes = c.samples == 1 ? 3 : c.samples;
    MessageCapture capture;
    ASSERT_TRUE(TileImage(input, dir / "t_%_%.tif", c.nx, c.ny, elevation, 0));
    EXPECT_EQ(capture.Texts(), Texts{});
    for (int i = 0; i < c.nx; ++i) {
      for (int j = 0; j < c.ny; ++j) {
        LoadedImage tile;
        ASSERT_TRUE(LoadImageFile(ExpandTileName(dir / "t_%_%.tif", i, j), 0, elevation, tile));
        ASSERT_EQ(std::make_pair(tile.width, tile.height), (std::pair<int64_t, int64_t>(c.tile_width, c.tile_height)));
        EXPECT_EQ(tile.signed_elevation, elevation);
        const uint8_t* got = elevation ? reinterpret_cast<const uint8_t*>(tile.elevation_samples.data())
                                       : tile.pixels.data();
        for (int y = 0; y < c.tile_height; ++y) {
          for (int x = 0; x < c.tile_width; ++x) {
            const int ix = i * c.tile_width + x, iy = j * c.tile_height + y;
            const bool inside = ix < c.width && iy < c.height;
            const uint8_t* src = image.data() + (static_cast<size_t>(iy) * c.width + ix) * c.samples;
            for (int s = 0; s < out_bytes; ++s) {
              const uint8_t want = inside ? src[c.samples == 1 ? 0 : s] : elevation ? 0 : fill[s];
              ASSERT_EQ(*got++, want) << "tile " << i << "," << j << " pixel " << x << "," << y;
            }
          }
        }
      }
    }
  }
  ImageTiler().fill_colour.reset();
}

// Refused runs write no tile; a tile that fails leaves the others written.
TEST(ImageTilerTest, RefusalsAndFailedTiles) {
  TempDir dir;
  WriteInput(dir / "in.png", 1, 10, 4);
  WriteInput(dir / "in.tif", 3, 10, 4);
  const struct {
    const char *input, *output;
    bool elevation;
    int nx;
    std::string message;
  } cases[] = {
      {"in.tif", "o_%_%.png", false, 2, "Error: PNG is not supported for tiling output, use TIFF.: "},
      {"in.tif", "o_%_%.jpg", true, 2, "Error: Only TIFF format is supported for elevation data."},
      {"in.png", "o_%_%", false, 2, "Error: Only JPEG and TIF are supported for tiling output.: "},
      {"none.tif", "o_%_%.tif", false, 2, "Error: Could not be opened: "},
      {"in.tif", "o_%_%.tif", false, 11, "Error: Tile counts must lie between 1 and the image size"},
  };
  for (const auto& c : cases) {
    MessageCapture capture;
    EXPECT_FALSE(TileImage(dir / c.input, dir / c.output, c.nx, 1, c.elevation, 1)) << c.output;
    ASSERT_FALSE(capture.Texts().empty());
    EXPECT_EQ(capture.Texts()[0].rfind(c.message, 0), 0u) << capture.Texts()[0];
    for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
      EXPECT_NE(entry.path().filename().string().rfind("o_", 0), 0u) << entry.path();
    }
  }
  std::filesystem::create_directory(dir / "t_0_1.tif");  // this tile cannot be created
  MessageCapture capture;
  EXPECT_FALSE(TileImage(dir / "in.tif", dir / "t_%_%.tif", 2, 2, false, 0));
  EXPECT_EQ(capture.Texts(), Texts{"Error: Could not be opened for writing: " + dir / "t_0_1.tif"});
  for (const char* name : {"t_0_0.tif", "t_1_0.tif", "t_1_1.tif"}) EXPECT_TRUE(test::FileExists(dir / name));
}

// Read once, on first use; a bad value gives black.
TEST(ImageTilerTest, FillColourFromTheEnvironment) {
  const std::pair<const char*, std::optional<TileFillColour>> cases[] = {
      {" 9 8,7,6 ", TileFillColour{9, 8, 7, 6}}, {"1,2,3", TileFillColour{1, 2, 3, 0}},
      {"1,2,256", std::nullopt}, {"1,2", std::nullopt}, {"1,-2,3,4,5", std::nullopt}};
  for (const auto& [text, colour] : cases) {
    ImageTiler().fill_colour.reset();
    setenv("VMP_TILE_FILL_COLOR", text, 1);
    MessageCapture capture;
    EXPECT_EQ(TileFill(), colour.value_or(TileFillColour{})) << text;
    EXPECT_EQ(capture.Count("Invalid VMP_TILE_FILL_COLOR, black is used: "), colour ? 0u : 1u) << text;
    setenv("VMP_TILE_FILL_COLOR", "1,1,1", 1);
    EXPECT_EQ(TileFill(), colour.value_or(TileFillColour{}));
  }
  unsetenv("VMP_TILE_FILL_COLOR");
  ImageTiler().fill_colour.reset();
}

// 1000 x 100 pixels in 3 x 3 tiles of 334 x 34: a whole tile spans 334
// pixels of longitude (120.24 degrees) and 34 of latitude (3.4 degrees); the
// last column and row end at the image's edge and carry their used size.
TEST(TileInfoTest, FileTextAndEdgeTiles) {
  TempDir dir;
  ASSERT_TRUE(WriteTileInfoFiles(dir / "i_%_%.slf", "t_%_%.jpg", 1000, 100, 3, 3, 0, 10, -180, 180, 0));
  const std::string head = "# file generated by a vmp parsing utility\n";
  EXPECT_EQ(test::ReadFile(dir / "i_1_1.slf"), head + "MIN LAT=3.200000\nMAX LAT=6.600000\n"
            "MIN LON=-59.760000\nMAX LON=60.480000\nFILENAME=t_1_1.jpg\n");
  EXPECT_EQ(test::ReadFile(dir / "i_2_2.slf"), head + "MIN LAT=0.000000\nMAX LAT=3.200000\n"
            "MIN LON=60.480000\nMAX LON=180.000000\nUSED WIDTH=332\nUSED HEIGHT=32\nFILENAME=t_2_2.jpg\n");
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      const std::string text = test::ReadFile(ExpandTileName(dir / "i_%_%.slf", i, j));
      EXPECT_EQ(text.find("USED WIDTH=332\n") != std::string::npos, i == 2) << i << "," << j;
      EXPECT_EQ(text.find("USED HEIGHT=32\n") != std::string::npos, j == 2) << i << "," << j;
      EXPECT_NE(text.find("FILENAME=" + ExpandTileName("t_%_%.jpg", i, j) + "\n"), std::string::npos);
    }
  }
}

// The data files are looked for from verbosity 1 on.
TEST(TileInfoTest, MissingDataFilesAndFailures) {
  TempDir dir;
  dir.Write("t_0_0.jpg", "x");
  MessageCapture capture;
  ASSERT_TRUE(WriteTileInfoFile(dir / "a.slf", "none.jpg", 0, 1, 0, 1, 0, 0));
  kav::Messages().verbosity = 1;
  ASSERT_TRUE(WriteTileInfoFile(dir / "b.slf", "t_0_0.jpg", 0, 1, 0, 1, 0, 0));
  ASSERT_TRUE(WriteTileInfoFile(dir / "c.slf", "my tile.jpg", 0, 1, 0, 1, 0, 0));
  EXPECT_NE(test::ReadFile(dir / "c.slf").find("FILENAME=\"my tile.jpg\"\n"), std::string::npos);
  EXPECT_FALSE(WriteTileInfoFiles(dir / "no/i_%_%.slf", "t.jpg", 10, 10, 2, 2, 0, 1, 0, 1, 0));
  EXPECT_FALSE(WriteTileInfoFiles(dir / "i_%_%.slf", "t.jpg", 10, 10, 0, 2, 0, 1, 0, 1, 0));
  EXPECT_EQ(capture.Texts(), (Texts{"Warning: Data file not found: my tile.jpg",
                                    "Error: Could not open tile info file: " + dir / "no/i_0_0.slf",
                                    "Error: Tile counts must lie between 1 and the image size: 0 x 2 "
                                    "tiles of 10 x 10 pixels"}));
}

}  // namespace
}  // namespace vmp
