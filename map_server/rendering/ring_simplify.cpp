#include "map_server/rendering/ring_simplify.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace vmp {

namespace {

double Cross(double ax, double ay, double bx, double by) { return ax * by - ay * bx; }

bool Finite(const PixelVertex& v) { return std::isfinite(v.x) && std::isfinite(v.y); }

// The state of the greedy walk from its anchor (the last vertex kept): the
// cone of directions whose rays pass within the tolerance of every vertex
// passed over since. A vertex can end the anchor's segment when its
// direction lies in the cone and no vertex passed over lies farther from the
// anchor (then the nearest point of the ray lies on the segment). Vertices
// within the tolerance of the anchor constrain nothing.
struct Cone {
  double ax = 0, ay = 0;  // the anchor
  bool anchor_finite = false;
  bool constrained = false;
  double lx = 0, ly = 0, rx = 0, ry = 0;  // the bounds, counterclockwise from r to l
  double max_d2 = 0;

  void Reset(const PixelVertex& v) {
    ax = v.x;
    ay = v.y;
    anchor_finite = Finite(v);
    constrained = false;
    max_d2 = 0.0;
  }

  // Whether the vertex at (vx, vy) from the anchor can end its segment.
  bool Accepts(double vx, double vy, double d2) const {
    if (!(d2 >= max_d2)) return false;
    if (!constrained) return true;
    return Cross(rx, ry, vx, vy) >= 0.0 && Cross(vx, vy, lx, ly) >= 0.0;
  }

  // Narrows the cone to the directions that pass within the tolerance t of
  // the vertex at (vx, vy), which lies in the cone.
  void Narrow(double vx, double vy, double d2, double t, double t2) {
    if (!(d2 > t2)) return;  // within the tolerance of the anchor, which the segment starts at
    max_d2 = std::max(max_d2, d2);
    // The tangents from the anchor to the circle of the tolerance around the
    // vertex: the vertex's direction turned by asin(t / d) either way
    // (scaled by d, which the sign tests do not mind).
    const double c = std::sqrt(d2 - t2);
    const double new_lx = vx * c - vy * t, new_ly = vx * t + vy * c;
    const double new_rx = vx * c + vy * t, new_ry = vy * c - vx * t;
    if (!constrained) {
      lx = new_lx;
      ly = new_ly;
      rx = new_rx;
      ry = new_ry;
      constrained = true;
      return;
    }
    if (Cross(lx, ly, new_lx, new_ly) < 0.0) {
      lx = new_lx;
      ly = new_ly;
    }
    if (Cross(rx, ry, new_rx, new_ry) > 0.0) {
      rx = new_rx;
      ry = new_ry;
    }
  }
};

// The greedy walk over one ring.
void WalkRing(const PixelVertex* p, const uint8_t* follows, size_t n, double t, PixelRings& out) {
  const double t2 = t * t;
  // Most rings are one stretch of edges with finite points: then every
  // vertex but the last is an inner one, without further tests.
  bool plain = true;
  double sum = 0.0;
  for (size_t i = 0; i + 1 < n; ++i) {
    plain = plain && follows[i] != 0;
    sum += (p[i].x - p[i].x) + (p[i].y - p[i].y);  // NaN unless finite
  }
  plain = plain && sum == 0.0 && Finite(p[n - 1]);
  Cone cone;
  auto keep = [&](const PixelVertex& v, uint8_t edge_follows) {
    out.Add(v.x, v.y, edge_follows != 0);
    cone.Reset(v);
  };
  keep(p[0], follows[0]);
  bool pending = false;  // the last vertex passed over may end the segment
  size_t candidate = 0;
  for (size_t i = 1; i < n; ++i) {
    const PixelVertex& q = p[i];
    const bool inner = i + 1 < n && (plain || (follows[i - 1] && follows[i] && cone.anchor_finite && Finite(q) &&
                                                Finite(p[i + 1])));
    double vx = q.x - cone.ax, vy = q.y - cone.ay;
    double d2 = vx * vx + vy * vy;
    if (!inner) {
      // Kept: the candidate goes first unless q can end its segment.
      if (pending && !(follows[i - 1] && Finite(q) && cone.Accepts(vx, vy, d2))) keep(p[candidate], 1);
      keep(q, follows[i]);
      pending = false;
      continue;
    }
    if (pending && !cone.Accepts(vx, vy, d2)) {
      keep(p[candidate], 1);
      vx = q.x - cone.ax;
      vy = q.y - cone.ay;
      d2 = vx * vx + vy * vy;
    }
    cone.Narrow(vx, vy, d2, t, t2);
    pending = true;
    candidate = i;
  }
  out.EndRing();
}

}  // namespace

void SimplifyRings(const PixelRings& in, double tolerance, PixelRings& out) {
  out.Clear();
  const std::vector<PixelVertex>& points = in.points();
  const std::vector<uint8_t>& follows = in.edge_follows();
  const bool copy = !(tolerance > 0.0) || !std::isfinite(tolerance);
  for (size_t r = 0; r < in.ring_count(); ++r) {
    const size_t begin = in.RingBegin(r), end = in.RingEnd(r);
    if (copy || end - begin < 3) {
      for (size_t i = begin; i < end; ++i) out.Add(points[i].x, points[i].y, follows[i] != 0);
      out.EndRing();
      continue;
    }
    WalkRing(points.data() + begin, follows.data() + begin, end - begin, tolerance, out);
  }
}

}  // namespace vmp
