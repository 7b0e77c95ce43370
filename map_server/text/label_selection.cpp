#include "map_server/text/label_selection.h"

#include <algorithm>

namespace vmp {

int32_t EffectiveLabelSelectionMode(int32_t request_mode, int32_t layer_mode) {
  auto known = [](int32_t mode) { return mode >= kSelectLabelsNone && mode <= kSelectLabelsYes; };
  const int32_t a = known(request_mode) ? request_mode : kSelectLabelsUnset;
  const int32_t b = known(layer_mode) ? layer_mode : kSelectLabelsUnset;
  const int32_t mode = std::min(a, b);
  return mode == kSelectLabelsUnset ? kSelectLabelsNone : mode;
}

std::vector<const PlacedLabel*> SelectLabels(std::span<const PlacedLabel> labels, const PixelRect& search_box,
                                             int32_t request_mode) {
  std::vector<const PlacedLabel*> selected;
  if (search_box.empty()) return selected;
  // The search box's pixels, as a box of their areas.
  const double x0 = static_cast<double>(search_box.min_x), x1 = static_cast<double>(search_box.max_x) + 1.0;
  const double y0 = static_cast<double>(search_box.min_y), y1 = static_cast<double>(search_box.max_y) + 1.0;
  const PixelVertex box[4] = {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}};
  for (const PlacedLabel& label : labels) {
    if (label.owner.data == nullptr) continue;  // not a feature's label
    if (EffectiveLabelSelectionMode(request_mode, label.selection_mode) == kSelectLabelsNone) continue;
    if (BoxesOverlap(label.corners, 0.0, box)) selected.push_back(&label);
  }
  return selected;
}

}  // namespace vmp
