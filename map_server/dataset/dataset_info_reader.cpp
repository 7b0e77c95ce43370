#include "map_server/dataset/dataset_info_reader.h"

#include <optional>

#include "map_server/dataset/config_reader.h"
#include "map_server/dataset/lif_reader.h"
#include "map_server/util/paths.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

enum class InfoKey {
  kRootDir,
  kLayerDir,
  kFontDir,
  kRelZoom,
  kLayer,
  kImageFont,
  kVectorFont,
  kFont,
  kEncoding,
  kAllowOverride,
  kMaxImageTiles,
  kMaxVectorTiles,
  kAlias,
  kDefaultFont,
  kErrorFont,
  kGlyphCacheType,
  kAliasZoomRange,
  kAliasEnableBox,
  kAliasDisableBox,
};

struct InfoKeyword {
  const char* keyword;
  const char* long_name;  // named in "cannot read"
  InfoKey key;
};

// Tried in this order, as prefixes.
constexpr InfoKeyword kInfoKeywords[] = {
    {"VMP ROOT DIR=", "ROOT DIRECTORY", InfoKey::kRootDir},
    {"LAYER DIR=", "LAYER DIRECTORY", InfoKey::kLayerDir},
    {"FONT DIR=", "FONT DIRECTORY", InfoKey::kFontDir},
    {"REL ZOOM=", "RELATIVE ZOOM", InfoKey::kRelZoom},
    {"LAYER=", "LAYER", InfoKey::kLayer},
    {"IMAGE FONT=", "IMAGE FONT", InfoKey::kImageFont},
    {"VECTOR FONT=", "VECTOR FONT", InfoKey::kVectorFont},
    {"FONT=", "VECTOR FONT", InfoKey::kFont},
    {"ENCODING=", "ENCODING", InfoKey::kEncoding},
    {"ALLOW OVERRIDE=", "ALLOW OVERRIDE", InfoKey::kAllowOverride},
    {"MAX IMAGE TILES=", "MAX IMAGE TILES", InfoKey::kMaxImageTiles},
    {"MAX VECTOR TILES=", "MAX VECTOR TILES", InfoKey::kMaxVectorTiles},
    {"ALIAS=", "ALIAS", InfoKey::kAlias},
    {"DEFAULT FONT=", "DEFAULT FONT", InfoKey::kDefaultFont},
    {"ERROR FONT=", "ERROR FONT", InfoKey::kErrorFont},
    {"GLYPH CACHE TYPE=", "GLYPH CACHE TYPE", InfoKey::kGlyphCacheType},
    {"ALIAS ZOOM RANGE=", "ALIAS ZOOM RANGE", InfoKey::kAliasZoomRange},
    {"ALIAS ENABLE BOX=", "ALIAS ENABLE BOX", InfoKey::kAliasEnableBox},
    {"ALIAS DISABLE BOX=", "ALIAS DISABLE BOX", InfoKey::kAliasDisableBox},
};

struct PendingFont {
  std::string name;
  std::string file;
  FontKind kind;
};

class InfoReader {
 public:
  InfoReader(Dataset& dataset, std::string_view path)
      : dataset_(dataset), path_(path), context_{std::string(path), {}} {}

  void ReadLines(std::string_view text) {
    LineReader lines(text, context_);
    std::string_view line;
    while (lines.Next(&line)) ReadLine(line);
  }

  void Finish(bool read_error);

 private:
  void ReadLine(std::string_view line);
  void ReadKeyword(const InfoKeyword& k, std::string_view rest);
  void SetDirectory(std::string_view rest, const InfoKeyword& k, const char* resource,
                    std::optional<std::string>* slot, const char* repeated);
  void ReadLayer(std::string_view rest, const InfoKeyword& k);
  void ReadFont(std::string_view rest, const InfoKeyword& k, FontKind kind);
  void ReadChoice(std::string_view rest, const InfoKeyword& k);
  void ReadAliasZoomRange(std::string_view rest, const InfoKeyword& k);
  void ReadAliasBox(std::string_view rest, const InfoKeyword& k, bool enable);
  Alias* AliasForLine(std::string_view* rest, const InfoKeyword& k);
  std::string Root() const { return dataset_.StringOption(kDatasetVmpRoot); }

  Dataset& dataset_;
  std::string path_;
  ConfigContext context_;
  std::optional<std::string> root_dir_, layer_dir_, font_dir_;
  bool encoding_given_ = false;
  bool layer_seen_ = false;
  std::optional<int64_t> max_image_tiles_, max_vector_tiles_;
  std::optional<std::string> default_font_, error_font_;
  std::vector<PendingFont> fonts_;
};

void InfoReader::ReadLine(std::string_view line) {
  for (const InfoKeyword& k : kInfoKeywords) {
    std::string_view rest;
    if (MatchKeyword(line, k.keyword, &rest)) return ReadKeyword(k, rest);
  }
  context_.Report(kError, "SDF file", path_);
  context_.Report(kWarning, "Unrecognized variable", line);
}

