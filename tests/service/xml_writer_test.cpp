#include "map_server/service/xml_writer.h"

#include <gtest/gtest.h>

namespace vmp {
namespace {

TEST(XmlWriterTest, IndentsByDepthAndWritesEveryForm) {
  std::string out;
  XmlWriter xml(out);
  xml.Open("VmpLatLonData");
  xml.TextElement("QueryException", "None");
  xml.NumberElement("Lat", 12.5);
  xml.IntegerElement("MaxWidth", 10000);
  xml.Open("Layer", "queryable=\"1\"");
  xml.Empty("OnlineResource", "xlink:type=\"simple\"/");
  xml.TextElement("Title", "a<b", "lang=\"en\"");
  xml.TextLine("line");
  xml.TextLine("ends\n");
  xml.Comment("note");
  xml.Close("Layer");
  xml.Close("VmpLatLonData");
  EXPECT_EQ(out,
            "<VmpLatLonData>\n"
            "  <QueryException>None</QueryException>\n"
            "  <Lat>12.500000</Lat>\n"
            "  <MaxWidth>10000</MaxWidth>\n"
            "  <Layer queryable=\"1\">\n"
            "    <OnlineResource xlink:type=\"simple\"/>\n"
            "    <Title lang=\"en\">a<b</Title>\n"
            "    line\n"
            "    ends\n"
            "    <!-- note -->  </Layer>\n"
            "</VmpLatLonData>\n");
  EXPECT_EQ(xml.depth(), 0);
}

}  // namespace
}  // namespace vmp
