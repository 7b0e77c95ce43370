#include "map_server/tools/vector_tile.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "map_server/tools/replacing_output.h"
#include "map_server/util/tile_naming.h"
#include "map_server/vector/tvf_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// A run of cell numbers along one axis, both ends included; empty when
// first > last.
struct IndexSpan {
  int64_t first;
  int64_t last;
};

// The cells of an axis (origin, step, count) that the range lo..hi can
// touch, with one cell to spare on each side so that rounding in the
// division never loses a cell; the exact test decides afterwards. Without a
// usable step every cell is a candidate.
IndexSpan CandidateSpan(double lo, double hi, double origin, double step, int64_t count) {
  const IndexSpan all{0, count - 1};
  if (!(step > 0.0) || !std::isfinite(step)) return all;
  const double first = std::floor((lo - origin) / step) - 1.0;
  const double last = std::floor((hi - origin) / step) + 1.0;
  if (std::isnan(first) || std::isnan(last)) return all;
  const double top = static_cast<double>(count - 1);
  if (last < 0.0 || first > top) return {1, 0};
  return {first < 0.0 ? 0 : static_cast<int64_t>(first),
          last > top ? count - 1 : static_cast<int64_t>(last)};
}

// Candidate columns of a box: where it lies, and with wrapping where its
// shifted copies can reach. Sorted and merged.
std::vector<IndexSpan> CandidateColumns(const FeatureExtent& box, const TileGrid& grid,
                                        double width, const WrapRange& wrap) {
  const int64_t n = grid.columns;
  std::vector<IndexSpan> spans = {CandidateSpan(box.min_x, box.max_x, grid.min_x, width, n)};
  if (wrap.on) {
    const double a = box.min_x, b = box.max_x, w = wrap.west, e = wrap.east, r = e - w;
    const bool inside = a >= w && a <= e && b >= w && b <= e;
    if (!(r > 0.0) || !std::isfinite(r)) {
      spans.push_back({0, n - 1});
    } else if (inside) {
      // only the direct test can take it
    } else if (a >= e && b >= e) {
      spans.push_back(CandidateSpan(a - r, b - r, grid.min_x, width, n));
    } else if (w >= a && w >= b) {
      spans.push_back(CandidateSpan(a + r, b + r, grid.min_x, width, n));
    } else {
      // Straddling an edge: every cell west of b - R or east of a + R.
      const double lowest = std::min(grid.min_x, grid.min_x + width * static_cast<double>(n));
      const double highest = std::max(grid.min_x, grid.min_x + width * static_cast<double>(n));
      spans.push_back(CandidateSpan(std::min(lowest, b - r), b - r, grid.min_x, width, n));
      spans.push_back(CandidateSpan(a + r, std::max(highest, a + r), grid.min_x, width, n));
    }
  }
  std::sort(spans.begin(), spans.end(),
            [](const IndexSpan& x, const IndexSpan& y) { return x.first < y.first; });
  std::vector<IndexSpan> merged;
  for (const IndexSpan& s : spans) {
    if (s.first > s.last) continue;
    if (!merged.empty() && s.first <= merged.back().last + 1) {
      merged.back().last = std::max(merged.back().last, s.last);
    } else {
      merged.push_back(s);
    }
  }
  return merged;
}

void PrintProgress(int64_t from, int64_t to, int64_t every) {
  if (every <= 0) return;
  for (int64_t k = (from / every + 1) * every; k <= to && k > from; k += every) {
    std::printf("Writing tile #%lld\n", static_cast<long long>(k));
  }
}

}  // namespace

CellBounds GridCell(const TileGrid& grid, int64_t column, int64_t row) {
  const double width = (grid.max_x - grid.min_x) / static_cast<double>(grid.columns);
  const double height = (grid.max_y - grid.min_y) / static_cast<double>(grid.rows);
  const double i = static_cast<double>(column), j = static_cast<double>(row);
  return {grid.min_x + i * width, grid.min_x + (i + 1) * width, grid.min_y + j * height,
          grid.min_y + (j + 1) * height};
}

TileGrid OwnExtentGrid(const VectorData& data, int64_t columns, int64_t rows) {
  TileGrid grid{10000.0, 10000.0, -10000.0, -10000.0, columns, rows};
  for (const auto& feature : data.features) {
    FeatureExtent box;
    ComputeFeatureExtent(*feature, &box);
    grid.min_x = std::min(grid.min_x, box.min_x);
    grid.min_y = std::min(grid.min_y, box.min_y);
    grid.max_x = std::max(grid.max_x, box.max_x);
    grid.max_y = std::max(grid.max_y, box.max_y);
  }
  return grid;
}

