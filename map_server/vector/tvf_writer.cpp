#include "map_server/vector/tvf_writer.h"

#include <cinttypes>
#include <cstring>

#include "toolkit/global_config.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr int64_t kRecordMarker = 7;

void WriteBinaryInteger(FILE* out, int64_t value) {
  unsigned char bytes[8];
  uint64_t bits = static_cast<uint64_t>(value);
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<unsigned char>(bits >> (8 * i));
  std::fwrite(bytes, 1, 8, out);
}

void WriteBinaryReal(FILE* out, double value) {
  int64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  WriteBinaryInteger(out, bits);
}

void WriteInteger(FILE* out, TvfFormat format, int64_t value) {
  if (format == TvfFormat::kBinary) WriteBinaryInteger(out, value);
  else std::fprintf(out, "%lx ", static_cast<unsigned long>(value));
}

void WriteReal(FILE* out, TvfFormat format, double value) {
  if (format == TvfFormat::kBinary) WriteBinaryReal(out, value);
  else std::fprintf(out, "%lf ", value);
}

bool KnownType(ValueType type) {
  return type == ValueType::kString || type == ValueType::kDouble || type == ValueType::kGeo;
}

void WriteAttributes(FILE* out, TvfFormat format, const Feature& feature) {
  for (const Attribute& a : feature.attributes) {
    if (!KnownType(a.value.type)) {
      std::fputs("Unsupported data type\n", stderr);
      continue;
    }
    WriteInteger(out, format, a.index);
    WriteInteger(out, format, static_cast<int64_t>(a.value.type));
    switch (a.value.type) {
      case ValueType::kString:
        WriteTvfString(out, format, a.value.text);
        break;
      case ValueType::kDouble:
        WriteReal(out, format, a.value.numbers[0]);
        break;
      default:
        for (double d : a.value.numbers) WriteReal(out, format, d);
        break;
    }
  }
}

int64_t WrittenAttributeCount(const Feature& feature) {
  int64_t count = 0;
  for (const Attribute& a : feature.attributes) count += KnownType(a.value.type) ? 1 : 0;
  return count;
}

void WriteRecordPrefix(FILE* out, TvfFormat format, int64_t object_type) {
  if (format == TvfFormat::kAscii) std::fputs("\r\n", out);
  WriteInteger(out, format, kRecordMarker);
  WriteInteger(out, format, object_type);
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
  if (!text) {
    if (format == TvfFormat::kBinary) WriteBinaryInteger(out, -1);
    else std::fputs("-1 ", out);
    return !std::ferror(out);
  }
  // Strings end at their first NUL, as the reader will see them.
  size_t length = std::strlen(text->c_str());
  WriteInteger(out, format, static_cast<int64_t>(length));
  std::fwrite(text->c_str(), 1, length + 1, out);
  if (format == TvfFormat::kAscii) std::fputc(' ', out);
  return !std::ferror(out);
}

bool WriteTvfFeature(FILE* out, TvfFormat format, const Feature& feature) {
  if (const PolygonFeature* polygon = feature.AsPolygon()) {
    WriteRecordPrefix(out, format, 0);
    WriteInteger(out, format, feature.flag);
    WriteInteger(out, format, polygon->PointCount());
    WriteInteger(out, format, WrittenAttributeCount(feature));
    WriteAttributes(out, format, feature);
    for (const PolygonPoint& p : polygon->points) {
      WriteReal(out, format, p.x);
      WriteReal(out, format, p.y);
    }
  } else if (const MarkerFeature* marker = feature.AsMarker()) {
    WriteRecordPrefix(out, format, 1);
    WriteInteger(out, format, marker->marker_type);
    if (marker->marker_type > 2) {
      std::fputs("Unsupported marker type\n", stderr);
    } else {
      if (marker->marker_type == 2) {
        WriteReal(out, format, marker->placement1);
        WriteReal(out, format, marker->placement2);
        WriteInteger(out, format, feature.flag);
      }
      if (marker->marker_type >= 1) WriteTvfString(out, format, marker->label);
    }
    WriteInteger(out, format, WrittenAttributeCount(feature));
    WriteAttributes(out, format, feature);
    WriteReal(out, format, marker->x);
    WriteReal(out, format, marker->y);
  }
  return !std::ferror(out);
}

}  // namespace vmp
