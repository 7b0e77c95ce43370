// Standard requests put into the server's own terms: one table of queries
// with what they must become (the map settings, checked against the native
// parser reading the equivalent native query) or the exception they get.
#include <gtest/gtest.h>

#include <string>

#include "map_server/service/ogc_query_parser.h"
#include "map_server/wms/wms_request.h"
#include "map_server/wms/wms_translate.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

const std::string kMap = "REQUEST=GetMap&LAYERS=world&WIDTH=100&HEIGHT=50&FORMAT=image/png&";

struct Row {
  std::string query;
  WmsErrorCode error;        // kNone: the request is answered
  const char* locator;       // of the error
  // The same view as a native query (SRS/CRS and BBOX), or "" for none.
  const char* native;
  const char* layers;        // LAYERS as read, joined by "|"
  int64_t render_width;
};

const Row kRows[] = {
    // Keys in any case, percent-decoding, BBOX before CRS, unknown keys; 1.3.0
    // EPSG:4326 is latitude first, which is the native CRS:84 reading.
    {"sErViCe=WMS&bbox=-10%2C20%2C30%2C60&layers=world&crs=EPSG%3A4326&version=1.3.0&request=GetMap&"
     "width=100&height=50&format=image%2Fpng&foo=bar", WmsErrorCode::kNone, "", "CRS=CRS:84&BBOX=-10,20,30,60", "world", 100},
    // Longitude first: CRS:84, and EPSG:4326 in 1.1.1, read as the native EPSG:4326.
    {kMap + "VERSION=1.3.0&CRS=CRS:84&BBOX=-10,20,30,60", WmsErrorCode::kNone, "", "SRS=EPSG:4326&BBOX=-10,20,30,60", "world", 100},
    {kMap + "VERSION=1.1.1&SRS=EPSG:4326&BBOX=-10,20,30,60", WmsErrorCode::kNone, "", "SRS=EPSG:4326&BBOX=-10,20,30,60", "world", 100},
    // No version, or one this server does not know: 1.3.0.
    {kMap + "CRS=EPSG:4326&BBOX=-10,20,30,60", WmsErrorCode::kNone, "", "CRS=CRS:84&BBOX=-10,20,30,60", "world", 100},
    {kMap + "VERSION=1.2.0&SRS=EPSG:4326&BBOX=-10,20,30,60", WmsErrorCode::kNone, "", "CRS=CRS:84&BBOX=-10,20,30,60", "world", 100},
    // The orthographic forms, and "+" as a blank inside a value.
    {kMap + "VERSION=1.3.0&CRS=AUTO2:42003,0.5,10,20&BBOX=-2000,-1000,2000,1000&STYLES=+",
     WmsErrorCode::kNone, "", "CRS=AUTO2:42003,0.5,10,20&BBOX=-2000,-1000,2000,1000", "world", 100},
    {"request=GetMap&version=1.1.1&layers=a+b,c&styles=,default&srs=AUTO:42003,9001,10,20&bbox=-5,-5,5,5&"
     "width=100&height=50&format=image/jpeg", WmsErrorCode::kNone, "", "SRS=AUTO:42003,9001,10,20&BBOX=-5,-5,5,5", "a b|c", 100},
    // A side of one pixel is drawn three wide.
    {"REQUEST=GetMap&LAYERS=w&WIDTH=1&HEIGHT=50&FORMAT=image/png&CRS=CRS:84&BBOX=0,0,1,1", WmsErrorCode::kNone, "", "", "w", 3},
    // Exceptions.
    {"SERVICE=WMS&VERSION=1.3.0", WmsErrorCode::kMissingParameterValue, "REQUEST", "", "", 0},
    {"REQUEST=GetLegendGraphic", WmsErrorCode::kOperationNotSupported, "REQUEST", "", "", 0},
    {kMap + "BBOX=0,0,1,1", WmsErrorCode::kMissingParameterValue, "CRS", "", "", 0},
    {kMap + "VERSION=1.1.1&BBOX=0,0,1,1", WmsErrorCode::kMissingParameterValue, "SRS", "", "", 0},
    {kMap + "CRS=EPSG:3857&BBOX=0,0,1,1", WmsErrorCode::kInvalidCrs, "CRS", "", "", 0},
    {kMap + "CRS=AUTO:42003,9999,0,0&BBOX=-1,-1,1,1", WmsErrorCode::kInvalidCrs, "CRS", "", "", 0},
    {kMap + "CRS=AUTO2:42003,1,0,0&BBOX=-1,-2,1,3", WmsErrorCode::kInvalidParameterValue, "BBOX", "", "", 0},
    {kMap + "CRS=CRS:84&BBOX=1,0,0,1", WmsErrorCode::kInvalidParameterValue, "BBOX", "", "", 0},
    {kMap + "CRS=CRS:84&BBOX=0,0,1", WmsErrorCode::kInvalidParameterValue, "BBOX", "", "", 0},
    {kMap + "CRS=CRS:84&BBOX=0,0,1,1&STYLES=fancy", WmsErrorCode::kStyleNotDefined, "STYLES", "", "", 0},
    {kMap + "CRS=CRS:84&BBOX=0,0,1,1&STYLES=,", WmsErrorCode::kStyleNotDefined, "STYLES", "", "", 0},
    {kMap + "CRS=CRS:84&BBOX=0,0,1,1&ELEVATION=100", WmsErrorCode::kInvalidDimensionValue, "ELEVATION", "", "", 0},
    {"REQUEST=GetMap&LAYERS=w&WIDTH=5000&HEIGHT=50&FORMAT=image/png", WmsErrorCode::kInvalidParameterValue, "WIDTH", "", "", 0},
    {"REQUEST=GetMap&LAYERS=w&WIDTH=50&HEIGHT=50&FORMAT=image/gif", WmsErrorCode::kInvalidFormat, "FORMAT", "", "", 0},
    {"REQUEST=GetMap&LAYERS=w&WIDTH=50&HEIGHT=50&FORMAT=image/png&EXCEPTIONS=HTML", WmsErrorCode::kInvalidParameterValue, "EXCEPTIONS", "", "", 0},
    {"REQUEST=GetFeatureInfo&LAYERS=w&QUERY_LAYERS=w&WIDTH=50&HEIGHT=50&CRS=CRS:84&BBOX=0,0,1,1&I=50&J=0",
     WmsErrorCode::kInvalidPoint, "I", "", "", 0},
    {"REQUEST=GetFeatureInfo&VERSION=1.1.1&LAYERS=w&WIDTH=50&HEIGHT=50&SRS=CRS:84&BBOX=0,0,1,1&X=1&Y=1",
     WmsErrorCode::kMissingParameterValue, "QUERY_LAYERS", "", "", 0},
    {"REQUEST=GetFeatureInfo&LAYERS=w&QUERY_LAYERS=w&WIDTH=50&HEIGHT=50&CRS=CRS:84&BBOX=0,0,1,1&I=1&J=1&INFO_FORMAT=text/html",
     WmsErrorCode::kInvalidFormat, "INFO_FORMAT", "", "", 0},
    {"REQUEST=GetMap&LAYERS=" + std::string(kMaxWmsQueryBytes, 'x'), WmsErrorCode::kInvalidParameterValue, "", "", "", 0},
};

