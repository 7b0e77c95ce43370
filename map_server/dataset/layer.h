// A layer of the dataset: its resources (the 88 layer parameters plus its
// custom attributes) and its typed record, which the LIF reader fills with
// the layer's own fields and the conversion step with the rest.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "map_server/dataset/param_conversion.h"
#include "map_server/dataset/resource_group.h"
#include "map_server/dataset/slf_tree.h"
#include "map_server/util/tile_naming.h"
#include "map_server/vector/attr_condition.h"
#include "map_server/vector/attribute_map.h"
#include "map_server/vector/typed_value.h"

namespace vmp {

enum LayerType : int64_t {
  kLayerImage = 0,
  kLayerGrid = 1,
  kLayerVector = 2,
  kLayerOutline = 3,
  kLayerBackground = 4,
};

// Text, markers, fills and labels.
struct DrawingAttributes {
  std::optional<std::string> text_font = "roman";
  int64_t text_type = 2;
  double font_scale = 1.0;
  double text_angle = 0.0;
  int32_t text_anchor = 17;
  std::optional<std::string> label_format;
  int32_t marker_type = 0;
  int32_t marker_size = kDefaultMarkerSize;
  int32_t marker_margin = 1;
  int32_t text_box_margin = 0;
  Rgb marker_edge_color;
  Rgb marker_fill_color;
  std::optional<std::string> marker_icon_file;
  Rgb edge_color{127.5, 127.5, 127.5};
  Rgb fill_color;
  int64_t fill_type = 1;
  int32_t line_width = 1;
  double alpha = 1.0;
  double min_pixel_size = 0.1;
  std::optional<std::string> poly_label_format;
  Rgb label_color;
  double label_min_zoom = -1.0;
  double label_max_zoom = -1.0;
  int64_t poly_label_type = 0;
  int32_t poly_label_center = -1;
  Rgb box_edge_color;
  Rgb box_fill_color;
  int32_t label_style = 0;
  Rgb label_outline_color;
  int32_t label_priority = 9;
  int64_t layout_type = 0;
  int32_t layout_margin = 1;
  int32_t text_box_line_width = 1;
  int32_t vtext_line_width = 1;
  int32_t label_selection_mode = 3;
};

// Lat/lon grid lines and their labels.
struct GridAttributes {
  double lat_interval = 10.0;
  double lon_interval = 20.0;
  double max_lon = 10000.0;
  double min_lon = -10000.0;
  double max_lat = 10000.0;
  double min_lat = -10000.0;
  int32_t adaptive = 0;
  int32_t labels = 0;
  int32_t decimal_labels = 1;
  std::optional<std::string> label_format;
  std::optional<std::string> label_format_lon;
  int32_t label_char = 1;
  int32_t rotate_lon_labels = 1;
  double lon_label_angle = 90.0;
};

// Limits of one tile store; -1 is "no limit".
struct TileStoreLimits {
  int32_t max_tiles = -1;
  int32_t max_cache_size = 100;
};

struct TileAttributes {
  // MaxTiles and MaxCacheSize go to the vector store for vector layers and
  // to the image store for every other layer.
  TileStoreLimits image_store;
  TileStoreLimits vector_store;
  int32_t elevation_mode = 0;
  double image_min_lon = -10000.0;
  double image_max_lon = 10000.0;
  int32_t image_anti_aliasing = 1;
  int32_t tiles_overlap = 0;
  std::optional<std::string> background_layer;
  int32_t bg_color_red = -1;  // -1: not set
  int32_t bg_color_green = -1;
  int32_t bg_color_blue = -1;
};

struct LayerRecord {
  // --- Stored by the LIF reader (not by the conversion step) ---
  int64_t layer_type = kLayerImage;
  std::optional<std::string> filename;  // as given
  std::optional<std::string> filter;
  int64_t width = 0;   // image size in pixels
  int64_t height = 0;
  double min_lon = 0.0;
  double max_lon = 0.0;
  double min_lat = 0.0;
  double max_lat = 0.0;
  int64_t image_format = 0;   // 0 not given; JPEG 1, TIF 2, PNG 3, GIF 4, BMP 5, RGB 6
  int64_t vector_format = 0;  // 0 not given; TVF 1, SHP 2
  int64_t num_tiles_x = 1;
  int64_t num_tiles_y = 1;
  bool pos_range = false;  // the layer's longitudes run 0..360
  std::optional<Rgb> gradient_color;  // 0..255

  std::string lif_path;  // the LIF as opened
  std::string lif_dir;   // relative names of the LIF resolve against it
  double relative_zoom = 0.0;  // the dataset's RelativeZoom

  // Data paths: built against the LIF's directory, or from the redirect
  // prefix when the layer has a redirect file (then empty until the first
  // successful redirect read).
  std::string data_path;          // the resolved Filename
  std::optional<std::string> tiles_sublif;  // as given
  std::string sublif_path;        // resolved
  std::unique_ptr<SlfNode> tile_tree;  // root of the tile tree, when there is one
  std::string fallback_file_path;      // resolved "FALLBACK=" file

  std::string redirect_path;               // resolved redirect file; empty: none
  std::optional<std::string> redirect_prefix;  // the current prefix

  // Custom attributes ("CUSTOM ATTR=", also layer resources by their names)
  // and the attribute and pixel maps ("ATTR MAP=", "PIXEL MAP=").
  LayerAttributes attributes;
  // Attribute number -> position in attributes.custom_attributes, or -1.
  std::vector<int> custom_attr_index;
  // The layer's "ATTR COND=" conditions (each line adds its chains); none
  // when the layer has no condition.
  std::optional<AttrConditionList> conditions;

  // --- Copied from the resources by the conversion step ---
  int64_t trans_type = 0;
  double min_zoom = -1.0;  // -1: not set
  double max_zoom = -1.0;
  std::optional<std::string> fallback;
  std::optional<std::string> fallback_layer;
  int32_t clip = 1;
  Rgb trans_color;
  double trans_color_precision = 0.0;
  int32_t volatile_tiles = 0;
  int32_t volatile_errors = 0;
  std::optional<std::string> lock_file;
  double lock_timeout = 0.05;
  int32_t lock_tiles = 0;
  std::optional<std::string> redirect_file;
  int32_t allow_missing_tiles = 0;
  int32_t allow_override = 0;
  int32_t is_default = 0;
  int32_t gradient_type = 0;
  double gradient_length = 1.0;

  DrawingAttributes drawing;
  GridAttributes grid;
  TileAttributes tiles;
};

struct Layer {
  explicit Layer(std::string layer_name) : name(layer_name), resources(std::move(layer_name)) {}

  std::string name;
  ResourceGroup resources;
  LayerRecord record;
  // The layer as described by its "FALLBACK=" file (image and vector layers).
  std::unique_ptr<Layer> fallback_file_layer;
  // This layer is itself such a description (it reads no fallback of its own).
  bool is_fallback_description = false;

  bool IsImageOrVector() const {
    return record.layer_type == kLayerImage || record.layer_type == kLayerVector;
  }
};

// The record field that table entry `index` is converted into; monostate for
// the entries the LIF reader stores itself (0, 28, 30..36).
FieldRef LayerField(LayerRecord& record, int index);

// Copies the layer's resources into its record: the 88 parameters by the
// layer table, then the custom attributes through their index map ("Invalid
// custom attribute index in ConvertConfig." for a bad index).
void ConvertConfig(Layer& layer);


}  // namespace vmp
