#include "map_server/service/xml_writer.h"

#include "toolkit/strings.h"

namespace vmp {

void XmlWriter::Indent() { out_.append(2 * static_cast<size_t>(depth_), ' '); }

void XmlWriter::Open(const char* name, const char* attributes) {
  Indent();
  out_ += attributes ? kav::StrPrintf("<%s %s>\n", name, attributes) : kav::StrPrintf("<%s>\n", name);
  ++depth_;
}

void XmlWriter::Close(const char* name) {
  if (depth_ > 0) --depth_;
  Indent();
  out_ += kav::StrPrintf("</%s>\n", name);
}

void XmlWriter::TextLine(const std::string& text) {
  Indent();
  out_ += text;
  if (text.empty() || text.back() != '\n') out_ += '\n';
}

void XmlWriter::Empty(const char* name, const char* attributes) {
  Indent();
  out_ += kav::StrPrintf("<%s %s>\n", name, attributes);
}

void XmlWriter::TextElement(const char* name, const std::string& text, const char* attributes) {
  Indent();
  out_ += attributes ? kav::StrPrintf("<%s %s>", name, attributes) : kav::StrPrintf("<%s>", name);
  out_ += text;
  out_ += kav::StrPrintf("</%s>\n", name);
}

void XmlWriter::IntegerElement(const char* name, long value) {
  Indent();
  out_ += kav::StrPrintf("<%s>%ld</%s>\n", name, value, name);
}

void XmlWriter::NumberElement(const char* name, double value) {
  Indent();
  out_ += kav::StrPrintf("<%s>%lf</%s>\n", name, value, name);
}

void XmlWriter::Comment(const std::string& text) {
  Indent();
  out_ += "<!-- " + text + " -->";
}

}  // namespace vmp
