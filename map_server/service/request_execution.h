// The map server mode: one OGC request answered per run.
#pragma once

#include <optional>
#include <string>

#include "map_server/dataset/map_request.h"
#include "map_server/service/ogc_request.h"

namespace vmp {

struct ServeOptions {
  std::string dataset;                // dataset info file
  std::string query;                  // the OGC query string
  std::optional<std::string> output;  // GetMap image file ("-": standard output)
  bool cgi = false;                   // answers carry a Content-Type header
};

// Starts the map service with the dataset, parses and answers the request,
// shuts the service down, and returns the exit status (0 when the request
// produced its result).
int ServeMapRequest(const ServeOptions& options);

// Sets the map parameters the parsed request names on the map's resources.
void ApplyRequestToMap(const ParsedRequest& request, MapRequest& map);

}  // namespace vmp
