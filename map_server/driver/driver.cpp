#include "map_server/driver/driver.h"

#include <cstdio>
#include <cstring>

#include "toolkit/message_log.h"

namespace vmp {

int RunDriver(int argc, char** argv) {
  int first = 1;
  if (first < argc && std::strcmp(argv[first], "-map-server") == 0) ++first;
  if (first < argc && std::strcmp(argv[first], "-version") == 0) {
    kav::KavError("KAV Toolkit and KAV Map Server Version 3.5", kav::kInfo);
    return 0;
  }
  std::fputs("Can't really do anything without any options...\n", stdout);
  return 1;
}

}  // namespace vmp
