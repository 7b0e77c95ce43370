// Scans arbitrary bytes for a TVF file's box and checks the scan against the
// loader: what the loader reads, the scan reads too, with the same box.
#include <cmath>
#include <optional>

#include "map_server/tools/tvf_box_scan.h"
#include "map_server/vector/feature_extent.h"
#include "map_server/vector/tvf_reader.h"
#include "toolkit/message_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kav::Messages().cgi = true;  // no log files
  vmp::VmpSetErrorHandler([](const char*, int) {});
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  std::optional<vmp::SlfBox> box, expected;
  vmp::TvfInput scan_input(bytes), load_input(bytes);
  const bool scanned = vmp::ScanTvfBox(scan_input, &box);
  vmp::VectorData loaded;
  if (!vmp::LoadTvfStream(load_input, "fuzz.tvf", loaded, true)) return 0;
  if (!scanned) __builtin_trap();
  for (const auto& feature : loaded.features) {
    vmp::FeatureExtent e;
    if (!vmp::ComputeFeatureExtent(*feature, &e)) continue;
    if (!std::isfinite(e.min_x + e.max_x + e.min_y + e.max_y)) return 0;  // NaNs have no order
    const vmp::SlfBox b{e.min_x, e.max_x, e.min_y, e.max_y};
    if (expected) expected->Include(b);
    else expected = b;
  }
  if (box != expected) __builtin_trap();
  return 0;
}
