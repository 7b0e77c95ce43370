// Converts arbitrary bytes as a shapefile: the input holds the .shp, .shx
// and .dbf files, each after a 4-byte little-endian length (the last one
// takes the rest). The files are written to a scratch directory and
// converted to a memory stream with every record kind and option that
// changes the path taken (closing, winding check, labels).
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "shp2tvf/shp2tvf.h"
#include "toolkit/message_log.h"

namespace {

const std::string& ScratchBase() {
  static const std::string base = [] {
    char dir[] = "/tmp/vmp_shapefile_fuzz_XXXXXX";
    const char* made = mkdtemp(dir);
    return std::string(made != nullptr ? made : "/tmp") + "/f";
  }();
  return base;
}

void WriteFile(const std::string& path, const uint8_t* data, size_t size) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
}

// The next part of the input: a length, then that many bytes (or the rest).
bool TakePart(const uint8_t*& data, size_t& size, bool last, const uint8_t** part,
              size_t* part_size) {
  if (last) {
    *part = data;
    *part_size = size;
    size = 0;
    return true;
  }
  if (size < 4) return false;
  size_t length = data[0] | data[1] << 8 | data[2] << 16 | static_cast<size_t>(data[3]) << 24;
  data += 4;
  size -= 4;
  if (length > size) length = size;
  *part = data;
  *part_size = length;
  data += length;
  size -= length;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kav::Messages().cgi = true;
  if (size < 1) return 0;
  const uint8_t options = data[0];
  ++data;
  --size;
  const char* extensions[] = {".shp", ".shx", ".dbf"};
  for (int k = 0; k < 3; ++k) {
    const uint8_t* part = nullptr;
    size_t part_size = 0;
    if (!TakePart(data, size, k == 2, &part, &part_size)) return 0;
    WriteFile(ScratchBase() + extensions[k], part, part_size);
  }
  FILE* messages = std::fopen("/dev/null", "w");
  char* buffer = nullptr;
  size_t buffer_size = 0;
  FILE* out = open_memstream(&buffer, &buffer_size);
  vmp::Shp2TvfRun run;
  run.messages = messages;
  run.settings.validate = options & 1;
  if (options & 2) run.settings.marker_label_attr = 0;
  vmp::ConvertShapefile(run, ScratchBase() + ".shp", nullptr, out, false,
                        options & 4 ? vmp::TvfFormat::kBinary : vmp::TvfFormat::kAscii,
                        options & 8);
  std::fclose(out);
  std::free(buffer);
  std::fclose(messages);
  return 0;
}
