#include "map_server/rendering/grid_layer.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/lat_lon.h"
#include "map_server/rendering/feature_style.h"
#include "map_server/rendering/pixel_writer.h"
#include "map_server/rendering/view_region.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Bounds beyond this many degrees mean "no bound".
constexpr double kNoBound = 1000.0;
// Smallest interval taken (degrees).
constexpr double kMinInterval = 1e-9;
// On the globe: pixels between the points of a line, and the largest step
// (radians) whatever the scale.
constexpr double kCurveStepPixels = 4.0;
constexpr double kMaxCurveStep = 2.0 * kDegreesToRadians;
constexpr size_t kMaxCurvePoints = 1 << 20;

struct Bounds {
  double lat_lo, lat_hi;
  bool lon_full;
  double lon_lo, lon_hi;
};

Bounds GridBounds(const GridAttributes& a) {
  Bounds b;
  b.lat_lo = a.min_lat < -kNoBound ? -90.0 : std::max(a.min_lat, -90.0);
  b.lat_hi = a.max_lat > kNoBound ? 90.0 : std::min(a.max_lat, 90.0);
  b.lon_lo = a.min_lon < -kNoBound ? -180.0 : a.min_lon;
  b.lon_hi = a.max_lon > kNoBound ? 180.0 : a.max_lon;
  b.lon_full = b.lon_hi - b.lon_lo >= 360.0;
  return b;
}

// The parts of [u0, u1] within the longitude bounds taken a whole number of
// turns either way, west to east.
void LonPieces(const Bounds& b, double u0, double u1, std::vector<LonRange>& out) {
  if (!(u0 <= u1)) return;
  if (b.lon_full) {
    out.push_back({u0, u1});
    return;
  }
  if (!(b.lon_lo <= b.lon_hi)) return;
  for (int k = -3; k <= 3; ++k) {
    const double lo = std::max(u0, b.lon_lo + 360.0 * k), hi = std::min(u1, b.lon_hi + 360.0 * k);
    if (lo <= hi) out.push_back({lo, hi});
  }
}

// Appends the multiples of `interval` in [lo, hi]; false (nothing added)
// when there are more than kMaxGridLines.
bool Multiples(double lo, double hi, double interval, std::vector<double>& out) {
  if (!(lo <= hi)) return true;
  const double k0 = std::ceil(lo / interval - 1e-9), k1 = std::floor(hi / interval + 1e-9);
  if (!(k1 - k0 < static_cast<double>(kMaxGridLines))) return k1 < k0;
  for (double k = k0; k <= k1; ++k) out.push_back(k * interval);
  return true;
}

bool UsableInterval(double interval) { return std::isfinite(interval) && interval >= kMinInterval; }

}  // namespace

double AdaptiveGridInterval(int64_t coefficient, double zoom, bool decimal) {
  static constexpr double kDegrees[] = {90, 45, 30, 20, 15, 10, 5, 2, 1};
  static constexpr double kSexagesimal[] = {30, 20, 15, 10, 5, 2, 1};
  const double target = 30.0 / (static_cast<double>(std::max<int64_t>(coefficient, 1)) * zoom);
  if (!(target > 0.0)) return 90.0;  // NaN or a zoom of 0 or less
  double best = 90.0;
  for (double v : kDegrees) {
    if (v < target) return best;
    best = v;
  }
  if (!decimal) {
    for (double unit : {60.0, 3600.0}) {
      for (double v : kSexagesimal) {
        if (v / unit < target) return best;
        best = v / unit;
      }
    }
  }
  // 1-2-5 steps below the last one.
  for (double scale = best; scale > kMinInterval * 10; scale /= 10.0) {
    for (double f : {0.5, 0.2, 0.1}) {
      if (scale * f < target) return best;
      best = scale * f;
    }
  }
  return best;
}

