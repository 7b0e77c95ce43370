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

TEST(ImageLoaderTest, PngLayouts) {
  TempDir dir;
  const uint32_t w = 13, h = 7;
  std::vector<png_color> palette = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {9, 8, 7}};
  std::vector<uint8_t> indices(w * h);
  for (size_t i = 0; i < indices.size(); ++i) indices[i] = static_cast<uint8_t>(i % 4);
  std::vector<uint8_t> palette_rgb, palette_rgba;
  for (uint8_t i : indices) {
    const png_color c = palette[i];
    palette_rgb.insert(palette_rgb.end(), {c.red, c.green, c.blue});
    palette_rgba.insert(palette_rgba.end(), {c.red, c.green, c.blue, static_cast<uint8_t>(i == 1 ? 0 : 255)});
  }
  std::vector<uint8_t> gray = test::Pattern(w, h, 1), gray_trns_rgba;
  for (uint8_t g : gray) gray_trns_rgba.insert(gray_trns_rgba.end(), {g, g, g, static_cast<uint8_t>(g == gray[5] ? 0 : 255)});

  struct Case {
    const char* name;
    int color_type;
    bool interlaced;
    std::vector<uint8_t> data;  // rows as written
    int samples;
    std::vector<uint8_t> expected;
    bool palette = false, palette_trns = false, gray_trns = false;
  };
  std::vector<Case> cases;
  cases.push_back({"gray", PNG_COLOR_TYPE_GRAY, false, gray, 1, gray});
  cases.push_back({"rgb", PNG_COLOR_TYPE_RGB, false, test::Pattern(w, h, 3), 3, test::Pattern(w, h, 3)});
  cases.push_back({"rgba", PNG_COLOR_TYPE_RGBA, false, test::Pattern(w, h, 4), 4, test::Pattern(w, h, 4)});
  cases.push_back({"rgb interlaced", PNG_COLOR_TYPE_RGB, true, test::Pattern(w, h, 3), 3, test::Pattern(w, h, 3)});
  cases.push_back({"palette", PNG_COLOR_TYPE_PALETTE, false, indices, 3, palette_rgb, true});
  cases.push_back({"palette with alpha", PNG_COLOR_TYPE_PALETTE, false, indices, 4, palette_rgba, true, true});
  cases.push_back({"gray with transparent value", PNG_COLOR_TYPE_GRAY, false, gray, 4, gray_trns_rgba, false, false, true});
  for (const Case& c : cases) {
    test::PngSpec spec;
    spec.width = w;
    spec.height = h;
    spec.color_type = c.color_type;
    spec.interlaced = c.interlaced;
    spec.row_bytes = c.data.size() / h;
    if (c.palette) spec.palette = palette;
    if (c.palette_trns) spec.trns = {255, 0, 255, 255};
    if (c.gray_trns) {
      spec.has_trns_color = true;
      spec.trns_color.gray = gray[5];
    }
    const std::string path = dir / "image.png";
    ASSERT_TRUE(test::WritePng(path, spec, c.data.data())) << c.name;
    MessageCapture capture;
    LoadedImage image;
    ASSERT_TRUE(LoadImageFile(path, kImageFormatFromName, false, image)) << c.name;
    EXPECT_TRUE(capture.messages().empty()) << c.name;
    EXPECT_EQ(image.format, kPngFormat);
    EXPECT_EQ(image.width, w);
    EXPECT_EQ(image.height, h);
    EXPECT_EQ(image.samples_per_pixel, c.samples) << c.name;
    EXPECT_EQ(image.has_alpha, c.samples == 4) << c.name;
    EXPECT_EQ(Bytes(image), c.expected) << c.name;
  }
}

