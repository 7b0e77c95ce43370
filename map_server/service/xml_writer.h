// The XML writer of the responses: one depth counter, two blanks of indent
// per level, texts written as they are (no escaping).
#pragma once

#include <string>

namespace vmp {

class XmlWriter {
 public:
  explicit XmlWriter(std::string& out) : out_(out) {}

  // "<name>" or "<name attributes>", then one level deeper.
  void Open(const char* name, const char* attributes = nullptr);
  // One level up, then "</name>".
  void Close(const char* name);
  // The text and a line end (none added when the text already ends in one).
  void TextLine(const std::string& text);
  // "<name attributes>": the attribute text carries the closing "/".
  void Empty(const char* name, const char* attributes);
  void TextElement(const char* name, const std::string& text, const char* attributes = nullptr);
  void IntegerElement(const char* name, long value);
  void NumberElement(const char* name, double value);
  // "<!-- text -->" without a line end.
  void Comment(const std::string& text);

  int depth() const { return depth_; }

 private:
  void Indent();

  std::string& out_;
  int depth_ = 0;
};

}  // namespace vmp
