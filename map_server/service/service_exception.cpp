#include "map_server/service/service_exception.h"

#include <cstdio>

#include "map_server/service/xml_writer.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Calls `visit` for each listed entry of ImageErrors (none before the map
// service has started).
template <typename Visit>
void ForEachListedImageError(Visit visit) {
  const auto& image_errors = kav::Messages().image_errors;
  if (!image_errors) return;
  size_t listed = 0;
  for (const std::string& entry : *image_errors) {
    if (listed++ == kMaxListedImageErrors) break;
    visit(entry);
  }
}

}  // namespace

std::string FormatServiceExceptionText(std::string_view message,
                                       std::optional<std::string_view> detail) {
  std::string text(message);
  text += '\n';
  if (detail) {
    text += *detail;
    text += '\n';
  }
  ForEachListedImageError([&text](const std::string& entry) {
    text += entry;
    text += '\n';
  });
  return text;
}

std::string FormatServiceExceptionXml(std::string_view message,
                                      std::optional<std::string_view> detail) {
  std::string out = "Content-Type: text/xml\n\n";
  XmlWriter xml(out);
  xml.Open("ServiceExceptionReport", "version=\"1.3.0\"");
  xml.Open("ServiceException");
  xml.TextLine(std::string(message));
  if (detail) xml.TextLine(std::string(*detail));
  xml.Close("ServiceException");
  ForEachListedImageError([&xml](const std::string& entry) {
    xml.TextElement("ServiceException", entry);
  });
  xml.Close("ServiceExceptionReport");
  return out;
}

void WriteServiceException(std::string_view message, std::optional<std::string_view> detail) {
  // A CGI caller always receives a document on standard output.
  FILE* stream = kav::Messages().cgi ? stdout : stderr;
  std::string text = kav::Messages().cgi ? FormatServiceExceptionXml(message, detail)
                                         : FormatServiceExceptionText(message, detail);
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

}  // namespace vmp