TEST(ImageLoaderTest, PngRowSizeRule) {
  // The file's row size must equal the colour type's sample count times the
  // width: gray with alpha (2 bytes a pixel, 4 samples), 16-bit and packed
  // low-depth files do not pass.
  TempDir dir;
  struct Case {
    const char* name;
    int color_type, bit_depth;
    size_t row_bytes;
  } cases[] = {
      {"gray alpha", PNG_COLOR_TYPE_GRAY_ALPHA, 8, 16},
      {"rgb 16", PNG_COLOR_TYPE_RGB, 16, 48},
      {"gray 4", PNG_COLOR_TYPE_GRAY, 4, 4},
  };
  for (const Case& c : cases) {
    test::PngSpec spec;
    spec.width = 8;
    spec.height = 4;
    spec.color_type = c.color_type;
    spec.bit_depth = c.bit_depth;
    spec.row_bytes = c.row_bytes;
    std::vector<uint8_t> data(c.row_bytes * 4, 100);
    const std::string path = dir / "x.png";
    ASSERT_TRUE(test::WritePng(path, spec, data.data()));
    MessageCapture capture;
    LoadedImage image;
    EXPECT_FALSE(LoadImageFile(path, kImageFormatFromName, false, image)) << c.name;
    ASSERT_EQ(capture.messages().size(), 1u) << c.name;
    EXPECT_EQ(capture.messages()[0].text, "Internal Error: PNG row size mismatch.");
    EXPECT_TRUE(capture.messages()[0].from_toolkit);
  }
}

TEST(ImageLoaderTest, TiffRoundTripsThroughTheWriter) {
  TempDir dir;
  MessageCapture capture;
  const int w = 37, h = 11;

  std::vector<uint8_t> rgb = test::Pattern(w, h, 3);
  ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "rgb.tif", rgb.data(), w, h, 0, false));
  LoadedImage image;
  ASSERT_TRUE(LoadImageFile(dir / "rgb.tif", kImageFormatFromName, false, image));
  EXPECT_EQ(image.format, kTiffFormat);
  EXPECT_EQ(image.samples_per_pixel, 3);
  EXPECT_FALSE(image.has_alpha);
  EXPECT_EQ(Bytes(image), rgb);

  // Opaque and fully transparent pixels survive exactly (libtiff hands the
  // colour of alpha 0 over as 0).
  std::vector<uint8_t> rgba = test::Pattern(w, h, 4);
  for (size_t i = 0; i < rgba.size(); i += 4) {
    rgba[i + 3] = (i / 4) % 3 == 0 ? 0 : 255;
    if (rgba[i + 3] == 0) rgba[i] = rgba[i + 1] = rgba[i + 2] = 0;
  }
  ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "rgba.tif", rgba.data(), w, h, 0, true));
  ASSERT_TRUE(LoadImageFile(dir / "rgba.tif", kTiffFormat, false, image));
  EXPECT_EQ(image.samples_per_pixel, 4);
  EXPECT_TRUE(image.has_alpha);
  EXPECT_EQ(Bytes(image), rgba);

  std::vector<uint16_t> heights(w * h);
  for (size_t i = 0; i < heights.size(); ++i) heights[i] = static_cast<uint16_t>(i * 1777 + 3);
  heights[0] = 0;
  heights[1] = 65535;
  ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "dem.tif", heights.data(), w, h, kTiffElevationKind, false));
  LoadedImage dem;
  ASSERT_TRUE(LoadImageFile(dir / "dem.tif", kImageFormatFromName, true, dem));
  EXPECT_TRUE(dem.elevation);
  EXPECT_FALSE(dem.signed_elevation);
  EXPECT_EQ(dem.samples_per_pixel, 1);
  ASSERT_EQ(dem.elevation_samples.size(), heights.size());
  EXPECT_EQ(std::memcmp(dem.elevation_samples.data(), heights.data(), heights.size() * 2), 0);
  EXPECT_TRUE(capture.messages().empty());
}

