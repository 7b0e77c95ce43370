#include "map_server/driver/command_tile_info.h"

#include "map_server/tools/tile_info.h"

#include "toolkit/global_config.h"
#include "toolkit/message_log.h"

namespace vmp {

OptionTable TileInfoOptionTable(TileInfoOptions& o) {
  return {
      {"-verbosity", "verbosity", &kav::Messages().verbosity},
      {"-progress", "progress", &kav::Config().progress},
      {"-slf-pattern", "slf pattern", &o.slf_pattern},
      {"-data-pattern", "data pattern", &o.data_pattern},
      {"-width", "width", &o.width},
      {"-height", "height", &o.height},
      {"-num-x-tiles", "num x tiles", &o.num_x_tiles},
      {"-num-y-tiles", "num y tiles", &o.num_y_tiles},
      {"-min-lat", "min lat", &o.min_lat},
      {"-max-lat", "max lat", &o.max_lat},
      {"-min-lon", "min lon", &o.min_lon},
      {"-max-lon", "max lon", &o.max_lon},
  };
}

bool SetupTileInfo(ArgList args, TileInfoOptions& o) {
  if (!ParseOptions(args, TileInfoOptionTable(o))) return false;
  if (!o.slf_pattern || !o.data_pattern) {
    return CheckFailed("Mandatory variables slf_pattern or data-pattern not set!");
  }
  if (!IsPositive(o.width) || !IsPositive(o.height)) {
    return CheckFailed("Mandatory variables width/height not set!");
  }
  if (!o.min_lat || !o.max_lat || !o.min_lon || !o.max_lon) {
    return CheckFailed("Mandatory variables min/max_lat/lon not set!");
  }
  if (!IsPositive(o.num_x_tiles) || !IsPositive(o.num_y_tiles)) {
    return CheckFailed("Mandatory variables num_x or num_y not set!");
  }
  return true;
}

int RunTileInfo(const TileInfoOptions& o) {
  const bool generated = WriteTileInfoFiles(*o.slf_pattern, *o.data_pattern, *o.width, *o.height,
                                            *o.num_x_tiles, *o.num_y_tiles, *o.min_lat,
                                            *o.max_lat, *o.min_lon, *o.max_lon,
                                            ProgressInterval());
  return ToolStatus(generated, "Generated tile info files", "Error generating tile info files");
}

}  // namespace vmp
