#include "shp2tvf/shape_record.h"

#include <cstdlib>

#include "map_server/vector/tvf_encode.h"

namespace vmp {

namespace {

constexpr int64_t kRecordMarker = 7;

}  // namespace

double ReadShapeNumber(const char* text, bool* unreadable) {
  char* end = nullptr;
  const double value = std::strtod(text, &end);
  *unreadable = end == text;
  return *unreadable ? -1.0 : value;
}

void ReadShapeAttributes(DBFHandle table, int record, const std::vector<SelectedField>& fields,
                         std::vector<ShapeAttributeValue>& values) {
  values.resize(fields.size());
  for (size_t k = 0; k < fields.size(); ++k) {
    ShapeAttributeValue& v = values[k];
    v.kind = fields[k].kind;
    const char* text = DBFReadStringAttribute(table, record, fields[k].field);
    v.text = text != nullptr ? text : "";
    v.unreadable = false;
    switch (v.kind) {
      case ShapeFieldKind::kString:
        v.number = 0.0;
        break;
      case ShapeFieldKind::kNumber:
        v.number = ReadShapeNumber(v.text.c_str(), &v.unreadable);
        break;
      case ShapeFieldKind::kLogical: {
        const char c = v.text.empty() ? '\0' : v.text[0];
        v.number = (c == 'T' || c == 't' || c == 'Y' || c == 'y') ? 1.0 : 0.0;
        break;
      }
    }
  }
}

void WriteShapeHead(std::string& record, TvfFormat format, const ShapeHead& head,
                    const std::vector<ShapeAttributeValue>& values, const std::string& file,
                    const Shp2TvfRun& run) {
  if (format == TvfFormat::kAscii) record += "\r\n";
  AppendTvfInteger(record, format, kRecordMarker);
  if (head.marker) {
    AppendTvfInteger(record, format, 1);
    AppendTvfInteger(record, format, head.marker_type);
    if (head.marker_type == 1) AppendTvfString(record, format, std::string_view(head.label));
    AppendTvfInteger(record, format, static_cast<int64_t>(values.size()));
  } else {
    AppendTvfInteger(record, format, 0);
    AppendTvfInteger(record, format, head.flag);
    AppendTvfInteger(record, format, head.point_count);
    AppendTvfInteger(record, format, static_cast<int64_t>(values.size()));
  }
  for (size_t k = 0; k < values.size(); ++k) {
    const ShapeAttributeValue& v = values[k];
    const bool string = v.kind == ShapeFieldKind::kString;
    if (run.settings.verbose >= 2) {
      std::fprintf(run.messages, "Attribute type: %c value: %s\n", string ? 's' : 'd',
                   v.text.c_str());
    }
    AppendTvfInteger(record, format, static_cast<int64_t>(k));
    AppendTvfInteger(record, format,
                     static_cast<int64_t>(string ? ValueType::kString : ValueType::kDouble));
    if (string) {
      AppendTvfString(record, format, std::string_view(v.text));
      continue;
    }
    if (v.unreadable) {
      std::fprintf(run.messages, "%s: Can't convert attribute value <%s> to double, using -1000.\n",
                   file.c_str(), v.text.c_str());
    }
    AppendTvfReal(record, format, v.number);
  }
}

}  // namespace vmp
