// The label collector of one render: the vector drawer hands it label
// candidates while it draws a layer's features, and the render loop tells it
// where layers end and when the map is done. Labels are placed without
// overlaps by the layer's LayoutType:
//
//   NONE    each label is drawn as it comes, with no overlap test
//   LAYER   the layer's candidates are placed when the layer ends, against
//           each other only, and drawn then (over the layer's features)
//   GLOBAL  candidates of every GLOBAL layer wait until Finish and are
//           placed together after all layers, also avoiding every label
//           already drawn
//
// Placement order is LabelPriority (a lower number wins), then the order in
// which candidates came. The priority is the layer's, or per feature the
// value of an attribute map driving LabelPriority ("ATTR MAP= prio
// LabelPriority@4 priorities.thr ABS" with a VMP_D custom attribute "prio"); a candidate is dropped when its box, widened by its
// layer's LayoutMargin pixels on every side, overlaps a label placed before
// it. A marker of type 2 with its placement flag set is always placed.
//
// Use, per render:
//   LabelCollector labels(Service().text_engine(), Service().font_library(), surface, dataset);
//   for each active layer:
//     LabelCollector* sink = labels.BeginLayer(*active.layer, active.labels) ? &labels : nullptr;
//     DrawVectorTile(..., sink) for each tile;       // hands candidates
//     labels.EndLayer();
//   labels.Finish();                                 // after the last layer
//   labels.placed()                                  // for label selection
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "map_server/dataset/dataset.h"
#include "map_server/rendering/draw_surface.h"
#include "map_server/rendering/pixel_rings.h"
#include "map_server/text/label_format.h"
#include "map_server/text/label_placement.h"
#include "map_server/text/text_decode.h"
#include "map_server/text/text_engine.h"
#include "map_server/text/text_painter.h"
#include "map_server/text/text_style.h"
#include "map_server/vector/vector_data.h"

struct FT_LibraryRec_;

namespace vmp {

enum LayoutType : int64_t { kLayoutNone = 0, kLayoutLayer = 1, kLayoutGlobal = 2 };

// The feature a label belongs to.
struct LabelOwner {
  const Layer* layer = nullptr;
  // The tile's data (valid while the render holds its tiles); null for a
  // label that is not a feature's (AddText).
  const VectorData* data = nullptr;
  size_t feature = 0;                // index in data->features
};

// A label drawn on the map.
struct PlacedLabel {
  LabelOwner owner;
  std::string text;          // as formatted, in the dataset's encoding
  PixelVertex corners[4];    // its box: top-left, top-right, bottom-right, bottom-left
  PixelRect bounds;          // pixels the box can touch
  double x = 0.0, y = 0.0;   // anchor point
  int32_t priority = 9;
  int32_t selection_mode = 3;  // the layer's LabelSelectionMode
};

// True when two boxes (corner order as above) overlap, `margin` pixels
// added around the first.
bool BoxesOverlap(const PixelVertex (&a)[4], double margin, const PixelVertex (&b)[4]);

class LabelCollector {
 public:
  LabelCollector(TextEngine& engine, FT_LibraryRec_* library, DrawSurface& surface, const Dataset& dataset);
  ~LabelCollector();
  LabelCollector(const LabelCollector&) = delete;
  LabelCollector& operator=(const LabelCollector&) = delete;

  // Starts a vector layer (or a grid layer with GridLabels on). False when
  // it gives no labels (`labels_on` off, a label format in error, no font);
  // then hand the drawer no collector. Reads the layer's style, font and
  // formats once.
  bool BeginLayer(Layer& layer, bool labels_on);

  // Candidates of the current layer. A marker drawn at pixel (x, y): its
  // LabelFormat expanded, or else its own label. A polygon group drawn as
  // `rings` (pixel coordinates), shifted by `lon_shift` degrees for a copy
  // of the world: its PolyLabelFormat expanded, placed by PolyLabelType.
  void AddMarker(const VectorData& data, size_t index, const MarkerFeature& marker, double x, double y);
  void AddPolygon(const VectorData& data, size_t index, const Feature& head, const PixelRings& rings,
                  double lon_shift);

  // A text of the current layer at pixel (x, y), turned by `angle` degrees
  // (FLAT), anchored by the layer's TextAnchor: for labels that are not
  // features' (grid labels). `text` is in the dataset's encoding.
  void AddText(std::string_view text, double x, double y, double angle);

  // Ends the current layer (places and draws its LAYER candidates).
  void EndLayer();
  // Places and draws the GLOBAL candidates; ends the request's use of the
  // glyph cache. Call once, after the last layer.
  void Finish();

  const std::vector<PlacedLabel>& placed() const { return placed_; }

 private:
  struct LayerSettings {
    Layer* layer = nullptr;
    TextStyle style;
    const LoadedFont* font = nullptr;
    std::optional<LabelFormat> marker_format;
    std::optional<LabelFormat> polygon_format;
    int64_t layout = kLayoutNone;
    int32_t margin = 1;
    int32_t priority = 9;
    int32_t selection_mode = 3;
    int64_t poly_label_type = kLineLabel;
    int32_t poly_label_center = -1;
    double marker_offset = 0.0;  // pixels between a marker's point and its label
  };
  struct Candidate {
    size_t settings = 0;
    LabelOwner owner;
    std::string text;
    double x = 0.0, y = 0.0;
    TextFrame frame;
    int32_t anchor = 0;
    bool forced = false;
    int32_t priority = 9;
    size_t order = 0;
  };

  // The candidate's priority: the layer's, or its attribute map's.
  int32_t PriorityOf(const Feature& feature, const VectorData& data);
  void Submit(Candidate&& candidate);
  void PlaceAll(std::vector<Candidate>& candidates, bool use_layer_index);
  // Lays out, tests and draws one candidate; true when it was placed.
  bool Place(const Candidate& candidate, bool use_layer_index);

  TextEngine& engine_;
  FT_LibraryRec_* library_;
  DrawSurface& surface_;
  const Dataset& dataset_;
  GlyphCache* cache_;
  TextEncoding encoding_;
  std::vector<LayerSettings> layers_;
  bool in_layer_ = false;
  std::vector<Candidate> layer_candidates_;
  std::vector<Candidate> global_candidates_;
  std::vector<PlacedLabel> placed_;
  std::vector<size_t> layer_index_;  // placed_ entries the current layer's LAYER layout avoids
  size_t order_ = 0;
  bool finished_ = false;

  // Scratch reused from label to label.
  std::string text_;
  std::u32string decoded_;
  TextPainter painter_;
  TextBlock block_;
  LabelPlacer placer_;
};

}  // namespace vmp