std::string Joined(const std::vector<std::string>& items) {
  std::string out;
  for (const std::string& item : items) out += (out.empty() ? "" : "|") + item;
  return out;
}

TEST(WmsRequestTest, QueriesBecomeTheNativeViewOrTheirException) {
  for (const Row& row : kRows) {
    SCOPED_TRACE(row.query.substr(0, 200));
    WmsRequest request;
    const std::optional<WmsError> error = ParseWmsRequest(row.query, WmsLimits{}, request);
    if (row.error != WmsErrorCode::kNone) {
      ASSERT_TRUE(error);
      EXPECT_EQ(ErrorCodeName(error->code, request.version), ErrorCodeName(row.error, request.version));
      EXPECT_EQ(error->locator, row.locator);
      continue;
    }
    ASSERT_FALSE(error) << error->message;
    EXPECT_EQ(Joined(request.layers), row.layers);
    const NativeView view = TranslateView(request);
    EXPECT_EQ(view.render_width, row.render_width);
    EXPECT_EQ(view.request.Number("Stretch"), 1.0);
    if (*row.native == '\0') continue;
    // The native parser reads the equivalent query into the same centre and
    // projection; its extents run between the edge pixels' centres.
    test::MessageCapture capture;
    ParsedRequest native;
    const std::string query =
        std::string("VERSION=1.3.0&REQUEST=GetMap&WIDTH=100&HEIGHT=50&FORMAT=image/jpeg&LAYERS=x&") + row.native;
    ASSERT_EQ(ParseOgcRequest(query.c_str(), native), RequestType::kGetMap);
    for (const char* name : {"Projection", "CenterLon", "CenterLat"}) {
      EXPECT_EQ(view.request.Number(name), native.Number(name)) << name;
    }
    EXPECT_DOUBLE_EQ(*view.request.Number("HExtent"), *native.Number("HExtent") * 99 / 100);
    EXPECT_DOUBLE_EQ(*view.request.Number("VExtent"), *native.Number("VExtent") * 49 / 50);
  }
}

TEST(WmsRequestTest, DecodingAndErrorNamesByVersion) {
  EXPECT_EQ(DecodeQueryText("%41%2b+%zz%4"), "A+ %zz%4");
  const auto pairs = DecodeQuery("a=1&&B%3D=x%3Dy&c");
  ASSERT_EQ(pairs.size(), 3u);
  EXPECT_EQ(pairs[1], (std::pair<std::string, std::string>("B=", "x=y")));
  EXPECT_EQ(pairs[2], (std::pair<std::string, std::string>("C", "")));
  EXPECT_STREQ(ErrorCodeName(WmsErrorCode::kInvalidCrs, WmsVersion::k111), "InvalidSRS");
  EXPECT_STREQ(ErrorCodeName(WmsErrorCode::kInvalidCrs, WmsVersion::k130), "InvalidCRS");
}

}  // namespace
}  // namespace vmp
