#include "map_server/service/map_service.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include "map_server/dataset/dataset_info_reader.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {
constexpr const char* kDefaultDatasetName = "DefaultDataset";
}  // namespace

MapService::MapService()
    : font_library_init_([](FT_LibraryRec_** library) { return static_cast<int>(FT_Init_FreeType(library)); }) {}

MapService::~MapService() {
  text_engine_.Clear();  // its faces belong to the font library
  if (font_library_ != nullptr) FT_Done_FreeType(font_library_);
}

void MapService::Start(const std::string& info_path) {
  if (started_) return;
  started_ = true;
  kav::Messages().image_errors.emplace();
  tile_cache_.Clear();
  datasets_.clear();

  FT_LibraryRec_* library = nullptr;
  if (font_library_init_(&library) != 0) {
    Report(kInternalError, "Error occurred during freetype font library initialization");
    library = nullptr;
  }
  font_library_ = library;

  std::unique_ptr<Dataset> dataset = CreateDataset(kDefaultDatasetName, info_path);
  Dataset& loaded = *dataset;
  datasets_.push_back(std::move(dataset));
  LoadDatasetInfo(loaded, info_path);
}

void MapService::Terminate() {
  if (!started_) {
    // The tools shut the (never started) service down on their way out too.
    if (Verbosity() >= 2) Report(kInfo, "Terminated/Done!");
    return;
  }
  tile_cache_.Clear();  // before the layers its states point to
  datasets_.clear();
  text_engine_.Clear();
  if (font_library_ != nullptr) {
    FT_Done_FreeType(font_library_);
    font_library_ = nullptr;
  }
  if (Verbosity() >= 2) Report(kInfo, "Terminated/Done!");
  kav::Messages().image_errors.reset();
  started_ = false;
}

Dataset* MapService::FindDataset(std::string_view name) {
  if (name.empty()) {
    Report(kError, "NULL or empty dataset name!");
    return nullptr;
  }
  for (auto& dataset : datasets_) {
    if (dataset->name == name) return dataset.get();
  }
  Report(kError, "Could not find dataset", name);
  return nullptr;
}

Dataset* MapService::DatasetOfMap(const MapRequest& map) {
  auto name = map.resources.GetString(MapParamTable()[kMapDatasetName].name);
  if (!name) {
    Report(kError, "Can't get map's dataset name");
    return nullptr;
  }
  return FindDataset(*name ? std::string_view(**name) : std::string_view());
}

MapService& Service() {
  static MapService service;
  return service;
}

bool VmpSetupMap(MapRequest& map) {
  Dataset* dataset = Service().DatasetOfMap(map);
  map.record.dataset = dataset;
  return dataset != nullptr;
}

bool CheckMapSetup(const MapRequest& map) {
  if (map.record.dataset != nullptr) return true;
  Report(kError, "Unset map object, missing VmpSetupMap() call!");
  return false;
}

bool SetupMapGeometry(MapRequest& map, bool refresh) {
  if (refresh) ConvertConfig(map);
  const MapRecord& r = map.record;
  MapGeometryInput in;
  in.projection = r.projection;
  in.center_lat = r.center_lat;
  in.center_lon = r.center_lon;
  in.h_extent = r.h_extent;
  in.v_extent = r.v_extent;
  in.width = r.width;
  in.height = r.height;
  in.stretch = r.stretch;
  in.angle = r.angle;
  in.clip_area = r.clip_area != 0;
  in.clip_min_x = r.clip_min_x;
  in.clip_max_x = r.clip_max_x;
  in.clip_min_y = r.clip_min_y;
  in.clip_max_y = r.clip_max_y;
  in.location_query = r.location_query;
  in.location_i = r.location_i;
  in.location_j = r.location_j;
  in.search_radius = r.search_radius;
  in.verbosity = Verbosity();
  in.background[0] = r.background.red;
  in.background[1] = r.background.green;
  in.background[2] = r.background.blue;
  if (r.dataset != nullptr) {
    const Dataset& d = *r.dataset;
    in.dataset_options = DatasetOptions{d.NumberOption(kDatasetEncoding),
                                        d.NumberOption(kDatasetGlyphCacheType),
                                        d.NumberOption(kDatasetMaxImageTiles),
                                        d.NumberOption(kDatasetMaxVectorTiles)};
  }
  MapService& service = Service();
  bool ok = SetupMapGeometry(in, map.geometry, service.map_image());
  if (in.dataset_options) {
    service.tile_limits() = {map.geometry.max_image_tiles, map.geometry.max_vector_tiles};
  }
  return ok;
}

}  // namespace vmp
