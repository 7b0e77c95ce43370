#include "map_server/vector/tvf_writer.h"

#include <cinttypes>
#include <cstring>

#include "map_server/vector/tvf_encode.h"

#include "toolkit/global_config.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr int64_t kRecordMarker = 7;

bool KnownType(ValueType type) {
  return type == ValueType::kString || type == ValueType::kDouble || type == ValueType::kGeo;
}

void AppendAttributes(std::string& record, TvfFormat format, const Feature& feature) {
  for (const Attribute& a : feature.attributes) {
    if (!KnownType(a.value.type)) {
      std::fputs("Unsupported data type\n", stderr);
      continue;
    }
    AppendTvfInteger(record, format, a.index);
    AppendTvfInteger(record, format, static_cast<int64_t>(a.value.type));
    switch (a.value.type) {
      case ValueType::kString:
        AppendTvfString(record, format, a.value.text);
        break;
      case ValueType::kDouble:
        AppendTvfReal(record, format, a.value.numbers[0]);
        break;
      default:
        for (double d : a.value.numbers) AppendTvfReal(record, format, d);
        break;
    }
  }
}

int64_t WrittenAttributeCount(const Feature& feature) {
  int64_t count = 0;
  for (const Attribute& a : feature.attributes) count += KnownType(a.value.type) ? 1 : 0;
  return count;
}

void AppendRecordPrefix(std::string& record, TvfFormat format, int64_t object_type) {
  if (format == TvfFormat::kAscii) record += "\r\n";
  AppendTvfInteger(record, format, kRecordMarker);
  AppendTvfInteger(record, format, object_type);
}

bool WriteBytes(FILE* out, const std::string& bytes) {
  if (!bytes.empty()) std::fwrite(bytes.data(), 1, bytes.size(), out);
  return !std::ferror(out);
}

}  // namespace

TvfFormat CurrentTvfOutputFormat() {
  return kav::Config().binary_save ? TvfFormat::kBinary : TvfFormat::kAscii;
}

TvfOutput OpenTvfOutput(const std::string& file_name) {
  TvfOutput out(std::fopen(file_name.c_str(), "wb"));
  if (!out) {
    Report(kError, "Could not open output file", file_name);
    return nullptr;
  }
  WriteTvfHeader(out.get(), CurrentTvfOutputFormat());
  return out;
}

bool CloseTvfOutput(TvfOutput output) {
  if (!output) return false;
  bool ok = std::fflush(output.get()) == 0 && !std::ferror(output.get());
  return std::fclose(output.release()) == 0 && ok;
}

bool WriteTvfHeader(FILE* out, TvfFormat format) {
  std::fprintf(out, "%lx %lx %lx ", static_cast<unsigned long>(kTvfMagic),
               static_cast<unsigned long>(kTvfVersion), static_cast<unsigned long>(format));
  return !std::ferror(out);
}

bool WriteTvfString(FILE* out, TvfFormat format, const std::optional<std::string>& text) {
  std::string bytes;
  AppendTvfString(bytes, format, text);
  return WriteBytes(out, bytes);
}

bool WriteTvfFeature(FILE* out, TvfFormat format, const Feature& feature) {
  // The record is built in memory and written with one call.
  std::string record;
  if (const PolygonFeature* polygon = feature.AsPolygon()) {
    record.reserve(64 + static_cast<size_t>(polygon->PointCount()) *
                            (format == TvfFormat::kBinary ? 16 : 24));
    AppendRecordPrefix(record, format, 0);
    AppendTvfInteger(record, format, feature.flag);
    AppendTvfInteger(record, format, polygon->PointCount());
    AppendTvfInteger(record, format, WrittenAttributeCount(feature));
    AppendAttributes(record, format, feature);
    for (const PolygonPoint& p : polygon->points) {
      AppendTvfReal(record, format, p.x);
      AppendTvfReal(record, format, p.y);
    }
  } else if (const MarkerFeature* marker = feature.AsMarker()) {
    AppendRecordPrefix(record, format, 1);
    AppendTvfInteger(record, format, marker->marker_type);
    if (marker->marker_type > 2) {
      std::fputs("Unsupported marker type\n", stderr);
    } else {
      if (marker->marker_type == 2) {
        AppendTvfReal(record, format, marker->placement1);
        AppendTvfReal(record, format, marker->placement2);
        AppendTvfInteger(record, format, feature.flag);
      }
      if (marker->marker_type >= 1) AppendTvfString(record, format, marker->label);
    }
    AppendTvfInteger(record, format, WrittenAttributeCount(feature));
    AppendAttributes(record, format, feature);
    AppendTvfReal(record, format, marker->x);
    AppendTvfReal(record, format, marker->y);
  }
  return WriteBytes(out, record);
}

}  // namespace vmp
