#include "map_server/driver/command_tile.h"

#include "map_server/tools/image_tiler.h"

namespace vmp {

OptionTable TileOptionTable(TileOptions& o) {
  OptionTable table = {
      {"-filename", "filename", &o.filename},
      {"-template", "template", &o.name_template},
      {"-num-x-tiles", "num x tiles", &o.num_x_tiles},
      {"-num-y-tiles", "num y tiles", &o.num_y_tiles},
  };
  if (o.kind == DataKind::kImage) {
    table.push_back({"-elevation", "", &o.elevation});
  } else {
    AddVectorSplitOptions(table, o.vector);
  }
  return table;
}

bool SetupTile(ArgList args, TileOptions& o) {
  std::optional<DataKind> kind = ReadDataKind(args);
  if (!kind) return CheckFailed("Missing -vector or -image after -tile!");
  o.kind = *kind;
  if (!ParseOptions(args.subspan(1), TileOptionTable(o))) return false;
  if (!o.filename || !o.name_template) {
    return CheckFailed("Mandatory variables filename or template not set for -tile!");
  }
  if (!IsPositive(o.num_x_tiles) || !IsPositive(o.num_y_tiles)) {
    return CheckFailed("Mandatory variables num-x/y-tiles not set for -tile!");
  }
  if (o.kind == DataKind::kImage) return true;
  o.vector.filename = o.filename;
  o.vector.output = o.name_template;
  o.vector.num_x_tiles = o.num_x_tiles;
  o.vector.num_y_tiles = o.num_y_tiles;
  return CheckVectorTileOptions(o.vector);
}

int RunTile(const TileOptions& o) {
  if (o.kind == DataKind::kImage) {
    const bool tiled = TileImage(*o.filename, *o.name_template, *o.num_x_tiles, *o.num_y_tiles,
                                 o.elevation, ProgressInterval());
    return ToolStatus(tiled, "Tiled image", "Error tiling image");
  }
  const bool tiled =
      SplitTvfFile(*o.vector.filename, MakeSplitSettings(o.vector, ProgressInterval()));
  return ToolStatus(tiled, "Tiled vector data", "Error tiling vector data");
}

}  // namespace vmp