TEST(ImageLoaderTest, TiffStorageVariants) {
  TempDir dir;
  const uint32_t w = 45, h = 70;
  const std::vector<uint8_t> rgb = test::Pattern(w, h, 3);
  std::vector<uint8_t> flipped(rgb.size());  // rows bottom-up
  for (uint32_t y = 0; y < h; ++y) {
    std::memcpy(&flipped[y * w * 3], &rgb[(h - 1 - y) * w * 3], w * 3);
  }
  std::vector<int16_t> heights(w * h);
  for (size_t i = 0; i < heights.size(); ++i) heights[i] = static_cast<int16_t>(static_cast<int>(i) * 37 - 5000);

  struct Case {
    const char* name;
    test::TiffSpec spec;
    const void* data;
    bool elevation;
  };
  test::TiffSpec strips{.width = w, .height = h};
  strips.rows_per_strip = 9;  // strips across the decoding blocks
  strips.compression = COMPRESSION_LZW;
  test::TiffSpec tiles{.width = w, .height = h};
  tiles.tile_size = 32;
  test::TiffSpec bottom_up{.width = w, .height = h};
  bottom_up.orientation = ORIENTATION_BOTLEFT;
  bottom_up.rows_per_strip = 4;
  test::TiffSpec dem_strips{.width = w, .height = h, .samples = 1, .bits = 16,
                            .photometric = PHOTOMETRIC_MINISBLACK,
                            .compression = COMPRESSION_ADOBE_DEFLATE};
  dem_strips.sample_format = SAMPLEFORMAT_INT;
  dem_strips.rows_per_strip = 8;
  test::TiffSpec dem_tiles = dem_strips;
  dem_tiles.tile_size = 32;
  Case cases[] = {
      {"rgb strips", strips, rgb.data(), false},
      {"rgb tiles", tiles, rgb.data(), false},
      {"rgb bottom-up", bottom_up, flipped.data(), false},
      {"dem strips", dem_strips, heights.data(), true},
      {"dem tiles", dem_tiles, heights.data(), true},
  };
  for (const Case& c : cases) {
    const std::string path = dir / "v.tif";
    ASSERT_TRUE(test::WriteTiff(path, c.spec, c.data)) << c.name;
    MessageCapture capture;
    LoadedImage image;
    ASSERT_TRUE(LoadImageFile(path, kImageFormatFromName, c.elevation, image)) << c.name;
    EXPECT_EQ(image.width, w);
    EXPECT_EQ(image.height, h);
    if (c.elevation) {
      EXPECT_TRUE(image.signed_elevation);
      EXPECT_EQ(std::memcmp(image.elevation_samples.data(), heights.data(), heights.size() * 2), 0) << c.name;
    } else {
      EXPECT_EQ(Bytes(image), rgb) << c.name;
    }
  }
}

TEST(ImageLoaderTest, JpegRoundTrips) {
  TempDir dir;
  MessageCapture capture;
  // A smooth image survives quality 85 within a few levels.
  const int w = 64, h = 48;
  std::vector<uint8_t> rgb(w * h * 3);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      for (int s = 0; s < 3; ++s) rgb[(y * w + x) * 3 + s] = static_cast<uint8_t>(20 + x + y + s * 30);
  ASSERT_TRUE(WriteMapJpeg(nullptr, dir / "map.jpg", rgb.data(), w, h));
  LoadedImage image;
  ASSERT_TRUE(LoadImageFile(dir / "map.jpg", kImageFormatFromName, false, image));
  EXPECT_EQ(image.format, kJpegFormat);
  EXPECT_EQ(image.width, w);
  EXPECT_EQ(image.height, h);
  EXPECT_EQ(image.samples_per_pixel, 3);
  ASSERT_EQ(image.pixels.size(), rgb.size());
  int worst = 0;
  for (size_t i = 0; i < rgb.size(); ++i) worst = std::max(worst, std::abs(image.pixels[i] - rgb[i]));
  EXPECT_LE(worst, 8);

  std::vector<uint8_t> gray = test::Pattern(w, h, 1);
  for (uint8_t& g : gray) g = static_cast<uint8_t>(g / 4 + 60);  // keep it smooth
  ASSERT_TRUE(test::WriteGrayJpeg(dir / "gray.JPG", w, h, gray.data()));
  ASSERT_TRUE(LoadImageFile(dir / "gray.JPG", kImageFormatFromName, false, image));  // any case
  EXPECT_EQ(image.samples_per_pixel, 1);
  EXPECT_FALSE(image.has_alpha);
  ASSERT_EQ(image.pixels.size(), gray.size());
  EXPECT_TRUE(capture.messages().empty());
}

