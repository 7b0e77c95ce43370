// "-tile": cutting an image ("-image") or vector data ("-vector") into a grid
// of tiles.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "map_server/driver/command.h"
#include "map_server/driver/vector_split_options.h"

namespace vmp {

struct TileOptions {
  DataKind kind = DataKind::kImage;
  std::optional<std::string> filename;
  std::optional<std::string> name_template;  // -template
  std::optional<int64_t> num_x_tiles;
  std::optional<int64_t> num_y_tiles;
  bool elevation = false;  // -image only
  // -vector only; after the checks it holds everything the split worker
  // takes, the four options above included.
  VectorSplitOptions vector;
};

// The options of the kind in `options.kind`.
OptionTable TileOptionTable(TileOptions& options);

bool SetupTile(ArgList args, TileOptions& options);
int RunTile(const TileOptions& options);

}  // namespace vmp