void InfoReader::ReadKeyword(const InfoKeyword& k, std::string_view rest) {
  switch (k.key) {
    case InfoKey::kRootDir:
      return SetDirectory(rest, k, kDatasetVmpRoot, &root_dir_, "Repeated ROOT DIRECTORY");
    case InfoKey::kLayerDir:
      return SetDirectory(rest, k, kDatasetLayerPath, &layer_dir_, "Repeated LAYER DIR");
    case InfoKey::kFontDir:
      return SetDirectory(rest, k, kDatasetFontPath, &font_dir_, "Repeated FONT DIR");
    case InfoKey::kLayer: return ReadLayer(rest, k);
    case InfoKey::kImageFont: return ReadFont(rest, k, FontKind::kImage);
    case InfoKey::kVectorFont:
    case InfoKey::kFont: return ReadFont(rest, k, FontKind::kVector);
    case InfoKey::kEncoding:
    case InfoKey::kGlyphCacheType: return ReadChoice(rest, k);
    case InfoKey::kAliasZoomRange: return ReadAliasZoomRange(rest, k);
    case InfoKey::kAliasEnableBox: return ReadAliasBox(rest, k, true);
    case InfoKey::kAliasDisableBox: return ReadAliasBox(rest, k, false);
    case InfoKey::kAlias: {
      Alias alias;
      if (!ReadToken(&rest, &alias.name, context_) || !ReadToken(&rest, &alias.layers, context_)) {
        return context_.CannotRead(k.long_name);
      }
      if (!dataset_.aliases) dataset_.aliases.emplace();
      dataset_.aliases->push_back(std::move(alias));
      return;
    }
    case InfoKey::kDefaultFont:
    case InfoKey::kErrorFont: {
      std::string font;
      if (!ReadToken(&rest, &font, context_)) return context_.CannotRead(k.long_name);
      (k.key == InfoKey::kDefaultFont ? default_font_ : error_font_) = std::move(font);
      return;
    }
    case InfoKey::kRelZoom:
    case InfoKey::kAllowOverride:
    case InfoKey::kMaxImageTiles:
    case InfoKey::kMaxVectorTiles: {
      int64_t value;
      if (!ReadInteger(&rest, &value)) return context_.CannotRead(k.long_name);
      if (k.key == InfoKey::kRelZoom) {
        dataset_.resources.SetNumber(kDatasetRelativeZoom, static_cast<double>(value));
      } else if (k.key == InfoKey::kAllowOverride) {
        if (layer_seen_) context_.Report(kWarning, "ALLOW OVERRIDE must be used before LAYERs!", path_);
        dataset_.resources.SetNumber(kDatasetAllowOverride, static_cast<double>(value));
      } else {
        (k.key == InfoKey::kMaxImageTiles ? max_image_tiles_ : max_vector_tiles_) = value;
      }
      return;
    }
  }
}

void InfoReader::SetDirectory(std::string_view rest, const InfoKeyword& k, const char* resource,
                              std::optional<std::string>* slot, const char* repeated) {
  std::string dir;
  if (!ReadToken(&rest, &dir, context_)) return context_.CannotRead(k.long_name);
  if (*slot) return context_.Report(kWarning, repeated, dir);
  dir = ToNativePath(dir);
  if (k.key == InfoKey::kRootDir) dir = ResolvePath(DirectoryOf(ToNativePath(path_)), dir);
  *slot = dir;
  dataset_.resources.SetString(resource, dir);
}

void InfoReader::ReadLayer(std::string_view rest, const InfoKeyword& k) {
  std::string name, lif;
  if (!ReadToken(&rest, &name, context_) || !ReadToken(&rest, &lif, context_)) {
    return context_.CannotRead(k.long_name);
  }
  layer_seen_ = true;
  if (name == "default" || name == "*") {
    return context_.Report(kError, "Default and * are reserved keywords, can't be used for layer names",
                           path_);
  }
  for (const auto& layer : dataset_.layers) {
    if (layer->name == name) return context_.Report(kWarning, "Repeated layer name, skipping", name);
  }
  ReadLifFile(dataset_, name, lif);
}

void InfoReader::ReadFont(std::string_view rest, const InfoKeyword& k, FontKind kind) {
  PendingFont font{{}, {}, kind};
  if (!ReadToken(&rest, &font.name, context_) || !ReadToken(&rest, &font.file, context_)) {
    return context_.CannotRead(k.long_name);
  }
  fonts_.push_back(std::move(font));
}

