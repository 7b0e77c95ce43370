#include "map_server/geometry/map_geometry.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/int_conversion.h"
#include "map_server/geometry/map_image.h"
#include "toolkit/environment.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr double kWorldTolerance = 0.000001;

uint8_t ColourByte(double value) {
  if (!(value > 0)) return 0;
  if (value >= 255) return 255;
  return static_cast<uint8_t>(value);
}

// Width and Height must exceed 1; a side over the limit is accepted only
// with a clip area that is itself within the limit, or when the environment
// allows huge images.
bool SizeAccepted(const MapGeometry& g) {
  if (g.width <= 1 || g.height <= 1) return false;
  if (g.width <= kMaxImageSide && g.height <= kMaxImageSide) return true;
  if (g.clip_area) {
    // 128-bit so that no clip value can overflow the subtraction.
    const __int128 clip_w = static_cast<__int128>(g.clip_max_x) - g.clip_min_x + 1;
    const __int128 clip_h = static_cast<__int128>(g.clip_max_y) - g.clip_min_y + 1;
    if (clip_w <= kMaxImageSide && clip_h <= kMaxImageSide) return true;
  }
  return kav::GetEnvSwitch("KAV_ALLOW_HUGE_IMAGE", false);
}

// The failure path: outside a location query the drawing end becomes 1 x 1,
// the clip area is switched off and a 1 x 1 background image is made, so that
// an image can still be returned.
void MakeFallbackImage(MapGeometry& g, MapImage& image) {
  if (g.location_query) return;
  g.min_x = g.max_x = g.min_y = g.max_y = 0;
  g.origin_x = g.origin_y = 0;
  g.end_x = g.end_y = 1;
  g.clip_area = false;
  AllocateMapImage(g, image);
}

// Centre, extents and angle must be usable numbers: zero, negative or
// non-finite values would turn every converted coordinate into NaN or
// infinity.
bool ParametersUsable(const MapGeometryInput& in) {
  auto report = [](const char* name, double value) {
    ReportNumber(kError, "Invalid map geometry parameter", name, value);
    return false;
  };
  if (!std::isfinite(in.center_lat)) return report("CenterLat", in.center_lat);
  if (!std::isfinite(in.center_lon)) return report("CenterLon", in.center_lon);
  if (!(in.h_extent > 0) || !std::isfinite(in.h_extent)) return report("HExtent", in.h_extent);
  if (!(in.v_extent > 0) || !std::isfinite(in.v_extent)) return report("VExtent", in.v_extent);
  if (!std::isfinite(in.angle)) return report("Angle", in.angle);
  return true;
}

void SetVisibleRect(MapGeometry& g, int64_t min_x, int64_t max_x, int64_t min_y, int64_t max_y) {
  g.min_x = min_x;
  g.max_x = max_x;
  g.min_y = min_y;
  g.max_y = max_y;
}

void SetupOrthographic(MapGeometry& g) {
  if (g.clip_area) {
    SetVisibleRect(g, g.clip_min_x, g.clip_max_x, g.clip_min_y, g.clip_max_y);
    g.origin_x = g.clip_min_x;
    g.origin_y = g.clip_min_y;
    g.end_x = g.clip_max_x + 1;
    g.end_y = g.clip_max_y + 1;
  } else {
    SetVisibleRect(g, 0, g.width - 1, 0, g.height - 1);
    g.origin_x = g.origin_y = 0;
    g.end_x = g.width;
    g.end_y = g.height;
  }
  // Horizontal extent against the equatorial radius, vertical against the
  // polar one: the globe is deliberately squashed a little in y.
  const double h = g.half_h_extent / kEquatorialRadius;
  const double v = g.half_v_extent / kPolarRadius;
  g.half_h_extent = h;
  g.half_v_extent = v;
  g.scale_x = g.center_x / h;
  g.scale_y = g.center_y / v;
  g.inv_scale_x = 1.0 / g.scale_x;
  g.inv_scale_y = 1.0 / g.scale_y;
  g.zoom = std::max(1.0 / h, 1.0 / v);
  g.small_view = v < 0.6 && h < 0.6 && std::fabs(g.center_lat) <= 90.0;
  g.center_lat_rad = g.center_lat / 180.0 * kPi;
  g.cos_center_lat = std::cos(g.center_lat_rad);
  g.sin_center_lat = std::sin(g.center_lat_rad);
}

