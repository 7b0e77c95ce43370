#include "map_server/rendering/scan_converter.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "map_server/geometry/int_conversion.h"
#include "map_server/rendering/pixel_writer.h"
#include "toolkit/global_config.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// std::ceil without a library call for the coordinates drawing meets (exact
// below 2^52); huge values, infinities and NaN go to std::ceil.
inline double Ceil(double y) {
  if (std::fabs(y) < 4.0e15) {
    const double t = static_cast<double>(static_cast<int64_t>(y));
    return t < y ? t + 1.0 : t;
  }
  return std::ceil(y);
}

// Adds the edge from a to b unless it covers no scanline of [row_min, row_max]
// or has a coordinate that is not a number.
void AddEdge(std::vector<PolygonEdge>& edges, const PixelVertex& a, const PixelVertex& b,
             int64_t row_min, int64_t row_max) {
  if (!std::isfinite(a.x) || !std::isfinite(a.y) || !std::isfinite(b.x) || !std::isfinite(b.y)) return;
  const PixelVertex& lo = a.y <= b.y ? a : b;
  const PixelVertex& hi = a.y <= b.y ? b : a;
  const int64_t y_low = TruncToInt64(Ceil(lo.y));
  const int64_t y_high = TruncToInt64(Ceil(hi.y));
  if (y_low >= y_high) return;  // horizontal, or between two scanlines
  if (y_high <= row_min || y_low > row_max) return;
  const double slope = (hi.x - lo.x) / (hi.y - lo.y);
  const double x_low = lo.x + (static_cast<double>(y_low) - lo.y) * slope;
  edges.push_back({y_low, y_high, x_low, slope, x_low, a.y < b.y ? 1 : -1});
}

void ReportRunaway(int64_t iteration) {
  Report(kError, "Detected hanging while rendering filled polygons");
  ReportNumber(kError, "breaking out after iteration", static_cast<double>(iteration));
  Report(kError,
         "Possible cause - unreasonably high zoom factor, check map extent or increase "
         "$config/VmpIterationMax.");
}

bool ByX(const PolygonEdge& a, const PolygonEdge& b) { return a.x < b.x; }

// Insertion sort by x of the first `count` edges: they were sorted on the
// scanline before, so only edges that crossed move.
void SortByX(std::vector<PolygonEdge>& active, size_t count) {
  for (size_t i = 1; i < count; ++i) {
    if (!(active[i].x < active[i - 1].x)) continue;
    const PolygonEdge moving = active[i];
    size_t j = i;
    while (j > 0 && moving.x < active[j - 1].x) {
      active[j] = active[j - 1];
      --j;
    }
    active[j] = moving;
  }
}

// Sorts the edges that joined on this scanline (the last `joined` of the
// list) and merges them into the sorted rest, from the back.
void MergeJoined(std::vector<PolygonEdge>& active, size_t joined, std::vector<PolygonEdge>& scratch) {
  const size_t old_count = active.size() - joined;
  std::sort(active.begin() + static_cast<ptrdiff_t>(old_count), active.end(), ByX);
  scratch.assign(active.begin() + static_cast<ptrdiff_t>(old_count), active.end());
  size_t out = active.size(), i = old_count, j = joined;
  while (j > 0) {
    if (i > 0 && ByX(scratch[j - 1], active[i - 1]))
      active[--out] = active[--i];
    else
      active[--out] = scratch[--j];
  }
}

// The first pixel column whose centre is at or right of x.
int64_t CentreColumn(double x) { return TruncToInt64(Ceil(x)); }

// Whether anything is to be filled: an empty area, an alpha of 0 and an
// unknown kind (reported) draw nothing.
bool WorthFilling(DrawSurface& surface, const PixelColour& colour) {
  if (surface.active_rect().empty()) return false;
  if (surface.location_query()) return true;
  if (colour.alpha == 0.0) return false;
  if (!IsKnownTransType(colour.trans_type)) {
    ReportUnknownTransType(colour.trans_type);
    return false;
  }
  return true;
}

bool ByColumn(const RowSpan& a, const RowSpan& b) { return a.x1 < b.x1; }

}  // namespace