// A file written by `make` at `path`, loaded with `format` and `elevation`,
// is refused with exactly the messages `texts` (in order).
struct Refusal {
  const char* name;
  std::function<void(const std::string& path)> make;
  const char* file_name;
  int format;
  bool elevation;
  std::vector<std::string> texts;
};

void WriteBytes(const std::string& path, const std::string& bytes) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  std::fwrite(bytes.data(), 1, bytes.size(), f);
  std::fclose(f);
}

std::string Truncated(const std::string& path, size_t keep) {
  std::string all = test::ReadFile(path);
  return all.substr(0, std::min(keep, all.size()));
}

TEST(ImageLoaderTest, Refusals) {
  TempDir dir;
  const int w = 40, h = 30;
  const auto rgb = test::Pattern(w, h, 3);
  auto tiff = [&](uint16_t samples, uint16_t bits) {
    return [=](const std::string& path) {
      test::TiffSpec spec{.width = w, .height = h, .samples = samples, .bits = bits};
      spec.photometric = samples >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
      if (samples > 3) spec.extra_samples.assign(samples - 3, EXTRASAMPLE_UNSPECIFIED);
      std::vector<uint8_t> data(static_cast<size_t>(w) * h * samples * bits / 8, 7);
      ASSERT_TRUE(test::WriteTiff(path, spec, data.data()));
    };
  };
  auto map_jpeg = [&](const std::string& path) { ASSERT_TRUE(WriteMapJpeg(nullptr, path, rgb.data(), w, h)); };
  auto map_tiff = [&](const std::string& path) {
    ASSERT_TRUE(VmpWriteTiff(nullptr, path, rgb.data(), w, h, 0, false));
  };
  auto png = [&](const std::string& path) {
    test::PngSpec spec;
    spec.width = w;
    spec.height = h;
    spec.row_bytes = w * 3;
    ASSERT_TRUE(test::WritePng(path, spec, rgb.data()));
  };
  auto bytes = [](std::string contents) {
    return [contents](const std::string& path) { WriteBytes(path, contents); };
  };
  auto truncated = [&](std::function<void(const std::string&)> make, size_t keep) {
    return [=](const std::string& path) {
      make(path);
      WriteBytes(path, Truncated(path, keep));
    };
  };
  auto nothing = [](const std::string&) {};
  // Overwrites the first strips (they follow the 8-byte header).
  auto corrupted = [&](std::function<void(const std::string&)> make) {
    return [=](const std::string& path) {
      make(path);
      std::string all = test::ReadFile(path);
      for (size_t i = 10; i < 60 && i < all.size(); ++i) all[i] = static_cast<char>(0xff);
      WriteBytes(path, all);
    };
  };
  const std::string jpeg_error = "Error: Error reading JPEG image: ";
  const std::string tiff_error = "Error: Error reading TIFF image: ";

  std::vector<Refusal> cases = {
      {"png elevation", png, "dem.png", 0, true, {"Error: Only TIFF format is supported for elevation data: "}},
      {"jpeg elevation", map_jpeg, "dem.jpg", 0, true, {"Error: Only TIFF format is supported for elevation data: "}},
      {"unknown ending", png, "image.gif", 0, false, {"Error: Unknown image format: "}},
      {"format code", png, "image.png", 7, false,
       {"Error: Only JPEG, TIF and PNG image type are currently supported: "}},
      {"missing file", nothing, "missing.tif", 0, false, {"Error: Could not be opened: "}},
      {"five samples", tiff(5, 8), "five.tif", 0, false, {"Error: Unsupported TIFF with samples_per_pixel > 4: "}},
      {"16-bit colour", tiff(3, 16), "deep.tif", 0, false, {"Error: Unsupported TIFF with bits_per_sample != 8: "}},
      {"1-bit colour", tiff(1, 1), "bits.tif", 0, false, {"Error: Unsupported TIFF with bits_per_sample != 8: "}},
      {"rgb as elevation", map_tiff, "rgb.tif", 0, true,
       {"Error: Invalid samples per pixel: ", "Error: Invalid elevation data format: samples_per_pixel > 1: "}},
      {"8-bit elevation", tiff(1, 8), "gray.tif", 0, true,
       {"Error: Invalid bits per sample: ", "Error: Unsupported elevation TIFF with bits_per_sample != 16: "}},
      {"empty jpeg", bytes(""), "empty.jpg", 0, false, {jpeg_error}},
      {"garbage jpeg", bytes(std::string(300, 'x')), "garbage.jpg", 0, false, {jpeg_error}},
      {"jpeg cut in its header", truncated(map_jpeg, 200), "cut.jpg", 0, false, {jpeg_error}},
      {"png read as jpeg", png, "png.dat", kJpegFormat, false, {jpeg_error}},
      {"garbage tiff", bytes("II*\0garbage garbage garbage"), "garbage.tif", 0, false, {tiff_error}},
      {"empty tiff", bytes(""), "empty.tif", 0, false, {tiff_error}},
      {"tiff cut before its directory", truncated(map_tiff, 60), "cut.tif", 0, false, {tiff_error}},
      {"corrupt deflate data", corrupted(map_tiff), "bad.tif", 0, false, {tiff_error}},
  };
  for (const Refusal& c : cases) {
    const std::string path = dir / c.file_name;
    c.make(path);
    MessageCapture capture;
    LoadedImage image;
    EXPECT_FALSE(LoadImageFile(path, c.format, c.elevation, image)) << c.name;
    const std::vector<std::string> texts = capture.Texts();
    ASSERT_EQ(texts.size(), c.texts.size()) << c.name << ": " << (texts.empty() ? "" : texts[0]);
    for (size_t i = 0; i < texts.size(); ++i) {
      EXPECT_EQ(texts[i].substr(0, c.texts[i].size()), c.texts[i]) << c.name;
      EXPECT_NE(texts[i].find(path), std::string::npos) << c.name << ": the path is named";
    }
  }
}

