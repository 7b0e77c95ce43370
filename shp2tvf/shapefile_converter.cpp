#include <shapefil.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "map_server/tools/replacing_output.h"
#include "map_server/vector/tvf_encode.h"
#include "map_server/vector/tvf_writer.h"
#include "shp2tvf/shape_record.h"
#include "shp2tvf/shp2tvf.h"

namespace vmp {

namespace {

struct ShpCloser {
  void operator()(SHPInfo* h) const { SHPClose(h); }
};
struct DbfCloser {
  void operator()(DBFInfo* h) const { DBFClose(h); }
};
struct ShapeDestroyer {
  void operator()(SHPObject* o) const { SHPDestroyObject(o); }
};
using ShpFile = std::unique_ptr<SHPInfo, ShpCloser>;
using DbfFile = std::unique_ptr<DBFInfo, DbfCloser>;
using Shape = std::unique_ptr<SHPObject, ShapeDestroyer>;

// What a shape becomes.
enum class VmpKind { kPoint, kLine, kSkipMultipoint, kSkipUnknown };

VmpKind KindOfShape(int shape_type) {
  switch (shape_type) {
    case SHPT_POINT:
    case SHPT_POINTZ:
    case SHPT_POINTM:
      return VmpKind::kPoint;
    case SHPT_ARC:
    case SHPT_ARCZ:
    case SHPT_ARCM:
    case SHPT_POLYGON:
    case SHPT_POLYGONZ:
    case SHPT_POLYGONM:
      return VmpKind::kLine;
    case SHPT_MULTIPOINT:
    case SHPT_MULTIPOINTZ:
    case SHPT_MULTIPOINTM:
      return VmpKind::kSkipMultipoint;
    default:
      return VmpKind::kSkipUnknown;
  }
}

bool IsPolygonType(int shape_type) {
  return shape_type == SHPT_POLYGON || shape_type == SHPT_POLYGONZ ||
         shape_type == SHPT_POLYGONM;
}

// The selected fields with their TVF kinds; false (after the message) on a
// field that cannot be selected, which stops the tool.
bool SelectFields(const Shp2TvfRun& run, const std::string& input, DBFHandle table,
                  std::vector<SelectedField>* fields) {
  const Shp2TvfSettings& s = run.settings;
  std::vector<int> columns;
  if (s.selection == AttrSelection::kList) {
    columns = s.attrs;
  } else if (s.selection == AttrSelection::kAll) {
    for (int k = 0; k < DBFGetFieldCount(table); ++k) columns.push_back(k);
  }
  for (int column : columns) {
    char name[XBASE_FLDNAME_LEN_READ + 1] = {};
    const DBFFieldType type = DBFGetFieldInfo(table, column, name, nullptr, nullptr);
    ShapeFieldKind kind;
    switch (type) {
      case FTString:
        kind = ShapeFieldKind::kString;
        break;
      case FTInteger:
      case FTDouble:
        kind = ShapeFieldKind::kNumber;
        break;
      case FTLogical:
        kind = ShapeFieldKind::kLogical;
        break;
      case FTInvalid:
        std::fprintf(run.messages, "%s: Invalid attribute index=%d\n", input.c_str(), column);
        return false;
      default:
        std::fprintf(run.messages, "%s: Unsupported type of attribute with index=%d\n",
                     input.c_str(), column);
        return false;
    }
    if (s.verbose >= 1) {
      std::fprintf(run.messages, "Using <%s> attribute of type %c\n", name,
                   kind == ShapeFieldKind::kString ? 'S' : 'D');
    }
    fields->push_back({column, kind});
  }
  return true;
}

// The marker label field, when one is set, must be a string field of the
// table.
bool CheckLabelField(const Shp2TvfRun& run, const std::string& input, DBFHandle table) {
  const std::optional<int>& label = run.settings.marker_label_attr;
  if (!label) return true;
  if (*label >= DBFGetFieldCount(table)) {
    std::fprintf(run.messages, "%s: Marker label attr index is greater than num shp attrs.\n",
                 input.c_str());
    return false;
  }
  if (DBFGetFieldInfo(table, *label, nullptr, nullptr, nullptr) != FTString) {
    std::fprintf(run.messages, "%s: Marker label attr must be of FTString type!\n",
                 input.c_str());
    return false;
  }
  return true;
}

// Converts the shapes of one opened shapefile into `out`.
class ShapeWriter {
 public:
  ShapeWriter(Shp2TvfRun& run, const std::string& input, SHPHandle shapes, DBFHandle table,
              std::vector<SelectedField> fields, TvfFormat format, bool close_polygons)
      : run_(run),
        input_(input),
        shapes_(shapes),
        table_(table),
        fields_(std::move(fields)),
        format_(format),
        close_(close_polygons) {}

