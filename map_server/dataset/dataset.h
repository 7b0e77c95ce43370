// The dataset: the options read from the dataset info file (as resources of
// a named group), its layers, fonts and aliases.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/dataset/resource_group.h"

namespace vmp {

// A lat/lon box in degrees.
struct Box {
  double min_lon = 0.0;
  double max_lon = 0.0;
  double min_lat = 0.0;
  double max_lat = 0.0;
  bool operator==(const Box&) const = default;
};

// An "ALIAS=" name for a layer string, with its optional zoom range (-1, or
// any value up to 0, is "no bound") and enable/disable boxes.
struct Alias {
  std::string name;
  std::string layers;
  std::optional<std::vector<Box>> enable_boxes;
  std::optional<std::vector<Box>> disable_boxes;
  double min_zoom = -1.0;
  double max_zoom = -1.0;
  int64_t spare = 0;
};

enum class FontKind { kImage, kVector };

// A font registered by the dataset; text drawing opens and caches it.
struct Font {
  std::string name;
  std::string file;  // resolved against the dataset's font directory
  FontKind kind = FontKind::kVector;
};

// Names of the dataset's resources.
inline constexpr const char* kDatasetVmpRoot = "VmpRoot";
inline constexpr const char* kDatasetLayerPath = "LayerPath";
inline constexpr const char* kDatasetFontPath = "FontPath";
inline constexpr const char* kDatasetFilePath = "FilePath";
inline constexpr const char* kDatasetRelativeZoom = "RelativeZoom";
inline constexpr const char* kDatasetEncoding = "Encoding";
inline constexpr const char* kDatasetGlyphCacheType = "GlyphCacheType";
inline constexpr const char* kDatasetAllowOverride = "AllowOverride";
inline constexpr const char* kDatasetUsageCount = "UsageCount";
inline constexpr const char* kDatasetErrorStatus = "ErrorStatus";
inline constexpr const char* kDatasetMaxImageTiles = "MaxImageTiles";
inline constexpr const char* kDatasetMaxVectorTiles = "MaxVectorTiles";
inline constexpr const char* kDatasetDefaultFont = "DefaultFont";
inline constexpr const char* kDatasetErrorFont = "ErrorFont";

struct Dataset {
  explicit Dataset(std::string dataset_name)
      : name(dataset_name), resources(std::move(dataset_name)) {}

  std::string name;
  ResourceGroup resources;
  std::vector<std::unique_ptr<Layer>> layers;  // in "LAYER=" order
  std::vector<Font> fonts;
  std::optional<std::vector<Alias>> aliases;  // created by the first "ALIAS="

  // Convenience reads of the string and number resources ("" / 0 when unset).
  std::string StringOption(std::string_view resource) const;
  double NumberOption(std::string_view resource) const;
};

// Creates a dataset with its 14 resources at their initial values; VmpRoot is
// the directory part of `info_path`. At verbosity 2 or more reports "SDF path".
std::unique_ptr<Dataset> CreateDataset(std::string name, std::string_view info_path);

// The dataset's layer of that name (first match); "Layer does not exist or
// could not be found" with the name when absent.
Layer* FindLayer(Dataset& dataset, std::string_view name);

// The font of that name: "NULL font name" for a missing (or empty) name,
// "Can't find font" for an unknown one unless `quiet`.
const Font* FindFont(const Dataset& dataset, const std::optional<std::string>& name,
                     bool quiet = false);

// Exact, case-sensitive, first match; null when there are no aliases.
Alias* FindAlias(Dataset& dataset, std::string_view name);

}  // namespace vmp
