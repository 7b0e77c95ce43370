#include "map_server/service/query_answers.h"

#include <gtest/gtest.h>

#include <cmath>

#include "map_server/geometry/map_image.h"
#include "tests/support/xml_check.h"

namespace vmp {
namespace {

TEST(QueryAnswersTest, LatLonAnswer) {
  struct Case {
    AnswerFormat format;
    bool on_map;
    const char* expected;
  } cases[] = {
      {{false, false}, false, "QueryException=OutsideException\nLat=10000.000000\nLon=10000.000000\n"},
      {{false, true}, true, "Content-Type: text/plain\n\nQueryException=None\nLat=45.500000\nLon=-120.250000\n"},
      {{true, false}, true,
       "<VmpLatLonData>\n  <QueryException>None</QueryException>\n  <Lat>45.500000</Lat>\n"
       "  <Lon>-120.250000</Lon>\n</VmpLatLonData>\n"},
      {{true, true}, false,
       "Content-Type: text/xml\n\n<VmpLatLonData>\n  <QueryException>OutsideException</QueryException>\n"
       "  <Lat>10000.000000</Lat>\n  <Lon>10000.000000</Lon>\n</VmpLatLonData>\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(FormatLatLonAnswer(c.format, c.on_map, 45.5, -120.25), c.expected);
}

TEST(QueryAnswersTest, ElevationAnswer) {
  EXPECT_EQ(FormatElevationAnswer({false, true}, std::nullopt),
            "Content-Type: text/plain\n\nQueryException=NoDataException\nElevation=-10000.000000\n");
  EXPECT_EQ(FormatElevationAnswer({true, false}, -3.0),
            "<VmpElevationData>\n  <QueryException>None</QueryException>\n"
            "  <Elevation>-3.000000</Elevation>\n</VmpElevationData>\n");
}

// Every attribute type, a feature with and without an ID, a layer without selections.
TEST(QueryAnswersTest, SelectionAnswer) {
  SelectedFeature feature;
  feature.type = "POLYGON";
  feature.lat = 48.5;
  feature.lon = 2.25;
  feature.attributes = {{"NAME", TypedValue::String("France")}, {"NOTE", TypedValue::String(std::nullopt)},
                        {"POP", TypedValue::Double(67.5)},      {"CENTRE", TypedValue::Geo(1, 2, 3)},
                        {"ODD", TypedValue{}}};
  std::vector<SelectionLayer> layers = {{"countries", {{"point", {feature}}}}, {"empty", {}}};
  const std::string xml = FormatSelectionAnswer({true, false}, layers);
  EXPECT_EQ(test::XmlProblem(xml), "");
  EXPECT_EQ(test::FlatXml(xml),
            "<VmpSelectionData><Layer><Name>countries</Name><Selection><SelectionType>point</SelectionType>"
            "<Feature><FeatureType>POLYGON</FeatureType><FeatureID>undefined</FeatureID>"
            "<Location><Lat>48.500000</Lat><Lon>2.250000</Lon></Location><Attributes><NumAttributes>5</NumAttributes>"
            "<Attribute><Name>NAME</Name><Type>S</Type><ValueS>France</ValueS></Attribute>"
            "<Attribute><Name>NOTE</Name><Type>S</Type><ValueS>undefined</ValueS></Attribute>"
            "<Attribute><Name>POP</Name><Type>D</Type><ValueD>67.500000</ValueD></Attribute>"
            "<Attribute><Name>CENTRE</Name><Type>G</Type><ValueG><X>1.000000</X><Y>2.000000</Y><X>3.000000</X></ValueG>"
            "</Attribute><Attribute><Name>ODD</Name><Type>undefined</Type></Attribute></Attributes></Feature>"
            "</Selection></Layer><Layer><Name>empty</Name></Layer></VmpSelectionData>");
  EXPECT_EQ(FormatSelectionAnswer({true, true}, {}),
            "Content-Type: text/xml\n\n<VmpSelectionData>\n</VmpSelectionData>\n");

  layers[0].selections[0].features[0].id = "17";
  EXPECT_EQ(FormatSelectionAnswer({false, true}, layers),
            "Content-Type: text/plain\n\nVmpSelectionData\nLayer: <countries>\n  Selection\n"
            "    SelectionType: <point>\n"
            "    Feature\n      FeatureType: <POLYGON>\n      FeatureID: <17>\n      Location: <2.250000 48.500000>\n"
            "      Attributes\n        NumAttributes: <5>\n        S attribute <NAME> = <France>\n"
            "        S attribute <NOTE> = <undefined>\n        D attribute <POP> = <67.500000>\n"
            "        G attribute <CENTRE> = <1.000000 2.000000 3.000000>\n        U Attribute <ODD> = <undefined>\n"
            "      Attributes End\n    Feature End\n  Selection End\nLayer End\nLayer: <empty>\nLayer End\n"
            "VmpSelectionData End\n");
}

TEST(QueryAnswersTest, PointsOnTheMap) {
  auto geometry = [](int64_t projection, double center_lon, double extent) {
    MapGeometryInput in;
    in.projection = projection;
    in.center_lon = center_lon;
    in.h_extent = in.v_extent = extent;
    in.width = 101;
    in.height = 51;
    in.stretch = 1;
    in.dataset_options = DatasetOptions{};
    MapGeometry g;
    MapImage image;
    EXPECT_TRUE(SetupMapGeometry(in, g, image));
    return g;
  };
  const MapGeometry rect = geometry(kRectangularProjection, 170, 40);  // lon 150..190, lat -20..20
  const MapGeometry globe = geometry(kOrthographicProjection, 0, 2 * kEquatorialRadius);
  // GetFeatureInfo: row J from the top in both projections.
  LatLonPoint p = FeatureInfoLocation(rect, 50, 0);
  EXPECT_TRUE(p.ok && p.lat == 20 && p.lon == 170);
  p = FeatureInfoLocation(globe, 50, 1);
  EXPECT_TRUE(p.ok && p.lat > 60);
  EXPECT_FALSE(FeatureInfoLocation(globe, 0, 0).ok);  // a corner is off the globe
  // GetLocationInfo.
  struct Case {
    const MapGeometry& g;
    double lat, lon;
    bool on_map;
  } cases[] = {
      {rect, 0, 160, true},   {rect, 0, -175, true},  {rect, 25, 160, false}, {rect, 0, 140, false},
      {rect, std::nan(""), 160, false}, {globe, 60, 0, true}, {globe, 0, 120, false},
  };
  for (const Case& c : cases) EXPECT_EQ(LocationOnMap(c.g, c.lat, c.lon), c.on_map) << c.lat << "," << c.lon;
}

}  // namespace
}  // namespace vmp