TEST(ImageLoaderTest, PngErrorsGoThroughTheToolkit) {
  TempDir dir;
  test::PngSpec spec;
  spec.width = 64;
  spec.height = 64;
  spec.row_bytes = 64 * 3;
  const auto rgb = test::Pattern(64, 64, 3);
  ASSERT_TRUE(test::WritePng(dir / "good.png", spec, rgb.data()));
  const std::string good = test::ReadFile(dir / "good.png");
  struct Case {
    const char* name;
    std::string contents;
  } cases[] = {
      {"empty", ""},
      {"not a png", std::string(100, 'p')},
      {"cut in the image data", good.substr(0, good.size() / 2)},
      {"cut in the header", good.substr(0, 20)},
  };
  for (const Case& c : cases) {
    const std::string path = dir / "bad.png";
    WriteBytes(path, c.contents);
    MessageCapture capture;
    LoadedImage image;
    EXPECT_FALSE(LoadImageFile(path, kImageFormatFromName, false, image)) << c.name;
    ASSERT_EQ(capture.messages().size(), 1u) << c.name;
    EXPECT_EQ(capture.messages()[0].text, "Error reading PNG file.") << c.name;
    EXPECT_TRUE(capture.messages()[0].from_toolkit);
    EXPECT_EQ(capture.messages()[0].severity, kError);
  }
}

