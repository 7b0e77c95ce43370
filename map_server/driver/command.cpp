#include "map_server/driver/command.h"

#include <string>

#include "toolkit/global_config.h"
#include "toolkit/message_log.h"

namespace vmp {

int ToolStatus(bool ok, std::string_view done, std::string_view failed) {
  if (ok) {
    Report(kInfo, done);
    return kExitSuccess;
  }
  Report(kError, failed);
  return kExitFailure;
}

int64_t ProgressInterval() {
  int64_t progress = kav::Config().progress;
  return progress < 0 ? 100 : progress;
}

std::optional<DataKind> ReadDataKind(ArgList args) {
  if (args.empty()) return std::nullopt;
  if (args[0] == "-image") return DataKind::kImage;
  if (args[0] == "-vector") return DataKind::kVector;
  return std::nullopt;
}

bool CheckFailed(std::string_view message) {
  Report(kError, message);
  return false;
}

void AddSaveModeOptions(OptionTable& table, SaveModeFlags& flags) {
  table.push_back(SwitchWithSetting("-a", &flags.ascii, &kav::Config().binary_save, false));
  table.push_back(SwitchWithSetting("-b", &flags.binary, &kav::Config().binary_save, true));
}

}  // namespace vmp
