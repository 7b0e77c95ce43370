#include "map_server/driver/command_slf.h"

#include "map_server/tools/slf_generator.h"

#include "toolkit/message_log.h"

namespace vmp {

OptionTable SlfOptionTable(SlfOptions& o) {
  OptionTable table = {
      {"-path", "path", &o.path, kPathBufferSize},
      {"-pattern", "pattern", &o.pattern, kPathBufferSize},
      {"-single-layer", "", &o.single_layer},
      {"-multi-layer", "", &o.multi_layer},
      {"-out-slf-name", "out slf name", &o.out_slf_name},
      {"-suppress-bbox", "", &o.suppress_bbox},
      {"-out-lif-name", "out lif name", &o.out_lif_name},
  };
  AddSaveModeOptions(table, o.save_mode);
  return table;
}

bool SetupSlf(ArgList args, SlfOptions& o) {
  std::optional<DataKind> kind = ReadDataKind(args);
  if (!kind) return CheckFailed("Missing -vector or -image after -slf!");
  o.kind = *kind;
  if (!ParseOptions(args.subspan(1), SlfOptionTable(o))) return false;
  if (!o.path || !o.pattern) return CheckFailed("Mandatory variables path or pattern not set!");
  if (o.save_mode.ascii && o.save_mode.binary) return CheckFailed("-b and -a are both set!");
  if (o.single_layer && o.multi_layer) {
    return CheckFailed("Only one of -single-layer or -multi-layer may be used!");
  }
  if (o.kind == DataKind::kVector) {
    if (!o.single_layer && !o.multi_layer) {
      return CheckFailed("-single-layer or -multi-layer is required in -vector mode!");
    }
    if (o.single_layer && !o.out_slf_name) {
      return CheckFailed("Mandatory variable -out-slf-name not set in -single-layer mode!");
    }
    if (o.multi_layer && o.out_slf_name) {
      Report(kWarning, "-out-slf-name ignored in -multi-layer mode.");
      o.out_slf_name.reset();
    }
    return true;
  }
  if (o.multi_layer) {
    Report(kWarning, "-multi-layer is not supported in -image mode, ignored!");
    o.multi_layer = false;
  }
  if (!o.out_slf_name) {
    return CheckFailed("Mandatory variable -out-slf-name not set in -image mode!");
  }
  return true;
}

int RunSlf(const SlfOptions& o) {
  SlfGeneratorOptions generator;
  generator.path = *o.path;
  generator.pattern = *o.pattern;
  generator.image = o.kind == DataKind::kImage;
  generator.multi_layer = o.multi_layer;
  generator.out_slf_name = o.out_slf_name.value_or("");
  generator.out_lif_name = o.out_lif_name.value_or("");
  generator.boxes = !o.suppress_bbox;
  generator.progress = ProgressInterval();
  const bool generated = GenerateSlfFiles(generator);
  if (!generated) {
    Report(kWarning, "Errors converting some files in", *o.path);
    return kExitFailure;
  }
  return kExitSuccess;
}

}  // namespace vmp
