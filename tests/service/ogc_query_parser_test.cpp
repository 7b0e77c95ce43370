#include "map_server/service/ogc_query_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using test::MessageCapture;

const std::string kMap =
    "VERSION=1.3.0&REQUEST=GetMap&SRS=EPSG:4326&BBOX=-10,20,30,60&WIDTH=400&HEIGHT=200"
    "&FORMAT=image/jpeg&LAYERS=world";

struct Outcome {
  RequestType type;
  ParsedRequest request;
  std::vector<std::string> messages;
};

Outcome Parse(const std::string& query, int64_t verbosity = 0) {
  MessageCapture capture;
  kav::Messages().verbosity = verbosity;
  Outcome out;
  out.type = ParseOgcRequest(query.c_str(), out.request);
  out.messages = capture.Texts();
  return out;
}

TEST(OgcQueryParserTest, GetMapWritesTheMapSettings) {
  Outcome o = Parse(kMap);
  ASSERT_EQ(o.type, RequestType::kGetMap);
  EXPECT_TRUE(o.messages.empty());
  EXPECT_EQ(o.request.Number("Width"), 400);
  EXPECT_EQ(o.request.Number("Height"), 200);
  EXPECT_EQ(o.request.Number("Projection"), 0);
  EXPECT_EQ(o.request.Number("CenterLon"), 10);
  EXPECT_EQ(o.request.Number("CenterLat"), 40);
  EXPECT_EQ(o.request.Number("HExtent"), 40);
  EXPECT_EQ(o.request.Number("VExtent"), 40);
  EXPECT_EQ(o.request.Number("ClipArea"), 0);
  EXPECT_EQ(o.request.layers, "world");
}

TEST(OgcQueryParserTest, Crs84SwapsTheAxes) {
  Outcome o = Parse("VERSION=1.3.0&REQUEST=GetMap&CRS=CRS:84&BBOX=-10,20,30,80&WIDTH=4&HEIGHT=2"
                    "&FORMAT=image/jpg&LAYERS=a");
  ASSERT_EQ(o.type, RequestType::kGetMap);
  EXPECT_EQ(o.request.Number("CenterLon"), 50);
  EXPECT_EQ(o.request.Number("CenterLat"), 10);
  EXPECT_EQ(o.request.Number("HExtent"), 60);
  EXPECT_EQ(o.request.Number("VExtent"), 40);
}

TEST(OgcQueryParserTest, OrthographicBoxesAndExtents) {
  const std::string head = "VERSION=1.3.0&REQUEST=GetMap&WIDTH=4&HEIGHT=4&FORMAT=image/jpeg&LAYERS=a&";
  Outcome o = Parse(head + "SRS=AUTO:42003,9001,15.5,48&BBOX=-3000,-2000,3000,2000");
  ASSERT_EQ(o.type, RequestType::kGetMap);
  EXPECT_EQ(o.request.Number("Projection"), 2);
  EXPECT_EQ(o.request.Number("CenterLon"), 15.5);
  EXPECT_EQ(o.request.Number("CenterLat"), 48);
  EXPECT_EQ(o.request.Number("HExtent"), 6000);
  EXPECT_EQ(o.request.Number("VExtent"), 4000);

  o = Parse(head + "CRS=AUTO2:42003,2.5,-70,10&BBOX=-100,-10,100,10");
  ASSERT_EQ(o.type, RequestType::kGetMap);
  EXPECT_EQ(o.request.Number("HExtent"), 500);
  EXPECT_EQ(o.request.Number("VExtent"), 50);
  EXPECT_EQ(o.request.Number("CenterLon"), -70);

  o = Parse(head + "CRS=AUTO2:42003,2,0,0&EXTENT=100,10");
  ASSERT_EQ(o.type, RequestType::kGetMap);
  EXPECT_EQ(o.request.Number("HExtent"), 200);
  EXPECT_EQ(o.request.Number("VExtent"), 20);
}

