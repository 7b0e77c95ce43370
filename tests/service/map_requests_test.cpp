// GetMap, GetSelection, GetFeatureInfo and GetLocationInfo end to end: the
// real program on small datasets written here, its JPEG decoded again.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "map_server/geometry/map_geometry.h"
#include "map_server/image/image_loader.h"
#include "map_server/image/tiff_writer.h"
#include "map_server/vector/tvf_writer.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

using test::RunMapServer;
using test::RunResult;

std::unique_ptr<Feature> Ring(std::vector<double> xy, int8_t flag) {
  auto p = std::make_unique<PolygonFeature>();
  for (size_t i = 0; i + 1 < xy.size(); i += 2) p->points.push_back({xy[i], xy[i + 1]});
  p->flag = flag;
  return p;
}

std::unique_ptr<Feature> Marker(double lon, double lat, const char* name, double size) {
  auto m = std::make_unique<MarkerFeature>();
  m->x = lon;
  m->y = lat;
  m->AddAttribute(1, TypedValue::String(name));
  m->AddAttribute(2, TypedValue::Double(size));
  return m;
}

void WriteTvf(const std::string& path, const std::vector<std::unique_ptr<Feature>>& features) {
  TvfOutput out = OpenTvfOutput(path);
  for (const auto& f : features) WriteTvfFeature(out.get(), TvfFormat::kAscii, *f);
  CloseTvfOutput(std::move(out));
}

class MapRequestsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* extent = "MIN LON=-180\nMAX LON=180\nMIN LAT=-90\nMAX LAT=90\n";
    // A red square, -20..20 degrees, with a hole of -8..8 (one polygon of two rings).
    std::vector<std::unique_ptr<Feature>> square;
    square.push_back(Ring({-20, -20, 20, -20, 20, 20, -20, 20, -20, -20}, 1));
    square.push_back(Ring({-8, -8, -8, 8, 8, 8, 8, -8, -8, -8}, 0));
    WriteTvf(dir_ / "square.tvf", square);
    std::vector<std::unique_ptr<Feature>> places;
    places.push_back(Marker(60, 40, "Paris", 2.5));
    places.push_back(Marker(-100, -40, "Far", 1));
    WriteTvf(dir_ / "places.tvf", places);
    // Elevation over lon 0..90, lat 0..45: two columns, 100 and 250 metres.
    const uint16_t dem[] = {100, 250, 100, 250};
    VmpWriteTiff(nullptr, dir_ / "dem.tif", reinterpret_cast<const uint8_t*>(dem), 2, 2, 1, false);
    dir_.Write("square.lif", std::string("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=square.tvf\nFILL TYPE=FILL\n"
                                         "FILL COLOR=1 0 0\n") + extent);
    dir_.Write("hidden.lif", std::string("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=square.tvf\nMAX ZOOM=0.5\n") + extent);
    dir_.Write("places.lif", std::string("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=places.tvf\n") + extent);
    dir_.Write("dem.lif", "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nELEVATION MODE=DATA\nFILENAME=dem.tif\nWIDTH=2\nHEIGHT=2\n"
                          "MIN LON=0\nMAX LON=90\nMIN LAT=0\nMAX LAT=45\n");
    dataset_ = dir_.Write("set.sdf", "LAYER=square square.lif\nLAYER=hidden hidden.lif\n"
                                     "LAYER=places places.lif\nLAYER=dem dem.lif\n");
  }

  RunResult Request(const std::string& query, const std::string& output = "") {
    std::vector<std::string> args = {"-generate", "-dataset", dataset_, "-oGISreq", "VERSION=1.3.0&" + query};
    if (!output.empty()) args.insert(args.end(), {"-output", output});
    return RunMapServer(args);
  }

  // GetMap to a file, decoded.
  LoadedImage Map(const std::string& srs_bbox, int size, const std::string& layers) {
    const std::string file = dir_ / "map.jpg";
    RunResult r = Request("REQUEST=GetMap&" + srs_bbox + "&WIDTH=" + std::to_string(size) +
                              "&HEIGHT=" + std::to_string(size) + "&FORMAT=image/jpeg&BGCOLOR=0000FF&LAYERS=" + layers,
                          file);
    EXPECT_EQ(r.status, 0) << r.err;
    LoadedImage image;
    EXPECT_TRUE(LoadImageFile(file, kJpegFormat, false, image));
    return image;
  }

  test::TempDir dir_;
  std::string dataset_;
};

// Red, or the blue background, allowing for JPEG loss.
char Colour(const LoadedImage& image, int x, int y) {
  const uint8_t* p = image.pixels.data() + (y * image.width + x) * 3;
  if (p[0] > 200 && p[1] < 60 && p[2] < 60) return 'R';
  if (p[0] < 60 && p[1] < 60 && p[2] > 200) return 'B';
  return '?';
}

