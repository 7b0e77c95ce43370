// Helpers for the tool tests: TVF files written from features and read back
// as point lists.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/vector/tvf_test_support.h"

namespace vmp::test {

using Points = std::vector<std::pair<double, double>>;
using Features = std::vector<std::unique_ptr<Feature>>;

inline std::string WriteTvf(const std::string& path, const Features& features) {
  TvfOutput out = OpenTvfOutput(path);
  for (const auto& f : features) WriteTvfFeature(out.get(), CurrentTvfOutputFormat(), *f);
  CloseTvfOutput(std::move(out));
  return path;
}

template <typename... F>
Features MakeFeatures(F... features) {
  Features list;
  (list.push_back(std::move(features)), ...);
  return list;
}

inline VectorData LoadOrFail(const std::string& path) {
  VectorData data;
  if (!LoadTvfFile(path, TvfSource::kTvf, data)) data.Clear();
  return data;
}

// The points of every polygon, markers as one point.
inline std::vector<Points> Geometry(const VectorData& data) {
  std::vector<Points> all;
  for (const auto& f : data.features) {
    Points points;
    if (const PolygonFeature* p = f->AsPolygon()) {
      for (const PolygonPoint& q : p->points) points.emplace_back(q.x, q.y);
    } else {
      points.emplace_back(f->AsMarker()->x, f->AsMarker()->y);
    }
    all.push_back(points);
  }
  return all;
}

}  // namespace vmp::test