// A bucket sort over the rows the edges begin on: an edge that begins
// above the processed rows joins the active list on the first of them, so
// it sorts there. Only the rows between the first and last such row are
// counted, so small polygons cost little.
void EdgeTables::SortByFirstRow(const PixelRect& area) {
  auto first_row = [&](const PolygonEdge& e) { return std::max(e.y_low, area.min_y); };
  int64_t lo = first_row(unsorted_.front()), hi = lo;
  for (const PolygonEdge& e : unsorted_) {
    lo = std::min(lo, first_row(e));
    hi = std::max(hi, first_row(e));
  }
  const size_t rows = static_cast<size_t>(hi - lo + 1);
  row_counts_.assign(rows + 1, 0);
  for (const PolygonEdge& e : unsorted_) ++row_counts_[static_cast<size_t>(first_row(e) - lo) + 1];
  for (size_t i = 1; i <= rows; ++i) row_counts_[i] += row_counts_[i - 1];
  edges_.resize(unsorted_.size());
  for (const PolygonEdge& e : unsorted_) edges_[row_counts_[static_cast<size_t>(first_row(e) - lo)]++] = e;
}

int64_t SpanColumn(double x, double slope) {
  if (slope >= 0.0) return x >= 0.0 ? TruncToInt64(x + 0.5) : TruncToInt64(x - 0.5);
  return TruncToInt64(x);
}

bool FillPolygons(DrawSurface& surface, EdgeTables& tables, const PixelRings& rings,
                  const PixelColour& colour, FillMode mode) {
  tables.last_scanlines_ = 0;
  if (!WorthFilling(surface, colour)) return true;
  const bool query = surface.location_query();
  const PixelRect& area = surface.active_rect();

  std::vector<PolygonEdge>& unsorted = tables.unsorted_;
  std::vector<PolygonEdge>& edges = tables.edges_;
  std::vector<PolygonEdge>& active = tables.active_;
  unsorted.clear();
  active.clear();
  // Detailed rings have many vertices to a scanline: an edge whose ends lie
  // in the same band (the same first scanline at or below them, both above
  // or both below the area's) covers no scanline that is processed, so only
  // edges between bands go to AddEdge.
  const std::vector<PixelVertex>& points = rings.points();
  const double band_min = static_cast<double>(area.min_y), band_max = static_cast<double>(area.max_y) + 1.0;
  auto band = [&](const PixelVertex& v) { return std::clamp(Ceil(v.y), band_min, band_max); };
  for (size_t r = 0; r < rings.ring_count(); ++r) {
    const size_t begin = rings.RingBegin(r), end = rings.RingEnd(r);
    if (end - begin < 2) continue;
    double previous = band(points[begin]);
    for (size_t i = begin + 1; i <= end; ++i) {
      const size_t a = i - 1, b = i < end ? i : begin;
      const double current = band(points[b]);
      // NaN bands differ from everything: AddEdge drops such edges.
      if (current != previous) AddEdge(unsorted, points[a], points[b], area.min_y, area.max_y);
      previous = current;
    }
  }
  if (unsorted.empty()) return true;
  tables.SortByFirstRow(area);

  const int64_t limit = TruncToInt64(kav::Config().vmp_iteration_max);
  int64_t iterations = 0;
  SpanWriter writer(surface, colour);
  size_t next = 0;
  // The first scanline at which an active edge ends: the active list is
  // compacted only then.
  int64_t first_end = std::numeric_limits<int64_t>::max();
  int64_t s = std::max(edges.front().y_low, area.min_y);
  while (s <= area.max_y) {
    size_t joined = 0;
    while (next < edges.size() && edges[next].y_low <= s) {
      first_end = std::min(first_end, edges[next].y_high);
      active.push_back(edges[next++]);
      ++joined;
    }
    if (first_end <= s) {
      first_end = std::numeric_limits<int64_t>::max();
      size_t kept = 0;
      for (const PolygonEdge& e : active) {
        if (e.y_high <= s) continue;
        first_end = std::min(first_end, e.y_high);
        active[kept++] = e;
      }
      active.resize(kept);
    }
    if (active.empty()) {
      if (next == edges.size()) break;
      s = edges[next].y_low;  // jump the empty stretch
      continue;
    }
    if (++iterations > limit) {
      tables.last_scanlines_ = iterations - 1;
      ReportRunaway(iterations);
      return false;
    }
    const double row = static_cast<double>(s);
    for (PolygonEdge& e : active) e.x = e.x_low + (row - static_cast<double>(e.y_low)) * e.slope;
    // Edges that joined are still last (compaction keeps the order and never
    // drops an edge on the scanline it joins).
    SortByX(active, active.size() - joined);
    if (joined > 0) MergeJoined(active, joined, tables.joining_);
    // Spans of the scanline: even-odd pairs, or the stretches of nonzero
    // winding in the stroke mode.
    int32_t winding = 0;
    double span_start = 0.0;
    for (size_t i = 0; i < active.size(); ++i) {
      int64_t x1, x2;
      if (mode == FillMode::kPolygon) {
        if (i + 1 >= active.size()) break;
        x1 = SpanColumn(active[i].x, active[i].slope);
        x2 = SpanColumn(active[i + 1].x, active[i + 1].slope);
        ++i;
      } else {
        const int32_t before = winding;
        winding += active[i].winding;
        if (before == 0) span_start = active[i].x;
        if (before == 0 || winding != 0) continue;
        x1 = CentreColumn(span_start);
        x2 = CentreColumn(active[i].x);
        if (x2 > std::numeric_limits<int64_t>::min()) --x2;
        if (x1 > x2) continue;
      }
      if (query) {
        if (x1 <= area.max_x && x2 >= area.min_x) {
          tables.last_scanlines_ = iterations;
          surface.set_hit(true);
          return true;
        }
      } else {
        writer.Draw(x1, s, x2);
      }
    }
    ++s;
  }
  tables.last_scanlines_ = iterations;
  return true;
}

