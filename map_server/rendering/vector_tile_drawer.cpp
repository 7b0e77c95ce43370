#include "map_server/rendering/vector_tile_drawer.h"

#include <algorithm>

#include "map_server/geometry/conversions.h"
#include "map_server/rendering/basic_symbols.h"
#include "map_server/rendering/pixel_writer.h"
#include "map_server/rendering/view_region.h"
#include "map_server/text/label_layout.h"
#include "map_server/vector/attr_match.h"
#include "toolkit/message_log.h"

namespace vmp {

namespace {

// Half-size of the square a marker is view-tested with, in map pixel sizes.
constexpr double kMarkerTestHalfSize = 20.0;
constexpr int kFillBit = 2;
constexpr int kEdgeBit = 1;

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
        view_(surface.geometry(), surface.active_rect()),
        style_(VectorStyleOf(layer.record)),
        query_(surface.location_query()) {
    context_.data = &data;
    context_.layer_name = layer.name;
    context_.layer = &layer.record.attributes;
    context_.vector_layer = true;
    context_.zoom = geometry_.zoom;
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
    if (count > 0 || query_ || style_.view_test) return count;
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

    double shifts[3];
    const int shift_count = ViewShifts(box, shifts);
    if (shift_count == 0) {
      if (!query_) ++stats_.clipped;
      return next;
    }
    const double extent = std::max(box.max_lon - box.min_lon, box.max_lat - box.min_lat);
    if (style_.min_pixel_size != 0.0 && extent < style_.min_pixel_size * geometry_.pixel_size) {
      if (!query_) ++stats_.culled_small;
      return next;
    }
    if (!Passes(*group.front())) return next;

    if (query_) {
      const bool earlier_hit = surface_.hit();
      surface_.set_hit(false);
      for (int s = 0; s < shift_count && !surface_.hit(); ++s) {
        scratch_.projector.Project(geometry_, group, shifts[s], scratch_.rings);
        FillPolygons(surface_, scratch_.edges, scratch_.rings, style_.fill_colour);
        if (!surface_.hit() && style_.edges) DrawRingEdges(surface_, scratch_.rings, style_.edge_colour);
        if (labels_ != nullptr) labels_->AddPolygon(data_, first, *group.front(), scratch_.rings, shifts[s]);
      }
      if (surface_.hit() && hits_ != nullptr) hits_->push_back(first);
      surface_.set_hit(earlier_hit || surface_.hit());
      return next;
    }

    for (int s = 0; s < shift_count; ++s) {
      scratch_.projector.Project(geometry_, group, shifts[s], scratch_.rings);
      if (style_.fill) FillPolygons(surface_, scratch_.edges, scratch_.rings, style_.fill_colour);
      if (style_.edges) DrawRingEdges(surface_, scratch_.rings, style_.edge_colour);
      if (labels_ != nullptr) labels_->AddPolygon(data_, first, *group.front(), scratch_.rings, shifts[s]);
    }
    ++stats_.polygons;
    stats_.points += points;
    stats_.rings += static_cast<int64_t>(group.size());
    return next;
  }

  void DrawMarker(size_t index, const MarkerFeature& marker) {
    const double half = kMarkerTestHalfSize * geometry_.pixel_size;
    const Box box{marker.x - half, marker.x + half, marker.y - half, marker.y + half};
    double shifts[3];
    const int shift_count = ViewShifts(box, shifts);
    if (shift_count == 0 || !Passes(marker)) return;
    const bool earlier_hit = surface_.hit();
    if (query_) surface_.set_hit(false);
    for (int s = 0; s < shift_count; ++s) {
      const PixelPoint p = LatLonToPixel(geometry_, marker.y, marker.x + shifts[s]);
      if (!(p.z >= 0.0)) continue;  // far side of the globe, or outside the world
      DrawMarkerSquare(surface_, p.x, p.y, style_.marker_size, style_.marker_colour);
      if (labels_ != nullptr) labels_->AddMarker(data_, index, marker, p.x, p.y);
    }
    if (query_) {
      if (surface_.hit() && hits_ != nullptr) hits_->push_back(index);
      surface_.set_hit(earlier_hit || surface_.hit());
      return;
    }
    ++stats_.markers;
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
  const VectorLayerStyle style_;
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

VectorLayerStyle VectorStyleOf(const LayerRecord& record) {
  const DrawingAttributes& d = record.drawing;
  VectorLayerStyle style;
  style.view_test = record.clip != 0;
  style.min_pixel_size = d.min_pixel_size;
  style.fill = (d.fill_type & kFillBit) != 0;
  style.edges = (d.fill_type & kEdgeBit) != 0;
  style.fill_colour = MakePixelColour(d.fill_color, d.alpha, record.trans_type);
  style.edge_colour = MakePixelColour(d.edge_color, d.alpha, record.trans_type);
  style.marker_colour = MakePixelColour(d.marker_fill_color, d.alpha, record.trans_type);
  style.marker_size = d.marker_size;
  return style;
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
