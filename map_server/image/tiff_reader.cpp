// TIFF tiles through libtiff: 16-bit elevation grids read straight into the
// image, colour images decoded to packed RGBA words block by block and
// unpacked into 3 or 4 samples.
#include <tiffio.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <new>
#include <vector>

#include "map_server/image/image_decoders.h"
#include "map_server/image/image_settings.h"
#include "map_server/image/tiff_alpha.h"
#include "map_server/image/tiff_support.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

struct TiffLayout {
  uint32_t width = 0;
  uint32_t height = 0;
  uint32_t rows_per_strip = 0;
  uint16_t samples_per_pixel = 1;
  uint16_t bits_per_sample = 1;
  uint16_t sample_format = SAMPLEFORMAT_UINT;
  uint16_t orientation = ORIENTATION_TOPLEFT;
};

TiffLayout ReadLayout(TIFF* tif) {
  TiffLayout layout;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &layout.width);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &layout.height);
  TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &layout.rows_per_strip);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &layout.samples_per_pixel);
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &layout.bits_per_sample);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &layout.sample_format);
  TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &layout.orientation);
  return layout;
}

void ReportTiffFailure(const std::string& path, const TiffMessages& messages) {
  Report(kError, "Error reading TIFF image", path);
  if (Verbosity() >= 1 && messages.first_error[0] != '\0') {
    Report(kInfo, path, messages.first_error);
  }
}

// Strips are decoded straight into their rows of the image; tiles through
// one tile buffer.
bool ReadElevationSamples(TIFF* tif, const TiffLayout& layout, uint16_t* out) {
  const size_t row_bytes = static_cast<size_t>(layout.width) * 2;
  if (TIFFScanlineSize64(tif) != row_bytes) return false;
  auto* bytes = reinterpret_cast<uint8_t*>(out);
  if (!TIFFIsTiled(tif)) {
    const uint32_t rows_per_strip = std::clamp<uint32_t>(layout.rows_per_strip, 1, layout.height);
    for (uint32_t row = 0; row < layout.height; row += rows_per_strip) {
      const uint32_t rows = std::min(rows_per_strip, layout.height - row);
      const tmsize_t size = static_cast<tmsize_t>(rows * row_bytes);
      const tstrip_t strip = TIFFComputeStrip(tif, row, 0);
      if (TIFFReadEncodedStrip(tif, strip, bytes + row * row_bytes, size) != size) return false;
    }
    return true;
  }
  uint32_t tile_width = 0, tile_length = 0;
  TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tile_width);
  TIFFGetField(tif, TIFFTAG_TILELENGTH, &tile_length);
  const tmsize_t tile_size = TIFFTileSize(tif);
  if (tile_width == 0 || tile_length == 0 || tile_size <= 0 ||
      static_cast<uint64_t>(tile_size) < static_cast<uint64_t>(tile_width) * tile_length * 2) {
    return false;
  }
  std::vector<uint8_t> tile(static_cast<size_t>(tile_size));
  const size_t tile_row_bytes = static_cast<size_t>(tile_width) * 2;
  for (uint32_t y = 0; y < layout.height; y += tile_length) {
    for (uint32_t x = 0; x < layout.width; x += tile_width) {
      if (TIFFReadTile(tif, tile.data(), x, y, 0, 0) < 0) return false;
      const uint32_t rows = std::min(tile_length, layout.height - y);
      const size_t run = static_cast<size_t>(std::min(tile_width, layout.width - x)) * 2;
      for (uint32_t r = 0; r < rows; ++r) {
        std::memcpy(bytes + (y + r) * row_bytes + static_cast<size_t>(x) * 2,
                    tile.data() + r * tile_row_bytes, run);
      }
    }
  }
  return true;
}

bool LoadElevation(TIFF* tif, const TiffLayout& layout, const std::string& path,
                   const TiffMessages& messages, LoadedImage& image) {
  if (layout.samples_per_pixel != 1) {
    ReportNumber(kError, "Invalid samples per pixel", path, layout.samples_per_pixel);
    Report(kError, "Invalid elevation data format: samples_per_pixel > 1", path);
    return false;
  }
  if (layout.bits_per_sample != 16) {
    ReportNumber(kError, "Invalid bits per sample", path, layout.bits_per_sample);
    Report(kError, "Unsupported elevation TIFF with bits_per_sample != 16", path);
    return false;
  }
  if (!AllocateLoadedImage(path, layout.width, layout.height, 1, 2, image)) return false;
  if (!ReadElevationSamples(tif, layout, image.elevation_samples.data())) {
    ReportTiffFailure(path, messages);
    return false;
  }
  image.samples_per_pixel = 1;
  image.has_alpha = false;
  image.elevation = true;
  image.signed_elevation = layout.sample_format == SAMPLEFORMAT_INT;
  return true;
}

// Packed words hold red in the low byte, then green, blue and alpha.
void UnpackRows(const uint32_t* words, size_t count, int samples, uint8_t* out) {
  if (samples == 4) {
    if constexpr (std::endian::native == std::endian::little) {
      std::memcpy(out, words, count * 4);
      return;
    }
    for (size_t i = 0; i < count; ++i, out += 4) {
      out[0] = static_cast<uint8_t>(TIFFGetR(words[i]));
      out[1] = static_cast<uint8_t>(TIFFGetG(words[i]));
      out[2] = static_cast<uint8_t>(TIFFGetB(words[i]));
      out[3] = static_cast<uint8_t>(TIFFGetA(words[i]));
    }
    return;
  }
  for (size_t i = 0; i < count; ++i, out += 3) {
    out[0] = static_cast<uint8_t>(TIFFGetR(words[i]));
    out[1] = static_cast<uint8_t>(TIFFGetG(words[i]));
    out[2] = static_cast<uint8_t>(TIFFGetB(words[i]));
  }
}

