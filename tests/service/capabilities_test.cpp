#include "map_server/service/capabilities.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "tests/support/xml_check.h"

namespace vmp {
namespace {

TEST(CapabilitiesTest, DocumentInOrderAndWellFormed) {
  Dataset dataset("DefaultDataset");
  dataset.layers.push_back(std::make_unique<Layer>("countries"));
  dataset.layers.push_back(std::make_unique<Layer>("graticule"));
  dataset.aliases.emplace().push_back(Alias{});
  Alias& world = dataset.aliases->back();
  world.name = "world";
  world.layers = "countries,graticule";
  world.min_zoom = 0;
  world.max_zoom = 4.5;
  const std::string doc = FormatCapabilitiesXml(&dataset, {{"First line", "Second line"}, "http://maps.example/ms"});
  EXPECT_EQ(test::XmlProblem(doc), "");
  EXPECT_NE(doc.find("    <Abstract>\n      First line\n      Second line\n    </Abstract>\n"), std::string::npos);

  const std::string online = "<OnlineResource xlink:type=\"simple\" xlink:href=\"http://maps.example/ms\"/>";
  const std::string get = "<DCPType><HTTP><Get>" + online + "</Get></HTTP></DCPType>";
  EXPECT_EQ(test::FlatXml(doc),
            "<WMS_Capabilities version=\"1.3.0\"><Service><Name>WMS</Name><Title>KAV Map Server</Title>"
            "<Abstract>First lineSecond line</Abstract><MaxWidth>10000</MaxWidth><MaxHeight>10000</MaxHeight>" +
                online + "</Service><Capability><Request>"
                "<GetCapabilities><Format>text/xml</Format>" + get + "</GetCapabilities>"
                "<GetMap><Format>image/jpeg</Format>" + get + "</GetMap>"
                "<GetSelection><Format>text/xml</Format>" + get + "</GetSelection>"
                "<GetFeatureInfo><Format>text/xml</Format>" + get + "</GetFeatureInfo>"
                "<GetLocationInfo><Format>text/xml</Format>" + get + "</GetLocationInfo></Request>"
                "<Exception><Format>XML</Format><Format>INIMAGE</Format><Format>BLANK</Format></Exception>"
                "<Layer><Title>KAV Map Server</Title><CRS>CRS:84</CRS><CRS>EPSG:4326</CRS><CRS>AUTO:42003,9001</CRS>"
                "<CRS>AUTO2:42003</CRS><!-- All layers are available in these CRSs -->      "
                "<Layer><Name>countries</Name><Title>countries</Title></Layer>"
                "<Layer><Name>graticule</Name><Title>graticule</Title></Layer>"
                "<Alias><Name>world</Name><Value>countries,graticule</Value><MinZoom>0.000000</MinZoom>"
                "<MaxZoom>4.500000</MaxZoom></Alias></Layer></Capability></WMS_Capabilities>");
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
  for (const char* flag : {"on", "ON", "1"}) {
    setenv("HTTPS", flag, 1);
    EXPECT_EQ(DeploymentDescription().online_resource, "https://maps.example/cgi-bin/ms") << flag;
  }
  setenv("HTTPS", "off", 1);
  EXPECT_EQ(DeploymentDescription().online_resource, "http://maps.example:443/cgi-bin/ms");

  setenv("VMP_ONLINE_RESOURCE", "http://configured/wms", 1);
  setenv("VMP_SERVICE_ABSTRACT", "One|Two", 1);
  ServiceDescription d = DeploymentDescription();
  EXPECT_EQ(d.online_resource, "http://configured/wms");
  EXPECT_EQ(d.abstract_lines, (std::vector<std::string>{"One", "Two"}));
  for (const char* v : vars) unsetenv(v);
}

}  // namespace
}  // namespace vmp
