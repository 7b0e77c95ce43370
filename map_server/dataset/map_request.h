// A map request: the 25 map parameters as resources (set by name from the
// request query), the typed record they are converted into, and the
// request's selected layers.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/param_conversion.h"
#include "map_server/dataset/resource_group.h"
#include "map_server/geometry/map_geometry.h"

namespace vmp {

// One entry of the request's Layers array: a layer named by the request's
// layer string (filled by layer selection, map_server/layers).
struct SelectedLayer {
  std::string name;
  int mode = 0;  // 0 off, 1 on, 2 on with conditions
  bool override_zoom = false;  // "++"
  // Mode 2: a feature is drawn when it matches some include chain (or there
  // is none) and no exclude chain.
  AttrConditionList include_conditions;
  AttrConditionList exclude_conditions;
  std::optional<std::vector<Box>> enable_boxes;  // from the alias that brought it in
  std::optional<std::vector<Box>> disable_boxes;
  double alias_min_zoom = -1.0;  // -1 when no alias gave them; up to 0 is "no bound"
  double alias_max_zoom = -1.0;
};

struct MapRecord {
  std::optional<std::string> dataset_name = "DefaultDataset";
  int64_t projection = 2;
  double center_lat = -117.0;
  double center_lon = 44.0;
  double v_extent = 1.2;
  double h_extent = 1.2;
  int32_t width = 512;
  int32_t height = 512;
  int32_t stretch = 0;
  Rgb background;  // 0..255
  int32_t image_errors = 1;
  double angle = 0.0;
  int32_t image_anti_aliasing = 0;
  double location_lat = -117.0;
  double location_lon = 44.0;
  int32_t location_i = 0;
  int32_t location_j = 0;
  std::optional<std::string> query_layers;
  int32_t label_selection_mode = 3;
  int32_t clip_area = 0;
  int32_t clip_min_x = 0;
  int32_t clip_max_x = 0;
  int32_t clip_min_y = 0;
  int32_t clip_max_y = 0;

  // Bound by VmpSetupMap; null until then.
  Dataset* dataset = nullptr;

  // --- Per-request state of the rendering ---
  bool location_query = false;  // hit tests only, no image
  // A pass whose features may be reported although it is no location query
  // (the view pass of a label selection): tiles are loaded with attributes.
  bool report_features = false;
  // Half-size of a location query's search box in pixels (selections widen
  // it with their PICK_RESOLUTION).
  double search_radius = kDefaultSearchRadius;
};

struct MapRequest {
  ResourceGroup resources{"MapRequest"};
  MapRecord record;
  std::vector<SelectedLayer> layers;  // the Layers array
  MapGeometry geometry;               // set up by SetupMapGeometry
};

// A new request with the 25 map resources at their table defaults (the
// process verbosity is copied into "Verbosity") and an empty Layers array.
std::unique_ptr<MapRequest> CreateMapRequest();

// The record field of map table entry `index`; `verbosity` receives the
// "Verbosity" entry, which lives process-wide rather than in the record.
FieldRef MapField(MapRecord& record, int32_t& verbosity, int index);

// Copies the request's resources into its record. "Verbosity" goes to the
// process-wide verbosity; a value of 1000 or more is a diagnostic code: it
// moves to the message log's debug code and the verbosity becomes 0.
void ConvertConfig(MapRequest& map);

}  // namespace vmp
