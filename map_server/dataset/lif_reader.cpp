#include "map_server/dataset/lif_reader.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "map_server/dataset/lif_state.h"
#include "map_server/dataset/threshold_file.h"
#include "map_server/util/paths.h"
#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

std::string NormalPath(const std::string& path) {
  return std::filesystem::path(path).lexically_normal().string();
}

// The sum of the flag words contained in `text`.
int64_t ContainedFlags(std::span<const EnumWord> flags, std::string_view text) {
  int64_t sum = 0;
  for (const EnumWord& f : flags) {
    if (text.find(f.word) != std::string_view::npos) sum |= f.value;
  }
  return sum;
}

int BackgroundComponent(double component) {
  double v = component * 255.0;
  if (std::isnan(v) || v <= 0.0) return 0;
  return v >= 255.0 ? 255 : static_cast<int>(v);
}

}  // namespace

LifReader::LifReader(const Dataset& dataset, std::string_view layer_name, std::string lif_path,
                     bool fallback_description)
    : dataset_(dataset),
      layer_name_(layer_name),
      lif_path_(std::move(lif_path)),
      lif_dir_(DirectoryOf(lif_path_)),
      fallback_description_(fallback_description) {}

std::string LifReader::Resolve(std::string_view name) const {
  return ResolvePath(lif_dir_, ToNativePath(name));
}

void LifReader::ReadMainText(std::string_view text) {
  include_stack_.push_back(NormalPath(lif_path_));
  ConfigContext context{lif_path_, {}};
  ReadLines(text, context);
  include_stack_.pop_back();
}

void LifReader::ReadLines(std::string_view text, const ConfigContext& context) {
  LineReader lines(text, context);
  std::string_view line;
  while (lines.Next(&line)) ReadLine(line, context);
}

void LifReader::ReadLine(std::string_view line, const ConfigContext& context) {
  const LifKeyword* keyword = FindLifKeyword(line);
  if (keyword == nullptr) {
    context.Report(kError, "LIF file", lif_path_);
    context.Report(kWarning, "Unrecognized variable", line);
    return;
  }
  std::string_view rest = line.substr(std::string_view(keyword->keyword).size());
  switch (keyword->form) {
    case LifForm::kToken: {
      std::string token;
      if (!ReadToken(&rest, &token, context)) return context.CannotRead(keyword->LongName());
      return ApplyToken(*keyword, std::move(token), context);
    }
    case LifForm::kInteger: {
      int64_t value;
      if (!ReadInteger(&rest, &value)) return context.CannotRead(keyword->LongName());
      return ApplyNumber(*keyword, static_cast<double>(value), context);
    }
    case LifForm::kReal: {
      double value;
      if (!ReadReal(&rest, &value)) return context.CannotRead(keyword->LongName());
      return ApplyNumber(*keyword, value, context);
    }
    case LifForm::kColor: {
      Rgb value;
      if (!ReadColor(&rest, &value)) return context.CannotRead(keyword->LongName());
      return ApplyColor(*keyword, value);
    }
    case LifForm::kEnum: {
      std::string word;
      if (!ReadWords(&rest, &word, context)) return context.CannotRead(keyword->LongName());
      int64_t value;
      if (!LookupWord(keyword->words, word, &value)) {
        return context.Report(kError, keyword->invalid, word);
      }
      return ApplyNumber(*keyword, static_cast<double>(value), context);
    }
    case LifForm::kSpecial: return ReadSpecial(*keyword, rest, context);
  }
}

void LifReader::ApplyNumber(const LifKeyword& keyword, double value, const ConfigContext& context) {
  switch (keyword.action) {
    case LifAction::kSetParam: Give(keyword.param, value); break;
    case LifAction::kLayerType:
      if (type_given_) {
        context.Report(kError, "Repeated layer TYPE", lif_path_);
        break;
      }
      type_given_ = true;
      layer_type_ = static_cast<int64_t>(value);
      Give(kLayerType, value);
      break;
    case LifAction::kImageFormat: image_format_ = static_cast<int64_t>(value); break;
    case LifAction::kVectorFormat: vector_format_ = static_cast<int64_t>(value); break;
    case LifAction::kNumTilesX: num_tiles_x_ = static_cast<int64_t>(value); break;
    case LifAction::kNumTilesY: num_tiles_y_ = static_cast<int64_t>(value); break;
    case LifAction::kPosRange: pos_range_ = value == 1.0; break;
    default: break;
  }
}