void SetupRectangular(MapGeometry& g, int64_t verbosity) {
  SetVisibleRect(g, 0, g.width - 1, 0, g.height - 1);
  g.origin_x = g.origin_y = 0;
  g.end_x = g.width;
  g.end_y = g.height;
  g.scale_x = g.width_m1 / (2.0 * g.half_h_extent);
  g.scale_y = g.height_m1 / (2.0 * g.half_v_extent);
  g.inv_scale_x = 1.0 / g.scale_x;
  g.inv_scale_y = 1.0 / g.scale_y;
  g.zoom = std::max(180.0 / g.half_h_extent, 90.0 / g.half_v_extent);
  g.small_view = g.half_v_extent <= 50.0 && g.half_h_extent <= 100.0;
  g.rotated = false;
  g.cos_angle = 1.0;
  g.sin_angle = 0.0;

  g.clamped_min_lat = std::clamp(g.min_lat, -90.0, 90.0);
  g.clamped_max_lat = std::clamp(g.max_lat, -90.0, 90.0);
  g.clamped_min_lon = std::clamp(g.min_lon, g.world_min_lon, g.world_max_lon);
  g.clamped_max_lon = std::clamp(g.max_lon, g.world_min_lon, g.world_max_lon);
  if ((g.clamped_min_lat >= g.clamped_max_lat || g.clamped_min_lon >= g.clamped_max_lon) &&
      verbosity >= 1) {
    Report(kInfo, "Scrolled out of range in rectangular projection");
  }

  // Without rotation, shrink the visible rectangle to the part of the image
  // that shows the world.
  if (g.angle != 0.0) return;
  const bool min_lon_changed = g.clamped_min_lon != g.min_lon;
  const bool max_lon_changed = g.clamped_max_lon != g.max_lon;
  const bool min_lat_changed = g.clamped_min_lat != g.min_lat;
  const bool max_lat_changed = g.clamped_max_lat != g.max_lat;
  if (min_lon_changed || max_lat_changed) {
    const PixelPoint p = RectangularLatLonToPixel(g, g.clamped_max_lat, g.clamped_min_lon);
    const int64_t x = RoundToInt64(p.x), y = RoundToInt64(p.y);
    if (min_lon_changed && x > g.min_x) g.min_x = x;
    if (max_lat_changed && y > g.min_y) g.min_y = y;
  }
  if (max_lon_changed || min_lat_changed) {
    const PixelPoint p = RectangularLatLonToPixel(g, g.clamped_min_lat, g.clamped_max_lon);
    const int64_t x = RoundToInt64(p.x), y = RoundToInt64(p.y);
    if (max_lon_changed && x < g.max_x) g.max_x = x;
    if (min_lat_changed && y < g.max_y) g.max_y = y;
  }
}

// Converts the queried pixel and builds the clamped search box. Fails
// (silently) when the pixel is off the map or the box misses the visible
// rectangle.
bool SetupLocation(MapGeometry& g, double search_radius) {
  const double y =
      g.projection == kOrthographicProjection ? g.height_m1 - g.location_j : g.location_j;
  const LatLonPoint p = PixelToLatLon(g, g.location_i, y);
  if (!p.ok) return false;
  g.location_lat = p.lat;
  g.location_lon = p.lon;
  if (g.location_lon < g.world_min_lon)
    g.location_lon += 360.0;
  else if (g.location_lon > g.world_max_lon)
    g.location_lon -= 360.0;

  const double r = static_cast<double>(std::max<int64_t>(TruncToInt64(search_radius), 0));
  g.search_x_from = TruncToInt64(g.location_i - r);
  g.search_x_to = TruncToInt64(g.location_i + r);
  g.search_y_from = TruncToInt64(g.location_j - r);
  g.search_y_to = TruncToInt64(g.location_j + r);
  if (g.search_x_from > g.max_x || g.search_x_to < g.min_x || g.search_y_from > g.max_y ||
      g.search_y_to < g.min_y) {
    return false;
  }
  g.search_x_from = std::max(g.search_x_from, g.min_x);
  g.search_x_to = std::min(g.search_x_to, g.max_x);
  g.search_y_from = std::max(g.search_y_from, g.min_y);
  g.search_y_to = std::min(g.search_y_to, g.max_y);
  return true;
}

}  // namespace

