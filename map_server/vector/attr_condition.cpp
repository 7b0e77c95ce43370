#include "map_server/vector/attr_condition.h"

#include <cstdlib>
#include <cstring>

#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Values of conditions keep at most this many characters.
constexpr size_t kMaxValueLength = 1024;

bool IsWhite(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

const char* SkipWhite(const char* p) {
  while (IsWhite(*p)) ++p;
  return p;
}

struct OperatorWord {
  const char* text;
  AttrOp op;
};
// Two-character operators first, so ">=" is not read as ">".
constexpr OperatorWord kOperators[] = {
    {"==", AttrOp::kEqual},   {"!=", AttrOp::kNotEqual}, {">=", AttrOp::kGreaterEqual},
    {"<=", AttrOp::kLessEqual}, {">", AttrOp::kGreater}, {"<", AttrOp::kLess},
};

bool ReadOperator(const char** p, AttrOp* op) {
  for (const OperatorWord& w : kOperators) {
    size_t n = std::strlen(w.text);
    if (std::strncmp(*p, w.text, n) == 0) {  // stops at the text's end
      *op = w.op;
      *p += n;
      return true;
    }
  }
  return false;
}

bool ReadIndex(const char** p, int64_t* index) {
  char* end = nullptr;
  long value = std::strtol(*p, &end, 10);
  if (end == *p) return false;
  *index = value;
  *p = end;
  return true;
}

char Unescape(char c) {
  switch (c) {
    case 'b': return '\b';
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    default: return c;
  }
}

// A quoted string with backslash escapes, or a bare token up to white space.
bool ReadValue(const char** pp, std::string* out) {
  const char* p = *pp;
  if (*p == '\0') return false;
  bool truncated = false;
  auto keep = [&](char c) {
    if (out->size() < kMaxValueLength) out->push_back(c);
    else truncated = true;
  };
  if (*p == '"') {
    ++p;
    for (;;) {
      char c = *p;
      if (c == '\\') c = *++p == '\0' ? '\0' : Unescape(*p);
      else if (c == '"') break;
      if (*p == '\0') {
        Report(kError, "Unterminated quote character in a quoted string");
        return false;
      }
      keep(c);
      ++p;
    }
    ++p;  // the closing quote
  } else {
    for (; *p != '\0' && !IsWhite(*p); ++p) keep(*p);
  }
  if (truncated) Report(kWarning, "String is too long, truncated!");
  *pp = p;
  return true;
}

}  // namespace

bool ParseAttrCondition(std::string_view text_view, AttrConditionList& list,
                        AttrChain* previous) {
  // The parser works on a terminated copy (strtol reads the indices).
  const std::string text(text_view);
  constexpr size_t kNoChain = static_cast<size_t>(-1);
  size_t chain = kNoChain;
  if (previous != nullptr && previous >= list.chains.data() &&
      previous < list.chains.data() + list.chains.size()) {
    chain = static_cast<size_t>(previous - list.chains.data());
  }
  const char* p = text.c_str();
  for (;;) {
    p = SkipWhite(p);
    if (*p == '\0') return true;
    if (*p != '@') {
      Report(kError, "Attribute condition must start with @ char!", text);
      return false;
    }
    ++p;
    AttrCondition condition;
    if (!ReadIndex(&p, &condition.first_index)) {
      Report(kError, "Invalid first attribute index in attribute condition", text);
      return false;
    }
    p = SkipWhite(p);
    if (!ReadOperator(&p, &condition.op)) {
      Report(kError, "Invalid condition op in attribute condition");
      Report(kError, "  Syntax error at:", p);
      return false;
    }
    p = SkipWhite(p);
    if (*p == '@') {
      ++p;
      condition.right_is_attribute = true;
      if (!ReadIndex(&p, &condition.second_index)) {
        Report(kError, "Invalid second attribute index in attribute condition", text);
        return false;
      }
    } else if (!ReadValue(&p, &condition.value_text)) {
      Report(kError, "Invalid condition value in attribute condition", text);
      return false;
    }
    if (chain == kNoChain) {
      list.chains.emplace_back();
      chain = list.chains.size() - 1;
    }
    list.chains[chain].conditions.push_back(std::move(condition));

    p = SkipWhite(p);
    if (*p == '\0') return true;
    if (p[0] == '&' && p[1] == '&') {
      p += 2;
    } else if (p[0] == '|' && p[1] == '|') {
      p += 2;
      chain = kNoChain;
    } else {
      Report(kError, "Invalid boolean op in attribute condition");
      Report(kError, "  Syntax error at:", p);
      return false;
    }
  }
}

bool ParseAttrCondition(std::string_view text, std::optional<AttrConditionList>& list,
                        AttrChain* previous) {
  if (!list) list.emplace();
  return ParseAttrCondition(text, *list, previous);
}

namespace {

template <typename List>
bool SplitNameAndConditionsInto(std::string_view text, std::string* name, List& list) {
  size_t at = text.find('@');
  std::string_view head = text.substr(0, at);
  while (!head.empty() && (head.back() == ' ' || head.back() == '\t')) head.remove_suffix(1);
  *name = std::string(head);
  if (at == std::string_view::npos) return true;
  return ParseAttrCondition(text.substr(at), list, nullptr);
}

}  // namespace

bool SplitNameAndConditions(std::string_view text, std::string* name, AttrConditionList& list) {
  return SplitNameAndConditionsInto(text, name, list);
}

bool SplitNameAndConditions(std::string_view text, std::string* name,
                            std::optional<AttrConditionList>& list) {
  return SplitNameAndConditionsInto(text, name, list);
}

}  // namespace vmp