void LifReader::ApplyToken(const LifKeyword& keyword, std::string value,
                           const ConfigContext& context) {
  switch (keyword.action) {
    case LifAction::kSetParam: Give(keyword.param, std::optional<std::string>(std::move(value))); break;
    case LifAction::kTilesSublif: tiles_sublif_ = ToNativePath(value); break;
    case LifAction::kInclude: Include(std::move(value), context); break;
    default: break;
  }
}

void LifReader::ApplyColor(const LifKeyword& keyword, Rgb value) {
  switch (keyword.action) {
    case LifAction::kSetParam: Give(keyword.param, value); break;
    case LifAction::kGradientColor: gradient_color_ = value; break;
    case LifAction::kBackgroundColor:
      Give(kLayerBGColorRed, static_cast<double>(BackgroundComponent(value.red)));
      Give(kLayerBGColorGreen, static_cast<double>(BackgroundComponent(value.green)));
      Give(kLayerBGColorBlue, static_cast<double>(BackgroundComponent(value.blue)));
      break;
    default: break;
  }
}

void LifReader::ReadSpecial(const LifKeyword& keyword, std::string_view rest,
                            const ConfigContext& context) {
  switch (keyword.action) {
    case LifAction::kTextAnchor: return ReadTextAnchor(keyword, rest, context);
    case LifAction::kLabelStyle: return ReadLabelStyle(rest, context);
    case LifAction::kMarkerType: return ReadMarkerType(rest, context);
    case LifAction::kCustomAttr: return ReadCustomAttr(rest, context);
    case LifAction::kAttrMap: return ReadAttrMap(rest, false, context);
    case LifAction::kPixelMap: return ReadAttrMap(rest, true, context);
    case LifAction::kAttrCond: {
      std::string_view condition = TrimBlanks(rest);
      if (!ParseLifAttrCondition(condition, conditions_)) {
        context.Report(kError, "LIF file", lif_path_);
        if (condition.empty()) context.Report(kWarning, "Skipping invalid ATTR COND");
        else context.Report(kWarning, "Skipping invalid ATTR COND", condition);
      }
      return;
    }
    default: return;
  }
}

void LifReader::ReadTextAnchor(const LifKeyword& keyword, std::string_view rest,
                               const ConfigContext& context) {
  std::string horizontal, vertical;
  if (!ReadToken(&rest, &horizontal, context) || !ReadToken(&rest, &vertical, context)) {
    return context.CannotRead(keyword.LongName());
  }
  int64_t h = 0, v = 0;
  bool ok = true;
  if (!LookupWord(HorizontalAnchorWords(), horizontal, &h)) {
    context.Report(kError, "Invalid text h_anchor type", horizontal);
    ok = false;
  }
  if (!LookupWord(VerticalAnchorWords(), vertical, &v)) {
    context.Report(kError, "Invalid text v_anchor type", vertical);
    ok = false;
  }
  if (ok) Give(kLayerTextAnchor, static_cast<double>(h + v));
}

void LifReader::ReadLabelStyle(std::string_view rest, const ConfigContext& context) {
  std::string words;
  if (!ReadWords(&rest, &words, context)) return context.CannotRead("LABEL STYLE");
  int64_t flags = ContainedFlags(LabelStyleFlags(), words);
  if (flags == 0) return context.Report(kError, "Invalid label style", words);
  label_style_ = flags;
}

