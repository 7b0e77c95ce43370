// Bounding boxes of TVF files (the "-tvf-info" tool).
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "map_server/vector/feature_extent.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

// The union of the extents of all features of `data` (features without
// points left out); false when no feature has an extent.
bool ComputeDataExtent(const VectorData& data, FeatureExtent* extent);

// Prints the bounding box of each file on `report`:
//   File: <name>:
//   Bounding box:
//   MIN LAT= %lf / MAX LAT= %lf / MIN LON= %lf / MAX LON= %lf
// A file that cannot be read is reported ("Error reading file, skipping")
// and the others go on; a file without features gets the warning "TVF file
// with zero features" instead of a box. Returns true when every file was
// read.
bool ReportTvfInfo(const std::vector<std::string>& files, FILE* report = stderr);

}  // namespace vmp
