#include "tests/support/xml_check.h"

#include <cctype>
#include <vector>

namespace vmp::test {

namespace {

bool IsNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == ':' || c == '_' || c == '-' || c == '.';
}

// Checks "&...;" references at `pos` (just after the "&").
bool ValidReference(std::string_view text, size_t pos) {
  size_t end = text.find(';', pos);
  if (end == std::string_view::npos || end == pos) return false;
  std::string_view name = text.substr(pos, end - pos);
  if (name == "lt" || name == "gt" || name == "amp" || name == "quot" || name == "apos") return true;
  if (name[0] != '#') return false;
  for (size_t i = 1; i < name.size(); ++i) {
    if (!std::isalnum(static_cast<unsigned char>(name[i]))) return false;
  }
  return name.size() > 1;
}

}  // namespace

std::string XmlProblem(std::string_view doc) {
  std::vector<std::string> open;
  bool root_seen = false;
  size_t i = 0;
  while (i < doc.size()) {
    char c = doc[i];
    if (c == '&') {
      if (!ValidReference(doc, i + 1)) return "bare & at " + std::to_string(i);
      ++i;
      continue;
    }
    if (c != '<') {
      if (open.empty() && !std::isspace(static_cast<unsigned char>(c))) {
        return "text outside the root element at " + std::to_string(i);
      }
      ++i;
      continue;
    }
    if (doc.compare(i, 4, "<!--") == 0) {
      size_t end = doc.find("-->", i + 4);
      if (end == std::string_view::npos) return "unclosed comment";
      i = end + 3;
      continue;
    }
    if (doc.compare(i, 2, "<?") == 0) {
      size_t end = doc.find("?>", i + 2);
      if (end == std::string_view::npos || !open.empty() || root_seen) return "misplaced declaration";
      i = end + 2;
      continue;
    }
    bool closing = i + 1 < doc.size() && doc[i + 1] == '/';
    size_t pos = i + (closing ? 2 : 1);
    size_t name_start = pos;
    while (pos < doc.size() && IsNameChar(doc[pos])) ++pos;
    std::string name(doc.substr(name_start, pos - name_start));
    if (name.empty()) return "bare < at " + std::to_string(i);
    bool self_closing = false;
    // Attributes: name="value" pairs.
    while (true) {
      while (pos < doc.size() && std::isspace(static_cast<unsigned char>(doc[pos]))) ++pos;
      if (pos >= doc.size()) return "unterminated tag " + name;
      if (doc[pos] == '>') break;
      if (doc[pos] == '/' && pos + 1 < doc.size() && doc[pos + 1] == '>' && !closing) {
        self_closing = true;
        ++pos;
        break;
      }
      if (closing) return "junk in closing tag " + name;
      size_t attr_start = pos;
      while (pos < doc.size() && IsNameChar(doc[pos])) ++pos;
      if (pos == attr_start || pos >= doc.size() || doc[pos] != '=') return "bad attribute in " + name;
      ++pos;
      if (pos >= doc.size() || (doc[pos] != '"' && doc[pos] != '\'')) return "unquoted attribute in " + name;
      char quote = doc[pos];
      size_t end = doc.find(quote, pos + 1);
      if (end == std::string_view::npos) return "unterminated attribute in " + name;
      std::string_view value = doc.substr(pos + 1, end - pos - 1);
      if (value.find('<') != std::string_view::npos) return "< in attribute of " + name;
      pos = end + 1;
    }
    i = pos + 1;
    if (closing) {
      if (open.empty() || open.back() != name) return "mismatched </" + name + ">";
      open.pop_back();
      continue;
    }
    if (open.empty()) {
      if (root_seen) return "second root element " + name;
      root_seen = true;
    }
    if (!self_closing) open.push_back(name);
  }
  if (!open.empty()) return "unclosed <" + open.back() + ">";
  if (!root_seen) return "no root element";
  return "";
}

std::string FlatXml(std::string_view document) {
  std::string flat;
  bool line_start = true;
  for (char c : document) {
    if (c == '\n') {
      line_start = true;
    } else if (!(line_start && c == ' ')) {
      line_start = false;
      flat += c;
    }
  }
  return flat;
}

}  // namespace vmp::test
