// Attribute conditions: the parsed form of expressions such as
//   @2=="Main St" && @5>=1000 || @7!=@8
// that select features by their numbered attributes. A condition list is an
// OR of chains; a chain is an AND of conditions. "&&" continues the current
// chain, "||" starts a new one; there are no parentheses.
//
// Evaluation against a feature lives in attr_match.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vmp {

enum class AttrOp : uint32_t {
  kEqual = 1,         // "=="
  kNotEqual = 2,      // "!="
  kGreater = 3,       // ">"
  kGreaterEqual = 4,  // ">="
  kLess = 5,          // "<"
  kLessEqual = 6,     // "<="
};

// State of a condition's value text read as a number.
enum class ValueState : uint8_t { kUnread = 0, kRead = 1, kInvalid = 2 };

struct AttrCondition {
  int64_t first_index = 0;   // attribute on the left
  int64_t second_index = 0;  // attribute on the right, when right_is_attribute
  AttrOp op = AttrOp::kEqual;
  std::string value_text;    // the right side as written, when it is a value
  bool right_is_attribute = false;
  // The value text read as a D value on first use, remembered for later
  // features (kInvalid: it could not be read; the condition never holds).
  mutable double parsed_value = 0.0;
  mutable ValueState value_state = ValueState::kUnread;
};

// Conditions that must all hold, in evaluation order.
struct AttrChain {
  std::vector<AttrCondition> conditions;
};

// Chains of which one must hold, in evaluation order.
struct AttrConditionList {
  std::vector<AttrChain> chains;
  bool empty() const { return chains.empty(); }
};

// Parses one condition expression and appends its chains to `list`; with
// `previous` (a chain of `list`) the first conditions up to the first "||"
// extend that chain instead. An empty or blank text adds nothing and
// succeeds. Failures are logged; conditions parsed before a failure stay.
bool ParseAttrCondition(std::string_view text, AttrConditionList& list,
                        AttrChain* previous = nullptr);
// The same, creating the list when it does not exist yet.
bool ParseAttrCondition(std::string_view text, std::optional<AttrConditionList>& list,
                        AttrChain* previous = nullptr);

// "name @cond..." settings: the text before the first "@" (trailing blanks
// removed) becomes `name`; the text from the "@" on, if any, is parsed into
// `list`.
bool SplitNameAndConditions(std::string_view text, std::string* name, AttrConditionList& list);
bool SplitNameAndConditions(std::string_view text, std::string* name,
                            std::optional<AttrConditionList>& list);

}  // namespace vmp
