#include "map_server/tools/image_tiler.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/image/image_loader.h"
#include "map_server/image/jpeg_writer.h"
#include "map_server/image/tiff_writer.h"
#include "map_server/tools/tile_info.h"
#include "toolkit/environment.h"
#include "toolkit/message_log.h"

namespace vmp {

ImageTilerSettings& ImageTiler() {
  static ImageTilerSettings settings;
  return settings;
}

std::optional<TileFillColour> ParseTileFillColour(std::string_view text) {
  int values[4] = {0, 0, 0, 0};
  int count = 0;
  size_t i = 0;
  auto skip_separators = [&] {
    while (i < text.size() && (text[i] == ',' || text[i] == ' ' || text[i] == '\t')) ++i;
  };
  skip_separators();
  while (i < text.size()) {
    if (count == 4 || text[i] < '0' || text[i] > '9') return std::nullopt;
    int value = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
      value = value * 10 + (text[i] - '0');
      if (value > 255) return std::nullopt;
    }
    values[count++] = value;
    skip_separators();
  }
  if (count < 3) return std::nullopt;
  return TileFillColour{static_cast<uint8_t>(values[0]), static_cast<uint8_t>(values[1]),
                        static_cast<uint8_t>(values[2]), static_cast<uint8_t>(values[3])};
}

TileFillColour TileFill() {
  ImageTilerSettings& settings = ImageTiler();
  if (!settings.fill_colour) {
    settings.fill_colour = TileFillColour{};
    if (std::optional<std::string> text = kav::GetEnv("VMP_TILE_FILL_COLOR")) {
      if (std::optional<TileFillColour> colour = ParseTileFillColour(*text)) {
        settings.fill_colour = colour;
      } else {
        Report(kWarning, "Invalid VMP_TILE_FILL_COLOR, black is used", *text);
      }
    }
  }
  return *settings.fill_colour;
}

namespace {

// Where one tile's pixels come from: the whole decoded image, held once.
struct TileSource {
  const LoadedImage& image;
  int bytes_per_pixel;  // of the tiles: 2 elevation, 3 RGB, 4 RGBA
};

// Copies `count` image pixels starting at `src` into tile pixels at `out`.
void CopyPixels(const TileSource& source, const uint8_t* src, int64_t count, uint8_t* out) {
  const int in_samples = source.image.samples_per_pixel;
  const int out_bytes = source.bytes_per_pixel;
  if (source.image.elevation || in_samples == out_bytes) {
    std::memcpy(out, src, static_cast<size_t>(count) * out_bytes);
    return;
  }
  for (int64_t x = 0; x < count; ++x, out += out_bytes, src += in_samples) {
    if (in_samples == 1) {
      out[0] = out[1] = out[2] = src[0];  // gray
    } else {
      out[0] = src[0];  // RGBA into an RGB tile: alpha dropped
      out[1] = src[1];
      out[2] = src[2];
    }
  }
}

// Fills the tile whose top left image pixel is (x0, y0): image pixels are
// copied, the rest is padded from `fill_row` (one tile row of padding).
void FillTile(const TileSource& source, int64_t x0, int64_t y0, int64_t tile_width,
              int64_t tile_height, const std::vector<uint8_t>& fill_row, uint8_t* tile) {
  const LoadedImage& image = source.image;
  const int out_bytes = source.bytes_per_pixel;
  const size_t in_pixel_bytes =
      image.elevation ? 2 : static_cast<size_t>(image.samples_per_pixel);
  const uint8_t* pixels = image.elevation
                              ? reinterpret_cast<const uint8_t*>(image.elevation_samples.data())
                              : image.pixels.data();
  const int64_t columns = std::clamp<int64_t>(image.width - x0, 0, tile_width);
  const size_t tile_row_bytes = static_cast<size_t>(tile_width) * out_bytes;
  for (int64_t y = 0; y < tile_height; ++y) {
    uint8_t* out = tile + static_cast<size_t>(y) * tile_row_bytes;
    const int64_t image_y = y0 + y;
    if (image_y >= image.height || columns == 0) {
      std::memcpy(out, fill_row.data(), tile_row_bytes);
      continue;
    }
    const uint8_t* src =
        pixels + (static_cast<size_t>(image_y) * image.width + x0) * in_pixel_bytes;
    CopyPixels(source, src, columns, out);
    const size_t used = static_cast<size_t>(columns) * out_bytes;
    std::memcpy(out + used, fill_row.data(), tile_row_bytes - used);
  }
}

std::vector<uint8_t> MakeFillRow(int64_t tile_width, int bytes_per_pixel, bool elevation) {
  std::vector<uint8_t> row(static_cast<size_t>(tile_width) * bytes_per_pixel, 0);
  if (elevation) return row;
  const TileFillColour fill = TileFill();
  const uint8_t pixel[4] = {fill.red, fill.green, fill.blue, fill.alpha};
  for (size_t i = 0; i < row.size(); ++i) row[i] = pixel[i % bytes_per_pixel];
  return row;
}

// The output type of a template: by its ending, else the input's.
int OutputFormat(const std::string& output_template, const std::string& input) {
  const int by_ending = ImageFormatFromName(output_template);
  return by_ending != kImageFormatFromName ? by_ending : ImageFormatFromName(input);
}

}  // namespace

