// Reading of the dataset info file: directories, layers (each read from its
// LIF), fonts, encoding, tile limits and aliases.
//
//   VMP ROOT DIR=/data/world
//   LAYER DIR=layers
//   FONT DIR=fonts
//   LAYER=coast, coast.lif
//   VECTOR FONT=sans, sans.vft
//   ALIAS=base, "coast,rivers"
//   ALIAS ZOOM RANGE=base, 0, 40
//   ALIAS ENABLE BOX=base, -30, 30, 60, 75
//
// A relative "VMP ROOT DIR=" is taken relative to the info file's
// directory; the layer and font directories relative to the root.
#pragma once

#include <string>
#include <string_view>

#include "map_server/dataset/dataset.h"

namespace vmp {

// Reads the info file at `path` into `dataset` (made by CreateDataset). An
// empty path leaves the dataset empty. False when the file cannot be opened
// ("Cannot open dataset info file").
bool LoadDatasetInfo(Dataset& dataset, const std::string& path);

// The same from memory; `path` names the file in messages. `read_error`
// tells that reading stopped before the end of the file.
void ReadDatasetInfoText(Dataset& dataset, std::string_view path, std::string_view text,
                         bool read_error = false);

}  // namespace vmp
