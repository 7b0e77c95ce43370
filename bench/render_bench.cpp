// The renderer's hot paths: polygon scan conversion (the real countries and
// a synthetic polygon of 10^5 vertices on a 2048 x 2048 map), the countries'
// edges as thick lines, markers, and the image layer pixel pass over a
// 2048 x 1024 world tile in both projections, nearest and bilinear.
//
// The "allocs" counters count the heap allocations of one iteration after
// the first (the drawing's arrays only grow, so they should be 0).
#include <benchmark/benchmark.h>
#include <shapefil.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include "map_server/dataset/layer.h"
#include "map_server/geometry/map_image.h"
#include "map_server/rendering/image_pass.h"
#include "map_server/rendering/scan_converter.h"
#include "map_server/rendering/vector_tile_drawer.h"
#include "toolkit/message_log.h"

namespace {

std::atomic<int64_t> g_allocations{0};

}  // namespace

// Counts every allocation of the process. (g++ takes the replaced operators
// for the built-in ones and warns about free on their pointers.)
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  g_allocations.fetch_add(1, std::memory_order_relaxed);
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

using namespace vmp;

MapGeometry Geometry(int64_t projection, double center_lat, double center_lon, double h, double v,
                     int64_t width, int64_t height) {
  MapGeometryInput in;
  in.projection = projection;
  in.center_lat = center_lat;
  in.center_lon = center_lon;
  in.h_extent = h;
  in.v_extent = v;
  in.width = width;
  in.height = height;
  in.stretch = 1;
  in.dataset_options = DatasetOptions{};
  MapGeometry g;
  MapImage unused;
  kav::Messages().cgi = true;
  if (!SetupMapGeometry(in, g, unused)) std::abort();
  return g;
}

MapGeometry WorldMap(int64_t width, int64_t height) {
  return Geometry(kRectangularProjection, 0, 0, 360, 180, width, height);
}
MapGeometry Globe(int64_t size) {
  return Geometry(kOrthographicProjection, 30, 10, 2 * kEquatorialRadius, 2 * kPolarRadius, size, size);
}

// The countries shapefile as one vector tile: every part a ring, the parts
// of a record one polygon group.
const VectorData& Countries() {
  static const VectorData data = [] {
    VectorData d;
    const std::string path = std::string(VMP_SOURCE_DIR) + "/data/natural_earth/ne_110m_admin_0_countries.shp";
    SHPHandle shp = SHPOpen(path.c_str(), "rb");
    if (shp == nullptr) std::abort();
    int count = 0, type = 0;
    SHPGetInfo(shp, &count, &type, nullptr, nullptr);
    for (int i = 0; i < count; ++i) {
      SHPObject* o = SHPReadObject(shp, i);
      for (int part = 0; part < o->nParts; ++part) {
        const int begin = o->panPartStart[part];
        const int end = part + 1 < o->nParts ? o->panPartStart[part + 1] : o->nVertices;
        auto p = std::make_unique<PolygonFeature>();
        for (int v = begin; v < end; ++v) p->points.push_back({o->padfX[v], o->padfY[v]});
        p->ComputeBounds();
        p->flag = part + 1 < o->nParts ? 1 : 0;
        d.AddFeature(std::move(p));
      }
      SHPDestroyObject(o);
    }
    SHPClose(shp);
    return d;
  }();
  return data;
}

Layer FillLayer() {
  Layer layer("countries");
  layer.record.layer_type = kLayerVector;
  layer.record.drawing.fill_type = 3;  // fill and edge
  layer.record.drawing.fill_color = {200, 180, 120};
  layer.record.drawing.min_pixel_size = 0;
  return layer;
}

// Draws `data` once to warm the scratch arrays, then times the drawing and
// reports the allocations of the last run (none once the arrays have grown).
void TimeDrawing(benchmark::State& state, DrawSurface& surface, VectorScratch& scratch, Layer& layer,
                 const VectorData& data) {
  VectorDrawStats stats;
  DrawVectorTile(surface, scratch, layer, data, {}, stats);
  int64_t allocations = 0;
  for (auto _ : state) {
    const int64_t before = g_allocations.load();
    DrawVectorTile(surface, scratch, layer, data, {}, stats);
    allocations = g_allocations.load() - before;
  }
  state.counters["allocs"] = static_cast<double>(allocations);
}

// Projection, clipping and filling of all countries (the whole drawing of a
// vector tile), arguments: projection.
void BM_DrawCountries(benchmark::State& state) {
  const MapGeometry g = state.range(0) == kOrthographicProjection ? Globe(2048) : WorldMap(2048, 2048);
  MapImage image;
  AllocateMapImage(g, image);
  DrawSurface surface(&image, g);
  VectorScratch scratch;
  Layer layer = FillLayer();
  const VectorData& data = Countries();
  int64_t points = 0;
  for (auto _ : state) {
    VectorDrawStats stats;
    DrawVectorTile(surface, scratch, layer, data, {}, stats);
    points = stats.points;
  }
  state.counters["points"] = static_cast<double>(points);
  state.SetItemsProcessed(state.iterations() * points);
}

