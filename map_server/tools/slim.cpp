#include "map_server/tools/slim.h"

#include <cmath>
#include <utility>
#include <vector>

#include "map_server/tools/replacing_output.h"
#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/tvf_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Start of the duplicate walk: no snapped point equals it.
constexpr double kNoPoint = -1e20;

struct SlimCounts {
  long points_in = 0;
  long duplicates = 0;
  long points_written = 0;
  long polygons_read = 0;
  long polygons_dropped = 0;
  long polygons_written = 0;
};

// Snaps the polygon's points in place and puts its distinct points (each
// unlike the one before it) into `distinct`; returns the number of
// duplicates.
long SnapPolygon(std::vector<PolygonPoint>& points, double resolution,
                 std::vector<PolygonPoint>& distinct) {
  distinct.clear();
  double prev_x = kNoPoint, prev_y = kNoPoint;
  long duplicates = 0;
  for (PolygonPoint& p : points) {
    p.x = SnapToGrid(p.x, resolution);
    p.y = SnapToGrid(p.y, resolution);
    if (p.x == prev_x && p.y == prev_y) {
      ++duplicates;
    } else {
      distinct.push_back(p);
    }
    prev_x = p.x;
    prev_y = p.y;
  }
  return duplicates;
}

}  // namespace

double SnapToGrid(double value, double resolution) {
  double q = value / resolution;
  q += value >= 0.0 ? 0.5 : -0.5;
  // The 64-bit range, exclusive of its ends as doubles.
  if (q > -9.2233720368547758e18 && q < 9.2233720368547758e18) {
    return static_cast<double>(static_cast<int64_t>(q)) * resolution;
  }
  return std::trunc(q) * resolution;
}

bool SlimTvfFile(const std::string& input, const std::string& output, double resolution,
                 FILE* report) {
  if (!(resolution > 0.0) || !std::isfinite(resolution)) {
    ReportNumber(kError, "Resolution must be above zero", resolution);
    return false;
  }
  VectorData data;
  if (!LoadTvfFile(input, TvfSource::kByName, data)) {
    Report(kError, "Could not read input file", input);
    return false;
  }
  if (data.features.empty()) {
    Report(kWarning, "TVF file with zero features:", input);
    return true;
  }
  const TvfFormat format = CurrentTvfOutputFormat();
  ReplacingOutput out;
  if (!out.OpenTvf(output, format)) return false;

  SlimCounts counts;
  std::vector<PolygonPoint> distinct;
  for (const auto& feature : data.features) {
    if (out.Failed()) {
      Report(kError, "Error writing output file", output);
      return false;
    }
    PolygonFeature* polygon = feature->AsPolygon();
    if (polygon == nullptr) {
      WriteTvfFeature(out.get(), format, *feature);
      continue;
    }
    ++counts.polygons_read;
    counts.duplicates += SnapPolygon(polygon->points, resolution, distinct);
    counts.points_in += static_cast<long>(polygon->points.size());
    if (distinct.size() < 2) {
      ++counts.polygons_dropped;
      continue;
    }
    // Written with the distinct points in the feature's place.
    std::swap(polygon->points, distinct);
    WriteTvfFeature(out.get(), format, *polygon);
    std::swap(polygon->points, distinct);
    ++counts.polygons_written;
    counts.points_written += static_cast<long>(distinct.size());
  }
  if (out.Failed()) {
    Report(kError, "Error writing output file", output);
    return false;
  }

  std::fprintf(report, "Points: in/out ratio: %lf\n",
               static_cast<double>(counts.duplicates) / static_cast<double>(counts.points_written));
  std::fprintf(report, "  total: %ld, discarded: %ld, written out: %ld\n", counts.points_in,
               counts.points_in - counts.points_written, counts.points_written);
  if (counts.polygons_read > 0) {
    std::fprintf(report, "Polygons: in/out ratio: %lf\n",
                 static_cast<double>(counts.polygons_written) /
                     static_cast<double>(counts.polygons_read));
    std::fprintf(report, "  total: %ld, discarded small: %ld, written out: %ld\n",
                 counts.polygons_read, counts.polygons_dropped, counts.polygons_written);
  } else {
    Report(kWarning, "No objects found!", input);
  }
  std::fflush(report);
  if (!out.Commit()) {
    Report(kError, "Error writing output file", output);
    return false;
  }
  return true;
}

}  // namespace vmp
