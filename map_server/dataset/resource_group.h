// The object engine: named groups of named resources. Every configured
// object (dataset, map request, layer) keeps its parameters as resources so
// that request strings and configuration keywords can set them by name;
// before use they are converted into the object's typed record.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "map_server/dataset/param_tables.h"

namespace vmp {

enum class ResourceKind { kString, kNumber, kColor };

struct Resource {
  std::string name;
  ResourceKind kind = ResourceKind::kNumber;
  std::optional<std::string> text;  // kString; nullopt is "no string"
  double number = 0.0;              // kNumber
  Rgb color;                        // kColor, components 0..1
};

// The resource kind a parameter type becomes: types 1 and 3 a string and a
// colour resource, types 2, 4 and 5 a number.
ResourceKind ResourceKindOf(int param_type);

class ResourceGroup {
 public:
  explicit ResourceGroup(std::string name) : name_(std::move(name)) {}

  const std::string& name() const { return name_; }
  const std::vector<Resource>& resources() const { return resources_; }

  const Resource* Find(std::string_view name) const;

  // Each setter creates the resource when it is missing. Setting a resource
  // that exists with another kind is a programming fault: it is reported as
  // an internal error and nothing changes.
  bool SetString(std::string_view name, std::optional<std::string> value);
  bool SetNumber(std::string_view name, double value);
  bool SetColor(std::string_view name, Rgb value);

  // Typed reads; nullopt when missing or of another kind. GetString's inner
  // optional is the "no string" value.
  std::optional<std::optional<std::string>> GetString(std::string_view name) const;
  std::optional<double> GetNumber(std::string_view name) const;
  std::optional<Rgb> GetColor(std::string_view name) const;

  // Creates one resource per table entry with the entry's default.
  void CreateFromTable(std::span<const ParamEntry> table);

 private:
  Resource* FindOrCreate(std::string_view name, ResourceKind kind);

  std::string name_;
  std::vector<Resource> resources_;
};

}  // namespace vmp
