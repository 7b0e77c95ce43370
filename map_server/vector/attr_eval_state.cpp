#include "map_server/vector/attr_eval_state.h"

#include "toolkit/message_log.h"

namespace vmp {

AttrEvalState& AttrEval() {
  static AttrEvalState state;
  return state;
}

void ResetAttrConditionMessages() { AttrEval().messages_given = 0; }

bool ReportAttrConditionMessage(std::string_view message, std::string_view detail) {
  AttrEvalState& state = AttrEval();
  if (state.messages_given >= AttrEvalState::kMessageLimit) return false;
  ++state.messages_given;
  if (detail.empty()) Report(kError, message);
  else Report(kError, message, detail);
  return true;
}

uint64_t NextMapRandom() {
  // splitmix64
  uint64_t z = (AttrEval().random_state += 0x9e3779b97f4a7c15u);
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9u;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebu;
  return z ^ (z >> 31);
}

}  // namespace vmp
