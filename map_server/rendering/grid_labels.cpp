#include "map_server/rendering/grid_labels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/lat_lon.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/grid_layer.h"
#include "map_server/text/label_format.h"
#include "map_server/text/label_layout.h"
#include "map_server/text/text_style.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Values closer to 0 than this are 0 (no sign, no hemisphere letter).
constexpr double kZero = 1e-9;
// Pixels between a label's anchor and the edge it is placed at.
constexpr double kInset = 3.0;
// Samples along a line when looking for its end in view.
constexpr int kSamples = 256;
constexpr int kBisections = 40;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads up to two digits at `i`; false when there are more.
bool TwoDigits(const std::string& s, size_t& i) {
  size_t n = 0;
  while (i < s.size() && IsDigit(s[i])) ++i, ++n;
  return n <= 2;
}

}  // namespace

std::optional<GridLabelFormatter::Format> GridLabelFormatter::Compile(const std::string& format,
                                                                      int max_numbers) {
  auto fail = [&](const char* reason) -> std::optional<Format> {
    Report(kError, "Invalid grid label format", format + ": " + reason);
    return std::nullopt;
  };
  Format parts;
  std::string literal;
  int numbers = 0;
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%') {
      literal += format[i];
      continue;
    }
    if (i + 1 < format.size() && format[i + 1] == '%') {
      literal += '%';
      ++i;
      continue;
    }
    const size_t start = i++;
    while (i < format.size() && std::string_view("-+ 0#").find(format[i]) != std::string_view::npos) ++i;
    if (!TwoDigits(format, i)) return fail("width of more than two digits");
    if (i < format.size() && format[i] == '.') {
      ++i;
      if (!TwoDigits(format, i)) return fail("precision of more than two digits");
    }
    if (i >= format.size()) return fail("unterminated conversion");
    const char c = format[i];
    if (std::string_view("difFeEgG").find(c) == std::string_view::npos) return fail("unknown conversion");
    if (++numbers > max_numbers) return fail(max_numbers == 1 ? "more than one number" : "more than three numbers");
    if (!literal.empty()) parts.push_back({std::move(literal), 0});
    literal.clear();
    std::string conversion = format.substr(start, i - start);
    conversion += (c == 'd' || c == 'i') ? "lld" : std::string(1, c);
    parts.push_back({std::move(conversion), c});
  }
  if (!literal.empty()) parts.push_back({std::move(literal), 0});
  return parts;
}

std::optional<GridLabelFormatter> GridLabelFormatter::Create(const GridAttributes& grid, int64_t encoding) {
  GridLabelFormatter f;
  f.decimal_ = grid.decimal_labels != 0;
  f.label_char_ = grid.label_char;
  f.degree_ = encoding == 0 ? "\xB0" : "\xC2\xB0";
  const int max_numbers = f.decimal_ ? 1 : 3;
  if (grid.label_format) {
    f.format_ = Compile(*grid.label_format, max_numbers);
    if (!f.format_) return std::nullopt;
    if (grid.label_format_lon) {
      f.format_lon_ = Compile(*grid.label_format_lon, max_numbers);
      if (!f.format_lon_) return std::nullopt;
    }
  }
  return f;
}

std::string GridLabelFormatter::Latitude(double lat) const { return Text(lat, 'N', 'S', format_); }

std::string GridLabelFormatter::Longitude(double lon) const {
  lon = WrapDegrees180(lon);
  const std::optional<Format>& format = format_lon_ ? format_lon_ : format_;
  // The 180th meridian is neither east nor west.
  if (std::fabs(std::fabs(lon) - 180.0) < kZero) return Text(180.0, '\0', '\0', format);
  return Text(lon, 'E', 'W', format);
}

void GridLabelFormatter::AppendDefault(double magnitude, std::string& out) const {
  if (decimal_) {
    AppendPlainNumber(magnitude, out);
    out += degree_;
    return;
  }
  const double total = std::round(magnitude * 3600.0 * 1000.0) / 1000.0;  // seconds, to the millisecond
  const double degrees = std::floor(total / 3600.0);
  const double minutes = std::floor((total - degrees * 3600.0) / 60.0);
  const double seconds = std::round((total - degrees * 3600.0 - minutes * 60.0) * 1000.0) / 1000.0;
  AppendPlainNumber(degrees, out);
  out += degree_;
  if (minutes == 0.0 && seconds == 0.0) return;
  AppendPlainNumber(minutes, out);
  out += '\'';
  if (seconds == 0.0) return;
  AppendPlainNumber(seconds, out);
  out += '"';
}

