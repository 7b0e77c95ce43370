// The drawing settings of a layer, and of each feature when the layer's
// attribute maps ("ATTR MAP=") drive them.
//
// A layer's style is read from its record once per drawing. An attribute
// map drives the resource it names (attribute_map.h): for each feature the
// map chooses a threshold entry and the entry's output replaces the layer's
// value of that resource for the feature; when the map gives no value (the
// input attribute is missing, say) the layer's value stays. Resources that
// maps can drive, with the output type they need:
//
//   EdgeColor, FillColor, MarkerEdgeColor, MarkerFillColor   VMP_G (0..1)
//   MarkerIconFile                                           VMP_S
//   LineWidth, MarkerSize, MinPixelSize, MinZoom, MaxZoom,
//   Alpha                                                    VMP_D
//
// Maps of other resources (labels, fonts) are left to the text drawing. A
// map whose output type does not fit its resource is reported once ("Attribute
// map output does not fit its resource") and not used again. On layers
// without features (grids, outlines) only maps on the zoom or random input
// work, evaluated once per drawing.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/rendering/markers.h"
#include "map_server/rendering/pixel_colour.h"
#include "map_server/vector/attr_match.h"
#include "map_server/vector/attribute_map.h"

namespace vmp {

// FillType bits.
inline constexpr int64_t kFillTypeEdge = 1;
inline constexpr int64_t kFillTypeFill = 2;

struct FeatureStyle {
  double min_pixel_size = 0.0;
  double min_zoom = -1.0;  // -1: not set
  double max_zoom = -1.0;
  double alpha = 1.0;
  bool fill = false;
  bool edges = true;
  PixelColour fill_colour;
  PixelColour edge_colour;
  double line_width = 1.0;
  MarkerStyle marker;
  std::string_view icon_name;  // MarkerIconFile as given (resolved by the icon cache)
};

// The style of a layer's record.
FeatureStyle LayerStyle(const LayerRecord& record);

// Whether a zoom lies in the style's range, the bounds scaled by the layer's
// zoom scale as the layer's own MinZoom and MaxZoom are.
bool InZoomRange(const FeatureStyle& style, double zoom, double zoom_scale);

enum class StyleResource : uint8_t {
  kEdgeColor,
  kFillColor,
  kMarkerEdgeColor,
  kMarkerFillColor,
  kMarkerIconFile,
  kLineWidth,
  kMarkerSize,
  kMinPixelSize,
  kMinZoom,
  kMaxZoom,
  kAlpha,
};

// Whether attribute maps of this resource name change how features are
// drawn (the resources above); other maps serve labels.
bool IsStyleResource(std::string_view resource_name);

// The attribute maps of a layer that drive drawing resources.
class StyleBindings {
 public:
  // Collects the maps of `attributes` (reusing the arrays); reports and
  // retires the maps whose output type cannot drive their resource.
  void Bind(LayerAttributes& attributes, std::string_view layer_name);
  bool empty() const { return bindings_.empty(); }
  bool Drives(StyleResource resource) const { return (driven_ & (1u << static_cast<int>(resource))) != 0; }

  // Applies every bound map for the feature of `context` to `style`.
  void Apply(const FeatureContext& context, FeatureStyle& style) const;

 private:
  struct Binding {
    AttributeMap* map;
    StyleResource resource;
  };
  std::vector<Binding> bindings_;
  uint32_t driven_ = 0;
};

// The style of a layer without features (grid, outline): the layer's,
// changed by its zoom- and random-driven maps.
FeatureStyle ResolveLayerStyle(Layer& layer, double zoom);

}  // namespace vmp
