// Argument-file text of any kind: never more than 1024 characters an
// argument, never a crash or a hang.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "map_server/driver/arg_file.h"
#include "toolkit/message_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool quiet = [] {
    kav::Messages().cgi = true;  // no log files
    kav::KavSetErrorHandler([](const char*, int) {});
    return true;
  }();
  (void)quiet;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  size_t total = 0;
  for (const std::string& arg : vmp::SplitArgText(text)) {
    if (arg.size() > vmp::kMaxArgLength) std::abort();
    total += arg.size();
  }
  if (total > size) std::abort();
  return 0;
}
