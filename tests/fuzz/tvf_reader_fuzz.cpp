// Loads arbitrary bytes as a TVF file, both from memory and through a
// temporary file (the FILE* path with its refills), and writes back what was
// read. The first byte chooses the route, so the corpus covers both.
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "map_server/vector/tvf_reader.h"
#include "map_server/vector/tvf_writer.h"
#include "toolkit/message_log.h"

namespace {

void Silence() {
  static bool done = false;
  if (done) return;
  done = true;
  kav::Messages().cgi = true;  // no log files
  vmp::VmpSetErrorHandler([](const char*, int) {});
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Silence();
  if (size == 0) return 0;
  const bool through_file = data[0] & 1;
  std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  vmp::VectorData loaded;
  if (through_file) {
    FILE* file = std::tmpfile();
    if (file == nullptr) return 0;
    std::fwrite(bytes.data(), 1, bytes.size(), file);
    std::rewind(file);
    vmp::TvfInput input(file);
    vmp::LoadTvfStream(input, "fuzz.tvf", loaded, (data[0] & 2) != 0);
    std::fclose(file);
  } else {
    vmp::TvfInput input(bytes);
    vmp::LoadTvfStream(input, "fuzz.tvf", loaded, (data[0] & 2) != 0);
  }
  // Whatever was kept must be consistent and writable.
  FILE* sink = std::fopen("/dev/null", "wb");
  if (sink != nullptr) {
    for (const auto& feature : loaded.features) {
      for (const vmp::Attribute& a : feature->attributes) {
        if (feature->FindAttribute(a.index) == nullptr) __builtin_trap();
      }
      vmp::WriteTvfFeature(sink, loaded.format, *feature);
    }
    std::fclose(sink);
  }
  return 0;
}
