// The extent of one feature, as the split and tile tools use it.
#pragma once

#include "map_server/vector/vector_data.h"

namespace vmp {

// Fields in the order the tools pass boxes around: x range, then y range.
struct FeatureExtent {
  double min_x = 0.0;
  double max_x = 0.0;
  double min_y = 0.0;
  double max_y = 0.0;
};

// A polygon's extent over its points (all zero and false without points), or
// the marker's position as a box of no size.
bool ComputeFeatureExtent(const Feature& feature, FeatureExtent* extent);

}  // namespace vmp