bool SetupMapGeometry(const MapGeometryInput& in, MapGeometry& g, MapImage& image) {
  g = MapGeometry{};
  g.projection = in.projection;
  g.center_lat = in.center_lat;
  g.center_lon = in.center_lon;
  g.width = in.width;
  g.height = in.height;
  g.angle = in.angle;
  g.clip_area = in.clip_area;
  g.clip_min_x = in.clip_min_x;
  g.clip_max_x = in.clip_max_x;
  g.clip_min_y = in.clip_min_y;
  g.clip_max_y = in.clip_max_y;
  g.location_query = in.location_query;
  g.location_i = in.location_i;
  g.location_j = in.location_j;
  for (int i = 0; i < 3; ++i) g.background[i] = ColourByte(in.background[i]);

  if (g.clip_min_x < 0) {
    Report(kError, "Invalid ClipMinX < 0");
    g.clip_min_x = 0;
  }
  if (g.clip_min_y < 0) {
    Report(kError, "Invalid ClipMinY < 0");
    g.clip_min_y = 0;
  }

  if (!SizeAccepted(g)) {
    MakeFallbackImage(g, image);
    Report(kError, "Invalid Width/Height");
    return false;
  }

  if (!in.dataset_options) {
    Report(kError, "Unset map object, missing VmpSetupMap() call!");
    return false;
  }

  if (g.location_query &&
      !(g.location_i >= 0 && g.location_i <= static_cast<double>(g.width - 1) &&
        g.location_j >= 0 && g.location_j <= static_cast<double>(g.height - 1))) {
    return false;
  }

  if (!ParametersUsable(in)) {
    MakeFallbackImage(g, image);
    return false;
  }

  g.encoding = TruncToInt64(in.dataset_options->encoding);
  g.glyph_cache_type = TruncToInt64(in.dataset_options->glyph_cache_type);
  g.max_image_tiles = TruncToInt64(in.dataset_options->max_image_tiles);
  g.max_vector_tiles = TruncToInt64(in.dataset_options->max_vector_tiles);

  g.center_x = static_cast<double>(g.width - 1) / 2.0;
  g.center_y = static_cast<double>(g.height - 1) / 2.0;
  g.int_center_x = static_cast<double>(g.width / 2);
  g.int_center_y = static_cast<double>(g.height / 2);
  g.width_m1 = static_cast<double>(g.width - 1);
  g.height_m1 = static_cast<double>(g.height - 1);

  // Aspect correction: unless stretching is allowed, one extent grows so
  // that pixels stay square.
  double h_extent = in.h_extent;
  double v_extent = in.v_extent;
  if (in.stretch == 0) {
    if (in.verbosity >= 2) Report(kInfo, "Stretching is OFF.");
    const double a = static_cast<double>(g.width) / static_cast<double>(g.height);
    const double r = h_extent / v_extent;
    if (a > r)
      h_extent = v_extent * a;
    else if (r > a)
      v_extent = h_extent / a;
  } else if (in.verbosity >= 2) {
    Report(kInfo, "Stretching is ON.");
  }

  g.half_h_extent = h_extent / 2.0;
  g.half_v_extent = v_extent / 2.0;
  g.min_lon = g.center_lon - g.half_h_extent;
  g.max_lon = g.center_lon + g.half_h_extent;
  g.min_lat = g.center_lat - g.half_v_extent;
  g.max_lat = g.center_lat + g.half_v_extent;
  g.world_min_lon = g.center_lon - 180.0;
  g.world_max_lon = g.center_lon + 180.0;
  g.world_min_lon_tol = g.world_min_lon - kWorldTolerance;
  g.world_max_lon_tol = g.world_max_lon + kWorldTolerance;
  if (in.verbosity >= 2) {
    ReportNumber(kInfo, "Width is", static_cast<double>(g.width));
    ReportNumber(kInfo, "Height is", static_cast<double>(g.height));
    ReportNumber(kInfo, "CenterX is", g.center_lon);
    ReportNumber(kInfo, "CenterY is", g.center_lat);
    ReportNumber(kInfo, "ExtentX is", 2.0 * g.half_h_extent);
    ReportNumber(kInfo, "ExtentY is", 2.0 * g.half_v_extent);
  }

  if (g.projection == kOrthographicProjection) {
    SetupOrthographic(g);
  } else if (g.projection == kRectangularProjection) {
    SetupRectangular(g, in.verbosity);
  } else {
    ReportUnsupportedProjection();
    return false;
  }
  g.apply_alias_boxes = g.small_view;

  g.min_x_d = static_cast<double>(g.min_x);
  g.max_x_d = static_cast<double>(g.max_x);
  g.min_y_d = static_cast<double>(g.min_y);
  g.max_y_d = static_cast<double>(g.max_y);

  const LatLonPoint c0 = PixelToLatLon(g, g.center_x, g.center_y);
  const LatLonPoint c1 = PixelToLatLon(g, g.center_x + 1.0, g.center_y + 1.0);
  g.pixel_size = std::min(std::fabs(c1.lat - c0.lat), std::fabs(c1.lon - c0.lon));

  if (g.projection == kRectangularProjection && g.angle != 0.0) {
    const double radians = g.angle / 180.0 * kPi;
    g.rotated = true;
    g.cos_angle = std::cos(radians);
    g.sin_angle = std::sin(radians);
  }

  if (g.location_query && !SetupLocation(g, in.search_radius)) return false;

  if (in.verbosity >= 1) ReportNumber(kInfo, "Zoom factor is", g.zoom);
  return true;
}

}  // namespace vmp
