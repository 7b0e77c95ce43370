// Draws arbitrary polygon groups and polylines (thick edges), markers of
// every symbol, an image tile with arbitrary bounds (any doubles: NaN,
// infinities, huge values; nearest and bilinear), a grid with its labels
// (settings and label format from the input) and an outline on small maps of
// both projections, normally and as a location query.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "map_server/dataset/layer.h"
#include "map_server/rendering/grid_labels.h"
#include "map_server/rendering/grid_layer.h"
#include "map_server/rendering/image_pass.h"
#include "map_server/rendering/simple_layers.h"
#include "map_server/rendering/vector_tile_drawer.h"
#include "map_server/text/label_layout.h"
#include "toolkit/message_log.h"

namespace {

using namespace vmp;

class Reader {
 public:
  Reader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool empty() const { return pos_ >= size_; }
  uint8_t Byte() { return pos_ < size_ ? data_[pos_++] : 0; }
  double Double() {
    double d = 0;
    const size_t n = size_ - pos_ < sizeof d ? size_ - pos_ : sizeof d;
    std::memcpy(&d, data_ + pos_, n);
    pos_ += n;
    return d;
  }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t pos_ = 0;
};

MapGeometry Geometry(uint8_t choice) {
  MapGeometryInput in;
  in.projection = choice % 2 ? kOrthographicProjection : kRectangularProjection;
  in.center_lat = choice % 3 == 0 ? 89.5 : 20;
  in.center_lon = choice % 5 == 0 ? 179 : 10;
  in.h_extent = in.v_extent = in.projection == kOrthographicProjection ? (choice % 4 ? 1.5e7 : 1e5) : 50;
  in.width = 48;
  in.height = 40;
  in.angle = choice % 7 == 0 ? 30 : 0;
  in.location_query = choice % 11 == 0;
  in.location_i = 20;
  in.location_j = 20;
  in.dataset_options = DatasetOptions{};
  MapGeometry g;
  MapImage unused;
  SetupMapGeometry(in, g, unused);
  return g;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static bool quiet = [] {
    kav::Messages().cgi = true;  // no log files
    VmpSetErrorHandler([](const char*, int) {});
    return true;
  }();
  (void)quiet;
  static VectorScratch scratch;
  static ImagePassScratch image_scratch;
  Reader in(data, size);
  const MapGeometry g = Geometry(in.Byte());
  MapImage image;
  if (g.end_x <= 0 || !AllocateMapImage(g, image)) return 0;

  VectorData vector;
  while (!in.empty() && vector.FeatureCount() < 64) {
    const uint8_t head = in.Byte();
    if (head % 5 == 0) {
      auto m = std::make_unique<MarkerFeature>();
      m->x = in.Double();
      m->y = in.Double();
      vector.AddFeature(std::move(m));
      continue;
    }
    auto p = std::make_unique<PolygonFeature>();
    for (int i = 0, n = in.Byte() % 24; i < n; ++i) p->points.push_back({in.Double(), in.Double()});
    p->ComputeBounds();
    p->flag = head % 2;
    vector.AddFeature(std::move(p));
  }
  Layer layer("fuzz");
  layer.record.drawing.fill_type = 3;
  layer.record.drawing.min_pixel_size = 0;
  layer.record.drawing.line_width = static_cast<int32_t>(size % 9);
  layer.record.drawing.marker_type = static_cast<int32_t>(size % 64);
  layer.record.drawing.marker_size = static_cast<int32_t>(size % 40) - 3;
  layer.record.clip = size % 2;
  DrawSurface surface(&image, g);
  VectorDrawStats stats;
  std::vector<size_t> hits;
  DrawVectorTile(surface, scratch, layer, vector, {}, stats, size % 3 ? &hits : nullptr);

  LoadedImage tile;
  tile.width = 2;
  tile.height = 2;
  tile.samples_per_pixel = size % 2 ? 3 : 4;
  tile.pixels.Resize(16);
  for (size_t i = 0; i < 16; ++i) tile.pixels[i] = static_cast<uint8_t>(i * 37 + size);
  const ImageTileRef tiles[] = {{&tile, {-20, 40, -10, 60}}, {&tile, {in.Double(), in.Double(), in.Double(), in.Double()}}};
  ImageLayerInput layers[] = {{"fuzz", static_cast<int64_t>(size % 6), 0.5, {}, 0.1, tiles}};
  layers[0].bilinear = size % 4 < 2;
  if (size % 5 == 0) layers[0].alpha = 1.0;  // the plain copy of opaque samples
  DrawImageLayers(surface, image_scratch, layers);

  // A grid with intervals and bounds from the input, and an outline.
  Layer grid("grid");
  grid.record.grid.lat_interval = in.Double();
  grid.record.grid.lon_interval = in.Double();
  grid.record.grid.min_lon = in.Double();
  grid.record.grid.max_lat = in.Double();
  grid.record.grid.adaptive = static_cast<int32_t>(size % 5 == 0);
  grid.record.drawing.line_width = static_cast<int32_t>(size % 4);
  DrawGridLayer(surface, scratch.stroker, scratch.edges, grid);
  static TextEngine engine;  // stroke fonts only: no font library
  static const std::unique_ptr<Dataset> dataset = CreateDataset("fuzz", "");
  grid.record.layer_type = kLayerGrid;
  grid.record.grid.labels = 1;
  grid.record.grid.decimal_labels = static_cast<int32_t>(size % 2);
  grid.record.grid.label_char = static_cast<int32_t>(size % 3);
  grid.record.grid.lon_label_angle = in.Double();
  if (size % 7 < 3) grid.record.grid.label_format = std::string(reinterpret_cast<const char*>(data), size % 13);
  {
    LabelCollector labels(engine, nullptr, surface, *dataset);
    if (labels.BeginLayer(grid, true)) AddGridLabels(labels, grid, g);
    labels.Finish();
  }
  grid.record.gradient_type = 1;
  grid.record.gradient_length = in.Double();
  DrawOutlineLayer(surface, grid);
  return 0;
}
