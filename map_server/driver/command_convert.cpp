#include "map_server/driver/command_convert.h"

#include "map_server/tools/tvf_converter.h"

#include <cstdint>

#include "toolkit/global_config.h"
#include "toolkit/message_log.h"

namespace vmp {

OptionTable ConvertOptionTable(ConvertOptions& o) {
  OptionTable table = {
      {"-verbosity", "verbosity", &kav::Messages().verbosity},
      {"-progress", "progress", &kav::Config().progress},
      {"-path", "path", &o.path, kPathBufferSize},
      {"-pattern", "pattern", &o.pattern, kPathBufferSize},
  };
  AddSaveModeOptions(table, o.save_mode);
  return table;
}

bool SetupConvert(ArgList args, ConvertOptions& o) {
  if (!ParseOptions(args, ConvertOptionTable(o))) return false;
  if (!o.path || !o.pattern) return CheckFailed("Mandatory variables path or pattern not set!");
  if (o.save_mode.ascii && o.save_mode.binary) return CheckFailed("-b and -a are both set!");
  return true;
}

int RunConvert(const ConvertOptions& o) {
  int64_t processed = 0;  // matching files, counted by the converter
  const bool converted = ConvertTvfTree(*o.path, *o.pattern, ProgressInterval(), &processed);
  if (!converted) {
    Report(kWarning, "Errors converting some files for", *o.path);
    return kExitFailure;
  }
  if (processed == 0) {
    Report(kWarning, "Found no files matching pattern", *o.pattern);
    return kExitSuccess;
  }
  ReportNumber(kInfo, "Number of processed files", static_cast<double>(processed));
  return kExitSuccess;
}

}  // namespace vmp
