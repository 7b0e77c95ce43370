// Writing the GetMap image, and GetLocationInfo answered by the real program.
#include "map_server/service/map_output.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <memory>

#include "map_server/geometry/map_geometry.h"
#include "map_server/image/image_loader.h"
#include "tests/support/message_capture.h"
#include "tests/support/run_program.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

MapImage SmallImage() {
  MapGeometry g;
  g.end_x = 16;
  g.end_y = 8;
  g.background[0] = 200;
  MapImage image;
  EXPECT_TRUE(AllocateMapImage(g, image));
  return image;
}

// What a stream received.
std::string Contents(std::FILE* f) {
  std::rewind(f);
  std::string out;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) out.append(buffer, n);
  return out;
}

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

TEST(MapOutputTest, CgiStandardOutputAndFile) {
  const MapImage image = SmallImage();
  test::TempDir dir;
  test::MessageCapture capture;
  kav::Messages().verbosity = 2;

  std::unique_ptr<std::FILE, FileCloser> cgi(std::tmpfile());
  EXPECT_TRUE(WriteMapAnswer(image, true, std::nullopt, cgi.get()));
  const std::string cgi_out = Contents(cgi.get());
  const std::string header = "Content-Type: image/jpeg\n\n";
  ASSERT_EQ(cgi_out.compare(0, header.size(), header), 0);
  EXPECT_EQ(cgi_out.substr(header.size(), 2), "\xFF\xD8");

  std::unique_ptr<std::FILE, FileCloser> dash(std::tmpfile());
  EXPECT_TRUE(WriteMapAnswer(image, false, std::string("-"), dash.get()));
  EXPECT_EQ(Contents(dash.get()), cgi_out.substr(header.size()));  // the same JPEG, bare

  const std::string path = dir / "map.jpg";
  std::unique_ptr<std::FILE, FileCloser> unused(std::tmpfile());
  EXPECT_TRUE(WriteMapAnswer(image, false, path, unused.get()));
  EXPECT_EQ(Contents(unused.get()), "");
  LoadedImage decoded;
  ASSERT_TRUE(LoadImageFile(path, 0, false, decoded));
  EXPECT_EQ(decoded.width, 16);
  EXPECT_EQ(decoded.height, 8);
  EXPECT_NEAR(decoded.pixels[0], 200, 3);

  EXPECT_FALSE(WriteMapAnswer(image, false, dir / "missing/dir/map.jpg", unused.get()));
  EXPECT_EQ(capture.Count("Info: Saved image"), 3u);
  EXPECT_TRUE(capture.Contains("Info: Error saving image: " + (dir / "missing/dir/map.jpg")));
}

TEST(LocationInfoTest, LatLonAnsweredByTheProgram) {
  test::TempDir dir;
  dir.Write("layers/world.lif", "TYPE=IMAGE\nFILENAME=world.jpg\nWIDTH=20\nHEIGHT=10\n");
  const std::string dataset = dir.Write("world.sdf", "LAYER DIR=layers\nLAYER=world world.lif\n");
  const std::string map = "&SRS=EPSG:4326&BBOX=-20,-10,20,10&WIDTH=40&HEIGHT=20&QUERY_LAYERS=world";
  auto run = [&](const std::string& query, bool cgi) {
    test::RunOptions options;
    if (cgi) options.env["QUERY_STRING"] = query;
    std::vector<std::string> args = {"-generate", "-dataset", dataset};
    if (cgi)
      args.push_back("-cgi");
    else
      args.insert(args.end(), {"-oGISreq", query});
    return test::RunMapServer(args, options);
  };
  test::RunResult r = run("VERSION=1.3.0&REQUEST=GetLocationInfo&INFO_TYPE=lat_lon&LON_LAT=5.5,-2.25" + map, false);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out, "QueryException=None\nLat=-2.250000\nLon=5.500000\n");
  r = run("VERSION=1.3.0&REQUEST=GetLocationInfo&INFO_TYPE=lat_lon&LON_LAT=50,0" + map, true);
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out,
            "Content-Type: text/xml\n\n<VmpLatLonData>\n  <QueryException>OutsideException</QueryException>\n"
            "  <Lat>10000.000000</Lat>\n  <Lon>10000.000000</Lon>\n</VmpLatLonData>\n");
  r = run("VERSION=1.3.0&REQUEST=GetLocationInfo&INFO_TYPE=height&LON_LAT=0,0" + map, false);
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.err.find("Unsupported INFO_TYPE of GetLocationInfo request."), std::string::npos) << r.err;
}

}  // namespace
}  // namespace vmp
