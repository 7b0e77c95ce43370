#include "map_server/vector/tvf_reader.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstring>
#include <memory>

#include "map_server/vector/c_real_scan.h"
#include "shp2tvf/shp2tvf.h"
#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

// Arrays sized from a count in a stream of unknown length (a pipe) are
// reserved up to this many elements at once and grow beyond as data comes.
constexpr uint64_t kUnknownSourceReserve = uint64_t{1} << 16;
// Fewest bytes one point or one attribute entry takes in each encoding
// (ASCII "0 0 " and "0 2 0 "; BINARY two and three 8-byte fields).
constexpr uint64_t kMinAsciiPointBytes = 4;
constexpr uint64_t kMinBinaryPointBytes = 16;
constexpr uint64_t kMinAsciiAttributeBytes = 6;
constexpr uint64_t kMinBinaryAttributeBytes = 24;
// The record marker that starts every record.
constexpr int64_t kRecordMarker = 7;

struct FileCloser {
  void operator()(FILE* f) const { std::fclose(f); }
};
struct PipeCloser {
  void operator()(FILE* f) const { pclose(f); }
};

int HexValue(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsNumberTerminator(int c) {
  return c == TvfInput::kEnd || c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// "%lx": sign, optional "0x", hexadecimal digits; saturates on overflow
// like the C library does.
bool ReadHex(TvfInput& in, int64_t* out) {
  in.SkipSpace();
  int c = in.Peek();
  bool negative = false;
  if (c == '+' || c == '-') {
    negative = c == '-';
    in.Advance();
    c = in.Peek();
  }
  uint64_t value = 0;
  bool digits = false;
  bool overflow = false;
  if (c == '0') {
    digits = true;
    in.Advance();
    c = in.Peek();
    if (c == 'x' || c == 'X') {
      in.Advance();
      c = in.Peek();
    }
  }
  for (int d = HexValue(c); d >= 0; d = HexValue(c)) {
    if (value > (UINT64_MAX >> 4)) overflow = true;
    value = (value << 4) | static_cast<uint64_t>(d);
    digits = true;
    in.Advance();
    c = in.Peek();
  }
  if (!digits) return false;
  if (overflow) value = UINT64_MAX;
  else if (negative) value = ~value + 1;
  *out = static_cast<int64_t>(value);
  return true;
}

bool ReadLittleEndian(TvfInput& in, uint64_t* out) {
  uint64_t value;
  if (in.Read(&value, 8) != 8) return false;
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  *out = value;
  return true;
}

bool ReadBinaryDouble(TvfInput& in, double* out) {
  uint64_t bits;
  if (!ReadLittleEndian(in, &bits)) return false;
  std::memcpy(out, &bits, sizeof bits);
  return true;
}

// A little-endian 8-byte field at `p`: an integer, or a real.
int64_t LoadField(const char* p) {
  uint64_t value;
  std::memcpy(&value, p, 8);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  return static_cast<int64_t>(value);
}
double LoadReal(const char* p) { return std::bit_cast<double>(LoadField(p)); }

// Binary points read from the buffer at once (16 bytes each).
constexpr int64_t kPointChunk = 4096;

// How many elements of `min_bytes` each to reserve for a declared count:
// all of them when the input can hold them, else as many as it can.
size_t PlausibleCount(uint64_t declared, uint64_t min_bytes, const TvfInput& in) {
  std::optional<uint64_t> remaining = in.RemainingBytes();
  uint64_t limit = remaining ? *remaining / min_bytes + 1 : kUnknownSourceReserve;
  return static_cast<size_t>(std::min(declared, limit));
}

// Reads the records of one file; owns the per-load state and messages.
class TvfRecordReader {
 public:
  TvfRecordReader(TvfInput& in, const std::string& name, VectorData& data, bool quiet,
                  bool keep_attributes)
      : in_(in), name_(name), data_(data), quiet_(quiet), keep_attributes_(keep_attributes) {}

  bool ReadHeader();
  bool ReadRecords();

 private:
  void Fail(const char* message) {
    if (!quiet_) Report(kError, message, name_);
  }
  bool ReadInteger(int64_t* out) { return ReadTvfInteger(in_, format_, out); }
  bool ReadPoint(double* x, double* y) {
    if (format_ == TvfFormat::kBinary) return ReadBinaryDouble(in_, x) && ReadBinaryDouble(in_, y);
    return ParseTvfNumber(in_, x) && ParseTvfNumber(in_, y);
  }
  bool ReadPolygon();
  bool ReadMarker();
  bool ReadAttributes(Feature& feature, int64_t count);
  bool SkipAttributes(int64_t count);
  void JoinGroup(PolygonFeature* polygon);

  TvfInput& in_;
  const std::string& name_;
  VectorData& data_;
  bool quiet_;
  bool keep_attributes_;
  TvfFormat format_ = TvfFormat::kAscii;
  int64_t version_ = kTvfVersion;
  PolygonFeature* group_head_ = nullptr;  // head of the open polygon group
};

bool TvfRecordReader::ReadHeader() {
  int64_t magic = 0, version = 0, format = 0;
  const char* problem = nullptr;
  if (!ReadHex(in_, &magic) || magic != kTvfMagic) {
    problem = "File Specified is not a valid TVF file";
  } else if (!ReadHex(in_, &version) || static_cast<uint64_t>(version) > kTvfVersion) {
    problem = "The version number could not be read or is greater than version of the software";
  } else if (!ReadHex(in_, &format) || (format != 0 && format != 1)) {
    problem = "Unknown save format: only ASCII and BINARY are supported.";
  }
  if (problem != nullptr) {
    Report(kError, problem, name_);
    Fail("Invalid header in TVF data file");
    return false;
  }
  version_ = version;
  format_ = static_cast<TvfFormat>(format);
  data_.version = version_;
  data_.format = format_;
  if (format_ == TvfFormat::kBinary) in_.Skip(1);  // the blank that ends the header
  return true;
}

bool TvfRecordReader::ReadRecords() {
  for (;;) {
    int64_t marker = 0, type = 0;
    if (format_ == TvfFormat::kAscii) {
      in_.SkipSpace();
      if (in_.AtEnd() && !in_.Failed()) return true;
      if (!ReadHex(in_, &marker) || marker != kRecordMarker) return false;
      if (!ReadHex(in_, &type)) return false;
    } else {
      if (in_.AtEnd() && !in_.Failed()) return true;
      // The marker is read but not compared in this encoding.
      if (!ReadTvfInteger(in_, format_, &marker) || !ReadTvfInteger(in_, format_, &type)) {
        return false;
      }
    }
    bool ok;
    if (type == 0) {
      ok = ReadPolygon();
    } else if (type == 1) {
      ok = ReadMarker();
    } else {
      Fail("Unkown object type");
      ok = false;
    }
    if (!ok) return false;
  }
}

bool TvfRecordReader::ReadPolygon() {
  int64_t flag = 0, point_count = 0, attribute_count = 0;
  if (version_ >= 2 && !ReadInteger(&flag)) return false;
  if (!ReadInteger(&point_count) || !ReadInteger(&attribute_count)) return false;
  if (point_count < 0) {
    Fail("Error reading polygon points");
    return false;
  }
  auto polygon = std::make_unique<PolygonFeature>();
  polygon->flag = static_cast<int8_t>(flag);
  if (!ReadAttributes(*polygon, attribute_count)) return false;

  uint64_t min_bytes = format_ == TvfFormat::kBinary ? kMinBinaryPointBytes : kMinAsciiPointBytes;
  std::vector<PolygonPoint>& points = polygon->points;
  points.reserve(PlausibleCount(static_cast<uint64_t>(point_count), min_bytes, in_) + 1);
  PolygonBox& box = polygon->box;
  auto add = [&](int64_t i, double x, double y) {
    if (i == 0) {
      box = {x, y, x, y};
    } else {
      if (x < box.min_x) box.min_x = x;
      if (y < box.min_y) box.min_y = y;
      if (x > box.max_x) box.max_x = x;
      if (y > box.max_y) box.max_y = y;
    }
    points.push_back({x, y, 0.0});
  };
  int64_t i = 0;
  if (format_ == TvfFormat::kBinary) {
    // Straight from the input's buffer, a chunk of points at a time; what
    // the buffer cannot hold in one piece goes through the field reader.
    while (i < point_count) {
      const int64_t chunk = std::min<int64_t>(point_count - i, kPointChunk);
      const char* p = in_.Contiguous(static_cast<size_t>(chunk) * 16);
      if (p == nullptr) break;
      for (int64_t k = 0; k < chunk; ++k, p += 16) add(i + k, LoadReal(p), LoadReal(p + 8));
      in_.Consume(static_cast<size_t>(chunk) * 16);
      i += chunk;
    }
  }
  for (; i < point_count; ++i) {
    double x, y;
    if (!ReadPoint(&x, &y)) {
      Fail("Error reading polygon points");
      return false;
    }
    add(i, x, y);
  }
  polygon->extent = std::max(std::fabs(box.min_x - box.max_x), std::fabs(box.min_y - box.max_y));
  JoinGroup(polygon.get());
  data_.AddFeature(std::move(polygon));
  return true;
}

// Polygons with a non-zero continuation flag form a group headed by the
// first of them; the first polygon with a flag of 0 after them is the
// group's last ring and closes it. The head's box covers the whole group,
// last ring included, since the group is drawn (and clipped) as one.
void TvfRecordReader::JoinGroup(PolygonFeature* polygon) {
  if (polygon->flag == 0) {
    if (group_head_ != nullptr) group_head_->WidenBox(polygon->box);
    group_head_ = nullptr;
    return;
  }
  if (group_head_ == nullptr) group_head_ = polygon;
  group_head_->WidenBox(polygon->box);
}

bool TvfRecordReader::ReadMarker() {
  int64_t marker_type = 0;
  if (!ReadInteger(&marker_type)) return false;
  auto marker = std::make_unique<MarkerFeature>();
  if (marker_type < 0 || marker_type > 2) {
    if (!quiet_) Report(kError, "Unknown marker type");
    return false;
  }
  marker->marker_type = static_cast<uint32_t>(marker_type);
  if (marker_type == 2) {
    int64_t flag = 0;
    if (!ReadTvfReal(in_, format_, &marker->placement1) ||
        !ReadTvfReal(in_, format_, &marker->placement2) || !ReadInteger(&flag)) {
      return false;
    }
    marker->flag = static_cast<int8_t>(flag);
  }
  if (marker_type >= 1 && !ReadTvfString(in_, format_, &marker->label, quiet_)) return false;
  int64_t attribute_count = 0;
  if (!ReadInteger(&attribute_count)) return false;
  if (!ReadAttributes(*marker, attribute_count)) return false;
  if (!ReadPoint(&marker->x, &marker->y)) {
    Fail("Error reading polygon points");
    return false;
  }
  data_.AddFeature(std::move(marker));
  return true;
}

bool TvfRecordReader::ReadAttributes(Feature& feature, int64_t count) {
  if (count < 0) {
    Fail("Bad attribute");
    return false;
  }
  if (count == 0) return true;
  if (!keep_attributes_) return SkipAttributes(count);
  uint64_t min_bytes =
      format_ == TvfFormat::kBinary ? kMinBinaryAttributeBytes : kMinAsciiAttributeBytes;
  feature.attributes.reserve(PlausibleCount(static_cast<uint64_t>(count), min_bytes, in_));
  int64_t max_index = 0;
  for (int64_t i = 0; i < count; ++i) {
    int64_t index = 0, type = 0;
    if (!ReadInteger(&index) || !ReadInteger(&type) || index < 0 ||
        index > kTvfMaxAttributeIndex) {
      Fail("Bad attribute");
      return false;
    }
    max_index = std::max(max_index, index);
    TypedValue value;
    switch (type) {
      case 1: {
        std::optional<std::string> text;
        if (!ReadTvfString(in_, format_, &text, quiet_)) {
          Fail("Bad S attribute");
          return false;
        }
        value = TypedValue::String(std::move(text));
        break;
      }
      case 2: {
        double d;
        if (!ReadTvfReal(in_, format_, &d)) {
          Fail("Bad D attribute");
          return false;
        }
        value = TypedValue::Double(d);
        break;
      }
      case 3: {
        double a, b, c;
        if (!ReadTvfReal(in_, format_, &a) || !ReadTvfReal(in_, format_, &b) ||
            !ReadTvfReal(in_, format_, &c)) {
          Fail("Bad G attribute");
          return false;
        }
        value = TypedValue::Geo(a, b, c);
        break;
      }
      default:
        Fail("Unknown attribute type");
        return false;
    }
    feature.attributes.push_back(Attribute{index, std::move(value)});
  }
  feature.max_attr_index = max_index;
  feature.index_map.assign(static_cast<size_t>(max_index) + 1, -1);
  for (size_t i = 0; i < feature.attributes.size(); ++i) {
    feature.index_map[static_cast<size_t>(feature.attributes[i].index)] = static_cast<int64_t>(i);
  }
  return true;
}


// The size of the binary entry at `p` (at least 24 bytes readable) when it
// needs no message, else 0.
size_t PlainBinaryAttributeSize(const char* p) {
  const int64_t index = LoadField(p), type = LoadField(p + 8);
  if (index < 0 || index > kTvfMaxAttributeIndex) return 0;
  if (type == 2) return 24;
  if (type == 3) return 40;
  if (type != 1) return 0;
  const int64_t length = LoadField(p + 16);
  if (length == -1) return 24;
  if (length < 0 || length > kTvfMaxStringLength) return 0;
  return 24 + static_cast<size_t>(length) + 1;
}

// The binary entries that need no message, straight from the input's
// buffer: false (nothing taken) for anything else, which the field readers
// then read with their checks and messages.
bool SkipPlainBinaryAttribute(TvfInput& in) {
  const char* p = in.Contiguous(24);
  if (p == nullptr) return false;
  const size_t size = PlainBinaryAttributeSize(p);
  if (size == 0 || (size > 24 && in.Contiguous(size) == nullptr)) return false;
  in.Consume(size);
  return true;
}

// Skips up to `count` plain binary entries that lie wholly in the input's
// buffer, in one pass over it; returns how many.
int64_t SkipBufferedBinaryAttributes(TvfInput& in, int64_t count) {
  const std::string_view buffered = in.Buffered();
  const char* p = buffered.data();
  const char* const end = p + buffered.size();
  int64_t skipped = 0;
  while (skipped < count && end - p >= 24) {
    const size_t size = PlainBinaryAttributeSize(p);
    if (size == 0 || static_cast<size_t>(end - p) < size) break;
    p += size;
    ++skipped;
  }
  in.Consume(static_cast<size_t>(p - buffered.data()));
  return skipped;
}

// Reads past `count` attribute entries with the checks of ReadAttributes,
// keeping nothing.
bool TvfRecordReader::SkipAttributes(int64_t count) {
  for (int64_t i = 0; i < count; ++i) {
    if (format_ == TvfFormat::kBinary) {
      i += SkipBufferedBinaryAttributes(in_, count - i);
      if (i == count) break;
      if (SkipPlainBinaryAttribute(in_)) continue;  // across a refill of the buffer
    }
    int64_t index = 0, type = 0;
    if (!ReadInteger(&index) || !ReadInteger(&type) || index < 0 || index > kTvfMaxAttributeIndex) {
      Fail("Bad attribute");
      return false;
    }
    double unused;
    switch (type) {
      case 1:
        if (!ReadTvfString(in_, format_, nullptr, quiet_)) {
          Fail("Bad S attribute");
          return false;
        }
        break;
      case 2:
        if (!ReadTvfReal(in_, format_, &unused)) {
          Fail("Bad D attribute");
          return false;
        }
        break;
      case 3:
        if (!ReadTvfReal(in_, format_, &unused) || !ReadTvfReal(in_, format_, &unused) ||
            !ReadTvfReal(in_, format_, &unused)) {
          Fail("Bad G attribute");
          return false;
        }
        break;
      default:
        Fail("Unknown attribute type");
        return false;
    }
  }
  return true;
}

}  // namespace

bool ReadTvfInteger(TvfInput& input, TvfFormat format, int64_t* out) {
  if (format == TvfFormat::kAscii) return ReadHex(input, out);
  uint64_t bits;
  if (!ReadLittleEndian(input, &bits)) return false;
  *out = static_cast<int64_t>(bits);
  return true;
}

bool ReadTvfReal(TvfInput& input, TvfFormat format, double* out) {
  if (format == TvfFormat::kBinary) return ReadBinaryDouble(input, out);
  input.SkipSpace();
  std::string token;
  RealTokenScanner scanner;
  for (int c = input.Peek(); c != TvfInput::kEnd && scanner.Accept(c); c = input.Peek()) {
    token.push_back(static_cast<char>(c));
    input.Advance();
  }
  return scanner.Complete() && ConvertRealToken(token, scanner.IsHex(), out);
}

bool ReadTvfString(TvfInput& input, TvfFormat format, std::optional<std::string>* out,
                   bool quiet) {
  int64_t length = 0;
  if (!ReadTvfInteger(input, format, &length)) return false;
  if (length == -1) {
    if (out != nullptr) out->reset();
    return true;
  }
  if (length < 0 || length > kTvfMaxStringLength) {
    if (!quiet) Report(kError, "String is too long (length > 1024)");
    return false;
  }
  if (format == TvfFormat::kAscii && input.Get() == TvfInput::kEnd) return false;
  size_t size = static_cast<size_t>(length) + 1;  // the characters and their NUL
  if (out == nullptr) return input.Skip(size) == size;
  std::string text(size, '\0');
  if (input.Read(text.data(), size) != size) return false;
  text.resize(std::min(text.find('\0'), static_cast<size_t>(length)));
  *out = std::move(text);
  return true;
}

bool ParseTvfNumber(TvfInput& input, double* out) {
  input.SkipSpace();
  int c = input.Peek();
  if (c == TvfInput::kEnd) return false;
  double sign = 1.0;
  if (c == '+' || c == '-') {
    if (c == '-') sign = -1.0;
    input.Advance();
    c = input.Peek();
  }
  double integer = 0.0, numerator = 0.0, denominator = 1.0;
  bool fraction = false;
  int64_t digits = 0;
  for (;; c = input.Peek()) {
    if (c >= '0' && c <= '9') {
      if (fraction) {
        numerator = numerator * 10.0 + (c - '0');
        denominator *= 10.0;
      } else {
        integer = integer * 10.0 + (c - '0');
      }
      ++digits;
    } else if (c == '.' && !fraction) {
      fraction = true;
    } else {
      break;
    }
    input.Advance();
  }
  if (digits == 0) return false;
  double value = sign * (integer + numerator / denominator);
  if (IsNumberTerminator(c)) {
    *out = value;
    return true;
  }
  if (c != 'e' && c != 'E') return false;
  input.Advance();
  c = input.Peek();
  bool negative_exponent = false;
  if (c == '+' || c == '-') {
    negative_exponent = c == '-';
    input.Advance();
    c = input.Peek();
  }
  int64_t exponent = 0, exponent_digits = 0;
  for (; c >= '0' && c <= '9'; c = input.Peek()) {
    if (exponent < 1000000000) exponent = exponent * 10 + (c - '0');
    ++exponent_digits;
    input.Advance();
  }
  if (exponent_digits == 0 || !IsNumberTerminator(c)) return false;
  // Stepwise scaling; it stops once the value can no longer change.
  for (int64_t i = 0; i < exponent && value != 0.0 && std::isfinite(value); ++i) {
    value = negative_exponent ? value / 10.0 : value * 10.0;
  }
  *out = value;
  return true;
}

std::string BuildFilterCommandLine(std::string_view command, std::string_view file_name) {
  std::string line;
  size_t percent = command.find('%');
  line.append(command.substr(0, percent));
  if (percent == std::string_view::npos) line.push_back(' ');
  line.push_back('"');
  line.append(file_name);
  line.push_back('"');
  if (percent != std::string_view::npos) line.append(command.substr(percent + 1));
  return line;
}

bool ConvertShapefileToTvfStream(const std::string& shapefile, FILE* out) {
  // BINARY: the temporary stream is read back at once, and binary reads fastest.
  return ConvertShapefile(shapefile, out, TvfFormat::kBinary);
}

bool LoadTvfStream(TvfInput& input, const std::string& name, VectorData& data, bool quiet,
                   TvfAttributes attributes) {
  data.Clear();
  data.loading = true;
  data.error = true;
  const bool keep = attributes == TvfAttributes::kRead;
  data.attributes_skipped = !keep;
  TvfRecordReader reader(input, name, data, quiet, keep);
  if (!reader.ReadHeader()) return false;
  bool ok = reader.ReadRecords() && !input.Failed();
  data.loading = false;
  if (!ok) {
    if (!quiet) {
      Report(kError, "Error reading TVF data file", name);
      ReportNumber(kError, "Error reading TVF data file at object",
                   static_cast<double>(data.FeatureCount()));
    }
    return false;
  }
  data.error = false;
  return true;
}

bool LoadTvfFile(const std::string& file_name, TvfSource source, VectorData& data,
                 std::string_view filter_command, bool quiet, TvfAttributes attributes) {
  data.Clear();
  data.loading = true;
  data.error = true;
  bool timing = Verbosity() <= -3;
  auto started = std::chrono::steady_clock::now();
  auto report_time = [&] {
    if (!timing) return;
    std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - started;
    ReportNumber(kInfo, "Vector tile load time", elapsed.count());
  };

  std::unique_ptr<FILE, FileCloser> file;
  std::unique_ptr<FILE, PipeCloser> pipe;
  FILE* stream = nullptr;
  bool shapefile = source == TvfSource::kShapefile ||
                   (source == TvfSource::kByName && kav::EndsWith(file_name, ".shp"));
  if (!filter_command.empty()) {
    std::string command_line = BuildFilterCommandLine(filter_command, file_name);
    if (Verbosity() >= 6) Report(kInfo, "Invoking the command", command_line);
    std::fflush(nullptr);  // nothing buffered may reach the command's output twice
    pipe.reset(popen(command_line.c_str(), "r"));
    stream = pipe.get();
  } else if (shapefile) {
    file.reset(std::tmpfile());
    if (!file) {
      Report(kError, "Can't create tmpfile!");
      if (!quiet) Report(kError, "Could not open TVF file", file_name);
      report_time();
      return false;
    }
    if (!ConvertShapefileToTvfStream(file_name, file.get())) {
      if (!quiet) Report(kError, "Error converting shape file: " + file_name + ".");
      report_time();
      return false;
    }
    std::rewind(file.get());
    stream = file.get();
  } else {
    file.reset(std::fopen(file_name.c_str(), "rb"));
    stream = file.get();
  }
  if (stream == nullptr) {
    if (!quiet) Report(kError, "Could not open TVF file", file_name);
    report_time();
    return false;
  }

  TvfInput input(stream);
  bool ok = LoadTvfStream(input, file_name, data, quiet, attributes);
  if (pipe) {
    // A command that fails after writing whole records would otherwise pass
    // for a complete file with features missing.
    const int status = pclose(pipe.release());
    if (status != 0 && ok) {
      if (!quiet) Report(kError, "Filter command failed", BuildFilterCommandLine(filter_command, file_name));
      data.Clear();
      data.error = true;
      ok = false;
    }
  }
  if (ok && Verbosity() >= 6) Report(kInfo, "Loaded TVF file", file_name);
  report_time();
  return ok;
}

}  // namespace vmp
