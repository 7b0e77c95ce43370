#include "map_server/image/image_loader.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <functional>

#include "map_server/image/image_settings.h"
#include "map_server/image/jpeg_writer.h"
#include "map_server/image/tiff_writer.h"
#include "tests/image/test_images.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::TempDir;

std::vector<uint8_t> Bytes(const LoadedImage& image) {
  return std::vector<uint8_t>(image.pixels.data(), image.pixels.data() + image.pixels.size());
}

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

TEST(ImageLoaderTest, PngLayouts) {
  TempDir dir;
  const uint32_t w = 13, h = 7;
  const std::vector<png_color> palette = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {9, 8, 7}};
  std::vector<uint8_t> indices(w * h), palette_rgb, palette_rgba, gray = test::Pattern(w, h, 1),
                                                                  gray_rgba;
  for (size_t i = 0; i < indices.size(); ++i) {
    const uint8_t k = indices[i] = static_cast<uint8_t>(i % 4);
    palette_rgb.insert(palette_rgb.end(), {palette[k].red, palette[k].green, palette[k].blue});
    palette_rgba.insert(palette_rgba.end(), {palette[k].red, palette[k].green, palette[k].blue,
                                             static_cast<uint8_t>(k == 1 ? 0 : 255)});
    gray_rgba.insert(gray_rgba.end(), {gray[i], gray[i], gray[i],
                                       static_cast<uint8_t>(gray[i] == gray[5] ? 0 : 255)});
  }
  const std::vector<uint8_t> rgb = test::Pattern(w, h, 3), rgba = test::Pattern(w, h, 4);
  struct Case {
    const char* name;
    test::PngLayout layout;
    const std::vector<uint8_t>& data;
    int samples;
    const std::vector<uint8_t>& expected;
  } cases[] = {// clang-format off
      {"gray", {.color_type = PNG_COLOR_TYPE_GRAY, .row_bytes = w}, gray, 1, gray},
      {"rgb", {.row_bytes = w * 3}, rgb, 3, rgb},
      {"rgb interlaced", {.row_bytes = w * 3, .interlaced = true}, rgb, 3, rgb},
      {"rgba", {.color_type = PNG_COLOR_TYPE_RGBA, .row_bytes = w * 4}, rgba, 4, rgba},
      // A palette decodes to RGB, or RGBA when it has transparency.
      {"palette", {.color_type = PNG_COLOR_TYPE_PALETTE, .row_bytes = w, .palette = palette}, indices, 3, palette_rgb},
      {"palette with alpha", {.color_type = PNG_COLOR_TYPE_PALETTE, .row_bytes = w, .palette = palette,
                              .palette_alpha = {255, 0}}, indices, 4, palette_rgba},
      {"gray with a transparent value", {.color_type = PNG_COLOR_TYPE_GRAY, .row_bytes = w,
                                         .transparent_gray = gray[5]}, gray, 4, gray_rgba}};
  // clang-format on
  for (const Case& c : cases) {
    test::PngLayout layout = c.layout;
    layout.width = w;
    layout.height = h;
    ASSERT_TRUE(test::WritePng(dir / "image.png", layout, c.data.data())) << c.name;
    MessageCapture capture;
    LoadedImage image;
    ASSERT_TRUE(LoadImageFile(dir / "image.png", kImageFormatFromName, false, image)) << c.name;
    EXPECT_TRUE(capture.messages().empty()) << c.name;
    EXPECT_EQ(image.format, kPngFormat);
    EXPECT_EQ(image.width * 100 + image.height, w * 100 + h);
    EXPECT_EQ(image.samples_per_pixel, c.samples) << c.name;
    EXPECT_EQ(image.has_alpha, c.samples == 4) << c.name;
    EXPECT_EQ(Bytes(image), c.expected) << c.name;
  }
}

