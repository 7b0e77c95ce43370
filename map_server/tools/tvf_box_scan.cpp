#include "map_server/tools/tvf_box_scan.h"

#include <cstdint>
#include <cstdio>
#include <memory>

#include "map_server/vector/tvf_input.h"
#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/vector_data.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

constexpr int64_t kRecordMarker = 7;

// Walks the records the way the loader does, skipping attributes and labels
// and widening the box by each point.
class TvfBoxScanner {
 public:
  explicit TvfBoxScanner(TvfInput& in) : in_(in) {}

  bool ReadHeader() {
    int64_t magic = 0, version = 0, format = 0;
    // The header is text in both encodings.
    if (!ReadTvfInteger(in_, TvfFormat::kAscii, &magic) || magic != kTvfMagic) return false;
    if (!ReadTvfInteger(in_, TvfFormat::kAscii, &version) || version < 0 || version > kTvfVersion) {
      return false;
    }
    if (!ReadTvfInteger(in_, TvfFormat::kAscii, &format) || (format != 0 && format != 1)) {
      return false;
    }
    version_ = version;
    format_ = static_cast<TvfFormat>(format);
    if (format_ == TvfFormat::kBinary) in_.Skip(1);  // the blank that ends the header
    return true;
  }

  bool ReadRecords() {
    for (;;) {
      if (format_ == TvfFormat::kAscii) in_.SkipSpace();
      if (in_.AtEnd()) return !in_.Failed();
      int64_t marker = 0, type = 0;
      if (!Integer(&marker) || !Integer(&type)) return false;
      if (format_ == TvfFormat::kAscii && marker != kRecordMarker) return false;
      const bool ok = type == 0 ? ReadPolygon() : type == 1 ? ReadMarker() : false;
      if (!ok) return false;
    }
  }

  const std::optional<SlfBox>& box() const { return box_; }

 private:
  bool Integer(int64_t* out) { return ReadTvfInteger(in_, format_, out); }
  bool Real(double* out) { return ReadTvfReal(in_, format_, out); }

  bool Point() {
    double x, y;
    const bool read = format_ == TvfFormat::kBinary ? Real(&x) && Real(&y)
                                                    : ParseTvfNumber(in_, &x) && ParseTvfNumber(in_, &y);
    if (!read) return false;
    if (!box_) {
      box_ = SlfBox{x, x, y, y};
    } else {
      box_->Include(SlfBox{x, x, y, y});
    }
    return true;
  }

  bool SkipAttributes() {
    int64_t count = 0;
    if (!Integer(&count) || count < 0) return false;
    for (int64_t i = 0; i < count; ++i) {
      int64_t index = 0, type = 0;
      if (!Integer(&index) || !Integer(&type)) return false;
      double value;
      switch (type) {
        case 1:
          if (!ReadTvfString(in_, format_, nullptr, true)) return false;
          break;
        case 2:
          if (!Real(&value)) return false;
          break;
        case 3:
          if (!Real(&value) || !Real(&value) || !Real(&value)) return false;
          break;
        default:
          return false;
      }
    }
    return true;
  }

  bool ReadPolygon() {
    int64_t flag = 0, points = 0;
    if (version_ >= 2 && !Integer(&flag)) return false;
    if (!Integer(&points) || points < 0 || !SkipAttributes()) return false;
    for (int64_t i = 0; i < points; ++i) {
      if (!Point()) return false;
    }
    return true;
  }

  bool ReadMarker() {
    int64_t marker_type = 0;
    if (!Integer(&marker_type) || marker_type < 0 || marker_type > 2) return false;
    if (marker_type == 2) {
      double placement;
      int64_t flag;
      if (!Real(&placement) || !Real(&placement) || !Integer(&flag)) return false;
    }
    if (marker_type >= 1 && !ReadTvfString(in_, format_, nullptr, true)) return false;
    return SkipAttributes() && Point();
  }

  TvfInput& in_;
  TvfFormat format_ = TvfFormat::kAscii;
  int64_t version_ = kTvfVersion;
  std::optional<SlfBox> box_;
};

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

bool ScanTvfBox(TvfInput& input, std::optional<SlfBox>* box) {
  box->reset();
  TvfBoxScanner scanner(input);
  if (!scanner.ReadHeader() || !scanner.ReadRecords()) return false;
  *box = scanner.box();
  return true;
}

bool ScanTvfFileBox(const std::string& path, std::optional<SlfBox>* box) {
  box->reset();
  std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (file) {
    TvfInput in(file.get());
    if (ScanTvfBox(in, box)) return true;
  }
  Report(kError, "Error in file", path);
  return false;
}

}  // namespace vmp
