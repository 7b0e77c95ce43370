#include "map_server/tools/image_tiler.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "map_server/dataset/layer.h"
#include "map_server/image/image_loader.h"
#include "map_server/image/jpeg_writer.h"
#include "map_server/image/tiff_writer.h"
#include "tests/image/test_images.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::TempDir;
using Texts = std::vector<std::string>;

enum class Input { kRgbTiff, kRgbaTiff, kGrayPng, kSignedElevation };

// The fill colour is process-wide: set for each test, then reset.
class ImageTilerTest : public ::testing::Test {
 protected:
  void SetUp() override { ImageTiler().fill_colour = TileFillColour{10, 20, 30, 255}; }
  void TearDown() override { ImageTiler().fill_colour.reset(); }
  TempDir dir_;
};

// Writes the input image; returns its path and the pixels it holds (bytes
// of 1, 3 or 4 samples, or native 16-bit samples).
std::string WriteInput(const TempDir& dir, Input kind, int w, int h, std::vector<uint8_t>* pixels) {
  switch (kind) {
    case Input::kRgbTiff:
    case Input::kRgbaTiff: {
      const bool alpha = kind == Input::kRgbaTiff;
      *pixels = test::Pattern(w, h, alpha ? 4 : 3);
      // Opaque and clear pixels: the TIFF reader's premultiplied decoding
      // keeps them exact (a clear pixel's colour reads as 0).
      for (size_t p = 3; alpha && p < pixels->size(); p += 8) {
        (*pixels)[p - 3] = (*pixels)[p - 2] = (*pixels)[p - 1] = (*pixels)[p] = 0;
        if (p + 4 < pixels->size()) (*pixels)[p + 4] = 255;
      }
      EXPECT_TRUE(VmpWriteTiff(nullptr, dir / "in.tif", pixels->data(), w, h, 0, alpha));
      return dir / "in.tif";
    }
    case Input::kGrayPng: {
      *pixels = test::Pattern(w, h, 1);
      test::PngLayout layout{static_cast<uint32_t>(w), static_cast<uint32_t>(h), PNG_COLOR_TYPE_GRAY};
      layout.row_bytes = w;
      EXPECT_TRUE(test::WritePng(dir / "in.png", layout, pixels->data()));
      return dir / "in.png";
    }
    case Input::kSignedElevation: {
      std::vector<int16_t> samples(static_cast<size_t>(w) * h);
      for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<int16_t>(i * 37 - 300);
      pixels->resize(samples.size() * 2);
      std::memcpy(pixels->data(), samples.data(), pixels->size());
      test::TiffLayout layout{static_cast<uint32_t>(w), static_cast<uint32_t>(h), 1, 16,
                              PHOTOMETRIC_MINISBLACK};
      layout.sample_format = SAMPLEFORMAT_INT;
      EXPECT_TRUE(test::WriteTiff(dir / "in.tif", layout, samples.data()));
      return dir / "in.tif";
    }
  }
  return "";
}

// Tiles of every kind decode to the image's pixels, padded with the fill
// colour (zero for elevation) past the right and bottom edges.
TEST_F(ImageTilerTest, TilesDecodeToTheImageAndPadding) {
  struct Case {
    Input input;
    int width, height, nx, ny;
    int tile_width, tile_height;
  } cases[] = {
      {Input::kRgbTiff, 10, 7, 3, 2, 4, 4},
      {Input::kRgbaTiff, 5, 5, 2, 2, 3, 3},
      {Input::kGrayPng, 7, 3, 4, 1, 2, 3},
      {Input::kSignedElevation, 9, 4, 2, 1, 5, 4},
      {Input::kRgbTiff, 6, 5, 1, 1, 6, 5},  // one tile: the whole image
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " in " << c.nx << "x" << c.ny);
    TempDir dir;
    std::vector<uint8_t> image;
    const std::string input = WriteInput(dir, c.input, c.width, c.height, &image);
    const bool elevation = c.input == Input::kSignedElevation;
    const int in_bytes = elevation ? 2 : c.input == Input::kGrayPng ? 1 : c.input == Input::kRgbaTiff ? 4 : 3;
    const int out_bytes = elevation ? 2 : c.input == Input::kRgbaTiff ? 4 : 3;
    MessageCapture capture;
    ASSERT_TRUE(TileImage(input, dir / "t_%_%.tif", c.nx, c.ny, elevation, 0));
    EXPECT_EQ(capture.Texts(), Texts{});
    for (int i = 0; i < c.nx; ++i) {
      for (int j = 0; j < c.ny; ++j) {
        LoadedImage tile;
        ASSERT_TRUE(LoadImageFile(ExpandTileName(dir / "t_%_%.tif", i, j), 0, elevation, tile));
        ASSERT_EQ(tile.width, c.tile_width);
        ASSERT_EQ(tile.height, c.tile_height);
        EXPECT_EQ(tile.signed_elevation, elevation);
        const uint8_t* got = elevation ? reinterpret_cast<const uint8_t*>(tile.elevation_samples.data())
                                       : tile.pixels.data();
        const uint8_t fill[4] = {10, 20, 30, 255};
        for (int y = 0; y < c.tile_height; ++y) {
          for (int x = 0; x < c.tile_width; ++x) {
            const int ix = i * c.tile_width + x, iy = j * c.tile_height + y;
            const bool inside = ix < c.width && iy < c.height;
            for (int s = 0; s < out_bytes; ++s) {
              const uint8_t* src = image.data() + (static_cast<size_t>(iy) * c.width + ix) * in_bytes;
              const uint8_t want = !inside ? (elevation ? 0 : fill[s]) : src[in_bytes == 1 ? 0 : s];
              ASSERT_EQ(got[(static_cast<size_t>(y) * c.tile_width + x) * out_bytes + s], want)
                  << "tile " << i << "," << j << " pixel " << x << "," << y << " sample " << s;
            }
          }
        }
      }
    }
  }
}

