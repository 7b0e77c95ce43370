// Lat/lon grid layers: parallels every GridLatInterval degrees and
// meridians every GridLonInterval degrees, within GridMinLat..GridMaxLat and
// GridMinLon..GridMaxLon, as 1-pixel lines in the layer's EdgeColor (with
// its Alpha and transparency kind) that bend with the projection.
//
// With AdaptiveGrid (a coefficient above 0) both intervals follow the view
// instead: the smallest step of the series 1, 2, 5 x 10^k degrees (then 15,
// 30, 45, 90) that leaves at most 4 x AdaptiveGrid parallels across the
// view's latitude span. Lines are only drawn over the view's box, and at
// most kMaxGridLines a direction. Grid labels are not drawn.
#pragma once

#include <cstdint>

#include "map_server/dataset/layer.h"
#include "map_server/rendering/draw_surface.h"

namespace vmp {

inline constexpr int64_t kMaxGridLines = 2000;

void DrawGridLayer(DrawSurface& surface, const Layer& layer);

}  // namespace vmp
