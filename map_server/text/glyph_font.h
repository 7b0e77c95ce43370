// Glyph fonts: TrueType/OpenType outlines rendered by FreeType into
// anti-aliased coverage bitmaps, and the cache that keeps those bitmaps per
// font, pixel size and character.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

struct FT_LibraryRec_;
struct FT_FaceRec_;

namespace vmp {

// One rendered glyph: 8-bit coverage rows (pitch = width), placed with its
// top-left pixel at (pen x + left, baseline - top); `advance` moves the pen.
struct GlyphImage {
  int width = 0;
  int rows = 0;
  int left = 0;
  int top = 0;
  double advance = 0.0;
  const uint8_t* pixels = nullptr;
};

class GlyphFace {
 public:
  // Opens a scalable font file with `library`. A file FreeType cannot read
  // or one without scalable outlines is reported as "Cannot load font file"
  // (path, with the reason) and nothing is returned.
  static std::unique_ptr<GlyphFace> Open(FT_LibraryRec_* library, const std::string& path);
  ~GlyphFace();
  GlyphFace(const GlyphFace&) = delete;
  GlyphFace& operator=(const GlyphFace&) = delete;

  // Renders the glyph of `c` at `pixel_size` (pixels per em). The image
  // points into FreeType's glyph slot: it stays valid until the next
  // Render. A character the font lacks renders the font's missing-glyph
  // shape. False only when FreeType fails.
  bool Render(char32_t c, int pixel_size, GlyphImage& out);
  // Horizontal kerning between two characters at `pixel_size`, in pixels.
  double Kerning(char32_t left, char32_t right, int pixel_size);
  // Ascender and descender (positive below the baseline) at `pixel_size`.
  double Ascender(int pixel_size);
  double Descender(int pixel_size);
  // Height of capitals per pixel of em size (0.73 when the font does not say).
  double cap_ratio() const { return cap_ratio_; }

 private:
  explicit GlyphFace(FT_FaceRec_* face);
  bool SetSize(int pixel_size);

  FT_FaceRec_* face_;
  int size_ = 0;
  bool has_kerning_ = false;
  double cap_ratio_ = 0.73;
  std::vector<uint8_t> converted_;  // monochrome bitmaps widened to coverage
};

// Rendered glyphs kept for reuse, keyed by face, pixel size and character.
// Bitmaps live in one pool that only grows; a lookup of a cached glyph
// allocates nothing.
class GlyphCache {
 public:
  // The glyph, rendered on first use; the image is valid until the next Get
  // or Clear. False when FreeType fails.
  bool Get(GlyphFace& face, char32_t c, int pixel_size, GlyphImage& out);
  void Clear();
  size_t bytes() const { return pool_.size(); }
  size_t glyph_count() const { return entries_.size(); }

 private:
  struct Key {
    const GlyphFace* face;
    int size;
    char32_t c;
    bool operator==(const Key&) const = default;
  };
  struct KeyHash {
    size_t operator()(const Key& k) const {
      return std::hash<const void*>()(k.face) ^ (static_cast<size_t>(k.size) * 0x9E3779B97F4A7C15ull) ^
             (static_cast<size_t>(k.c) << 20);
    }
  };
  struct Entry {
    GlyphImage image;  // pixels unset: they live at `offset` in the pool
    size_t offset = 0;
  };
  std::unordered_map<Key, Entry, KeyHash> entries_;
  std::vector<uint8_t> pool_;
};

}  // namespace vmp
