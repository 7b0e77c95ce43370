// Image files: every layout the readers take, their refusals and messages,
// and what the JPEG and TIFF writers put into their files.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/resource.h>

#include <cstring>
#include <fstream>
#include <functional>

#include "map_server/geometry/map_geometry.h"
#include "map_server/geometry/map_image.h"
#include "map_server/image/image_loader.h"
#include "map_server/image/image_settings.h"
#include "map_server/image/jpeg_writer.h"
#include "map_server/image/tiff_writer.h"
#include "tests/image/test_images.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::PngLayout;
using test::TiffLayout;
using Bytes = std::vector<uint8_t>;
using Maker = std::function<bool(const std::string&)>;
using Texts = std::vector<std::string>;

Maker Png(PngLayout layout, const Bytes& data) {
  return [=](const std::string& p) { return test::WritePng(p, layout, data.data()); };
}
Maker Tiff(TiffLayout layout, const void* data) {
  return [=](const std::string& p) { return test::WriteTiff(p, layout, data); };
}
bool WriteBytes(const std::string& path, const std::string& bytes) {
  return static_cast<bool>(std::ofstream(path, std::ios::binary) << bytes);
}

// Every layout each reader takes, decoded to the expected samples: PNG and
// TIFF exactly, JPEG (smooth images) within a few levels.
TEST(ImageLoaderTest, Layouts) {
  test::TempDir dir;
  const uint32_t w = 45, h = 70;
  const Bytes rgb = test::Pattern(w, h, 3), gray = test::Pattern(w, h, 1);
  const std::vector<png_color> palette = {{255, 0, 0}, {0, 255, 0}, {0, 0, 255}, {9, 8, 7}};
  Bytes indices(w * h), palette_rgb, palette_rgba, gray_rgba, flipped(rgb.size());
  Bytes rgba = test::Pattern(w, h, 4), smooth(rgb.size()), smooth_gray(w * h);
  std::vector<int16_t> dem(w * h);
  for (size_t i = 0; i < indices.size(); ++i) {
    const png_color& c = palette[indices[i] = static_cast<uint8_t>(i % 4)];
    palette_rgb.insert(palette_rgb.end(), {c.red, c.green, c.blue});
    const uint8_t palette_alpha = i % 4 == 1 ? 0 : 255, gray_alpha = gray[i] == gray[5] ? 0 : 255;
    palette_rgba.insert(palette_rgba.end(), {c.red, c.green, c.blue, palette_alpha});
    gray_rgba.insert(gray_rgba.end(), {gray[i], gray[i], gray[i], gray_alpha});
    // Alpha 0 and 255 come back exactly (colour under alpha 0 as 0).
    rgba[i * 4 + 3] = i % 3 == 0 ? 0 : 255;
    if (i % 3 == 0) rgba[i * 4] = rgba[i * 4 + 1] = rgba[i * 4 + 2] = 0;
    dem[i] = static_cast<int16_t>(int(i) * 37 - 5000);
    for (int s = 0; s < 3; ++s) smooth[i * 3 + s] = uint8_t(20 + i % w + i / w + s * 30);
    smooth_gray[i] = smooth[i * 3];
  }
  for (uint32_t y = 0; y < h; ++y)
    std::memcpy(&flipped[y * w * 3], &rgb[(h - 1 - y) * w * 3], w * 3);
  // The palette indices packed 2 bits a pixel, and the RGB samples as 16 bits
  // (high byte the sample, low byte noise that decoding drops).
  const size_t packed_row = (w * 2 + 7) / 8;
  Bytes packed(packed_row * h), deep(rgb.size() * 2);
  for (uint32_t y = 0; y < h; ++y) {
    for (uint32_t x = 0; x < w; ++x) packed[y * packed_row + x / 4] |= uint8_t(indices[y * w + x] << (6 - 2 * (x % 4)));
  }
  for (size_t i = 0; i < rgb.size(); ++i) {
    deep[2 * i] = rgb[i];
    deep[2 * i + 1] = uint8_t(i * 7);
  }
  const TiffLayout dem_strips{.width = w, .height = h, .samples = 1, .bits = 16,
                              .photometric = PHOTOMETRIC_MINISBLACK,
                              .compression = COMPRESSION_ADOBE_DEFLATE,
                              .sample_format = SAMPLEFORMAT_INT, .rows_per_strip = 8};
  TiffLayout dem_tiles = dem_strips;
  dem_tiles.tile_size = 32;
  auto writer = [&](const void* data, int kind, bool alpha, bool is_signed = false) -> Maker {
    return [=](const std::string& p) {
      return VmpWriteTiff(nullptr, p, data, w, h, kind, alpha, is_signed);
    };
  };
  struct Case {
    const char* file;  // the name's ending gives the format, in any letter case
    Maker make;
    int format, samples;
    bool elevation, signed_elevation;
    const void* expected;
    int tolerance;
  } cases[] = {
      // clang-format off
      {"gray.png", Png({w, h, PNG_COLOR_TYPE_GRAY, 8, w}, gray), kPngFormat, 1, false, false, gray.data(), 0},
      {"rgb.png", Png({w, h, PNG_COLOR_TYPE_RGB, 8, w * 3}, rgb), kPngFormat, 3, false, false, rgb.data(), 0},
      {"interlaced.png", Png({w, h, PNG_COLOR_TYPE_RGB, 8, w * 3, true}, rgb), kPngFormat, 3, false, false, rgb.data(), 0},
      {"rgba.png", Png({w, h, PNG_COLOR_TYPE_RGBA, 8, w * 4}, rgba), kPngFormat, 4, false, false, rgba.data(), 0},
      // A palette decodes to RGB, or RGBA with transparency (as gray does).
      {"palette.png", Png({w, h, PNG_COLOR_TYPE_PALETTE, 8, w, false, palette}, indices), kPngFormat, 3, false, false,
       palette_rgb.data(), 0},
      {"alpha.png", Png({w, h, PNG_COLOR_TYPE_PALETTE, 8, w, false, palette, {255, 0}}, indices), kPngFormat, 4, false,
       false, palette_rgba.data(), 0},
      // Packed and 16-bit samples decode to bytes.
      {"packed.png", Png({w, h, PNG_COLOR_TYPE_PALETTE, 2, packed_row, false, palette}, packed), kPngFormat, 3, false,
       false, palette_rgb.data(), 0},
      {"deep.png", Png({w, h, PNG_COLOR_TYPE_RGB, 16, w * 6}, deep), kPngFormat, 3, false, false, rgb.data(), 0},
      {"trns.PNG", Png({w, h, PNG_COLOR_TYPE_GRAY, 8, w, false, {}, {}, gray[5]}, gray), kPngFormat, 4, false, false,
       gray_rgba.data(), 0},
      {"writer.tif", writer(rgb.data(), 0, false), kTiffFormat, 3, false, false, rgb.data(), 0},
      {"alpha.tif", writer(rgba.data(), 0, true), kTiffFormat, 4, false, false, rgba.data(), 0},
      {"dem.tif", writer(dem.data(), kTiffElevationKind, false), kTiffFormat, 1, true, false, dem.data(), 0},
      {"sdem.tif", writer(dem.data(), kTiffElevationKind, false, true), kTiffFormat, 1, true, true, dem.data(), 0},
      {"lzw.Tif", Tiff({.width = w, .height = h, .compression = COMPRESSION_LZW, .rows_per_strip = 9}, rgb.data()),
       kTiffFormat, 3, false, false, rgb.data(), 0},
      {"tiles.tif", Tiff({.width = w, .height = h, .tile_size = 32}, rgb.data()), kTiffFormat, 3, false, false, rgb.data(), 0},
      {"up.tif", Tiff({.width = w, .height = h, .orientation = ORIENTATION_BOTLEFT, .rows_per_strip = 4}, flipped.data()),
       kTiffFormat, 3, false, false, rgb.data(), 0},
      {"strips.tif", Tiff(dem_strips, dem.data()), kTiffFormat, 1, true, true, dem.data(), 0},
      {"tiles16.tif", Tiff(dem_tiles, dem.data()), kTiffFormat, 1, true, true, dem.data(), 0},
      {"map.jpg", [&](auto& p) { return WriteMapJpeg(nullptr, p, smooth.data(), w, h); }, kJpegFormat, 3, false, false,
       smooth.data(), 8},
      {"gray.JPG", [&](auto& p) { return test::WriteGrayJpeg(p, w, h, smooth_gray.data()); }, kJpegFormat, 1, false,
       false, smooth_gray.data(), 8},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    ASSERT_TRUE(c.make(dir / c.file));
    MessageCapture capture;
    LoadedImage image;
    ASSERT_TRUE(LoadImageFile(dir / c.file, kImageFormatFromName, c.elevation, image));
    EXPECT_TRUE(capture.messages().empty());
    EXPECT_EQ(image.format, c.format);
    EXPECT_EQ((std::vector<int64_t>{image.width, image.height, image.samples_per_pixel}),
              (std::vector<int64_t>{w, h, c.samples}));
    EXPECT_EQ(image.has_alpha, c.samples == 4);
    EXPECT_EQ(image.elevation, c.elevation);
    EXPECT_EQ(image.signed_elevation, c.signed_elevation);
    const auto* loaded = c.elevation
                             ? reinterpret_cast<const uint8_t*>(image.elevation_samples.data())
                             : image.pixels.data();
    const auto* expected = static_cast<const uint8_t*>(c.expected);
    int worst = 0;
    for (size_t i = 0; i < w * h * (c.elevation ? 2 : c.samples); ++i)
      worst = std::max(worst, std::abs(loaded[i] - expected[i]));
    EXPECT_LE(worst, c.tolerance);
  }
}

