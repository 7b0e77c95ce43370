// XML pieces of the standard answers: escaping, numbers, and the service
// exception report.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "map_server/wms/wms_request.h"

namespace vmp {

// Text made safe for element content and double-quoted attributes: the five
// special characters become entities, well-formed UTF-8 stays, every other
// byte is taken as Latin-1 and written as UTF-8, and characters XML cannot
// carry (control characters but tab and line ends) become "?".
std::string XmlEscape(std::string_view text);

// A coordinate or other real as the shortest text that reads back the same.
std::string FormatNumber(double value);

// The exception report of a version: 1.3.0 in the "http://www.opengis.net/ogc"
// namespace with its schema location; 1.1.1 in the DTD form, without a
// namespace. `error` first, then one exception without a code per entry of
// `details` (the messages logged while the request ran).
std::string FormatExceptionReport(WmsVersion version, const WmsError& error,
                                  const std::vector<std::string>& details = {});

// Its Content-Type: "text/xml" (1.3.0) or "application/vnd.ogc.se_xml" (1.1.1).
const char* ExceptionContentType(WmsVersion version);

}  // namespace vmp
