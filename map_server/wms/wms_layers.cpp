#include "map_server/wms/wms_layers.h"

#include <algorithm>
#include <cmath>

#include "map_server/layers/layer_string.h"
#include "map_server/service/map_service.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

constexpr Box kWorld{-180.0, 180.0, -90.0, 90.0};

const Layer* LayerNamed(const Dataset& dataset, std::string_view name) {
  for (const auto& layer : dataset.layers) {
    if (layer->name == name) return layer.get();
  }
  return nullptr;
}

const Alias* AliasNamed(const Dataset& dataset, std::string_view name) {
  if (!dataset.aliases) return nullptr;
  for (const Alias& alias : *dataset.aliases) {
    if (alias.name == name) return &alias;
  }
  return nullptr;
}

// A layer's box in -180..180 / -90..90. Layers without a box of their own
// (grids, outlines, backgrounds, or a missing or empty extent) cover the
// world; a box running past the antimeridian covers every longitude.
Box LayerExtent(const Layer& layer) {
  const LayerRecord& r = layer.record;
  if (!layer.IsImageOrVector()) return kWorld;
  Box b{r.min_lon, r.max_lon, r.min_lat, r.max_lat};
  if (!std::isfinite(b.min_lon) || !std::isfinite(b.max_lon) || !std::isfinite(b.min_lat) ||
      !std::isfinite(b.max_lat) || !(b.min_lon < b.max_lon) || !(b.min_lat < b.max_lat)) {
    return kWorld;
  }
  if (b.min_lon >= 180.0) {
    b.min_lon -= 360.0;
    b.max_lon -= 360.0;
  }
  if (b.min_lon < -180.0 || b.max_lon > 180.0) {
    b.min_lon = -180.0;
    b.max_lon = 180.0;
  }
  b.min_lat = std::max(b.min_lat, -90.0);
  b.max_lat = std::min(b.max_lat, 90.0);
  if (!(b.min_lat < b.max_lat)) {
    b.min_lat = -90.0;
    b.max_lat = 90.0;
  }
  return b;
}

void Widen(std::optional<Box>& box, const Box& b) {
  if (!box) {
    box = b;
    return;
  }
  box->min_lon = std::min(box->min_lon, b.min_lon);
  box->max_lon = std::max(box->max_lon, b.max_lon);
  box->min_lat = std::min(box->min_lat, b.min_lat);
  box->max_lat = std::max(box->max_lat, b.max_lat);
}

// What an alias brings in: the layers its layer string adds (through
// nested aliases too), for its box and whether it can be queried.
class AliasScan {
 public:
  explicit AliasScan(const Dataset& dataset) : dataset_(dataset) {}

  void Scan(const Alias& alias) {
    if (std::find(open_.begin(), open_.end(), &alias) != open_.end()) return;  // recursive alias
    open_.push_back(&alias);
    for (const std::string& token : SplitLayerString(alias.layers)) Token(token);
    open_.pop_back();
  }

  std::optional<Box> extent;
  bool queryable = false;

 private:
  void Token(std::string_view token) {
    const size_t start = token.find_first_not_of(" \t");
    if (start == std::string_view::npos) return;
    token.remove_prefix(start);
    if (token.front() == '-') return;  // removes, adds nothing
    if (kav::StartsWith(token, "++")) token.remove_prefix(2);
    else if (token.front() == '+') token.remove_prefix(1);
    if (token == "*" || token == "default") {
      for (const auto& layer : dataset_.layers) {
        if (token == "*" || layer->record.is_default != 0) Add(*layer);
      }
      return;
    }
    std::string_view name = token.substr(0, token.find('@'));
    const size_t last = name.find_last_not_of(" \t");
    name = last == std::string_view::npos ? std::string_view() : name.substr(0, last + 1);
    if (const Layer* layer = LayerNamed(dataset_, name)) {
      Add(*layer);
    } else if (const Alias* alias = AliasNamed(dataset_, name)) {
      Scan(*alias);
    }
  }

  void Add(const Layer& layer) {
    Widen(extent, LayerExtent(layer));
    if (layer.record.layer_type == kLayerVector) queryable = true;
  }

  const Dataset& dataset_;
  std::vector<const Alias*> open_;
};

const WmsLayer* Listed(const std::vector<WmsLayer>& listed, std::string_view name) {
  for (const WmsLayer& layer : listed) {
    if (layer.name == name) return &layer;
  }
  return nullptr;
}

// The name as one token of a layer string.
std::string LayerStringToken(std::string_view name) {
  std::string out;
  for (char c : name) {
    if (c == '\\' || c == ',') out += '\\';
    out += c;
  }
  return out;
}

}  // namespace

std::vector<WmsLayer> ListWmsLayers(const Dataset& dataset) {
  std::vector<WmsLayer> listed;
  for (const auto& layer : dataset.layers) {
    if (Listed(listed, layer->name) != nullptr) continue;
    WmsLayer entry;
    entry.name = layer->name;
    entry.layer = layer.get();
    entry.extent = LayerExtent(*layer);
    entry.queryable = layer->record.layer_type == kLayerVector;
    listed.push_back(std::move(entry));
  }
  if (!dataset.aliases) return listed;
  for (const Alias& alias : *dataset.aliases) {
    if (LayerNamed(dataset, alias.name) != nullptr || Listed(listed, alias.name) != nullptr) continue;
    AliasScan scan(dataset);
    scan.Scan(alias);
    WmsLayer entry;
    entry.name = alias.name;
    entry.alias = &alias;
    entry.extent = scan.extent.value_or(kWorld);
    entry.queryable = scan.queryable;
    listed.push_back(std::move(entry));
  }
  return listed;
}

Box UnionExtent(const std::vector<WmsLayer>& layers) {
  std::optional<Box> box;
  for (const WmsLayer& layer : layers) Widen(box, layer.extent);
  return box.value_or(kWorld);
}

std::optional<WmsError> CheckWmsLayers(const std::vector<WmsLayer>& listed,
                                       const std::vector<std::string>& names, bool queryable,
                                       const char* key) {
  for (const std::string& name : names) {
    const WmsLayer* layer = Listed(listed, name);
    if (layer == nullptr) {
      return WmsError{WmsErrorCode::kLayerNotDefined,
                      kav::StrPrintf("Layer '%s' is not defined", name.c_str()), key};
    }
    if (queryable && !layer->queryable) {
      return WmsError{WmsErrorCode::kLayerNotQueryable,
                      kav::StrPrintf("Layer '%s' cannot be queried", name.c_str()), key};
    }
  }
  return std::nullopt;
}

bool SelectWmsLayers(MapRequest& map, const std::vector<std::string>& names) {
  map.layers.clear();
  if (!CheckMapSetup(map)) return false;
  Dataset& dataset = *map.record.dataset;
  for (const std::string& name : names) {
    if (FindDatasetLayer(dataset, name) == nullptr) {
      SelectLayers(dataset, LayerStringToken(name), map.layers);
      continue;
    }
    // A plain layer: on, without conditions, boxes or zoom override, as the
    // grammar switches a bare name on (names it cannot carry included).
    SelectedLayer* record = FindSelected(map.layers, name);
    if (record == nullptr) {
      map.layers.emplace_back();
      record = &map.layers.back();
      record->name = name;
    }
    const bool override_zoom = record->override_zoom;
    *record = SelectedLayer{};
    record->name = name;
    record->mode = 1;
    record->override_zoom = override_zoom;
  }
  return true;
}

}  // namespace vmp
