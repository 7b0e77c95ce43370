#include "map_server/driver/command_tvf_info.h"

#include "map_server/tools/tvf_info.h"

namespace vmp {

bool SetupTvfInfo(ArgList args, TvfInfoOptions& o) {
  o.files.assign(args.begin(), args.end());
  if (o.files.empty()) return CheckFailed("Missing TVF filenames after -tvf-info!");
  return true;
}

int RunTvfInfo(const TvfInfoOptions& o) {
  const bool reported = ReportTvfInfo(o.files);
  return reported ? kExitSuccess : kExitFailure;
}

}  // namespace vmp
