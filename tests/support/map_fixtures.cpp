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
  for (auto& layer : dataset_->layers) {
    if (layer->name == name) return *layer;
  }
  throw std::runtime_error("no layer " + std::string(name));
}

std::unique_ptr<MapRequest> MakeMap(Dataset& dataset, const MapView& view) {
  std::unique_ptr<MapRequest> map = CreateMapRequest();
  ResourceGroup& r = map->resources;
  r.SetNumber("Projection", static_cast<double>(view.projection));
  r.SetNumber("CenterLat", view.center_lat);
  r.SetNumber("CenterLon", view.center_lon);
  r.SetNumber("HExtent", view.h_extent);
  r.SetNumber("VExtent", view.v_extent);
  r.SetNumber("Width", static_cast<double>(view.width));
  r.SetNumber("Height", static_cast<double>(view.height));
  r.SetNumber("LocationI", static_cast<double>(view.location_i));
  r.SetNumber("LocationJ", static_cast<double>(view.location_j));
  map->record.location_query = view.location_query;
  map->record.dataset = &dataset;
  if (!SetupMapGeometry(*map, true)) throw std::runtime_error("map geometry setup failed");
  return map;
}

void WriteMarkerTvf(const std::string& path, int markers) {
  TvfOutput out = OpenTvfOutput(path);
  for (int i = 0; i < markers; ++i) {
    MarkerFeature marker;
    marker.x = i;
    marker.y = i;
    WriteTvfFeature(out.get(), TvfFormat::kAscii, marker);
  }
  CloseTvfOutput(std::move(out));
}

void WriteRgbTiff(const std::string& path, int64_t width, int64_t height) {
  std::vector<uint8_t> pixels(static_cast<size_t>(width * height * 3), 200);
  VmpWriteTiff(nullptr, path, pixels.data(), width, height, 0, false);
}

}  // namespace vmp::test