TEST(ImageLoaderTest, Refusals) {
  test::TempDir dir;
  const int w = 40, h = 30;
  const Bytes rgb = test::Pattern(w, h, 3), zeros(w * h * 8);
  auto tiff = [&](uint16_t samples, uint16_t bits) {
    TiffLayout layout{.width = w, .height = h, .samples = samples, .bits = bits};
    if (samples < 3) layout.photometric = PHOTOMETRIC_MINISBLACK;
    if (samples > 3) layout.extra_samples.assign(samples - 3, EXTRASAMPLE_UNSPECIFIED);
    return Tiff(layout, zeros.data());
  };
  const Maker rgb_png = Png({.width = w, .height = h, .row_bytes = w * 3}, zeros);
  const Maker jpeg = [&](auto& p) { return WriteMapJpeg(nullptr, p, rgb.data(), w, h); };
  const Maker rgb_tiff = [&](auto& p) {
    return VmpWriteTiff(nullptr, p, rgb.data(), w, h, 0, false);
  };
  auto bytes = [](std::string contents) -> Maker {
    return [=](const std::string& p) { return WriteBytes(p, contents); };
  };
  // The file cut to `keep` bytes (negative: that many fewer), or with bytes
  // 10..59 (the first strips of a TIFF) overwritten.
  auto damaged = [](Maker make, long keep, bool overwrite = false) -> Maker {
    return [=](const std::string& p) {
      make(p);
      std::string all = test::ReadFile(p);
      if (overwrite) std::fill(all.begin() + 10, all.begin() + 60, '\xff');
      return WriteBytes(p, all.substr(0, keep >= 0 ? keep : all.size() + keep));
    };
  };
  const std::string jpeg_error = "Error: Error reading JPEG image: ";
  const std::string tiff_error = "Error: Error reading TIFF image: ";
  const std::string png_error = "Error reading PNG file.";  // through the toolkit: no path
  const std::string png_rows = "Internal Error: PNG row size mismatch.";
  struct Case {
    const char* file;
    Maker make;
    int format;
    bool elevation;
    std::vector<std::string> texts;  // each message starts with its text
  } cases[] = {
      // clang-format off
      {"dem.png", rgb_png, 0, true, {"Error: Only TIFF format is supported for elevation data: "}},
      {"image.gif", rgb_png, 0, false, {"Error: Unknown image format: "}},
      {"image.png", rgb_png, 7, false, {"Error: Only JPEG, TIF and PNG image type are currently supported: "}},
      {"missing.tif", nullptr, 0, false, {"Error: Could not be opened: "}},
      {"five.tif", tiff(5, 8), 0, false, {"Error: Unsupported TIFF with samples_per_pixel > 4: "}},
      {"deep.tif", tiff(3, 16), 0, false, {"Error: Unsupported TIFF with bits_per_sample != 8: "}},
      {"rgb.tif", rgb_tiff, 0, true,
       {"Error: Invalid samples per pixel: ", "Error: Invalid elevation data format: samples_per_pixel > 1: "}},
      {"gray.tif", tiff(1, 8), 0, true,
       {"Error: Invalid bits per sample: ", "Error: Unsupported elevation TIFF with bits_per_sample != 16: "}},
      {"empty.jpg", bytes(""), 0, false, {jpeg_error}},
      {"cut.jpg", damaged(jpeg, 200), 0, false, {jpeg_error}},
      {"png.dat", rgb_png, kJpegFormat, false, {jpeg_error}},  // the format code wins over the name
      {"garbage.tif", bytes("II*"), 0, false, {tiff_error}},
      {"cut.tif", damaged(rgb_tiff, 60), 0, false, {tiff_error}},
      {"bad.tif", damaged(rgb_tiff, 1 << 20, true), 0, false, {tiff_error}},  // corrupt deflate data
      {"bad.png", bytes(std::string(100, 'p')), 0, false, {png_error}},
      {"cut.png", damaged(rgb_png, -30), 0, false, {png_error}},
      {"ga.png", Png({.width = 8, .height = 1, .color_type = PNG_COLOR_TYPE_GRAY_ALPHA, .row_bytes = 16}, zeros), 0,
       false, {png_rows}},
      // clang-format on
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    const std::string path = dir / c.file;
    if (c.make) c.make(path);
    MessageCapture capture;
    LoadedImage image;
    EXPECT_FALSE(LoadImageFile(path, c.format, c.elevation, image));
    const std::vector<std::string> texts = capture.Texts();
    ASSERT_EQ(texts.size(), c.texts.size()) << (texts.empty() ? "" : texts[0]);
    for (size_t i = 0; i < texts.size(); ++i) {
      EXPECT_EQ(texts[i].substr(0, c.texts[i].size()), c.texts[i]);
      const bool toolkit = c.texts[i] == png_error || c.texts[i] == png_rows;
      EXPECT_EQ(capture.messages()[i].from_toolkit, toolkit);
      EXPECT_TRUE(toolkit || texts[i].find(path) != std::string::npos) << "no path";
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
  test::TempDir dir;
  const Bytes rgb = test::Pattern(100, 100, 3);
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
    SCOPED_TRACE(std::string(c.file) + " " + std::to_string(c.limit) + " " +
                 std::to_string(c.verbosity));
    MessageCapture capture;
    ImageFiles().max_image_bytes = c.limit;
    kav::Messages().verbosity = c.verbosity;
    LoadedImage image;
    const std::string path = dir / c.file;
    EXPECT_EQ(LoadImageFile(path, kImageFormatFromName, false, image), c.ok);
    EXPECT_EQ(capture.Contains("Error: Image too large: " + path + ": 30000"), !c.ok);
    EXPECT_EQ(capture.Contains("Info: Loaded image tile: " + path), c.loaded_line);
    EXPECT_EQ(capture.Contains("Info: Image tile load time: " + path + ": "), c.timing_line);
  }
  ImageFiles().max_image_bytes = saved;
}

// Colours of 4-sample TIFFs come premultiplied from libtiff and are
// un-premultiplied (sample * 255 / alpha, at most 255) unless
// VMP_UNMULTIPLY_TIFF_ALPHA is "false" (read once a process). Associated
// alpha and a missing ExtraSamples tag are warned about.
TEST(ImageLoaderTest, UnpremultiplySwitch) {
  test::TempDir dir;
  const std::string path = dir / "alpha.tif";
  auto load = [&](const Bytes& pixels, std::vector<uint16_t> extra) {
    const uint32_t width = static_cast<uint32_t>(pixels.size() / 4);
    EXPECT_TRUE(test::WriteTiff(
        path, {.width = width, .height = 1, .samples = 4, .extra_samples = extra}, pixels.data()));
    LoadedImage image;
    EXPECT_TRUE(LoadImageFile(path, kImageFormatFromName, false, image));
    return Bytes(image.pixels.data(), image.pixels.data() + image.pixels.size());
  };
  // Pixels as libtiff hands them over, from three files: associated alpha,
  // no ExtraSamples tag, and unassociated (whose colours libtiff multiplies).
  const Bytes in = {100, 50, 0, 128,  1, 1, 0, 1,  10, 20, 30, 0,  10, 20, 30, 255,
                    200, 129, 128, 128,  127, 0, 254, 254};
  const Bytes out = {199, 99, 0, 128,  255, 255, 0, 1,  10, 20, 30, 0,  10, 20, 30, 255,
                     255, 255, 255, 128,  127, 0, 255, 254};
  struct File { std::vector<uint16_t> extra; Bytes pixels; bool warned; } files[] = {
      {{EXTRASAMPLE_ASSOCALPHA}, in, true},
      {{}, in, true},
      {{EXTRASAMPLE_UNASSALPHA}, {199, 99, 0, 128}, false}};
  const std::string warning = "Warning: Unsupported TIFF associated alpha mode.: " + path;
  for (const char* env : {(const char*)nullptr, "true", "false", "no"}) {
    if (env)
      setenv("VMP_UNMULTIPLY_TIFF_ALPHA", env, 1);
    else
      unsetenv("VMP_UNMULTIPLY_TIFF_ALPHA");
    ImageFiles().unmultiply_tiff_alpha.reset();  // forget the switch: read the variable again
    for (const File& f : files) {
      SCOPED_TRACE(std::string(env ? env : "unset") + (f.warned ? " warned" : ""));
      MessageCapture capture;
      const Bytes& all = env && std::string(env) == "false" ? in : out;
      EXPECT_EQ(load(f.pixels, f.extra), Bytes(all.begin(), all.begin() + f.pixels.size()));
      EXPECT_EQ(capture.Texts(), f.warned ? Texts{warning} : Texts{});
    }
  }
  setenv("VMP_UNMULTIPLY_TIFF_ALPHA", "false", 1);  // fixed on first use: ignored now
  MessageCapture capture;
  EXPECT_EQ(load(in, {EXTRASAMPLE_ASSOCALPHA}), out);
  unsetenv("VMP_UNMULTIPLY_TIFF_ALPHA");
  ImageFiles().unmultiply_tiff_alpha.reset();
}

// Baseline YCbCr with libjpeg's default sampling and the quantisation
// tables of quality 85; the caller's stream stays open, flushed.
TEST(JpegWriterTest, MapImageIsBaselineQuality85) {
  const Bytes rgb = test::Pattern(512, 512, 3);
  MessageCapture capture;
  std::FILE* stream = std::tmpfile();
  ASSERT_TRUE(WriteMapJpeg(stream, "", rgb.data(), 512, 512));
  std::string bytes(static_cast<size_t>(std::ftell(stream)), '\0');
  std::rewind(stream);
  ASSERT_EQ(std::fread(bytes.data(), 1, bytes.size(), stream), bytes.size());
  EXPECT_NE(bytes.find("\xff\xc0"), std::string::npos);  // baseline frame
  EXPECT_EQ(bytes.find("\xff\xc2"), std::string::npos);  // no progressive one
  std::rewind(stream);
  jpeg_decompress_struct file;
  jpeg_compress_struct wanted;
  jpeg_error_mgr err;
  file.err = wanted.err = jpeg_std_error(&err);
  jpeg_create_decompress(&file);
  jpeg_stdio_src(&file, stream);
  jpeg_read_header(&file, TRUE);
  jpeg_create_compress(&wanted);
  wanted.in_color_space = JCS_RGB;
  jpeg_set_defaults(&wanted);
  jpeg_set_quality(&wanted, 85, TRUE);
  EXPECT_EQ(file.jpeg_color_space, JCS_YCbCr);
  ASSERT_EQ(file.num_components, 3);
  for (int c = 0; c < 3; ++c) {
    EXPECT_EQ(file.comp_info[c].h_samp_factor, wanted.comp_info[c].h_samp_factor);
    EXPECT_EQ(file.comp_info[c].v_samp_factor, wanted.comp_info[c].v_samp_factor);
  }
  for (int t = 0; t < 2; ++t) {
    EXPECT_TRUE(std::equal(file.quant_tbl_ptrs[t]->quantval, file.quant_tbl_ptrs[t]->quantval + 64,
                           wanted.quant_tbl_ptrs[t]->quantval)) << "table " << t;
  }
  jpeg_destroy_decompress(&file);
  jpeg_destroy_compress(&wanted);
  std::fclose(stream);
  EXPECT_TRUE(capture.messages().empty());
}

// Runs `write` with the process's file size limit at 2000 bytes (writes
// past it fail with EFBIG instead of a signal).
bool WriteWithSmallFileLimit(const std::function<bool()>& write) {
  struct rlimit saved;
  getrlimit(RLIMIT_FSIZE, &saved);
  auto previous = signal(SIGXFSZ, SIG_IGN);
  struct rlimit small = saved;
  small.rlim_cur = 2000;
  setrlimit(RLIMIT_FSIZE, &small);
  const bool result = write();
  setrlimit(RLIMIT_FSIZE, &saved);
  signal(SIGXFSZ, previous);
  return result;
}

TEST(ImageWritersTest, Failures) {
  test::TempDir dir;
  std::vector<uint8_t> noise(256 * 256 * 3);
  uint32_t state = 12345;
  for (uint8_t& b : noise) b = static_cast<uint8_t>((state = state * 1103515245 + 12345) >> 24);
  const uint8_t* px = noise.data();
  const std::string missing = dir / "no/such.out", jpg = dir / "big.jpg", tif = dir / "big.tif";
  const std::string jpeg_size = "Error: Invalid image size for JPEG output: " + missing;
  struct Case {
    std::function<bool()> write;
    std::string text;
    int severity;
  } cases[] = {
      // clang-format off
      {[&] { return WriteMapJpeg(nullptr, missing, px, 16, 16); }, "Error: Could not be opened for writing: " + missing, kError},
      {[&] { return WriteMapJpeg(nullptr, missing, px, 0, 16); }, jpeg_size, kError},
      {[&] { return WriteMapJpeg(nullptr, missing, px, 70000, 1); }, jpeg_size, kError},
      {[&] { return WriteWithSmallFileLimit([&] { return WriteMapJpeg(nullptr, jpg, px, 256, 256); }); },
       "Error: Error writing image file: " + jpg, kError},
      {[&] { return VmpWriteTiff(stdout, tif, px, 2, 2, 0, false); }, "Internal Error: Unexpected FILE* in VmpWriteTiff",
       kInternalError},
      {[&] { return VmpWriteTiff(nullptr, missing, px, 2, 2, 0, false); }, "Error: Could not be opened for writing: " + missing, kError},
      {[&] { return VmpWriteTiff(nullptr, tif, px, 0, 2, 0, false); }, "Error: Error writing image file : " + tif, kError},
      {[&] { return WriteWithSmallFileLimit([&] { return VmpWriteTiff(nullptr, tif, px, 256, 256, 0, false); }); },
       "Error: Error writing image file : " + tif, kError},
      // clang-format on
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    EXPECT_FALSE(c.write()) << c.text;
    ASSERT_EQ(capture.Texts(), Texts{c.text});
    EXPECT_EQ(capture.messages()[0].severity, c.severity) << c.text;
  }
  // Writes that failed half-way leave no file behind.
  for (const std::string& path : {missing, jpg, tif}) EXPECT_FALSE(test::FileExists(path)) << path;
}

// The rest of the TIFF writer's tags show in the files read back above.
TEST(TiffWriterTest, DeflateStripsOfOneRowAndNoAlphaForElevations) {
  test::TempDir dir;
  const Bytes data(5 * 3 * 4, 9);
  ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "t.tif", data.data(), 5, 3, kTiffElevationKind, true));
  TIFF* tif = TIFFOpen((dir / "t.tif").c_str(), "r");
  ASSERT_NE(tif, nullptr);
  uint16_t compression = 0, extra_count = 0, *extra = nullptr;
  uint32_t rows_per_strip = 0;
  TIFFGetField(tif, TIFFTAG_COMPRESSION, &compression);
  TIFFGetField(tif, TIFFTAG_ROWSPERSTRIP, &rows_per_strip);
  TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &extra_count, &extra);
  TIFFClose(tif);
  EXPECT_EQ(compression, COMPRESSION_DEFLATE);
  EXPECT_EQ(rows_per_strip, 1u);
  EXPECT_EQ(extra_count, 0u);
}

TEST(SaveMapImageTest, WritesTheImageAtItsOwnSize) {
  test::TempDir dir;
  MapGeometryInput in;  // too large: the failed setup leaves a 1 x 1 image to send
  in.width = in.height = 20000;
  MapGeometry g;
  MapImage image;
  for (int64_t verbosity : {-1, -2}) {
    MessageCapture capture;
    ASSERT_FALSE(SetupMapGeometry(in, g, image));
    capture.Clear();
    kav::Messages().verbosity = verbosity;
    ASSERT_TRUE(SaveMapImage(nullptr, dir / "map.jpg", image));
    EXPECT_EQ(capture.Contains("Info: Map image saving time: "), verbosity <= -2);
    LoadedImage saved;
    ASSERT_TRUE(LoadImageFile(dir / "map.jpg", kJpegFormat, false, saved));
    EXPECT_EQ(saved.width * 10 + saved.height, 11);  // 1 x 1
  }
}

}  // namespace
}  // namespace vmp
