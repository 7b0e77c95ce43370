// Small maps for the renderer tests: geometries set up the real way, images
// filled with a known background, pixels read back as colours or pictures.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/map_image.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/pixel_colour.h"

namespace vmp::test {

using Rgb3 = std::array<int, 3>;
inline constexpr Rgb3 kBack{10, 20, 30};  // every test image starts in this colour
inline constexpr Rgb3 kRed{255, 0, 0}, kGreen{0, 255, 0}, kBlue{0, 0, 255}, kWhite{255, 255, 255},
    kBlack{0, 0, 0};
inline PixelColour Opaque(const Rgb3& c) {
  return {uint8_t(c[0]), uint8_t(c[1]), uint8_t(c[2]), 1.0, kTransOpaque};
}

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
  for (int i = 0; i < 3; ++i) in.background[i] = static_cast<uint8_t>(kBack[i]);
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

// An orthographic view whose globe just fills a square image (`fill` 1), or
// a fraction `fill` of it.
inline MapGeometry GlobeGeometry(double center_lat, double center_lon, int64_t size, double fill = 1) {
  return SetUpGeometry(kOrthographicProjection, center_lat, center_lon, 2 * kEquatorialRadius / fill,
                       2 * kPolarRadius / fill, size, size);
}

// A bare pixel grid: the visible rectangle is the whole image.
inline MapGeometry PixelGrid(int64_t width, int64_t height) {
  MapGeometry g;
  g.max_x = width - 1;
  g.max_y = height - 1;
  g.end_x = width;
  g.end_y = height;
  for (int i = 0; i < 3; ++i) g.background[i] = static_cast<uint8_t>(kBack[i]);
  return g;
}

inline Rgb3 At(const MapImage& image, int64_t x, int64_t y) {
  const uint8_t* p = image.pixels() + (image.width() * y + x) * 3;
  return {p[0], p[1], p[2]};
}

// One character a pixel, rows separated by '|': '.' background, '#' the
// colour, '?' anything else.
inline std::string Picture(const MapImage& image, const Rgb3& colour) {
  std::string out;
  for (int64_t y = 0; y < image.height(); ++y) {
    if (y > 0) out += '|';
    for (int64_t x = 0; x < image.width(); ++x) {
      const Rgb3 c = At(image, x, y);
      out += c == kBack ? '.' : c == colour ? '#' : '?';
    }
  }
  return out;
}

// A background-filled image for a geometry and a surface drawing into it.
// The geometry may be changed (e.g. into a location query) before the
// surface is made with Surface().
struct Canvas {
  explicit Canvas(const MapGeometry& geometry) : g(geometry) { EXPECT_TRUE(AllocateMapImage(g, image)); }
  Canvas(const Canvas&) = delete;
  void Clear() { EXPECT_TRUE(AllocateMapImage(g, image)); }
  DrawSurface& Surface() {
    if (!surface) surface.emplace(&image, g);
    return *surface;
  }
  Rgb3 At(int64_t x, int64_t y) const { return test::At(image, x, y); }
  std::string Picture(const Rgb3& colour) const { return test::Picture(image, colour); }
  size_t Count(const Rgb3& colour) const {
    const std::string p = Picture(colour);
    return static_cast<size_t>(std::count(p.begin(), p.end(), '#'));
  }

  MapGeometry g;
  MapImage image;
  std::optional<DrawSurface> surface;
};

// The pixel's lat/lon (the row passed upwards on the globe).
inline LatLonPoint PixelLatLon(const MapGeometry& g, int64_t x, int64_t y) {
  const double row = g.projection == kOrthographicProjection ? g.height_m1 - static_cast<double>(y)
                                                             : static_cast<double>(y);
  return PixelToLatLon(g, static_cast<double>(x), row);
}

}  // namespace vmp::test
