// Projecting the rings of a polygon group (TVF points: x longitude, y
// latitude) into pixel rings, vertex by vertex with LatLonToPixel.
//
// Rectangular projection: every vertex as it is, with the longitude shift
// the view asked for.
//
// Orthographic projection: rings are clipped against the visible hemisphere
// (z >= 0), so that points on the far side never reach the scan converter.
// An edge that leaves the hemisphere is cut where its chord meets the plane
// z = 0, the cut point is put on the globe's outline, and the ring follows
// the outline to the point where it comes back. On the outline itself only
// the parity matters to the even-odd fill, so the shorter way round is
// taken for each such arc and the group is corrected once at the end: the
// arcs are counted over a reference point of the outline and, if their
// parity disagrees with whether that point lies inside the polygon (an
// even-odd test on the lat/lon rings), a full outline ring is added. This
// also fills the visible disc for a polygon that encloses the whole view
// with all its vertices out of sight. Segments added by the clipping carry
// no edge flag. Vertices that are not numbers are skipped.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "map_server/geometry/map_geometry.h"
#include "map_server/rendering/pixel_rings.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

class RingProjector {
 public:
  // Replaces `out` with the group's rings. Each ring's closing segment (last
  // point back to the first) is not an edge: feature rings are drawn as
  // they are stored (polygons repeat their first point; polylines do not).
  void Project(const MapGeometry& geometry, std::span<const PolygonFeature* const> group,
               double lon_shift, PixelRings& out);

  // True when (lat, lon) lies inside the group by the even-odd rule on its
  // lat/lon rings (the longitude also taken +-360 to meet the group's box).
  static bool GroupContains(std::span<const PolygonFeature* const> group, double lat, double lon);

 private:
  struct ViewPoint {
    double x, y;  // pixel
    double X, Y;  // normalised view frame (Y up)
    double z;     // visibility
  };
  struct Crossing {
    double x, y, angle;
  };
  struct Arc {
    double start, sweep;  // radians
  };

  void ProjectOrthographic(const MapGeometry& g, std::span<const PolygonFeature* const> group,
                           PixelRings& out);
  void ClipRing(const MapGeometry& g, PixelRings& out);
  Crossing Cut(const MapGeometry& g, const ViewPoint& visible, const ViewPoint& hidden) const;
  void AddArc(const MapGeometry& g, double from, double to, PixelRings& out);
  void CorrectParity(const MapGeometry& g, std::span<const PolygonFeature* const> group,
                     PixelRings& out);

  std::vector<ViewPoint> ring_;
  std::vector<double> xs_, ys_, zs_;  // a polygon's points projected at once
  std::vector<Arc> arcs_;
  std::vector<double> angles_;
};

}  // namespace vmp
