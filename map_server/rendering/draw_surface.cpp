#include "map_server/rendering/draw_surface.h"

namespace vmp {

DrawSurface::DrawSurface(MapImage* image, const MapGeometry& geometry)
    : image_(image),
      geometry_(&geometry),
      visible_(VisibleRect(geometry)),
      location_query_(geometry.location_query),
      search_box_(SearchBox(geometry)) {
  SetClip(VisibleRect(geometry));
}

void DrawSurface::SetClip(const PixelRect& rect) {
  if (image_ == nullptr || image_->pixels() == nullptr) {
    clip_ = PixelRect{};
    return;
  }
  clip_ = rect.Intersect({0, image_->width() - 1, 0, image_->height() - 1});
}

}  // namespace vmp
