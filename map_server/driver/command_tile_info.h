// "-tile_info": tile info files for a grid of image tiles.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "map_server/driver/command.h"

namespace vmp {

struct TileInfoOptions {
  std::optional<std::string> slf_pattern;   // info file name template
  std::optional<std::string> data_pattern;  // image file name template
  std::optional<int64_t> width;
  std::optional<int64_t> height;
  std::optional<int64_t> num_x_tiles;
  std::optional<int64_t> num_y_tiles;
  std::optional<double> min_lat;
  std::optional<double> max_lat;
  std::optional<double> min_lon;
  std::optional<double> max_lon;
};

OptionTable TileInfoOptionTable(TileInfoOptions& options);

// Sizes and tile counts of zero or below count as not set.
bool SetupTileInfo(ArgList args, TileInfoOptions& options);
int RunTileInfo(const TileInfoOptions& options);

}  // namespace vmp
