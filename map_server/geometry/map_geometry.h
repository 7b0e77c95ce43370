// Pixel geometry of one map request: the inputs taken from the map
// parameters, the derived state every renderer uses, and the setup that
// turns the one into the other.
#pragma once

#include <cstdint>
#include <optional>

#include "map_server/dataset/param_tables.h"

namespace vmp {

class MapImage;

inline constexpr double kEquatorialRadius = 6378136.0;  // metres
inline constexpr double kPolarRadius = 6356752.0;       // metres
inline constexpr double kPi = 3.141592653589793;
// Returned for a coordinate that is off the map.
inline constexpr double kInvalidCoordinate = 10000.0;
// Largest image side accepted without a clip area or KAV_ALLOW_HUGE_IMAGE.
inline constexpr int64_t kMaxImageSide = 10000;
// Search radius of a location query in pixels: the size of the default
// marker (kDefaultMarkerSize, the layer parameter MarkerSize's default).
inline constexpr double kDefaultSearchRadius = kDefaultMarkerSize;

// Projection codes of the map parameter "Projection".
inline constexpr int64_t kRectangularProjection = 0;
inline constexpr int64_t kOrthographicProjection = 2;

// The dataset options read at setup (numbers as the dataset stores them).
struct DatasetOptions {
  double encoding = 1;
  double glyph_cache_type = 1;
  double max_image_tiles = -1;
  double max_vector_tiles = -1;
};

// What the setup reads from a map request. Field names follow the map
// parameters; colours are record values (0..255).
struct MapGeometryInput {
  int64_t projection = kOrthographicProjection;
  double center_lat = 0;
  double center_lon = 0;
  double h_extent = 0;  // full extent: degrees (rectangular) or metres (orthographic)
  double v_extent = 0;
  int64_t width = 0;
  int64_t height = 0;
  int64_t stretch = 0;  // 0 keeps pixels square
  double angle = 0;     // rotation of the rectangular map, degrees
  bool clip_area = false;
  int64_t clip_min_x = 0;
  int64_t clip_max_x = 0;
  int64_t clip_min_y = 0;
  int64_t clip_max_y = 0;
  bool location_query = false;
  double location_i = 0;
  double location_j = 0;
  double search_radius = kDefaultSearchRadius;  // pixels, truncated
  int64_t verbosity = 0;
  double background[3] = {0, 0, 0};  // red, green, blue, 0..255
  // Absent when the map was never set up with a dataset.
  std::optional<DatasetOptions> dataset_options;
};

// Derived state of a map, valid from a successful SetupMapGeometry until the
// next setup.
struct MapGeometry {
  int64_t projection = kOrthographicProjection;
  double center_lat = 0;
  double center_lon = 0;
  int64_t width = 0;
  int64_t height = 0;
  double angle = 0;

  // Half of the aspect-corrected extents; in the orthographic projection
  // further divided by the equatorial (h) and polar (v) radius.
  double half_h_extent = 0;
  double half_v_extent = 0;

  // Clip area after the corrections of the setup (the failure path switches
  // it off).
  bool clip_area = false;
  int64_t clip_min_x = 0;
  int64_t clip_max_x = 0;
  int64_t clip_min_y = 0;
  int64_t clip_max_y = 0;

  double center_x = 0;      // (Width - 1) / 2
  double center_y = 0;      // (Height - 1) / 2
  double int_center_x = 0;  // Width / 2, integer division
  double int_center_y = 0;
  double width_m1 = 0;  // Width - 1
  double height_m1 = 0;

  // Geographic bounds of the view (aspect-corrected, unclamped).
  double min_lon = 0, max_lon = 0, min_lat = 0, max_lat = 0;
  // The same clamped to the world seen from the centre (rectangular only).
  double clamped_min_lon = 0, clamped_max_lon = 0, clamped_min_lat = 0, clamped_max_lat = 0;
  // World seen from the centre, and the same widened by 0.000001 a side.
  double world_min_lon = 0, world_max_lon = 0;
  double world_min_lon_tol = 0, world_max_lon_tol = 0;
  double world_min_lat = -90, world_max_lat = 90;
  double world_min_lat_tol = -90.000001, world_max_lat_tol = 90.000001;

  double scale_x = 0, scale_y = 0;  // pixels per unit
  double inv_scale_x = 0, inv_scale_y = 0;
  double zoom = 0;
  double pixel_size = 0;  // degrees

  // Visible pixel rectangle (inclusive), also as doubles, and the drawing
  // bounds (origin inclusive, end exclusive).
  int64_t min_x = 0, max_x = 0, min_y = 0, max_y = 0;
  double min_x_d = 0, max_x_d = 0, min_y_d = 0, max_y_d = 0;
  int64_t origin_x = 0, origin_y = 0, end_x = 0, end_y = 0;

  // Set for small views; both receive the same value at setup. The first is
  // the view's property, the second tells layer selection to apply alias
  // enable and disable boxes.
  bool small_view = false;
  bool apply_alias_boxes = false;

  // Rectangular: rotation by Angle (rotated is false for Angle 0).
  bool rotated = false;
  double cos_angle = 1, sin_angle = 0;
  // Orthographic: the centre latitude.
  double center_lat_rad = 0, cos_center_lat = 1, sin_center_lat = 0;

  // Location query results.
  bool location_query = false;
  double location_i = 0, location_j = 0;
  double location_lat = 0, location_lon = 0;
  int64_t search_x_from = 0, search_x_to = 0, search_y_from = 0, search_y_to = 0;

  // Dataset options (truncated). The two tile limits are process-wide: the
  // caller hands them to the tile caches.
  int64_t encoding = 1;
  int64_t glyph_cache_type = 1;
  int64_t max_image_tiles = -1;
  int64_t max_vector_tiles = -1;

  // Background colour of the map image.
  uint8_t background[3] = {0, 0, 0};
};

// Result of the forward conversion: pixel coordinates (y grows downwards)
// and the visibility value z (see LatLonToPixel).
struct PixelPoint {
  double x;
  double y;
  double z;
};

// Result of the inverse conversion; a coordinate that is off the map is
// kInvalidCoordinate and ok is false.
struct LatLonPoint {
  double lat;
  double lon;
  bool ok;
};

// Sets up `geometry` from `input`. Returns false on failure after reporting
// it; on an invalid size (not in a location query) `image` becomes a 1 x 1
// image of the background colour so that an answer can still be sent.
bool SetupMapGeometry(const MapGeometryInput& input, MapGeometry& geometry, MapImage& image);

}  // namespace vmp
