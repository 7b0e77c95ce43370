#include "map_server/dataset/redirect_file.h"

#include "map_server/dataset/config_reader.h"
#include "map_server/dataset/layer_paths.h"
#include "map_server/util/paths.h"
#include "toolkit/message_log.h"

namespace vmp {

RedirectRead ReadRedirectText(std::string_view path, std::string_view text, bool read_error,
                              std::string* prefix) {
  ConfigContext context{std::string(path), {}};
  bool found = false;
  LineReader lines(text, context);
  std::string_view line;
  while (lines.Next(&line)) {
    std::string_view rest;
    if (MatchKeyword(line, "REDIRECT PREFIX=", &rest)) {
      std::string token;
      if (ReadToken(&rest, &token, context)) {
        *prefix = std::move(token);
        found = true;
      } else {
        context.CannotRead("REDIRECT PREFIX");
      }
      continue;
    }
    context.Report(kWarning, "Unexpected token in REDIRECT FILE, skipping", line);
  }
  if (read_error) {
    context.Report(kError, "Error reading redirect file", path);
    found = false;
  }
  return found ? RedirectRead::kOk : RedirectRead::kMissingPrefix;
}

RedirectRead ReadRedirectFile(const std::string& path, std::string* prefix) {
  ConfigFile file;
  if (!LoadConfigFile(path, &file)) return RedirectRead::kCannotOpen;
  return ReadRedirectText(path, file.text, file.read_error, prefix);
}

RedirectResult PrepareLayerRedirect(const Dataset& dataset, Layer& layer) {
  RedirectResult result;
  LayerRecord& r = layer.record;
  if (r.redirect_path.empty()) return result;

  std::string prefix;
  RedirectRead read = ReadRedirectFile(r.redirect_path, &prefix);
  if (read != RedirectRead::kOk) {
    bool cannot_open = read == RedirectRead::kCannotOpen;
    if (!r.redirect_prefix) {
      Report(kError, cannot_open ? "Can't open REDIRECT FILE" : "Missing REDIRECT PREFIX",
             r.redirect_path);
      Report(kError, "Disabling layer with errors in REDIRECT FILE", layer.name);
      result.layer_enabled = false;
      if (r.fallback) {
        Report(kError, "Errors in REDIRECT FILE: disabling FALLBACK FILE layer", layer.name);
        result.fallback_file_enabled = false;
      }
      return result;
    }
    if (!r.data_path.empty() || r.tile_tree) {
      Report(kError,
             cannot_open ? "Can't open REDIRECT FILE, using previous PREFIX value."
                         : "Missing REDIRECT PREFIX, using previous value.",
             r.redirect_path);
    }
    return result;
  }

  prefix = ToNativePath(prefix);
  if (r.redirect_prefix && *r.redirect_prefix == prefix) return result;
  r.redirect_prefix = prefix;
  BuildLayerDataPaths(dataset, layer, prefix);
  result.prefix_changed = true;
  return result;
}

}  // namespace vmp
