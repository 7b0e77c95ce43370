// The in-memory form of a TVF vector file: polygon (and polyline) features
// and marker features, each with numbered, typed attributes.
//
// A VectorData owns its features (in file order). Every feature owns its
// attribute entries, the index map from attribute number to entry, and its
// geometry. Loading (tvf_reader.h) produces a VectorData; the tools build
// features themselves and hand them to the writers (tvf_writer.h).
//
// Reading attributes: `feature.FindAttribute(n)` gives the entry with
// attribute number n through the index map, or null. Attribute conditions
// and layer custom attributes go through GetFeatureAttribute (attr_match.h).
//
// Iterating:
//   for (const auto& f : data.features) {
//     if (const PolygonFeature* p = f->AsPolygon()) { ... p->points ... }
//     else if (const MarkerFeature* m = f->AsMarker()) { ... m->x, m->y ... }
//   }
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "map_server/vector/typed_value.h"

namespace vmp {

// File constants: magic number, the version this code writes (and the
// highest it reads), and the two encodings of the save-format field.
inline constexpr int64_t kTvfMagic = 0x69c;
inline constexpr int64_t kTvfVersion = 2;
enum class TvfFormat : int64_t { kAscii = 0, kBinary = 1 };

// Longest label or S value a file may hold.
inline constexpr int64_t kTvfMaxStringLength = 1024;
// Largest attribute number the reader accepts. Attribute numbers are column
// numbers of the source table, so real files stay far below; the bound
// keeps a corrupt number from sizing an index map of gigabytes.
inline constexpr int64_t kTvfMaxAttributeIndex = 65535;

enum class FeatureKind : uint8_t { kPolygon = 0, kMarker = 1 };

// Marker types: plain marker, marker with label, marker with label and
// placement values.
enum class MarkerType : uint32_t { kPlain = 0, kLabeled = 1, kPlaced = 2 };

// One attribute of a feature: its number (shared across the file, the n-th
// column of the source table) and its typed value (S, D or G).
struct Attribute {
  int64_t index = 0;
  TypedValue value;
};

class PolygonFeature;
class MarkerFeature;

// Common head of both feature kinds.
class Feature {
 public:
  virtual ~Feature() = default;
  // A deep copy of the feature, of its own kind.
  virtual std::unique_ptr<Feature> Clone() const = 0;

  FeatureKind kind() const { return kind_; }
  bool IsPolygon() const { return kind_ == FeatureKind::kPolygon; }
  bool IsMarker() const { return kind_ == FeatureKind::kMarker; }
  PolygonFeature* AsPolygon();
  const PolygonFeature* AsPolygon() const;
  MarkerFeature* AsMarker();
  const MarkerFeature* AsMarker() const;

  // The entry for attribute number `index`, or null when the feature has
  // none (negative, above max_attr_index, or a hole in the index map).
  const Attribute* FindAttribute(int64_t index) const;
  Attribute* FindAttribute(int64_t index);

  // Appends an attribute and updates the index map and max_attr_index
  // (a repeated number then maps to the new entry). `index` must be >= 0.
  void AddAttribute(int64_t index, TypedValue value);
  // Rebuilds index_map and max_attr_index from `attributes` (after editing
  // the attributes array directly).
  void RebuildIndexMap();

  int64_t AttributeCount() const { return static_cast<int64_t>(attributes.size()); }

  // Attribute entries in file order.
  std::vector<Attribute> attributes;
  // index_map[n] is the position in `attributes` of attribute number n, or
  // -1. Its size is max_attr_index + 1; empty when there are no attributes.
  std::vector<int64_t> index_map;
  // Largest attribute number of this feature (0 when it has none above 0).
  int64_t max_attr_index = 0;
  bool valid = true;
  // Polygon: continuation flag (non-zero joins the current polygon group).
  // Marker: placement flag (marker type 2).
  int8_t flag = 0;

 protected:
  explicit Feature(FeatureKind kind) : kind_(kind) {}
  // Copies only through the concrete kinds (no slicing).
  Feature(const Feature&) = default;
  Feature& operator=(const Feature&) = default;

 private:
  FeatureKind kind_;
};

// One point of a polygon. `w` is a working value for drawing code; files
// do not carry it and the loader leaves it 0.
struct PolygonPoint {
  double x = 0.0;
  double y = 0.0;
  double w = 0.0;
};

// Bounds as the loader keeps them for polygons.
struct PolygonBox {
  double min_x = 0.0;
  double min_y = 0.0;
  double max_x = 0.0;
  double max_y = 0.0;
};

// A polygon or polyline (the file does not distinguish them).
class PolygonFeature : public Feature {
 public:
  PolygonFeature() : Feature(FeatureKind::kPolygon) {}
  std::unique_ptr<Feature> Clone() const override;

  // The N points of the feature. The loader reserves one spare slot, so
  // closing or clipping code may append one point without reallocating.
  std::vector<PolygonPoint> points;
  // Bounding box of the points; for the head of a polygon group (the first
  // polygon with a non-zero continuation flag) it is widened to cover every
  // member of the group.
  PolygonBox box;
  // max(box width, box height).
  double extent = 0.0;

  int64_t PointCount() const { return static_cast<int64_t>(points.size()); }
  // Recomputes box and extent from the points (all zero without points).
  void ComputeBounds();
  // Widens the box to cover `other` and recomputes the extent.
  void WidenBox(const PolygonBox& other);
};

class MarkerFeature : public Feature {
 public:
  MarkerFeature() : Feature(FeatureKind::kMarker) {}
  std::unique_ptr<Feature> Clone() const override;

  // Stored as read; the reader only accepts 0..2.
  uint32_t marker_type = 0;
  // The label of marker types 1 and 2 (nullopt: no label).
  std::optional<std::string> label;
  double x = 0.0;
  double y = 0.0;
  // Placement values of marker type 2 (their placement flag is `flag`).
  double placement1 = 0.0;
  double placement2 = 0.0;
};

// A loaded TVF file.
struct VectorData {
  // All features in file order ("Features").
  std::vector<std::unique_ptr<Feature>> features;
  int64_t polygon_count = 0;
  int64_t marker_count = 0;
  // Largest attribute number in the whole file (0 without attributes).
  int64_t max_attr_index = 0;
  // Header values of the file read (informational).
  int64_t version = kTvfVersion;
  TvfFormat format = TvfFormat::kAscii;
  // Both set when a load starts; `loading` is cleared when the record loop
  // ends, `error` only when the load succeeds.
  bool loading = false;
  bool error = false;
  // Loaded without the features' attributes (TvfAttributes::kSkip).
  bool attributes_skipped = false;

  // Appends a feature and updates the counts and max_attr_index.
  void AddFeature(std::unique_ptr<Feature> feature);
  int64_t FeatureCount() const { return static_cast<int64_t>(features.size()); }
  // Empties the object (features, counts, flags).
  void Clear();
};

}  // namespace vmp
