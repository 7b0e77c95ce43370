#include "map_server/text/label_placement.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/map_geometry.h"

namespace vmp {

namespace {

constexpr int kInteriorScanlines = 15;
constexpr int kLineCandidates = 11;

double FoldAngle(double degrees) {
  while (degrees > 90.0) degrees -= 180.0;
  while (degrees <= -90.0) degrees += 180.0;
  return degrees;
}

double ScreenAngle(double dx, double dy) { return std::atan2(-dy, dx) * 180.0 / kPi; }

}  // namespace

bool LabelPlacer::BoxCentre(const PixelRings& rings, LabelPoint* out) {
  const auto& pts = rings.points();
  if (pts.empty()) return false;
  double min_x = pts[0].x, max_x = pts[0].x, min_y = pts[0].y, max_y = pts[0].y;
  for (const PixelVertex& p : pts) {
    min_x = std::min(min_x, p.x);
    max_x = std::max(max_x, p.x);
    min_y = std::min(min_y, p.y);
    max_y = std::max(max_y, p.y);
  }
  *out = {(min_x + max_x) / 2.0, (min_y + max_y) / 2.0, 0.0};
  return std::isfinite(out->x) && std::isfinite(out->y);
}

bool LabelPlacer::InteriorPoint(const PixelRings& rings, LabelPoint* out) {
  LabelPoint box;
  if (!BoxCentre(rings, &box)) return false;
  const auto& pts = rings.points();
  double min_y = pts[0].y, max_y = pts[0].y;
  for (const PixelVertex& p : pts) {
    min_y = std::min(min_y, p.y);
    max_y = std::max(max_y, p.y);
  }
  double best_width = 0.0, best_score = -1.0;
  for (int k = 0; k < kInteriorScanlines; ++k) {
    const double y = min_y + (max_y - min_y) * (k + 0.5) / kInteriorScanlines;
    crossings_.clear();
    for (size_t r = 0; r < rings.ring_count(); ++r) {
      const size_t begin = rings.RingBegin(r), end = rings.RingEnd(r);
      for (size_t i = begin; i < end; ++i) {
        const PixelVertex& a = pts[i];
        const PixelVertex& b = pts[i + 1 < end ? i + 1 : begin];
        if ((a.y <= y) == (b.y <= y)) continue;  // half-open: each crossing counted once
        crossings_.push_back(a.x + (y - a.y) * (b.x - a.x) / (b.y - a.y));
      }
    }
    std::sort(crossings_.begin(), crossings_.end());
    for (size_t i = 0; i + 1 < crossings_.size(); i += 2) {
      const double width = crossings_[i + 1] - crossings_[i];
      // Wider wins; among (nearly) equal widths the scanline nearer the middle.
      const double score = width - 1e-3 * std::fabs(y - box.y);
      if (width > 0.0 && score > best_score) {
        best_score = score;
        best_width = width;
        *out = {(crossings_[i] + crossings_[i + 1]) / 2.0, y, 0.0};
      }
    }
  }
  return best_width > 0.0;
}

bool LabelPlacer::LinePoint(const PixelRings& rings, double text_length, bool middle, LabelPoint* out) {
  // The longest run of consecutive edge segments.
  const auto& pts = rings.points();
  const auto& edges = rings.edge_follows();
  double best_length = 0.0;
  size_t best_ring = 0, best_start = 0, best_count = 0;  // count of segments
  for (size_t r = 0; r < rings.ring_count(); ++r) {
    const size_t begin = rings.RingBegin(r), end = rings.RingEnd(r), n = end - begin;
    if (n < 2) continue;
    size_t i = 0;
    while (i < n) {
      if (!edges[begin + i]) {
        ++i;
        continue;
      }
      const size_t start = i;
      double length = 0.0;
      while (i < n && edges[begin + i]) {
        const PixelVertex& a = pts[begin + i];
        const PixelVertex& b = pts[begin + (i + 1) % n];
        length += std::hypot(b.x - a.x, b.y - a.y);
        ++i;
      }
      if (length > best_length) {
        best_length = length;
        best_ring = r;
        best_start = start;
        best_count = i - start;
      }
    }
  }
  if (!(best_length > 0.0) || !std::isfinite(best_length)) return false;
  const size_t begin = rings.RingBegin(best_ring), n = rings.RingEnd(best_ring) - begin;
  run_.clear();
  run_length_.clear();
  for (size_t k = 0; k <= best_count; ++k) {
    const PixelVertex& p = pts[begin + (best_start + k) % n];
    run_length_.push_back(run_.empty() ? 0.0 : run_length_.back() + std::hypot(p.x - run_.back().x, p.y - run_.back().y));
    run_.push_back(p);
  }
  auto at = [&](double s, double* angle) {
    const size_t i = std::min<size_t>(
        run_.size() - 2,
        static_cast<size_t>(std::upper_bound(run_length_.begin(), run_length_.end(), s) - run_length_.begin()) - 1);
    const PixelVertex& a = run_[i];
    const PixelVertex& b = run_[i + 1];
    const double seg = run_length_[i + 1] - run_length_[i];
    const double t = seg > 0.0 ? std::clamp((s - run_length_[i]) / seg, 0.0, 1.0) : 0.0;
    if (angle != nullptr) *angle = ScreenAngle(b.x - a.x, b.y - a.y);
    return PixelVertex{a.x + t * (b.x - a.x), a.y + t * (b.y - a.y)};
  };
  if (middle) {
    double angle = 0.0;
    const PixelVertex p = at(best_length / 2.0, &angle);
    *out = {p.x, p.y, FoldAngle(angle)};
    return true;
  }
  if (best_length < text_length) return false;
  double best_score = -1e300;
  for (int k = 0; k < kLineCandidates; ++k) {
    const double half = text_length / 2.0;
    const double centre = half + (best_length - text_length) * k / (kLineCandidates - 1);
    const PixelVertex a = at(centre - half, nullptr);
    const PixelVertex b = at(centre + half, nullptr);
    const double chord = std::hypot(b.x - a.x, b.y - a.y);
    const double straightness = text_length > 0.0 ? chord / text_length : 1.0;
    const double score = straightness - 0.2 * std::fabs(centre - best_length / 2.0) / best_length;
    if (score > best_score) {
      best_score = score;
      const PixelVertex p = at(centre, nullptr);
      *out = {p.x, p.y, FoldAngle(chord > 0.0 ? ScreenAngle(b.x - a.x, b.y - a.y) : 0.0)};
    }
  }
  return true;
}

}  // namespace vmp
