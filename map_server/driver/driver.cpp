#include "map_server/driver/driver.h"

#include <cstdio>

#include "map_server/driver/arg_file.h"
#include "map_server/driver/command_convert.h"
#include "map_server/driver/command_generate.h"
#include "map_server/driver/command_merge.h"
#include "map_server/driver/command_shp2tvf.h"
#include "map_server/driver/command_slf.h"
#include "map_server/driver/command_slim.h"
#include "map_server/driver/command_split.h"
#include "map_server/driver/command_tile.h"
#include "map_server/driver/command_tile_info.h"
#include "map_server/driver/command_tvf_info.h"
#include "map_server/driver/usage.h"
#include "map_server/service/map_service.h"
#include "toolkit/global_config.h"
#include "toolkit/message_log.h"
#include "toolkit/strings.h"

namespace vmp {

namespace {

constexpr long kVersionMajor = 3;
constexpr long kVersionMinor = 5;

int PrintVersion(ArgList) {
  kav::KavError(kav::StrPrintf("KAV Toolkit and KAV Map Server Version %ld.%ld", kVersionMajor,
                               kVersionMinor)
                    .c_str(),
                kav::kInfo);
  return kExitSuccess;
}

int PrintHelp(ArgList) {
  PrintUsage(stdout);
  return kExitSuccess;
}

// No mode (or an unknown one): the usage text between two notices.
int NoModeGiven() {
  std::fputs("Can't really do anything without any options...\n", stdout);
  PrintUsage(stdout);
  std::fputs("Can't really do anything without any options, see above...\n", stdout);
  return kExitFailure;
}

constexpr Mode kModes[] = {
    {"-version", PrintVersion, false},
    {"-help", PrintHelp, false},
    {"-shp2tvf", [](ArgList a) { return RunCommand(a, SetupShp2Tvf, RunShp2Tvf); }, true},
    {"-tvf-info", [](ArgList a) { return RunCommand(a, SetupTvfInfo, RunTvfInfo); }, true},
    {"-merge", [](ArgList a) { return RunCommand(a, SetupMerge, RunMerge); }, true},
    {"-tile", [](ArgList a) { return RunCommand(a, SetupTile, RunTile); }, true},
    {"-split", [](ArgList a) { return RunCommand(a, SetupSplit, RunSplit); }, true},
    {"-tile_info", [](ArgList a) { return RunCommand(a, SetupTileInfo, RunTileInfo); }, true},
    {"-slf", [](ArgList a) { return RunCommand(a, SetupSlf, RunSlf); }, true},
    {"-lif", [](ArgList a) { return RunCommand(a, SetupSlf, RunSlf); }, true},
    {"-convert", [](ArgList a) { return RunCommand(a, SetupConvert, RunConvert); }, true},
    {"-slim", [](ArgList a) { return RunCommand(a, SetupSlim, RunSlim); }, true},
    // The map service ends its own run (after answering the request).
    {"-generate", [](ArgList a) { return RunCommand(a, SetupGenerate, RunGenerate); }, false},
};

// The one way out of a tool mode: the argument vector is released and the
// map service shut down before the process ends with `status`.
int FinishToolMode(int status, std::vector<std::string>& args) {
  std::vector<std::string>().swap(args);
  Service().Terminate();  // "Terminated/Done!" at verbosity 2 or more
  return status;
}

}  // namespace

const Mode* FindMode(std::string_view option) {
  for (const Mode& mode : kModes) {
    if (mode.option == option) return &mode;
  }
  return nullptr;
}

int RunDriver(int argc, char** argv) {
  // Standard output carries JPEG images: it needs no text translation on
  // this platform, so it is binary as it is. Every message goes to the
  // console (standard error).
  kav::Messages().console = true;

  std::vector<std::string> args(argv, argv + argc);
  if (args.empty()) args.emplace_back("map_server");
  size_t next = 1;
  if (next < args.size() && args[next] == "-map-server") ++next;

  if (next < args.size() && (args[next] == "-verbosity" || args[next] == "-progress")) {
    const bool verbosity = args[next] == "-verbosity";
    std::optional<int64_t> value;
    if (next + 1 < args.size()) value = ReadInteger(args[next + 1]);
    if (!value) {
      std::fprintf(stderr, "expected follow up variable: %s\n",
                   verbosity ? "verbosity" : "progress");
      return kExitFailure;
    }
    (verbosity ? kav::Messages().verbosity : kav::Config().progress) = *value;
    next += 2;
  }

  if (next + 1 < args.size() && args[next] == "-arg-file") {
    const std::string path = args[next + 1];
    std::optional<std::vector<std::string>> file_args = ReadArgFile(path, args[0]);
    if (!file_args) {
      Report(kError, "Could not open arg-file", path);
      return NoModeGiven();
    }
    args = std::move(*file_args);
    next = 1;
  }

  const Mode* mode = next < args.size() ? FindMode(args[next]) : nullptr;
  if (mode == nullptr) return NoModeGiven();
  const int status = mode->main(ArgList(args).subspan(next + 1));
  return mode->tool ? FinishToolMode(status, args) : status;
}

}  // namespace vmp