GridLines ComputeGridLines(const Layer& layer, const MapGeometry& g) {
  const GridAttributes& a = layer.record.grid;
  GridLines lines;
  if (a.adaptive > 0) {
    lines.lat_interval = lines.lon_interval = AdaptiveGridInterval(a.adaptive, g.zoom, a.decimal_labels != 0);
  } else {
    lines.lat_interval = UsableInterval(a.lat_interval) ? a.lat_interval : 0.0;
    lines.lon_interval = UsableInterval(a.lon_interval) ? a.lon_interval : 0.0;
  }
  const Bounds b = GridBounds(a);
  double lat_lo = b.lat_lo, lat_hi = b.lat_hi;
  const bool globe = g.projection == kOrthographicProjection;
  if (globe) {
    LonPieces(b, -180.0, 180.0, lines.lon_ranges);
  } else {
    const ViewRegion view(g, VisibleRect(g));
    const Box& box = view.box();
    lat_lo = std::max(lat_lo, box.min_lat);
    lat_hi = std::min(lat_hi, box.max_lat);
    LonPieces(b, std::max(box.min_lon, g.world_min_lon), std::min(box.max_lon, g.world_max_lon), lines.lon_ranges);
  }
  lines.min_lat = lat_lo;
  lines.max_lat = lat_hi;
  if (lines.lat_interval > 0.0 && lat_lo <= lat_hi && !lines.lon_ranges.empty()) {
    lines.too_many_parallels = !Multiples(lat_lo, lat_hi, lines.lat_interval, lines.parallels);
    // On the globe the poles are points, not lines.
    if (globe) std::erase_if(lines.parallels, [](double lat) { return std::fabs(lat) >= 90.0 - 1e-9; });
  }
  if (lines.lon_interval > 0.0 && lat_lo <= lat_hi) {
    for (const LonRange& r : lines.lon_ranges) {
      if (!Multiples(r.min_lon, r.max_lon, lines.lon_interval, lines.meridians)) {
        lines.too_many_meridians = true;
        lines.meridians.clear();
        break;
      }
    }
    if (globe) {
      // One meridian for 180 and -180, each in [-180, 180).
      for (double& lon : lines.meridians) {
        lon = WrapDegrees180(lon);
        if (lon >= 180.0 - 1e-9) lon = -180.0;
      }
      std::sort(lines.meridians.begin(), lines.meridians.end());
      lines.meridians.erase(std::unique(lines.meridians.begin(), lines.meridians.end(),
                                        [](double x, double y) { return std::fabs(x - y) < 1e-9; }),
                            lines.meridians.end());
    }
  }
  return lines;
}

namespace {

// Builds the stroke of a grid on the globe.
class GlobeGrid {
 public:
  GlobeGrid(const MapGeometry& g, const PixelRect& area, LineStroker& stroker)
      : g_(g), view_(g, area), stroker_(stroker) {
    radius_ = std::max(std::fabs(g.scale_x), std::fabs(g.scale_y));
    const double lat = view_.cap_lat() * kDegreesToRadians;
    sin_cap_lat_ = std::sin(lat);
    cos_cap_lat_ = std::cos(lat);
  }

  // The parallel at `lat` over the longitude bounds.
  void Parallel(const Bounds& b, double lat) {
    const double phi = lat * kDegreesToRadians;
    const double cos_phi = std::cos(phi), sin_phi = std::sin(phi);
    // Longitudes within the view's cap: cos(d) >= cos(radius).
    const double denominator = cos_phi * cos_cap_lat_;
    double half = 180.0;
    if (std::fabs(denominator) > 1e-12) {
      const double c = (view_.cos_radius() - sin_phi * sin_cap_lat_) / denominator;
      if (c > 1.0) return;
      if (c > -1.0) half = std::acos(c) * kRadiansToDegrees;
    } else if (sin_phi * sin_cap_lat_ < view_.cos_radius()) {
      return;
    }
    const double step = std::min(kMaxCurveStep, kCurveStepPixels / (radius_ * std::max(cos_phi, 1e-12))) *
                        kRadiansToDegrees;
    if (half >= 180.0 && b.lon_full) {
      Sample([&](double t) { return LatLonToPixel(g_, lat, -180.0 + 360.0 * t); }, 360.0 / step, true);
      return;
    }
    pieces_.clear();
    LonPieces(b, view_.cap_lon() - half, view_.cap_lon() + half, pieces_);
    for (const LonRange& r : pieces_) {
      Sample([&](double t) { return LatLonToPixel(g_, lat, r.min_lon + (r.max_lon - r.min_lon) * t); },
             (r.max_lon - r.min_lon) / step, false);
    }
  }

  // The meridian at `lon` from lat_lo to lat_hi.
  void Meridian(double lon, double lat_lo, double lat_hi) {
    // Latitudes within the cap: A sin(phi) + B cos(phi) >= cos(radius).
    const double A = sin_cap_lat_;
    const double B = cos_cap_lat_ * std::cos((lon - view_.cap_lon()) * kDegreesToRadians);
    const double rho = std::hypot(A, B);
    double lo = -90.0, hi = 90.0;
    if (rho < 1e-12) {
      if (view_.cos_radius() > 0.0) return;
    } else {
      const double c = view_.cos_radius() / rho;
      if (c > 1.0) return;
      if (c > -1.0) {
        const double theta = std::atan2(A, B) * kRadiansToDegrees;
        const double alpha = std::acos(c) * kRadiansToDegrees;
        // The window, a whole turn either way, met with [-90, 90].
        for (double shift : {-360.0, 0.0, 360.0}) {
          AddMeridianPiece(lon, std::max({theta - alpha + shift, lat_lo, -90.0}),
                           std::min({theta + alpha + shift, lat_hi, 90.0}));
        }
        return;
      }
    }
    AddMeridianPiece(lon, std::max(lo, lat_lo), std::min(hi, lat_hi));
  }

