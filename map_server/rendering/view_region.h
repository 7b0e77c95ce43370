// Where features can show: the part of the globe that a pixel rectangle
// (the visible rectangle, or a location query's search box) covers, in a
// form that lat/lon bounding boxes are tested against cheaply.
//
// Rectangular projection: the lat/lon box of the rectangle's corners
// (rotation included). A feature box is tested as it is and shifted by +360
// and -360 degrees, so data on the far side of the antimeridian (or stored
// in 0..360 longitudes) is drawn where the view shows it.
//
// Orthographic projection: a spherical cap that holds every point of the
// globe inside the rectangle; its centre and angular radius come from a
// chord-length bound over the rectangle, so the test never drops a feature
// that can show. A box lies outside when its point nearest to the cap centre
// is farther than the radius.
//
// Both regions are widened by a pixel and a half on every side.
#pragma once

#include "map_server/dataset/dataset.h"
#include "map_server/geometry/map_geometry.h"
#include "map_server/rendering/draw_surface.h"

namespace vmp {

class ViewRegion {
 public:
  ViewRegion(const MapGeometry& geometry, const PixelRect& rect);

  // Writes the longitude shifts (0, then +360, then -360) under which `box`
  // (degrees; min_lon <= max_lon) can show and returns their number; 0 when
  // the box lies wholly outside. The orthographic projection needs no shift:
  // it answers 0 or 1 with the shift 0.
  int Shifts(const Box& box, double shifts[3]) const;
  bool Touches(const Box& box) const {
    double shifts[3];
    return Shifts(box, shifts) > 0;
  }

  bool orthographic() const { return orthographic_; }
  // Rectangular: the lat/lon box of the rectangle.
  const Box& box() const { return box_; }
  // Orthographic: cap centre and the cosine of its angular radius.
  double cap_lat() const { return cap_lat_; }
  double cap_lon() const { return cap_lon_; }
  double cos_radius() const { return cos_radius_; }

 private:
  bool CapTouches(const Box& box) const;

  bool empty_ = true;
  bool orthographic_ = false;
  Box box_;
  double cap_lat_ = 0, cap_lon_ = 0;
  double sin_cap_lat_ = 0, cos_cap_lat_ = 1;
  double cos_radius_ = 1;
};

}  // namespace vmp