bool TileImage(const std::string& input, const std::string& output_template, int64_t num_x,
               int64_t num_y, bool elevation, int64_t progress) {
  if (ImageFormatFromName(output_template) == kPngFormat) {
    Report(kError, "PNG is not supported for tiling output, use TIFF.", output_template);
    return false;
  }
  const int output_format = OutputFormat(output_template, input);
  if (elevation && (ImageFormatFromName(input) != kTiffFormat || output_format != kTiffFormat)) {
    Report(kError, "Only TIFF format is supported for elevation data.");
    return false;
  }
  if (output_format != kJpegFormat && output_format != kTiffFormat) {
    Report(kError, "Only JPEG and TIF are supported for tiling output.", output_template);
    return false;
  }

  LoadedImage image;
  if (!LoadImageFile(input, kImageFormatFromName, elevation, image)) return false;
  if (!CheckTileGrid(image.width, image.height, num_x, num_y)) return false;
  const bool alpha = image.has_alpha && output_format == kTiffFormat;
  if (image.has_alpha && !alpha) Report(kWarning, "JPEG tiles keep no alpha channel", input);
  const TileSource source{image, elevation ? 2 : (alpha ? 4 : 3)};
  const int64_t tile_width = TileSpan(image.width, num_x);
  const int64_t tile_height = TileSpan(image.height, num_y);

  // A single tile holding the image in the tile layout is written straight
  // from the image, without a second copy of it.
  const bool same_layout = elevation || image.samples_per_pixel == source.bytes_per_pixel;
  const uint8_t* whole_image = nullptr;
  if (num_x == 1 && num_y == 1 && same_layout) {
    whole_image = elevation ? reinterpret_cast<const uint8_t*>(image.elevation_samples.data())
                            : image.pixels.data();
  }
  std::vector<uint8_t> tile, fill_row;
  try {
    if (whole_image == nullptr) {
      tile.resize(static_cast<size_t>(tile_width) * tile_height * source.bytes_per_pixel);
    }
    fill_row = MakeFillRow(tile_width, source.bytes_per_pixel, elevation);
  } catch (const std::bad_alloc&) {
    Report(kError, "Not enough memory for the tile buffer", input);
    return false;
  }

  bool all_written = true;
  int64_t count = 0;
  for (int64_t i = 0; i < num_x; ++i) {
    for (int64_t j = 0; j < num_y; ++j) {
      ++count;
      if (progress > 0 && count % progress == 0) std::printf("Writing tile #%lld\n", static_cast<long long>(count));
      const std::string name = ExpandTileName(output_template, i, j);
      const uint8_t* pixels = whole_image;
      if (pixels == nullptr) {
        FillTile(source, i * tile_width, j * tile_height, tile_width, tile_height, fill_row,
                 tile.data());
        pixels = tile.data();
      }
      const bool written =
          output_format == kJpegFormat
              ? WriteMapJpeg(nullptr, name, pixels, tile_width, tile_height)
              : VmpWriteTiff(nullptr, name, pixels, tile_width, tile_height,
                             elevation ? kTiffElevationKind : 0, alpha,
                             elevation && image.signed_elevation);
      if (!written) all_written = false;
    }
  }
  std::fflush(stdout);
  return all_written;
}

}  // namespace vmp
