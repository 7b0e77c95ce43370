// Helpers for the vector tests: features built in one line and the BINARY
// field encoding written out by hand.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "map_server/vector/tvf_input.h"
#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/vector_data.h"

namespace vmp::test {

inline std::unique_ptr<PolygonFeature> MakePolygon(
    int8_t flag, std::vector<std::pair<double, double>> points,
    std::vector<Attribute> attributes = {}) {
  auto polygon = std::make_unique<PolygonFeature>();
  polygon->flag = flag;
  for (auto [x, y] : points) polygon->points.push_back({x, y, 0.0});
  for (Attribute& a : attributes) polygon->AddAttribute(a.index, std::move(a.value));
  polygon->ComputeBounds();
  return polygon;
}

inline std::unique_ptr<MarkerFeature> MakeMarker(uint32_t type, double x, double y,
                                                 std::optional<std::string> label = std::nullopt,
                                                 std::vector<Attribute> attributes = {}) {
  auto marker = std::make_unique<MarkerFeature>();
  marker->marker_type = type;
  marker->x = x;
  marker->y = y;
  marker->label = std::move(label);
  for (Attribute& a : attributes) marker->AddAttribute(a.index, std::move(a.value));
  return marker;
}

// 8-byte little-endian fields of the BINARY encoding.
inline std::string Le(int64_t value) {
  std::string out(8, '\0');
  for (int i = 0; i < 8; ++i) out[i] = static_cast<char>(static_cast<uint64_t>(value) >> (8 * i));
  return out;
}
inline std::string LeReal(double value) {
  int64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return Le(bits);
}

inline bool LoadBytes(const std::string& bytes, VectorData& data, bool quiet = false) {
  TvfInput input{std::string_view(bytes)};
  return LoadTvfStream(input, "mem.tvf", data, quiet);
}

}  // namespace vmp::test