TEST(ImageLoaderTest, TiffLayouts) {
  TempDir dir;
  const uint32_t w = 45, h = 70;
  const std::vector<uint8_t> rgb = test::Pattern(w, h, 3);
  std::vector<uint8_t> flipped(rgb.size()), rgba = test::Pattern(w, h, 4);
  for (uint32_t y = 0; y < h; ++y)
    std::memcpy(&flipped[y * w * 3], &rgb[(h - 1 - y) * w * 3], w * 3);
  // Alpha 0 and 255 come back exactly (colour under alpha 0 comes back as 0).
  for (size_t i = 0; i < rgba.size(); i += 4) {
    rgba[i + 3] = (i / 4) % 3 == 0 ? 0 : 255;
    if (rgba[i + 3] == 0) rgba[i] = rgba[i + 1] = rgba[i + 2] = 0;
  }
  std::vector<int16_t> dem(w * h);
  for (size_t i = 0; i < dem.size(); ++i) dem[i] = static_cast<int16_t>(int(i) * 37 - 5000);
  // clang-format off
  const test::TiffLayout signed_dem{.width = w, .height = h, .samples = 1, .bits = 16,
                                  .photometric = PHOTOMETRIC_MINISBLACK, .compression = COMPRESSION_ADOBE_DEFLATE,
                                  .sample_format = SAMPLEFORMAT_INT, .rows_per_strip = 8};
  // clang-format on
  test::TiffLayout dem_tiles = signed_dem;
  dem_tiles.tile_size = 32;
  struct Case {
    const char* name;
    int writer_kind;  // -1: written by the test with `layout`, else VmpWriteTiff's kind
    test::TiffLayout layout;
    const void* data;  // as written
    const void* expected;
    int samples;
  } cases[] = {// clang-format off
      {"writer rgb", 0, {}, rgb.data(), rgb.data(), 3},
      {"writer rgba", 0, {}, rgba.data(), rgba.data(), 4},
      {"writer elevation", kTiffElevationKind, {}, dem.data(), dem.data(), 1},
      {"lzw strips", -1, {.width = w, .height = h, .compression = COMPRESSION_LZW, .rows_per_strip = 9},
       rgb.data(), rgb.data(), 3},
      {"tiles", -1, {.width = w, .height = h, .tile_size = 32}, rgb.data(), rgb.data(), 3},
      {"bottom-up", -1, {.width = w, .height = h, .orientation = ORIENTATION_BOTLEFT, .rows_per_strip = 4},
       flipped.data(), rgb.data(), 3},
      {"signed elevation", -1, signed_dem, dem.data(), dem.data(), 1},
      {"signed elevation tiles", -1, dem_tiles, dem.data(), dem.data(), 1}};
  // clang-format on
  for (const Case& c : cases) {
    const std::string path = dir / "t.tif";
    const bool elevation = c.samples == 1;
    ASSERT_TRUE(c.writer_kind < 0
                    ? test::WriteTiff(path, c.layout, c.data)
                    : VmpWriteTiff(nullptr, path, c.data, w, h, c.writer_kind, c.samples == 4));
    MessageCapture capture;
    LoadedImage image;
    ASSERT_TRUE(LoadImageFile(path, kImageFormatFromName, elevation, image)) << c.name;
    EXPECT_TRUE(capture.messages().empty()) << c.name;
    EXPECT_EQ(image.format, kTiffFormat);
    EXPECT_EQ(image.width * 100 + image.height, w * 100 + h);
    EXPECT_EQ(image.samples_per_pixel, c.samples) << c.name;
    EXPECT_EQ(image.elevation, elevation);
    EXPECT_EQ(image.signed_elevation, c.layout.sample_format == SAMPLEFORMAT_INT) << c.name;
    const void* loaded = elevation ? static_cast<const void*>(image.elevation_samples.data())
                                   : static_cast<const void*>(image.pixels.data());
    EXPECT_EQ(std::memcmp(loaded, c.expected, w * h * (elevation ? 2 : c.samples)), 0) << c.name;
  }
}