std::string GridLabelFormatter::Text(double value, char positive, char negative,
                                     const std::optional<Format>& format) const {
  if (std::fabs(value) < kZero) value = 0.0;
  const bool signed_text = label_char_ == 0;
  char letter = 0;
  if (!signed_text && value != 0.0) letter = value > 0.0 ? positive : negative;
  const double magnitude = std::fabs(value);
  std::string number;
  if (!format) {
    if (signed_text && value < 0.0) number += '-';
    AppendDefault(magnitude, number);
  } else {
    double values[3] = {signed_text ? value : magnitude, 0.0, 0.0};
    if (!decimal_) {
      if (signed_text && value < 0.0) number += '-';
      const double total = std::round(magnitude * 3600.0 * 1000.0) / 1000.0;
      values[0] = std::floor(total / 3600.0);
      values[1] = std::floor((total - values[0] * 3600.0) / 60.0);
      values[2] = std::round((total - values[0] * 3600.0 - values[1] * 60.0) * 1000.0) / 1000.0;
    }
    int next = 0;
    char buffer[128];
    for (const Part& part : *format) {
      if (part.conversion == 0) {
        number += part.text;
        continue;
      }
      const double v = values[next++];
      if (part.conversion == 'd' || part.conversion == 'i') {
        std::snprintf(buffer, sizeof buffer, part.text.c_str(), static_cast<long long>(std::llround(v)));
      } else {
        std::snprintf(buffer, sizeof buffer, part.text.c_str(), v);
      }
      number += buffer;
    }
  }
  if (letter == 0) return number;
  if (label_char_ == 2) return std::string(1, letter) + number;
  return number + letter;
}

namespace {

// A grid line as the map shows it: t = 0..1 runs from its southern
// (meridians) or western (parallels) end.
using Curve = std::function<PixelPoint(double t)>;

class GridLabelPlacer {
 public:
  GridLabelPlacer(LabelCollector& labels, const MapGeometry& g) : labels_(labels), g_(g) {
    const PixelRect visible = VisibleRect(g);
    x0_ = static_cast<double>(visible.min_x) + kInset;
    x1_ = static_cast<double>(visible.max_x) - kInset;
    y0_ = static_cast<double>(visible.min_y) + kInset;
    y1_ = static_cast<double>(visible.max_y) - kInset;
  }

  bool Inside(const PixelPoint& p) const { return p.z >= 0.0 && p.x >= x0_ && p.x <= x1_ && p.y >= y0_ && p.y <= y1_; }

  // Where a line comes into view from its start (`forward`) or its end: its
  // parameter, and whether that is the line's own end rather than a cut.
  struct End {
    double t = 0.0;
    bool natural = false;
  };
  std::optional<End> FindEnd(const Curve& curve, bool forward) const {
    auto at = [&](int i) { return forward ? static_cast<double>(i) / kSamples : 1.0 - static_cast<double>(i) / kSamples; };
    for (int i = 0; i <= kSamples; ++i) {
      if (!Inside(curve(at(i)))) continue;
      if (i == 0) return End{at(0), true};
      double out = at(i - 1), in = at(i);
      for (int k = 0; k < kBisections; ++k) {
        const double mid = 0.5 * (out + in);
        (Inside(curve(mid)) ? in : out) = mid;
      }
      return End{Settle(curve, in, forward), false};
    }
    return std::nullopt;
  }

  // The point of a line in view that lies farthest left on the image.
  std::optional<End> Leftmost(const Curve& curve) const {
    std::optional<End> best;
    double best_x = 0.0;
    for (int i = 0; i <= kSamples; ++i) {
      const double t = static_cast<double>(i) / kSamples;
      const PixelPoint p = curve(t);
      if (Inside(p) && (!best || p.x < best_x)) {
        best = End{t, false};
        best_x = p.x;
      }
    }
    return best;
  }

