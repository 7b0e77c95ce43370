#include "map_server/driver/vector_split_options.h"

#include <cstdio>

#include "toolkit/message_log.h"

namespace vmp {

namespace {

bool AnyLatLon(const VectorSplitOptions& o) {
  return o.min_lat || o.max_lat || o.min_lon || o.max_lon;
}

bool AllLatLon(const VectorSplitOptions& o) {
  return o.min_lat && o.max_lat && o.min_lon && o.max_lon;
}

// The wrap-range options: at most one range, -min-wlon and -max-wlon
// together and only for -custom-range, west edge below east edge.
bool CheckWrapRange(VectorSplitOptions& o) {
  const int ranges = o.pos_range + o.neg_range + o.custom_range + o.no_range;
  if (ranges > 1) {
    return CheckFailed("Only one of -neg-range, -pos-range, -custom-range or -no-range is allowed!");
  }
  if (o.min_wlon.has_value() != o.max_wlon.has_value() ||
      (o.custom_range && !o.min_wlon)) {
    return CheckFailed("Min world lon and max world lon not both set!");
  }
  if (o.min_wlon && (!o.custom_range || *o.min_wlon >= *o.max_wlon)) {
    return CheckFailed("Invalid wrap range!");
  }
  o.wrap = o.pos_range || o.neg_range || o.custom_range;
  if (o.pos_range) {
    o.wrap_west = 0.0;
    o.wrap_east = 360.0;
  } else if (o.neg_range) {
    o.wrap_west = -180.0;
    o.wrap_east = 180.0;
  } else if (o.custom_range) {
    o.wrap_west = *o.min_wlon;
    o.wrap_east = *o.max_wlon;
  }
  return true;
}

// Sets the tiling kind and extent from -world-extent, -tvf-extent or the
// given latitudes and longitudes (already checked to be complete).
void SetTilingExtent(VectorSplitOptions& o) {
  if (o.tvf_extent) {
    o.kind = SplitKind::kTileOwnExtent;
    return;
  }
  o.kind = SplitKind::kTileGivenExtent;
  if (o.world_extent) {
    o.min_x = o.wrap ? o.wrap_west : kWorldMinLon;
    o.max_x = o.wrap ? o.wrap_east : kWorldMaxLon;
    o.min_y = kWorldMinLat;
    o.max_y = kWorldMaxLat;
  } else {
    o.min_x = *o.min_lon;
    o.max_x = *o.max_lon;
    o.min_y = *o.min_lat;
    o.max_y = *o.max_lat;
  }
}

}  // namespace

void AddVectorSplitOptions(OptionTable& table, VectorSplitOptions& o) {
  AddSaveModeOptions(table, o.save_mode);
  const OptionTable shared = {
      {"-filter", "filter", &o.filter},
      {"-attr", "attribute condition", &o.attr_conditions, 0,
       "expected follow up attribute condition: -attr\n"},
      {"-invert-attr", "", &o.invert_attr},
      {"-bbox", "", &o.bbox},
      {"-num-points", "num points", &o.num_points},
      {"-pos-range", "", &o.pos_range},
      {"-neg-range", "", &o.neg_range},
      {"-custom-range", "", &o.custom_range},
      {"-no-range", "", &o.no_range},
      {"-min-wlon", "min world lon", &o.min_wlon},
      {"-max-wlon", "max world lon", &o.max_wlon},
      SwitchWithSetting("-world-extent", &o.world_extent, &o.tvf_extent, false),
      SwitchWithSetting("-tvf-extent", &o.tvf_extent, &o.world_extent, false),
      {"-min-lat", "min lat", &o.min_lat},
      {"-max-lat", "max lat", &o.max_lat},
      {"-min-lon", "min lon", &o.min_lon},
      {"-max-lon", "max lon", &o.max_lon},
  };
  table.insert(table.end(), shared.begin(), shared.end());
}

bool ParseAttrOptions(VectorSplitOptions& options) {
  for (const std::string& text : options.attr_conditions) {
    if (!ParseAttrCondition(text, options.conditions)) {
      std::fputs("Invalid attribute condition: -attr\n", stderr);
      return false;
    }
  }
  return true;
}

SplitSettings MakeSplitSettings(const VectorSplitOptions& o, int64_t progress) {
  SplitSettings s;
  s.kind = o.kind;
  s.filter = o.filter.value_or("");
  s.output = o.output.value_or("");
  s.conditions = o.conditions ? &*o.conditions : nullptr;
  s.invert = o.invert_attr;
  s.min_x = o.min_x;
  s.min_y = o.min_y;
  s.max_x = o.max_x;
  s.max_y = o.max_y;
  s.columns = o.columns;
  s.rows = o.rows;
  s.points_per_piece = o.num_points.value_or(0);
  s.wrap = {o.wrap, o.wrap_west, o.wrap_east};
  s.progress = progress;
  return s;
}

bool CheckVectorTileOptions(VectorSplitOptions& o) {
  if (!o.attr_conditions.empty() || o.num_points || o.invert_attr) {
    return CheckFailed("-attr and -num-points are not allowed for -tile!");
  }
  if (!CheckWrapRange(o)) return false;
  if (AnyLatLon(o) && (o.world_extent || o.tvf_extent)) {
    return CheckFailed("-min/max-lat/lon cannot be used with -world-extent or -tvf-extent!");
  }
  if (!(o.world_extent || o.tvf_extent) && !AllLatLon(o)) {
    return CheckFailed("-world-extent, -tvf-extent or -min/max-lat/lon are required!");
  }
  o.columns = o.num_x_tiles.value_or(0);
  o.rows = o.num_y_tiles.value_or(0);
  SetTilingExtent(o);
  return true;
}

bool CheckSplitOptions(VectorSplitOptions& o) {
  if (!o.filename || !o.output) {
    return CheckFailed("Mandatory variables filename or output not set for -split!");
  }
  const bool by_attr = !o.attr_conditions.empty();
  const bool by_points = o.num_points.has_value();
  const int kinds = by_attr + o.bbox + by_points;
  if (kinds == 0) return CheckFailed("No -attr, -bbox or -num-points specified for -split!");
  if (kinds > 1) return CheckFailed("Only one -attr, -bbox or -num-points is allowed!");
  if (by_attr && !ParseAttrOptions(o)) return false;
  if (by_points && *o.num_points < 2) return CheckFailed("Number of points must be at least 2!");
  if (!CheckWrapRange(o)) return false;
  if (AnyLatLon(o) && (o.world_extent || o.tvf_extent)) {
    return CheckFailed("-min/max-lat/lon cannot be used with -world-extent or -tvf-extent!");
  }
  if (AnyLatLon(o) && !o.bbox) return CheckFailed("-min/max-lat/lon can only be used with -bbox!");
  if (o.bbox && !(o.world_extent || o.tvf_extent) && !AllLatLon(o)) {
    return CheckFailed("Mandatory extent variables (min/max-lat/lon) are not set for -bbox!");
  }
  // Options that the chosen kind of split has no use for.
  const bool tiles_given = o.num_x_tiles || o.num_y_tiles;
  const bool bad_tiles = (o.num_x_tiles && *o.num_x_tiles <= 0) ||
                         (o.num_y_tiles && *o.num_y_tiles <= 0);
  const bool misplaced = (o.invert_attr && !by_attr) || (tiles_given && !o.bbox) ||
                         ((o.world_extent || o.tvf_extent) && !o.bbox) ||
                         (by_attr && o.wrap) || bad_tiles;
  if (misplaced) return CheckFailed("Invalid options for -split!");

  if (by_attr) {
    o.kind = SplitKind::kAttribute;
  } else if (by_points) {
    o.kind = SplitKind::kPoints;
  } else {
    o.columns = o.num_x_tiles.value_or(1);
    o.rows = o.num_y_tiles.value_or(1);
    SetTilingExtent(o);
  }
  return true;
}

}  // namespace vmp