  ConvertStatus WriteAll(FILE* out) {
    int count = 0, type = 0;
    double min_bound[4], max_bound[4];
    SHPGetInfo(shapes_, &count, &type, min_bound, max_bound);
    if (run_.settings.verbose >= 1) {
      std::fprintf(run_.messages, "Shapefile Type: %s   # of Shapes: %d\n\n", SHPTypeName(type),
                   count);
      std::fprintf(run_.messages, "File Bounds: (%lf,%lf) - (%lf,%lf)\n", min_bound[0],
                   min_bound[1], max_bound[0], max_bound[1]);
    }
    for (int i = 0; i < count; ++i) {
      Shape shape(SHPReadObject(shapes_, i));
      if (!shape) {
        std::fprintf(run_.messages, "%s: Can't read shape #%d\n", input_.c_str(), i);
        return ConvertStatus::kFailed;
      }
      record_.clear();
      const ConvertStatus status = WriteShape(*shape, i);
      if (status != ConvertStatus::kOk) return status;
      if (!record_.empty()) std::fwrite(record_.data(), 1, record_.size(), out);
      if (std::ferror(out)) return ConvertStatus::kOk;  // the caller reports the write error
    }
    if (run_.settings.validate) {
      std::fprintf(run_.messages, "%s: %d object has invalid ring ordering\n", input_.c_str(),
                   invalid_shapes_);
    }
    return ConvertStatus::kOk;
  }

 private:
  ConvertStatus WriteShape(const SHPObject& shape, int record) {
    const VmpKind kind = KindOfShape(shape.nSHPType);
    const bool warn = !run_.settings.suppress_warnings;
    switch (kind) {
      case VmpKind::kSkipMultipoint:
        if (warn) std::fputs("Skipping a multipoint\n", run_.messages);
        return ConvertStatus::kOk;
      case VmpKind::kSkipUnknown:
        if (warn) std::fputs("Skipping unknown feature type\n", run_.messages);
        return ConvertStatus::kOk;
      case VmpKind::kPoint:
        if (shape.nVertices < 1) {
          if (warn) std::fputs("Skipping unknown feature type\n", run_.messages);
          return ConvertStatus::kOk;
        }
        ReadShapeAttributes(table_, record, fields_, values_);
        WritePoint(shape, record);
        return ConvertStatus::kOk;
      case VmpKind::kLine:
        ReadShapeAttributes(table_, record, fields_, values_);
        return WriteRings(shape);
    }
    std::fprintf(run_.messages, "%s: Invalid vmp type\n", input_.c_str());
    return ConvertStatus::kFatal;
  }

  void WritePoint(const SHPObject& shape, int record) {
    ShapeHead head;
    head.marker = true;
    if (run_.settings.marker_label_attr) {
      head.marker_type = 1;
      const char* label = DBFReadStringAttribute(table_, record, *run_.settings.marker_label_attr);
      head.label = label != nullptr ? label : "";
    }
    if (run_.settings.verbose >= 2) std::fputs("VmpObject type: marker\n", run_.messages);
    WriteShapeHead(record_, format_, head, values_, input_, run_);
    AppendTvfReal(record_, format_, shape.padfX[0]);
    AppendTvfReal(record_, format_, shape.padfY[0]);
  }

  // One polygon record per part, flags 1 ... 1, 0; closed rings repeat
  // their first point at the end.
  ConvertStatus WriteRings(const SHPObject& shape) {
    const int parts = shape.nParts;
    const int vertices = shape.nVertices;
    starts_.assign(shape.panPartStart, shape.panPartStart + parts);
    int64_t total = 0;
    bool broken = false;
    for (int p = 0; p < parts; ++p) {
      const int start = starts_[p];
      const int end = p + 1 < parts ? starts_[p + 1] : vertices;
      broken = broken || start < 0 || end < start || end > vertices;
      total += end - start;
    }
    if (broken || total != vertices) {
      std::fprintf(run_.messages, "########## %s: Invalid total_points\n", input_.c_str());
      return ConvertStatus::kFatal;
    }
    const bool polygon = IsPolygonType(shape.nSHPType);
    const bool close = close_ && polygon;
    const bool verbose = run_.settings.verbose >= 2;
    if (verbose) {
      std::fprintf(run_.messages, "VmpObject type: %s\n", polygon ? "polygon" : "polyline");
    }
    if (polygon && run_.settings.validate) {
      const int wrong = CountWrongWoundRings(shape.padfX, shape.padfY, vertices, starts_);
      if (wrong > 0) {
        std::fprintf(run_.messages, "%s: %d rings wound in the wrong direction\n",
                     input_.c_str(), wrong);
        ++invalid_shapes_;
      }
    }
    for (int p = 0; p < parts; ++p) {
      const int start = starts_[p];
      const int end = p + 1 < parts ? starts_[p + 1] : vertices;
      const bool closing = close && end > start;
      ShapeHead head;
      head.flag = p + 1 < parts ? 1 : 0;
      head.point_count = end - start + (closing ? 1 : 0);
      if (verbose) {
        std::fprintf(run_.messages, "New ring\nNum Ring Points= %d\n",
                     static_cast<int>(head.point_count));
      }
      WriteShapeHead(record_, format_, head, values_, input_, run_);
      for (int k = start; k < end; ++k) WritePoint(shape.padfX[k], shape.padfY[k], verbose);
      if (closing) WritePoint(shape.padfX[start], shape.padfY[start], verbose);
    }
    return ConvertStatus::kOk;
  }

