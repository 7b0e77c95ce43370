// Decoding of raster tiles and encoding of map images: the image work of
// every raster GetMap.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "map_server/image/image_loader.h"
#include "map_server/image/jpeg_writer.h"
#include "map_server/image/tiff_writer.h"
#include "toolkit/message_log.h"

namespace {

// A photo-like test image: smooth colour fields, edges and some noise.
std::vector<uint8_t> MakeImage(int width, int height, int samples) {
  std::vector<uint8_t> pixels(static_cast<size_t>(width) * height * samples);
  uint32_t noise = 1;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const double u = x * 0.01, v = y * 0.013;
      const double base = 128 + 60 * std::sin(u) * std::cos(v) + 40 * std::sin(u * 7 + v * 3);
      for (int s = 0; s < samples; ++s) {
        noise = noise * 1664525 + 1013904223;
        const double value = base + s * 25 + ((x / 64 + y / 64) % 2) * 30 + ((noise >> 24) % 16);
        pixels[(static_cast<size_t>(y) * width + x) * samples + s] =
            static_cast<uint8_t>(std::clamp(value, 0.0, 255.0));
      }
    }
  }
  return pixels;
}

// Test files, written once into a temporary directory.
struct Files {
  std::string dir, jpeg, tiff_rgb, tiff_dem;
  Files() {
    kav::Messages().cgi = true;  // no log files from a benchmark
    char templ[] = "/tmp/image_codec_bench_XXXXXX";
    if (mkdtemp(templ) == nullptr) std::abort();
    dir = templ;
    jpeg = dir + "/large.jpg";
    tiff_rgb = dir + "/tile.tif";
    tiff_dem = dir + "/dem.tif";
    const std::vector<uint8_t> large = MakeImage(4096, 2048, 3);
    const std::vector<uint8_t> tile = MakeImage(1024, 1024, 3);
    std::vector<uint16_t> dem(1024 * 1024);
    for (size_t i = 0; i < dem.size(); ++i) dem[i] = static_cast<uint16_t>(tile[i * 3] * 20 + i % 7);
    if (!vmp::WriteMapJpeg(nullptr, jpeg, large.data(), 4096, 2048) ||
        !vmp::VmpWriteTiff(nullptr, tiff_rgb, tile.data(), 1024, 1024, 0, false) ||
        !vmp::VmpWriteTiff(nullptr, tiff_dem, dem.data(), 1024, 1024, vmp::kTiffElevationKind, false)) {
      std::abort();
    }
  }
  ~Files() {
    for (const std::string& f : {jpeg, tiff_rgb, tiff_dem}) std::remove(f.c_str());
    rmdir(dir.c_str());
  }
};

const Files& TestFiles() {
  static Files files;
  return files;
}

void Decode(benchmark::State& state, const std::string& path, bool elevation, int64_t pixels) {
  vmp::LoadedImage image;  // reused, as the tile cache's records are
  for (auto _ : state) {
    if (!vmp::LoadImageFile(path, vmp::kImageFormatFromName, elevation, image)) {
      state.SkipWithError("load failed");
      return;
    }
    benchmark::DoNotOptimize(image.pixels.data());
  }
  state.SetItemsProcessed(state.iterations() * pixels);
}

void BM_DecodeJpeg4096x2048(benchmark::State& state) {
  Decode(state, TestFiles().jpeg, false, 4096 * 2048);
}
void BM_DecodeTiffRgbTile1024(benchmark::State& state) {
  Decode(state, TestFiles().tiff_rgb, false, 1024 * 1024);
}
void BM_DecodeTiffElevationTile1024(benchmark::State& state) {
  Decode(state, TestFiles().tiff_dem, true, 1024 * 1024);
}

void BM_EncodeMapJpeg(benchmark::State& state) {
  const int side = static_cast<int>(state.range(0));
  const std::vector<uint8_t> image = MakeImage(side, side, 3);
  std::FILE* sink = std::fopen("/dev/null", "wb");
  for (auto _ : state) {
    if (!vmp::WriteMapJpeg(sink, "", image.data(), side, side)) {
      state.SkipWithError("encode failed");
      break;
    }
  }
  std::fclose(sink);
  state.SetItemsProcessed(state.iterations() * side * side);
}

BENCHMARK(BM_DecodeJpeg4096x2048)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeTiffRgbTile1024)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_DecodeTiffElevationTile1024)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EncodeMapJpeg)->Arg(512)->Arg(2048)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