void PieceSpans::Clear(const PixelRect& area) {
  area_ = area;
  top_ = static_cast<double>(area.min_y);
  bottom_ = static_cast<double>(area.max_y);
  spans_.clear();
  first_row_ = std::numeric_limits<int64_t>::max();
  last_row_ = std::numeric_limits<int64_t>::min();
}

void PieceSpans::AddPiece(const PixelVertex* p, size_t n, bool known_finite) {
  if (n < 3 || area_.empty()) return;
  // The scanline rule on every vertex once: the first row at or below it.
  if (rows_of_.size() < n) rows_of_.resize(n);
  double top = std::numeric_limits<double>::infinity(), bottom = -top;
  for (size_t i = 0; i < n; ++i) {
    rows_of_[i] = Ceil(p[i].y);
    top = std::min(top, rows_of_[i]);
    bottom = std::max(bottom, rows_of_[i]);
  }
  double finite = 0.0;  // NaN unless every coordinate is finite
  if (!known_finite) {
    for (size_t i = 0; i < n; ++i) finite += (p[i].x - p[i].x) + (p[i].y - p[i].y);
  }
  if (finite != 0.0) {  // some edges are left out, as AddEdge leaves them out
    top = std::numeric_limits<double>::infinity();
    bottom = -top;
    for (size_t i = 0; i < n; ++i) {
      if (!std::isfinite(p[i].x) || !std::isfinite(p[i].y)) continue;
      top = std::min(top, rows_of_[i]);
      bottom = std::max(bottom, rows_of_[i]);
    }
  }
  top = std::max(top, top_);
  bottom = std::min(bottom - 1.0, bottom_);
  if (!(top <= bottom)) return;  // covers no scanline of the area
  const int64_t row0 = static_cast<int64_t>(top);
  const size_t rows = static_cast<size_t>(static_cast<int64_t>(bottom) - row0 + 1);
  if (lefts_.size() < rows) {
    lefts_.resize(rows);
    rights_.resize(rows);
  }
  std::fill_n(lefts_.begin(), rows, std::numeric_limits<double>::infinity());
  std::fill_n(rights_.begin(), rows, -std::numeric_limits<double>::infinity());
  // Every edge that covers scanlines gives its x on them, as the edge table
  // would compute it; on each scanline the piece's stretch runs from the
  // leftmost x to the rightmost.
  for (size_t i = 0; i < n; ++i) {
    const size_t j = i + 1 < n ? i + 1 : 0;
    const double ra = rows_of_[i], rb = rows_of_[j];
    if (ra == rb) continue;  // horizontal, or between two scanlines
    const PixelVertex& a = p[i];
    const PixelVertex& b = p[j];
    if (finite != 0.0 && (!std::isfinite(a.x) || !std::isfinite(a.y) || !std::isfinite(b.x) || !std::isfinite(b.y))) {
      continue;
    }
    const PixelVertex& lo = ra < rb ? a : b;
    const PixelVertex& hi = ra < rb ? b : a;
    const double y_low = std::min(ra, rb), y_high = std::max(ra, rb);
    const double slope = (hi.x - lo.x) / (hi.y - lo.y);
    const double x_low = lo.x + (y_low - lo.y) * slope;
    const double from = std::max(y_low, top), to = std::min(y_high - 1.0, bottom);
    for (double row = from; row <= to; row += 1.0) {
      const double x = x_low + (row - y_low) * slope;
      const size_t k = static_cast<size_t>(row - top);
      lefts_[k] = std::min(lefts_[k], x);
      rights_[k] = std::max(rights_[k], x);
    }
  }
  // The columns whose centres lie in each stretch: x_left <= c < x_right.
  // Clamping first keeps the integer arithmetic small and clips alike.
  const double min_x = static_cast<double>(area_.min_x) - 1.0, max_x = static_cast<double>(area_.max_x) + 1.0;
  for (size_t k = 0; k < rows; ++k) {
    if (!(lefts_[k] < rights_[k])) continue;
    const int64_t x1 = std::max(static_cast<int64_t>(Ceil(std::clamp(lefts_[k], min_x, max_x))), area_.min_x);
    const int64_t x2 = std::min(static_cast<int64_t>(Ceil(std::clamp(rights_[k], min_x, max_x))) - 1, area_.max_x);
    if (x1 > x2) continue;
    const int64_t row = row0 + static_cast<int64_t>(k);
    // Pieces come along a line: a span that meets the last one on its
    // scanline joins it at once.
    if (!spans_.empty()) {
      RowSpan& last = spans_.back();
      if (last.row == row && x1 <= last.x2 + 1 && x2 + 1 >= last.x1) {
        last.x1 = std::min(last.x1, x1);
        last.x2 = std::max(last.x2, x2);
        continue;
      }
    }
    spans_.push_back({row, x1, x2});
    first_row_ = std::min(first_row_, row);
    last_row_ = std::max(last_row_, row);
  }
}

