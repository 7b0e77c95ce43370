#include "map_server/service/ogc_query_parser.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "tests/support/message_capture.h"
#include "toolkit/strings.h"

namespace vmp {
namespace {

using test::MessageCapture;
using Texts = std::vector<std::string>;

const std::string kMap =
    "VERSION=1.3.0&REQUEST=GetMap&SRS=EPSG:4326&BBOX=-10,20,30,60&WIDTH=400&HEIGHT=200"
    "&FORMAT=image/jpeg&LAYERS=world";

struct Outcome {
  RequestType type;
  ParsedRequest request;
  Texts messages;
};

Outcome Parse(const std::string& query, int64_t verbosity = 0) {
  MessageCapture capture;
  kav::Messages().verbosity = verbosity;
  Outcome out;
  out.type = ParseOgcRequest(query.c_str(), out.request);
  out.messages = capture.Texts();
  return out;
}

// What the request sets, sorted by name ("Width=400 ..."; the last value of a
// setting counts), then LAYERS, PICK_RESOLUTION, the pick mode and "xml".
std::string Summary(const ParsedRequest& r) {
  std::map<std::string, std::string> values;
  for (const MapSetting& s : r.settings) {
    if (const double* d = std::get_if<double>(&s.value)) values[s.name] = kav::StrPrintf("%.10g", *d);
    else if (const std::string* t = std::get_if<std::string>(&s.value)) values[s.name] = "'" + *t + "'";
    else {
      const ColourValue& c = std::get<ColourValue>(s.value);
      values[s.name] = kav::StrPrintf("%.4g,%.4g,%.4g", c[0], c[1], c[2]);
    }
  }
  std::string out;
  for (const auto& [name, value] : values) out += name + "=" + value + " ";
  if (r.layers) out += "| LAYERS=" + *r.layers + " ";
  if (r.pick_resolution) out += kav::StrPrintf("| PICK=%g ", *r.pick_resolution);
  if (r.pick_mode != PickMode::kNone) out += r.pick_mode == PickMode::kLatLon ? "| lat_lon " : "| elevation ";
  if (r.xml) out += "| xml";
  return out;
}

TEST(OgcQueryParserTest, RequestsBecomeMapSettings) {
  const std::string head = "VERSION=1.3.0&REQUEST=GetMap&WIDTH=4&HEIGHT=4&FORMAT=image/jpeg&LAYERS=a&";
  const std::string globe = "VERSION=1.3.0&REQUEST=GetMap&SRS=AUTO:42003,9001,0,0&EXTENT=10,10&WIDTH=40"
                            "&HEIGHT=40&FORMAT=image/jpeg&LAYERS=a&CLIP_AREA=1,10,2,20";
  struct Case {
    std::string query;
    RequestType type;
    std::string summary;
    Texts messages = {};
  };
  const Case cases[] = {
      {kMap, RequestType::kGetMap,
       "CenterLat=40 CenterLon=10 ClipArea=0 HExtent=40 Height=200 Projection=0 VExtent=40 Width=400 | LAYERS=world "},
      // CRS:84: the first BBOX axis is the latitude.
      {"VERSION=1.3.0&REQUEST=GetMap&CRS=CRS:84&BBOX=-10,20,30,80&WIDTH=4&HEIGHT=2&FORMAT=image/jpg&LAYERS=a",
       RequestType::kGetMap,
       "CenterLat=10 CenterLon=50 ClipArea=0 HExtent=60 Height=2 Projection=0 VExtent=40 Width=4 | LAYERS=a "},
      {head + "SRS=AUTO:42003,9001,15.5,48&BBOX=-3000,-2000,3000,2000", RequestType::kGetMap,
       "CenterLat=48 CenterLon=15.5 ClipArea=0 HExtent=6000 Height=4 Projection=2 VExtent=4000 Width=4 | LAYERS=a "},
      // AUTO2 scales BBOX and EXTENT by its factor.
      {head + "CRS=AUTO2:42003,2.5,-70,10&BBOX=-100,-10,100,10", RequestType::kGetMap,
       "CenterLat=10 CenterLon=-70 ClipArea=0 HExtent=500 Height=4 Projection=2 VExtent=50 Width=4 | LAYERS=a "},
      {head + "CRS=AUTO2:42003,2,0,0&EXTENT=100,10", RequestType::kGetMap,
       "CenterLat=0 CenterLon=0 ClipArea=0 HExtent=200 Height=4 Projection=2 VExtent=20 Width=4 | LAYERS=a "},
      // CLIP_AREA is kept on the globe only.
      {kMap + "&CLIP_AREA=1,10,2,20", RequestType::kGetMap,
       "CenterLat=40 CenterLon=10 ClipArea=0 HExtent=40 Height=200 Projection=0 VExtent=40 Width=400 | LAYERS=world ",
       {"Warning: Ignoring CLIP_AREA for RECTANGULAR projection"}},
      {globe, RequestType::kGetMap,
       "CenterLat=0 CenterLon=0 ClipArea=1 ClipMaxX=10 ClipMaxY=20 ClipMinX=1 ClipMinY=2 HExtent=10 Height=40 "
       "Projection=2 VExtent=10 Width=40 | LAYERS=a "},
      {kMap + "&ANGLE=12.5&STRETCH=1&IERRORS=0&BGCOLOR=0xFF8000&IMAGEANTIALIASING=1&STYLES=default&PICK_RESOLUTION=3",
       RequestType::kGetMap,
       "Angle=12.5 Background=1,0.502,0 CenterLat=40 CenterLon=10 ClipArea=0 HExtent=40 Height=200 ImageAntiAliasing=1 "
       "ImageErrors=0 Projection=0 Stretch=1 VExtent=40 Width=400 | LAYERS=world | PICK=3 "},
      {"VERSION=1.1.0&REQUEST=GetLocationInfo&LON_LAT=12.5,-3&QUERY_LAYERS=dem&INFO_TYPE=elevation"
       "&INFO_FORMAT=text/xml",
       RequestType::kGetLocationInfo, "ClipArea=0 LocationLat=-3 LocationLon=12.5 QueryLayers='dem' | elevation | xml"},
      {"VERSION=1.3.0&REQUEST=GetFeatureInfo&I=5&J=6&QUERY_LAYERS=a&INFO_TYPE=lat_lon&SRS=EPSG:4326&BBOX=0,0,10,10"
       "&WIDTH=20&HEIGHT=20&INFO_FORMAT=text/plain",
       RequestType::kGetFeatureInfo,
       "CenterLat=5 CenterLon=5 ClipArea=0 HExtent=10 Height=20 LocationI=5 LocationJ=6 Projection=0 "
       "QueryLayers='a' VExtent=10 Width=20 | lat_lon "},
      // An unsupported INFO_TYPE is reported, yet the type is returned.
      {"VERSION=1.3.0&REQUEST=GetLocationInfo&LON_LAT=1,2&QUERY_LAYERS=a&INFO_TYPE=depth",
       RequestType::kGetLocationInfo, "ClipArea=0 LocationLat=2 LocationLon=1 QueryLayers='a' ",
       {"Error: INFO_TYPE: OperationNotSupported exception"}},
      {"VERSION=1.3.0&REQUEST=GetSelection&I=1&J=2&FORMAT=text/xml&LAYERS=a&SELECT_LABELS=INTILE&SRS=EPSG:4326"
       "&EXTENT=20,10&CENTER=5,6&WIDTH=2&HEIGHT=2",
       RequestType::kGetSelection,
       "CenterLat=6 CenterLon=5 ClipArea=0 HExtent=20 Height=2 LabelSelectionMode=1 LocationI=1 LocationJ=2 "
       "Projection=0 VExtent=10 Width=2 | LAYERS=a | xml"},
      // Unknown keys are ignored.
      {"SERVICE=WMS&VERSION=1.3.0&REQUEST=GetCapabilities&FORMAT=text/plain&UNKNOWN=1",
       RequestType::kGetCapabilities, "ClipArea=0 "},
  };
  for (const Case& c : cases) {
    Outcome o = Parse(c.query);
    EXPECT_EQ(o.type, c.type) << c.query;
    EXPECT_EQ(Summary(o.request), c.summary) << c.query;
    EXPECT_EQ(o.messages, c.messages) << c.query;
  }
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
    EXPECT_EQ(o.messages, Texts{"Error: " + c.message}) << c.query;
  }
}

TEST(OgcQueryParserTest, FinalChecksReportEveryMissingKeyInOrder) {
  struct Case {
    std::string query;
    Texts messages;
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
    Texts expected;
    for (const std::string& m : c.messages) expected.push_back("Error: " + m);
    EXPECT_EQ(o.messages, expected) << c.query;
  }
  MessageCapture capture;
  ParsedRequest request;
  EXPECT_EQ(ParseOgcRequest(nullptr, request), RequestType::kInvalid);
  EXPECT_EQ(capture.Texts(), Texts{"Error: There is no query string!"});
}

TEST(OgcQueryParserTest, KeyAndValueLimits) {
  const std::string key1024(1024, 'K'), key1025(1025, 'K'), value1023(1023, 'v'), value1024(1024, 'v');
  const std::string capabilities = "&SERVICE=WMS&VERSION=1.3.0&REQUEST=GetCapabilities";
  EXPECT_EQ(Parse(key1024 + "=1" + capabilities).type, RequestType::kGetCapabilities);
  EXPECT_EQ(Parse("LAYERS=" + value1023 + capabilities).type, RequestType::kGetCapabilities);

  Outcome o = Parse("VERSION=1.3.0&" + key1025 + "=1&REQUEST=GetCapabilities");
  EXPECT_EQ(o.type, RequestType::kInvalid);
  // The detail (the rest of the query) is cut at 1024 characters by the log.
  EXPECT_EQ(o.messages, Texts{"Error: Buffer size exceeded: " + key1025.substr(0, 1024)});
  o = Parse("LAYERS=" + value1024 + capabilities);
  EXPECT_EQ(o.type, RequestType::kInvalid);
  EXPECT_EQ(o.messages, Texts{"Error: Buffer size exceeded: " + value1024});
  EXPECT_EQ(Parse("LAYERS=" + value1024 + "&x").messages, Texts{"Error: Buffer size exceeded: " + value1024});
}

TEST(OgcQueryParserTest, TokensAreLoggedByVerbosity) {
  Outcome o = Parse("&VERSION=1.3.0&&REQUEST=GetCapabilities", 1);
  EXPECT_EQ(o.type, RequestType::kGetCapabilities);
  EXPECT_EQ(o.messages, (Texts{"Warning: Empty token", "Warning: Empty token"}));
  EXPECT_EQ(Parse("VERSION=1.3.0&REQUEST=GetCapabilities&", 0).messages, Texts{});

  o = Parse("VERSION=1.3.0&REQUEST", 2);
  EXPECT_EQ(o.messages, (Texts{"Info: Token is: VERSION", "Info:      Value is: 1.3.0", "Info: Token is: REQUEST",
                               "Info:      Value is: ", "Error: Invalid REQUEST"}));
}

}  // namespace
}  // namespace vmp
