#include "map_server/service/ogc_request.h"

namespace vmp {

const MapSetting* ParsedRequest::Find(std::string_view name) const {
  for (auto it = settings.rbegin(); it != settings.rend(); ++it) {
    if (it->name == name) return &*it;
  }
  return nullptr;
}

std::optional<double> ParsedRequest::Number(std::string_view name) const {
  const MapSetting* s = Find(name);
  if (s == nullptr || !std::holds_alternative<double>(s->value)) return std::nullopt;
  return std::get<double>(s->value);
}

std::optional<std::string> ParsedRequest::Text(std::string_view name) const {
  const MapSetting* s = Find(name);
  if (s == nullptr || !std::holds_alternative<std::string>(s->value)) return std::nullopt;
  return std::get<std::string>(s->value);
}

}  // namespace vmp