  // Hands a label at curve(t) for the line at (lat, lon) there.
  void Add(const std::string& text, const PixelPoint& p, double lat, double lon, double turn) {
    turn = std::isfinite(turn) ? std::fmod(turn, 360.0) : 0.0;
    const TextFrame frame = MapTextFrame(g_, lat, lon, kTextMappedFlat, turn);
    double angle = std::fmod(std::atan2(-frame.uy, frame.ux) * kRadiansToDegrees, 180.0);
    if (angle > 90.0 + 1e-9) angle -= 180.0;
    if (angle <= -90.0 + 1e-9) angle += 180.0;
    if (!std::isfinite(angle)) return;
    labels_.AddText(text, p.x, p.y, angle);
  }

 private:
  // Moves a point where the line was cut kInset pixels further into view
  // along the line (as far as it stays in view).
  double Settle(const Curve& curve, double t, bool forward) const {
    const PixelPoint start = curve(t);
    const double step = (forward ? 1.0 : -1.0) / (8.0 * kSamples);
    double best = t;
    for (int k = 1; k <= 64; ++k) {
      const double u = t + k * step;
      if (u < 0.0 || u > 1.0) break;
      const PixelPoint p = curve(u);
      if (!Inside(p)) break;
      best = u;
      if (std::hypot(p.x - start.x, p.y - start.y) >= kInset) break;
    }
    return best;
  }

  LabelCollector& labels_;
  const MapGeometry& g_;
  double x0_, x1_, y0_, y1_;
};

bool IsPole(double lat) { return std::fabs(lat) >= 90.0 - 1e-9; }

}  // namespace

void AddGridLabels(LabelCollector& labels, const Layer& layer, const MapGeometry& g) {
  if (g.projection != kRectangularProjection && g.projection != kOrthographicProjection) return;
  const GridAttributes& a = layer.record.grid;
  const std::optional<GridLabelFormatter> formatter = GridLabelFormatter::Create(a, g.encoding);
  if (!formatter) return;
  const GridLines lines = ComputeGridLines(layer, g);
  const bool globe = g.projection == kOrthographicProjection;
  const double lon_turn = a.rotate_lon_labels != 0 ? a.lon_label_angle : 0.0;
  GridLabelPlacer placer(labels, g);

  for (double lon : lines.meridians) {
    const double lat_lo = lines.min_lat, lat_hi = lines.max_lat;
    if (!(lat_lo < lat_hi)) break;
    const Curve curve = [&](double t) { return LatLonToPixel(g, lat_lo + (lat_hi - lat_lo) * t, lon); };
    auto lat_at = [&](double t) { return lat_lo + (lat_hi - lat_lo) * t; };
    std::optional<GridLabelPlacer::End> end = placer.FindEnd(curve, true);
    if (!end) continue;  // not in view
    if (globe && end->natural && IsPole(lat_at(end->t))) {
      // Meridians meet at a pole in view: the other end, or the middle.
      end = placer.FindEnd(curve, false);
      if (end && end->natural && IsPole(lat_at(end->t))) {
        const double t = (std::clamp(g.center_lat, lat_lo, lat_hi) - lat_lo) / (lat_hi - lat_lo);
        end = placer.Inside(curve(t)) ? std::optional<GridLabelPlacer::End>({t, false}) : std::nullopt;
      }
      if (!end) continue;
    }
    const double lat = lat_at(end->t);
    placer.Add(formatter->Longitude(lon), curve(end->t), lat, lon, lon_turn);
  }

  for (double lat : lines.parallels) {
    for (const LonRange& range : lines.lon_ranges) {
      // On the globe a whole parallel runs from the far side, so that the
      // part in view is one piece.
      const bool whole = globe && range.max_lon - range.min_lon >= 360.0 - 1e-9;
      const double lo = whole ? g.center_lon - 180.0 : range.min_lon;
      const double hi = whole ? g.center_lon + 180.0 : range.max_lon;
      if (!(lo < hi)) continue;
      const Curve curve = [&](double t) { return LatLonToPixel(g, lat, lo + (hi - lo) * t); };
      std::optional<GridLabelPlacer::End> end = placer.FindEnd(curve, true);
      if (!end) continue;
      if (whole && end->natural) {
        // The whole circle is in view: at its leftmost point.
        end = placer.Leftmost(curve);
        if (!end) continue;
      }
      const double lon = lo + (hi - lo) * end->t;
      placer.Add(formatter->Latitude(lat), curve(end->t), lat, lon, 0.0);
    }
  }
}

}  // namespace vmp
