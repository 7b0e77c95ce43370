#include "map_server/rendering/vector_tile_drawer.h"

#include <algorithm>

#include "map_server/geometry/conversions.h"
#include "map_server/layers/layer_prepare.h"
#include "map_server/rendering/markers.h"
#include "map_server/rendering/pixel_writer.h"
#include "map_server/rendering/ring_simplify.h"
#include "map_server/rendering/view_region.h"
#include "map_server/text/label_layout.h"
#include "map_server/vector/attr_match.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Half-size of the square a marker is view-tested with, in map pixel sizes.
constexpr double kMarkerTestHalfSize = 20.0;

bool HasConditions(const AttrConditionList* list) { return list != nullptr && !list->empty(); }

class TileDrawer {
 public:
  TileDrawer(DrawSurface& surface, VectorScratch& scratch, Layer& layer, const VectorData& data,
             const OverrideConditions& override_conditions, VectorDrawStats& stats,
             std::vector<size_t>* hits, LabelCollector* labels)
      : surface_(surface),
        scratch_(scratch),
        layer_(layer),
        data_(data),
        override_(override_conditions),
        stats_(stats),
        hits_(hits),
        labels_(labels),
        geometry_(surface.geometry()),
        view_(surface.geometry(), surface.view_rect()),
        style_(LayerStyle(layer.record)),
        view_test_(layer.record.clip != 0),
        query_(surface.location_query()) {
    context_.data = &data;
    context_.layer_name = layer.name;
    context_.layer = &layer.record.attributes;
    context_.vector_layer = true;
    context_.zoom = geometry_.zoom;
    scratch_.bindings.Bind(layer.record.attributes, layer.name);
    const StyleBindings& b = scratch_.bindings;
    if (b.Drives(StyleResource::kMinZoom) || b.Drives(StyleResource::kMaxZoom)) zoom_scale_ = LayerZoomScale(layer);
    // How far (pixels) lines and markers may reach beyond a feature's
    // position; the view test widens feature boxes by it.
    constexpr double kDrivenReach = 256.0;
    line_reach_ = b.Drives(StyleResource::kLineWidth) ? kDrivenReach : std::max(style_.line_width, 1.0);
    const MarkerStyle& m = style_.marker;
    marker_reach_ = std::max(kMarkerTestHalfSize, m.size / 2 + std::max(m.margin, 0.0) + 1.0);
    if (m.type & kMarkerCustomIcon) {
      if (const LoadedImage* icon = scratch_.icons.Get(layer.record.lif_dir, style_.icon_name)) {
        marker_reach_ = std::max(marker_reach_, static_cast<double>(std::max(icon->width, icon->height)) / 2 +
                                                    std::max(m.margin, 0.0) + 1.0);
      }
    }
    if (b.Drives(StyleResource::kMarkerSize) || b.Drives(StyleResource::kMarkerIconFile)) {
      marker_reach_ = std::max(marker_reach_, kDrivenReach);
    }
  }

  void Run() {
    const auto& features = data_.features;
    size_t i = 0;
    while (i < features.size() && !Done()) {
      const Feature& f = *features[i];
      if (f.IsPolygon()) {
        i = DrawGroup(i);
      } else if (f.IsMarker()) {
        DrawMarker(i, *f.AsMarker());
        ++i;
      } else {
        Report(kError, "Only support POLYGONs and MARKERs for now");
        ++i;
      }
    }
  }

 private:
  // A query without a hit list ends at its first hit.
  bool Done() const { return query_ && hits_ == nullptr && surface_.hit(); }

  bool Passes(const Feature& feature) {
    context_.feature = &feature;
    const AttrConditionList* own = layer_.record.conditions ? &*layer_.record.conditions : nullptr;
    if (HasConditions(own) && !MatchAttrConditions(*own, context_)) return false;
    if (HasConditions(override_.include) && !MatchAttrConditions(*override_.include, context_)) return false;
    if (HasConditions(override_.exclude) && MatchAttrConditions(*override_.exclude, context_)) return false;
    return true;
  }

  // The view shifts for a box; 0 when the feature is to be skipped.
  int ViewShifts(const Box& box, double shifts[3]) const {
    const int count = view_.Shifts(box, shifts);
    if (count > 0 || query_ || view_test_) return count;
    shifts[0] = 0.0;  // no view testing: drawn where it falls
    return 1;
  }

  // Collects the group starting at `first`; returns the index after it.
  size_t CollectGroup(size_t first) {
    const auto& features = data_.features;
    auto& group = scratch_.group;
    group.clear();
    group.push_back(features[first]->AsPolygon());
    size_t next = first + 1;
    if (features[first]->flag == 0) return next;
    while (next < features.size() && features[next]->IsPolygon()) {
      const PolygonFeature* member = features[next]->AsPolygon();
      group.push_back(member);
      ++next;
      if (member->flag == 0) break;
    }
    return next;
  }