void LifReader::ReadMarkerType(std::string_view rest, const ConfigContext& context) {
  std::string words;
  if (!ReadWords(&rest, &words, context)) return context.CannotRead("MARKER ICON TYPE");
  if (words == "NONE") {
    Give(kLayerMarkerType, 0.0);
    return;
  }
  int64_t markers = ContainedFlags(MarkerTypeFlags(), words);
  int64_t backgrounds = ContainedFlags(MarkerBackgroundFlags(), words);
  if (markers == 0 && backgrounds == 0) return context.Report(kError, "Invalid marker type", words);
  Give(kLayerMarkerType, static_cast<double>(markers));
  marker_background_ |= backgrounds;
}

void LifReader::Include(std::string name, const ConfigContext& context) {
  name = ToNativePath(name);
  if (kav::EndsWith(name, ".slf")) {
    if (tiles_sublif_) context.Report(kWarning, "Overwriting TILES SUBLIF with .slf from INCLUDE", name);
    tiles_sublif_ = name;
    return;
  }
  std::string path = Resolve(name);
  std::string normal = NormalPath(path);
  if (std::find(include_stack_.begin(), include_stack_.end(), normal) != include_stack_.end()) {
    context.Report(kError, "Recursive INCLUDE, skipping", path);
    return;
  }
  if (include_stack_.size() >= kMaxLifIncludeDepth) {
    context.Report(kError, "INCLUDE nested too deep, skipping", path);
    return;
  }
  ConfigFile file;
  if (!LoadConfigFile(path, &file)) {
    context.Report(kError, "LIF file", lif_path_);
    context.Report(kError, path, "Included file could not be opened");
    return;
  }
  ConfigContext inner{lif_path_, path};
  include_stack_.push_back(normal);
  ReadLines(file.text, inner);
  if (file.read_error) inner.Report(kError, "Error reading layer info file!", path);
  include_stack_.pop_back();
}

void LifReader::ReadCustomAttr(std::string_view rest, const ConfigContext& context) {
  int64_t number;
  if (!ReadInteger(&rest, &number)) {
    return context.Report(kError, "Cannot read custom attribute number", lif_path_);
  }
  std::string name, type_word;
  if (!ReadToken(&rest, &name, context)) {
    return context.Report(kError, "Cannot read custom attribute name", lif_path_);
  }
  if (!ReadToken(&rest, &type_word, context)) {
    return context.Report(kError, "Cannot read custom attribute type", lif_path_);
  }
  ValueType type = ValueTypeOfWord(type_word);
  if (type == ValueType::kNone) return context.Report(kError, "Invalid custom attribute type", type_word);
  if (number > kMaxCustomAttrNumber) {
    return context.Report(kError, "Custom attribute number is too large", name);
  }
  bool repeated = ParamIndex(kObjectLayer, name) >= 0;
  for (const CustomAttributeFields& a : custom_attrs_) repeated |= a.name == name || a.number == number;
  if (repeated) return context.Report(kError, "Repeated custom attribute", name);
  custom_attrs_.push_back({number, std::move(name), std::move(type_word)});
}

void LifReader::ReadAttrMap(std::string_view rest, bool pixel_map, const ConfigContext& context) {
  if (!type_given_) return context.Report(kError, "Layer type must be set before ATTR MAP", lif_path_);
  if (pixel_map && layer_type_ != kLayerImage) {
    return context.Report(kError, "PIXEL THRESHOLD is supported for IMAGE layers only", lif_path_);
  }
  AttributeMapFields map;
  if (!ReadToken(&rest, &map.attribute_name, context)) {
    return context.Report(kError, "Error reading attribute map's attribute name", lif_path_);
  }
  auto custom = std::find_if(custom_attrs_.begin(), custom_attrs_.end(),
                             [&](const CustomAttributeFields& a) { return a.name == map.attribute_name; });
  if (pixel_map) {
    if (map.attribute_name != "PixelColor") {
      // A custom attribute stands where the pixel colour is expected.
      if (custom != custom_attrs_.end()) {
        return context.Report(kError, "Unxepected non-zero attr name in PIXEL THRESHOLD",
                              map.attribute_name);
      }
      return context.Report(kError, "Invalid attribute name (PixelColor expected)", map.attribute_name);
    }
  } else if (custom == custom_attrs_.end()) {
    return context.Report(kError, "Invalid attribute name (define custom attrs first)",
                          map.attribute_name);
  }
  if (!ReadToken(&rest, &map.resource_name, context)) {
    return context.Report(kError, "Error reading attribute map's resource name", lif_path_);
  }
  std::string threshold_file;
  if (!ReadToken(&rest, &threshold_file, context)) {
    return context.Report(kError, "Error reading attribute map's threshold file", lif_path_);
  }
  std::string mode;
  if (!ReadToken(&rest, &mode, context)) {
    return context.Report(kError, "Error reading attribute map's ABS/REL flag", lif_path_);
  }
  if (mode != "ABS" && mode != "REL") {
    return context.Report(kError, "Invalid threshold table type (REL or ABS)", mode);
  }
  map.table_kind = std::move(mode);
  map.threshold_file = Resolve(threshold_file);
  if (!ReadThresholdFile(map.threshold_file, &map.thresholds)) return;
  (pixel_map ? pixel_maps_ : attr_maps_).push_back(std::move(map));
}

