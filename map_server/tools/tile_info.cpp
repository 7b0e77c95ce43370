#include "map_server/tools/tile_info.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "map_server/dataset/layer.h"
#include "map_server/tools/slf_format.h"
#include "map_server/util/paths.h"
#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

int64_t TileSpan(int64_t size, int64_t count) {
  if (count <= 0) return 0;
  return size / count + (size % count != 0 ? 1 : 0);
}

bool CheckTileGrid(int64_t width, int64_t height, int64_t num_x, int64_t num_y) {
  if (width < 1 || height < 1 || num_x < 1 || num_y < 1 || num_x > width || num_y > height) {
    Report(kError, "Tile counts must lie between 1 and the image size",
           kav::StrPrintf("%lld x %lld tiles of %lld x %lld pixels", static_cast<long long>(num_x),
                          static_cast<long long>(num_y), static_cast<long long>(width),
                          static_cast<long long>(height)));
    return false;
  }
  if (TileSpan(width, num_x) * (num_x - 1) >= width || TileSpan(height, num_y) * (num_y - 1) >= height) {
    Report(kWarning, "The last tile column or row holds no image pixels");
  }
  return true;
}

bool WriteTileInfoFile(const std::string& info_name, const std::string& image_name, double min_lat,
                       double max_lat, double min_lon, double max_lon, int64_t used_width,
                       int64_t used_height) {
  std::string text(kGeneratedComment);
  text += BoxLines(min_lat, max_lat, min_lon, max_lon);
  if (used_width > 0) text += kav::StrPrintf("USED WIDTH=%lld\n", static_cast<long long>(used_width));
  if (used_height > 0) {
    text += kav::StrPrintf("USED HEIGHT=%lld\n", static_cast<long long>(used_height));
  }
  text += "FILENAME=" + SlfToken(image_name) + "\n";
  auto check_image = [&] {
    if (Verbosity() < 1) return;
    std::error_code ec;
    const std::string image_path = ResolvePath(DirectoryOf(info_name), image_name);
    if (!std::filesystem::exists(image_path, ec)) Report(kWarning, "Data file not found", image_name);
  };
  return WriteGeneratedFile(info_name, text, "Could not open tile info file",
                            "Error writing tile info file", check_image);
}

bool WriteTileInfoFiles(const std::string& info_template, const std::string& image_template,
                        int64_t width, int64_t height, int64_t num_x, int64_t num_y,
                        double min_lat, double max_lat, double min_lon, double max_lon,
                        int64_t progress) {
  if (!CheckTileGrid(width, height, num_x, num_y)) return false;
  const int64_t tile_width = TileSpan(width, num_x);
  const int64_t tile_height = TileSpan(height, num_y);
  // The geographic size of a whole tile, that is of tile_width pixels.
  const double lon_step = (static_cast<double>(tile_width * num_x) / static_cast<double>(width)) *
                          (max_lon - min_lon) / static_cast<double>(num_x);
  const double lat_step = (static_cast<double>(tile_height * num_y) / static_cast<double>(height)) *
                          (max_lat - min_lat) / static_cast<double>(num_y);
  int64_t count = 0;
  int64_t remaining_width = width;
  for (int64_t i = 0; i < num_x; ++i, remaining_width -= tile_width) {
    const bool last_column = i == num_x - 1;
    const double west = min_lon + static_cast<double>(i) * lon_step;
    const double east = last_column ? max_lon : west + lon_step;
    int64_t remaining_height = height;
    for (int64_t j = 0; j < num_y; ++j, remaining_height -= tile_height) {
      ++count;
      if (progress > 0 && count % progress == 0) std::printf("Writing info file #%lld\n", static_cast<long long>(count));
      const bool last_row = j == num_y - 1;
      const double north = max_lat - static_cast<double>(j) * lat_step;
      const double south = last_row ? min_lat : north - lat_step;
      if (!WriteTileInfoFile(ExpandTileName(info_template, i, j),
                             ExpandTileName(image_template, i, j), south, north, west, east,
                             last_column ? remaining_width : 0, last_row ? remaining_height : 0)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace vmp
