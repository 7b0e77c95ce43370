// Feeds arbitrary text to the OGC request query parser.
#include <cstddef>
#include <cstdint>
#include <string>

#include "map_server/service/ogc_query_parser.h"
#include "toolkit/message_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool quiet = [] {
    kav::Messages().cgi = true;  // no log files
    vmp::VmpSetErrorHandler([](const char*, int) {});
    return true;
  }();
  (void)quiet;
  kav::Messages().verbosity = size > 0 ? data[0] % 3 : 0;
  std::string query(reinterpret_cast<const char*>(data), size);
  vmp::ParsedRequest request;
  vmp::ParseOgcRequest(query.c_str(), request);
  return 0;
}
