#include <gtest/gtest.h>
#include <jpeglib.h>
#include <signal.h>
#include <sys/resource.h>
#include <tiffio.h>

#include <cstdio>
#include <cstring>
#include <functional>

#include "map_server/geometry/map_geometry.h"
#include "map_server/geometry/map_image.h"
#include "map_server/image/jpeg_writer.h"
#include "map_server/image/tiff_writer.h"
#include "tests/image/test_images.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::MessageCapture;
using test::TempDir;

// The example tables of the JPEG standard (Annex K), natural order, which
// libjpeg scales by quality.
constexpr int kLuminance[64] = {16,  11,  10,  16,  24, 40, 51,  61,  12,  12,  14,  19,  26,
                                58,  60,  55,  14,  13, 16, 24,  40,  57,  69,  56,  14,  17,
                                22,  29,  51,  87,  80, 62, 18,  22,  37,  56,  68,  109, 103,
                                77,  24,  35,  55,  64, 81, 104, 113, 92,  49,  64,  78,  87,
                                103, 121, 120, 101, 72, 92, 95,  98,  112, 100, 103, 99};
constexpr int kChrominance[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                  24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                  99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                  99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};

// Quality 85 scales by 200 - 2 * 85 = 30 percent, rounded, 1..255 (baseline).
int Scaled(int base) { return std::clamp((base * 30 + 50) / 100, 1, 255); }

struct JpegFacts {
  int width = 0, height = 0, components = 0;
  J_COLOR_SPACE color_space = JCS_UNKNOWN;
  bool progressive = true;
  int luma_h = 0, luma_v = 0, chroma_h = 0, chroma_v = 0;
  int luminance[64] = {}, chrominance[64] = {};
};

JpegFacts ReadJpegFacts(std::FILE* file) {
  JpegFacts facts;
  jpeg_decompress_struct cinfo;
  jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_decompress(&cinfo);
  jpeg_stdio_src(&cinfo, file);
  jpeg_read_header(&cinfo, TRUE);
  facts.width = static_cast<int>(cinfo.image_width);
  facts.height = static_cast<int>(cinfo.image_height);
  facts.components = cinfo.num_components;
  facts.color_space = cinfo.jpeg_color_space;
  facts.progressive = cinfo.progressive_mode;
  facts.luma_h = cinfo.comp_info[0].h_samp_factor;
  facts.luma_v = cinfo.comp_info[0].v_samp_factor;
  facts.chroma_h = cinfo.comp_info[1].h_samp_factor;
  facts.chroma_v = cinfo.comp_info[1].v_samp_factor;
  for (int i = 0; i < 64; ++i) {
    facts.luminance[i] = cinfo.quant_tbl_ptrs[0]->quantval[i];
    facts.chrominance[i] = cinfo.quant_tbl_ptrs[1]->quantval[i];
  }
  jpeg_destroy_decompress(&cinfo);
  return facts;
}

TEST(JpegWriterTest, MapImageIsBaselineQuality85) {
  const int size = 512;
  const std::vector<uint8_t> rgb = test::Pattern(size, size, 3);
  MessageCapture capture;
  std::FILE* stream = std::tmpfile();
  ASSERT_NE(stream, nullptr);
  ASSERT_TRUE(WriteMapJpeg(stream, "", rgb.data(), size, size));
  // The caller's stream stays open and flushed.
  const long length = std::ftell(stream);
  ASSERT_GT(length, 1000);
  std::rewind(stream);
  std::string bytes(static_cast<size_t>(length), '\0');
  ASSERT_EQ(std::fread(bytes.data(), 1, bytes.size(), stream), bytes.size());
  EXPECT_EQ(bytes.substr(0, 2), "\xff\xd8");
  EXPECT_EQ(bytes.substr(bytes.size() - 2), "\xff\xd9");
  EXPECT_NE(bytes.find("\xff\xc0"), std::string::npos);  // baseline frame
  EXPECT_EQ(bytes.find("\xff\xc2"), std::string::npos);  // no progressive frame

  std::rewind(stream);
  const JpegFacts facts = ReadJpegFacts(stream);
  std::fclose(stream);
  EXPECT_EQ(facts.width, size);
  EXPECT_EQ(facts.height, size);
  EXPECT_EQ(facts.components, 3);
  EXPECT_EQ(facts.color_space, JCS_YCbCr);
  EXPECT_FALSE(facts.progressive);
  // Default subsampling: 2 x 2 luminance, 1 x 1 chrominance.
  EXPECT_EQ(facts.luma_h, 2);
  EXPECT_EQ(facts.luma_v, 2);
  EXPECT_EQ(facts.chroma_h, 1);
  EXPECT_EQ(facts.chroma_v, 1);
  for (int i = 0; i < 64; ++i) {
    EXPECT_EQ(facts.luminance[i], Scaled(kLuminance[i])) << i;
    EXPECT_EQ(facts.chrominance[i], Scaled(kChrominance[i])) << i;
  }
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
  TempDir dir;
  std::vector<uint8_t> noise(256 * 256 * 3);
  uint32_t state = 12345;
  for (uint8_t& b : noise) b = static_cast<uint8_t>((state = state * 1103515245 + 12345) >> 24);
  const uint8_t* px = noise.data();
  const std::string missing = dir / "no/such.out", big_jpg = dir / "big.jpg",
                    big_tif = dir / "big.tif";
  struct Case {
    const char* name;
    std::function<bool()> write;
    std::string text;
    int severity;
  } cases[] = {
      {"jpeg no directory", [&] { return WriteMapJpeg(nullptr, missing, px, 16, 16); },
       "Error: Could not be opened for writing: " + missing, kError},
      {"jpeg zero width", [&] { return WriteMapJpeg(nullptr, missing, px, 0, 16); },
       "Error: Invalid image size for JPEG output: " + missing, kError},
      {"jpeg too wide", [&] { return WriteMapJpeg(nullptr, missing, px, 70000, 1); },
       "Error: Invalid image size for JPEG output: " + missing, kError},
      {"jpeg write error",
       [&] {
         return WriteWithSmallFileLimit(
             [&] { return WriteMapJpeg(nullptr, big_jpg, px, 256, 256); });
       },
       "Error: Error writing image file: " + big_jpg, kError},
      {"tiff to a stream", [&] { return VmpWriteTiff(stdout, big_tif, px, 2, 2, 0, false); },
       "Internal Error: Unexpected FILE* in VmpWriteTiff", kInternalError},
      {"tiff no directory", [&] { return VmpWriteTiff(nullptr, missing, px, 2, 2, 0, false); },
       "Error: Could not be opened for writing: " + missing, kError},
      {"tiff zero width", [&] { return VmpWriteTiff(nullptr, big_tif, px, 0, 2, 0, false); },
       "Error: Error writing image file : " + big_tif, kError},
      {"tiff write error",
       [&] {
         return WriteWithSmallFileLimit(
             [&] { return VmpWriteTiff(nullptr, big_tif, px, 256, 256, 0, false); });
       },
       "Error: Error writing image file : " + big_tif, kError},
  };
  for (const Case& c : cases) {
    MessageCapture capture;
    EXPECT_FALSE(c.write()) << c.name;
    ASSERT_EQ(capture.Texts(), std::vector<std::string>{c.text}) << c.name;
    EXPECT_EQ(capture.messages()[0].severity, c.severity);
  }
  EXPECT_FALSE(test::FileExists(missing));
}

