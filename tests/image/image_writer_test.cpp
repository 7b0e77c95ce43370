#include <gtest/gtest.h>
#include <jpeglib.h>
#include <signal.h>
#include <sys/resource.h>
#include <tiffio.h>

#include <cstdio>
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
using Texts = std::vector<std::string>;

// The example tables of the JPEG standard (Annex K), natural order, which
// libjpeg scales by quality. The chrominance entries not listed are 99.
constexpr int kLuminance[64] = {
    16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,  14, 13, 16, 24, 40, 57,
    69, 56, 14, 17, 22,  29,  51,  87,  80, 62, 18, 22, 37,  56,  68,  109, 103, 77, 24, 35, 55, 64,
    81, 104, 113, 92, 49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
constexpr int kChrominance[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                  24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99};

// Width, height, components, colour space, progressive, the sampling
// factors of luminance and chrominance; then both quantisation tables.
std::vector<int> JpegFacts(std::FILE* file) {
  jpeg_decompress_struct cinfo;
  jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_decompress(&cinfo);
  jpeg_stdio_src(&cinfo, file);
  jpeg_read_header(&cinfo, TRUE);
  const jpeg_component_info* c = cinfo.comp_info;
  std::vector<int> facts = {int(cinfo.image_width), int(cinfo.image_height), cinfo.num_components,
                            cinfo.jpeg_color_space, cinfo.progressive_mode,  c[0].h_samp_factor,
                            c[0].v_samp_factor,     c[1].h_samp_factor,      c[1].v_samp_factor};
  for (int t = 0; t < 2; ++t)
    for (int i = 0; i < 64; ++i) facts.push_back(cinfo.quant_tbl_ptrs[t]->quantval[i]);
  jpeg_destroy_decompress(&cinfo);
  return facts;
}

TEST(JpegWriterTest, MapImageIsBaselineQuality85) {
  const std::vector<uint8_t> rgb = test::Pattern(512, 512, 3);
  MessageCapture capture;
  std::FILE* stream = std::tmpfile();
  ASSERT_TRUE(WriteMapJpeg(stream, "", rgb.data(), 512, 512));
  // The caller's stream stays open, flushed.
  std::string bytes(static_cast<size_t>(std::ftell(stream)), '\0');
  std::rewind(stream);
  ASSERT_EQ(std::fread(bytes.data(), 1, bytes.size(), stream), bytes.size());
  EXPECT_NE(bytes.find("\xff\xc0"), std::string::npos);  // baseline frame
  EXPECT_EQ(bytes.find("\xff\xc2"), std::string::npos);  // no progressive one
  std::rewind(stream);
  // YCbCr with the default 2 x 2 luminance sampling; quality 85 scales the
  // tables by 200 - 2 * 85 = 30 percent, rounded, 1..255 (baseline).
  std::vector<int> expected = {512, 512, 3, JCS_YCbCr, 0, 2, 2, 1, 1};
  for (const int* table : {kLuminance, kChrominance})
    for (int i = 0; i < 64; ++i)
      expected.push_back(std::clamp(((table[i] ? table[i] : 99) * 30 + 50) / 100, 1, 255));
  EXPECT_EQ(JpegFacts(stream), expected);
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
  EXPECT_FALSE(test::FileExists(missing));
}

TEST(TiffWriterTest, TagsOfEachKind) {
  test::TempDir dir;
  MessageCapture capture;
  const std::vector<uint8_t> data(5 * 3 * 4, 9);
  struct Case {
    int kind;
    bool alpha;
    std::vector<uint32_t> tags;  // samples, bits, photometric, extra sample kinds
  } cases[] = {{kTiffElevationKind, false, {1, 16, PHOTOMETRIC_MINISBLACK}},
               {kTiffElevationKind, true, {1, 16, PHOTOMETRIC_MINISBLACK}},  // no alpha here
               {0, true, {4, 8, PHOTOMETRIC_RGB, EXTRASAMPLE_UNASSALPHA}},
               {0, false, {3, 8, PHOTOMETRIC_RGB}}};
  for (const Case& c : cases) {
    ASSERT_TRUE(VmpWriteTiff(nullptr, dir / "t.tif", data.data(), 5, 3, c.kind, c.alpha));
    TIFF* tif = TIFFOpen((dir / "t.tif").c_str(), "r");
    ASSERT_NE(tif, nullptr);
    std::vector<uint32_t> tags;
    for (uint32_t tag : {TIFFTAG_SAMPLESPERPIXEL, TIFFTAG_BITSPERSAMPLE, TIFFTAG_PHOTOMETRIC,
                         TIFFTAG_IMAGEWIDTH, TIFFTAG_IMAGELENGTH, TIFFTAG_ROWSPERSTRIP,
                         TIFFTAG_COMPRESSION, TIFFTAG_PLANARCONFIG, TIFFTAG_ORIENTATION}) {
      uint32_t value32 = 0;
      uint16_t value16 = 0;
      const bool wide =
          tag == TIFFTAG_IMAGEWIDTH || tag == TIFFTAG_IMAGELENGTH || tag == TIFFTAG_ROWSPERSTRIP;
      TIFFGetField(tif, tag, wide ? static_cast<void*>(&value32) : static_cast<void*>(&value16));
      tags.push_back(wide ? value32 : value16);
    }
    uint16_t extra_count = 0, *extra = nullptr;
    if (TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &extra_count, &extra))
      tags.insert(tags.end(), extra, extra + extra_count);
    TIFFClose(tif);
    std::vector<uint32_t> expected(c.tags.begin(), c.tags.begin() + 3);
    expected.insert(expected.end(), {5, 3, 1, 32946, PLANARCONFIG_CONTIG, ORIENTATION_TOPLEFT});
    expected.insert(expected.end(), c.tags.begin() + 3, c.tags.end());
    EXPECT_EQ(tags, expected) << c.kind << c.alpha;
  }
  EXPECT_TRUE(capture.messages().empty());
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
    std::FILE* file = std::fopen((dir / "map.jpg").c_str(), "rb");
    const std::vector<int> facts = JpegFacts(file);
    std::fclose(file);
    EXPECT_EQ(facts[0] * 10 + facts[1], 11);  // 1 x 1
  }
}

}  // namespace
}  // namespace vmp
