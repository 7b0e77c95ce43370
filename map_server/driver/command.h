// What every command unit (one per mode) shares.
//
// A mode is a pair of functions beside its options struct:
//   bool Setup<Mode>(ArgList args, <Mode>Options& options)
//     reads the options and checks them, never opens a file; on a fault it
//     has reported it and returns false (the process then ends with 1);
//   int Run<Mode>(const <Mode>Options& options)
//     calls the mode's worker and maps its result to the exit status.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "map_server/driver/option_parser.h"

namespace vmp {

inline constexpr int kExitSuccess = 0;
inline constexpr int kExitFailure = 1;

template <typename Options>
int RunCommand(ArgList args, bool (*setup)(ArgList, Options&), int (*run)(const Options&)) {
  Options options;
  if (!setup(args, options)) return kExitFailure;
  return run(options);
}

// Reports a tool's result, `done` as Info on success and `failed` as Error
// otherwise, and returns the exit status.
int ToolStatus(bool ok, std::string_view done, std::string_view failed);

// The progress interval for tools that report progress: "-progress n", or
// 100 when it was not given.
int64_t ProgressInterval();

// "-a" and "-b": the TVF save mode. The last one given sets the process-wide
// flag at once; the record tells a mode that refuses both.
struct SaveModeFlags {
  bool ascii = false;
  bool binary = false;
};
void AddSaveModeOptions(OptionTable& table, SaveModeFlags& flags);

// "-image" or "-vector", the required first option of -tile and -slf.
enum class DataKind { kImage, kVector };
std::optional<DataKind> ReadDataKind(ArgList args);

// A count or size given and above zero.
inline bool IsPositive(const std::optional<int64_t>& value) { return value && *value > 0; }

// Reports `message` as an error and returns false: the checks' usual ending.
bool CheckFailed(std::string_view message);

}  // namespace vmp
