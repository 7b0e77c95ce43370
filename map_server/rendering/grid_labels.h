// Labels of grid layers (GridLabels on): the value of each parallel and
// meridian in view, written by the layer's label settings and handed to the
// label collector as plain texts.
//
// Texts:
// - DecimalGridLabels 1 (default): the value in decimal degrees, as a plain
//   number (up to six decimals) and the degree sign: "45°", "2.5°".
//   DecimalGridLabels 0: degrees, minutes and seconds, the parts that are
//   not zero after the degrees: "45°", "45°30'", "0°0'15\"" (fractions of a
//   second to the millisecond).
// - GridLabelFormat (latitudes, and longitudes unless GridLabelFormatLon
//   is given) replaces that: printf-like text with "%%" for a percent sign
//   and conversions %[flags][width][.precision]C, flags from "-+ 0#", width
//   and precision of at most two digits, C one of d i (rounded whole
//   number), f F e E g G. In decimal mode one conversion takes the value;
//   in degrees-minutes mode up to three take the degrees, minutes and
//   seconds in turn. A malformed format is reported as "Invalid grid label
//   format" (with the format and the reason) and the layer gets no labels.
// - GridLabelChar: NONE writes signed values ("-45°"); APPEND (default)
//   and PREPEND write the value without sign and add the hemisphere letter
//   N, S, E or W after or before it ("45°S", "W120°"). The equator, the
//   prime meridian and the 180th meridian get no letter.
// The degree sign is written in the dataset's encoding.
//
// Placement (the anchor point of each text; the layer's TextAnchor says
// which point of the text sits there):
// - Each meridian is labelled at its southern end in view and each parallel
//   at its western end in view, a few pixels inside the map's edge: on the
//   rectangular map the bottom and left edges (whatever the rotation turns
//   them into), on the globe where the line meets the globe's edge or the
//   map's edge. On the globe a meridian whose southern end in view is a pole
//   is labelled at its northern end instead; a meridian that runs from pole
//   to pole in view is labelled at the view's central latitude, and a
//   parallel that is a whole circle in view at its leftmost point.
// - Parallel labels run along the parallel as the map shows it there;
//   meridian labels are turned a further LonLabelAngle degrees
//   counter-clockwise (90 by default: reading up the meridian) when
//   RotateLonLabels is 1, and run along the parallel when it is 0. Angles
//   are folded into (-90, 90] so that no label reads upside down.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "map_server/dataset/layer.h"
#include "map_server/geometry/map_geometry.h"

namespace vmp {

class LabelCollector;

class GridLabelFormatter {
 public:
  // The layer's formats compiled; none when one is malformed (reported).
  // `encoding`: the dataset's (1 UTF-8, 0 Latin-1).
  static std::optional<GridLabelFormatter> Create(const GridAttributes& grid, int64_t encoding);

  std::string Latitude(double lat) const;
  std::string Longitude(double lon) const;

 private:
  struct Part {
    std::string text;     // literal text, or a conversion in printf form
    char conversion = 0;  // 0: literal
  };
  using Format = std::vector<Part>;

  static std::optional<Format> Compile(const std::string& format, int max_numbers);
  std::string Text(double value, char positive, char negative, const std::optional<Format>& format) const;
  void AppendDefault(double magnitude, std::string& out) const;

  bool decimal_ = true;
  int32_t label_char_ = 1;
  std::string degree_;
  std::optional<Format> format_;
  std::optional<Format> format_lon_;
};

// Hands the labels of grid layer `layer` for the view of `geometry` to
// `labels` (whose current layer must be `layer`).
void AddGridLabels(LabelCollector& labels, const Layer& layer, const MapGeometry& geometry);

}  // namespace vmp
