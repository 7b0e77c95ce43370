#include "map_server/dataset/layer_paths.h"

#include "map_server/dataset/lif_reader.h"
#include "map_server/dataset/slf_reader.h"
#include "map_server/util/paths.h"
#include "toolkit/message_log.h"

namespace vmp {

void BuildLayerDataPaths(const Dataset& dataset, Layer& layer, const std::string& base) {
  LayerRecord& r = layer.record;
  r.data_path = r.filename ? ResolvePath(base, *r.filename) : std::string();

  r.tile_tree.reset();
  r.sublif_path.clear();
  if (r.tiles_sublif) {
    r.sublif_path = ResolvePath(base, *r.tiles_sublif);
    SlfNode root;
    if (MakeSlfRoot(r.sublif_path, &root)) {
      r.tile_tree = std::make_unique<SlfNode>(std::move(root));
      EnsureSlfNodeLoaded(*r.tile_tree);
    }
  }

  layer.fallback_file_layer.reset();
  r.fallback_file_path.clear();
  if (layer.is_fallback_description || !r.fallback) return;
  if (!layer.IsImageOrVector()) {
    Report(kError, "Invalid layer type for fallback file", layer.name);
    return;
  }
  r.fallback_file_path = ResolvePath(base, *r.fallback);
  layer.fallback_file_layer = ParseLifFile(dataset, layer.name, r.fallback_file_path, true);
}

std::string GridTilePath(const LayerRecord& record, int64_t column, int64_t row) {
  if (record.num_tiles_x == 1 && record.num_tiles_y == 1) return record.data_path;
  return ExpandTileName(record.data_path, column, row);
}

}  // namespace vmp
