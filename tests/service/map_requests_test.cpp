// GetMap, GetSelection, GetFeatureInfo and GetLocationInfo end to end: the
// real program on a small dataset written here, its JPEG decoded again.
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
    dir_.Write("places.lif", std::string("TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=places.tvf\n") + extent);
    dir_.Write("dem.lif", "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nELEVATION MODE=DATA\nFILENAME=dem.tif\nWIDTH=2\nHEIGHT=2\n"
                          "MIN LON=0\nMAX LON=90\nMIN LAT=0\nMAX LAT=45\n");
    // A labelled marker at (0, 0) without a symbol: pixel (180, 90) of a 361 x 181 world map.
    auto labelled = std::make_unique<MarkerFeature>();
    labelled->marker_type = static_cast<uint32_t>(MarkerType::kLabeled);
    labelled->label = "WWW";
    labelled->AddAttribute(1, TypedValue::String("Zero"));
    std::vector<std::unique_ptr<Feature>> labels;
    labels.push_back(std::move(labelled));
    WriteTvf(dir_ / "labels.tvf", labels);
    dir_.Write("labels.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=labels.tvf\nFONT SCALE=2\nTEXT TYPE=FLAT\n"
                             "VTEXT LINE WIDTH=3\nLABEL COLOR=1 0 0\n");
    // Meridians every 60 degrees labelled in green at the bottom edge, parallels at the left.
    dir_.Write("grid.lif", "TYPE=GRID\nTRANS TYPE=OPAQUE\nGRID LAT INTERVAL=30\nGRID LON INTERVAL=60\n"
                           "EDGE COLOR=0 0 1\nGRID LABELS=1\nROTATE LON LABELS=0\nTEXT ANCHOR=HLEFT VBOTTOM\n"
                           "FONT SCALE=1.5\nVTEXT LINE WIDTH=2\nLABEL COLOR=0 1 0\n");
    dataset_ = dir_.Write("set.sdf", "LAYER=square square.lif\nLAYER=places places.lif\nLAYER=dem dem.lif\n"
                                     "LAYER=labelled labels.lif\nLAYER=grid grid.lif\n");
  }

  RunResult Request(const std::string& query, const std::string& output = "") {
    std::vector<std::string> args = {"-generate", "-dataset", dataset_, "-oGISreq", "VERSION=1.3.0&" + query};
    if (!output.empty()) args.insert(args.end(), {"-output", output});
    return RunMapServer(args);
  }
  RunResult CgiRequest(const std::string& query) {
    test::RunOptions options;
    options.env["QUERY_STRING"] = "VERSION=1.3.0&" + query;
    return RunMapServer({"-generate", "-cgi", "-dataset", dataset_}, options);
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

  // Pixels of a colour (channel 0 red, 1 green) in a rectangle, allowing for JPEG loss.
  static int Count(const LoadedImage& image, int channel, int x0, int y0, int x1, int y1) {
    int n = 0;
    for (int y = y0; y <= y1; ++y)
      for (int x = x0; x <= x1; ++x) {
        const uint8_t* p = image.pixels.data() + (y * image.width + x) * 3;
        n += p[channel] > 150 && p[(channel + 1) % 3] < 90 && p[(channel + 2) % 3] < 90;
      }
    return n;
  }

  test::TempDir dir_;
  std::string dataset_;
};

// 361 x 181 pixels, one a degree.
const std::string kWorld = "SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=361&HEIGHT=181";

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

