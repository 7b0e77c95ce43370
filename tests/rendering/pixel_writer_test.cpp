#include "map_server/rendering/pixel_writer.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"

namespace vmp {
namespace {

using Rgb3 = std::array<int, 3>;
const PixelColour kWhite{255, 255, 255, 1.0, kTransOpaque};

// Writes `colour` over one pixel holding `old_value` and reads it back.
Rgb3 WriteOver(Rgb3 old_value, int64_t kind, double alpha, Rgb3 colour = {200, 100, 0}) {
  MapGeometry g = test::PixelGrid(1, 1);
  MapImage image;
  test::FillImage(g, image);
  for (int i = 0; i < 3; ++i) image.pixels()[i] = static_cast<uint8_t>(old_value[i]);
  DrawSurface surface(&image, g);
  SetMapPixel(surface, 0, 0, {uint8_t(colour[0]), uint8_t(colour[1]), uint8_t(colour[2]), alpha, kind});
  return {image.pixels()[0], image.pixels()[1], image.pixels()[2]};
}

TEST(SetMapPixelTest, TransparencyKinds) {
  // Colour (200, 100, 0) over (100, 200, 50); results truncated toward zero.
  struct Case {
    int64_t kind;
    double alpha;
    Rgb3 expected;
  } cases[] = {
      {0, 1.0, {200, 100, 0}}, {0, 0.5, {150, 150, 25}}, {0, 0.0, {100, 200, 50}},
      {5, 1.0, {200, 100, 0}}, {5, 0.5, {150, 150, 25}},
      {1, 0.5, {160, 210, 50}}, {1, 1.0, {221, 221, 50}},   // (1 - c a / 255) p + c a
      {2, 0.5, {110, 169, 25}}, {2, 1.0, {121, 139, 0}},    // (p - c + 255) c a / 255 + p (1 - a)
      {3, 1.0, {172, 172, 50}}, {3, 0.5, {136, 186, 50}},   // 200 ^ 100 = 172
      {4, 1.0, {27, 227, 177}}, {4, 0.5, {63, 213, 113}},   // (p - c + 127.5) a + p (1 - a)
      {0, 2.0, {255, 0, 0}},  // 300, 0, -50 clamped
  };
  for (const Case& c : cases) {
    EXPECT_EQ(WriteOver({100, 200, 50}, c.kind, c.alpha), c.expected) << c.kind << " " << c.alpha;
  }
  EXPECT_EQ(WriteOver({250, 0, 128}, 4, 1.0, {0, 250, 0}), (Rgb3{255, 0, 255}));
  EXPECT_EQ(WriteOver({0xF0, 0xFF, 0}, 3, 1.0, {0x0F, 0xFF, 0}), (Rgb3{0xFF, 0, 0}));

  // Unknown kinds are reported and write nothing, unless alpha is 0.
  test::MessageCapture capture;
  EXPECT_EQ(WriteOver({1, 2, 3}, 6, 1.0), (Rgb3{1, 2, 3}));
  EXPECT_EQ(WriteOver({1, 2, 3}, -1, 0.0), (Rgb3{1, 2, 3}));
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: Cannot render layer transparency type: 6"});
}

TEST(SetMapPixelTest, ClipAndLocationQueryWriteNothing) {
  MapGeometry g = test::PixelGrid(4, 3);
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  surface.SetClip({1, 2, 0, 1});
  for (int64_t y = -2; y < 5; ++y)
    for (int64_t x = -2; x < 6; ++x) SetMapPixel(surface, x, y, kWhite);
  EXPECT_EQ(test::Picture(image, kWhite), ".##.|.##.|....");
  surface.SetClip({-10, 10, -10, 10});
  EXPECT_EQ(surface.clip(), (PixelRect{0, 3, 0, 2}));  // never beyond the image

  g.location_query = true;
  test::FillImage(g, image);
  DrawSurface query(&image, g);
  SetMapPixel(query, 1, 1, kWhite);
  EXPECT_EQ(test::Picture(image, kWhite), "....|....|....");
}

TEST(DrawSpanTest, BothEndsIncludedAndClipped) {
  MapGeometry g = test::PixelGrid(8, 2);
  MapImage image;
  struct Case {
    int64_t x1, y, x2;
    const char* picture;
  } cases[] = {
      {2, 1, 5, "........|..####.."},   {3, 0, 3, "...#....|........"},
      {5, 1, 2, "........|........"},   {-100, 0, 1000, "########|........"},
      {0, 2, 7, "........|........"},
  };
  for (const Case& c : cases) {
    test::FillImage(g, image);
    DrawSurface surface(&image, g);
    DrawSpan(surface, c.x1, c.y, c.x2, kWhite);
    EXPECT_EQ(test::Picture(image, kWhite), c.picture) << c.x1 << " " << c.x2;
  }
  // Blended runs go pixel by pixel; an unknown kind is reported once a run.
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  DrawSpan(surface, 0, 0, 7, {200, 100, 0, 0.5, kTransXor});
  const uint8_t* p = test::Pixel(image, 7, 0);
  EXPECT_EQ((Rgb3{p[0], p[1], p[2]}), (Rgb3{(200 ^ 10) / 2 + 5, (100 ^ 20) / 2 + 10, 30}));
  test::MessageCapture capture;
  DrawSpan(surface, 0, 1, 7, {200, 100, 0, 1.0, 7});
  EXPECT_EQ(capture.Count("Cannot render layer transparency type"), 1u);
}

}  // namespace
}  // namespace vmp
