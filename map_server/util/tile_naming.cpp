#include "map_server/util/tile_naming.h"

namespace vmp {

std::string ExpandTileTemplate(std::string_view name_template, int64_t number) {
  const std::string digits = std::to_string(number);
  std::string name(name_template);
  const size_t percent = name.find('%');
  if (percent == std::string::npos) return name + digits;
  name.replace(percent, 1, digits);
  return name;
}

std::string ExpandTileName(std::string_view name_template, int64_t column, int64_t row) {
  return ExpandTileTemplate(ExpandTileTemplate(name_template, column), row);
}

}  // namespace vmp