TEST(TiffWriterTest, TagsOfEachKind) {
  TempDir dir;
  MessageCapture capture;
  struct Case {
    int kind;
    bool alpha;
    std::vector<uint32_t> tags;  // samples, bits, photometric, extra sample kinds...
  } cases[] = {
      {kTiffElevationKind, false, {1, 16, PHOTOMETRIC_MINISBLACK}},
      {kTiffElevationKind, true, {1, 16, PHOTOMETRIC_MINISBLACK}},  // alpha means nothing here
      {0, true, {4, 8, PHOTOMETRIC_RGB, EXTRASAMPLE_UNASSALPHA}},
      {0, false, {3, 8, PHOTOMETRIC_RGB}},
  };
  const std::vector<uint8_t> data(5 * 3 * 4, 9);
  for (const Case& c : cases) {
    const std::string path = dir / "t.tif";
    ASSERT_TRUE(VmpWriteTiff(nullptr, path, data.data(), 5, 3, c.kind, c.alpha));
    TIFF* tif = TIFFOpen(path.c_str(), "r");
    ASSERT_NE(tif, nullptr);
    uint32_t width = 0, height = 0, rows_per_strip = 0;
    uint16_t samples = 0, bits = 0, photometric = 0, compression = 0, planar = 0, orientation = 0,
             extra_count = 0;
    uint16_t* extra = nullptr;
    TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width);
    TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height);
    TIFFGetField(tif, TIFFTAG_ROWSPERSTRIP, &rows_per_strip);
    TIFFGetField(tif, TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetField(tif, TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetField(tif, TIFFTAG_COMPRESSION, &compression);
    TIFFGetField(tif, TIFFTAG_PLANARCONFIG, &planar);
    TIFFGetField(tif, TIFFTAG_ORIENTATION, &orientation);
    std::vector<uint32_t> tags = {samples, bits, photometric};
    if (TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &extra_count, &extra))
      tags.insert(tags.end(), extra, extra + extra_count);
    EXPECT_EQ(tags, c.tags) << c.kind << c.alpha;
    EXPECT_EQ(
        (std::vector<uint32_t>{width, height, rows_per_strip, compression, planar, orientation}),
        (std::vector<uint32_t>{5, 3, 1, 32946, PLANARCONFIG_CONTIG, ORIENTATION_TOPLEFT}));
    TIFFClose(tif);
  }
  EXPECT_TRUE(capture.messages().empty());
}

TEST(SaveMapImageTest, WritesTheImageAtItsOwnSize) {
  TempDir dir;
  // A failed setup leaves a 1 x 1 background image, which is what is sent.
  MapGeometryInput in;
  in.projection = kRectangularProjection;
  in.width = 20000;
  in.height = 20000;
  in.background[0] = 255;
  MapGeometry g;
  MapImage image;
  struct Case {
    int64_t verbosity;
    bool timing;
  } cases[] = {{0, false}, {-1, false}, {-2, true}};
  for (const Case& c : cases) {
    MessageCapture capture;
    ASSERT_FALSE(SetupMapGeometry(in, g, image));
    capture.Clear();
    kav::Messages().verbosity = c.verbosity;
    ASSERT_TRUE(SaveMapImage(nullptr, dir / "map.jpg", image));
    EXPECT_EQ(capture.Contains("Info: Map image saving time: "), c.timing) << c.verbosity;
    std::FILE* file = std::fopen((dir / "map.jpg").c_str(), "rb");
    ASSERT_NE(file, nullptr);
    const JpegFacts facts = ReadJpegFacts(file);
    std::fclose(file);
    EXPECT_EQ(facts.width, 1);
    EXPECT_EQ(facts.height, 1);
  }
}

}  // namespace
}  // namespace vmp
