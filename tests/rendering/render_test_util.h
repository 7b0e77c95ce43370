// Small maps for the renderer tests: geometries set up the real way, images
// filled with a known background, and the image drawn as characters.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/map_geometry.h"
#include "map_server/geometry/map_image.h"
#include "map_server/rendering/pixel_colour.h"

namespace vmp::test {

inline constexpr uint8_t kBackground[3] = {10, 20, 30};

// A geometry set up from these parameters (Stretch on, so both extents
// stay as given).
inline MapGeometry SetUpGeometry(int64_t projection, double center_lat, double center_lon,
                                 double h_extent, double v_extent, int64_t width, int64_t height) {
  MapGeometryInput in;
  in.projection = projection;
  in.center_lat = center_lat;
  in.center_lon = center_lon;
  in.h_extent = h_extent;
  in.v_extent = v_extent;
  in.width = width;
  in.height = height;
  in.stretch = 1;
  in.background[0] = kBackground[0];
  in.background[1] = kBackground[1];
  in.background[2] = kBackground[2];
  in.dataset_options = DatasetOptions{};
  MapGeometry g;
  MapImage unused;
  EXPECT_TRUE(SetupMapGeometry(in, g, unused));
  return g;
}

// Rectangular: pixel (x, y) has its centre at lon = min_lon + x / ppd,
// lat = max_lat - y / ppd.
inline MapGeometry RectGeometry(double min_lon, double max_lat, double pixels_per_degree,
                                int64_t width, int64_t height) {
  const double h = static_cast<double>(width - 1) / pixels_per_degree;
  const double v = static_cast<double>(height - 1) / pixels_per_degree;
  return SetUpGeometry(kRectangularProjection, max_lat - v / 2, min_lon + h / 2, h, v, width, height);
}

// Orthographic view whose globe just fills a square image of `size` pixels.
inline MapGeometry GlobeGeometry(double center_lat, double center_lon, int64_t size) {
  return SetUpGeometry(kOrthographicProjection, center_lat, center_lon, 2 * kEquatorialRadius,
                       2 * kPolarRadius, size, size);
}

// A plain pixel grid for the pixel writer and scan converter: visible
// rectangle = the whole w x h image.
inline MapGeometry PixelGrid(int64_t width, int64_t height) {
  MapGeometry g;
  g.width = width;
  g.height = height;
  g.max_x = width - 1;
  g.max_y = height - 1;
  g.end_x = width;
  g.end_y = height;
  for (int i = 0; i < 3; ++i) g.background[i] = kBackground[i];
  return g;
}

// The image for a geometry, filled with the background.
inline void FillImage(const MapGeometry& g, MapImage& image) { ASSERT_TRUE(AllocateMapImage(g, image)); }

inline const uint8_t* Pixel(const MapImage& image, int64_t x, int64_t y) {
  return image.pixels() + (image.width() * y + x) * 3;
}
inline bool IsBackground(const MapImage& image, int64_t x, int64_t y) {
  const uint8_t* p = Pixel(image, x, y);
  return p[0] == kBackground[0] && p[1] == kBackground[1] && p[2] == kBackground[2];
}

// One character a pixel, rows separated by '|': '.' background, '#' the
// given colour, '?' anything else.
inline std::string Picture(const MapImage& image, const PixelColour& colour) {
  std::string out;
  for (int64_t y = 0; y < image.height(); ++y) {
    if (y > 0) out += '|';
    for (int64_t x = 0; x < image.width(); ++x) {
      const uint8_t* p = Pixel(image, x, y);
      if (IsBackground(image, x, y))
        out += '.';
      else if (p[0] == colour.red && p[1] == colour.green && p[2] == colour.blue)
        out += '#';
      else
        out += '?';
    }
  }
  return out;
}

// Whether the pixel converts to lat/lon (row passed upwards for the globe).
inline LatLonPoint PixelLatLon(const MapGeometry& g, int64_t x, int64_t y) {
  const double row = g.projection == kOrthographicProjection ? g.height_m1 - static_cast<double>(y)
                                                             : static_cast<double>(y);
  return PixelToLatLon(g, static_cast<double>(x), row);
}

}  // namespace vmp::test
