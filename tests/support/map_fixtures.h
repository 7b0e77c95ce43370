// Small datasets and map requests for tests of layer selection, tiles and
// rendering: files in a temporary directory, a dataset read from them, and map
// requests bound to it with their geometry set up.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/map_request.h"
#include "tests/support/temp_dir.h"

namespace vmp::test {

struct MapView {
  int64_t projection = kRectangularProjection;
  double center_lat = 0.0, center_lon = 0.0;
  double h_extent = 360.0, v_extent = 180.0;  // degrees, or metres (orthographic)
  int64_t width = 360, height = 180;
  bool location_query = false;  // at pixel (location_i, location_j)
  int64_t location_i = 0, location_j = 0;
};

class DatasetFiles {
 public:
  const TempDir& dir() const { return dir_; }
  std::string Write(std::string_view name, std::string_view text) const { return dir_.Write(name, text); }
  // Writes `info` as the dataset info file and reads it into a new dataset.
  Dataset& Load(std::string_view info);
  Dataset& dataset() { return *dataset_; }
  Layer& layer(std::string_view name);

 private:
  TempDir dir_;
  std::unique_ptr<Dataset> dataset_;
};

// A map request bound to `dataset` with its geometry set up for `view`.
std::unique_ptr<MapRequest> MakeMap(Dataset& dataset, const MapView& view);

void WriteMarkerTvf(const std::string& path, int markers);
void WriteRgbTiff(const std::string& path, int64_t width, int64_t height);

}  // namespace vmp::test