TEST(ImageLoaderTest, JpegRoundTrips) {
  TempDir dir;
  MessageCapture capture;
  const int w = 64, h = 48;
  std::vector<uint8_t> rgb(w * h * 3), gray(w * h);
  for (size_t i = 0; i < rgb.size(); ++i)
    rgb[i] = static_cast<uint8_t>(20 + (i / 3) % w + (i / 3) / w + (i % 3) * 30);
  for (size_t i = 0; i < gray.size(); ++i) gray[i] = rgb[i * 3];
  ASSERT_TRUE(WriteMapJpeg(nullptr, dir / "map.jpg", rgb.data(), w, h));
  ASSERT_TRUE(test::WriteGrayJpeg(dir / "gray.JPG", w, h, gray.data()));  // ending in capitals
  struct Case {
    const char* file;
    const std::vector<uint8_t>& expected;
    int samples;
  } cases[] = {{"map.jpg", rgb, 3}, {"gray.JPG", gray, 1}};
  for (const Case& c : cases) {
    LoadedImage image;
    ASSERT_TRUE(LoadImageFile(dir / c.file, kImageFormatFromName, false, image)) << c.file;
    EXPECT_EQ(image.format, kJpegFormat);
    EXPECT_EQ(image.width * 100 + image.height, w * 100 + h);
    EXPECT_EQ(image.samples_per_pixel, c.samples);
    ASSERT_EQ(image.pixels.size(), c.expected.size());
    int worst = 0;  // a smooth image survives within a few levels
    for (size_t i = 0; i < c.expected.size(); ++i)
      worst = std::max(worst, std::abs(image.pixels[i] - c.expected[i]));
    EXPECT_LE(worst, 8) << c.file;
  }
  EXPECT_TRUE(capture.messages().empty());
}