TEST(OgcQueryParserTest, ClipAreaKeptOnlyOnTheGlobe) {
  Outcome o = Parse(kMap + "&CLIP_AREA=1,10,2,20");
  ASSERT_EQ(o.type, RequestType::kGetMap);
  EXPECT_EQ(o.messages, std::vector<std::string>{"Warning: Ignoring CLIP_AREA for RECTANGULAR projection"});
  EXPECT_EQ(o.request.Number("ClipArea"), 0);

  o = Parse("VERSION=1.3.0&REQUEST=GetMap&SRS=AUTO:42003,9001,0,0&EXTENT=10,10&WIDTH=40"
            "&HEIGHT=40&FORMAT=image/jpeg&LAYERS=a&CLIP_AREA=1,10,2,20");
  ASSERT_EQ(o.type, RequestType::kGetMap);
  EXPECT_EQ(o.request.Number("ClipArea"), 1);
  EXPECT_EQ(o.request.Number("ClipMinX"), 1);
  EXPECT_EQ(o.request.Number("ClipMaxX"), 10);
  EXPECT_EQ(o.request.Number("ClipMinY"), 2);
  EXPECT_EQ(o.request.Number("ClipMaxY"), 20);
}

TEST(OgcQueryParserTest, OtherValuesReachTheMap) {
  Outcome o = Parse(kMap + "&ANGLE=12.5&STRETCH=1&IERRORS=0&BGCOLOR=0xFF8000&IMAGEANTIALIASING=1"
                           "&STYLES=default&PICK_RESOLUTION=3");
  ASSERT_EQ(o.type, RequestType::kGetMap);
  EXPECT_EQ(o.request.Number("Angle"), 12.5);
  EXPECT_EQ(o.request.Number("Stretch"), 1);
  EXPECT_EQ(o.request.Number("ImageErrors"), 0);
  EXPECT_EQ(o.request.Number("ImageAntiAliasing"), 1);
  EXPECT_EQ(o.request.pick_resolution, 3);
  const MapSetting* bg = o.request.Find("Background");
  ASSERT_NE(bg, nullptr);
  EXPECT_EQ(std::get<ColourValue>(bg->value), (ColourValue{1.0, 128.0 / 255.0, 0.0}));
}

// One bad value per line: the parse stops at the first with its message.
TEST(OgcQueryParserTest, BadValuesStopTheParseWithTheirMessage) {
  struct Case {
    std::string query;
    std::string message;
  } cases[] = {
      {"VERSION=1.0.0", "Only support versions 1.1.0 - 1.3.0 of the openGIS protocol for now!"},
      {"REQUEST=GetMaps", "Invalid REQUEST"},
      {"SERVICE=WFS", "Only WMS service type supported!"},
      {"SRS=EPSG:3857", "Invalid SRS definition: no type defined"},
      {"CRS=AUTO:42003,9001,x", "Invalid AUTO SRS definition"},
      {"CRS=AUTO2:42003,1,2", "Invalid AUTO2 SRS definition"},
      {"BBOX=1,2,3,4", "Cannot define BBOX before the spatial reference system"},
      {"SRS=EPSG:4326&BBOX=1,2,3", "Invalid BBOX definition"},
      {"SRS=EPSG:4326&BBOX=5,2,3,4", "BBOX Minimum Lat/Lon is greater than the Maximum"},
      {"SRS=EPSG:4326&BBOX=1,4,3,4", "BBOX Minimum Lat/Lon is greater than the Maximum"},
      {"SRS=AUTO:42003,9001,0,0&BBOX=-1,-2,1,3", "Non symmetric BBOX"},
      {"EXTENT=1,2", "Cannot define EXTENT before the spatial reference system"},
      {"CRS=CRS:84&EXTENT=1", "Invalid EXTENT definition"},
      {"CENTER=1", "Invalid CENTER definition"},
      {"CLIP_AREA=1,2,3", "Invalid CLIP_AREA definition"},
      {"CLIP_AREA=5,2,3,9", "CLIP_AREA Minimum X/Y is greater than the Maximum"},
      {"WIDTH=wide", "Invalid WIDTH definition"},
      {"HEIGHT=", "Invalid HEIGHT definition"},
      {"ANGLE=x", "Invalid ANGLE definition"},
      {"STRETCH=x", "Invalid stretch parameter"},
      {"IERRORS=x", "Invalid image errors paramater"},
      {"BGCOLOR=zz", "Invalid HEX color"},
      {"IMAGE_ANTIALIASING=x", "Invalid IMAGE_ANTIALIASING definition"},
      {"STYLES=fancy", "Only default styles supported for now!"},
      {"REQUEST=GetMap&FORMAT=image/png", "Only image/jpeg output type supported for GetMap!"},
      {"REQUEST=GetCapabilities&FORMAT=image/jpeg", "Invalid format: text/xml or text/plain is expected."},
      {"FORMAT=application/json", "Invalid format: text/xml or text/plain is expected."},
      {"INFO_FORMAT=text/html", "Invalid INFO_FORMAT"},
      {"LON_LAT=1", "Invalid LON_LAT definition"},
      {"I=x", "Invalid I (pixel column) definition"},
      {"J=", "Invalid J (pixel row) definition"},
      {"PICK_RESOLUTION=x", "Invalid PICK_RESOLUTION definition"},
      {"SELECT_LABELS=yes", "Invalid SELECT_LABELS value [NONE/YES/INTILE]"},
  };
  for (const Case& c : cases) {
    Outcome o = Parse(c.query + "&VERSION=bad");
    EXPECT_EQ(o.type, RequestType::kInvalid) << c.query;
    EXPECT_EQ(o.messages, std::vector<std::string>{"Error: " + c.message}) << c.query;
  }
}

