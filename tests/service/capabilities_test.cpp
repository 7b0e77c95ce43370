#include "map_server/service/capabilities.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "tests/support/xml_check.h"

namespace vmp {
namespace {

Dataset SampleDataset() {
  Dataset dataset("DefaultDataset");
  dataset.layers.push_back(std::make_unique<Layer>("countries"));
  dataset.layers.push_back(std::make_unique<Layer>("graticule"));
  Alias world;
  world.name = "world";
  world.layers = "countries,graticule";
  world.min_zoom = 0;
  world.max_zoom = 4.5;
  dataset.aliases.emplace().push_back(world);
  return dataset;
}

TEST(CapabilitiesTest, DocumentInOrderAndWellFormed) {
  Dataset dataset = SampleDataset();
  ServiceDescription service{{"First line", "Second line"}, "http://maps.example/cgi-bin/ms"};
  std::string doc = FormatCapabilitiesXml(&dataset, service);
  EXPECT_EQ(test::XmlProblem(doc), "");
  const std::string expected_head =
      "<WMS_Capabilities version=\"1.3.0\">\n"
      "  <Service>\n"
      "    <Name>WMS</Name>\n"
      "    <Title>KAV Map Server</Title>\n"
      "    <Abstract>\n"
      "      First line\n"
      "      Second line\n"
      "    </Abstract>\n"
      "    <MaxWidth>10000</MaxWidth>\n"
      "    <MaxHeight>10000</MaxHeight>\n"
      "    <OnlineResource xlink:type=\"simple\" xlink:href=\"http://maps.example/cgi-bin/ms\"/>\n"
      "  </Service>\n"
      "  <Capability>\n"
      "    <Request>\n"
      "      <GetCapabilities>\n"
      "        <Format>text/xml</Format>\n"
      "        <DCPType>\n"
      "          <HTTP>\n"
      "            <Get>\n"
      "              <OnlineResource xlink:type=\"simple\" xlink:href=\"http://maps.example/cgi-bin/ms\"/>\n"
      "            </Get>\n"
      "          </HTTP>\n"
      "        </DCPType>\n"
      "      </GetCapabilities>\n"
      "      <GetMap>\n"
      "        <Format>image/jpeg</Format>\n";
  EXPECT_EQ(doc.substr(0, expected_head.size()), expected_head);
  // The request order and the tail with the listing.
  size_t get_map = doc.find("<GetMap>"), selection = doc.find("<GetSelection>"),
         feature = doc.find("<GetFeatureInfo>"), location = doc.find("<GetLocationInfo>");
  EXPECT_TRUE(get_map < selection && selection < feature && feature < location);
  const std::string expected_tail =
      "    <Exception>\n"
      "      <Format>XML</Format>\n"
      "      <Format>INIMAGE</Format>\n"
      "      <Format>BLANK</Format>\n"
      "    </Exception>\n"
      "    <Layer>\n"
      "      <Title>KAV Map Server</Title>\n"
      "      <CRS>CRS:84</CRS>\n"
      "      <CRS>EPSG:4326</CRS>\n"
      "      <CRS>AUTO:42003,9001</CRS>\n"
      "      <CRS>AUTO2:42003</CRS>\n"
      "      <!-- All layers are available in these CRSs -->      <Layer>\n"
      "        <Name>countries</Name>\n"
      "        <Title>countries</Title>\n"
      "      </Layer>\n"
      "      <Layer>\n"
      "        <Name>graticule</Name>\n"
      "        <Title>graticule</Title>\n"
      "      </Layer>\n"
      "      <Alias>\n"
      "        <Name>world</Name>\n"
      "        <Value>countries,graticule</Value>\n"
      "        <MinZoom>0.000000</MinZoom>\n"
      "        <MaxZoom>4.500000</MaxZoom>\n"
      "      </Alias>\n"
      "    </Layer>\n"
      "  </Capability>\n"
      "</WMS_Capabilities>\n";
  ASSERT_GE(doc.size(), expected_tail.size());
  EXPECT_EQ(doc.substr(doc.size() - expected_tail.size()), expected_tail);
}

TEST(CapabilitiesTest, TextListing) {
  Dataset dataset = SampleDataset();
  EXPECT_EQ(FormatLayerListingText(dataset),
            "Layer: <countries>\nLayer: <graticule>\n"
            "Alias: name=<world> value=<countries,graticule> min_zoom=0.000000 max_zoom=4.500000\n");
  EXPECT_EQ(FormatLayerListingText(Dataset("empty")), "");
}

TEST(CapabilitiesTest, DeploymentDescriptionFromTheEnvironment) {
  const char* vars[] = {"VMP_SERVICE_ABSTRACT", "VMP_ONLINE_RESOURCE", "SERVER_NAME", "SERVER_PORT",
                        "SCRIPT_NAME", "HTTPS"};
  for (const char* v : vars) unsetenv(v);
  EXPECT_EQ(DeploymentDescription().online_resource, "http://localhost/cgi-bin/map_server");
  EXPECT_EQ(DeploymentDescription().abstract_lines.size(), 1u);

  setenv("SERVER_NAME", "maps.example", 1);
  setenv("SERVER_PORT", "8080", 1);
  setenv("SCRIPT_NAME", "/cgi-bin/ms", 1);
  EXPECT_EQ(DeploymentDescription().online_resource, "http://maps.example:8080/cgi-bin/ms");
  setenv("SERVER_PORT", "443", 1);
  setenv("HTTPS", "on", 1);
  EXPECT_EQ(DeploymentDescription().online_resource, "https://maps.example/cgi-bin/ms");

  setenv("VMP_ONLINE_RESOURCE", "http://configured/wms", 1);
  setenv("VMP_SERVICE_ABSTRACT", "One|Two", 1);
  ServiceDescription d = DeploymentDescription();
  EXPECT_EQ(d.online_resource, "http://configured/wms");
  EXPECT_EQ(d.abstract_lines, (std::vector<std::string>{"One", "Two"}));
  for (const char* v : vars) unsetenv(v);
}

}  // namespace
}  // namespace vmp
