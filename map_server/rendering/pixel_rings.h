// The rings of one polygon in pixel coordinates, as the scan converter and
// the edge drawer take them. Built anew for every polygon into arrays that
// only grow.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <vector>

namespace vmp {

struct PixelVertex {
  double x;
  double y;
};

class PixelRings {
 public:
  // Empties the rings, keeping the arrays' capacity.
  void Clear() {
    points_.clear();
    edge_follows_.clear();
    ring_ends_.clear();
  }
  // Appends a point to the ring being built. `edge_follows` tells whether
  // the segment from this point to the next (for the ring's last point: back
  // to its first) is an edge of the feature, to be drawn by the edge drawer;
  // segments added by clipping are not. Filling always closes the ring.
  void Add(double x, double y, bool edge_follows = true) {
    points_.push_back({x, y});
    edge_follows_.push_back(edge_follows ? 1 : 0);
  }
  // Marks the segment after the last point added.
  void SetEdgeFollowsLast(bool edge_follows) {
    if (!edge_follows_.empty()) edge_follows_.back() = edge_follows ? 1 : 0;
  }
  // Ends the ring being built; a ring without points is dropped.
  void EndRing() {
    if (points_.size() > (ring_ends_.empty() ? 0 : ring_ends_.back())) ring_ends_.push_back(points_.size());
  }
  // A whole ring whose segments are all edges except the closing one (the
  // polyline rule of feature rings).
  void AddRing(std::initializer_list<PixelVertex> ring) {
    for (const PixelVertex& v : ring) Add(v.x, v.y, true);
    SetEdgeFollowsLast(false);
    EndRing();
  }
  // Drops the points added since the last EndRing.
  void DiscardOpenRing() {
    const size_t keep = ring_ends_.empty() ? 0 : ring_ends_.back();
    points_.resize(keep);
    edge_follows_.resize(keep);
  }

  size_t ring_count() const { return ring_ends_.size(); }
  size_t RingBegin(size_t ring) const { return ring == 0 ? 0 : ring_ends_[ring - 1]; }
  size_t RingEnd(size_t ring) const { return ring_ends_[ring]; }
  size_t open_ring_size() const { return points_.size() - (ring_ends_.empty() ? 0 : ring_ends_.back()); }
  const std::vector<PixelVertex>& points() const { return points_; }
  const std::vector<uint8_t>& edge_follows() const { return edge_follows_; }
  size_t capacity() const { return points_.capacity(); }

 private:
  std::vector<PixelVertex> points_;
  std::vector<uint8_t> edge_follows_;
  std::vector<size_t> ring_ends_;
};

}  // namespace vmp