TEST(ImageLoaderTest, MissingPathAndToleratedUnknownEnding) {
  MessageCapture capture;
  LoadedImage image;
  EXPECT_FALSE(LoadImageFile("", kImageFormatFromName, false, image));
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: NULL filename"});
  capture.Clear();
  EXPECT_FALSE(LoadImageFile("/nowhere/readme.txt", kImageFormatFromName, false, image, true));
  EXPECT_TRUE(capture.messages().empty());
}

TEST(ImageLoaderTest, ImageLargerThanTheLimitIsRefused) {
  TempDir dir;
  const auto rgb = test::Pattern(100, 100, 3);
  ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "big.tif", rgb.data(), 100, 100, 0, false));
  ASSERT_TRUE(WriteMapJpeg(nullptr, dir / "big.jpg", rgb.data(), 100, 100));
  const int64_t saved = ImageFiles().max_image_bytes;
  ImageFiles().max_image_bytes = 100 * 100 * 3 - 1;
  for (const char* name : {"big.tif", "big.jpg"}) {
    MessageCapture capture;
    LoadedImage image;
    EXPECT_FALSE(LoadImageFile(dir / name, kImageFormatFromName, false, image));
    EXPECT_TRUE(capture.Contains("Error: Image too large: ")) << name;
  }
  ImageFiles().max_image_bytes = 100 * 100 * 3;
  LoadedImage image;
  EXPECT_TRUE(LoadImageFile(dir / "big.jpg", kImageFormatFromName, false, image));
  ImageFiles().max_image_bytes = saved;
}

TEST(ImageLoaderTest, VerboseAndTimingReports) {
  TempDir dir;
  const auto rgb = test::Pattern(8, 8, 3);
  ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "t.tif", rgb.data(), 8, 8, 0, false));
  struct Case {
    int64_t verbosity;
    bool loaded_line, timing_line;
  } cases[] = {{0, false, false}, {5, false, false}, {6, true, false}, {-2, false, false}, {-3, false, true}};
  for (const Case& c : cases) {
    MessageCapture capture;
    kav::Messages().verbosity = c.verbosity;
    LoadedImage image;
    ASSERT_TRUE(LoadImageFile(dir / "t.tif", kImageFormatFromName, false, image));
    EXPECT_EQ(capture.Contains("Info: Loaded image tile: " + (dir / "t.tif")), c.loaded_line) << c.verbosity;
    EXPECT_EQ(capture.Contains("Info: Image tile load time: " + (dir / "t.tif") + ": "), c.timing_line)
        << c.verbosity;
  }
}

// The pixel (100, 50, 0, 128) as libtiff hands it over, from three files:
// associated alpha, no ExtraSamples tag (both warned about), and unassociated
// alpha (199, 99, 0, 128), which libtiff premultiplies to the same values.
struct AlphaFile {
  const char* name;
  std::vector<uint16_t> extra;
  std::vector<uint8_t> pixel;
  bool warned;
};

std::vector<AlphaFile> AlphaFiles() {
  return {{"associated", {EXTRASAMPLE_ASSOCALPHA}, {100, 50, 0, 128}, true},
          {"no extra samples tag", {}, {100, 50, 0, 128}, true},
          {"unassociated", {EXTRASAMPLE_UNASSALPHA}, {199, 99, 0, 128}, false}};
}

std::vector<uint8_t> LoadAlphaPixel(const std::string& path) {
  LoadedImage image;
  EXPECT_TRUE(LoadImageFile(path, kImageFormatFromName, false, image));
  EXPECT_EQ(image.samples_per_pixel, 4);
  return std::vector<uint8_t>(image.pixels.data(), image.pixels.data() + 4);
}