TEST_F(MapRequestsTest, FilledSquareWithAHoleInBothProjections) {
  // Rectangular, 181 x 181 pixels over 180 degrees: one pixel a degree, lon 0 at column 90.
  LoadedImage flat = Map("SRS=EPSG:4326&BBOX=-90,-90,90,90", 181, "square");
  ASSERT_EQ(flat.width, 181);
  // Along the equator: outside, 3 px inside the outer edge, the ring, 3 px into the hole, its centre.
  const int columns[] = {90 - 40, 90 - 23, 90 - 17, 90 - 12, 90 - 3, 90, 90 + 3, 90 + 12, 90 + 17, 90 + 23};
  std::string row;
  for (int x : columns) row += Colour(flat, x, 90);
  EXPECT_EQ(row, "BBRRBBBRRB");
  EXPECT_EQ(Colour(flat, 90, 90 - 12), 'R');  // lat 12 on the meridian
  EXPECT_EQ(Colour(flat, 90, 90 + 30), 'B');

  // The globe seen from (0, 0), radius 100 px: x = 100 + 100 sin(lon) on the equator.
  LoadedImage globe = Map("SRS=AUTO:42003,9001,0,0&BBOX=-6378136,-6378136,6378136,6378136", 201, "square");
  row.clear();
  for (double lon : {-40.0, -23.0, -16.0, -11.0, -2.0, 0.0, 11.0, 16.0, 23.0, 80.0}) {
    row += Colour(globe, static_cast<int>(100.5 + 100.0 * std::sin(lon * kPi / 180.0)), 100);
  }
  EXPECT_EQ(row, "BBRRBBRRBB");
  EXPECT_EQ(Colour(globe, 100, 100 - 21), 'R');  // lat 12 on the central meridian
  EXPECT_EQ(Colour(globe, 3, 3), 'B');           // off the globe
}

TEST_F(MapRequestsTest, InactiveLayersLeaveTheBackground) {
  LoadedImage image = Map("SRS=EPSG:4326&BBOX=-180,-90,180,90", 64, "hidden");
  std::string colours;
  for (int y = 0; y < 64; y += 9)
    for (int x = 0; x < 64; x += 9) colours += Colour(image, x, y);
  EXPECT_EQ(colours, std::string(64, 'B'));
  // The bare JPEG on standard output.
  RunResult r = Request("REQUEST=GetMap&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=32&HEIGHT=16"
                        "&FORMAT=image/jpeg&LAYERS=hidden", "-");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out.substr(0, 3), "\xFF\xD8\xFF");
}

TEST_F(MapRequestsTest, SelectionListsTheHitMarkerWithItsAttributes) {
  // 361 x 181 pixels, one a degree: the marker at lon 60, lat 40 is pixel (240, 50).
  const std::string map = "REQUEST=GetSelection&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=361&HEIGHT=181"
                          "&FORMAT=text/plain&SELECT_LABELS=NONE&LAYERS=places,square";
  RunResult hit = Request(map + "&I=241&J=49");
  EXPECT_EQ(hit.status, 0) << hit.err;
  EXPECT_EQ(hit.out,
            "VmpSelectionData\nLayer: <places>\n  Selection\n    SelectionType: <point>\n    Feature\n"
            "      FeatureType: <MARKER>\n      FeatureID: <0>\n      Location: <60.000000 40.000000>\n"
            "      Attributes\n        NumAttributes: <2>\n        S attribute <1> = <Paris>\n"
            "        D attribute <2> = <2.500000>\n      Attributes End\n    Feature End\n"
            "  Selection End\nLayer End\nVmpSelectionData End\n");
  // 12 pixels away only a wider pick resolution reaches it; the square's hole is not the square.
  EXPECT_EQ(Request(map + "&I=252&J=50").out, "VmpSelectionData\nVmpSelectionData End\n");
  EXPECT_NE(Request(map + "&I=252&J=50&PICK_RESOLUTION=14").out.find("<Paris>"), std::string::npos);
  EXPECT_EQ(Request(map + "&I=180&J=90").out, "VmpSelectionData\nVmpSelectionData End\n");
  EXPECT_NE(Request(map + "&I=168&J=90").out.find("FeatureType: <POLYGON>"), std::string::npos);
}

TEST_F(MapRequestsTest, PointsOffTheGlobeAndElevations) {
  const std::string globe = "SRS=AUTO:42003,9001,0,0&BBOX=-6378136,-6378136,6378136,6378136&WIDTH=201&HEIGHT=201";
  const char kOutside[] = "QueryException=OutsideException\nLat=10000.000000\nLon=10000.000000\n";
  RunResult corner = Request("REQUEST=GetFeatureInfo&" + globe + "&I=2&J=2&QUERY_LAYERS=dem&INFO_TYPE=lat_lon");
  EXPECT_EQ(corner.out, kOutside);
  EXPECT_EQ(corner.status, 1);  // the answer is written, but the pixel is off the map
  RunResult centre = Request("REQUEST=GetFeatureInfo&" + globe + "&I=100&J=100&QUERY_LAYERS=dem&INFO_TYPE=lat_lon");
  EXPECT_EQ(centre.out, "QueryException=None\nLat=0.000000\nLon=0.000000\n");
  EXPECT_EQ(centre.status, 0);
  RunResult far_side = Request("REQUEST=GetLocationInfo&" + globe + "&LON_LAT=170,10&QUERY_LAYERS=dem&INFO_TYPE=lat_lon");
  EXPECT_EQ(far_side.out, kOutside);
  EXPECT_EQ(far_side.status, 0);

  const std::string world = "REQUEST=GetLocationInfo&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=360&HEIGHT=180"
                            "&QUERY_LAYERS=dem&INFO_TYPE=elevation&LON_LAT=";
  EXPECT_EQ(Request(world + "20,30").out, "QueryException=None\nElevation=100.000000\n");
  EXPECT_EQ(Request(world + "80,10").out, "QueryException=None\nElevation=250.000000\n");
  EXPECT_EQ(Request(world + "-80,10").out, "QueryException=NoDataException\nElevation=-10000.000000\n");
  RunResult no_layer = Request("REQUEST=GetLocationInfo&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=360&HEIGHT=180"
                               "&QUERY_LAYERS=square&INFO_TYPE=elevation&LON_LAT=20,30");
  EXPECT_EQ(no_layer.status, 1);
  EXPECT_NE(no_layer.err.find("Errors processing elevation request."), std::string::npos);
}

}  // namespace
}  // namespace vmp