 private:
  void AddMeridianPiece(double lon, double lo, double hi) {
    if (!(lo < hi)) return;
    const double step = std::min(kMaxCurveStep, kCurveStepPixels / radius_) * kRadiansToDegrees;
    Sample([&](double t) { return LatLonToPixel(g_, lo + (hi - lo) * t, lon); }, (hi - lo) / step, false);
  }

  // Samples a curve at t = 0..1 in about `steps` steps and adds its visible
  // runs; a run cut at the edge of the hemisphere gets no cap there.
  template <typename Curve>
  void Sample(Curve curve, double steps, bool closed) {
    const size_t n = static_cast<size_t>(std::clamp(std::ceil(steps), 1.0, static_cast<double>(kMaxCurvePoints)));
    run_.clear();
    bool cut_start = false;
    PixelPoint previous{};
    bool all_visible = true;
    for (size_t i = 0; i <= n; ++i) {
      const PixelPoint p = curve(static_cast<double>(i) / static_cast<double>(n));
      const bool visible = p.z >= 0.0;
      if (i > 0 && visible != (previous.z >= 0.0)) {
        const double t = previous.z / (previous.z - p.z);
        const PixelVertex cut{previous.x + t * (p.x - previous.x), previous.y + t * (p.y - previous.y)};
        if (visible) {
          run_.clear();
          run_.push_back(cut);
          cut_start = true;
        } else {
          run_.push_back(cut);
          stroker_.AddPath(run_, false, !cut_start, false);
          run_.clear();
        }
      }
      all_visible = all_visible && visible;
      if (visible) run_.push_back({p.x, p.y});
      previous = p;
    }
    if (run_.empty()) return;
    if (closed && all_visible) {
      run_.pop_back();  // the last point repeats the first
      stroker_.AddPath(run_, true);
    } else {
      stroker_.AddPath(run_, false, !cut_start, true);
    }
  }

  const MapGeometry& g_;
  const ViewRegion view_;
  LineStroker& stroker_;
  double radius_ = 1.0;
  double sin_cap_lat_ = 0.0, cos_cap_lat_ = 1.0;
  std::vector<LonRange> pieces_;
  std::vector<PixelVertex> run_;
};

}  // namespace

void DrawGridLayer(DrawSurface& surface, LineStroker& stroker, EdgeTables& tables, Layer& layer) {
  if (surface.location_query() || surface.clip().empty()) return;
  const MapGeometry& g = surface.geometry();
  if (g.projection != kRectangularProjection && g.projection != kOrthographicProjection) {
    ReportUnsupportedProjection();
    return;
  }
  const GridLines lines = ComputeGridLines(layer, g);
  if (lines.too_many_parallels || lines.too_many_meridians) {
    Report(kWarning, "Too many grid lines, grid direction not drawn", layer.name);
  }
  const FeatureStyle style = ResolveLayerStyle(layer, g.zoom);
  if (!IsKnownTransType(style.edge_colour.trans_type)) {
    ReportUnknownTransType(style.edge_colour.trans_type);
    return;
  }
  stroker.Begin(surface.clip(), style.line_width);
  if (g.projection == kRectangularProjection) {
    for (double lon : lines.meridians) {
      const PixelPoint a = LatLonToPixel(g, lines.min_lat, lon), b = LatLonToPixel(g, lines.max_lat, lon);
      const PixelVertex points[] = {{a.x, a.y}, {b.x, b.y}};
      stroker.AddPath(points, false);
    }
    for (double lat : lines.parallels) {
      for (const LonRange& r : lines.lon_ranges) {
        const PixelPoint a = LatLonToPixel(g, lat, r.min_lon), b = LatLonToPixel(g, lat, r.max_lon);
        const PixelVertex points[] = {{a.x, a.y}, {b.x, b.y}};
        stroker.AddPath(points, false);
      }
    }
  } else {
    GlobeGrid globe(g, surface.clip(), stroker);
    const Bounds b = GridBounds(layer.record.grid);
    for (double lon : lines.meridians) globe.Meridian(lon, lines.min_lat, lines.max_lat);
    for (double lat : lines.parallels) globe.Parallel(b, lat);
  }
  stroker.Fill(surface, tables, style.edge_colour);
}

}  // namespace vmp
