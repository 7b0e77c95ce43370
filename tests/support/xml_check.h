// A small XML well-formedness check for the documents the server writes:
// one root element, properly nested and closed tags, quoted attributes, no
// bare "<" or "&" in text. Returns an empty string when the text is
// well-formed, else what is wrong.
// FlatXml drops the line ends and the indentation at line starts, so that a
// test can state a document's content compactly (the writer's layout has a
// test of its own).
#pragma once

#include <string>
#include <string_view>

namespace vmp::test {

std::string XmlProblem(std::string_view document);
std::string FlatXml(std::string_view document);

}  // namespace vmp::test
