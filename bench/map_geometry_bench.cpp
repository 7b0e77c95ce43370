// The per-pixel conversions of the renderer: every pixel of an image layer
// goes through PixelToLatLon.
#include <benchmark/benchmark.h>

#include "map_server/geometry/conversions.h"
#include "map_server/geometry/map_image.h"
#include "toolkit/message_log.h"

namespace {

vmp::MapGeometry Geometry(int64_t projection, double angle) {
  vmp::MapGeometryInput in;
  in.projection = projection;
  in.center_lat = 40;
  in.center_lon = 10;
  in.h_extent = projection == vmp::kOrthographicProjection ? 2 * vmp::kEquatorialRadius : 90;
  in.v_extent = in.h_extent;
  in.width = in.height = 1024;
  in.angle = angle;
  in.dataset_options = vmp::DatasetOptions{};
  vmp::MapGeometry g;
  vmp::MapImage image;
  kav::Messages().cgi = true;
  if (!vmp::SetupMapGeometry(in, g, image)) std::abort();
  return g;
}

// One pass over a 1024 x 1024 image, as the image layer renderer makes it.
void BM_PixelToLatLonImage(benchmark::State& state) {
  const vmp::MapGeometry g = Geometry(state.range(0), static_cast<double>(state.range(1)));
  const bool ortho = g.projection == vmp::kOrthographicProjection;
  for (auto _ : state) {
    double sum = 0;
    for (int64_t y = g.min_y; y <= g.max_y; ++y) {
      const double row = ortho ? g.height_m1 - static_cast<double>(y) : static_cast<double>(y);
      for (int64_t x = g.min_x; x <= g.max_x; ++x) {
        const vmp::LatLonPoint p = vmp::PixelToLatLon(g, static_cast<double>(x), row);
        if (p.ok) sum += p.lat + p.lon;
      }
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * 1024 * 1024);
}

void BM_LatLonToPixel(benchmark::State& state) {
  const vmp::MapGeometry g = Geometry(state.range(0), 0);
  double lat = -60, lon = -170;
  for (auto _ : state) {
    vmp::PixelPoint p = vmp::LatLonToPixel(g, lat, lon);
    benchmark::DoNotOptimize(p);
    lat = lat > 60 ? -60 : lat + 0.37;
    lon = lon > 170 ? -170 : lon + 0.91;
  }
  state.SetItemsProcessed(state.iterations());
}

// Arguments: projection (0 rectangular, 2 orthographic), angle.
BENCHMARK(BM_PixelToLatLonImage)->Args({0, 0})->Args({0, 30})->Args({2, 0})->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LatLonToPixel)->Arg(0)->Arg(2);

}  // namespace

BENCHMARK_MAIN();
