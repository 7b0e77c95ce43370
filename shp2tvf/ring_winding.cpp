#include <algorithm>

#include "shp2tvf/shape_record.h"

namespace vmp {

namespace {

struct Ring {
  int start;
  int count;
  double area2;  // twice the signed area: positive counter-clockwise
  double min_x, min_y, max_x, max_y;
};

Ring MakeRing(const double* x, const double* y, int start, int count) {
  Ring r{start, count, 0.0, x[start], y[start], x[start], y[start]};
  for (int k = 0; k < count; ++k) {
    const int i = start + k;
    const int next = start + (k + 1) % count;
    r.area2 += x[i] * y[next] - x[next] * y[i];
    r.min_x = std::min(r.min_x, x[i]);
    r.max_x = std::max(r.max_x, x[i]);
    r.min_y = std::min(r.min_y, y[i]);
    r.max_y = std::max(r.max_y, y[i]);
  }
  return r;
}

// Crossing test of the point (px, py) against the ring.
bool RingContains(const Ring& r, const double* x, const double* y, double px, double py) {
  if (px < r.min_x || px > r.max_x || py < r.min_y || py > r.max_y) return false;
  bool inside = false;
  for (int k = 0, prev = r.count - 1; k < r.count; prev = k++) {
    const double xi = x[r.start + k], yi = y[r.start + k];
    const double xj = x[r.start + prev], yj = y[r.start + prev];
    if ((yi > py) != (yj > py) && px < (xj - xi) * (py - yi) / (yj - yi) + xi) inside = !inside;
  }
  return inside;
}

}  // namespace

int CountWrongWoundRings(const double* x, const double* y, int vertex_count,
                         const std::vector<int>& part_starts) {
  std::vector<Ring> rings;
  for (size_t p = 0; p < part_starts.size(); ++p) {
    const int start = part_starts[p];
    const int end = p + 1 < part_starts.size() ? part_starts[p + 1] : vertex_count;
    if (end - start >= 3) rings.push_back(MakeRing(x, y, start, end - start));
  }
  int wrong = 0;
  for (size_t p = 0; p < rings.size(); ++p) {
    if (rings[p].area2 == 0.0) continue;
    int depth = 0;
    const double px = x[rings[p].start], py = y[rings[p].start];
    for (size_t q = 0; q < rings.size(); ++q) {
      if (q != p && RingContains(rings[q], x, y, px, py)) ++depth;
    }
    const bool hole = depth % 2 == 1;
    const bool clockwise = rings[p].area2 < 0.0;
    if (clockwise == hole) ++wrong;
  }
  return wrong;
}

}  // namespace vmp
