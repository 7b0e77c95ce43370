#include "map_server/rendering/ring_simplify.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace vmp {

namespace {

double Cross(double ax, double ay, double bx, double by) { return ax * by - ay * bx; }

bool Finite(const PixelVertex& v) { return std::isfinite(v.x) && std::isfinite(v.y); }

// The greedy walk over one ring. From the anchor (the last vertex kept) the
// walk keeps the cone of directions whose rays pass within the tolerance of
// every vertex passed over since: a vertex can end the anchor's segment when
// its direction lies in the cone and no vertex passed over lies farther from
// the anchor (then the nearest point of the ray lies on the segment).
// Vertices within the tolerance of the anchor constrain nothing.
class RingWalk {
 public:
  RingWalk(double tolerance, PixelRings& out) : t_(tolerance), t2_(tolerance * tolerance), out_(out) {}

  void Ring(const PixelVertex* p, const uint8_t* follows, size_t n) {
    // Most rings are one stretch of edges with finite points: then every
    // vertex but the last is an inner one, without further tests.
    bool plain = true;
    double sum = 0.0;
    for (size_t i = 0; i + 1 < n; ++i) {
      plain = plain && follows[i] != 0;
      sum += (p[i].x - p[i].x) + (p[i].y - p[i].y);  // NaN unless finite
    }
    plain = plain && sum == 0.0 && Finite(p[n - 1]);
    Keep(p[0], follows[0]);
    bool pending = false;  // the last vertex passed over may end the segment
    size_t candidate = 0;
    for (size_t i = 1; i < n; ++i) {
      const PixelVertex& q = p[i];
      const bool inner = i + 1 < n && (plain || (follows[i - 1] && follows[i] && anchor_finite_ && Finite(q) &&
                                                  Finite(p[i + 1])));
      const double vx = q.x - ax_, vy = q.y - ay_;
      const double d2 = vx * vx + vy * vy;
      if (!inner) {
        // Kept: the candidate goes first unless q can end its segment.
        if (pending && !(follows[i - 1] && Finite(q) && Accepts(vx, vy, d2))) Keep(p[candidate], 1);
        Keep(q, follows[i]);
        pending = false;
        continue;
      }
      if (pending && !Accepts(vx, vy, d2)) {
        Keep(p[candidate], 1);
        const double wx = q.x - ax_, wy = q.y - ay_;
        Narrow(wx, wy, wx * wx + wy * wy);
      } else {
        Narrow(vx, vy, d2);
      }
      pending = true;
      candidate = i;
    }
    out_.EndRing();
  }

 private:
  // Keeps a vertex: it becomes the anchor of a new segment.
  void Keep(const PixelVertex& v, uint8_t follows) {
    out_.Add(v.x, v.y, follows != 0);
    ax_ = v.x;
    ay_ = v.y;
    anchor_finite_ = Finite(v);
    constrained_ = false;
    max_d2_ = 0.0;
  }

  // Whether the vertex at (vx, vy) from the anchor can end its segment.
  bool Accepts(double vx, double vy, double d2) const {
    if (!(d2 >= max_d2_)) return false;
    if (!constrained_) return true;
    return Cross(rx_, ry_, vx, vy) >= 0.0 && Cross(vx, vy, lx_, ly_) >= 0.0;
  }

  // Narrows the cone to the directions that pass within the tolerance of
  // the vertex at (vx, vy), which lies in the cone.
  void Narrow(double vx, double vy, double d2) {
    if (!(d2 > t2_)) return;  // within the tolerance of the anchor, which the segment starts at
    max_d2_ = std::max(max_d2_, d2);
    // The tangents from the anchor to the circle of the tolerance around the
    // vertex: the vertex's direction turned by asin(t / d) either way
    // (scaled by d, which the sign tests do not mind).
    const double c = std::sqrt(d2 - t2_), s = t_;
    const double lx = vx * c - vy * s, ly = vx * s + vy * c;
    const double rx = vx * c + vy * s, ry = vy * c - vx * s;
    if (!constrained_) {
      lx_ = lx;
      ly_ = ly;
      rx_ = rx;
      ry_ = ry;
      constrained_ = true;
      return;
    }
    if (Cross(lx_, ly_, lx, ly) < 0.0) {
      lx_ = lx;
      ly_ = ly;
    }
    if (Cross(rx_, ry_, rx, ry) > 0.0) {
      rx_ = rx;
      ry_ = ry;
    }
  }

  const double t_, t2_;
  PixelRings& out_;
  double ax_ = 0, ay_ = 0;
  bool anchor_finite_ = false;
  bool constrained_ = false;
  double lx_ = 0, ly_ = 0, rx_ = 0, ry_ = 0;  // the cone's bounds, counterclockwise from r to l
  double max_d2_ = 0;
};

}  // namespace

void SimplifyRings(const PixelRings& in, double tolerance, PixelRings& out) {
  out.Clear();
  const std::vector<PixelVertex>& points = in.points();
  const std::vector<uint8_t>& follows = in.edge_follows();
  const bool copy = !(tolerance > 0.0) || !std::isfinite(tolerance);
  RingWalk walk(copy ? 0.0 : tolerance, out);
  for (size_t r = 0; r < in.ring_count(); ++r) {
    const size_t begin = in.RingBegin(r), end = in.RingEnd(r);
    if (copy || end - begin < 3) {
      for (size_t i = begin; i < end; ++i) out.Add(points[i].x, points[i].y, follows[i] != 0);
      out.EndRing();
      continue;
    }
    walk.Ring(points.data() + begin, follows.data() + begin, end - begin);
  }
}

}  // namespace vmp
