// Test images made directly with the codec libraries, for layouts the
// program's own writers do not produce.
#pragma once

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <csetjmp>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace vmp::test {

// width x height pixels of `samples` bytes: ramps that differ per sample.
inline std::vector<uint8_t> Pattern(int width, int height, int samples) {
  std::vector<uint8_t> data(static_cast<size_t>(width) * height * samples);
  for (size_t i = 0; i < data.size(); ++i) {
    const size_t pixel = i / samples, s = i % samples;
    data[i] = static_cast<uint8_t>((pixel % width) * (s + 1) * 7 + (pixel / width) * 3 + s * 40);
  }
  return data;
}

struct PngLayout {
  uint32_t width = 0, height = 0;
  int color_type = PNG_COLOR_TYPE_RGB;
  int bit_depth = 8;
  size_t row_bytes = 0;
  bool interlaced = false;
  std::vector<png_color> palette = {};
  std::vector<uint8_t> palette_alpha = {};  // tRNS of a palette file
  int transparent_gray = -1;                // tRNS of a gray file
};

inline bool WritePng(const std::string& path, const PngLayout& layout, const uint8_t* data) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
    return false;
  }
  png_init_io(png, file);
  png_set_IHDR(png, info, layout.width, layout.height, layout.bit_depth, layout.color_type,
               layout.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!layout.palette.empty())
    png_set_PLTE(png, info, layout.palette.data(), static_cast<int>(layout.palette.size()));
  png_color_16 gray{};
  gray.gray = static_cast<png_uint_16>(layout.transparent_gray);
  if (!layout.palette_alpha.empty()) {
    png_set_tRNS(png, info, layout.palette_alpha.data(),
                 static_cast<int>(layout.palette_alpha.size()), nullptr);
  } else if (layout.transparent_gray >= 0) {
    png_set_tRNS(png, info, nullptr, 0, &gray);
  }
  png_write_info(png, info);
  const int passes = png_set_interlace_handling(png);
  for (int pass = 0; pass < passes; ++pass)
    for (uint32_t y = 0; y < layout.height; ++y) png_write_row(png, data + y * layout.row_bytes);
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return std::fclose(file) == 0;
}

inline bool WriteGrayJpeg(const std::string& path, int width, int height, const uint8_t* data) {
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  jpeg_compress_struct cinfo;
  jpeg_error_mgr err;
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_compress(&cinfo);
  jpeg_stdio_dest(&cinfo, file);
  cinfo.image_width = static_cast<JDIMENSION>(width);
  cinfo.image_height = static_cast<JDIMENSION>(height);
  cinfo.input_components = 1;
  cinfo.in_color_space = JCS_GRAYSCALE;
  jpeg_set_defaults(&cinfo);
  jpeg_set_quality(&cinfo, 95, TRUE);
  jpeg_start_compress(&cinfo, TRUE);
  while (cinfo.next_scanline < cinfo.image_height) {
    JSAMPROW row = const_cast<uint8_t*>(data) + cinfo.next_scanline * static_cast<size_t>(width);
    jpeg_write_scanlines(&cinfo, &row, 1);
  }
  jpeg_finish_compress(&cinfo);
  jpeg_destroy_compress(&cinfo);
  return std::fclose(file) == 0;
}

struct TiffLayout {
  uint32_t width = 0, height = 0;
  uint16_t samples = 3, bits = 8;
  uint16_t photometric = PHOTOMETRIC_RGB;
  uint16_t compression = COMPRESSION_NONE;
  uint16_t orientation = ORIENTATION_TOPLEFT;
  uint16_t sample_format = SAMPLEFORMAT_UINT;
  uint32_t rows_per_strip = 1;
  uint32_t tile_size = 0;  // square tiles when non-zero
  std::vector<uint16_t> extra_samples = {};
};

// `data`: rows of width * samples * bits / 8 bytes.
inline bool WriteTiff(const std::string& path, const TiffLayout& layout, const void* data) {
  TIFF* tif = TIFFOpen(path.c_str(), "w");
  if (tif == nullptr) return false;
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, layout.width);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, layout.height);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, layout.samples);
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, layout.bits);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, layout.photometric);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, layout.compression);
  TIFFSetField(tif, TIFFTAG_ORIENTATION, layout.orientation);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, layout.sample_format);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  if (!layout.extra_samples.empty()) {
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, static_cast<uint16_t>(layout.extra_samples.size()),
                 layout.extra_samples.data());
  }
  const size_t pixel_bytes = static_cast<size_t>(layout.samples) * layout.bits / 8;
  const size_t row_bytes = layout.width * pixel_bytes;
  const auto* bytes = static_cast<const uint8_t*>(data);
  bool ok = true;
  if (layout.tile_size == 0) {
    TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, layout.rows_per_strip);
    std::vector<uint8_t> row(row_bytes);
    for (uint32_t y = 0; y < layout.height && ok; ++y) {
      std::copy(bytes + y * row_bytes, bytes + (y + 1) * row_bytes, row.begin());
      ok = TIFFWriteScanline(tif, row.data(), y, 0) >= 0;
    }
  } else {
    const uint32_t t = layout.tile_size;
    TIFFSetField(tif, TIFFTAG_TILEWIDTH, t);
    TIFFSetField(tif, TIFFTAG_TILELENGTH, t);
    std::vector<uint8_t> tile(static_cast<size_t>(TIFFTileSize(tif)));
    for (uint32_t ty = 0; ty < layout.height && ok; ty += t) {
      for (uint32_t tx = 0; tx < layout.width && ok; tx += t) {
        std::fill(tile.begin(), tile.end(), 0);
        for (uint32_t y = 0; y < t && ty + y < layout.height; ++y) {
          const size_t run = std::min(t, layout.width - tx) * pixel_bytes;
          std::copy_n(bytes + (ty + y) * row_bytes + tx * pixel_bytes, run,
                      tile.begin() + y * t * pixel_bytes);
        }
        ok = TIFFWriteTile(tif, tile.data(), tx, ty, 0, 0) >= 0;
      }
    }
  }
  TIFFClose(tif);
  return ok;
}

}  // namespace vmp::test