TEST(ImageLoaderTest, UnpremultiplySwitch) {
  TempDir dir;
  struct Case {
    const char* env;  // null: unset
    bool unmultiplied;
  } cases[] = {{nullptr, true}, {"true", true}, {"false", false}, {"no", true}};
  for (const Case& c : cases) {
    if (c.env) setenv("VMP_UNMULTIPLY_TIFF_ALPHA", c.env, 1);
    else unsetenv("VMP_UNMULTIPLY_TIFF_ALPHA");
    // The switch is fixed once per process; forget it so that it is read again.
    ImageFiles().unmultiply_tiff_alpha.reset();
    for (const AlphaFile& f : AlphaFiles()) {
      const std::string path = dir / "alpha.tif";
      test::TiffSpec spec{.width = 1, .height = 1, .samples = 4};
      spec.extra_samples = f.extra;
      ASSERT_TRUE(test::WriteTiff(path, spec, f.pixel.data()));
      MessageCapture capture;
      const std::vector<uint8_t> expected =
          c.unmultiplied ? std::vector<uint8_t>{199, 99, 0, 128} : std::vector<uint8_t>{100, 50, 0, 128};
      EXPECT_EQ(LoadAlphaPixel(path), expected) << f.name << " env " << (c.env ? c.env : "unset");
      EXPECT_EQ(capture.Contains("Warning: Unsupported TIFF associated alpha mode.: " + path), f.warned)
          << f.name;
      EXPECT_EQ(capture.messages().size(), f.warned ? 1u : 0u);
    }
  }
  // Fixed on first use: changing the variable later changes nothing.
  setenv("VMP_UNMULTIPLY_TIFF_ALPHA", "true", 1);
  MessageCapture capture;
  EXPECT_EQ(LoadAlphaPixel(dir / "alpha.tif"), (std::vector<uint8_t>{199, 99, 0, 128}));
  setenv("VMP_UNMULTIPLY_TIFF_ALPHA", "false", 1);
  EXPECT_EQ(LoadAlphaPixel(dir / "alpha.tif"), (std::vector<uint8_t>{199, 99, 0, 128}));
  unsetenv("VMP_UNMULTIPLY_TIFF_ALPHA");
  ImageFiles().unmultiply_tiff_alpha.reset();
}

TEST(ImageLoaderTest, UnpremultiplyArithmetic) {
  TempDir dir;
  unsetenv("VMP_UNMULTIPLY_TIFF_ALPHA");
  ImageFiles().unmultiply_tiff_alpha.reset();
  struct Case {
    std::vector<uint8_t> in, out;
  } cases[] = {
      {{100, 50, 0, 128}, {199, 99, 0, 128}},
      {{1, 1, 0, 1}, {255, 255, 0, 1}},
      {{10, 20, 30, 0}, {10, 20, 30, 0}},       // alpha 0: as it is
      {{10, 20, 30, 255}, {10, 20, 30, 255}},   // alpha 255: as it is
      {{200, 129, 128, 128}, {255, 255, 255, 128}},  // colour above alpha saturates
      {{127, 0, 254, 254}, {127, 0, 255, 254}},
  };
  std::vector<uint8_t> in, expected;
  for (const Case& c : cases) {
    in.insert(in.end(), c.in.begin(), c.in.end());
    expected.insert(expected.end(), c.out.begin(), c.out.end());
  }
  test::TiffSpec spec{.width = static_cast<uint32_t>(std::size(cases)), .height = 1, .samples = 4};
  spec.extra_samples = {EXTRASAMPLE_ASSOCALPHA};
  ASSERT_TRUE(test::WriteTiff(dir / "a.tif", spec, in.data()));
  MessageCapture capture;
  LoadedImage image;
  ASSERT_TRUE(LoadImageFile(dir / "a.tif", kImageFormatFromName, false, image));
  EXPECT_EQ(Bytes(image), expected);
  ImageFiles().unmultiply_tiff_alpha.reset();
}

}  // namespace
}  // namespace vmp
