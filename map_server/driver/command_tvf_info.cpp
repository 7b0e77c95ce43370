#include "map_server/driver/command_tvf_info.h"

namespace vmp {

bool SetupTvfInfo(ArgList args, TvfInfoOptions& o) {
  o.files.assign(args.begin(), args.end());
  if (o.files.empty()) return CheckFailed("Missing TVF filenames after -tvf-info!");
  return true;
}

int RunTvfInfo(const TvfInfoOptions& o) {
  // Worker: the bounding-box report of o.files.
  const bool reported = ReportUnavailable("TVF info");
  return reported ? kExitSuccess : kExitFailure;
}

}  // namespace vmp