TEST_F(ImageTilerTest, JpegTilesArePaddedWithTheFillColour) {
  ImageTiler().fill_colour = TileFillColour{0, 0, 0, 0};
  std::vector<uint8_t> gray(10 * 10 * 3, 128);
  ASSERT_TRUE(WriteMapJpeg(nullptr, dir_ / "in.jpg", gray.data(), 10, 10));
  MessageCapture capture;
  ASSERT_TRUE(TileImage(dir_ / "in.jpg", dir_ / "t_%_%.jpg", 3, 3, false, 0));
  LoadedImage corner;
  ASSERT_TRUE(LoadImageFile(dir_ / "t_2_2.jpg", 0, false, corner));
  ASSERT_EQ(corner.width, 4);  // 10 pixels in 3 tiles of 4; the last uses 2
  EXPECT_GT(corner.pixels[0], 90);                        // image pixel
  EXPECT_LT(corner.pixels[(3 * 4 + 3) * 3], 40);          // padding
  EXPECT_EQ(ImageFormatFromName(dir_ / "t_0_0.jpg"), kJpegFormat);
}

// Refused runs write no tile at all.
TEST_F(ImageTilerTest, RefusedRunsWriteNothing) {
  std::vector<uint8_t> pixels;
  WriteInput(dir_, Input::kGrayPng, 10, 4, &pixels);
  WriteInput(dir_, Input::kRgbTiff, 10, 4, &pixels);
  struct Case {
    const char* input;
    const char* output;
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
  for (const Case& c : cases) {
    MessageCapture capture;
    EXPECT_FALSE(TileImage(dir_ / c.input, dir_ / c.output, c.nx, 1, c.elevation, 1)) << c.output;
    ASSERT_FALSE(capture.Texts().empty());
    EXPECT_EQ(capture.Texts()[0].rfind(c.message, 0), 0u) << capture.Texts()[0];
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      EXPECT_NE(entry.path().filename().string().rfind("o_", 0), 0u) << entry.path();
    }
  }
}

TEST_F(ImageTilerTest, AFailedTileLeavesTheOthersWritten) {
  std::vector<uint8_t> pixels;
  const std::string input = WriteInput(dir_, Input::kRgbTiff, 4, 4, &pixels);
  std::filesystem::create_directory(dir_ / "t_0_1.tif");  // the tile cannot be created
  MessageCapture capture;
  EXPECT_FALSE(TileImage(input, dir_ / "t_%_%.tif", 2, 2, false, 0));
  EXPECT_EQ(capture.Texts(), Texts{"Error: Could not be opened for writing: " + dir_ / "t_0_1.tif"});
  for (const char* name : {"t_0_0.tif", "t_1_0.tif", "t_1_1.tif"}) {
    EXPECT_TRUE(test::FileExists(dir_ / name)) << name;
  }
}

TEST_F(ImageTilerTest, FillColourFromTheEnvironment) {
  struct Case {
    const char* text;
    std::optional<TileFillColour> colour;
  } cases[] = {
      {"1,2,3", TileFillColour{1, 2, 3, 0}},     {"255 0 7 255", TileFillColour{255, 0, 7, 255}},
      {" 4, 5,6 ,7 ", TileFillColour{4, 5, 6, 7}}, {"256,0,0", std::nullopt},
      {"1,2", std::nullopt},                     {"1,2,3,4,5", std::nullopt},
      {"1,-2,3", std::nullopt},                  {"red", std::nullopt},
  };
  for (const Case& c : cases) EXPECT_EQ(ParseTileFillColour(c.text), c.colour) << c.text;

  ImageTiler().fill_colour.reset();
  setenv("VMP_TILE_FILL_COLOR", "9,8,7,6", 1);
  EXPECT_EQ(TileFill(), (TileFillColour{9, 8, 7, 6}));
  setenv("VMP_TILE_FILL_COLOR", "1,1,1", 1);
  EXPECT_EQ(TileFill(), (TileFillColour{9, 8, 7, 6}));  // fixed on first use
  ImageTiler().fill_colour.reset();
  setenv("VMP_TILE_FILL_COLOR", "white", 1);
  MessageCapture capture;
  EXPECT_EQ(TileFill(), TileFillColour{});
  EXPECT_EQ(capture.Texts(), Texts{"Warning: Invalid VMP_TILE_FILL_COLOR, black is used: white"});
  unsetenv("VMP_TILE_FILL_COLOR");
}

}  // namespace
}  // namespace vmp