TEST(ImageLoaderTest, Refusals) {
  TempDir dir;
  const int w = 40, h = 30;
  const auto rgb = test::Pattern(w, h, 3);
  const std::vector<uint8_t> zeros(w * h * 8);
  using Maker = std::function<void(const std::string&)>;
  auto tiff = [&](uint16_t samples, uint16_t bits) -> Maker {
    test::TiffLayout layout{.width = w, .height = h, .samples = samples, .bits = bits};
    if (samples < 3) layout.photometric = PHOTOMETRIC_MINISBLACK;
    if (samples > 3) layout.extra_samples.assign(samples - 3, EXTRASAMPLE_UNSPECIFIED);
    return [=, &zeros](const std::string& p) { test::WriteTiff(p, layout, zeros.data()); };
  };
  auto png = [&](test::PngLayout layout) -> Maker {
    return [=, &zeros](const std::string& p) { test::WritePng(p, layout, zeros.data()); };
  };
  const Maker rgb_png = png({.width = w, .height = h, .row_bytes = w * 3});
  const Maker jpeg = [&](const std::string& p) { WriteMapJpeg(nullptr, p, rgb.data(), w, h); };
  const Maker rgb_tiff = [&](const std::string& p) {
    VmpWriteTiff(nullptr, p, rgb.data(), w, h, 0, false);
  };
  const Maker nothing = [](const std::string&) {};
  auto bytes = [](std::string contents) -> Maker {
    return [=](const std::string& p) { WriteBytes(p, contents); };
  };
  // The file cut to `keep` bytes (negative: that many fewer), or with bytes
  // 10..59 (the first strips of a TIFF) overwritten.
  auto damaged = [](Maker make, long keep, bool overwrite = false) -> Maker {
    return [=](const std::string& path) {
      make(path);
      std::string all = test::ReadFile(path);
      if (overwrite) std::fill(all.begin() + 10, all.begin() + 60, '\xff');
      WriteBytes(path, all.substr(0, keep >= 0 ? keep : all.size() + keep));
    };
  };
  const std::string jpeg_error = "Error: Error reading JPEG image: ";
  const std::string tiff_error = "Error: Error reading TIFF image: ";
  const std::string png_error = "Error reading PNG file.";  // through the toolkit: no path
  const std::string png_rows = "Internal Error: PNG row size mismatch.";
  struct Case {
    const char* name;
    Maker make;
    const char* file;
    int format;
    bool elevation;
    std::vector<std::string> texts;  // each message starts with its text
  } cases[] = {
      // clang-format off
      {"png elevation", rgb_png, "dem.png", 0, true, {"Error: Only TIFF format is supported for elevation data: "}},
      {"unknown ending", rgb_png, "image.gif", 0, false, {"Error: Unknown image format: "}},
      {"format code", rgb_png, "image.png", 7, false,
       {"Error: Only JPEG, TIF and PNG image type are currently supported: "}},
      {"missing file", nothing, "missing.tif", 0, false, {"Error: Could not be opened: "}},
      {"five samples", tiff(5, 8), "five.tif", 0, false, {"Error: Unsupported TIFF with samples_per_pixel > 4: "}},
      {"16-bit colour", tiff(3, 16), "deep.tif", 0, false, {"Error: Unsupported TIFF with bits_per_sample != 8: "}},
      {"rgb as elevation", rgb_tiff, "rgb.tif", 0, true,
       {"Error: Invalid samples per pixel: ", "Error: Invalid elevation data format: samples_per_pixel > 1: "}},
      {"8-bit elevation", tiff(1, 8), "gray.tif", 0, true,
       {"Error: Invalid bits per sample: ", "Error: Unsupported elevation TIFF with bits_per_sample != 16: "}},
      {"empty jpeg", bytes(""), "empty.jpg", 0, false, {jpeg_error}},
      {"jpeg cut in its header", damaged(jpeg, 200), "cut.jpg", 0, false, {jpeg_error}},
      {"png read as jpeg", rgb_png, "png.dat", kJpegFormat, false, {jpeg_error}},
      {"garbage tiff", bytes("II*"), "garbage.tif", 0, false, {tiff_error}},
      {"tiff cut before its directory", damaged(rgb_tiff, 60), "cut.tif", 0, false, {tiff_error}},
      {"corrupt deflate data", damaged(rgb_tiff, 1 << 20, true), "bad.tif", 0, false, {tiff_error}},
      {"not a png", bytes(std::string(100, 'p')), "bad.png", 0, false, {png_error}},
      {"png cut in its data", damaged(rgb_png, -30), "cut.png", 0, false, {png_error}},
      {"png gray with alpha", png({.width = 8, .height = 1, .color_type = PNG_COLOR_TYPE_GRAY_ALPHA, .row_bytes = 16}),
       "ga.png", 0, false, {png_rows}},
      {"png 16-bit", png({.width = 8, .height = 1, .bit_depth = 16, .row_bytes = 48}), "deep.png", 0, false,
       {png_rows}}};
  // clang-format on
  for (const Case& c : cases) {
    const std::string path = dir / c.file;
    c.make(path);
    MessageCapture capture;
    LoadedImage image;
    EXPECT_FALSE(LoadImageFile(path, c.format, c.elevation, image)) << c.name;
    const std::vector<std::string> texts = capture.Texts();
    ASSERT_EQ(texts.size(), c.texts.size()) << c.name << ": " << (texts.empty() ? "" : texts[0]);
    for (size_t i = 0; i < texts.size(); ++i) {
      EXPECT_EQ(texts[i].substr(0, c.texts[i].size()), c.texts[i]) << c.name;
      const bool toolkit = c.texts[i] == png_error || c.texts[i] == png_rows;
      EXPECT_EQ(capture.messages()[i].from_toolkit, toolkit) << c.name;
      EXPECT_TRUE(toolkit || texts[i].find(path) != std::string::npos) << c.name << ": no path";
    }
  }
  MessageCapture capture;
  LoadedImage image;
  EXPECT_FALSE(LoadImageFile("", kImageFormatFromName, false, image));
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: NULL filename"});
  EXPECT_FALSE(LoadImageFile(dir / "readme.txt", 0, false, image, true));  // tolerated: silent
  EXPECT_EQ(capture.Texts().size(), 1u);
}

TEST(ImageLoaderTest, SizeLimitAndReports) {
  TempDir dir;
  const auto rgb = test::Pattern(100, 100, 3);
  ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "t.tif", rgb.data(), 100, 100, 0, false));
  ASSERT_TRUE(WriteMapJpeg(nullptr, dir / "j.jpg", rgb.data(), 100, 100));
  const int64_t saved = ImageFiles().max_image_bytes;
  struct Case {
    const char* file;
    int64_t limit, verbosity;
    bool ok, loaded_line, timing_line;
  } cases[] = {{"t.tif", 29999, 0, false, false, false}, {"j.jpg", 29999, 0, false, false, false},
               {"j.jpg", 30000, 0, true, false, false},  {"t.tif", saved, 5, true, false, false},
               {"t.tif", saved, 6, true, true, false},   {"t.tif", saved, -2, true, false, false},
               {"j.jpg", saved, -3, true, false, true}};
  for (const Case& c : cases) {
    MessageCapture capture;
    ImageFiles().max_image_bytes = c.limit;
    kav::Messages().verbosity = c.verbosity;
    LoadedImage image;
    const std::string path = dir / c.file;
    EXPECT_EQ(LoadImageFile(path, kImageFormatFromName, false, image), c.ok) << c.file << c.limit;
    EXPECT_EQ(capture.Contains("Error: Image too large: " + path + ": 30000"), !c.ok) << c.file;
    EXPECT_EQ(capture.Contains("Info: Loaded image tile: " + path), c.loaded_line) << c.verbosity;
    EXPECT_EQ(capture.Contains("Info: Image tile load time: " + path + ": "), c.timing_line)
        << c.verbosity;
  }
  ImageFiles().max_image_bytes = saved;
}

