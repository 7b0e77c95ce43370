// The process-wide owner of the map server's state: the datasets, the tile
// caches with their counts and the list of layers whose tiles stay cached,
// the FreeType library and the map image. Started once per process by the
// map server mode.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/map_request.h"
#include "map_server/geometry/map_image.h"
#include "map_server/rendering/renderer.h"
#include "map_server/text/text_engine.h"
#include "map_server/tiles/tile_cache.h"

struct FT_LibraryRec_;

namespace vmp {

class MapService {
 public:
  // Initialises FreeType; returns 0 on success (FT_Init_FreeType's contract).
  using FontLibraryInit = std::function<int(FT_LibraryRec_** library)>;

  MapService();
  ~MapService();
  MapService(const MapService&) = delete;
  MapService& operator=(const MapService&) = delete;

  // Starts the service once (a second call does nothing): creates
  // ImageErrors in the message log, the dataset array and the cached layer
  // list, initialises FreeType ("Error occurred during freetype font library
  // initialization" on failure, and start-up goes on), then loads the
  // dataset "DefaultDataset" from `info_path` (none when empty).
  void Start(const std::string& info_path);
  // Releases everything Start created; "Terminated/Done!" at verbosity 2 or
  // more. The service can be started again afterwards.
  void Terminate();
  bool started() const { return started_; }

  // Replaces FT_Init_FreeType (lets tests exercise the failure path).
  void set_font_library_init(FontLibraryInit init) { font_library_init_ = std::move(init); }
  FT_LibraryRec_* font_library() const { return font_library_; }

  // Fonts, glyph caches and text scratch (released before FreeType is).
  TextEngine& text_engine() { return text_engine_; }

  // The DatasetArray.
  const std::vector<std::unique_ptr<Dataset>>& datasets() const { return datasets_; }
  // Dataset by name: "NULL or empty dataset name!" for an empty name,
  // "Could not find dataset" for an unknown one.
  Dataset* FindDataset(std::string_view name);
  // The dataset named by the request's DatasetName ("Can't get map's dataset
  // name" when that cannot be read).
  Dataset* DatasetOfMap(const MapRequest& map);

  // Layers whose tiles stay cached between requests (CachedLayers), least
  // recently used first.
  std::vector<Layer*>& cached_layers() { return tile_cache_.holding_layers(); }

  // The map image every render draws into; its buffer only grows.
  MapImage& map_image() { return map_image_; }

  // The renderer's reused arrays (scan converter edges, projected rings,
  // image samplers).
  Renderer& renderer() { return renderer_; }

  // Process-wide tile-count limits, read from the dataset at geometry setup
  // (negative: no limit).
  struct TileLimits {
    int64_t max_image_tiles = -1;
    int64_t max_vector_tiles = -1;
  };
  TileLimits& tile_limits() { return tile_limits_; }

  // The tile caches and the loaded tile counts; they live from request to
  // request and are emptied when the service terminates.
  TileCache& tile_cache() { return tile_cache_; }

 private:
  bool started_ = false;
  std::vector<std::unique_ptr<Dataset>> datasets_;
  FontLibraryInit font_library_init_;
  FT_LibraryRec_* font_library_ = nullptr;
  TextEngine text_engine_;
  MapImage map_image_;
  Renderer renderer_;
  TileLimits tile_limits_;
  TileCache tile_cache_;
};

// Sets up the map's pixel geometry from its parameters (converted again
// first when `refresh` is set) and the dataset bound by VmpSetupMap; the
// dataset's tile limits become the service's. False on failure (the
// failure path leaves a 1 x 1 background image in the map image).
bool SetupMapGeometry(MapRequest& map, bool refresh);

// The process's map service.
MapService& Service();

// Binds the request to its dataset (by its DatasetName); false when the
// dataset cannot be found.
bool VmpSetupMap(MapRequest& map);
// False with "Unset map object, missing VmpSetupMap() call!" when the
// request has no dataset.
bool CheckMapSetup(const MapRequest& map);

}  // namespace vmp
