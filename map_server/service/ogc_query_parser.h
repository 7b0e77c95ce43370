// The OGC request query parser: KEY=VALUE pairs separated by "&", keys
// compared exactly, values used exactly as they stand (no percent-decoding).
#pragma once

#include "map_server/service/ogc_request.h"

namespace vmp {

// Longest key and value the tokenizer takes.
inline constexpr size_t kMaxQueryKey = 1024;
inline constexpr size_t kMaxQueryValue = 1023;

// Parses `query` into `request` (whose `xml` flag the caller presets).
// Returns the request type, or kInvalid after reporting the problems. A null
// query reports "There is no query string!".
RequestType ParseOgcRequest(const char* query, ParsedRequest& request);

}  // namespace vmp