  bool TooSmall(double extent, double min_pixel_size) const {
    return min_pixel_size != 0.0 && extent < min_pixel_size * geometry_.pixel_size;
  }

  // The style of the feature that Passes() was last called with: the
  // layer's, or changed by the attribute maps. Null when the feature's zoom
  // range leaves it out.
  const FeatureStyle* StyleOfFeature() {
    if (scratch_.bindings.empty()) return &style_;
    feature_style_ = style_;
    scratch_.bindings.Apply(context_, feature_style_);
    if (!InZoomRange(feature_style_, geometry_.zoom, zoom_scale_)) return nullptr;
    return &feature_style_;
  }

  // Splits the group into closed rings and open polylines.
  void SplitGroup() {
    scratch_.closed.clear();
    scratch_.open.clear();
    for (const PolygonFeature* p : scratch_.group) (IsClosedRing(*p) ? scratch_.closed : scratch_.open).push_back(p);
  }

  // Fills and strokes (or hit-tests) the group under one longitude shift.
  // Returns the projected rings that stand for the group (for labels): its
  // closed rings, or its polylines when it has no closed ring.
  const PixelRings& DrawShifted(const FeatureStyle& style, double shift) {
    const bool all_closed = scratch_.open.empty();
    PixelRings& rings = scratch_.rings;
    rings.Clear();
    if (!scratch_.closed.empty()) {
      scratch_.projector.Project(geometry_, all_closed ? std::span<const PolygonFeature* const>(scratch_.group)
                                                       : std::span<const PolygonFeature* const>(scratch_.closed),
                                 shift, rings);
      if (style.fill || query_) FillPolygons(surface_, scratch_.edges, rings, style.fill_colour);
      if (query_ && surface_.hit()) return rings;
    }
    const bool edges = style.edges && !scratch_.closed.empty();
    if (!edges && all_closed) return rings;
    LineStroker& stroker = scratch_.stroker;
    stroker.Begin(surface_.active_rect(), style.line_width);
    if (edges) {
      SimplifyRings(rings, kRingTolerance, scratch_.simplified);
      stroker.AddRingEdges(scratch_.simplified);
    }
    if (!all_closed) {
      scratch_.projector.Project(geometry_, scratch_.open, shift, scratch_.projected);
      SimplifyRings(scratch_.projected, kRingTolerance, scratch_.line_rings);
      stroker.AddRingEdges(scratch_.line_rings);
    }
    stroker.Fill(surface_, scratch_.edges, style.edge_colour);
    return scratch_.closed.empty() ? scratch_.line_rings : rings;
  }

  size_t DrawGroup(size_t first) {
    const size_t next = CollectGroup(first);
    const auto& group = scratch_.group;
    Box box;
    int64_t points = 0;
    for (const PolygonFeature* p : group) {
      if (p->points.empty()) continue;
      const Box member{p->box.min_x, p->box.max_x, p->box.min_y, p->box.max_y};
      if (points == 0) box = member;
      box.min_lon = std::min(box.min_lon, member.min_lon);
      box.max_lon = std::max(box.max_lon, member.max_lon);
      box.min_lat = std::min(box.min_lat, member.min_lat);
      box.max_lat = std::max(box.max_lat, member.max_lat);
      points += p->PointCount();
    }
    if (points == 0) return next;

    const double reach = line_reach_ * geometry_.pixel_size;
    const Box widened{box.min_lon - reach, box.max_lon + reach, box.min_lat - reach, box.max_lat + reach};
    double shifts[3];
    const int shift_count = ViewShifts(widened, shifts);
    if (shift_count == 0) {
      if (!query_) ++stats_.clipped;
      return next;
    }
    const double extent = std::max(box.max_lon - box.min_lon, box.max_lat - box.min_lat);
    const bool late_cull = scratch_.bindings.Drives(StyleResource::kMinPixelSize);
    if (!late_cull && TooSmall(extent, style_.min_pixel_size)) {
      if (!query_) ++stats_.culled_small;
      return next;
    }
    if (!Passes(*group.front())) return next;
    const FeatureStyle* style = StyleOfFeature();
    if (style == nullptr) return next;
    if (late_cull && TooSmall(extent, style->min_pixel_size)) {
      if (!query_) ++stats_.culled_small;
      return next;
    }
    SplitGroup();

    if (query_) {
      const bool earlier_hit = surface_.hit();
      surface_.set_hit(false);
      for (int s = 0; s < shift_count && !surface_.hit(); ++s) {
        const PixelRings& rings = DrawShifted(*style, shifts[s]);
        if (labels_ != nullptr) labels_->AddPolygon(data_, first, *group.front(), rings, shifts[s]);
      }
      if (surface_.hit() && hits_ != nullptr) hits_->push_back(first);
      surface_.set_hit(earlier_hit || surface_.hit());
      return next;
    }

    for (int s = 0; s < shift_count; ++s) {
      const PixelRings& rings = DrawShifted(*style, shifts[s]);
      if (labels_ != nullptr) labels_->AddPolygon(data_, first, *group.front(), rings, shifts[s]);
    }
    ++stats_.polygons;
    stats_.points += points;
    stats_.rings += static_cast<int64_t>(group.size());
    return next;
  }

