#include "map_server/dataset/dataset.h"

#include "map_server/util/paths.h"
#include "toolkit/message_log.h"

namespace vmp {

std::string Dataset::StringOption(std::string_view resource) const {
  auto value = resources.GetString(resource);
  return value && *value ? **value : std::string();
}

double Dataset::NumberOption(std::string_view resource) const {
  return resources.GetNumber(resource).value_or(0.0);
}

std::unique_ptr<Dataset> CreateDataset(std::string name, std::string_view info_path) {
  auto dataset = std::make_unique<Dataset>(std::move(name));
  ResourceGroup& r = dataset->resources;
  std::string root = DirectoryOf(ToNativePath(info_path));
  r.SetString(kDatasetVmpRoot, root);
  r.SetString(kDatasetLayerPath, std::nullopt);
  r.SetString(kDatasetFontPath, std::nullopt);
  r.SetString(kDatasetFilePath, std::nullopt);
  r.SetNumber(kDatasetRelativeZoom, 0);
  r.SetNumber(kDatasetEncoding, 1);        // UTF-8
  r.SetNumber(kDatasetGlyphCacheType, 1);  // local
  r.SetNumber(kDatasetAllowOverride, 1);
  r.SetNumber(kDatasetUsageCount, 0);
  r.SetNumber(kDatasetErrorStatus, 0);
  r.SetNumber(kDatasetMaxImageTiles, -1);
  r.SetNumber(kDatasetMaxVectorTiles, -1);
  r.SetString(kDatasetDefaultFont, "roman");
  r.SetString(kDatasetErrorFont, "roman");
  if (Verbosity() >= 2) Report(kInfo, "SDF path", root);
  return dataset;
}

Layer* FindLayer(Dataset& dataset, std::string_view name) {
  for (auto& layer : dataset.layers) {
    if (layer->name == name) return layer.get();
  }
  Report(kError, "Layer does not exist or could not be found", name);
  return nullptr;
}

const Font* FindFont(const Dataset& dataset, const std::optional<std::string>& name, bool quiet) {
  if (!name || name->empty()) {
    Report(kError, "NULL font name");
    return nullptr;
  }
  for (const Font& font : dataset.fonts) {
    if (font.name == *name) return &font;
  }
  if (!quiet) Report(kError, "Can't find font", *name);
  return nullptr;
}

Alias* FindAlias(Dataset& dataset, std::string_view name) {
  if (!dataset.aliases) return nullptr;
  for (Alias& alias : *dataset.aliases) {
    if (alias.name == name) return &alias;
  }
  return nullptr;
}

}  // namespace vmp
