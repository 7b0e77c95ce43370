#include "map_server/text/glyph_font.h"

#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_TRUETYPE_TABLES_H

#include <algorithm>
#include <cstring>

#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

// Sizes outside this range are clamped: smaller text is unreadable, larger
// text would make bitmaps of megabytes.
constexpr int kMinPixelSize = 2;
constexpr int kMaxPixelSize = 400;

int ClampSize(int size) { return std::clamp(size, kMinPixelSize, kMaxPixelSize); }

}  // namespace

std::unique_ptr<GlyphFace> GlyphFace::Open(FT_LibraryRec_* library, const std::string& path) {
  if (library == nullptr) {
    Report(kError, "Cannot load font file", path + ": the font library is not initialized");
    return nullptr;
  }
  FT_Face face = nullptr;
  const FT_Error error = FT_New_Face(library, path.c_str(), 0, &face);
  if (error != 0) {
    Report(kError, "Cannot load font file", kav::StrPrintf("%s: FreeType error %d", path.c_str(), error));
    return nullptr;
  }
  if (!FT_IS_SCALABLE(face)) {
    FT_Done_Face(face);
    Report(kError, "Cannot load font file", path + ": no scalable outlines");
    return nullptr;
  }
  return std::unique_ptr<GlyphFace>(new GlyphFace(face));
}

GlyphFace::GlyphFace(FT_FaceRec_* face) : face_(face), has_kerning_(FT_HAS_KERNING(face)) {
  const auto* os2 = static_cast<const TT_OS2*>(FT_Get_Sfnt_Table(face, FT_SFNT_OS2));
  if (os2 != nullptr && os2->version >= 2 && os2->sCapHeight > 0 && face->units_per_EM > 0) {
    cap_ratio_ = static_cast<double>(os2->sCapHeight) / face->units_per_EM;
  }
}

GlyphFace::~GlyphFace() { FT_Done_Face(face_); }

bool GlyphFace::SetSize(int pixel_size) {
  pixel_size = ClampSize(pixel_size);
  if (pixel_size == size_) return true;
  if (FT_Set_Pixel_Sizes(face_, 0, static_cast<FT_UInt>(pixel_size)) != 0) return false;
  size_ = pixel_size;
  return true;
}

bool GlyphFace::Render(char32_t c, int pixel_size, GlyphImage& out) {
  if (!SetSize(pixel_size)) return false;
  if (FT_Load_Char(face_, c, FT_LOAD_RENDER) != 0) return false;
  const FT_GlyphSlot slot = face_->glyph;
  const FT_Bitmap& bitmap = slot->bitmap;
  out.width = static_cast<int>(bitmap.width);
  out.rows = static_cast<int>(bitmap.rows);
  out.left = slot->bitmap_left;
  out.top = slot->bitmap_top;
  out.advance = slot->advance.x / 64.0;
  const size_t count = static_cast<size_t>(out.width) * static_cast<size_t>(out.rows);
  if (count == 0) {
    out.pixels = nullptr;
    return true;
  }
  // Coverage rows without padding, whatever FreeType produced.
  converted_.resize(count);
  for (int y = 0; y < out.rows; ++y) {
    const uint8_t* row = bitmap.buffer + static_cast<ptrdiff_t>(y) * bitmap.pitch;
    uint8_t* dst = converted_.data() + static_cast<size_t>(y) * static_cast<size_t>(out.width);
    if (bitmap.pixel_mode == FT_PIXEL_MODE_GRAY) {
      if (bitmap.num_grays == 256) {
        std::memcpy(dst, row, static_cast<size_t>(out.width));
      } else {
        const int top = std::max(1, static_cast<int>(bitmap.num_grays) - 1);
        for (int x = 0; x < out.width; ++x) dst[x] = static_cast<uint8_t>(row[x] * 255 / top);
      }
    } else if (bitmap.pixel_mode == FT_PIXEL_MODE_MONO) {
      for (int x = 0; x < out.width; ++x) dst[x] = (row[x >> 3] & (0x80 >> (x & 7))) ? 255 : 0;
    } else {
      return false;
    }
  }
  out.pixels = converted_.data();
  return true;
}

double GlyphFace::Kerning(char32_t left, char32_t right, int pixel_size) {
  if (!has_kerning_ || !SetSize(pixel_size)) return 0.0;
  FT_Vector delta{0, 0};
  if (FT_Get_Kerning(face_, FT_Get_Char_Index(face_, left), FT_Get_Char_Index(face_, right),
                     FT_KERNING_DEFAULT, &delta) != 0) {
    return 0.0;
  }
  return delta.x / 64.0;
}

double GlyphFace::Ascender(int pixel_size) {
  if (!SetSize(pixel_size)) return pixel_size;
  return face_->size->metrics.ascender / 64.0;
}

double GlyphFace::Descender(int pixel_size) {
  if (!SetSize(pixel_size)) return 0.0;
  return -face_->size->metrics.descender / 64.0;
}

bool GlyphCache::Get(GlyphFace& face, char32_t c, int pixel_size, GlyphImage& out) {
  const Key key{&face, pixel_size, c};
  auto it = entries_.find(key);
  if (it == entries_.end()) {
    GlyphImage rendered;
    if (!face.Render(c, pixel_size, rendered)) return false;
    Entry entry{rendered, pool_.size()};
    const size_t count = static_cast<size_t>(rendered.width) * static_cast<size_t>(rendered.rows);
    if (count > 0) pool_.insert(pool_.end(), rendered.pixels, rendered.pixels + count);
    entry.image.pixels = nullptr;
    it = entries_.emplace(key, entry).first;
  }
  out = it->second.image;
  out.pixels = out.width * out.rows > 0 ? pool_.data() + it->second.offset : nullptr;
  return true;
}

void GlyphCache::Clear() {
  entries_.clear();
  pool_.clear();
}

}  // namespace vmp
