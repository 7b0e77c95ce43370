#include "map_server/text/stroke_font.h"

#include <algorithm>
#include <cstdio>
#include <memory>

#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

constexpr char32_t kFirstChar = 32;
constexpr char32_t kDegreeSign = 0xB0;
constexpr size_t kDegreeRecord = 95;
// Largest stroke font file read (the biggest Hershey files are under 20 kB).
constexpr long kMaxFontFileSize = 4 << 20;

// A fixed-width number field: blanks, then digits, then nothing else.
bool ParseField(std::string_view field, int* value) {
  size_t i = 0;
  while (i < field.size() && field[i] == ' ') ++i;
  if (i == field.size()) return false;
  int v = 0;
  for (; i < field.size(); ++i) {
    if (field[i] < '0' || field[i] > '9') return false;
    v = v * 10 + (field[i] - '0');
  }
  *value = v;
  return true;
}

bool ValidCoordinate(char c) { return c >= ' ' && c <= '~'; }

class JhfParser {
 public:
  JhfParser(std::string_view text, std::string_view source) : text_(text), source_(source) {}

  std::optional<StrokeFont> Run(std::vector<StrokeGlyph>& glyphs, std::vector<StrokePoint>& points) {
    std::string record;
    while (NextLine()) {
      if (line_.empty() || (line_.size() == 1 && line_[0] == '\r')) continue;
      record.assign(line_);
      if (!record.empty() && record.back() == '\r') record.pop_back();
      const size_t record_line = line_number_;
      int number = 0;
      int count = 0;
      if (record.size() < 8 || !ParseField(std::string_view(record).substr(0, 5), &number) ||
          !ParseField(std::string_view(record).substr(5, 3), &count) || count < 1) {
        return Fail(record_line, "bad glyph number or coordinate count");
      }
      const size_t needed = 8 + 2 * static_cast<size_t>(count);
      while (record.size() < needed && NextLine()) {  // continuation lines
        record.append(line_);
        if (!record.empty() && record.back() == '\r') record.pop_back();
      }
      if (record.size() != needed) return Fail(record_line, "record length does not match its coordinate count");
      StrokeGlyph glyph;
      glyph.left = record[8] - 'R';
      glyph.right = record[9] - 'R';
      glyph.begin = static_cast<uint32_t>(points.size());
      bool pen_up = true;
      for (size_t i = 10; i < needed; i += 2) {
        const char cx = record[i];
        const char cy = record[i + 1];
        if (cx == ' ') {
          if (cy != 'R') return Fail(record_line, "pen-up pair is not \" R\"");
          pen_up = true;
          continue;
        }
        if (!ValidCoordinate(cx) || !ValidCoordinate(cy)) return Fail(record_line, "coordinate out of range");
        points.push_back({static_cast<int8_t>(cx - 'R'), static_cast<int8_t>(cy - 'R'), pen_up});
        pen_up = false;
      }
      glyph.end = static_cast<uint32_t>(points.size());
      glyphs.push_back(glyph);
    }
    if (glyphs.empty()) return Fail(line_number_, "no glyphs");
    return StrokeFont();  // the caller moves the arrays in
  }

 private:
  bool NextLine() {
    if (pos_ >= text_.size()) return false;
    const size_t end = text_.find('\n', pos_);
    const size_t stop = end == std::string_view::npos ? text_.size() : end;
    line_ = text_.substr(pos_, stop - pos_);
    pos_ = stop + 1;
    ++line_number_;
    return true;
  }

  std::optional<StrokeFont> Fail(size_t line, const char* reason) {
    Report(kError, "Invalid stroke font file",
           kav::StrPrintf("%.*s line %zu: %s", static_cast<int>(source_.size()), source_.data(), line, reason));
    return std::nullopt;
  }

  std::string_view text_;
  std::string_view source_;
  size_t pos_ = 0;
  size_t line_number_ = 0;
  std::string_view line_;
};

}  // namespace

std::optional<StrokeFont> StrokeFont::Parse(std::string_view text, std::string_view source) {
  std::vector<StrokeGlyph> glyphs;
  std::vector<StrokePoint> points;
  std::optional<StrokeFont> font = JhfParser(text, source).Run(glyphs, points);
  if (!font) return std::nullopt;
  font->glyphs_ = std::move(glyphs);
  font->points_ = std::move(points);
  font->ComputeMetrics();
  return font;
}

std::optional<StrokeFont> StrokeFont::Load(const std::string& path) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
  std::string text;
  bool ok = file != nullptr;
  if (ok) {
    char buffer[8192];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, file.get())) > 0) {
      text.append(buffer, n);
      if (text.size() > static_cast<size_t>(kMaxFontFileSize)) {
        Report(kError, "Invalid stroke font file", path + ": file too large");
        return std::nullopt;
      }
    }
    ok = std::ferror(file.get()) == 0;
  }
  if (!ok) {
    Report(kError, "Cannot open font file", path);
    return std::nullopt;
  }
  return Parse(text, path);
}

const StrokeGlyph& StrokeFont::Glyph(char32_t c) const {
  if (c >= kFirstChar && c - kFirstChar < glyphs_.size()) return glyphs_[c - kFirstChar];
  if (c == kDegreeSign && glyphs_.size() > kDegreeRecord) return glyphs_[kDegreeRecord];
  const char32_t fallback = '?' - kFirstChar;
  return fallback < glyphs_.size() ? glyphs_[fallback] : glyphs_[0];
}

void StrokeFont::ComputeMetrics() {
  int min_y = 0, max_y = 0;
  bool any = false;
  for (const StrokePoint& p : points_) {
    min_y = any ? std::min<int>(min_y, p.y) : p.y;
    max_y = any ? std::max<int>(max_y, p.y) : p.y;
    any = true;
  }
  const size_t h = 'H' - kFirstChar;
  int cap_top = min_y, base = max_y;
  if (h < glyphs_.size() && glyphs_[h].end > glyphs_[h].begin) {
    const auto pts = Points(glyphs_[h]);
    cap_top = std::min_element(pts.begin(), pts.end(), [](auto& a, auto& b) { return a.y < b.y; })->y;
    base = std::max_element(pts.begin(), pts.end(), [](auto& a, auto& b) { return a.y < b.y; })->y;
  }
  baseline_ = base;
  cap_height_ = std::max(1, base - cap_top);
  ascent_ = std::max(1, base - min_y);
  descent_ = std::max(0, max_y - base);
}

}  // namespace vmp
