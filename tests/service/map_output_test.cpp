// Writing the GetMap image: CGI, standard output, a file.
#include "map_server/service/map_output.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "map_server/geometry/map_geometry.h"
#include "map_server/image/image_loader.h"
#include "tests/support/message_capture.h"
#include "tests/support/temp_dir.h"

namespace vmp {
namespace {

// What a temporary stream received.
std::string Contents(std::FILE* f) {
  std::rewind(f);
  std::string out;
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;) out.append(buffer, n);
  std::fclose(f);
  return out;
}

TEST(MapOutputTest, CgiStandardOutputAndFile) {
  MapGeometry g;
  g.end_x = 16;
  g.end_y = 8;
  g.background[0] = 200;
  MapImage image;
  ASSERT_TRUE(AllocateMapImage(g, image));
  test::TempDir dir;
  test::MessageCapture capture;
  kav::Messages().verbosity = 2;

  std::FILE* cgi = std::tmpfile();
  EXPECT_TRUE(WriteMapAnswer(image, true, std::nullopt, cgi));
  const std::string cgi_out = Contents(cgi), header = "Content-Type: image/jpeg\n\n";
  ASSERT_EQ(cgi_out.substr(0, header.size() + 2), header + "\xFF\xD8");
  std::FILE* dash = std::tmpfile();
  EXPECT_TRUE(WriteMapAnswer(image, false, std::string("-"), dash));
  EXPECT_EQ(Contents(dash), cgi_out.substr(header.size()));  // the same JPEG, bare

  std::FILE* unused = std::tmpfile();
  EXPECT_TRUE(WriteMapAnswer(image, false, dir / "map.jpg", unused));
  EXPECT_FALSE(WriteMapAnswer(image, false, dir / "no/such/dir.jpg", unused));
  EXPECT_EQ(Contents(unused), "");
  LoadedImage decoded;
  ASSERT_TRUE(LoadImageFile(dir / "map.jpg", 0, false, decoded));
  EXPECT_EQ(decoded.width * 100 + decoded.height, 1608);
  EXPECT_NEAR(decoded.pixels[0], 200, 3);
  EXPECT_EQ(capture.Count("Info: Saved image"), 3u);
  EXPECT_TRUE(capture.Contains("Info: Error saving image: " + (dir / "no/such/dir.jpg")));
}

}  // namespace
}  // namespace vmp
