// The map server mode end to end: the real program answering requests.
#include <gtest/gtest.h>

#include "tests/support/run_program.h"
#include "tests/support/temp_dir.h"
#include "tests/support/xml_check.h"

namespace vmp {
namespace {

using test::RunMapServer;
using test::RunResult;

const std::string kHeaderXml = "Content-Type: text/xml\n\n";
const std::string kListing = "Layer: <countries>\nLayer: <world>\n"
                             "Alias: name=<all> value=<countries,world> min_zoom=0.000000 max_zoom=8.000000\n";

class GenerateCliTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_.Write("layers/countries.lif", "TYPE=VECTOR\nTRANS TYPE=OPAQUE\nFILENAME=countries.tvf\n");
    dir_.Write("layers/world.lif", "TYPE=IMAGE\nTRANS TYPE=OPAQUE\nFILENAME=world.jpg\nWIDTH=20\nHEIGHT=10\n");
    dataset_ = dir_.Write("world.sdf", "LAYER DIR=layers\nLAYER=countries countries.lif\nLAYER=world world.lif\n"
                                       "ALIAS=all \"countries,world\"\nALIAS ZOOM RANGE=all 0 8\n");
  }

  RunResult Cgi(const std::string& query) {
    test::RunOptions options;
    options.env["QUERY_STRING"] = query;
    options.env["VMP_ONLINE_RESOURCE"] = "http://maps.example/wms";
    return RunMapServer({"-generate", "-cgi", "-dataset", dataset_}, options);
  }
  RunResult CommandLine(const std::string& query, std::vector<std::string> more = {}) {
    std::vector<std::string> args = {"-generate", "-dataset", dataset_, "-oGISreq", query};
    args.insert(args.end(), more.begin(), more.end());
    return RunMapServer(args);
  }
  // The CGI document after its header (empty when the header is missing).
  static std::string Document(const RunResult& r) {
    return r.out.compare(0, kHeaderXml.size(), kHeaderXml) == 0 ? r.out.substr(kHeaderXml.size()) : "";
  }

  test::TempDir dir_;
  std::string dataset_;
};

TEST_F(GenerateCliTest, Capabilities) {
  RunResult r = Cgi("SERVICE=WMS&VERSION=1.3.0&REQUEST=GetCapabilities");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  const std::string doc = Document(r);
  EXPECT_EQ(test::XmlProblem(doc), "") << r.out;
  for (const char* part : {"<Name>countries</Name>", "<Name>world</Name>", "<Value>countries,world</Value>",
                           "xlink:href=\"http://maps.example/wms\""}) {
    EXPECT_NE(doc.find(part), std::string::npos) << part;
  }
  r = Cgi("SERVICE=WMS&VERSION=1.3.0&REQUEST=GetCapabilities&FORMAT=text/plain");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "Content-Type: text/plain\n\n" + kListing);

  r = CommandLine("VERSION=1.3.0&REQUEST=GetCapabilities&FORMAT=text/plain");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, kListing);
  r = CommandLine("VERSION=1.3.0&REQUEST=GetCapabilities&FORMAT=text/xml", {"-verbosity", "2"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(test::XmlProblem(r.out), "");
  EXPECT_NE(r.err.find("VmpMap: Info: Finished request"), std::string::npos);
  EXPECT_NE(r.err.find("VmpMap: Info: Terminated/Done!"), std::string::npos);
}

TEST_F(GenerateCliTest, FailedRequestsAnswerAnExceptionReport) {
  RunResult r = Cgi("SERVICE=WMS&VERSION=1.0.0&REQUEST=GetCapabilities");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(Document(r),
            "<ServiceExceptionReport version=\"1.3.0\">\n"
            "  <ServiceException>\n"
            "    The OpenGIS request could not be processed.\n"
            "    One or more of the variables is probably malformed.\n"
            "  </ServiceException>\n"
            "  <ServiceException>Error: Only support versions 1.1.0 - 1.3.0 of the openGIS protocol "
            "for now!</ServiceException>\n"
            "</ServiceExceptionReport>\n");

  r = CommandLine("VERSION=1.3.0&REQUEST=GetMap&SRS=EPSG:4326&BBOX=0,0,1");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err,
            "VmpMap: Error: Invalid BBOX definition\n"
            "The OpenGIS request could not be processed.\n"
            "One or more of the variables is probably malformed.\n"
            "Error: Invalid BBOX definition\n");

  r = CommandLine("VERSION=1.3.0&REQUEST=GetMap&SRS=EPSG:4326&BBOX=-180,-90,180,90&WIDTH=20&HEIGHT=10"
                  "&FORMAT=image/jpeg&LAYERS=world");
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "VmpMap: Error: Mandatory variable output not set in non-CGI mode!\n");

  // Whatever the query, a CGI caller gets a well-formed report.
  const std::string queries[] = {"", "&&&", "=", std::string(5000, 'A'), "VERSION=1.3.0&REQUEST=",
                                 "REQUEST=GetCapabilities&VERSION=1.3.0&FORMAT=%3Cx%3E"};
  for (const std::string& q : queries) {
    r = Cgi(q);
    EXPECT_EQ(r.status, 1) << q;
    EXPECT_EQ(test::XmlProblem(Document(r)), "") << q;
  }
}

}  // namespace
}  // namespace vmp