TEST_F(MapRequestsTest, SelectionListsTheHitMarkerWithItsAttributes) {
  // The marker at lon 60, lat 40 is pixel (240, 50).
  const std::string map =
      "REQUEST=GetSelection&" + kWorld + "&FORMAT=text/plain&SELECT_LABELS=NONE&LAYERS=places,square";
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
  const std::string info = "REQUEST=GetFeatureInfo&" + globe + "&QUERY_LAYERS=dem&INFO_TYPE=lat_lon&";
  RunResult corner = Request(info + "I=2&J=2");
  EXPECT_EQ(corner.out, "QueryException=OutsideException\nLat=10000.000000\nLon=10000.000000\n");
  EXPECT_EQ(corner.status, 1);  // the answer is written, but the pixel is off the map
  RunResult centre = Request(info + "I=100&J=100");
  EXPECT_EQ(centre.out, "QueryException=None\nLat=0.000000\nLon=0.000000\n");
  EXPECT_EQ(centre.status, 0);
  RunResult far_side =
      CgiRequest("REQUEST=GetLocationInfo&" + globe + "&LON_LAT=170,10&QUERY_LAYERS=dem&INFO_TYPE=lat_lon");
  EXPECT_EQ(far_side.status, 0) << far_side.err;
  EXPECT_EQ(far_side.out,
            "Content-Type: text/xml\n\n<VmpLatLonData>\n  <QueryException>OutsideException</QueryException>\n"
            "  <Lat>10000.000000</Lat>\n  <Lon>10000.000000</Lon>\n</VmpLatLonData>\n");

  const std::string elevation = "REQUEST=GetLocationInfo&" + kWorld + "&INFO_TYPE=elevation&QUERY_LAYERS=";
  EXPECT_EQ(Request(elevation + "dem&LON_LAT=20,30").out, "QueryException=None\nElevation=100.000000\n");
  EXPECT_EQ(Request(elevation + "dem&LON_LAT=80,10").out, "QueryException=None\nElevation=250.000000\n");
  EXPECT_EQ(Request(elevation + "dem&LON_LAT=-80,10").out, "QueryException=NoDataException\nElevation=-10000.000000\n");
  RunResult no_layer = Request(elevation + "square&LON_LAT=20,30");
  EXPECT_EQ(no_layer.status, 1);
  EXPECT_NE(no_layer.err.find("Errors processing elevation request."), std::string::npos);
}

TEST_F(MapRequestsTest, MarkerAndGridLabelsAreDrawnWhereTheyBelong) {
  const std::string file = dir_ / "map.jpg";
  RunResult r = Request("REQUEST=GetMap&" + kWorld + "&FORMAT=image/jpeg&LAYERS=labelled,grid", file);
  ASSERT_EQ(r.status, 0) << r.err;
  LoadedImage image;
  ASSERT_TRUE(LoadImageFile(file, kJpegFormat, false, image));
  // HLEFT VTOP: the text hangs right of and below the marker, 20-pixel capitals.
  EXPECT_GT(Count(image, 0, 181, 91, 260, 114), 100);
  EXPECT_EQ(Count(image, 0, 0, 0, 360, 180), Count(image, 0, 178, 88, 265, 118));
  // Meridian labels sit on the bottom edge right of their line (lon 60 at x = 240), parallel
  // labels on the left edge above theirs (lat 30 at y = 60); none in the map's middle.
  EXPECT_GT(Count(image, 1, 241, 160, 290, 177), 20);
  EXPECT_GT(Count(image, 1, 3, 40, 40, 59), 20);
  EXPECT_EQ(Count(image, 1, 70, 20, 360, 140), 0);
}

TEST_F(MapRequestsTest, SelectionFindsTheFeatureUnderItsLabel) {
  struct Case {
    const char* mode;
    int i, j;
    bool found;
  } cases[] = {
      {"NONE", 230, 100, false},    // on the label, far from the marker
      {"YES", 230, 100, true},      // the view's labels as the map shows them
      {"INTILE", 230, 100, false},  // the marker is too far from the point to be looked at
      {"INTILE", 188, 100, true},   // near enough
      {"YES", 100, 100, false},     // nothing there
  };
  const std::string query = "REQUEST=GetSelection&" + kWorld + "&FORMAT=text/plain&LAYERS=labelled&SELECT_LABELS=";
  for (const Case& c : cases) {
    RunResult r = Request(query + c.mode + "&I=" + std::to_string(c.i) + "&J=" + std::to_string(c.j));
    EXPECT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out.find("<Zero>") != std::string::npos, c.found) << c.mode << " " << c.i << "\n" << r.out;
  }
  // Hit by its shape and its label: listed once.
  RunResult both = Request(query + "YES&I=182&J=92");
  EXPECT_NE(both.out.find("<Zero>"), std::string::npos);
  EXPECT_EQ(both.out.find("<Zero>"), both.out.rfind("<Zero>")) << both.out;
}

}  // namespace
}  // namespace vmp
