#include "map_server/wms/wms_xml.h"

#include <charconv>
#include <cmath>

namespace vmp {

namespace {

// Length of the well-formed UTF-8 sequence at the start of `s`, or 0.
size_t Utf8Sequence(std::string_view s) {
  const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
  const unsigned char c = byte(0);
  size_t length = 0;
  char32_t value = 0;
  if (c < 0x80) return 1;
  if (c >= 0xC2 && c <= 0xDF) {
    length = 2;
    value = c & 0x1F;
  } else if (c >= 0xE0 && c <= 0xEF) {
    length = 3;
    value = c & 0x0F;
  } else if (c >= 0xF0 && c <= 0xF4) {
    length = 4;
    value = c & 0x07;
  } else {
    return 0;
  }
  if (s.size() < length) return 0;
  for (size_t k = 1; k < length; ++k) {
    if ((byte(k) & 0xC0) != 0x80) return 0;
    value = (value << 6) | (byte(k) & 0x3F);
  }
  const char32_t lowest[] = {0, 0, 0x80, 0x800, 0x10000};
  if (value < lowest[length] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) return 0;
  if (value == 0xFFFE || value == 0xFFFF) return 0;  // not XML characters
  return length;
}

const char* const kExceptionSchema =
    "http://www.opengis.net/ogc http://schemas.opengis.net/wms/1.3.0/exceptions_1_3_0.xsd";

void AppendException(std::string& out, WmsVersion version, const WmsError& error) {
  out += "  <ServiceException";
  if (const char* code = ErrorCodeName(error.code, version)) {
    out += " code=\"";
    out += code;
    out += '"';
  }
  if (!error.locator.empty()) out += " locator=\"" + XmlEscape(error.locator) + '"';
  out += '>';
  out += XmlEscape(error.message);
  out += "</ServiceException>\n";
}

}  // namespace

std::string XmlEscape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  size_t k = 0;
  while (k < text.size()) {
    const unsigned char c = static_cast<unsigned char>(text[k]);
    switch (c) {
      case '<': out += "&lt;"; ++k; continue;
      case '>': out += "&gt;"; ++k; continue;
      case '&': out += "&amp;"; ++k; continue;
      case '"': out += "&quot;"; ++k; continue;
      case '\'': out += "&apos;"; ++k; continue;
      case '\t': case '\n': case '\r': out += static_cast<char>(c); ++k; continue;
      default: break;
    }
    if (c < 0x20 || c == 0x7F) {
      out += '?';
      ++k;
      continue;
    }
    const size_t length = Utf8Sequence(text.substr(k));
    if (length > 0) {
      out.append(text.substr(k, length));
      k += length;
    } else if (c >= 0x80 && c < 0xA0) {
      out += '?';  // Latin-1 C1 controls
      ++k;
    } else {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
      ++k;
    }
  }
  return out;
}

std::string FormatNumber(double value) {
  if (!std::isfinite(value)) return "0";
  if (value == 0) value = 0;  // no "-0"
  char buffer[64];
  const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
  return std::string(buffer, result.ptr);
}

std::string FormatExceptionReport(WmsVersion version, const WmsError& error,
                                  const std::vector<std::string>& details) {
  std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  if (version == WmsVersion::k130) {
    out += "<ServiceExceptionReport version=\"1.3.0\" xmlns=\"http://www.opengis.net/ogc\" "
           "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" xsi:schemaLocation=\"";
    out += kExceptionSchema;
    out += "\">\n";
  } else {
    out += "<!DOCTYPE ServiceExceptionReport SYSTEM "
           "\"http://schemas.opengis.net/wms/1.1.1/exception_1_1_1.dtd\">\n"
           "<ServiceExceptionReport version=\"1.1.1\">\n";
  }
  AppendException(out, version, error);
  for (const std::string& detail : details) AppendException(out, version, WmsError{WmsErrorCode::kNone, detail, {}});
  out += "</ServiceExceptionReport>\n";
  return out;
}

const char* ExceptionContentType(WmsVersion version) {
  return version == WmsVersion::k130 ? "text/xml" : "application/vnd.ogc.se_xml";
}

}  // namespace vmp
