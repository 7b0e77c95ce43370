// One shapefile record in TVF form: the selected table fields with their
// TVF types, the values of one record, and the record head that
// WriteShapeHead puts in front of them.
#pragma once

#include <shapefil.h>

#include <cstdint>
#include <string>
#include <vector>

#include "map_server/vector/vector_data.h"
#include "shp2tvf/shp2tvf.h"

namespace vmp {

// How a table field is written: string fields as S, integer and double
// fields as D, logical fields as D 1.0 or 0.0.
enum class ShapeFieldKind { kString, kNumber, kLogical };

struct SelectedField {
  int field;  // column of the table; its TVF attribute index is its place in the selection
  ShapeFieldKind kind;
};

// A field's value in one record.
struct ShapeAttributeValue {
  ShapeFieldKind kind = ShapeFieldKind::kString;
  std::string text;         // the field as text
  double number = 0.0;      // kNumber and kLogical
  bool unreadable = false;  // kNumber whose text is not a number (written as -1.0)
};

// Reads the selected fields of table record `record` into `values`.
void ReadShapeAttributes(DBFHandle table, int record, const std::vector<SelectedField>& fields,
                         std::vector<ShapeAttributeValue>& values);

// The value a number field's text gives: the text read as a real, or -1.0
// (and `unreadable`) when it cannot be read.
double ReadShapeNumber(const char* text, bool* unreadable);

// A record head: a polygon record (continuation flag and point count) or a
// marker (type 0, or 1 with a label).
struct ShapeHead {
  bool marker = false;
  int64_t flag = 0;
  int64_t point_count = 0;
  int64_t marker_type = 0;
  std::string label;
};

// Appends the record head and one attribute entry per value (TVF index k
// for the k-th value) to `record`. For each unreadable number prints
// "<file>: Can't convert attribute value <text> to double, using -1000.";
// at verbose level 2 and above one "Attribute type:" line per value.
void WriteShapeHead(std::string& record, TvfFormat format, const ShapeHead& head,
                    const std::vector<ShapeAttributeValue>& values, const std::string& file,
                    const Shp2TvfRun& run);

// Rings of a polygon shape wound against the shapefile rule: a ring inside
// an even number of the shape's other rings (an outer ring) must run
// clockwise, one inside an odd number (a hole) counter-clockwise. Rings
// without area are not counted. `part_starts` holds each ring's first
// vertex; the last ring ends at the vertex count.
int CountWrongWoundRings(const double* x, const double* y, int vertex_count,
                         const std::vector<int>& part_starts);

}  // namespace vmp
