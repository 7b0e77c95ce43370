// Evaluating attribute conditions (attr_condition.h) against one feature.
//
// A condition that cannot be evaluated (missing attribute, types that do not
// fit, an unreadable number) simply does not hold; evaluation never fails as
// a whole. Its messages fall under the process-wide limit of five
// (attr_eval_state.h).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "map_server/vector/attr_condition.h"
#include "map_server/vector/vector_data.h"

namespace vmp {

class LayerAttributes;

// What an evaluation knows about the feature at hand.
struct FeatureContext {
  // The feature; null where there is none (a non-vector layer computing
  // zoom-based custom attributes).
  const Feature* feature = nullptr;
  // Its loaded file: numbers up to data->max_attr_index are the feature's
  // own attributes, larger ones are the layer's custom attributes. Without
  // a file the feature's own largest number stands in.
  const VectorData* data = nullptr;
  // The layer's name, for messages ("" outside a layer, e.g. the split tool).
  std::string_view layer_name;
  // The layer's custom attributes and attribute maps, or null. Not const:
  // computed values are stored in the custom attributes and a map that
  // cannot work on the layer is marked failed.
  LayerAttributes* layer = nullptr;
  bool vector_layer = true;
  // The current zoom value (input -4 of attribute maps).
  double zoom = 0.0;
};

// True when some chain of the list holds (chains tried in order); false for
// a missing or empty list.
bool MatchAttrConditions(const AttrConditionList& list, const FeatureContext& context);
bool MatchAttrConditions(const AttrConditionList* list, const FeatureContext& context);
bool MatchAttrConditions(const std::optional<AttrConditionList>& list,
                         const FeatureContext& context);

// True when every condition of the chain holds, stopping at the first that
// does not.
bool EvalAttrChain(const AttrChain& chain, const FeatureContext& context);

// The attribute entry for attribute number `index`, or null: the feature's
// own attribute for numbers up to the file's largest, else (with
// `allow_custom`) the layer's custom attribute of that number, computed
// first by its attribute map when `compute` is set. A custom attribute's
// entry is owned by the layer and is overwritten by the next computation.
const Attribute* GetFeatureAttribute(const FeatureContext& context, int64_t index,
                                     bool allow_custom, bool compute);

// Wildcard match: "*" any run of characters (also none), "?" exactly one,
// every other character itself, case-sensitively.
bool WildcardMatch(std::string_view pattern, std::string_view text);

}  // namespace vmp
