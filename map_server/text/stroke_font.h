// Stroke fonts: glyphs drawn as polylines, read from Hershey ".jhf" files.
//
// A .jhf file holds one glyph record per line, in character order from the
// blank (32): columns 1-5 the glyph number, 6-8 the number of coordinate
// pairs (the margin pair included), then the left and right margins and the
// pairs themselves, each coordinate a character whose distance from 'R' is
// the value (y grows downwards); the pair " R" lifts the pen. A record too
// long for one line continues on the next. The 96th record, when present,
// also serves for the degree sign (U+00B0).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace vmp {

struct StrokePoint {
  int8_t x = 0;
  int8_t y = 0;
  bool pen_up = false;  // the pen lifts before this point
};

struct StrokeGlyph {
  int left = 0;   // left margin: the pen starts here
  int right = 0;  // right margin: the advance is right - left
  uint32_t begin = 0;  // range of the glyph's points
  uint32_t end = 0;
};

class StrokeFont {
 public:
  // Parses the text of a .jhf file. A malformed record (bad number, a count
  // the record does not hold, an odd pen-up pair) or a file without glyphs
  // is reported as "Invalid stroke font file" with `source` and the line as
  // detail, and nothing is returned.
  static std::optional<StrokeFont> Parse(std::string_view text, std::string_view source);
  // Reads and parses a file ("Cannot open font file" when it cannot be read).
  static std::optional<StrokeFont> Load(const std::string& path);

  // The glyph of a code point; a character the font lacks takes the glyph
  // of '?' (or the first glyph).
  const StrokeGlyph& Glyph(char32_t c) const;
  std::span<const StrokePoint> Points(const StrokeGlyph& glyph) const {
    return {points_.data() + glyph.begin, points_.data() + glyph.end};
  }
  size_t glyph_count() const { return glyphs_.size(); }

  // Vertical metrics in font units, measured from the glyphs: the baseline
  // (bottom of 'H'), the height of capitals, and how far the highest and
  // lowest strokes reach above and below the baseline.
  double baseline() const { return baseline_; }
  double cap_height() const { return cap_height_; }
  double ascent() const { return ascent_; }
  double descent() const { return descent_; }

 private:
  void ComputeMetrics();

  std::vector<StrokeGlyph> glyphs_;
  std::vector<StrokePoint> points_;
  double baseline_ = 0, cap_height_ = 1, ascent_ = 1, descent_ = 0;
};

}  // namespace vmp
