// What a LIF says, collected while its lines are read (lif_reader.cpp) and
// turned into a layer after the last line (lif_layer_builder.cpp).
// Internal to the LIF reader.
#pragma once

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "map_server/dataset/config_reader.h"
#include "map_server/dataset/dataset.h"
#include "map_server/dataset/layer.h"
#include "map_server/dataset/lif_keywords.h"

namespace vmp {

// Nested INCLUDE files deeper than this are refused.
inline constexpr size_t kMaxLifIncludeDepth = 16;
// Custom attribute numbers index a dense table; larger numbers are refused.
inline constexpr int64_t kMaxCustomAttrNumber = 65535;

using ParamValue = std::variant<std::optional<std::string>, double, Rgb>;

class LifReader {
 public:
  LifReader(const Dataset& dataset, std::string_view layer_name, std::string lif_path,
            bool fallback_description);

  // Processes the lines of the LIF itself.
  void ReadMainText(std::string_view text);
  // The checks after the last line and the layer they allow (or null).
  std::unique_ptr<Layer> Finish(bool read_error);

 private:
  // lif_reader.cpp: lines and keywords.
  void ReadLines(std::string_view text, const ConfigContext& context);
  void ReadLine(std::string_view line, const ConfigContext& context);
  void ApplyNumber(const LifKeyword& keyword, double value, const ConfigContext& context);
  void ApplyToken(const LifKeyword& keyword, std::string value, const ConfigContext& context);
  void ApplyColor(const LifKeyword& keyword, Rgb value);
  void ReadSpecial(const LifKeyword& keyword, std::string_view rest, const ConfigContext& context);
  void ReadTextAnchor(const LifKeyword& keyword, std::string_view rest, const ConfigContext& context);
  void ReadLabelStyle(std::string_view rest, const ConfigContext& context);
  void ReadMarkerType(std::string_view rest, const ConfigContext& context);
  void Include(std::string name, const ConfigContext& context);
  void ReadCustomAttr(std::string_view rest, const ConfigContext& context);
  void ReadAttrMap(std::string_view rest, bool pixel_map, const ConfigContext& context);

  // lif_layer_builder.cpp: checks and construction.
  bool Given(int param) const { return given_[static_cast<size_t>(param)].has_value(); }
  double GivenNumber(int param) const;
  std::optional<std::string> GivenString(int param) const;
  void Drop(int param) { given_[static_cast<size_t>(param)].reset(); }
  void RunChecks(bool* has_tree, std::string* sublif_path);
  std::unique_ptr<Layer> Build(bool has_tree, const std::string& sublif_path);

  void Give(int param, ParamValue value) { given_[static_cast<size_t>(param)] = std::move(value); }
  std::string Resolve(std::string_view name) const;

  const Dataset& dataset_;
  std::string layer_name_;
  std::string lif_path_;
  std::string lif_dir_;
  bool fallback_description_;
  std::vector<std::string> include_stack_;  // normalised paths of the open files

  std::array<std::optional<ParamValue>, kLayerParamCount> given_;
  bool type_given_ = false;
  int64_t layer_type_ = kLayerImage;
  int64_t image_format_ = 0;
  int64_t vector_format_ = 0;
  std::optional<int64_t> num_tiles_x_;
  std::optional<int64_t> num_tiles_y_;
  bool pos_range_ = false;
  std::optional<Rgb> gradient_color_;
  std::optional<std::string> tiles_sublif_;
  std::optional<int64_t> label_style_;
  int64_t marker_background_ = 0;  // BG_EDGE / BG_FILL named by "MARKER ICON TYPE="
  std::vector<CustomAttributeFields> custom_attrs_;
  std::vector<AttributeMapFields> attr_maps_;
  std::vector<AttributeMapFields> pixel_maps_;
  std::optional<AttrConditionList> conditions_;
};

}  // namespace vmp