// Scan conversion alone: a polygon of 10^5 vertices covering most of the
// map. Argument 0: a wavy coastline-like ring (a few active edges a row);
// argument 1: a star whose thin spikes put about 2 * 10^4 edges on the
// middle rows (a stress case).
void BM_FillPolygon(benchmark::State& state) {
  const MapGeometry g = WorldMap(2048, 2048);
  MapImage image;
  AllocateMapImage(g, image);
  DrawSurface surface(&image, g);
  PixelRings rings;
  const int n = 100000;
  for (int i = 0; i < n; ++i) {
    const double a = 2 * kPi * i / n;
    const double r = state.range(0) == 0 ? 900.0 + 60.0 * std::sin(37 * a) + 25.0 * std::sin(1001 * a)
                                          : (i % 2 ? 1000.0 : 700.0);
    rings.Add(1024 + r * std::cos(a), 1024 + r * std::sin(a));
  }
  rings.EndRing();
  EdgeTables tables;
  const PixelColour colour{255, 0, 0, 1.0, kTransOpaque};
  for (auto _ : state) FillPolygons(surface, tables, rings, colour);
  state.counters["scanlines"] = static_cast<double>(tables.last_scanlines());
}

// The image pixel pass: a 2048 x 1024 world tile drawn onto a 2048 x 1024
// world map (rectangular) or a 2048 x 2048 globe (orthographic).
void BM_ImagePass(benchmark::State& state) {
  const bool globe = state.range(0) == kOrthographicProjection;
  const bool bilinear = state.range(1) != 0;
  const MapGeometry g = globe ? Globe(2048) : WorldMap(2048, 1024);
  MapImage image;
  AllocateMapImage(g, image);
  DrawSurface surface(&image, g);
  static LoadedImage tile = [] {
    LoadedImage t;
    t.width = 2048;
    t.height = 1024;
    t.samples_per_pixel = 3;
    t.pixels.Resize(2048 * 1024 * 3);
    for (size_t i = 0; i < t.pixels.size(); ++i) t.pixels[i] = static_cast<uint8_t>(i * 7);
    return t;
  }();
  const ImageTileRef tiles[] = {{&tile, {-180, 180, -90, 90}}};
  ImageLayerInput layers[] = {{"world", kTransOpaque, 1.0, {}, 0.0, tiles}};
  layers[0].bilinear = bilinear;
  ImagePassScratch scratch;
  for (auto _ : state) DrawImageLayers(surface, scratch, layers);
  const double pixels = static_cast<double>(g.width * g.height);
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(pixels));
}

// The countries' edges only (FillType EDGE), arguments: projection, line
// width in pixels.
void BM_DrawCountryEdges(benchmark::State& state) {
  const MapGeometry g = state.range(0) == kOrthographicProjection ? Globe(2048) : WorldMap(2048, 2048);
  MapImage image;
  AllocateMapImage(g, image);
  DrawSurface surface(&image, g);
  VectorScratch scratch;
  Layer layer = FillLayer();
  layer.record.drawing.fill_type = 1;
  layer.record.drawing.line_width = static_cast<int32_t>(state.range(1));
  layer.record.drawing.alpha = 0.7;  // blended: every pixel of a stroke written once
  const VectorData& data = Countries();
  TimeDrawing(state, surface, scratch, layer, data);
}

// 10^4 markers on a 2048 x 2048 map, arguments: MarkerType flags, size.
void BM_DrawMarkers(benchmark::State& state) {
  const MapGeometry g = WorldMap(2048, 2048);
  MapImage image;
  AllocateMapImage(g, image);
  DrawSurface surface(&image, g);
  VectorScratch scratch;
  Layer layer = FillLayer();
  layer.record.drawing.marker_type = static_cast<int32_t>(state.range(0));
  layer.record.drawing.marker_size = static_cast<int32_t>(state.range(1));
  layer.record.drawing.line_width = 2;
  VectorData data;
  for (int i = 0; i < 10000; ++i) {
    auto m = std::make_unique<MarkerFeature>();
    m->x = -179.0 + 358.0 * ((i * 7919) % 10000) / 10000.0;
    m->y = -89.0 + 178.0 * ((i * 104729) % 10000) / 10000.0;
    data.AddFeature(std::move(m));
  }
  TimeDrawing(state, surface, scratch, layer, data);
  state.SetItemsProcessed(state.iterations() * 10000);
}

BENCHMARK(BM_DrawCountries)->Arg(kRectangularProjection)->Arg(kOrthographicProjection)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FillPolygon)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DrawCountryEdges)
    ->Args({kRectangularProjection, 1})
    ->Args({kRectangularProjection, 4})
    ->Args({kOrthographicProjection, 4})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DrawMarkers)->Args({4, 5})->Args({2 | 16, 9})->Args({1 | 8 | 32, 15})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ImagePass)
    ->Args({kRectangularProjection, 0})
    ->Args({kOrthographicProjection, 0})
    ->Args({kRectangularProjection, 1})
    ->Args({kOrthographicProjection, 1})
    ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
