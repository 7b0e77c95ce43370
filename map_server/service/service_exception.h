// The service exception report: the answer to a map request that failed,
// and to a "-generate" command line that cannot be served, so that a CGI
// caller always receives a well-formed answer.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vmp {

// At most this many entries of ImageErrors are listed in a report.
inline constexpr size_t kMaxListedImageErrors = 31;

// Writes the report for `message` and its optional `detail`. In CGI mode it
// is the XML report on standard output (FormatServiceExceptionXml). In command-line
// mode it goes to standard error: the message and "\n", the detail and "\n"
// if there is one, then the first entries of ImageErrors (if the list exists)
// as lines of their own.
void WriteServiceException(std::string_view message,
                           std::optional<std::string_view> detail = std::nullopt);

// The CGI form: "Content-Type: text/xml", a blank line, and the
// ServiceExceptionReport (version 1.3.0) with one ServiceException holding
// the message and detail lines, then one per listed ImageErrors entry.
std::string FormatServiceExceptionXml(std::string_view message,
                                      std::optional<std::string_view> detail);

// The command-line form of the report.
std::string FormatServiceExceptionText(std::string_view message,
                                       std::optional<std::string_view> detail);

}  // namespace vmp
