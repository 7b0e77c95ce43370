#include "map_server/dataset/layer.h"

#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

FieldRef LayerField(LayerRecord& r, int index) {
  DrawingAttributes& d = r.drawing;
  GridAttributes& g = r.grid;
  TileAttributes& t = r.tiles;
  TileStoreLimits& store = r.layer_type == kLayerVector ? t.vector_store : t.image_store;
  switch (index) {
    case kLayerTransType: return &r.trans_type;
    case kLayerTextFont: return &d.text_font;
    case kLayerGridLatInterval: return &g.lat_interval;
    case kLayerGridLonInterval: return &g.lon_interval;
    case kLayerGridMaxLon: return &g.max_lon;
    case kLayerGridMinLon: return &g.min_lon;
    case kLayerGridMaxLat: return &g.max_lat;
    case kLayerGridMinLat: return &g.min_lat;
    case kLayerEdgeColor: return &d.edge_color;
    case kLayerAlpha: return &d.alpha;
    case kLayerTextType: return &d.text_type;
    case kLayerFontScale: return &d.font_scale;
    case kLayerTextAngle: return &d.text_angle;
    case kLayerTextAnchor: return &d.text_anchor;
    case kLayerLabelFormat: return &d.label_format;
    case kLayerMarkerType: return &d.marker_type;
    case kLayerMarkerSize: return &d.marker_size;
    case kLayerMarkerMargin: return &d.marker_margin;
    case kLayerTextBoxMargin: return &d.text_box_margin;
    case kLayerMarkerEdgeColor: return &d.marker_edge_color;
    case kLayerMarkerFillColor: return &d.marker_fill_color;
    case kLayerFillColor: return &d.fill_color;
    case kLayerFillType: return &d.fill_type;
    case kLayerLineWidth: return &d.line_width;
    case kLayerMaxTiles: return &store.max_tiles;
    case kLayerMinZoom: return &r.min_zoom;
    case kLayerMaxZoom: return &r.max_zoom;
    case kLayerFallback: return &r.fallback;
    case kLayerAdaptiveGrid: return &g.adaptive;
    case kLayerGridLabels: return &g.labels;
    case kLayerIsDefault: return &r.is_default;
    case kLayerPolyLabelFormat: return &d.poly_label_format;
    case kLayerLabelColor: return &d.label_color;
    case kLayerLabelMinZoom: return &d.label_min_zoom;
    case kLayerLabelMaxZoom: return &d.label_max_zoom;
    case kLayerPolyLabelType: return &d.poly_label_type;
    case kLayerPolyLabelCenter: return &d.poly_label_center;
    case kLayerBoxEdgeColor: return &d.box_edge_color;
    case kLayerBoxFillColor: return &d.box_fill_color;
    case kLayerImageAntiAliasing: return &t.image_anti_aliasing;
    case kLayerMinPixelSize: return &d.min_pixel_size;
    case kLayerClip: return &r.clip;
    case kLayerTransColor: return &r.trans_color;
    case kLayerTransColorPrecision: return &r.trans_color_precision;
    case kLayerMaxCacheSize: return &store.max_cache_size;
    case kLayerVolatile: return &r.volatile_tiles;
    case kLayerVolatileErrors: return &r.volatile_errors;
    case kLayerLockFile: return &r.lock_file;
    case kLayerLockTimeout: return &r.lock_timeout;
    case kLayerLockTiles: return &r.lock_tiles;
    case kLayerFallbackLayer: return &r.fallback_layer;
    case kLayerMarkerIconFile: return &d.marker_icon_file;
    case kLayerElevationMode: return &t.elevation_mode;
    case kLayerDecimalGridLabels: return &g.decimal_labels;
    case kLayerRedirectFile: return &r.redirect_file;
    case kLayerAllowMissingTiles: return &r.allow_missing_tiles;
    case kLayerAllowOverride: return &r.allow_override;
    case kLayerLonLabelAngle: return &g.lon_label_angle;
    case kLayerGridLabelFormat: return &g.label_format;
    case kLayerGridLabelFormatLon: return &g.label_format_lon;
    case kLayerGridLabelChar: return &g.label_char;
    case kLayerRotateLonLabels: return &g.rotate_lon_labels;
    case kLayerImageMinLon: return &t.image_min_lon;
    case kLayerImageMaxLon: return &t.image_max_lon;
    case kLayerLabelStyle: return &d.label_style;
    case kLayerLabelOutlineColor: return &d.label_outline_color;
    case kLayerLabelPriority: return &d.label_priority;
    case kLayerLayoutType: return &d.layout_type;
    case kLayerLayoutMargin: return &d.layout_margin;
    case kLayerTextBoxLineWidth: return &d.text_box_line_width;
    case kLayerVTextLineWidth: return &d.vtext_line_width;
    case kLayerLabelSelectionMode: return &d.label_selection_mode;
    case kLayerGradientType: return &r.gradient_type;
    case kLayerGradientLength: return &r.gradient_length;
    case kLayerTilesOverlap: return &t.tiles_overlap;
    case kLayerBackgroundLayer: return &t.background_layer;
    case kLayerBGColorRed: return &t.bg_color_red;
    case kLayerBGColorGreen: return &t.bg_color_green;
    case kLayerBGColorBlue: return &t.bg_color_blue;
    default: return std::monostate{};  // LayerType, Filename, Filter, Width..MaxLat
  }
}

void ConvertConfig(Layer& layer) {
  LayerRecord& record = layer.record;
  ConvertResources(layer.resources, LayerParamTable(),
                   [&record](int index) { return LayerField(record, index); });

  std::vector<CustomAttribute>& customs = record.attributes.custom_attributes;
  for (const CustomAttribute& attr : customs) {
    int64_t index = attr.entry.index;
    if (index < 0 || index >= static_cast<int64_t>(record.custom_attr_index.size()) ||
        record.custom_attr_index[static_cast<size_t>(index)] < 0) {
      Report(kError, "Invalid custom attribute index in ConvertConfig.", layer.name);
      continue;
    }
    CustomAttribute& slot =
        customs[static_cast<size_t>(record.custom_attr_index[static_cast<size_t>(index)])];
    const Resource* r = layer.resources.Find(attr.name);
    if (r == nullptr) continue;
    TypedValue& value = slot.entry.value;
    switch (value.type) {
      case ValueType::kString:
        if (r->kind == ResourceKind::kString) value = TypedValue::String(r->text);
        break;
      case ValueType::kDouble:
        if (r->kind == ResourceKind::kNumber) value = TypedValue::Double(r->number);
        break;
      case ValueType::kGeo:
        if (r->kind == ResourceKind::kColor) {
          Rgb c = ScaleColor(r->color);
          value = TypedValue::Geo(c.red, c.green, c.blue);
        }
        break;
      default: Report(kError, "Invalid data type", attr.name); break;
    }
  }
}

}  // namespace vmp
