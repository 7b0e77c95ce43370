// Loading speed of TVF files in both encodings: a vector map request loads
// every tile it draws, so this is the hot path of vector rendering.
//
// The files are made once per run in the temporary directory: polygons of
// 20 to 400 points with three attributes, as a shapefile conversion of
// roads or coastlines produces them: about 45 MB in ASCII, 35 MB in BINARY.
// They are removed when the program ends.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <random>
#include <string>

#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/tvf_writer.h"

namespace vmp {
namespace {

constexpr int kFeatures = 10000;

// A generated file, removed again when the program ends.
struct BenchFile {
  explicit BenchFile(TvfFormat format);
  BenchFile(const BenchFile&) = delete;
  BenchFile& operator=(const BenchFile&) = delete;
  ~BenchFile() { std::remove(path.c_str()); }
  std::string path;
  uint64_t bytes = 0;
};

BenchFile::BenchFile(TvfFormat format) {
  const char* name = format == TvfFormat::kAscii ? "vmp_bench_ascii.tvf" : "vmp_bench_binary.tvf";
  path = (std::filesystem::temp_directory_path() / name).string();
  std::mt19937 rng(42);
  std::uniform_real_distribution<double> step(-0.01, 0.01);
  std::uniform_real_distribution<double> start(-170.0, 170.0);
  std::uniform_int_distribution<int> count(20, 400);
  FILE* out = std::fopen(path.c_str(), "wb");
  WriteTvfHeader(out, format);
  for (int i = 0; i < kFeatures; ++i) {
    PolygonFeature polygon;
    double x = start(rng), y = start(rng) / 2;
    int n = count(rng);
    for (int k = 0; k < n; ++k) {
      x += step(rng);
      y += step(rng);
      polygon.points.push_back({x, y, 0.0});
    }
    polygon.AddAttribute(0, TypedValue::String("Feature " + std::to_string(i)));
    polygon.AddAttribute(1, TypedValue::Double(i * 1.25));
    polygon.AddAttribute(2, TypedValue::Double(n));
    WriteTvfFeature(out, format, polygon);
  }
  std::fclose(out);
  bytes = std::filesystem::file_size(path);
}

void LoadFile(benchmark::State& state, TvfFormat format) {
  static const BenchFile ascii(TvfFormat::kAscii);
  static const BenchFile binary(TvfFormat::kBinary);
  const BenchFile& file = format == TvfFormat::kAscii ? ascii : binary;
  int64_t features = 0;
  for (auto _ : state) {
    VectorData data;
    if (!LoadTvfFile(file.path, TvfSource::kTvf, data)) state.SkipWithError("load failed");
    features += data.FeatureCount();
    benchmark::DoNotOptimize(data.features.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * file.bytes));
  state.counters["features/s"] = benchmark::Counter(static_cast<double>(features),
                                                    benchmark::Counter::kIsRate);
  state.counters["file_MB"] = static_cast<double>(file.bytes) / 1e6;
}

void BM_LoadAscii(benchmark::State& state) { LoadFile(state, TvfFormat::kAscii); }
void BM_LoadBinary(benchmark::State& state) { LoadFile(state, TvfFormat::kBinary); }
BENCHMARK(BM_LoadAscii)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LoadBinary)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace vmp

BENCHMARK_MAIN();