void InfoReader::ReadChoice(std::string_view rest, const InfoKeyword& k) {
  std::string word;
  if (!ReadToken(&rest, &word, context_)) return context_.CannotRead(k.long_name);
  if (k.key == InfoKey::kEncoding) {
    if (encoding_given_) return context_.Report(kWarning, "Repeated ENCODING", word);
    int value = word == "UTF8" ? 1 : word == "LATIN" ? 0 : -1;
    if (value < 0) {
      context_.Report(kError, "Dataset", path_);
      return context_.Report(kError, "Invalid encoding", word);
    }
    encoding_given_ = true;
    dataset_.resources.SetNumber(kDatasetEncoding, value);
    return;
  }
  int value = word == "local" ? 1 : word == "global" ? 2 : word == "none" ? 0 : -1;
  if (value < 0) {
    context_.Report(kError, "Dataset", path_);
    return context_.Report(kError, "Invalid glyph cache type", word);
  }
  dataset_.resources.SetNumber(kDatasetGlyphCacheType, value);
}

Alias* InfoReader::AliasForLine(std::string_view* rest, const InfoKeyword& k) {
  std::string name;
  if (!ReadToken(rest, &name, context_)) {
    context_.CannotRead(k.long_name);
    return nullptr;
  }
  *rest = SkipSeparators(*rest);  // the numbers may follow a comma
  Alias* alias = FindAlias(dataset_, name);
  if (alias == nullptr) {
    context_.ReportPrefixed(kError, k.long_name, "unknown alias");
    context_.Report(kError, "Unknown alias", name);
  }
  return alias;
}

void InfoReader::ReadAliasZoomRange(std::string_view rest, const InfoKeyword& k) {
  Alias* alias = AliasForLine(&rest, k);
  if (alias == nullptr) return;
  double zoom[2];
  if (ReadReals(&rest, zoom, 2) != 2) {
    context_.CannotRead(k.long_name);
    return context_.Report(kError, "Zoom range error for alias", alias->name);
  }
  if (zoom[0] > 0 && zoom[1] > 0 && zoom[0] > zoom[1]) {
    context_.ReportPrefixed(kError, k.long_name, "invalid zoom range");
    return context_.Report(kError, "Zoom range error for alias", alias->name);
  }
  alias->min_zoom = zoom[0];
  alias->max_zoom = zoom[1];
}

void InfoReader::ReadAliasBox(std::string_view rest, const InfoKeyword& k, bool enable) {
  Alias* alias = AliasForLine(&rest, k);
  if (alias == nullptr) return;
  double v[4];  // min lon, min lat, max lon, max lat
  int read = ReadReals(&rest, v, 4);
  if (read != 4 || !(v[0] < v[2]) || !(v[1] < v[3])) {
    if (read != 4) context_.CannotRead(k.long_name);
    else context_.ReportPrefixed(kError, k.long_name, "invalid box");
    return context_.Report(kError, "Box error for alias", alias->name);
  }
  auto& boxes = enable ? alias->enable_boxes : alias->disable_boxes;
  if (!boxes) boxes.emplace();
  boxes->push_back(Box{v[0], v[2], v[1], v[3]});
}

void InfoReader::Finish(bool read_error) {
  if (read_error) Report(kError, "Error reading dataset info file!", path_);
  ResourceGroup& r = dataset_.resources;
  if (error_font_) {
    r.SetString(kDatasetErrorFont, *error_font_);
    if (default_font_) r.SetString(kDatasetDefaultFont, *default_font_);
  } else if (default_font_) {
    r.SetString(kDatasetErrorFont, *default_font_);
    r.SetString(kDatasetDefaultFont, *default_font_);
  }
  if (max_image_tiles_) r.SetNumber(kDatasetMaxImageTiles, static_cast<double>(*max_image_tiles_));
  if (max_vector_tiles_) {
    r.SetNumber(kDatasetMaxVectorTiles, static_cast<double>(*max_vector_tiles_));
  }

  std::string font_dir = font_dir_ ? ResolvePath(Root(), *font_dir_) : Root();
  for (PendingFont& f : fonts_) {
    dataset_.fonts.push_back(Font{std::move(f.name), ResolvePath(font_dir, ToNativePath(f.file)), f.kind});
  }
  if (Verbosity() >= 2) {
    if (root_dir_) Report(kInfo, "Root path", *root_dir_);
    if (layer_dir_) Report(kInfo, "Layer path", *layer_dir_);
    if (font_dir_) Report(kInfo, "Font path", *font_dir_);
  }
}

}  // namespace

void ReadDatasetInfoText(Dataset& dataset, std::string_view path, std::string_view text,
                         bool read_error) {
  InfoReader reader(dataset, path);
  reader.ReadLines(text);
  reader.Finish(read_error);
}

bool LoadDatasetInfo(Dataset& dataset, const std::string& path) {
  if (path.empty()) return true;
  ConfigFile file;
  if (!LoadConfigFile(path, &file)) {
    Report(kError, "Cannot open dataset info file", path);
    return false;
  }
  ReadDatasetInfoText(dataset, path, file.text, file.read_error);
  return true;
}

}  // namespace vmp
