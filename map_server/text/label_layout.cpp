#include "map_server/text/label_layout.h"

#include <algorithm>
#include <cmath>

#include "map_server/geometry/conversions.h"
#include "map_server/text/text_decode.h"
#include "map_server/vector/attribute_map.h"

namespace vmp {

namespace {

// Projection of a box's corners on an axis.
void Project(const PixelVertex (&box)[4], double ax, double ay, double* lo, double* hi) {
  *lo = *hi = box[0].x * ax + box[0].y * ay;
  for (const PixelVertex& p : box) {
    const double v = p.x * ax + p.y * ay;
    *lo = std::min(*lo, v);
    *hi = std::max(*hi, v);
  }
}

bool Separated(const PixelVertex (&a)[4], double margin, const PixelVertex (&b)[4], const PixelVertex (&axes_of)[4]) {
  for (int e = 0; e < 2; ++e) {
    double ax = axes_of[e + 1].x - axes_of[e].x, ay = axes_of[e + 1].y - axes_of[e].y;
    const double len = std::hypot(ax, ay);
    if (!(len > 0.0)) continue;
    ax /= len;
    ay /= len;
    double a_lo, a_hi, b_lo, b_hi;
    Project(a, ax, ay, &a_lo, &a_hi);
    Project(b, ax, ay, &b_lo, &b_hi);
    if (a_hi + margin <= b_lo || b_hi <= a_lo - margin) return true;
  }
  return false;
}

void Offset(double* x, double* y, const TextFrame& f, double along, double down) {
  const double ul = std::hypot(f.ux, f.uy), dl = std::hypot(f.dx, f.dy);
  if (ul > 0.0) *x += along * f.ux / ul, *y += along * f.uy / ul;
  if (dl > 0.0) *x += down * f.dx / dl, *y += down * f.dy / dl;
}

}  // namespace

bool BoxesOverlap(const PixelVertex (&a)[4], double margin, const PixelVertex (&b)[4]) {
  // Separating axes: the edge directions of both boxes (each is a rectangle
  // or parallelogram, so two axes each).
  return !Separated(a, margin, b, a) && !Separated(a, margin, b, b);
}

LabelCollector::LabelCollector(TextEngine& engine, FT_LibraryRec_* library, DrawSurface& surface,
                               const Dataset& dataset)
    : engine_(engine),
      library_(library),
      surface_(surface),
      dataset_(dataset),
      cache_(engine.CacheFor(surface.geometry().glyph_cache_type)),
      encoding_(EncodingOf(surface.geometry().encoding)) {}

LabelCollector::~LabelCollector() {
  if (!finished_) engine_.EndRequest();
}

bool LabelCollector::BeginLayer(Layer& layer, bool labels_on) {
  if (in_layer_) EndLayer();
  const bool grid = layer.record.layer_type == kLayerGrid && layer.record.grid.labels != 0;
  if (!labels_on || (layer.record.layer_type != kLayerVector && !grid)) return false;
  const DrawingAttributes& d = layer.record.drawing;
  LayerSettings s;
  s.layer = &layer;
  if (d.label_format) {
    s.marker_format = LabelFormat::Compile(*d.label_format);
    if (!s.marker_format) return false;  // reported; a broken format draws no labels
  }
  if (d.poly_label_format) {
    s.polygon_format = LabelFormat::Compile(*d.poly_label_format);
    if (!s.polygon_format) return false;
  }
  s.font = engine_.ResolveFont(dataset_, d.text_font, library_);
  if (s.font == nullptr) return false;
  s.style = TextStyleOf(layer.record);
  s.layout = d.layout_type;
  s.margin = std::max(0, d.layout_margin);
  s.priority = d.label_priority;
  s.selection_mode = d.label_selection_mode;
  s.poly_label_type = d.poly_label_type;
  s.poly_label_center = d.poly_label_center;
  s.marker_offset = d.marker_type != 0 ? d.marker_size / 2.0 + std::max(0, d.marker_margin) : 0.0;
  layers_.push_back(std::move(s));
  in_layer_ = true;
  layer_index_.clear();
  return true;
}

void LabelCollector::AddMarker(const VectorData& data, size_t index, const MarkerFeature& marker, double x,
                               double y) {
  if (!in_layer_) return;
  const LayerSettings& s = layers_.back();
  Candidate c;
  if (s.marker_format) {
    s.marker_format->Expand(marker, marker.label ? &*marker.label : nullptr, c.text);
  } else if (marker.label) {
    c.text = *marker.label;
  }
  if (c.text.find_first_not_of(" \t") == std::string::npos) return;
  c.settings = layers_.size() - 1;
  c.owner = {s.layer, &data, index};
  c.priority = PriorityOf(marker, data);
  c.anchor = s.style.anchor;
  const MapGeometry& g = surface_.geometry();
  c.frame = MapTextFrame(g, marker.y, marker.x, s.style.text_type, s.style.angle);
  c.x = x;
  c.y = y;
  // Keep the text off the marker: away from it on every side the anchor is not centred.
  const int32_t h = HorizontalAnchor(c.anchor), v = VerticalAnchor(c.anchor);
  const double along = h == kAnchorHLeft ? s.marker_offset : h == kAnchorHRight ? -s.marker_offset : 0.0;
  const double down = v == kAnchorVTop ? s.marker_offset : v == kAnchorVBottom ? -s.marker_offset : 0.0;
  Offset(&c.x, &c.y, c.frame, along, down);
  if (marker.marker_type == static_cast<uint32_t>(MarkerType::kPlaced)) {
    // Placement values: the label's offset in pixels (x right, y up); the flag forces it.
    if (std::isfinite(marker.placement1) && std::isfinite(marker.placement2)) {
      c.x += marker.placement1;
      c.y -= marker.placement2;
    }
    c.forced = marker.flag != 0;
  }
  Submit(std::move(c));
}

void LabelCollector::AddPolygon(const VectorData& data, size_t index, const Feature& head, const PixelRings& rings,
                                double lon_shift) {
  if (!in_layer_) return;
  const LayerSettings& s = layers_.back();
  if (!s.polygon_format) return;
  Candidate c;
  s.polygon_format->Expand(head, nullptr, c.text);
  if (c.text.find_first_not_of(" \t") == std::string::npos) return;
  c.settings = layers_.size() - 1;
  c.owner = {s.layer, &data, index};
  c.priority = PriorityOf(head, data);
  c.anchor = s.style.anchor;
  const MapGeometry& g = surface_.geometry();
  LabelPoint point;
  bool found = false;
  bool along_line = false;
  switch (s.poly_label_type) {
    case kLineLabel:
    case kMidLineLabel: {
      const bool middle = s.poly_label_type == kMidLineLabel;
      double length = 0.0;
      if (!middle) {
        DecodeText(c.text, encoding_, decoded_);
        if (!painter_.Layout(*s.font, decoded_, s.style, cache_, block_)) return;
        length = block_.width;
      }
      found = placer_.LinePoint(rings, length, middle, &point);
      if (!found && !middle) return;  // the line is too short for its text
      along_line = found;
      break;
    }
    case kAreaLabel: {
      const Attribute* centre = s.poly_label_center >= 0 ? head.FindAttribute(s.poly_label_center) : nullptr;
      if (centre != nullptr && centre->value.type == ValueType::kGeo) {
        const PixelPoint p = LatLonToPixel(g, centre->value.numbers[1], centre->value.numbers[0] + lon_shift);
        if (!(p.z >= 0.0)) return;
        point = {p.x, p.y, 0.0};
        found = true;
      } else {
        found = placer_.InteriorPoint(rings, &point);
      }
      break;
    }
    default: break;
  }
  if (!found && !LabelPlacer::BoxCentre(rings, &point)) return;
  c.x = point.x;
  c.y = point.y;
  if (along_line) {
    c.frame = FlatFrame(point.angle);
    c.anchor = kAnchorHCenter | VerticalAnchor(c.anchor);
  } else {
    const LatLonPoint ll = PixelToLatLon(g, point.x, g.projection == kOrthographicProjection ? g.height_m1 - point.y : point.y);
    c.frame = ll.ok ? MapTextFrame(g, ll.lat, ll.lon, s.style.text_type, s.style.angle) : FlatFrame(s.style.angle);
  }
  Submit(std::move(c));
}

void LabelCollector::AddText(std::string_view text, double x, double y, double angle) {
  if (!in_layer_ || text.find_first_not_of(" \t") == std::string_view::npos) return;
  // An anchor far off any image shows nothing (and would overflow the pixel bounds).
  constexpr double kFarOff = 1e9;
  if (!(std::fabs(x) < kFarOff && std::fabs(y) < kFarOff && std::isfinite(angle))) return;
  const LayerSettings& s = layers_.back();
  Candidate c;
  c.text = std::string(text);
  c.settings = layers_.size() - 1;
  c.owner = {s.layer, nullptr, 0};
  c.priority = s.priority;
  c.anchor = s.style.anchor;
  c.frame = FlatFrame(angle);
  c.x = x;
  c.y = y;
  Submit(std::move(c));
}

int32_t LabelCollector::PriorityOf(const Feature& feature, const VectorData& data) {
  LayerSettings& s = layers_.back();
  int32_t priority = s.priority;
  LayerAttributes& attributes = s.layer->record.attributes;
  for (AttributeMap& map : attributes.attr_maps) {
    if (map.failed || map.resource_name != "LabelPriority") continue;
    FeatureContext context;
    context.feature = &feature;
    context.data = &data;
    context.layer_name = s.layer->name;
    context.layer = &attributes;
    context.zoom = surface_.geometry().zoom;
    TypedValue value;
    if (ApplyAttributeMap(map, context, &value) && value.type == ValueType::kDouble &&
        std::fabs(value.numbers[0]) < 2e9) {
      priority = static_cast<int32_t>(value.numbers[0]);
    }
  }
  return priority;
}

void LabelCollector::Submit(Candidate&& candidate) {
  candidate.order = order_++;
  switch (layers_[candidate.settings].layout) {
    case kLayoutLayer: layer_candidates_.push_back(std::move(candidate)); break;
    case kLayoutGlobal: global_candidates_.push_back(std::move(candidate)); break;
    default: {
      // As they come: drawn at once, whatever they overlap.
      Candidate c = std::move(candidate);
      c.forced = true;
      Place(c, false);
    }
  }
}

void LabelCollector::EndLayer() {
  if (!in_layer_) return;
  in_layer_ = false;
  layer_index_.clear();
  PlaceAll(layer_candidates_, true);
}

void LabelCollector::Finish() {
  if (finished_) return;
  EndLayer();
  PlaceAll(global_candidates_, false);
  finished_ = true;
  engine_.EndRequest();
}

void LabelCollector::PlaceAll(std::vector<Candidate>& candidates, bool use_layer_index) {
  std::stable_sort(candidates.begin(), candidates.end(), [&](const Candidate& a, const Candidate& b) {
    return a.priority < b.priority;
  });
  for (const Candidate& c : candidates) Place(c, use_layer_index);
  candidates.clear();
  layer_index_.clear();
}

bool LabelCollector::Place(const Candidate& c, bool use_layer_index) {
  const LayerSettings& s = layers_[c.settings];
  DecodeText(c.text, encoding_, decoded_);
  if (!painter_.Layout(*s.font, decoded_, s.style, cache_, block_)) return false;
  const TextPlacement placement = PlaceText(block_, c.x, c.y, c.frame, c.anchor);
  const PixelRect bounds = placement.Bounds();
  if (!c.forced) {
    const double m = s.margin;
    auto overlaps = [&](const PlacedLabel& other) {
      if (bounds.max_x + m < other.bounds.min_x || other.bounds.max_x + m < bounds.min_x ||
          bounds.max_y + m < other.bounds.min_y || other.bounds.max_y + m < bounds.min_y) {
        return false;
      }
      return BoxesOverlap(placement.corners, m, other.corners);
    };
    if (use_layer_index) {
      for (const size_t i : layer_index_) {
        if (overlaps(placed_[i])) return false;
      }
    } else {
      for (const PlacedLabel& other : placed_) {
        if (overlaps(other)) return false;
      }
    }
  }
  painter_.Draw(surface_, block_, placement, s.style, cache_);
  PlacedLabel label;
  label.owner = c.owner;
  label.text = c.text;
  std::copy(std::begin(placement.corners), std::end(placement.corners), std::begin(label.corners));
  label.bounds = bounds;
  label.x = c.x;
  label.y = c.y;
  label.priority = c.priority;
  label.selection_mode = s.selection_mode;
  if (use_layer_index) layer_index_.push_back(placed_.size());
  placed_.push_back(std::move(label));
  return true;
}

}  // namespace vmp
