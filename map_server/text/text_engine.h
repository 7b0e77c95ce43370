// The process-wide part of text drawing: the fonts loaded so far (stroke and
// glyph fonts, each read once), the glyph bitmap caches and the scratch
// buffers that text drawing reuses. The map service owns one.
//
// Font resolution (ResolveFont), for a name a layer gives:
// 1. A font the dataset registers under that name ("VECTOR FONT=", "FONT="
//    stroke fonts; "IMAGE FONT=" glyph fonts): its file as resolved against
//    the dataset's font directory, or, when no such file exists, the file of
//    the same base name in the bundled font folder.
// 2. Otherwise a bundled font: "roman" is the Roman simplex stroke font,
//    "sans" DejaVu Sans; the base names of the bundled files ("rowmans",
//    "rowmand", "futural", "timesr", "DejaVuSans") name them too.
// 3. A name found nowhere is reported as "Can't find font"; a file that
//    cannot be read or parsed is reported (once per process) and refused.
//    In both cases the dataset's ErrorFont is used instead ("Using error
//    font" with its name), then the bundled Roman simplex; when even that
//    is missing no text is drawn ("No usable font, text not drawn").
//
// Bundled font folder: the directory in VMP_FONT_DIR when set; otherwise
// "fonts" beside the executable (the build copies data/fonts there), then
// "../data/fonts" and "../../data/fonts" from the executable's directory.
//
// Glyph caches, by the dataset's GlyphCacheType: 1 local keeps rendered
// glyphs for the current request only (EndRequest empties it); 2 global
// keeps them for the life of the process, emptied whole when it passes
// kGlobalGlyphCacheBytes; 0 none renders every glyph when drawn.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/text/glyph_font.h"
#include "map_server/text/stroke_font.h"

struct FT_LibraryRec_;

namespace vmp {

enum GlyphCacheType : int64_t { kGlyphCacheNone = 0, kGlyphCacheLocal = 1, kGlyphCacheGlobal = 2 };

inline constexpr size_t kGlobalGlyphCacheBytes = 16u << 20;
inline constexpr const char* kBundledStrokeFont = "rowmans.jhf";
inline constexpr const char* kBundledGlyphFont = "DejaVuSans.ttf";

// A font ready to draw with: exactly one of `stroke` and `glyph` is set.
struct LoadedFont {
  std::string name;  // the name it was resolved under
  std::string path;
  std::optional<StrokeFont> stroke;
  std::unique_ptr<GlyphFace> glyph;
};

// The bundled font folder as described above; empty when none exists.
std::string BundledFontDir();

class TextEngine {
 public:
  TextEngine() = default;
  TextEngine(const TextEngine&) = delete;
  TextEngine& operator=(const TextEngine&) = delete;

  // The font for `name` (see above); null only when no font at all can be
  // loaded. `library` opens glyph fonts (null: glyph fonts fail to load).
  const LoadedFont* ResolveFont(const Dataset& dataset, const std::optional<std::string>& name,
                                FT_LibraryRec_* library);

  // The glyph cache of a cache type; null for "none".
  GlyphCache* CacheFor(int64_t cache_type);
  // Ends a request: empties the local cache, and the global one when it has
  // grown past its bound.
  void EndRequest();
  // Releases every font and cache (before the font library is shut down).
  void Clear();

  size_t loaded_font_count() const { return fonts_.size(); }

 private:
  // The font in `path` of that kind, loaded once; null when it failed.
  const LoadedFont* LoadFile(const std::string& name, const std::string& path, bool glyph,
                             FT_LibraryRec_* library);
  // Steps 1 and 2 of the resolution; null with `found` false when the name
  // is unknown, with `found` true when its file failed.
  const LoadedFont* FindNamed(const Dataset& dataset, const std::string& name, FT_LibraryRec_* library,
                              bool* found);

  // By kind and path; null entries remember failures.
  std::map<std::string, std::unique_ptr<LoadedFont>> fonts_;
  GlyphCache local_cache_;
  GlyphCache global_cache_;
  bool no_font_reported_ = false;
};

}  // namespace vmp
