#include "map_server/dataset/resource_group.h"

#include "toolkit/message_log.h"

namespace vmp {

ResourceKind ResourceKindOf(int param_type) {
  switch (param_type) {
    case kParamString: return ResourceKind::kString;
    case kParamColor: return ResourceKind::kColor;
    default: return ResourceKind::kNumber;
  }
}

const Resource* ResourceGroup::Find(std::string_view name) const {
  // Groups hold about a hundred resources and are read once per conversion;
  // a linear search keeps their creation order without an index to maintain.
  for (const Resource& r : resources_) {
    if (r.name == name) return &r;
  }
  return nullptr;
}

Resource* ResourceGroup::FindOrCreate(std::string_view name, ResourceKind kind) {
  for (Resource& r : resources_) {
    if (r.name != name) continue;
    if (r.kind != kind) {
      Report(kInternalError, "Resource set with the wrong kind", name);
      return nullptr;
    }
    return &r;
  }
  Resource& created = resources_.emplace_back();
  created.name = std::string(name);
  created.kind = kind;
  return &created;
}

bool ResourceGroup::SetString(std::string_view name, std::optional<std::string> value) {
  Resource* r = FindOrCreate(name, ResourceKind::kString);
  if (r == nullptr) return false;
  r->text = std::move(value);
  return true;
}

bool ResourceGroup::SetNumber(std::string_view name, double value) {
  Resource* r = FindOrCreate(name, ResourceKind::kNumber);
  if (r == nullptr) return false;
  r->number = value;
  return true;
}

bool ResourceGroup::SetColor(std::string_view name, Rgb value) {
  Resource* r = FindOrCreate(name, ResourceKind::kColor);
  if (r == nullptr) return false;
  r->color = value;
  return true;
}

std::optional<std::optional<std::string>> ResourceGroup::GetString(std::string_view name) const {
  const Resource* r = Find(name);
  if (r == nullptr || r->kind != ResourceKind::kString) return std::nullopt;
  return r->text;
}

std::optional<double> ResourceGroup::GetNumber(std::string_view name) const {
  const Resource* r = Find(name);
  if (r == nullptr || r->kind != ResourceKind::kNumber) return std::nullopt;
  return r->number;
}

std::optional<Rgb> ResourceGroup::GetColor(std::string_view name) const {
  const Resource* r = Find(name);
  if (r == nullptr || r->kind != ResourceKind::kColor) return std::nullopt;
  return r->color;
}

void ResourceGroup::CreateFromTable(std::span<const ParamEntry> table) {
  for (const ParamEntry& entry : table) {
    switch (entry.type) {
      case kParamString:
        SetString(entry.name, entry.string_default ? std::optional<std::string>(entry.string_default)
                                                   : std::nullopt);
        break;
      case kParamColor: SetColor(entry.name, entry.color_default); break;
      case kParamReal: SetNumber(entry.name, entry.real_default); break;
      case kParamInteger: SetNumber(entry.name, entry.integer_default); break;
      case kParamEnum: SetNumber(entry.name, static_cast<double>(entry.enum_default)); break;
      default: Report(kError, "Invalid data type", entry.name); break;
    }
  }
}

}  // namespace vmp