bool CellTakesBox(const FeatureExtent& box, const CellBounds& cell, const WrapRange& wrap) {
  if (cell.south > box.max_y || box.min_y > cell.north) return false;
  const double a = box.min_x, b = box.max_x, c = cell.west, d = cell.east;
  if (b >= c && d >= a) return true;
  if (!wrap.on) return false;
  const double w = wrap.west, e = wrap.east, r = e - w;
  if (a >= w && a <= e && b >= w && b <= e) return false;
  if ((a >= e && b >= e) || (w >= a && w >= b)) {
    const double shift = a >= e ? -r : r;
    return d >= a + shift && b + shift >= c;
  }
  if (a == c || b == d) return true;
  if (a > d) return b - r >= c;
  if (b >= d) return true;
  return a + r <= d;
}

// The last feature of the polygon group that starts at `first`: polygons
// with a continuation flag run up to and including the first polygon
// without one (or end at a marker or the end of the file). Anything else is
// a group of its own.
size_t GroupEnd(const VectorData& data, size_t first) {
  size_t last = first;
  while (last + 1 < data.features.size()) {
    const PolygonFeature* polygon = data.features[last]->AsPolygon();
    if (polygon == nullptr || polygon->flag == 0) break;
    if (data.features[last + 1]->AsPolygon() == nullptr) break;
    ++last;
  }
  return last;
}

std::vector<CellEntry> AssignFeaturesToCells(const VectorData& data, const TileGrid& grid,
                                             const WrapRange& wrap) {
  const double width = (grid.max_x - grid.min_x) / static_cast<double>(grid.columns);
  const double height = (grid.max_y - grid.min_y) / static_cast<double>(grid.rows);
  std::vector<CellEntry> entries;
  const size_t count = data.features.size();
  for (size_t first = 0; first < count;) {
    const size_t last = GroupEnd(data, first);
    FeatureExtent box;
    ComputeFeatureExtent(*data.features[first], &box);
    for (size_t f = first + 1; f <= last; ++f) {
      FeatureExtent member;
      ComputeFeatureExtent(*data.features[f], &member);
      box.min_x = std::min(box.min_x, member.min_x);
      box.max_x = std::max(box.max_x, member.max_x);
      box.min_y = std::min(box.min_y, member.min_y);
      box.max_y = std::max(box.max_y, member.max_y);
    }
    const IndexSpan rows = CandidateSpan(box.min_y, box.max_y, grid.min_y, height, grid.rows);
    for (const IndexSpan& columns : CandidateColumns(box, grid, width, wrap)) {
      if (rows.first > rows.last) break;
      for (int64_t i = columns.first; i <= columns.last; ++i) {
        for (int64_t j = rows.first; j <= rows.last; ++j) {
          if (!CellTakesBox(box, GridCell(grid, i, j), wrap)) continue;
          for (size_t f = first; f <= last; ++f) entries.push_back({i, j, static_cast<int64_t>(f)});
        }
      }
    }
    first = last + 1;
  }
  std::sort(entries.begin(), entries.end(), [](const CellEntry& x, const CellEntry& y) {
    if (x.column != y.column) return x.column < y.column;
    if (x.row != y.row) return x.row < y.row;
    return x.feature < y.feature;
  });
  return entries;
}

bool WriteTiles(const VectorData& data, const TileGrid& grid, const WrapRange& wrap,
                const std::string& name_template, int64_t progress, bool* wrote_any) {
  const std::vector<CellEntry> entries = AssignFeaturesToCells(data, grid, wrap);
  const TvfFormat format = CurrentTvfOutputFormat();
  const int64_t total = grid.columns * grid.rows;
  const bool single = grid.columns == 1 && grid.rows == 1;
  int64_t counted = 0;
  int64_t written_tiles = 0;
  for (size_t e = 0; e < entries.size();) {
    const int64_t column = entries[e].column, row = entries[e].row;
    const int64_t number = column * grid.rows + row + 1;
    PrintProgress(counted, number, progress);
    counted = number;
    const std::string name = single ? name_template : ExpandTileName(name_template, column, row);
    ReplacingOutput out;
    if (!out.OpenTvf(name, format)) return false;
    ++written_tiles;
    for (; e < entries.size() && entries[e].column == column && entries[e].row == row; ++e) {
      if (out.Failed() || !WriteTvfFeature(out.get(), format, *data.features[entries[e].feature])) {
        Report(kError, "Error writing output file", name);
        return false;
      }
      *wrote_any = true;
    }
    if (!out.Commit()) {
      Report(kError, "Error writing output file", name);
      return false;
    }
  }
  PrintProgress(counted, total, progress);
  std::fflush(stdout);
  if (total > written_tiles) {
    ReportNumber(kInfo, "Number of skipped tiles with no features",
                 static_cast<double>(total - written_tiles));
  }
  return true;
}

}  // namespace vmp