TEST(OgcQueryParserTest, FinalChecksReportEveryMissingKeyInOrder) {
  struct Case {
    std::string query;
    std::vector<std::string> messages;
  } cases[] = {
      {"", {"Mandatory parameter VERSION not set!", "Mandatory parameter REQUEST not set!"}},
      {"request=GetMap&version=1.3.0",
       {"Mandatory parameter VERSION not set!", "Mandatory parameter REQUEST not set!"}},
      {"VERSION=1.3.0&REQUEST=GetMap",
       {"Mandatory parameter FORMAT not set!", "Mandatory parameter LAYERS not set!",
        "Mandatory SRS projection definition not set!", "Mandatory parameters WIDTH or HEIGHT not set!",
        "Mandatory parameters BBOX or EXTENT not set!", "Mandatory CENTER not set!"}},
      {"VERSION=1.3.0&REQUEST=GetFeatureInfo&I=1&SRS=EPSG:4326&EXTENT=1,1&WIDTH=2",
       {"Mandatory parameter I or J not set!", "Mandatory parameter QUERY_LAYERS not set!",
        "Mandatory parameter INFO_TYPE not set!", "Mandatory parameters WIDTH or HEIGHT not set!",
        "Mandatory CENTER not set!"}},
      {"VERSION=1.3.0&REQUEST=GetLocationInfo",
       {"Mandatory parameter LOCATION not set!", "Mandatory parameter QUERY_LAYERS not set!",
        "Mandatory parameter INFO_TYPE not set!"}},
      {"VERSION=1.3.0&REQUEST=GetSelection&I=1&J=2&SRS=EPSG:4326&BBOX=0,0,1,1&EXTENT=2,2&WIDTH=2&HEIGHT=2",
       {"Mandatory parameter FORMAT not set!", "Mandatory parameter LAYERS not set!",
        "Mandatory parameter SELECT_LABELS not set!",
        "Only one of the BBOX or EXTENT parameters is allowed!"}},
  };
  for (const Case& c : cases) {
    Outcome o = Parse(c.query);
    EXPECT_EQ(o.type, RequestType::kInvalid) << c.query;
    std::vector<std::string> expected;
    for (const std::string& m : c.messages) expected.push_back("Error: " + m);
    EXPECT_EQ(o.messages, expected) << c.query;
  }
}

TEST(OgcQueryParserTest, InfoRequestsAndPickModes) {
  Outcome o = Parse("VERSION=1.1.0&REQUEST=GetLocationInfo&LON_LAT=12.5,-3&QUERY_LAYERS=dem"
                    "&INFO_TYPE=elevation&INFO_FORMAT=text/xml");
  ASSERT_EQ(o.type, RequestType::kGetLocationInfo);
  EXPECT_EQ(o.request.pick_mode, PickMode::kElevation);
  EXPECT_TRUE(o.request.xml);
  EXPECT_EQ(o.request.Number("LocationLon"), 12.5);
  EXPECT_EQ(o.request.Number("LocationLat"), -3);
  EXPECT_EQ(o.request.Text("QueryLayers"), "dem");

  o = Parse("VERSION=1.3.0&REQUEST=GetFeatureInfo&I=5&J=6&QUERY_LAYERS=a&INFO_TYPE=lat_lon"
            "&SRS=EPSG:4326&BBOX=0,0,10,10&WIDTH=20&HEIGHT=20&INFO_FORMAT=text/plain");
  ASSERT_EQ(o.type, RequestType::kGetFeatureInfo);
  EXPECT_EQ(o.request.pick_mode, PickMode::kLatLon);
  EXPECT_FALSE(o.request.xml);
  EXPECT_EQ(o.request.Number("LocationI"), 5);

  // An unsupported INFO_TYPE is reported, yet the type is returned.
  o = Parse("VERSION=1.3.0&REQUEST=GetLocationInfo&LON_LAT=1,2&QUERY_LAYERS=a&INFO_TYPE=depth");
  EXPECT_EQ(o.type, RequestType::kGetLocationInfo);
  EXPECT_EQ(o.request.pick_mode, PickMode::kNone);
  EXPECT_EQ(o.messages, std::vector<std::string>{"Error: INFO_TYPE: OperationNotSupported exception"});
}

