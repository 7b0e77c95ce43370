// Reading of layer information files (LIF). One LIF describes one layer:
//
//   TYPE=VECTOR
//   TRANS TYPE=OPAQUE
//   FILENAME=roads.tvf
//   EDGE COLOR=1.0, 0.5, 0.0
//   FILL TYPE=FILL AND EDGE
//   INCLUDE=common_labels.inc
//
// Every keyword error is reported and reading goes on; only a file that
// cannot be opened, or one without "TYPE=" or "TRANS TYPE=", yields no
// layer. Enumeration and flag values are read as a quoted token or as the
// rest of the line ("FILL AND EDGE"), and compared exactly.
#pragma once

#include "map_server/vector/attr_condition.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/dataset/layer.h"

namespace vmp {

// Full path of a LIF named by "LAYER=": joined to the dataset's layer
// directory (itself joined to the root unless absolute) unless absolute.
// At verbosity 8 or more the steps are reported.
std::string ResolveLifPath(const Dataset& dataset, std::string_view lif_name);

// Reads the LIF named `lif_name` for layer `layer_name` and appends the
// layer to the dataset. Returns the layer, or null when none was created.
Layer* ReadLifFile(Dataset& dataset, std::string_view layer_name, std::string_view lif_name);

// The same from memory: `lif_path` is the path the text stands for (named
// in messages; relative names resolve against its directory).
Layer* ReadLifText(Dataset& dataset, std::string_view layer_name, std::string_view lif_path,
                   std::string_view text);

// Reads a layer description without adding it to the dataset. A fallback
// description (the file named by "FALLBACK=") does not read a fallback of
// its own. Null when no layer was created ("Could not be opened" when the
// file cannot be opened).
std::unique_ptr<Layer> ParseLifFile(const Dataset& dataset, std::string_view layer_name,
                                    const std::string& path, bool fallback_description);
std::unique_ptr<Layer> ParseLifText(const Dataset& dataset, std::string_view layer_name,
                                    std::string_view lif_path, std::string_view text,
                                    bool read_error, bool fallback_description);

// Parses one "ATTR COND=" text and adds its chains to `conditions` (created
// on the first). An empty or invalid condition adds nothing and returns false:
// the caller reports it as skipped.
bool ParseLifAttrCondition(std::string_view text, std::optional<AttrConditionList>& conditions);

}  // namespace vmp
