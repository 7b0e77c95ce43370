// Redirect files: a layer's "REDIRECT FILE=" names a small file holding the
// path prefix put in front of the layer's data paths. The file is read again
// each time the layer is prepared for a request, so the data can be moved
// while the service runs:
//
//   REDIRECT PREFIX=/data/imagery/2024-06
#pragma once

#include <string>
#include <string_view>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/layer.h"

namespace vmp {

enum class RedirectRead { kOk, kCannotOpen, kMissingPrefix };

// Reads a redirect file: the last "REDIRECT PREFIX=" wins; other lines are
// reported and skipped; a read that stops early loses the prefix.
RedirectRead ReadRedirectFile(const std::string& path, std::string* prefix);
RedirectRead ReadRedirectText(std::string_view path, std::string_view text, bool read_error,
                              std::string* prefix);

struct RedirectResult {
  bool layer_enabled = true;          // false: disable the layer for this request
  bool fallback_file_enabled = true;  // false: disable its FALLBACK FILE layer too
  // A new prefix was taken and the data paths rebuilt (tile tree and
  // fallback description re-read): the caller drops the layer's cached tiles.
  bool prefix_changed = false;
};

// Reads the layer's redirect file, if it has one, before a request uses the
// layer. Without a readable prefix the layer keeps an earlier one (reported
// "..., using previous ..." when it has data paths) or, with none, is
// disabled ("Disabling layer with errors in REDIRECT FILE").
RedirectResult PrepareLayerRedirect(const Dataset& dataset, Layer& layer);

}  // namespace vmp