TEST(OgcQueryParserTest, SelectionAndCapabilities) {
  Outcome o = Parse("VERSION=1.3.0&REQUEST=GetSelection&I=1&J=2&FORMAT=text/xml&LAYERS=a"
                    "&SELECT_LABELS=INTILE&SRS=EPSG:4326&EXTENT=20,10&CENTER=5,6&WIDTH=2&HEIGHT=2");
  ASSERT_EQ(o.type, RequestType::kGetSelection);
  EXPECT_EQ(o.request.Number("LabelSelectionMode"), 1);
  EXPECT_EQ(o.request.Number("CenterLon"), 5);
  EXPECT_EQ(o.request.Number("HExtent"), 20);
  EXPECT_TRUE(o.request.xml);

  o = Parse("SERVICE=WMS&VERSION=1.3.0&REQUEST=GetCapabilities&FORMAT=text/plain&UNKNOWN=1");
  EXPECT_EQ(o.type, RequestType::kGetCapabilities);
  EXPECT_FALSE(o.request.xml);
  EXPECT_TRUE(o.messages.empty());
}

TEST(OgcQueryParserTest, KeyAndValueLimits) {
  std::string key1024(1024, 'K'), key1025(1025, 'K');
  Outcome o = Parse(key1024 + "=1&SERVICE=WMS&VERSION=1.3.0&REQUEST=GetCapabilities");
  EXPECT_EQ(o.type, RequestType::kGetCapabilities);

  o = Parse("VERSION=1.3.0&" + key1025 + "=1&REQUEST=GetCapabilities");
  EXPECT_EQ(o.type, RequestType::kInvalid);
  ASSERT_EQ(o.messages.size(), 1u);
  // The detail (the rest of the query) is cut at 1024 characters by the log.
  EXPECT_EQ(o.messages[0], "Error: Buffer size exceeded: " + key1025.substr(0, 1024));

  std::string value1023(1023, 'v'), value1024(1024, 'v');
  o = Parse("LAYERS=" + value1023 + "&VERSION=1.3.0&REQUEST=GetCapabilities");
  EXPECT_EQ(o.type, RequestType::kGetCapabilities);
  o = Parse("LAYERS=" + value1024 + "&VERSION=1.3.0&REQUEST=GetCapabilities");
  EXPECT_EQ(o.type, RequestType::kInvalid);
  EXPECT_EQ(o.messages, std::vector<std::string>{"Error: Buffer size exceeded: " + value1024});
  o = Parse("LAYERS=" + value1023 + "v&x");
  EXPECT_EQ(o.messages, std::vector<std::string>{"Error: Buffer size exceeded: " + value1024});
}

TEST(OgcQueryParserTest, TokensAreLoggedByVerbosity) {
  Outcome o = Parse("&VERSION=1.3.0&&REQUEST=GetCapabilities", 1);
  EXPECT_EQ(o.type, RequestType::kGetCapabilities);
  EXPECT_EQ(o.messages, (std::vector<std::string>{"Warning: Empty token", "Warning: Empty token"}));

  o = Parse("VERSION=1.3.0&REQUEST=GetCapabilities&", 0);
  EXPECT_TRUE(o.messages.empty());

  o = Parse("VERSION=1.3.0&REQUEST", 2);
  EXPECT_EQ(o.messages[0], "Info: Token is: VERSION");
  EXPECT_EQ(o.messages[1], "Info:      Value is: 1.3.0");
  EXPECT_EQ(o.messages[3], "Info:      Value is: ");
  EXPECT_EQ(o.messages.back(), "Error: Invalid REQUEST");
}

TEST(OgcQueryParserTest, NullQuery) {
  MessageCapture capture;
  ParsedRequest request;
  EXPECT_EQ(ParseOgcRequest(nullptr, request), RequestType::kInvalid);
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: There is no query string!"});
}

}  // namespace
}  // namespace vmp
