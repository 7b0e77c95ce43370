#include "map_server/tools/vector_split.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

#include "map_server/tools/replacing_output.h"
#include "map_server/tools/vector_tile.h"
#include "map_server/vector/attr_eval_state.h"
#include "map_server/vector/attr_match.h"
#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/tvf_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// The one output of the attribute and point splits, opened when the first
// feature is written to it.
class LazyOutput {
 public:
  explicit LazyOutput(const std::string& name)
      : name_(name), format_(CurrentTvfOutputFormat()) {}

  bool Write(const Feature& feature) {
    if (!out_.is_open() && !out_.OpenTvf(name_, format_)) return false;
    if (out_.Failed() || !WriteTvfFeature(out_.get(), format_, feature)) {
      Report(kError, "Error writing output file", name_);
      return false;
    }
    return true;
  }

  // Closes the output if it was opened; false when it could not be written.
  bool Finish() {
    if (!out_.is_open()) return true;
    if (out_.Commit()) return true;
    Report(kError, "Error writing output file", name_);
    return false;
  }

  bool opened() const { return out_.is_open(); }

 private:
  std::string name_;
  TvfFormat format_;
  ReplacingOutput out_;
};

bool SplitByAttributes(const VectorData& data, const SplitSettings& s, bool* wrote_any) {
  ResetAttrConditionMessages();
  LazyOutput out(s.output);
  FeatureContext context;
  context.data = &data;
  for (const auto& feature : data.features) {
    context.feature = feature.get();
    const bool match = s.conditions != nullptr && MatchAttrConditions(*s.conditions, context);
    if (match == s.invert) continue;
    if (!out.Write(*feature)) return false;
    *wrote_any = true;
  }
  const int64_t messages = AttrEval().messages_given;
  if (messages > 0) {
    Report(kWarning, "Skipped objects with attribute errors!");
    ReportNumber(kWarning, "  Number of skipped features with attr. errors",
                 static_cast<double>(messages));
  }
  return out.Finish();
}

// The shift of one piece in units of the wrap range's width: +1 when the
// piece lies west of the range, -1 when it lies east of it, else 0. M is the
// running maximum of x and m the last x seen below it; the polygon's last
// point is never looked at.
int PieceShift(const std::vector<PolygonPoint>& points, size_t first, size_t start, size_t n,
               const WrapRange& wrap) {
  double max_x = points[first].x;
  double below_max = max_x;
  const size_t stop = std::min(start + n, points.size() - 1);
  for (size_t k = start; k < stop; ++k) {
    const double x = points[k].x;
    if (x > max_x) max_x = x;
    if (max_x > x) below_max = x;
  }
  int shift = 0;
  if (wrap.west > max_x) shift = 1;
  if (below_max > wrap.east) shift = -1;
  return shift;
}

// Piece k starts at point k*N; pieces after the first repeat the previous
// piece's last point in front of their own N points.
bool SplitByPoints(VectorData& data, const SplitSettings& s, bool* wrote_any) {
  LazyOutput out(s.output);
  const size_t n = static_cast<size_t>(s.points_per_piece);
  const double width = s.wrap.east - s.wrap.west;
  std::vector<PolygonPoint> piece;
  for (const auto& feature : data.features) {
    PolygonFeature* polygon = feature->AsPolygon();
    if (feature->IsMarker() || (polygon != nullptr && polygon->points.empty())) {
      if (!out.Write(*feature)) return false;
      *wrote_any = true;
      continue;
    }
    if (polygon == nullptr) {
      Report(kError, "Skipping invalid TVF feature in file", s.output);
      continue;
    }
    const size_t count = polygon->points.size();
    for (size_t start = 0; start < count; start += n) {
      const size_t first = start == 0 ? 0 : start - 1;
      const size_t end = std::min(start + n, count);
      const int shift = s.wrap.on ? PieceShift(polygon->points, first, start, n, s.wrap) : 0;
      piece.assign(polygon->points.begin() + static_cast<std::ptrdiff_t>(first),
                   polygon->points.begin() + static_cast<std::ptrdiff_t>(end));
      if (shift != 0) {
        for (PolygonPoint& p : piece) p.x += shift * width;
      }
      // The piece is written in the feature's place: same head and
      // attributes, its own points.
      std::swap(polygon->points, piece);
      const bool written = out.Write(*polygon);
      std::swap(polygon->points, piece);
      if (!written) return false;
      *wrote_any = true;
    }
  }
  return out.Finish();
}

}  // namespace

bool SplitTvfFile(const std::string& input, const SplitSettings& s) {
  const bool tiles = s.kind == SplitKind::kTileOwnExtent || s.kind == SplitKind::kTileGivenExtent;
  const bool valid = s.kind == SplitKind::kAttribute ||
                     (s.kind == SplitKind::kPoints && s.points_per_piece >= 2) ||
                     (tiles && s.columns >= 1 && s.rows >= 1 &&
                      s.columns <= std::numeric_limits<int64_t>::max() / s.rows);
  if (!valid) {
    Report(kWarning, "Invalid split type", "Check input options");
    return false;
  }
  VectorData data;
  if (!LoadTvfFile(input, TvfSource::kByName, data, s.filter)) {
    Report(kError, "Could not read input file", input);
    return false;
  }
  if (data.features.empty()) {
    Report(kWarning, "TVF file with zero features", input);
    return true;
  }

  bool wrote_any = false;
  bool ok = false;
  if (s.kind == SplitKind::kAttribute) {
    ok = SplitByAttributes(data, s, &wrote_any);
  } else if (s.kind == SplitKind::kPoints) {
    ok = SplitByPoints(data, s, &wrote_any);
  } else {
    const TileGrid grid = s.kind == SplitKind::kTileOwnExtent
                              ? OwnExtentGrid(data, s.columns, s.rows)
                              : TileGrid{s.min_x, s.min_y, s.max_x, s.max_y, s.columns, s.rows};
    ok = WriteTiles(data, grid, s.wrap, s.output, s.progress, &wrote_any);
  }
  if (ok && !wrote_any) Report(kWarning, "No objects fit conditions", input);
  return ok;
}

}  // namespace vmp
