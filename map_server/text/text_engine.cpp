#include "map_server/text/text_engine.h"

#include <filesystem>
#include <system_error>

#include "map_server/util/paths.h"
#include "toolkit/environment.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

struct BuiltinFont {
  const char* name;
  const char* file;
  bool glyph;
};

constexpr BuiltinFont kBuiltinFonts[] = {
    {"roman", "rowmans.jhf", false},   {"rowmans", "rowmans.jhf", false},
    {"rowmand", "rowmand.jhf", false}, {"futural", "futural.jhf", false},
    {"timesr", "timesr.jhf", false},   {"sans", "DejaVuSans.ttf", true},
    {"DejaVuSans", "DejaVuSans.ttf", true},
};

bool IsDirectory(const std::string& path) {
  std::error_code ec;
  return std::filesystem::is_directory(path, ec);
}

bool IsFile(const std::string& path) {
  std::error_code ec;
  return std::filesystem::is_regular_file(path, ec);
}

std::string ExecutableDir() {
  std::error_code ec;
  const std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return {};
  return exe.parent_path().string();
}

}  // namespace

std::string BundledFontDir() {
  if (std::optional<std::string> dir = kav::GetEnv("VMP_FONT_DIR")) return *dir;
  const std::string exe_dir = ExecutableDir();
  if (exe_dir.empty()) return {};
  for (const char* relative : {"fonts", "../data/fonts", "../../data/fonts"}) {
    const std::string dir = JoinPath(exe_dir, relative);
    if (IsDirectory(dir)) return dir;
  }
  return {};
}

const LoadedFont* TextEngine::LoadFile(const std::string& name, const std::string& path, bool glyph,
                                       FT_LibraryRec_* library) {
  const std::string key = (glyph ? "glyph:" : "stroke:") + path;
  auto it = fonts_.find(key);
  if (it != fonts_.end()) return it->second.get();
  auto font = std::make_unique<LoadedFont>();
  font->name = name;
  font->path = path;
  if (glyph) {
    font->glyph = GlyphFace::Open(library, path);
    if (!font->glyph) font.reset();
  } else {
    font->stroke = StrokeFont::Load(path);
    if (!font->stroke) font.reset();
  }
  return fonts_.emplace(key, std::move(font)).first->second.get();
}

const LoadedFont* TextEngine::FindNamed(const Dataset& dataset, const std::string& name,
                                        FT_LibraryRec_* library, bool* found) {
  *found = true;
  const std::optional<std::string> optional_name = name;
  if (const Font* font = FindFont(dataset, optional_name, true)) {
    const bool glyph = font->kind == FontKind::kImage;
    std::string path = font->file;
    if (!IsFile(path)) {
      const std::string bundled = BundledFontDir();
      const std::string candidate = bundled.empty() ? std::string() : JoinPath(bundled, BaseName(path));
      if (!candidate.empty() && IsFile(candidate)) path = candidate;
    }
    return LoadFile(name, path, glyph, library);
  }
  for (const BuiltinFont& builtin : kBuiltinFonts) {
    if (name != builtin.name) continue;
    const std::string dir = BundledFontDir();
    if (dir.empty()) {
      Report(kError, "Cannot open font file", std::string(builtin.file) + ": no bundled font folder");
      return nullptr;
    }
    return LoadFile(name, JoinPath(dir, builtin.file), builtin.glyph, library);
  }
  *found = false;
  return nullptr;
}

const LoadedFont* TextEngine::ResolveFont(const Dataset& dataset, const std::optional<std::string>& name,
                                          FT_LibraryRec_* library) {
  bool found = false;
  if (name && !name->empty()) {
    if (const LoadedFont* font = FindNamed(dataset, *name, library, &found)) return font;
    if (!found) Report(kError, "Can't find font", *name);
  } else {
    Report(kError, "NULL font name");
  }
  std::string error_font = dataset.StringOption(kDatasetErrorFont);
  if (error_font.empty()) error_font = "roman";
  Report(kWarning, "Using error font", error_font);
  if (!name || error_font != *name) {
    if (const LoadedFont* font = FindNamed(dataset, error_font, library, &found)) return font;
  }
  if (error_font != "roman") {
    if (const LoadedFont* font = FindNamed(dataset, "roman", library, &found)) return font;
  }
  if (!no_font_reported_) Report(kError, "No usable font, text not drawn");
  no_font_reported_ = true;
  return nullptr;
}

GlyphCache* TextEngine::CacheFor(int64_t cache_type) {
  if (cache_type == kGlyphCacheLocal) return &local_cache_;
  if (cache_type == kGlyphCacheGlobal) return &global_cache_;
  return nullptr;
}

void TextEngine::EndRequest() {
  local_cache_.Clear();
  if (global_cache_.bytes() > kGlobalGlyphCacheBytes) global_cache_.Clear();
}

void TextEngine::Clear() {
  local_cache_.Clear();
  global_cache_.Clear();
  fonts_.clear();
  no_font_reported_ = false;
}

}  // namespace vmp
