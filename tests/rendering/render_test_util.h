// Small maps for the renderer tests: geometries set up the real way, images
// filled with a known background, and images drawn as characters.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/map_image.h"
#include "map_server/rendering/pixel_colour.h"

namespace vmp::test {

inline constexpr uint8_t kBackground[3] = {10, 20, 30};

// Stretch on, so both extents stay as given.
inline MapGeometry SetUpGeometry(int64_t projection, double center_lat, double center_lon,
                                 double h_extent, double v_extent, int64_t width, int64_t height,
                                 double angle = 0) {
  MapGeometryInput in;
  in.projection = projection;
  in.center_lat = center_lat;
  in.center_lon = center_lon;
  in.h_extent = h_extent;
  in.v_extent = v_extent;
  in.width = width;
  in.height = height;
  in.angle = angle;
  in.stretch = 1;
  for (int i = 0; i < 3; ++i) in.background[i] = kBackground[i];
  in.dataset_options = DatasetOptions{};
  MapGeometry g;
  MapImage unused;
  EXPECT_TRUE(SetupMapGeometry(in, g, unused));
  return g;
}

// Rectangular: pixel (x, y) is centred on lon min_lon + x / ppd, lat max_lat - y / ppd.
inline MapGeometry RectGeometry(double min_lon, double max_lat, double ppd, int64_t width, int64_t height) {
  const double h = static_cast<double>(width - 1) / ppd, v = static_cast<double>(height - 1) / ppd;
  return SetUpGeometry(kRectangularProjection, max_lat - v / 2, min_lon + h / 2, h, v, width, height);
}

// An orthographic view whose globe just fills a square image.
inline MapGeometry GlobeGeometry(double center_lat, double center_lon, int64_t size) {
  return SetUpGeometry(kOrthographicProjection, center_lat, center_lon, 2 * kEquatorialRadius,
                       2 * kPolarRadius, size, size);
}

// A bare pixel grid: the visible rectangle is the whole image.
inline MapGeometry PixelGrid(int64_t width, int64_t height) {
  MapGeometry g;
  g.max_x = width - 1;
  g.max_y = height - 1;
  g.end_x = width;
  g.end_y = height;
  for (int i = 0; i < 3; ++i) g.background[i] = kBackground[i];
  return g;
}

inline void FillImage(const MapGeometry& g, MapImage& image) { ASSERT_TRUE(AllocateMapImage(g, image)); }

inline const uint8_t* Pixel(const MapImage& image, int64_t x, int64_t y) {
  return image.pixels() + (image.width() * y + x) * 3;
}
inline bool IsColour(const MapImage& image, int64_t x, int64_t y, const PixelColour& c) {
  const uint8_t* p = Pixel(image, x, y);
  return p[0] == c.red && p[1] == c.green && p[2] == c.blue;
}
inline bool IsBackground(const MapImage& image, int64_t x, int64_t y) {
  return IsColour(image, x, y, {kBackground[0], kBackground[1], kBackground[2]});
}

// One character a pixel, rows separated by '|': '.' background, '#' the
// colour, '?' anything else.
inline std::string Picture(const MapImage& image, const PixelColour& colour) {
  std::string out;
  for (int64_t y = 0; y < image.height(); ++y) {
    if (y > 0) out += '|';
    for (int64_t x = 0; x < image.width(); ++x)
      out += IsBackground(image, x, y) ? '.' : IsColour(image, x, y, colour) ? '#' : '?';
  }
  return out;
}

// The pixel's lat/lon (the row passed upwards on the globe).
inline LatLonPoint PixelLatLon(const MapGeometry& g, int64_t x, int64_t y) {
  const double row = g.projection == kOrthographicProjection ? g.height_m1 - static_cast<double>(y)
                                                             : static_cast<double>(y);
  return PixelToLatLon(g, static_cast<double>(x), row);
}

}  // namespace vmp::test
