#include "map_server/driver/command_slim.h"

#include "map_server/tools/slim.h"

#include "toolkit/message_log.h"

namespace vmp {

OptionTable SlimOptionTable(SlimOptions& o) {
  OptionTable table = {
      {"-verbosity", "verbosity", &kav::Messages().verbosity},
      {"-filename", "filename", &o.filename},
      {"-output", "output", &o.output},
      {"-resolution", "resolution", &o.resolution},
  };
  AddSaveModeOptions(table, o.save_mode);
  return table;
}

bool SetupSlim(ArgList args, SlimOptions& o) {
  if (!ParseOptions(args, SlimOptionTable(o))) return false;
  if (!o.filename || !o.output || !o.resolution || *o.resolution <= 0.0) {
    return CheckFailed("Mandatory variables filename, output or resolution not set!");
  }
  return true;
}

int RunSlim(const SlimOptions& o) {
  const bool slimmed = SlimTvfFile(*o.filename, *o.output, *o.resolution);
  return ToolStatus(slimmed, "Slimed data", "Error sliming data");
}

}  // namespace vmp
