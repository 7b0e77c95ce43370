// Process-wide state of attribute evaluation: the count of evaluation
// messages (conditions, attribute lookups and attribute maps share one limit
// of five per process, so a bad condition over a million features reports
// itself only a few times) and the pseudo-random source of attribute maps.
#pragma once

#include <cstdint>
#include <string_view>

namespace vmp {

struct AttrEvalState {
  // Evaluation messages given before further ones are suppressed.
  static constexpr int64_t kMessageLimit = 5;
  int64_t messages_given = 0;
  uint64_t random_state = 0x243f6a8885a308d3u;
};

// The one owner of this state.
AttrEvalState& AttrEval();

// Lets a new run (for instance one split tool pass) report again.
void ResetAttrConditionMessages();

// Logs `message` as an error (with `detail` when not empty) unless the limit
// has been reached; returns whether it was logged.
bool ReportAttrConditionMessage(std::string_view message, std::string_view detail);

// Next number of the attribute maps' pseudo-random source (uniform over all
// 64-bit values).
uint64_t NextMapRandom();

}  // namespace vmp