bool ParseLifAttrCondition(std::string_view text, std::optional<AttrConditionList>& conditions) {
  if (text.empty()) return false;
  // A condition that fails to parse is skipped whole: parse it apart first.
  AttrConditionList parsed;
  if (!ParseAttrCondition(text, parsed)) return false;
  if (!conditions) conditions.emplace();
  for (AttrChain& chain : parsed.chains) conditions->chains.push_back(std::move(chain));
  return true;
}

std::string ResolveLifPath(const Dataset& dataset, std::string_view lif_name) {
  std::string name = ToNativePath(lif_name);
  std::string root = dataset.StringOption(kDatasetVmpRoot);
  auto layer_path = dataset.resources.GetString(kDatasetLayerPath);
  bool has_layer_path = layer_path && *layer_path && !(*layer_path)->empty();
  std::string lif_dir = has_layer_path ? ResolvePath(root, **layer_path) : root;
  std::string full = ResolvePath(lif_dir, name);
  if (Verbosity() >= 8) {
    Report(kInfo, "Lif name", name);
    Report(kInfo, "Root path", root);
    Report(kInfo, "Layer path", has_layer_path ? **layer_path : std::string());
    Report(kInfo, "Lif path", lif_dir);
    Report(kInfo, "Full lif name", full);
    Report(kInfo, "Final lif path", DirectoryOf(full));
  }
  return full;
}

std::unique_ptr<Layer> ParseLifText(const Dataset& dataset, std::string_view layer_name,
                                    std::string_view lif_path, std::string_view text,
                                    bool read_error, bool fallback_description) {
  LifReader reader(dataset, layer_name, std::string(lif_path), fallback_description);
  reader.ReadMainText(text);
  return reader.Finish(read_error);
}

std::unique_ptr<Layer> ParseLifFile(const Dataset& dataset, std::string_view layer_name,
                                    const std::string& path, bool fallback_description) {
  ConfigFile file;
  if (!LoadConfigFile(path, &file)) {
    Report(kError, "Could not be opened", path);
    return nullptr;
  }
  return ParseLifText(dataset, layer_name, path, file.text, file.read_error, fallback_description);
}

namespace {

Layer* AddLayer(Dataset& dataset, std::unique_ptr<Layer> layer) {
  if (!layer) return nullptr;
  dataset.layers.push_back(std::move(layer));
  return dataset.layers.back().get();
}

}  // namespace

Layer* ReadLifFile(Dataset& dataset, std::string_view layer_name, std::string_view lif_name) {
  std::string path = ResolveLifPath(dataset, lif_name);
  dataset.resources.SetString(kDatasetFilePath, DirectoryOf(path));
  return AddLayer(dataset, ParseLifFile(dataset, layer_name, path, false));
}

Layer* ReadLifText(Dataset& dataset, std::string_view layer_name, std::string_view lif_path,
                   std::string_view text) {
  dataset.resources.SetString(kDatasetFilePath, DirectoryOf(lif_path));
  return AddLayer(dataset, ParseLifText(dataset, layer_name, lif_path, text, false, false));
}

}  // namespace vmp