  void DrawMarker(size_t index, const MarkerFeature& marker) {
    const double half = marker_reach_ * geometry_.pixel_size;
    const Box box{marker.x - half, marker.x + half, marker.y - half, marker.y + half};
    double shifts[3];
    const int shift_count = ViewShifts(box, shifts);
    if (shift_count == 0 || !Passes(marker)) return;
    const FeatureStyle* style = StyleOfFeature();
    if (style == nullptr) return;
    MarkerStyle symbol = style->marker;
    if (symbol.type & kMarkerCustomIcon) symbol.icon = scratch_.icons.Get(layer_.record.lif_dir, style->icon_name);
    const bool earlier_hit = surface_.hit();
    if (query_) surface_.set_hit(false);
    bool drawn = false;
    for (int s = 0; s < shift_count; ++s) {
      const PixelPoint p = LatLonToPixel(geometry_, marker.y, marker.x + shifts[s]);
      if (!(p.z >= 0.0)) continue;  // far side of the globe, or outside the world
      scratch_.markers.Draw(surface_, scratch_.edges, p.x, p.y, symbol);
      if (labels_ != nullptr) labels_->AddMarker(data_, index, marker, p.x, p.y);
      drawn = true;
    }
    if (query_) {
      if (surface_.hit() && hits_ != nullptr) hits_->push_back(index);
      surface_.set_hit(earlier_hit || surface_.hit());
      return;
    }
    if (drawn) ++stats_.markers;
  }

  DrawSurface& surface_;
  VectorScratch& scratch_;
  Layer& layer_;
  const VectorData& data_;
  const OverrideConditions& override_;
  VectorDrawStats& stats_;
  std::vector<size_t>* hits_;
  LabelCollector* labels_;
  const MapGeometry& geometry_;
  const ViewRegion view_;
  const FeatureStyle style_;
  FeatureStyle feature_style_;
  const bool view_test_;
  double zoom_scale_ = 1.0;
  double line_reach_ = 1.0;
  double marker_reach_ = kMarkerTestHalfSize;
  const bool query_;
  FeatureContext context_;
};

}  // namespace

VectorDrawStats& VectorDrawStats::operator+=(const VectorDrawStats& o) {
  polygons += o.polygons;
  points += o.points;
  rings += o.rings;
  culled_small += o.culled_small;
  clipped += o.clipped;
  markers += o.markers;
  return *this;
}

void ReportVectorStats(const VectorDrawStats& stats) {
  if (Verbosity() < 5) return;
  ReportNumber(kInfo, "Num polygons", static_cast<double>(stats.polygons));
  ReportNumber(kInfo, "Num points", static_cast<double>(stats.points));
  ReportNumber(kInfo, "Num rings", static_cast<double>(stats.rings));
  ReportNumber(kInfo, "Culled small polygons", static_cast<double>(stats.culled_small));
  ReportNumber(kInfo, "Clipped polygons", static_cast<double>(stats.clipped));
  ReportNumber(kInfo, "Num markers", static_cast<double>(stats.markers));
}

bool IsClosedRing(const PolygonFeature& polygon) {
  const auto& p = polygon.points;
  return p.size() >= 3 && p.front().x == p.back().x && p.front().y == p.back().y;
}

bool DrawVectorTile(DrawSurface& surface, VectorScratch& scratch, Layer& layer,
                    const VectorData& data, const OverrideConditions& override_conditions,
                    VectorDrawStats& stats, std::vector<size_t>* hits, LabelCollector* labels) {
  if (!surface.location_query() && !IsKnownTransType(layer.record.trans_type)) {
    ReportUnknownTransType(layer.record.trans_type);
    return false;
  }
  TileDrawer(surface, scratch, layer, data, override_conditions, stats, hits, labels).Run();
  return true;
}

}  // namespace vmp
