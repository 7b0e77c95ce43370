#include "map_server/image/image_loader.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <new>
#include <string>

#include "map_server/image/image_decoders.h"
#include "map_server/image/image_settings.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

bool EndsWithNoCase(std::string_view text, std::string_view ending) {
  if (text.size() < ending.size()) return false;
  text.remove_prefix(text.size() - ending.size());
  for (size_t i = 0; i < ending.size(); ++i) {
    char c = text[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != ending[i]) return false;
  }
  return true;
}

}  // namespace

int ImageFormatFromName(std::string_view path) {
  if (EndsWithNoCase(path, ".jpg")) return kJpegFormat;
  if (EndsWithNoCase(path, ".tif")) return kTiffFormat;
  if (EndsWithNoCase(path, ".png")) return kPngFormat;
  return kImageFormatFromName;
}

namespace {

bool UsableExtent(const ImageDecodeHint& hint) {
  const double lon_span = hint.max_lon - hint.min_lon, lat_span = hint.max_lat - hint.min_lat;
  return lon_span > 0.0 && lat_span > 0.0 && std::isfinite(lon_span) && std::isfinite(lat_span);
}

}  // namespace

int DecodeScaleFor(const ImageDecodeHint& hint, int64_t width, int64_t height) {
  if (!(hint.max_degrees_per_pixel > 0.0) || !UsableExtent(hint) || width <= 0 || height <= 0) return 1;
  const double lon_per_pixel = (hint.max_lon - hint.min_lon) / static_cast<double>(width);
  const double lat_per_pixel = (hint.max_lat - hint.min_lat) / static_cast<double>(height);
  for (int scale : {8, 4, 2}) {
    if (lon_per_pixel * scale <= hint.max_degrees_per_pixel &&
        lat_per_pixel * scale <= hint.max_degrees_per_pixel) {
      return scale;
    }
  }
  return 1;
}

DecodeRows DecodeRowsFor(const ImageDecodeHint& hint, int64_t height, int scale) {
  const int64_t rows = scale > 1 ? (height + scale - 1) / scale : height;
  DecodeRows all{0, rows};
  if (height <= 0 || !UsableExtent(hint) || !(hint.band_min_lat <= hint.band_max_lat)) return all;
  // Decoded row r covers latitudes max_lat - (r + 1) * step .. max_lat - r * step.
  const double step = (hint.max_lat - hint.min_lat) / static_cast<double>(height) * scale;
  const double top = (hint.max_lat - hint.band_max_lat) / step;
  const double bottom = (hint.max_lat - hint.band_min_lat) / step;
  DecodeRows band = all;
  if (top > 1.0) band.first = std::min<int64_t>(rows, static_cast<int64_t>(std::floor(std::min(top, 1e15))) - 1);
  if (bottom < static_cast<double>(rows) - 1.0) {
    band.end = std::max<int64_t>(0, static_cast<int64_t>(std::ceil(std::max(bottom, -1e15))) + 1);
  }
  // A band that misses the tile still decodes a row, so the tile is never empty.
  if (band.end <= band.first) {
    band.first = std::clamp<int64_t>(band.first, 0, rows - 1);
    band.end = band.first + 1;
  }
  return band;
}

bool AllocateLoadedImage(const std::string& path, uint64_t width, uint64_t height, int samples,
                         int sample_bytes, LoadedImage& image) {
  const int64_t limit = ImageFiles().max_image_bytes;
  const uint64_t per_pixel = static_cast<uint64_t>(samples) * static_cast<uint64_t>(sample_bytes);
  // width and height come from 32-bit header fields, so the product fits.
  const uint64_t pixels = width * height;
  if (pixels > static_cast<uint64_t>(std::max<int64_t>(limit, 0)) / per_pixel) {
    ReportNumber(kError, "Image too large", path, static_cast<double>(pixels) * per_pixel);
    return false;
  }
  try {
    // The buffer of the other kind is emptied (its memory is kept).
    image.elevation_samples.Resize(sample_bytes == 2 ? pixels * samples : 0);
    image.pixels.Resize(sample_bytes == 2 ? 0 : pixels * samples);
  } catch (const std::bad_alloc&) {
    ReportNumber(kError, "Not enough memory for the image", path,
                 static_cast<double>(pixels * per_pixel));
    return false;
  }
  return true;
}

bool LoadImageFile(std::string_view path_view, int format, bool elevation, LoadedImage& image,
                   bool tolerate_unknown, const ImageDecodeHint& hint) {
  if (path_view.empty()) {
    Report(kError, "NULL filename");
    return false;
  }
  const std::string path(path_view);
  const auto start = std::chrono::steady_clock::now();

  if (format == kImageFormatFromName) {
    format = ImageFormatFromName(path);
    if (format == kImageFormatFromName) {
      if (!tolerate_unknown) Report(kError, "Unknown image format", path);
      return false;
    }
  }
  if (format != kJpegFormat && format != kTiffFormat && format != kPngFormat) {
    ReportNumber(kError, "Only JPEG, TIF and PNG image type are currently supported", path, format);
    return false;
  }
  if (elevation && format != kTiffFormat) {
    Report(kError, "Only TIFF format is supported for elevation data", path);
    return false;
  }

  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (!file) {
    Report(kError, "Could not be opened", path);
    return false;
  }
  image.elevation = false;
  image.signed_elevation = false;
  image.scale = 1;
  image.first_row = 0;
  image.source_width = image.source_height = 0;
  bool loaded = false;
  switch (format) {
    case kJpegFormat:
      loaded = ReadJpegFile(file.get(), path, image, hint);
      break;
    case kPngFormat:
      loaded = ReadPngFile(file.get(), path, image);
      break;
    default:
      loaded = ReadTiffFile(file.get(), path, elevation, image);
      break;
  }
  if (!loaded) return false;

  if (Verbosity() <= -3) {
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    ReportNumber(kInfo, "Image tile load time", path, elapsed.count());
  }
  if (Verbosity() >= 6) Report(kInfo, "Loaded image tile", path);
  return true;
}

}  // namespace vmp
