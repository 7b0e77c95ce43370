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
      {{false, false}, true, "QueryException=None\nLat=45.500000\nLon=-120.250000\n"},
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
  EXPECT_EQ(FormatElevationAnswer({false, false}, 1234.5), "QueryException=None\nElevation=1234.500000\n");
  EXPECT_EQ(FormatElevationAnswer({false, true}, std::nullopt),
            "Content-Type: text/plain\n\nQueryException=NoDataException\nElevation=-10000.000000\n");
  EXPECT_EQ(FormatElevationAnswer({true, true}, -3.0),
            "Content-Type: text/xml\n\n<VmpElevationData>\n  <QueryException>None</QueryException>\n"
            "  <Elevation>-3.000000</Elevation>\n</VmpElevationData>\n");
  EXPECT_EQ(FormatElevationAnswer({true, false}, std::nullopt),
            "<VmpElevationData>\n  <QueryException>NoDataException</QueryException>\n"
            "  <Elevation>-10000.000000</Elevation>\n</VmpElevationData>\n");
}

std::vector<SelectionLayer> SampleSelection() {
  SelectedFeature feature;
  feature.type = "POLYGON";
  feature.lat = 48.5;
  feature.lon = 2.25;
  feature.attributes = {{"NAME", TypedValue::String("France")},
                        {"NOTE", TypedValue::String(std::nullopt)},
                        {"POP", TypedValue::Double(67.5)},
                        {"CENTRE", TypedValue::Geo(1, 2, 3)},
                        {"ODD", TypedValue{}}};
  SelectedFeature bare;
  bare.id = "17";
  return {{"countries", {{"point", {feature, bare}}}}, {"empty", {}}};
}

TEST(QueryAnswersTest, SelectionAnswerAsText) {
  EXPECT_EQ(FormatSelectionAnswer({false, true}, SampleSelection()),
            "Content-Type: text/plain\n\n"
            "VmpSelectionData\n"
            "Layer: <countries>\n"
            "  Selection\n"
            "    SelectionType: <point>\n"
            "    Feature\n"
            "      FeatureType: <POLYGON>\n"
            "      FeatureID: <undefined>\n"
            "      Location: <2.250000 48.500000>\n"
            "      Attributes\n"
            "        NumAttributes: <5>\n"
            "        S attribute <NAME> = <France>\n"
            "        S attribute <NOTE> = <undefined>\n"
            "        D attribute <POP> = <67.500000>\n"
            "        G attribute <CENTRE> = <1.000000 2.000000 3.000000>\n"
            "        U Attribute <ODD> = <undefined>\n"
            "      Attributes End\n"
            "    Feature End\n"
            "    Feature\n"
            "      FeatureType: <undefined>\n"
            "      FeatureID: <17>\n"
            "      Location: <0.000000 0.000000>\n"
            "      Attributes\n"
            "        NumAttributes: <0>\n"
            "      Attributes End\n"
            "    Feature End\n"
            "  Selection End\n"
            "Layer End\n"
            "Layer: <empty>\n"
            "Layer End\n"
            "VmpSelectionData End\n");
}

