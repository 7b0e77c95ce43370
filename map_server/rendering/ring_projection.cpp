#include "map_server/rendering/ring_projection.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/rendering/globe_points.h"

namespace vmp {

namespace {

constexpr double kTwoPi = 2.0 * kPi;

// Angle in [0, 2 pi).
double Wrap2Pi(double a) {
  a = std::fmod(a, kTwoPi);
  return a < 0 ? a + kTwoPi : a;
}

// Step along the outline: about a pixel and a half, between 32 and 4096
// steps a full turn.
double OutlineStep(const MapGeometry& g) {
  const double radius = std::max(std::fabs(g.scale_x), std::fabs(g.scale_y));
  return std::clamp(1.5 / radius, kTwoPi / 4096.0, kTwoPi / 32.0);
}

}  // namespace

void RingProjector::Project(const MapGeometry& g, std::span<const PolygonFeature* const> group,
                            double lon_shift, PixelRings& out) {
  out.Clear();
  if (g.projection == kOrthographicProjection) {
    ProjectOrthographic(g, group, out);
    return;
  }
  for (const PolygonFeature* polygon : group) {
    for (const PolygonPoint& p : polygon->points) {
      if (!std::isfinite(p.x) || !std::isfinite(p.y)) continue;
      const PixelPoint px = LatLonToPixel(g, p.y, p.x + lon_shift);
      out.Add(px.x, px.y, true);
    }
    if (out.open_ring_size() > 0) out.SetEdgeFollowsLast(false);
    out.EndRing();
  }
}

void RingProjector::ProjectOrthographic(const MapGeometry& g,
                                        std::span<const PolygonFeature* const> group,
                                        PixelRings& out) {
  arcs_.clear();
  angles_.clear();
  bool any_hidden = false;
  for (const PolygonFeature* polygon : group) {
    ring_.clear();
    size_t visible = 0;
    const std::vector<PolygonPoint>& points = polygon->points;
    if (xs_.size() < points.size()) {
      xs_.resize(points.size());
      ys_.resize(points.size());
      zs_.resize(points.size());
    }
    ProjectGlobePoints(g, points.data(), points.size(), xs_.data(), ys_.data(), zs_.data());
    for (size_t i = 0; i < points.size(); ++i) {
      if (!std::isfinite(points[i].x) || !std::isfinite(points[i].y)) continue;
      const double x = xs_[i], y = ys_[i];
      ring_.push_back({x, y, (x - g.center_x) * g.inv_scale_x, (g.center_y - y) * g.inv_scale_y, zs_[i]});
      if (zs_[i] >= 0.0) ++visible;
    }
    if (ring_.empty()) continue;
    if (visible < ring_.size()) any_hidden = true;
    if (visible == 0) continue;  // only the parity correction can bring it in
    if (visible == ring_.size()) {
      for (const ViewPoint& v : ring_) out.Add(v.x, v.y, true);
      out.SetEdgeFollowsLast(false);
      out.EndRing();
      continue;
    }
    ClipRing(g, out);
  }
  if (any_hidden) CorrectParity(g, group, out);
}

RingProjector::Crossing RingProjector::Cut(const MapGeometry& g, const ViewPoint& visible,
                                           const ViewPoint& hidden) const {
  const double t = visible.z / (visible.z - hidden.z);
  const double X = visible.X + t * (hidden.X - visible.X);
  const double Y = visible.Y + t * (hidden.Y - visible.Y);
  const double angle = (X == 0.0 && Y == 0.0) ? 0.0 : std::atan2(Y, X);
  return {g.center_x + std::cos(angle) * g.scale_x, g.center_y - std::sin(angle) * g.scale_y, angle};
}

void RingProjector::AddArc(const MapGeometry& g, double from, double to, PixelRings& out) {
  const double sweep = std::remainder(to - from, kTwoPi);  // the shorter way, [-pi, pi]
  arcs_.push_back({from, sweep});
  angles_.push_back(from);
  angles_.push_back(to);
  const int steps = static_cast<int>(std::ceil(std::fabs(sweep) / OutlineStep(g)));
  for (int i = 1; i < steps; ++i) {
    const double a = from + sweep * i / steps;
    out.Add(g.center_x + std::cos(a) * g.scale_x, g.center_y - std::sin(a) * g.scale_y, false);
  }
}

// Walks the ring from a visible vertex; visible stretches are copied, hidden
// ones replaced by the outline between the cut points.
void RingProjector::ClipRing(const MapGeometry& g, PixelRings& out) {
  const size_t n = ring_.size();
  size_t start = 0;
  while (ring_[start].z < 0.0) ++start;
  out.Add(ring_[start].x, ring_[start].y, true);
  double exit_angle = 0.0;
  for (size_t k = 0; k < n; ++k) {
    const size_t ia = (start + k) % n;
    const ViewPoint& a = ring_[ia];
    const ViewPoint& b = ring_[(ia + 1) % n];
    const bool edge = ia != n - 1;  // the closing segment is not an edge
    const bool last = k == n - 1;   // b is the start vertex again
    const bool a_visible = a.z >= 0.0, b_visible = b.z >= 0.0;
    if (a_visible && b_visible) {
      out.SetEdgeFollowsLast(edge);
      if (!last) out.Add(b.x, b.y, true);
    } else if (a_visible) {
      out.SetEdgeFollowsLast(edge);
      const Crossing c = Cut(g, a, b);
      out.Add(c.x, c.y, false);
      exit_angle = c.angle;
    } else if (b_visible) {
      const Crossing c = Cut(g, b, a);
      AddArc(g, exit_angle, c.angle, out);
      out.Add(c.x, c.y, edge);
      if (!last) out.Add(b.x, b.y, true);
    }
  }
  out.EndRing();
}

void RingProjector::CorrectParity(const MapGeometry& g,
                                  std::span<const PolygonFeature* const> group, PixelRings& out) {
  // Reference point of the outline: the middle of the widest gap between
  // the cut points, so that no arc starts or ends there.
  double reference = 0.5;
  if (!angles_.empty()) {
    for (double& a : angles_) a = Wrap2Pi(a);
    std::sort(angles_.begin(), angles_.end());
    double widest = kTwoPi - angles_.back() + angles_.front();
    reference = angles_.back() + widest / 2.0;
    for (size_t i = 1; i < angles_.size(); ++i) {
      const double gap = angles_[i] - angles_[i - 1];
      if (gap > widest) {
        widest = gap;
        reference = angles_[i - 1] + gap / 2.0;
      }
    }
    reference = Wrap2Pi(reference);
  }
  size_t covering = 0;
  for (const Arc& arc : arcs_) {
    const double along = arc.sweep >= 0 ? Wrap2Pi(reference - arc.start) : Wrap2Pi(arc.start - reference);
    if (along > 0.0 && along < std::fabs(arc.sweep)) ++covering;
  }
  const LatLonPoint limb = OrthographicPixelToLatLon(
      g, g.center_x + std::cos(reference) * g.scale_x, g.center_y + std::sin(reference) * g.scale_y);
  const bool inside = limb.ok && GroupContains(group, limb.lat, limb.lon);
  if ((covering % 2 == 1) == inside) return;
  const double step = OutlineStep(g);
  const int steps = static_cast<int>(std::ceil(kTwoPi / step));
  for (int i = 0; i < steps; ++i) {
    const double a = kTwoPi * i / steps;
    out.Add(g.center_x + std::cos(a) * g.scale_x, g.center_y - std::sin(a) * g.scale_y, false);
  }
  out.EndRing();
}

bool RingProjector::GroupContains(std::span<const PolygonFeature* const> group, double lat,
                                  double lon) {
  bool have_box = false;
  double min_lon = 0, max_lon = 0;
  for (const PolygonFeature* polygon : group) {
    if (polygon->points.empty()) continue;
    if (!have_box) {
      min_lon = polygon->box.min_x;
      max_lon = polygon->box.max_x;
      have_box = true;
    }
    min_lon = std::min(min_lon, polygon->box.min_x);
    max_lon = std::max(max_lon, polygon->box.max_x);
  }
  if (!have_box) return false;
  double x = lon;
  if (!(x >= min_lon && x <= max_lon)) x = lon + 360.0;
  if (!(x >= min_lon && x <= max_lon)) x = lon - 360.0;
  if (!(x >= min_lon && x <= max_lon)) return false;
  bool inside = false;
  for (const PolygonFeature* polygon : group) {
    const auto& pts = polygon->points;
    const size_t n = pts.size();
    for (size_t i = 0, j = n - 1; i < n; j = i++) {
      const double yi = pts[i].y, yj = pts[j].y;
      if ((yi > lat) != (yj > lat)) {
        const double cross = (pts[j].x - pts[i].x) * (lat - yi) / (yj - yi) + pts[i].x;
        if (x < cross) inside = !inside;
      }
    }
  }
  return inside;
}

}  // namespace vmp
