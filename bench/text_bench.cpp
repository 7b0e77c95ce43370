// Label drawing speed: one label laid out and drawn into a map image, with
// the glyph font through each glyph cache type and with the stroke font.
#include <benchmark/benchmark.h>

#include <ft2build.h>
#include FT_FREETYPE_H

#include "map_server/dataset/dataset.h"
#include "map_server/geometry/map_image.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/text/text_decode.h"
#include "map_server/text/text_painter.h"

namespace {

void DrawLabel(benchmark::State& state, const char* font_name, int64_t cache_type, double angle) {
  FT_Library library = nullptr;
  FT_Init_FreeType(&library);
  setenv("VMP_FONT_DIR", VMP_SOURCE_DIR "/data/fonts", 1);
  {
    vmp::TextEngine engine;
    std::unique_ptr<vmp::Dataset> dataset = vmp::CreateDataset("DefaultDataset", "");
    const vmp::LoadedFont* font = engine.ResolveFont(*dataset, std::string(font_name), library);
    vmp::MapGeometry g;
    g.max_x = g.end_x = 511;
    g.max_y = g.end_y = 255;
    vmp::MapImage image;
    image.Resize(512, 256);
    vmp::DrawSurface surface(&image, g);
    vmp::TextStyle style;
    style.label_style = vmp::kLabelOutline;
    style.colour = {255, 255, 255, 1.0, 0};
    std::u32string text;
    vmp::DecodeText("Saint-Étienne-du-Rouvray 42", vmp::TextEncoding::kUtf8, text);
    vmp::TextPainter painter;
    vmp::TextBlock block;
    vmp::GlyphCache* cache = engine.CacheFor(cache_type);
    for (auto _ : state) {
      painter.Layout(*font, text, style, cache, block);
      const vmp::TextPlacement p = vmp::PlaceText(block, 256, 128, vmp::FlatFrame(angle), 0);
      painter.Draw(surface, block, p, style, cache);
      benchmark::DoNotOptimize(image.pixels());
    }
    engine.Clear();
  }
  FT_Done_FreeType(library);
}

void BM_GlyphFontLocalCache(benchmark::State& s) { DrawLabel(s, "sans", vmp::kGlyphCacheLocal, 0.0); }
void BM_GlyphFontNoCache(benchmark::State& s) { DrawLabel(s, "sans", vmp::kGlyphCacheNone, 0.0); }
void BM_GlyphFontTurned(benchmark::State& s) { DrawLabel(s, "sans", vmp::kGlyphCacheLocal, 30.0); }
void BM_StrokeFont(benchmark::State& s) { DrawLabel(s, "roman", vmp::kGlyphCacheNone, 0.0); }

BENCHMARK(BM_GlyphFontLocalCache);
BENCHMARK(BM_GlyphFontNoCache);
BENCHMARK(BM_GlyphFontTurned);
BENCHMARK(BM_StrokeFont);

}  // namespace

BENCHMARK_MAIN();