// Rows decoded per call: whole strips (or tiles), about 64 rows at least,
// so that no strip is decoded twice and the word buffer stays small. Files
// stored bottom-up are decoded in one block so that libtiff can flip them.
uint32_t BlockRows(TIFF* tif, const TiffLayout& layout) {
  if (layout.orientation != ORIENTATION_TOPLEFT && layout.orientation != ORIENTATION_TOPRIGHT) {
    return layout.height;
  }
  uint32_t unit = layout.rows_per_strip;
  if (TIFFIsTiled(tif)) {
    unit = 0;
    TIFFGetField(tif, TIFFTAG_TILELENGTH, &unit);
  }
  unit = std::clamp<uint32_t>(unit, 1, layout.height);
  const uint32_t units = std::max<uint32_t>(1, 64 / unit);
  return static_cast<uint32_t>(
      std::min<uint64_t>(static_cast<uint64_t>(unit) * units, layout.height));
}

struct RgbaImageGuard {
  TIFFRGBAImage* image;
  ~RgbaImageGuard() { TIFFRGBAImageEnd(image); }
};

bool DecodeColour(TIFF* tif, const TiffLayout& layout, int samples, bool unmultiply,
                  LoadedImage& image, TiffMessages& messages) {
  char reason[1024] = {0};
  if (!TIFFRGBAImageOK(tif, reason)) {
    std::snprintf(messages.first_error, sizeof(messages.first_error), "%s", reason);
    return false;
  }
  TIFFRGBAImage rgba;
  std::memset(&rgba, 0, sizeof(rgba));
  if (!TIFFRGBAImageBegin(&rgba, tif, 1, reason)) {
    std::snprintf(messages.first_error, sizeof(messages.first_error), "%s", reason);
    return false;
  }
  RgbaImageGuard guard{&rgba};
  rgba.req_orientation = ORIENTATION_TOPLEFT;

  const uint32_t block = BlockRows(tif, layout);
  std::vector<uint32_t> words;
  try {
    words.resize(static_cast<size_t>(layout.width) * block);
  } catch (const std::bad_alloc&) {
    std::snprintf(messages.first_error, sizeof(messages.first_error), "out of memory");
    return false;
  }
  const size_t row_bytes = static_cast<size_t>(layout.width) * samples;
  for (uint32_t row = 0; row < layout.height; row += block) {
    const uint32_t rows = std::min(block, layout.height - row);
    rgba.row_offset = static_cast<int>(row);
    rgba.col_offset = 0;
    if (!TIFFRGBAImageGet(&rgba, words.data(), layout.width, rows)) return false;
    uint8_t* out = image.pixels.data() + row * row_bytes;
    const size_t count = static_cast<size_t>(layout.width) * rows;
    UnpackRows(words.data(), count, samples, out);
    if (unmultiply) UnpremultiplyRgba(out, count);
  }
  return true;
}

bool LoadColour(TIFF* tif, const TiffLayout& layout, const std::string& path,
                TiffMessages& messages, LoadedImage& image) {
  if (layout.samples_per_pixel > 4) {
    Report(kError, "Unsupported TIFF with samples_per_pixel > 4", path);
    return false;
  }
  if (layout.bits_per_sample != 8) {
    Report(kError, "Unsupported TIFF with bits_per_sample != 8", path);
    return false;
  }
  const int samples = layout.samples_per_pixel == 4 ? 4 : 3;
  bool unmultiply = false;
  if (samples == 4) {
    uint16_t count = 0;
    uint16_t* kinds = nullptr;
    const bool unassociated = TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &count, &kinds) &&
                              count == 1 && kinds[0] == EXTRASAMPLE_UNASSALPHA;
    if (!unassociated) Report(kWarning, "Unsupported TIFF associated alpha mode.", path);
    unmultiply = UnmultiplyTiffAlpha();
  }
  if (!AllocateLoadedImage(path, layout.width, layout.height, samples, 1, image)) return false;
  if (!DecodeColour(tif, layout, samples, unmultiply, image, messages)) {
    ReportTiffFailure(path, messages);
    return false;
  }
  image.samples_per_pixel = samples;
  image.has_alpha = samples >= 4;
  image.elevation = false;
  return true;
}

}  // namespace

bool ReadTiffFile(std::FILE* file, const std::string& path, bool elevation, LoadedImage& image) {
  TiffMessages messages;
  TiffCloser tif{OpenTiffForReading(file, path, &messages)};
  if (tif.tif == nullptr) {
    ReportTiffFailure(path, messages);
    return false;
  }
  const TiffLayout layout = ReadLayout(tif.tif);
  if (layout.width == 0 || layout.height == 0) {
    ReportTiffFailure(path, messages);
    return false;
  }
  const bool loaded = elevation ? LoadElevation(tif.tif, layout, path, messages, image)
                                : LoadColour(tif.tif, layout, path, messages, image);
  if (!loaded) return false;
  image.format = kTiffFormat;
  image.width = layout.width;
  image.height = layout.height;
  return true;
}

}  // namespace vmp
