#include "tests/support/map_fixtures.h"

#include <stdexcept>
#include <vector>

#include "map_server/dataset/dataset_info_reader.h"
#include "map_server/image/tiff_writer.h"
#include "map_server/service/map_service.h"
#include "map_server/vector/tvf_writer.h"

namespace vmp::test {

Dataset& DatasetFiles::Load(std::string_view info) {
  const std::string path = dir_.Write("set.sdf", info);
  dataset_ = CreateDataset("DefaultDataset", path);
  LoadDatasetInfo(*dataset_, path);
  return *dataset_;
}

Layer& DatasetFiles::layer(std::string_view name) {
  if (Layer* layer = FindLayer(*dataset_, name)) return *layer;
  throw std::runtime_error("no layer " + std::string(name));
}

std::unique_ptr<MapRequest> MakeMap(Dataset& dataset, const MapView& v) {
  std::unique_ptr<MapRequest> map = CreateMapRequest();
  const std::pair<const char*, double> values[] = {
      {"Projection", static_cast<double>(v.projection)}, {"CenterLat", v.center_lat},
      {"CenterLon", v.center_lon}, {"HExtent", v.h_extent}, {"VExtent", v.v_extent},
      {"Width", static_cast<double>(v.width)}, {"Height", static_cast<double>(v.height)},
      {"LocationI", static_cast<double>(v.location_i)}, {"LocationJ", static_cast<double>(v.location_j)}};
  for (const auto& [name, value] : values) map->resources.SetNumber(name, value);
  map->record.location_query = v.location_query;
  map->record.dataset = &dataset;
  if (!SetupMapGeometry(*map, true)) throw std::runtime_error("map geometry setup failed");
  return map;
}

void WriteMarkerTvf(const std::string& path, int markers) {
  TvfOutput out = OpenTvfOutput(path);
  for (int i = 0; i < markers; ++i) WriteTvfFeature(out.get(), TvfFormat::kAscii, MarkerFeature());
  CloseTvfOutput(std::move(out));
}

void WriteRgbTiff(const std::string& path, int64_t width, int64_t height) {
  std::vector<uint8_t> pixels(static_cast<size_t>(width * height * 3), 200);
  VmpWriteTiff(nullptr, path, pixels.data(), width, height, 0, false);
}

}  // namespace vmp::test
