// The checks made after the last line of a LIF, and the construction of the
// layer from what the file said.
#include <cmath>

#include "map_server/dataset/layer_paths.h"
#include "map_server/dataset/lif_state.h"
#include "map_server/dataset/slf_reader.h"
#include "map_server/util/paths.h"
#include "toolkit/message_log.h"

namespace vmp {

double LifReader::GivenNumber(int param) const {
  const auto& value = given_[static_cast<size_t>(param)];
  const double* number = value ? std::get_if<double>(&*value) : nullptr;
  return number ? *number : 0.0;
}

std::optional<std::string> LifReader::GivenString(int param) const {
  const auto& value = given_[static_cast<size_t>(param)];
  const auto* text = value ? std::get_if<std::optional<std::string>>(&*value) : nullptr;
  return text ? *text : std::nullopt;
}

std::unique_ptr<Layer> LifReader::Finish(bool read_error) {
  if (read_error) Report(kError, "Error reading layer info file!", lif_path_);
  if (!type_given_ || !Given(kLayerTransType)) {
    Report(kError, "Mandatory variables TYPE or TRANS TYPE not set!", lif_path_);
    return nullptr;
  }
  bool has_tree = false;
  std::string sublif_path;
  RunChecks(&has_tree, &sublif_path);
  return Build(has_tree, sublif_path);
}

void LifReader::RunChecks(bool* has_tree, std::string* sublif_path) {
  const bool image = layer_type_ == kLayerImage;
  const bool image_or_vector = image || layer_type_ == kLayerVector;
  auto redirect = GivenString(kLayerRedirectFile);
  auto drop_redirect = [&](const char* message) {
    Report(kWarning, message, lif_path_);
    Drop(kLayerRedirectFile);
    redirect.reset();
  };

  auto fallback = GivenString(kLayerFallback);
  if (fallback && IsAbsolutePath(ToNativePath(*fallback)) && redirect) {
    drop_redirect("Ignoring REDIRECT FILE due to absolute path in FALLBACK");
  }

  if (image_or_vector && tiles_sublif_) {
    if (num_tiles_x_ || num_tiles_y_ || Given(kLayerWidth) || Given(kLayerHeight)) {
      Report(kError, "TILES SUBLIF overrides NUM TILES, WIDTH and HEIGHT", lif_path_);
      num_tiles_x_.reset();
      num_tiles_y_.reset();
      Drop(kLayerWidth);
      Drop(kLayerHeight);
    }
    if (IsAbsolutePath(*tiles_sublif_) && redirect) {
      drop_redirect("Ignoring REDIRECT FILE due to absolute path in TILES SUBLIF");
    }
    SlfNode probe;
    *has_tree = MakeSlfRoot(*tiles_sublif_, &probe);
    if (*has_tree) *sublif_path = *tiles_sublif_;
  }

  bool max_tiles_valid = false;
  if (Given(kLayerMaxTiles)) {
    double v = GivenNumber(kLayerMaxTiles);
    if (v == 0 || v < -1) {
      ReportNumber(kError, "Invalid MAX TILES value", lif_path_, v);
      Drop(kLayerMaxTiles);
    } else {
      max_tiles_valid = true;
    }
  }
  if (Given(kLayerMaxCacheSize)) {
    double v = GivenNumber(kLayerMaxCacheSize);
    if (v == 0 || v < -1) {
      ReportNumber(kError, "Invalid MAX CACHE SIZE value", lif_path_, v);
      Drop(kLayerMaxCacheSize);
    }
  }
  // Without a cache size the cache is unbounded, unless a tile limit was
  // given: then the table's cache size holds.
  if (!Given(kLayerMaxCacheSize) && !max_tiles_valid) Give(kLayerMaxCacheSize, -1.0);

  auto filename = GivenString(kLayerFilename);
  if (image_or_vector && !*has_tree && !filename) {
    Report(kError, "Mandatory variable not set: Filename!", lif_path_);
  }
  if (filename && IsAbsolutePath(ToNativePath(*filename)) && redirect) {
    drop_redirect("Ignoring REDIRECT FILE due to absolute path in FILENAME");
  }

  if (image) {
    double tiles = Given(kLayerMaxTiles) ? GivenNumber(kLayerMaxTiles) : -1;
    double cache = Given(kLayerMaxCacheSize) ? GivenNumber(kLayerMaxCacheSize)
                                             : LayerParamTable()[kLayerMaxCacheSize].integer_default;
    if (tiles != -1 && cache != -1 && cache < tiles) {
      Report(kWarning, "Thrashing, set MAX CACHE SIZE >= MAX TILES for image layers", lif_path_);
    }
  }

  auto missing = [&](const char* what) {
    Report(kError, "LIF file", lif_path_);
    Report(kError, "Mandatory variable not set!", what);
  };
  if (image_or_vector && !*has_tree && !filename) missing("Filename");
  if (image && !*has_tree) {
    if (!Given(kLayerWidth)) missing("Image Width");
    if (!Given(kLayerHeight)) missing("Image Height");
  }

  auto refuse_negative = [&](int param, bool zero_too, const char* message) {
    if (!Given(param)) return;
    double v = GivenNumber(param);
    if (v < 0 || (zero_too && v == 0)) {
      ReportNumber(kError, message, lif_path_, v);
      Drop(param);
    }
  };
  refuse_negative(kLayerAdaptiveGrid, true, "Cannot have zero or negative adaptive grid coefficient");
  refuse_negative(kLayerIsDefault, false, "Cannot have negative DEFAULT ON value");
  refuse_negative(kLayerAllowMissingTiles, false, "Cannot have negative ALLOW MISSING TILES value");
  refuse_negative(kLayerImageAntiAliasing, false, "Cannot have negative image_antialiasing");
  refuse_negative(kLayerAllowOverride, false, "Cannot have negative ALLOW OVERRIDE value");
  if (layer_type_ == kLayerGrid && !Given(kLayerGridLatInterval) && !Given(kLayerGridLonInterval) &&
      !Given(kLayerAdaptiveGrid)) {
    Report(kWarning, "Grid Lat/Lon Interval or Adaptive Grid not set", lif_path_);
  }
  if (Given(kLayerGridLabelFormatLon) && !Given(kLayerGridLabelFormat)) {
    Report(kWarning, "Ignoring GRID LABEL FORMAT LON: no GRID LABEL FORMAT", lif_path_);
    Drop(kLayerGridLabelFormatLon);
  }
  if (Given(kLayerPolyLabelType) && GivenNumber(kLayerPolyLabelType) == 2 &&
      !Given(kLayerPolyLabelCenter)) {
    Report(kWarning, "Label type is AREA LABEL but LABEL CENTER not set", lif_path_);
  }
  if (fallback && Given(kLayerFallbackLayer)) {
    Report(kWarning, "FALLBACK LAYER overrides FALLBACK FILE", lif_path_);
    Drop(kLayerFallback);
  }
  if (Given(kLayerMarkerType) && (static_cast<int64_t>(GivenNumber(kLayerMarkerType)) & 64) &&
      !Given(kLayerMarkerIconFile)) {
    Report(kError, "Missing ICON FILE for CUSTOM_ICON marker type", lif_path_);
  }
  if (redirect && !image_or_vector) {
    Report(kWarning, "Unexpected layer type for REDIRECT FILE", lif_path_);
    Drop(kLayerRedirectFile);
  }
}

std::unique_ptr<Layer> LifReader::Build(bool has_tree, const std::string& sublif_path) {
  auto layer = std::make_unique<Layer>(layer_name_);
  layer->is_fallback_description = fallback_description_;
  ResourceGroup& resources = layer->resources;
  resources.CreateFromTable(LayerParamTable());
  resources.SetNumber(LayerParamTable()[kLayerAllowOverride].name,
                      dataset_.NumberOption(kDatasetAllowOverride));

  // Label style: the LABEL STYLE= flags with the marker's background flags.
  if (label_style_ || marker_background_ != 0) {
    Give(kLayerLabelStyle, static_cast<double>(label_style_.value_or(0) | marker_background_));
  }
  // Files named by the LIF resolve against its directory.
  for (int param : {kLayerLockFile, kLayerMarkerIconFile}) {
    if (auto name = GivenString(param)) Give(param, std::optional<std::string>(Resolve(*name)));
  }
  for (int param : {kLayerFilename, kLayerFallback, kLayerRedirectFile}) {
    if (auto name = GivenString(param)) Give(param, std::optional<std::string>(ToNativePath(*name)));
  }

  for (int i = 0; i < kLayerParamCount; ++i) {
    const auto& value = given_[static_cast<size_t>(i)];
    if (!value) continue;
    const char* name = LayerParamTable()[static_cast<size_t>(i)].name;
    if (const double* number = std::get_if<double>(&*value)) resources.SetNumber(name, *number);
    else if (const Rgb* color = std::get_if<Rgb>(&*value)) resources.SetColor(name, *color);
    else resources.SetString(name, std::get<std::optional<std::string>>(*value));
  }

  LayerRecord& r = layer->record;
  r.layer_type = layer_type_;
  r.filename = GivenString(kLayerFilename);
  r.filter = GivenString(kLayerFilter);
  r.width = static_cast<int64_t>(GivenNumber(kLayerWidth));
  r.height = static_cast<int64_t>(GivenNumber(kLayerHeight));
  r.min_lon = GivenNumber(kLayerMinLon);
  r.max_lon = GivenNumber(kLayerMaxLon);
  r.min_lat = GivenNumber(kLayerMinLat);
  r.max_lat = GivenNumber(kLayerMaxLat);
  r.image_format = image_format_;
  r.vector_format = vector_format_;
  r.num_tiles_x = num_tiles_x_.value_or(1);
  r.num_tiles_y = num_tiles_y_.value_or(1);
  r.pos_range = pos_range_;
  if (gradient_color_) r.gradient_color = ScaleColor(*gradient_color_);
  r.lif_path = lif_path_;
  r.lif_dir = lif_dir_;
  r.relative_zoom = dataset_.NumberOption(kDatasetRelativeZoom);
  if (has_tree) r.tiles_sublif = sublif_path;

  BuildLayerAttributes(custom_attrs_, std::move(attr_maps_), std::move(pixel_maps_), layer_name_,
                       &r.attributes);
  const std::vector<CustomAttribute>& customs = r.attributes.custom_attributes;
  int64_t largest = -1;
  for (const CustomAttribute& a : customs) largest = std::max(largest, a.entry.index);
  r.custom_attr_index.assign(static_cast<size_t>(largest + 1), -1);
  for (size_t i = 0; i < customs.size(); ++i) {
    const CustomAttribute& a = customs[i];
    r.custom_attr_index[static_cast<size_t>(a.entry.index)] = static_cast<int>(i);
    switch (a.entry.value.type) {
      case ValueType::kString: resources.SetString(a.name, std::nullopt); break;
      case ValueType::kGeo: resources.SetColor(a.name, Rgb{}); break;
      default: resources.SetNumber(a.name, 0.0); break;
    }
  }
  r.conditions = std::move(conditions_);

  ConvertConfig(*layer);

  if (r.redirect_file) {
    // The data paths wait for the first redirect prefix.
    r.redirect_path = Resolve(*r.redirect_file);
  } else {
    BuildLayerDataPaths(dataset_, *layer, lif_dir_);
  }
  return layer;
}

}  // namespace vmp
