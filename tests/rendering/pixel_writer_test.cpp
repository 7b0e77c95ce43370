#include "map_server/rendering/pixel_writer.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Rgb3 = std::array<int, 3>;

// Writes colour (200, 100, 0) over pixel (100, 200, 50) and reads it back.
Rgb3 WriteOver(Rgb3 old_value, int64_t kind, double alpha, Rgb3 colour = {200, 100, 0}) {
  MapGeometry g = test::PixelGrid(1, 1);
  MapImage image;
  test::FillImage(g, image);
  for (int i = 0; i < 3; ++i) image.pixels()[i] = static_cast<uint8_t>(old_value[i]);
  DrawSurface surface(&image, g);
  SetMapPixel(surface, 0, 0,
              {static_cast<uint8_t>(colour[0]), static_cast<uint8_t>(colour[1]),
               static_cast<uint8_t>(colour[2]), alpha, kind});
  return {image.pixels()[0], image.pixels()[1], image.pixels()[2]};
}

TEST(SetMapPixelTest, TransparencyKinds) {
  const Rgb3 p = {100, 200, 50};
  struct Case {
    int64_t kind;
    double alpha;
    Rgb3 expected;
  } cases[] = {
      {0, 1.0, {200, 100, 0}},    // copied
      {0, 0.5, {150, 150, 25}},
      {0, 0.0, {100, 200, 50}},   // nothing drawn
      {5, 0.5, {150, 150, 25}},   // like kind 0
      {5, 1.0, {200, 100, 0}},
      // (1 - c a / 255) p + c a: 160.78, 210.78, 50 truncated
      {1, 0.5, {160, 210, 50}},
      {1, 1.0, {221, 221, 50}},
      // (p - c + 255) c a / 255 + p (1 - a)
      {2, 0.5, {110, 169, 25}},
      {2, 1.0, {121, 139, 0}},
      // (c XOR p) a + p (1 - a): 200 ^ 100 = 172, 0 ^ 50 = 50
      {3, 1.0, {172, 172, 50}},
      {3, 0.5, {136, 186, 50}},
      // (p - c + 127.5) a + p (1 - a)
      {4, 1.0, {27, 227, 177}},
      {4, 0.5, {63, 213, 113}},
      // An alpha beyond 1 is not refused: the result is clamped both ways
      // (300, 0, -50).
      {0, 2.0, {255, 0, 0}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(WriteOver(p, c.kind, c.alpha), c.expected) << "kind " << c.kind << " alpha " << c.alpha;
  }
  // Bump map clamping: 250 + 127.5 and 0 - 250 + 127.5.
  EXPECT_EQ(WriteOver({250, 0, 128}, 4, 1.0, {0, 250, 0}), (Rgb3{255, 0, 255}));
  // XOR works on the bytes: 0xF0 ^ 0x0F.
  EXPECT_EQ(WriteOver({0xF0, 0xFF, 0}, 3, 1.0, {0x0F, 0xFF, 0}), (Rgb3{0xFF, 0, 0}));
}

TEST(SetMapPixelTest, UnknownKindIsReportedAndWritesNothing) {
  for (int64_t kind : {6, -1, 100}) {
    test::MessageCapture capture;
    EXPECT_EQ(WriteOver({1, 2, 3}, kind, 1.0), (Rgb3{1, 2, 3}));
    ASSERT_EQ(capture.Texts().size(), 1u);
    EXPECT_EQ(capture.Texts()[0], "Error: Cannot render layer transparency type: " + std::to_string(kind));
  }
  // Alpha 0 is tested first: no message then.
  test::MessageCapture capture;
  WriteOver({1, 2, 3}, 9, 0.0);
  EXPECT_TRUE(capture.messages().empty());
}

TEST(SetMapPixelTest, ClipAndLocationQueryWriteNothing) {
  MapGeometry g = test::PixelGrid(4, 3);
  MapImage image;
  test::FillImage(g, image);
  const PixelColour white{255, 255, 255, 1.0, kTransOpaque};
  DrawSurface surface(&image, g);
  surface.SetClip({1, 2, 0, 1});
  for (int64_t y = -2; y < 5; ++y)
    for (int64_t x = -2; x < 6; ++x) SetMapPixel(surface, x, y, white);
  EXPECT_EQ(test::Picture(image, white), ".##.|.##.|....");

  // The clip never reaches outside the image.
  surface.SetClip({-10, 10, -10, 10});
  EXPECT_EQ(surface.clip(), (PixelRect{0, 3, 0, 2}));

  MapGeometry query = g;
  query.location_query = true;
  test::FillImage(g, image);
  DrawSurface query_surface(&image, query);
  SetMapPixel(query_surface, 1, 1, white);
  DrawSpan(query_surface, 0, 1, 3, white);
  EXPECT_EQ(test::Picture(image, white), "....|....|....");
}

TEST(DrawSpanTest, BothEndsIncludedAndClipped) {
  MapGeometry g = test::PixelGrid(8, 3);
  MapImage image;
  const PixelColour white{255, 255, 255, 1.0, kTransOpaque};
  struct Case {
    int64_t x1, y, x2;
    const char* picture;
  } cases[] = {
      {2, 1, 5, "........|..####..|........"},
      {3, 0, 3, "...#....|........|........"},
      {5, 1, 2, "........|........|........"},        // reversed: empty
      {-100, 2, 1000, "........|........|########"},  // clipped to the image
      {0, 3, 7, "........|........|........"},        // row outside
  };
  for (const Case& c : cases) {
    test::FillImage(g, image);
    DrawSurface surface(&image, g);
    DrawSpan(surface, c.x1, c.y, c.x2, white);
    EXPECT_EQ(test::Picture(image, white), c.picture) << c.x1 << " " << c.x2;
  }
  // Blending runs per pixel; one message per run for an unknown kind.
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  DrawSpan(surface, 0, 0, 7, {200, 100, 0, 0.5, kTransXor});
  const uint8_t* p = test::Pixel(image, 7, 0);
  EXPECT_EQ((Rgb3{p[0], p[1], p[2]}), (Rgb3{(200 ^ 10) / 2 + 5, (100 ^ 20) / 2 + 10, 30 / 2 + 15}));
  test::MessageCapture capture;
  DrawSpan(surface, 0, 1, 7, {200, 100, 0, 1.0, 7});
  EXPECT_EQ(capture.Count("Cannot render layer transparency type"), 1u);
}

}  // namespace
}  // namespace vmp
