// Selecting labels as features (GetSelection with SELECT_LABELS).
//
// The mode of a layer is the lower of the request's LabelSelectionMode and
// the layer's own ("LABEL SELECTION MODE="), where 3 (unset) does not limit;
// when both are unset no labels are selected:
//
//   0 NONE    labels are never selected: only the features' own shapes
//   1 INTILE  labels of the features the query pass already visits (the
//             tiles under the query point, features near it), laid out
//             among themselves: cheap, but a label of a feature farther away
//             is not found
//   2 YES     labels as the map shows them: the caller lays out the whole
//             view (a pass over the view's tiles with a surface without
//             image, LabelCollector and all), so overlap removal is the
//             map's own
//
// In both selecting modes a label is selected when its box touches the
// query's search box; its feature is then reported like a hit feature (the
// owner gives the layer, the tile's data and the feature's index).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "map_server/rendering/draw_surface.h"
#include "map_server/text/label_layout.h"

namespace vmp {

enum LabelSelectionMode : int32_t {
  kSelectLabelsNone = 0,
  kSelectLabelsInTile = 1,
  kSelectLabelsYes = 2,
  kSelectLabelsUnset = 3,
};

// The mode that applies to a layer (see above): 0, 1 or 2.
int32_t EffectiveLabelSelectionMode(int32_t request_mode, int32_t layer_mode);

// The features' labels, in drawing order, whose layer's effective mode is
// not NONE and whose box touches `search_box`.
std::vector<const PlacedLabel*> SelectLabels(std::span<const PlacedLabel> labels, const PixelRect& search_box,
                                             int32_t request_mode);

}  // namespace vmp
