#include "map_server/driver/command_shp2tvf.h"

#include "shp2tvf/shp2tvf.h"

namespace vmp {

bool SetupShp2Tvf(ArgList args, Shp2TvfOptions& o) {
  o.args.assign(args.begin(), args.end());
  return true;
}

int RunShp2Tvf(const Shp2TvfOptions& o) {
  // The converter reads its own options and gives the exit status.
  return Shp2TvfMain(o.args);
}

}  // namespace vmp
