#include "map_server/vector/vector_data.h"

#include <algorithm>
#include <cmath>

namespace vmp {

PolygonFeature* Feature::AsPolygon() {
  return IsPolygon() ? static_cast<PolygonFeature*>(this) : nullptr;
}
const PolygonFeature* Feature::AsPolygon() const {
  return IsPolygon() ? static_cast<const PolygonFeature*>(this) : nullptr;
}
MarkerFeature* Feature::AsMarker() {
  return IsMarker() ? static_cast<MarkerFeature*>(this) : nullptr;
}
const MarkerFeature* Feature::AsMarker() const {
  return IsMarker() ? static_cast<const MarkerFeature*>(this) : nullptr;
}

const Attribute* Feature::FindAttribute(int64_t index) const {
  if (index < 0 || index >= static_cast<int64_t>(index_map.size())) return nullptr;
  int64_t slot = index_map[static_cast<size_t>(index)];
  if (slot < 0 || slot >= static_cast<int64_t>(attributes.size())) return nullptr;
  return &attributes[static_cast<size_t>(slot)];
}

Attribute* Feature::FindAttribute(int64_t index) {
  return const_cast<Attribute*>(static_cast<const Feature*>(this)->FindAttribute(index));
}

void Feature::AddAttribute(int64_t index, TypedValue value) {
  if (index < 0) return;
  attributes.push_back(Attribute{index, std::move(value)});
  max_attr_index = std::max(max_attr_index, index);
  if (static_cast<int64_t>(index_map.size()) <= index) {
    index_map.resize(static_cast<size_t>(index) + 1, -1);
  }
  index_map[static_cast<size_t>(index)] = static_cast<int64_t>(attributes.size()) - 1;
}

void Feature::RebuildIndexMap() {
  max_attr_index = 0;
  index_map.clear();
  if (attributes.empty()) return;
  for (const Attribute& a : attributes) max_attr_index = std::max(max_attr_index, a.index);
  index_map.assign(static_cast<size_t>(max_attr_index) + 1, -1);
  for (size_t i = 0; i < attributes.size(); ++i) {
    if (attributes[i].index >= 0) index_map[static_cast<size_t>(attributes[i].index)] = i;
  }
}

std::unique_ptr<Feature> PolygonFeature::Clone() const {
  auto copy = std::make_unique<PolygonFeature>(*this);
  copy->points.reserve(points.size() + 1);  // keep the spare slot
  return copy;
}

void PolygonFeature::ComputeBounds() {
  box = PolygonBox{};
  extent = 0.0;
  if (points.empty()) return;
  box = {points[0].x, points[0].y, points[0].x, points[0].y};
  for (const PolygonPoint& p : points) {
    box.min_x = std::min(box.min_x, p.x);
    box.min_y = std::min(box.min_y, p.y);
    box.max_x = std::max(box.max_x, p.x);
    box.max_y = std::max(box.max_y, p.y);
  }
  extent = std::max(std::fabs(box.min_x - box.max_x), std::fabs(box.min_y - box.max_y));
}

void PolygonFeature::WidenBox(const PolygonBox& other) {
  box.min_x = std::min(box.min_x, other.min_x);
  box.min_y = std::min(box.min_y, other.min_y);
  box.max_x = std::max(box.max_x, other.max_x);
  box.max_y = std::max(box.max_y, other.max_y);
  extent = std::max(std::fabs(box.min_x - box.max_x), std::fabs(box.min_y - box.max_y));
}

std::unique_ptr<Feature> MarkerFeature::Clone() const { return std::make_unique<MarkerFeature>(*this); }

void VectorData::AddFeature(std::unique_ptr<Feature> feature) {
  if (!feature) return;
  if (feature->IsPolygon()) ++polygon_count;
  else ++marker_count;
  max_attr_index = std::max(max_attr_index, feature->max_attr_index);
  features.push_back(std::move(feature));
}

void VectorData::Clear() { *this = VectorData{}; }

}  // namespace vmp
