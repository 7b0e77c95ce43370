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
  return {{"countries", {{"point", {feature}}}}, {"empty", {}}};
}

TEST(QueryAnswersTest, SelectionAnswerAsText) {
  std::vector<SelectionLayer> layers = SampleSelection();
  layers[0].selections[0].features[0].id = "17";
  EXPECT_EQ(FormatSelectionAnswer({false, true}, layers),
            "Content-Type: text/plain\n\n"
            "VmpSelectionData\n"
            "Layer: <countries>\n"
            "  Selection\n"
            "    SelectionType: <point>\n"
            "    Feature\n"
            "      FeatureType: <POLYGON>\n"
            "      FeatureID: <17>\n"
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
            "  Selection End\n"
            "Layer End\n"
            "Layer: <empty>\n"
            "Layer End\n"
            "VmpSelectionData End\n");
}

TEST(QueryAnswersTest, SelectionAnswerAsXml) {
  std::vector<SelectionLayer> layers = SampleSelection();
  auto& attributes = layers[0].selections[0].features[0].attributes;
  attributes.erase(attributes.begin(), attributes.begin() + 2);  // POP (D), CENTRE (G), ODD
  const std::string doc = FormatSelectionAnswer({true, false}, layers);
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
            "          <NumAttributes>3</NumAttributes>\n"
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
            "    </Selection>\n"
            "  </Layer>\n"
            "  <Layer>\n"
            "    <Name>empty</Name>\n"
            "  </Layer>\n"
            "</VmpSelectionData>\n");
  EXPECT_EQ(FormatSelectionAnswer({true, true}, {}), "Content-Type: text/xml\n\n<VmpSelectionData>\n</VmpSelectionData>\n");
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
