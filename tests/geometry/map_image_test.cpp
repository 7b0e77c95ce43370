#include "map_server/geometry/map_image.h"

#include <gtest/gtest.h>

#include "map_server/geometry/map_geometry.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

MapGeometry Drawing(int64_t end_x, int64_t end_y, uint8_t r = 200, uint8_t g = 100,
                    uint8_t b = 50) {
  MapGeometry geometry;
  geometry.end_x = end_x;
  geometry.end_y = end_y;
  geometry.background[0] = r;
  geometry.background[1] = g;
  geometry.background[2] = b;
  return geometry;
}

// The image as one character a pixel: 'b' background, '0' black, '?' other.
std::string Picture(const MapImage& image, uint8_t r = 200, uint8_t g = 100, uint8_t b = 50) {
  std::string out;
  for (int64_t i = 0; i < image.width() * image.height(); ++i) {
    const uint8_t* p = image.pixels() + i * 3;
    out += (p[0] == r && p[1] == g && p[2] == b) ? 'b' : (p[0] + p[1] + p[2] == 0 ? '0' : '?');
  }
  return out;
}

TEST(MapImageTest, BackgroundAndClipFill) {
  MapImage image;
  ASSERT_TRUE(AllocateMapImage(Drawing(4, 3), image));
  EXPECT_EQ(Picture(image), std::string(12, 'b'));
  EXPECT_TRUE(image.ready());
  ASSERT_TRUE(AllocateMapImage(Drawing(4, 3, 77, 77, 77), image));  // gray: the byte fill
  EXPECT_EQ(Picture(image, 77, 77, 77), std::string(12, 'b'));

  // With a clip area: black, and background from the clip origin to the
  // drawing end (the colour left by the previous image is cleared).
  MapGeometry clip = Drawing(5, 4);
  clip.clip_area = true;
  clip.clip_min_x = 2;
  clip.clip_min_y = 1;
  ASSERT_TRUE(AllocateMapImage(Drawing(5, 4, 9, 9, 9), image));
  ASSERT_TRUE(AllocateMapImage(clip, image));
  EXPECT_EQ(Picture(image),
            "00000"
            "00bbb"
            "00bbb"
            "00bbb");
}

TEST(MapImageTest, BufferOnlyGrows) {
  MapImage image;
  ASSERT_TRUE(AllocateMapImage(Drawing(100, 100), image));
  const uint8_t* buffer = image.pixels();
  ASSERT_TRUE(AllocateMapImage(Drawing(10, 20), image));
  EXPECT_EQ(image.pixels(), buffer);
  EXPECT_EQ(image.capacity(), 100u * 100 * 3);
  EXPECT_EQ(image.size_bytes(), 10u * 20 * 3);
  ASSERT_TRUE(AllocateMapImage(Drawing(200, 100), image));
  EXPECT_GE(image.capacity(), 200u * 100 * 3);
  EXPECT_EQ(Picture(image), std::string(200 * 100, 'b'));
}

TEST(MapImageTest, SizeThatIsNotPositiveIsRefused) {
  struct Case {
    int64_t end_x, end_y;
    const char* text;
  } cases[] = {
      {0, 10, "Error: Overflow calculating image size.: 0"},
      {-4, -4, "Error: Overflow calculating image size.: 48"},  // positive product, still refused
      {int64_t{1} << 40, int64_t{1} << 40, "Error: Overflow calculating image size."}};
  for (const Case& c : cases) {
    test::MessageCapture capture;
    MapImage image;
    EXPECT_FALSE(AllocateMapImage(Drawing(c.end_x, c.end_y), image));
    EXPECT_TRUE(capture.Contains(c.text)) << c.end_x;
  }
}

}  // namespace
}  // namespace vmp
