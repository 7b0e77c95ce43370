// The bounding box of a TVF file, found by reading its records without
// keeping them: the SLF generator needs only the box of each file, and a
// tree of vector tiles may hold gigabytes of them.
#pragma once

#include <optional>
#include <string>

#include "map_server/tools/slf_format.h"

namespace vmp {

// Sets `box` to the box over every polygon point and marker position of the
// file (x is the longitude, y the latitude), or to nullopt when the file has
// none. False, after "Error in file" with the name, when the file cannot be
// opened or its header or a record cannot be read.
bool ScanTvfFileBox(const std::string& path, std::optional<SlfBox>* box);

class TvfInput;
// The same from an input, without messages.
bool ScanTvfBox(TvfInput& input, std::optional<SlfBox>* box);

}  // namespace vmp