// (100, 50, 0, 128) as libtiff hands it over comes from three files:
// associated alpha and no ExtraSamples tag (both warned about), and
// unassociated alpha (199, 99, 0, 128), which libtiff premultiplies.
TEST(ImageLoaderTest, UnpremultiplySwitch) {
  TempDir dir;
  struct File {
    std::vector<uint16_t> extra;
    std::vector<uint8_t> pixel;
    bool warned;
  } files[] = {{{EXTRASAMPLE_ASSOCALPHA}, {100, 50, 0, 128}, true},
               {{}, {100, 50, 0, 128}, true},
               {{EXTRASAMPLE_UNASSALPHA}, {199, 99, 0, 128}, false}};
  auto load = [&](const std::string& path) {
    LoadedImage image;
    EXPECT_TRUE(LoadImageFile(path, kImageFormatFromName, false, image));
    return Bytes(image);
  };
  const std::vector<uint8_t> on = {199, 99, 0, 128}, off = {100, 50, 0, 128};
  struct Case {
    const char* env;  // null: unset
    bool unmultiplied;
  } cases[] = {{nullptr, true}, {"true", true}, {"false", false}, {"no", true}};
  for (const Case& c : cases) {
    if (c.env)
      setenv("VMP_UNMULTIPLY_TIFF_ALPHA", c.env, 1);
    else
      unsetenv("VMP_UNMULTIPLY_TIFF_ALPHA");
    // The switch is fixed once per process: forget it so that it is read again.
    ImageFiles().unmultiply_tiff_alpha.reset();
    for (const File& f : files) {
      const std::string path = dir / "alpha.tif";
      ASSERT_TRUE(test::WriteTiff(
          path, {.width = 1, .height = 1, .samples = 4, .extra_samples = f.extra}, f.pixel.data()));
      MessageCapture capture;
      EXPECT_EQ(load(path), c.unmultiplied ? on : off)
          << (c.env ? c.env : "unset") << " " << f.warned;
      EXPECT_EQ(
          capture.Texts(),
          f.warned ? std::vector<std::string>{"Warning: Unsupported TIFF associated alpha mode.: " +
                                              path}
                   : std::vector<std::string>{});
    }
  }
  // Fixed on first use: a later change of the variable changes nothing.
  setenv("VMP_UNMULTIPLY_TIFF_ALPHA", "false", 1);
  MessageCapture capture;
  EXPECT_EQ(load(dir / "alpha.tif"), on);

  // The arithmetic: sample * 255 / alpha for alpha 1..254, at most 255.
  unsetenv("VMP_UNMULTIPLY_TIFF_ALPHA");
  ImageFiles().unmultiply_tiff_alpha.reset();
  const std::vector<uint8_t> in = {1,  1,   0,   1,   10,  20,  30,  0, 10,  20,
                                   30, 255, 200, 129, 128, 128, 127, 0, 254, 254};
  const std::vector<uint8_t> out = {255, 255, 0,   1,   10,  20,  30,  0, 10,  20,
                                    30,  255, 255, 255, 255, 128, 127, 0, 255, 254};
  ASSERT_TRUE(test::WriteTiff(
      dir / "a.tif",
      {.width = 5, .height = 1, .samples = 4, .extra_samples = {EXTRASAMPLE_ASSOCALPHA}},
      in.data()));
  EXPECT_EQ(load(dir / "a.tif"), out);
  ImageFiles().unmultiply_tiff_alpha.reset();
}

}  // namespace
}  // namespace vmp
