#include "map_server/tools/tvf_info.h"

#include <algorithm>

#include "map_server/vector/tvf_reader.h"
#include "toolkit/message_log.h"

namespace vmp {

bool ComputeDataExtent(const VectorData& data, FeatureExtent* extent) {
  bool any = false;
  for (const auto& feature : data.features) {
    FeatureExtent box;
    if (!ComputeFeatureExtent(*feature, &box)) continue;
    if (!any) {
      *extent = box;
      any = true;
      continue;
    }
    extent->min_x = std::min(extent->min_x, box.min_x);
    extent->max_x = std::max(extent->max_x, box.max_x);
    extent->min_y = std::min(extent->min_y, box.min_y);
    extent->max_y = std::max(extent->max_y, box.max_y);
  }
  return any;
}

bool ReportTvfInfo(const std::vector<std::string>& files, FILE* report) {
  bool all_read = true;
  for (const std::string& file : files) {
    VectorData data;
    if (!LoadTvfFile(file, TvfSource::kByName, data)) {
      Report(kError, "Error reading file, skipping", file);
      all_read = false;
      continue;
    }
    FeatureExtent box;
    if (!ComputeDataExtent(data, &box)) {
      Report(kWarning, "TVF file with zero features", file);
      continue;
    }
    std::fprintf(report, "File: %s:\nBounding box:\n", file.c_str());
    std::fprintf(report, "MIN LAT= %lf\nMAX LAT= %lf\nMIN LON= %lf\nMAX LON= %lf\n", box.min_y,
                 box.max_y, box.min_x, box.max_x);
    std::fflush(report);
  }
  if (!all_read) Report(kError, "Errors processing some files");
  return all_read;
}

}  // namespace vmp
