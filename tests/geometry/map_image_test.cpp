#include "map_server/geometry/map_image.h"

#include <gtest/gtest.h>

#include "map_server/geometry/map_geometry.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

MapGeometry Drawing(int64_t end_x, int64_t end_y) {
  MapGeometry g;
  g.end_x = end_x;
  g.end_y = end_y;
  g.background[0] = 200;
  g.background[1] = 100;
  g.background[2] = 50;
  return g;
}

bool IsBackground(const MapImage& image, int64_t x, int64_t y) {
  const uint8_t* p = image.pixels() + (y * image.width() + x) * 3;
  return p[0] == 200 && p[1] == 100 && p[2] == 50;
}

bool IsBlack(const MapImage& image, int64_t x, int64_t y) {
  const uint8_t* p = image.pixels() + (y * image.width() + x) * 3;
  return p[0] == 0 && p[1] == 0 && p[2] == 0;
}

TEST(MapImageTest, FillsWithBackground) {
  MapImage image;
  ASSERT_TRUE(AllocateMapImage(Drawing(7, 5), image));
  EXPECT_EQ(image.width(), 7);
  EXPECT_EQ(image.height(), 5);
  EXPECT_EQ(image.size_bytes(), 7u * 5 * 3);
  EXPECT_TRUE(image.ready());
  for (int64_t y = 0; y < 5; ++y)
    for (int64_t x = 0; x < 7; ++x) EXPECT_TRUE(IsBackground(image, x, y)) << x << "," << y;

  // Gray backgrounds take the single-byte fill.
  MapGeometry gray = Drawing(4, 3);
  gray.background[0] = gray.background[1] = gray.background[2] = 77;
  ASSERT_TRUE(AllocateMapImage(gray, image));
  for (size_t i = 0; i < image.size_bytes(); ++i) EXPECT_EQ(image.pixels()[i], 77);
}

TEST(MapImageTest, ClipAreaFillsOnlyFromTheClipOrigin) {
  MapGeometry g = Drawing(10, 8);
  g.clip_area = true;
  g.clip_min_x = 3;
  g.clip_min_y = 2;
  MapImage image;
  // A previous image leaves colour in the buffer; the clip fill clears it.
  ASSERT_TRUE(AllocateMapImage(Drawing(10, 8), image));
  ASSERT_TRUE(AllocateMapImage(g, image));
  for (int64_t y = 0; y < 8; ++y) {
    for (int64_t x = 0; x < 10; ++x) {
      const bool inside = x >= 3 && y >= 2;
      EXPECT_EQ(IsBackground(image, x, y), inside) << x << "," << y;
      EXPECT_EQ(IsBlack(image, x, y), !inside) << x << "," << y;
    }
  }
}

TEST(MapImageTest, BufferOnlyGrows) {
  MapImage image;
  ASSERT_TRUE(AllocateMapImage(Drawing(100, 100), image));
  const uint8_t* buffer = image.pixels();
  const size_t capacity = image.capacity();
  ASSERT_TRUE(AllocateMapImage(Drawing(10, 20), image));
  EXPECT_EQ(image.pixels(), buffer);
  EXPECT_EQ(image.capacity(), capacity);
  EXPECT_EQ(image.width(), 10);
  EXPECT_EQ(image.height(), 20);
  ASSERT_TRUE(AllocateMapImage(Drawing(200, 100), image));
  EXPECT_GE(image.capacity(), 200u * 100 * 3);
  EXPECT_TRUE(IsBackground(image, 199, 99));
}

TEST(MapImageTest, SizeThatIsNotPositiveIsRefused) {
  struct Case {
    int64_t end_x, end_y;
    const char* text;
  } cases[] = {
      {0, 10, "Error: Overflow calculating image size.: 0"},
      {-4, -4, "Error: Overflow calculating image size.: 48"},  // positive product, no image
      {int64_t{1} << 40, int64_t{1} << 40, "Error: Overflow calculating image size."},
  };
  for (const Case& c : cases) {
    test::MessageCapture capture;
    MapImage image;
    EXPECT_FALSE(AllocateMapImage(Drawing(c.end_x, c.end_y), image));
    EXPECT_TRUE(capture.Contains(c.text)) << c.end_x;
    EXPECT_EQ(image.width(), 0);
  }
}

}  // namespace
}  // namespace vmp
