#include "map_server/rendering/line_stroker.h"

#include <algorithm>
#include <cmath>

namespace vmp {

namespace {

constexpr double kTwoPi = 6.283185307179586;
// Largest distance (pixels) between a round join or cap and the polygon
// standing for it.
constexpr double kRoundTolerance = 0.2;
// A turn whose outer gap is narrower than this (pixels) gets no join.
constexpr double kMinJoinGap = 0.1;
// Points of the polygon standing for a full circle.
constexpr int kMinCirclePoints = 8;
constexpr int kMaxCirclePoints = 1024;

// Angle between the points of an arc of this radius whose chords stay
// within `tolerance` of it.
double ArcStep(double radius, double tolerance) {
  if (!(radius > tolerance)) return kTwoPi / 4.0;
  return 2.0 * std::acos(1.0 - tolerance / radius);
}

bool Finite(const PixelVertex& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

}  // namespace

void LineStroker::Begin(const PixelRect& area, double width, LineCap cap) {
  shapes_.Clear();
  has_holes_ = false;
  have_last_cap_ = false;
  piece_.clear();
  if (!(width >= kMinLineWidth)) width = kMinLineWidth;  // NaN too
  width = std::round(width * 16.0) / 16.0;  // few distinct widths: the cap's disc is kept
  width = std::min(width, kMaxLineWidth);
  cap_ = cap;
  if (width / 2.0 != half_ || cap_points_.empty()) {
    half_ = width / 2.0;
    join_step_ = ArcStep(half_, kRoundTolerance);
    single_step_cos_ = std::cos(join_step_);
    skip_join_cos_ = std::cos(std::min(kMinJoinGap / half_, kTwoPi / 4.0));
    // The cap's disc, wound like the quads (decreasing angles).
    const int n = std::clamp(static_cast<int>(std::ceil(kTwoPi / join_step_)), kMinCirclePoints, kMaxCirclePoints);
    cap_points_.clear();
    for (int k = 0; k < n; ++k) {
      const double a = -kTwoPi * k / n;
      cap_points_.push_back({half_ * std::cos(a), half_ * std::sin(a)});
    }
  }
  thin_ = 2.0 * half_ <= kMaxUnionWidth;
  line_spans_.Clear(area);
  const double margin = half_ + 2.0;
  left_ = static_cast<double>(area.min_x) - margin;
  right_ = static_cast<double>(area.max_x) + margin;
  top_ = static_cast<double>(area.min_y) - margin;
  bottom_ = static_cast<double>(area.max_y) + margin;
}

void LineStroker::PiecePoint(double x, double y) {
  if (thin_) {
    piece_.push_back({x, y});
  } else {
    shapes_.Add(x, y);
  }
}

void LineStroker::EndPiece() {
  if (!thin_) {
    shapes_.EndRing();
    return;
  }
  line_spans_.AddPiece(piece_.data(), piece_.size(), true);
  piece_.clear();
}

void LineStroker::AddQuad(const PixelVertex& a, const PixelVertex& b, double ux, double uy) {
  const double nx = -uy * half_, ny = ux * half_;
  if (thin_) {
    const PixelVertex quad[4] = {{a.x + nx, a.y + ny}, {b.x + nx, b.y + ny}, {b.x - nx, b.y - ny}, {a.x - nx, a.y - ny}};
    line_spans_.AddPiece(quad, 4, true);
    return;
  }
  shapes_.Add(a.x + nx, a.y + ny);
  shapes_.Add(b.x + nx, b.y + ny);
  shapes_.Add(b.x - nx, b.y - ny);
  shapes_.Add(a.x - nx, a.y - ny);
  shapes_.EndRing();
}

// The round wedge on the outer side of the turn at v from direction u1 to
// u2 (unit vectors); the inner side is covered by the quads already.
void LineStroker::AddJoin(const PixelVertex& v, double ux1, double uy1, double ux2, double uy2) {
  const double cross = ux1 * uy2 - uy1 * ux2;
  const double dot = ux1 * ux2 + uy1 * uy2;
  // Turns too slight to leave a gap get nothing (compared by cosines).
  if (dot > skip_join_cos_) return;
  const double side = cross > 0.0 ? -1.0 : 1.0;
  const double n1x = -uy1 * side * half_, n1y = ux1 * side * half_;
  const double n2x = -uy2 * side * half_, n2y = ux2 * side * half_;
  // Wound like the quads: a positive turn runs backwards.
  PiecePoint(v.x, v.y);
  if (dot >= single_step_cos_) {  // one chord does: a triangle
    if (cross > 0.0) {
      PiecePoint(v.x + n2x, v.y + n2y);
      PiecePoint(v.x + n1x, v.y + n1y);
    } else {
      PiecePoint(v.x + n1x, v.y + n1y);
      PiecePoint(v.x + n2x, v.y + n2y);
    }
    EndPiece();
    return;
  }
  // The arc from n1 to n2 in equal steps, each point the one before turned
  // by the step (n2's end of it first for a positive turn).
  const double sweep = std::atan2(cross, dot);
  const int steps = static_cast<int>(std::ceil(std::fabs(sweep) / join_step_));
  const double step = sweep / steps;
  const double c = std::cos(step), s = sweep > 0.0 ? -std::sin(step) : std::sin(step);
  double rx = sweep > 0.0 ? n2x : n1x, ry = sweep > 0.0 ? n2y : n1y;
  for (int k = 0; k <= steps; ++k) {
    PiecePoint(v.x + rx, v.y + ry);
    const double turned_x = rx * c - ry * s;
    ry = rx * s + ry * c;
    rx = turned_x;
  }
  EndPiece();
}

void LineStroker::AddCap(const PixelVertex& v) {
  if (cap_ != LineCap::kRound) return;
  // A ring's polyline ends where it begins: its second cap adds nothing.
  if (have_last_cap_ && v.x == last_cap_.x && v.y == last_cap_.y) return;
  have_last_cap_ = true;
  last_cap_ = v;
  for (const PixelVertex& p : cap_points_) PiecePoint(v.x + p.x, v.y + p.y);
  EndPiece();
}

void LineStroker::AddDisc(double x, double y, double radius, bool hole, double tolerance) {
  if (!(radius > 0.0) || !std::isfinite(x) || !std::isfinite(y) || !std::isfinite(radius)) return;
  const int n = std::clamp(static_cast<int>(std::ceil(kTwoPi / ArcStep(radius, tolerance))),
                           kMinCirclePoints, kMaxCirclePoints);
  // Decreasing angles wind the disc like the quads; a hole the other way.
  const double direction = hole ? 1.0 : -1.0;
  has_holes_ = has_holes_ || hole;
  for (int k = 0; k < n; ++k) {
    const double a = direction * kTwoPi * k / n;
    shapes_.Add(x + radius * std::cos(a), y + radius * std::sin(a));
  }
  shapes_.EndRing();
}

void LineStroker::AddBox(double x0, double y0, double x1, double y1, bool hole) {
  if (!(x0 < x1 && y0 < y1)) return;
  has_holes_ = has_holes_ || hole;
  shapes_.Add(x0, y0);
  if (hole) {
    shapes_.Add(x1, y0);
    shapes_.Add(x1, y1);
    shapes_.Add(x0, y1);
  } else {
    shapes_.Add(x0, y1);
    shapes_.Add(x1, y1);
    shapes_.Add(x1, y0);
  }
  shapes_.EndRing();
}

// One run of connected segments. A vertex reached by an unclipped segment
// and left by the next one gets a join; a free end gets a cap. Of a closed
// run, the first vertex is joined to the last segment instead of capped.
void LineStroker::AddSegmentRun(const PixelVertex* points, size_t count, bool closed, bool cap_start,
                                bool cap_end) {
  if (count < 2) return;
  const size_t segments = closed ? count : count - 1;
  bool have_previous = false;  // the last quad ended, unclipped, at previous_end
  PixelVertex previous_end{0, 0};
  double pux = 0, puy = 0;
  bool first_pending = false;  // closed: the first vertex waits for its join or cap
  double fux = 0, fuy = 0;
  bool any_segment = false;
  for (size_t i = 0; i < segments; ++i) {
    const PixelVertex& a = points[i];
    const PixelVertex& b = points[i + 1 < count ? i + 1 : 0];
    if (!Finite(a) || !Finite(b)) {
      if (have_previous) AddCap(previous_end);
      have_previous = false;
      any_segment = true;
      continue;
    }
    const double dx = b.x - a.x, dy = b.y - a.y;
    const double length = std::sqrt(dx * dx + dy * dy);
    if (!std::isfinite(length)) {  // beyond any drawing: a break
      if (have_previous) AddCap(previous_end);
      have_previous = false;
      any_segment = true;
      continue;
    }
    if (!(length > 1e-9)) continue;
    const double ux = dx / length, uy = dy / length;
    // Liang-Barsky against the widened area.
    double t0 = 0.0, t1 = 1.0;
    auto edge = [&](double p, double q) {
      if (p == 0.0) return q >= 0.0;
      const double t = q / p;
      if (p < 0.0) {
        if (t > t1) return false;
        t0 = std::max(t0, t);
      } else {
        if (t < t0) return false;
        t1 = std::min(t1, t);
      }
      return true;
    };
    const bool visible = edge(-dx, a.x - left_) && edge(dx, right_ - a.x) && edge(-dy, a.y - top_) &&
                         edge(dy, bottom_ - a.y);
    if (!visible) {
      have_previous = false;  // a lies outside: the last quad was clipped
      any_segment = true;
      continue;
    }
    const bool start_clipped = t0 > 0.0, end_clipped = t1 < 1.0;
    if (!start_clipped) {
      if (have_previous) {
        AddJoin(a, pux, puy, ux, uy);
      } else if (closed && !any_segment) {
        first_pending = true;
        fux = ux;
        fuy = uy;
      } else if (cap_start || any_segment) {
        AddCap(a);
      }
    }
    any_segment = true;
    // Cut points of far-away segments carry the rounding of their huge
    // coordinates: kept within the widened area.
    auto cut = [&](double t) {
      return PixelVertex{std::clamp(a.x + t * dx, left_, right_), std::clamp(a.y + t * dy, top_, bottom_)};
    };
    const PixelVertex ca = start_clipped ? cut(t0) : a;
    const PixelVertex cb = end_clipped ? cut(t1) : b;
    AddQuad(ca, cb, ux, uy);
    have_previous = !end_clipped;
    previous_end = b;
    pux = ux;
    puy = uy;
  }
  if (first_pending && have_previous) {
    AddJoin(points[0], pux, puy, fux, fuy);
    return;
  }
  if (first_pending) AddCap(points[0]);
  if (have_previous && (cap_end || closed)) AddCap(previous_end);
  if (!any_segment && cap_ == LineCap::kRound && Finite(points[0]) && points[0].x >= left_ &&
      points[0].x <= right_ && points[0].y >= top_ && points[0].y <= bottom_) {
    AddCap(points[0]);  // every point the same: a dot
  }
}

void LineStroker::AddPath(std::span<const PixelVertex> points, bool closed, bool cap_start,
                          bool cap_end) {
  AddSegmentRun(points.data(), points.size(), closed && points.size() > 2, cap_start, cap_end);
}

void LineStroker::AddRingEdges(const PixelRings& rings) {
  const std::vector<PixelVertex>& points = rings.points();
  const std::vector<uint8_t>& follows = rings.edge_follows();
  for (size_t r = 0; r < rings.ring_count(); ++r) {
    const size_t begin = rings.RingBegin(r), end = rings.RingEnd(r);
    if (end - begin < 2) continue;
    const auto first_gap = std::find(follows.begin() + static_cast<ptrdiff_t>(begin),
                                     follows.begin() + static_cast<ptrdiff_t>(end), uint8_t{0});
    if (first_gap == follows.begin() + static_cast<ptrdiff_t>(end)) {
      AddSegmentRun(points.data() + begin, end - begin, true);
      continue;
    }
    // Runs of flagged segments, in ring order starting after a gap so that
    // no run wraps past the ring's end.
    const size_t gap = static_cast<size_t>(first_gap - follows.begin());
    const size_t n = end - begin;
    size_t i = 0;  // segments counted from the one after the gap
    while (i < n - 1) {
      const size_t s = begin + (gap - begin + 1 + i) % n;
      if (!follows[s]) {
        ++i;
        continue;
      }
      size_t j = i;
      while (j < n - 1 && follows[begin + (gap - begin + 1 + j) % n]) ++j;
      // Vertices i .. j of the rotated ring.
      const size_t first = begin + (gap - begin + 1 + i) % n;
      if (first + (j - i) < end) {
        AddSegmentRun(points.data() + first, j - i + 1, false);
      } else {
        run_.clear();
        for (size_t k = i; k <= j; ++k) run_.push_back(points[begin + (gap - begin + 1 + k) % n]);
        AddSegmentRun(run_.data(), run_.size(), false);
      }
      i = j;
    }
  }
}

bool LineStroker::Fill(DrawSurface& surface, EdgeTables& tables, const PixelColour& colour) {
  if (empty()) return true;
  if (!thin_) return FillPolygons(surface, tables, shapes_, colour, FillMode::kStroke);
  if (has_holes_) {
    // Holes cut out of everything added before them: the lines' spans join
    // the shapes as boxes around their pixel centres, and all is filled by
    // the nonzero rule.
    for (const RowSpan& span : line_spans_.spans()) {
      const double y = static_cast<double>(span.row);
      shapes_.Add(static_cast<double>(span.x1) - 0.5, y - 0.5);
      shapes_.Add(static_cast<double>(span.x1) - 0.5, y + 0.5);
      shapes_.Add(static_cast<double>(span.x2) + 0.5, y + 0.5);
      shapes_.Add(static_cast<double>(span.x2) + 0.5, y - 0.5);
      shapes_.EndRing();
    }
    line_spans_.Clear(surface.active_rect());
    return FillPolygons(surface, tables, shapes_, colour, FillMode::kStroke);
  }
  const std::vector<PixelVertex>& points = shapes_.points();
  for (size_t r = 0; r < shapes_.ring_count(); ++r) {
    line_spans_.AddPiece(points.data() + shapes_.RingBegin(r), shapes_.RingEnd(r) - shapes_.RingBegin(r));
  }
  shapes_.Clear();
  return line_spans_.Draw(surface, tables, colour);
}

bool StrokePath(DrawSurface& surface, EdgeTables& tables, LineStroker& stroker,
                std::span<const PixelVertex> points, double width, const PixelColour& colour,
                LineCap cap) {
  stroker.Begin(surface.active_rect(), width, cap);
  stroker.AddPath(points, false);
  return stroker.Fill(surface, tables, colour);
}

}  // namespace vmp
