#include "map_server/service/service_exception.h"

#include <cstdio>

#include "toolkit/message_log.h"

namespace vmp {

std::string FormatServiceExceptionText(std::string_view message,
                                       std::optional<std::string_view> detail) {
  std::string text(message);
  text += '\n';
  if (detail) {
    text += *detail;
    text += '\n';
  }
  const auto& image_errors = kav::Messages().image_errors;
  if (image_errors) {
    size_t listed = 0;
    for (const std::string& entry : *image_errors) {
      if (listed++ == kMaxListedImageErrors) break;
      text += entry;
      text += '\n';
    }
  }
  return text;
}

void WriteServiceException(std::string_view message, std::optional<std::string_view> detail) {
  // CGI branch not built yet: in CGI mode (kav::Messages().cgi) the answer
  // must be the XML report on standard output ("Content-Type: text/xml",
  // ServiceExceptionReport version="1.3.0"), which comes with the response
  // writers. Until then a CGI caller gets the command-line form below.
  std::string text = FormatServiceExceptionText(message, detail);
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

}  // namespace vmp
