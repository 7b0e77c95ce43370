#include "map_server/vector/attr_match.h"

#include "map_server/vector/attr_eval_state.h"
#include "map_server/vector/attribute_map.h"
#include "map_server/vector/c_real_scan.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

bool CompareDoubles(AttrOp op, double left, double right, bool* valid) {
  *valid = true;
  switch (op) {
    case AttrOp::kEqual: return left == right;
    case AttrOp::kNotEqual: return left != right;
    case AttrOp::kGreater: return left > right;
    case AttrOp::kGreaterEqual: return left >= right;
    case AttrOp::kLess: return left < right;
    case AttrOp::kLessEqual: return left <= right;
  }
  *valid = false;
  return false;
}

// The right-hand number of a D condition with a value: read once, then
// remembered (also when it cannot be read).
bool ConditionNumber(const AttrCondition& condition, double* out) {
  if (condition.value_state == ValueState::kUnread) {
    double value = 0.0;
    if (ScanLfReal(condition.value_text, &value)) {
      condition.parsed_value = value;
      condition.value_state = ValueState::kRead;
    } else {
      condition.value_state = ValueState::kInvalid;
      ReportAttrConditionMessage("Invalid D-value in attribute condition.",
                                 condition.value_text);
    }
  }
  *out = condition.parsed_value;
  return condition.value_state == ValueState::kRead;
}

bool EvalCondition(const AttrCondition& condition, const FeatureContext& context) {
  const bool not_equal = condition.op == AttrOp::kNotEqual;
  const Attribute* left = GetFeatureAttribute(context, condition.first_index, true, true);
  if (left == nullptr) return not_equal;
  const Attribute* right = nullptr;
  if (condition.right_is_attribute) {
    right = GetFeatureAttribute(context, condition.second_index, true, true);
    if (right == nullptr) return not_equal;
    if (right->value.type != left->value.type) {
      ReportAttrConditionMessage("Skipping condition with attribute types mismatch",
                                 context.layer_name);
      return false;
    }
  }

  switch (left->value.type) {
    case ValueType::kString: {
      if (condition.op != AttrOp::kEqual && !not_equal) {
        ReportAttrConditionMessage("Skipping invalid condition for S-attribute.",
                                   context.layer_name);
        return false;
      }
      const std::string* pattern = right == nullptr ? &condition.value_text
                                   : right->value.text ? &*right->value.text
                                                       : nullptr;
      std::string_view text = left->value.text ? std::string_view(*left->value.text) : "";
      bool matches = pattern == nullptr || WildcardMatch(*pattern, text);
      return not_equal ? !matches : matches;
    }
    case ValueType::kDouble: {
      double number = 0.0;
      if (right != nullptr) number = right->value.numbers[0];
      else if (!ConditionNumber(condition, &number)) return false;
      bool valid = true;
      bool result = CompareDoubles(condition.op, left->value.numbers[0], number, &valid);
      if (!valid) {
        ReportAttrConditionMessage("Skipping invalid condition for D-attribute.",
                                   context.layer_name);
      }
      return result;
    }
    default:
      ReportAttrConditionMessage("Skipping unsupported attr. condition for G-attribute",
                                 context.layer_name);
      return false;
  }
}

}  // namespace

bool WildcardMatch(std::string_view pattern, std::string_view text) {
  // Greedy matching with one remembered "*": on a mismatch the last star
  // takes one more character. Linear in practice, never recursive.
  size_t p = 0, t = 0;
  size_t star = std::string_view::npos, star_text = 0;
  while (t < text.size()) {
    if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
      ++p;
      ++t;
    } else if (p < pattern.size() && pattern[p] == '*') {
      star = p++;
      star_text = t;
    } else if (star != std::string_view::npos) {
      p = star + 1;
      t = ++star_text;
    } else {
      return false;
    }
  }
  while (p < pattern.size() && pattern[p] == '*') ++p;
  return p == pattern.size();
}

const Attribute* GetFeatureAttribute(const FeatureContext& context, int64_t index,
                                     bool allow_custom, bool compute) {
  if (index < 0) {
    ReportAttrConditionMessage("Negative attribute index in attribute condition",
                               context.layer_name);
    return nullptr;
  }
  int64_t file_max = context.data != nullptr      ? context.data->max_attr_index
                     : context.feature != nullptr ? context.feature->max_attr_index
                                                  : -1;
  if (index <= file_max) {
    return context.feature != nullptr ? context.feature->FindAttribute(index) : nullptr;
  }
  if (!allow_custom || context.layer == nullptr) return nullptr;
  return LookupCustomAttribute(context, index, compute);
}

bool EvalAttrChain(const AttrChain& chain, const FeatureContext& context) {
  for (const AttrCondition& condition : chain.conditions) {
    if (!EvalCondition(condition, context)) return false;
  }
  return true;
}

bool MatchAttrConditions(const AttrConditionList& list, const FeatureContext& context) {
  for (const AttrChain& chain : list.chains) {
    if (EvalAttrChain(chain, context)) return true;
  }
  return false;
}

bool MatchAttrConditions(const AttrConditionList* list, const FeatureContext& context) {
  return list != nullptr && MatchAttrConditions(*list, context);
}

bool MatchAttrConditions(const std::optional<AttrConditionList>& list,
                         const FeatureContext& context) {
  return list && MatchAttrConditions(*list, context);
}

}  // namespace vmp