bool PieceSpans::Draw(DrawSurface& surface, EdgeTables& tables, const PixelColour& colour) const {
  tables.last_scanlines_ = 0;
  if (!WorthFilling(surface, colour) || spans_.empty()) return true;
  const PixelRect& active = surface.active_rect();
  if (surface.location_query()) {
    for (const RowSpan& span : spans_) {
      if (span.row >= active.min_y && span.row <= active.max_y && span.x1 <= active.max_x &&
          span.x2 >= active.min_x) {
        tables.last_scanlines_ = 1;
        surface.set_hit(true);
        return true;
      }
    }
    return true;
  }

  // By scanline (a bucket sort over the rows the spans reach), then along
  // each scanline: overlapping and touching spans merge into one run.
  std::vector<uint32_t>& counts = tables.row_counts_;
  const size_t rows = static_cast<size_t>(last_row_ - first_row_ + 1);
  counts.assign(rows + 1, 0);
  for (const RowSpan& span : spans_) ++counts[static_cast<size_t>(span.row - first_row_) + 1];
  for (size_t i = 1; i <= rows; ++i) counts[i] += counts[i - 1];
  std::vector<RowSpan>& sorted = tables.row_spans_;
  sorted.resize(spans_.size());
  for (const RowSpan& span : spans_) sorted[counts[static_cast<size_t>(span.row - first_row_)]++] = span;

  const int64_t limit = TruncToInt64(kav::Config().vmp_iteration_max);
  int64_t iterations = 0;
  SpanWriter writer(surface, colour);
  size_t i = 0;
  while (i < sorted.size()) {
    size_t row_end = i + 1;
    while (row_end < sorted.size() && sorted[row_end].row == sorted[i].row) ++row_end;
    if (++iterations > limit) {
      tables.last_scanlines_ = iterations - 1;
      ReportRunaway(iterations);
      return false;
    }
    const auto first = sorted.begin() + static_cast<ptrdiff_t>(i), last = sorted.begin() + static_cast<ptrdiff_t>(row_end);
    if (row_end - i > 1) std::sort(first, last, ByColumn);
    int64_t x1 = first->x1, x2 = first->x2;
    for (auto span = first + 1; span != last; ++span) {
      if (span->x1 <= x2 + 1) {
        x2 = std::max(x2, span->x2);
        continue;
      }
      writer.Draw(x1, first->row, x2);
      x1 = span->x1;
      x2 = span->x2;
    }
    writer.Draw(x1, first->row, x2);
    i = row_end;
  }
  tables.last_scanlines_ = iterations;
  return true;
}

bool FillConvexUnion(DrawSurface& surface, EdgeTables& tables, const PixelRings& pieces,
                     const PixelColour& colour) {
  tables.last_scanlines_ = 0;
  if (!WorthFilling(surface, colour)) return true;
  PieceSpans& spans = tables.pieces_;
  spans.Clear(surface.active_rect());
  const std::vector<PixelVertex>& points = pieces.points();
  for (size_t r = 0; r < pieces.ring_count(); ++r) {
    const size_t begin = pieces.RingBegin(r), end = pieces.RingEnd(r);
    spans.AddPiece(points.data() + begin, end - begin);
  }
  return spans.Draw(surface, tables, colour);
}

}  // namespace vmp
