#include "map_server/layers/layer_string.h"

#include <algorithm>

#include "map_server/service/map_service.h"
#include "map_server/vector/attr_condition.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

enum class Prefix { kAdd, kOverride, kRemove };

bool AliasHasConditions(const Alias& alias) {
  return alias.enable_boxes || alias.disable_boxes || alias.min_zoom > 0.0 ||
         alias.max_zoom > 0.0;
}

void AppendChains(AttrConditionList& to, AttrConditionList&& from) {
  for (AttrChain& chain : from.chains) to.chains.push_back(std::move(chain));
}

class Selector {
 public:
  Selector(Dataset& dataset, std::vector<SelectedLayer>& selection)
      : dataset_(dataset), selection_(selection) {}

  void Expand(std::string_view text, const Alias* alias) {
    for (const std::string& token : SplitLayerString(text)) ApplyToken(token, alias);
  }

 private:
  void ApplyToken(std::string_view token, const Alias* alias) {
    const size_t start = token.find_first_not_of(" \t");
    if (start == std::string_view::npos) {
      if (Verbosity() >= 1) Report(kWarning, "Empty token");
      return;
    }
    token.remove_prefix(start);

    Prefix prefix = Prefix::kAdd;
    if (token.front() == '-') {
      if (token == "-*") {
        selection_.clear();
        return;
      }
      prefix = Prefix::kRemove;
      token.remove_prefix(1);
    } else if (token.substr(0, 2) == "++") {
      prefix = Prefix::kOverride;
      token.remove_prefix(2);
    } else if (token.front() == '+') {
      token.remove_prefix(1);
    }

    if (prefix != Prefix::kRemove && (token == "*" || token == "default")) {
      SelectMany(token == "*", prefix, alias);
      return;
    }

    const size_t at = token.find('@');
    const bool has_condition_text = at != std::string_view::npos;
    std::string name;
    AttrConditionList unused;
    SplitNameAndConditions(token.substr(0, at), &name, unused);

    if (FindDatasetLayer(dataset_, name) != nullptr) {
      AttrConditionList conditions;
      if (!SplitNameAndConditions(token, &name, conditions)) return;  // reported by the parser
      ApplyToLayer(name, prefix, std::move(conditions), alias);
      return;
    }
    if (const Alias* target = FindAlias(dataset_, name)) {
      if (prefix == Prefix::kRemove) {
        Report(kWarning, "Ignoring \"-\" prefix for an alias", name);
        return;
      }
      if (has_condition_text) Report(kWarning, "Ignoring attribute conditions for an alias", name);
      if (prefix == Prefix::kOverride) Report(kWarning, "Ignoring \"++\" override for an alias", name);
      if (std::find(expanding_.begin(), expanding_.end(), target) != expanding_.end()) {
        Report(kError, "Recursive alias, skipping", name);
        return;
      }
      expanding_.push_back(target);
      Expand(target->layers, target);
      expanding_.pop_back();
      return;
    }
    Report(kError, "Can't find layer or alias", name);
  }

  void SelectMany(bool all, Prefix prefix, const Alias* alias) {
    if (prefix == Prefix::kOverride) Report(kWarning, "Ignoring ++ override for default or * layers.");
    if (alias != nullptr && AliasHasConditions(*alias)) {
      Report(kWarning, "Ignoring alias conditions for default or * layers.");
    }
    for (const auto& layer : dataset_.layers) {
      if (all || layer->record.is_default != 0) {
        ApplyToLayer(layer->name, Prefix::kAdd, AttrConditionList{}, nullptr);
      }
    }
  }

  void ApplyToLayer(const std::string& name, Prefix prefix, AttrConditionList conditions,
                    const Alias* alias) {
    SelectedLayer* record = FindSelected(selection_, name);
    if (record == nullptr) {
      selection_.push_back(SelectedLayer{});
      record = &selection_.back();
      record->name = name;
    }
    const bool add = prefix != Prefix::kRemove;
    if (conditions.empty()) {
      record->mode = add ? 1 : 0;
      record->include_conditions.chains.clear();
      record->exclude_conditions.chains.clear();
    } else if (add) {
      if (record->mode != 1) {
        record->mode = 2;
        AppendChains(record->include_conditions, std::move(conditions));
      }
    } else if (record->mode != 0) {
      record->mode = 2;
      AppendChains(record->exclude_conditions, std::move(conditions));
    }
    if (alias != nullptr) {
      record->enable_boxes = alias->enable_boxes;
      record->disable_boxes = alias->disable_boxes;
      record->alias_min_zoom = alias->min_zoom;
      record->alias_max_zoom = alias->max_zoom;
    } else {
      record->enable_boxes.reset();
      record->disable_boxes.reset();
      record->alias_min_zoom = -1.0;
      record->alias_max_zoom = -1.0;
    }
    if (prefix == Prefix::kOverride) record->override_zoom = true;
  }

  Dataset& dataset_;
  std::vector<SelectedLayer>& selection_;
  std::vector<const Alias*> expanding_;
};

}  // namespace

std::vector<std::string> SplitLayerString(std::string_view text) {
  std::vector<std::string> tokens(1);
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\\') {
      if (i + 1 < text.size()) tokens.back() += text[++i];
    } else if (c == ',') {
      tokens.emplace_back();
    } else {
      tokens.back() += c;
    }
  }
  return tokens;
}

void SelectLayers(Dataset& dataset, std::string_view layer_string,
                  std::vector<SelectedLayer>& selection) {
  Selector(dataset, selection).Expand(layer_string, nullptr);
}

bool SelectMapLayers(MapRequest& map, std::string_view layer_string) {
  map.layers.clear();
  if (!CheckMapSetup(map)) return false;
  SelectLayers(*map.record.dataset, layer_string, map.layers);
  return true;
}

bool SelectQueryLayers(MapRequest& map) {
  map.layers.clear();
  if (!CheckMapSetup(map)) return false;
  if (!map.record.query_layers) {
    Report(kError, "Missing QueryLayers for the query");
    return false;
  }
  SelectLayers(*map.record.dataset, *map.record.query_layers, map.layers);
  return true;
}

Layer* FindDatasetLayer(Dataset& dataset, std::string_view name) {
  for (auto& layer : dataset.layers) {
    if (layer->name == name) return layer.get();
  }
  return nullptr;
}

SelectedLayer* FindSelected(std::vector<SelectedLayer>& selection, std::string_view name) {
  for (SelectedLayer& record : selection) {
    if (record.name == name) return &record;
  }
  return nullptr;
}

}  // namespace vmp