  void WritePoint(double x, double y, bool verbose) {
    if (verbose) std::fprintf(run_.messages, "%lf %lf\n", x, y);
    AppendTvfReal(record_, format_, x);
    AppendTvfReal(record_, format_, y);
  }

  Shp2TvfRun& run_;
  const std::string& input_;
  SHPHandle shapes_;
  DBFHandle table_;
  std::vector<SelectedField> fields_;
  TvfFormat format_;
  bool close_;
  int invalid_shapes_ = 0;
  // Reused for every shape.
  std::string record_;
  std::vector<ShapeAttributeValue> values_;
  std::vector<int> starts_;
};

}  // namespace

ConvertStatus ConvertShapefile(Shp2TvfRun& run, const std::string& input,
                               const std::string* output_name, FILE* output_stream,
                               bool filter_mode, TvfFormat encoding, bool close_polygons) {
  const Shp2TvfSettings& s = run.settings;
  FILE* messages = run.messages;
  ++run.files;
  if (s.progress == 1) {
    std::fprintf(messages, "Processing shapefile: %s\n", input.c_str());
  } else if (s.progress > 1 && run.files % s.progress == 0) {
    std::fprintf(messages, "Processing shapefile #%lld\n", static_cast<long long>(run.files));
  }

  ShpFile shapes(SHPOpen(input.c_str(), "rb"));
  if (!shapes) {
    std::fprintf(messages, "%s: SHPOpen failed\n", input.c_str());
    return ConvertStatus::kFailed;
  }
  DbfFile table(DBFOpen(input.c_str(), "rb"));
  if (!table) {
    std::fprintf(messages, "%s: DBFOpen failed, is the DBF file missing?\n", input.c_str());
    return ConvertStatus::kFailed;
  }
  if (DBFGetFieldCount(table.get()) > kMaxShapefileAttributes) {
    std::fprintf(messages, "%s: Too many attributes!\n", input.c_str());
    return ConvertStatus::kFatal;
  }
  std::vector<SelectedField> fields;
  if (!SelectFields(run, input, table.get(), &fields) ||
      !CheckLabelField(run, input, table.get())) {
    return ConvertStatus::kFatal;
  }

  // Output: the caller's stream, standard output, or a file that replaces
  // any earlier one only when it is complete.
  ReplacingOutput file;
  FILE* out = output_stream != nullptr ? output_stream : filter_mode ? run.filter_output : nullptr;
  const std::string out_name = output_name != nullptr ? *output_name : input;
  if (out == nullptr) {
    if (output_name == nullptr || !file.Open(*output_name)) {
      std::fprintf(messages, "%s: Can't open file for writing.\n", out_name.c_str());
      return ConvertStatus::kFailed;
    }
    out = file.get();
  }
  WriteTvfHeader(out, encoding);

  ShapeWriter writer(run, input, shapes.get(), table.get(), std::move(fields), encoding,
                     close_polygons);
  const ConvertStatus status = writer.WriteAll(out);
  shapes.reset();
  table.reset();
  if (status != ConvertStatus::kOk) return status;

  const bool written = file.is_open() ? file.Commit()
                                      : std::fflush(out) == 0 && std::ferror(out) == 0;
  if (!written) {
    std::fprintf(messages, "Errors writing TVF file: %s\n", out_name.c_str());
    return output_stream != nullptr ? ConvertStatus::kFailed : ConvertStatus::kFatal;
  }
  return ConvertStatus::kOk;
}

bool ConvertShapefile(const std::string& input, FILE* output_stream, TvfFormat encoding) {
  Shp2TvfRun run;
  return ConvertShapefile(run, input, nullptr, output_stream, false, encoding, false) ==
         ConvertStatus::kOk;
}

}  // namespace vmp
