#include "map_server/rendering/feature_style.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "toolkit/message_log.h"

namespace vmp {

namespace {

struct ResourceEntry {
  const char* name;
  StyleResource resource;
  ValueType type;
};

constexpr ResourceEntry kResources[] = {
    {"EdgeColor", StyleResource::kEdgeColor, ValueType::kGeo},
    {"FillColor", StyleResource::kFillColor, ValueType::kGeo},
    {"MarkerEdgeColor", StyleResource::kMarkerEdgeColor, ValueType::kGeo},
    {"MarkerFillColor", StyleResource::kMarkerFillColor, ValueType::kGeo},
    {"MarkerIconFile", StyleResource::kMarkerIconFile, ValueType::kString},
    {"LineWidth", StyleResource::kLineWidth, ValueType::kDouble},
    {"MarkerSize", StyleResource::kMarkerSize, ValueType::kDouble},
    {"MinPixelSize", StyleResource::kMinPixelSize, ValueType::kDouble},
    {"MinZoom", StyleResource::kMinZoom, ValueType::kDouble},
    {"MaxZoom", StyleResource::kMaxZoom, ValueType::kDouble},
    {"Alpha", StyleResource::kAlpha, ValueType::kDouble},
};

// A threshold colour (0..1 a channel) into the colour's channels.
void SetChannels(PixelColour& colour, const TypedValue& value) {
  colour.red = StoreChannel(value.numbers[0] * 255.0);
  colour.green = StoreChannel(value.numbers[1] * 255.0);
  colour.blue = StoreChannel(value.numbers[2] * 255.0);
}

}  // namespace

bool IsStyleResource(std::string_view resource_name) {
  for (const ResourceEntry& e : kResources) {
    if (resource_name == e.name) return true;
  }
  return false;
}

FeatureStyle LayerStyle(const LayerRecord& record) {
  const DrawingAttributes& d = record.drawing;
  FeatureStyle s;
  s.min_pixel_size = d.min_pixel_size;
  s.min_zoom = -1.0;  // the layer's own range was applied when it was prepared
  s.max_zoom = -1.0;
  s.alpha = d.alpha;
  s.fill = (d.fill_type & kFillTypeFill) != 0;
  s.edges = (d.fill_type & kFillTypeEdge) != 0;
  s.fill_colour = MakePixelColour(d.fill_color, d.alpha, record.trans_type);
  s.edge_colour = MakePixelColour(d.edge_color, d.alpha, record.trans_type);
  s.line_width = d.line_width;
  s.marker.type = d.marker_type;
  s.marker.size = d.marker_size;
  s.marker.margin = d.marker_margin;
  s.marker.line_width = d.line_width;
  s.marker.edge_colour = MakePixelColour(d.marker_edge_color, d.alpha, record.trans_type);
  s.marker.fill_colour = MakePixelColour(d.marker_fill_color, d.alpha, record.trans_type);
  if (d.marker_icon_file) s.icon_name = *d.marker_icon_file;
  return s;
}

bool InZoomRange(const FeatureStyle& style, double zoom, double zoom_scale) {
  if (style.max_zoom != -1.0 && zoom > style.max_zoom * zoom_scale) return false;
  if (style.min_zoom != -1.0 && style.min_zoom * zoom_scale > zoom) return false;
  return true;
}

void StyleBindings::Bind(LayerAttributes& attributes, std::string_view layer_name) {
  bindings_.clear();
  driven_ = 0;
  for (AttributeMap& map : attributes.attr_maps) {
    if (map.failed || map.thresholds.empty()) continue;
    const ResourceEntry* entry = nullptr;
    for (const ResourceEntry& e : kResources) {
      if (map.resource_name == e.name) entry = &e;
    }
    if (entry == nullptr) continue;
    if (map.thresholds.front().output.type != entry->type) {
      Report(kError, "Attribute map output does not fit its resource",
             std::string(layer_name) + ": " + map.resource_name);
      map.failed = true;
      continue;
    }
    bindings_.push_back({&map, entry->resource});
    driven_ |= 1u << static_cast<int>(entry->resource);
  }
}

void StyleBindings::Apply(const FeatureContext& context, FeatureStyle& style) const {
  for (const Binding& b : bindings_) {
    const Threshold* chosen = ChooseAttributeMapEntry(*b.map, context);
    if (chosen == nullptr) continue;
    const TypedValue& v = chosen->output;
    const double number = v.numbers[0];
    switch (b.resource) {
      case StyleResource::kEdgeColor: SetChannels(style.edge_colour, v); break;
      case StyleResource::kFillColor: SetChannels(style.fill_colour, v); break;
      case StyleResource::kMarkerEdgeColor: SetChannels(style.marker.edge_colour, v); break;
      case StyleResource::kMarkerFillColor: SetChannels(style.marker.fill_colour, v); break;
      case StyleResource::kMarkerIconFile:
        style.icon_name = v.text ? std::string_view(*v.text) : std::string_view();
        break;
      case StyleResource::kLineWidth:
        style.line_width = number;
        style.marker.line_width = number;
        break;
      case StyleResource::kMarkerSize: style.marker.size = number; break;
      case StyleResource::kMinPixelSize: style.min_pixel_size = number; break;
      case StyleResource::kMinZoom: style.min_zoom = number; break;
      case StyleResource::kMaxZoom: style.max_zoom = number; break;
      case StyleResource::kAlpha: {
        const double alpha = std::isfinite(number) ? std::clamp(number, 0.0, 1.0) : 0.0;
        style.alpha = alpha;
        for (PixelColour* c : {&style.fill_colour, &style.edge_colour, &style.marker.edge_colour,
                               &style.marker.fill_colour}) {
          c->alpha = alpha;
        }
        break;
      }
    }
  }
}

FeatureStyle ResolveLayerStyle(Layer& layer, double zoom) {
  FeatureStyle style = LayerStyle(layer.record);
  if (layer.record.attributes.attr_maps.empty()) return style;
  StyleBindings bindings;
  bindings.Bind(layer.record.attributes, layer.name);
  FeatureContext context;
  context.layer_name = layer.name;
  context.layer = &layer.record.attributes;
  context.vector_layer = false;
  context.zoom = zoom;
  bindings.Apply(context, style);
  return style;
}

}  // namespace vmp
