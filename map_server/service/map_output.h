// Writing the GetMap answer: the map image as JPEG.
#pragma once

#include <cstdio>
#include <optional>
#include <string>

#include "map_server/geometry/map_image.h"

namespace vmp {

// In CGI mode "Content-Type: image/jpeg", a blank line and the JPEG on
// `standard_output`; otherwise the JPEG to the file `output`, or bare on
// `standard_output` when `output` is "-". At verbosity 2 or more "Saved
// image" or "Error saving image" is reported (Info). Returns whether the
// image was written; false also for a command line without an output.
bool WriteMapAnswer(const MapImage& image, bool cgi, const std::optional<std::string>& output,
                    std::FILE* standard_output = stdout);

}  // namespace vmp
