#include "map_server/vector/feature_extent.h"

#include <algorithm>

namespace vmp {

bool ComputeFeatureExtent(const Feature& feature, FeatureExtent* extent) {
  *extent = FeatureExtent{};
  if (const MarkerFeature* marker = feature.AsMarker()) {
    *extent = {marker->x, marker->x, marker->y, marker->y};
    return true;
  }
  const PolygonFeature* polygon = feature.AsPolygon();
  if (polygon == nullptr || polygon->points.empty()) return false;
  const PolygonPoint& first = polygon->points.front();
  *extent = {first.x, first.x, first.y, first.y};
  for (const PolygonPoint& p : polygon->points) {
    extent->min_x = std::min(extent->min_x, p.x);
    extent->max_x = std::max(extent->max_x, p.x);
    extent->min_y = std::min(extent->min_y, p.y);
    extent->max_y = std::max(extent->max_y, p.y);
  }
  return true;
}

}  // namespace vmp