TEST(QueryAnswersTest, SelectionAnswerAsXml) {
  const std::string doc = FormatSelectionAnswer({true, false}, SampleSelection());
  EXPECT_EQ(test::XmlProblem(doc), "");
  EXPECT_EQ(doc,
            "<VmpSelectionData>\n"
            "  <Layer>\n"
            "    <Name>countries</Name>\n"
            "    <Selection>\n"
            "      <SelectionType>point</SelectionType>\n"
            "      <Feature>\n"
            "        <FeatureType>POLYGON</FeatureType>\n"
            "        <FeatureID>undefined</FeatureID>\n"
            "        <Location>\n"
            "          <Lat>48.500000</Lat>\n"
            "          <Lon>2.250000</Lon>\n"
            "        </Location>\n"
            "        <Attributes>\n"
            "          <NumAttributes>5</NumAttributes>\n"
            "          <Attribute>\n"
            "            <Name>NAME</Name>\n"
            "            <Type>S</Type>\n"
            "            <ValueS>France</ValueS>\n"
            "          </Attribute>\n"
            "          <Attribute>\n"
            "            <Name>NOTE</Name>\n"
            "            <Type>S</Type>\n"
            "            <ValueS>undefined</ValueS>\n"
            "          </Attribute>\n"
            "          <Attribute>\n"
            "            <Name>POP</Name>\n"
            "            <Type>D</Type>\n"
            "            <ValueD>67.500000</ValueD>\n"
            "          </Attribute>\n"
            "          <Attribute>\n"
            "            <Name>CENTRE</Name>\n"
            "            <Type>G</Type>\n"
            "            <ValueG>\n"
            "              <X>1.000000</X>\n"
            "              <Y>2.000000</Y>\n"
            "              <X>3.000000</X>\n"
            "            </ValueG>\n"
            "          </Attribute>\n"
            "          <Attribute>\n"
            "            <Name>ODD</Name>\n"
            "            <Type>undefined</Type>\n"
            "          </Attribute>\n"
            "        </Attributes>\n"
            "      </Feature>\n"
            "      <Feature>\n"
            "        <FeatureType>undefined</FeatureType>\n"
            "        <FeatureID>17</FeatureID>\n"
            "        <Location>\n"
            "          <Lat>0.000000</Lat>\n"
            "          <Lon>0.000000</Lon>\n"
            "        </Location>\n"
            "        <Attributes>\n"
            "          <NumAttributes>0</NumAttributes>\n"
            "        </Attributes>\n"
            "      </Feature>\n"
            "    </Selection>\n"
            "  </Layer>\n"
            "  <Layer>\n"
            "    <Name>empty</Name>\n"
            "  </Layer>\n"
            "</VmpSelectionData>\n");
  EXPECT_EQ(FormatSelectionAnswer({true, true}, {}), "Content-Type: text/xml\n\n<VmpSelectionData>\n</VmpSelectionData>\n");
}

MapGeometry Geometry(int64_t projection, double center_lat, double center_lon, double extent) {
  MapGeometryInput in;
  in.projection = projection;
  in.center_lat = center_lat;
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
}

TEST(QueryAnswersTest, FeatureInfoRowRule) {
  // Rectangular: row J from the top.
  MapGeometry rect = Geometry(kRectangularProjection, 0, 0, 100);
  LatLonPoint p = FeatureInfoLocation(rect, 50, 0);
  EXPECT_TRUE(p.ok);
  EXPECT_DOUBLE_EQ(p.lat, 50);
  EXPECT_DOUBLE_EQ(p.lon, 0);
  // Orthographic: the top row is the north of the globe too.
  MapGeometry globe = Geometry(kOrthographicProjection, 0, 0, 2 * kEquatorialRadius);
  p = FeatureInfoLocation(globe, 50, 1);
  EXPECT_TRUE(p.ok);
  EXPECT_GT(p.lat, 60);
  p = FeatureInfoLocation(globe, 0, 0);  // a corner: off the globe
  EXPECT_FALSE(p.ok);
}

TEST(QueryAnswersTest, LocationOnMap) {
  MapGeometry rect = Geometry(kRectangularProjection, 0, 170, 40);  // lon 150..190, lat -20..20
  MapGeometry globe = Geometry(kOrthographicProjection, 0, 0, 2 * kEquatorialRadius);
  struct Case {
    const MapGeometry& g;
    double lat, lon;
    bool on_map;
  } cases[] = {
      {rect, 0, 160, true}, {rect, 0, -175, true},  {rect, 25, 160, false},
      {rect, 0, 140, false}, {rect, std::nan(""), 160, false},
      {globe, 10, 20, true}, {globe, 0, 120, false}, {globe, 60, 0, true},
  };
  for (const Case& c : cases) EXPECT_EQ(LocationOnMap(c.g, c.lat, c.lon), c.on_map) << c.lat << "," << c.lon;
}

}  // namespace
}  // namespace vmp
