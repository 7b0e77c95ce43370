// Pixel-level drawing: transparency kinds, spans, polygon scan conversion,
// the union fill of stroke pieces and ring simplification.
#include <gtest/gtest.h>

#include <cmath>

#include "map_server/rendering/pixel_writer.h"
#include "map_server/rendering/ring_simplify.h"
#include "map_server/rendering/scan_converter.h"
#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"
#include "toolkit/global_config.h"

namespace vmp {
namespace {

using test::Canvas;
using test::Rgb3;
const PixelColour kInk = test::Opaque(test::kWhite);
constexpr double kTwoPi = 6.283185307179586;

// Writes `colour` over one pixel holding `old_value` and reads it back.
Rgb3 WriteOver(Rgb3 old_value, int64_t kind, double alpha, Rgb3 colour = {200, 100, 0}) {
  Canvas c(test::PixelGrid(1, 1));
  for (int i = 0; i < 3; ++i) c.image.pixels()[i] = static_cast<uint8_t>(old_value[i]);
  SetMapPixel(c.Surface(), 0, 0, {uint8_t(colour[0]), uint8_t(colour[1]), uint8_t(colour[2]), alpha, kind});
  return c.At(0, 0);
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
  Canvas run(test::PixelGrid(40, 1));
  for (const Case& c : cases) {
    EXPECT_EQ(WriteOver({100, 200, 50}, c.kind, c.alpha), c.expected) << c.kind << " " << c.alpha;
    // Spans: short runs blended pixel by pixel, long ones through a table
    // the surface keeps for each colour.
    uint8_t* p = run.image.pixels();
    for (int i = 0; i < 120; i += 3) p[i] = 100, p[i + 1] = 200, p[i + 2] = 50;
    DrawSpan(run.Surface(), 0, 0, 2, {200, 100, 0, c.alpha, c.kind});
    DrawSpan(run.Surface(), 3, 0, 39, {200, 100, 0, c.alpha, c.kind});
    EXPECT_EQ(run.At(0, 0), c.expected) << c.kind << " " << c.alpha;
    EXPECT_EQ(run.At(39, 0), c.expected) << c.kind << " " << c.alpha;
  }
  EXPECT_EQ(WriteOver({250, 0, 128}, 4, 1.0, {0, 250, 0}), (Rgb3{255, 0, 255}));
  EXPECT_EQ(WriteOver({0xF0, 0xFF, 0}, 3, 1.0, {0x0F, 0xFF, 0}), (Rgb3{0xFF, 0, 0}));

  // Unknown kinds are reported (once a span) and write nothing, unless alpha is 0.
  test::MessageCapture capture;
  EXPECT_EQ(WriteOver({1, 2, 3}, 6, 1.0), (Rgb3{1, 2, 3}));
  EXPECT_EQ(WriteOver({1, 2, 3}, -1, 0.0), (Rgb3{1, 2, 3}));
  EXPECT_EQ(capture.Texts(), std::vector<std::string>{"Error: Cannot render layer transparency type: 6"});
  DrawSpan(run.Surface(), 0, 0, 39, {200, 100, 0, 1.0, 7});
  EXPECT_EQ(capture.Count("Cannot render layer transparency type"), 2u);
}

TEST(SetMapPixelTest, SpansClipAndLocationQueriesWriteNothing) {
  Canvas c(test::PixelGrid(4, 3));
  c.Surface().SetClip({1, 2, 0, 1});
  for (int64_t y = -2; y < 5; ++y)
    for (int64_t x = -2; x < 6; ++x) SetMapPixel(*c.surface, x, y, kInk);
  EXPECT_EQ(c.Picture(test::kWhite), ".##.|.##.|....");
  c.surface->SetClip({-10, 10, -10, 10});
  EXPECT_EQ(c.surface->clip(), (PixelRect{0, 3, 0, 2}));  // never beyond the image

  // Both ends of a span are drawn; reversed ends draw nothing.
  struct Case {
    int64_t x1, y, x2;
    const char* picture;
  } cases[] = {
      {2, 1, 5, "........|..####.."},   {3, 0, 3, "...#....|........"},
      {5, 1, 2, "........|........"},   {-100, 0, 1000, "########|........"},
      {0, 2, 7, "........|........"},
  };
  for (const Case& s : cases) {
    Canvas span(test::PixelGrid(8, 2));
    DrawSpan(span.Surface(), s.x1, s.y, s.x2, kInk);
    EXPECT_EQ(span.Picture(test::kWhite), s.picture) << s.x1 << " " << s.x2;
  }

  Canvas query(test::PixelGrid(4, 3));
  query.g.location_query = true;
  SetMapPixel(query.Surface(), 1, 1, kInk);
  DrawSpan(query.Surface(), 0, 1, 3, {1, 2, 3, 0.5, kTransXor});
  EXPECT_EQ(query.Picture(test::kWhite), "....|....|....");
}

TEST(FillPolygonsTest, SpanColumnsRowsHolesAndClipping) {
  struct Case {
    std::vector<std::vector<PixelVertex>> rings;
    std::string picture;  // its size is the image's
    int64_t scanlines;    // rows worked
  } cases[] = {
      // Rows 1..3 (the last edge row is not covered), columns 1..5 both ends drawn.
      {{{{1, 1}, {5, 1}, {5, 4}, {1, 4}}}, "..........|.#####....|.#####....|.#####....|..........", 3},
      // Rising left edge (x 1.5, 2.5, 3.5 rounded half away from zero),
      // falling right edge (x 8.7, 7.7, 6.7 truncated).
      {{{{1.5, 0}, {8.7, 0}, {5.7, 3}, {4.5, 3}}}, "..#######.|...#####..|....###...|..........|..........", 3},
      // Falling left edge (4.5, 3.5, 2.5 truncated), rising right edge (6.5, 7.5, 8.5 rounded).
      {{{{4.5, 0}, {6.5, 0}, {9.5, 3}, {1.5, 3}}}, "....####..|...######.|..########|..........|..........", 3},
      // Vertices between scanlines: the rows whose centre lies inside.
      {{{{2, 0.4}, {4, 0.4}, {4, 2.6}, {2, 2.6}}}, "..........|..###.....|..###.....|..........|..........", 2},
      // Thinner than a pixel between two centres: nothing.
      {{{{0, 1.2}, {9, 1.2}, {9, 1.8}, {0, 1.8}}}, "..........|..........|..........|..........|..........", 0},
      // The rings of a polygon are filled together: a hole.
      {{{{0, 0}, {7, 0}, {7, 6}, {0, 6}}, {{2, 2}, {5, 2}, {5, 4}, {2, 4}}},
       "########|########|###..###|###..###|########|########", 6},
      // Far beyond the image on every side: only the visible rows are worked.
      {{{{-1e9, -1e9}, {1e9, -1e9}, {1e9, 1e9}, {-1e9, 1e9}}}, "###|###", 2},
      // Points that are not numbers drop their edges.
      {{{{0, 0}, {2, 0}, {2, 2}, {std::nan(""), 7}, {0, 2}}}, "###|###|...", 2},
  };
  EdgeTables tables;
  size_t capacity = 0;
  for (const Case& c : cases) {
    PixelRings rings;
    for (const std::vector<PixelVertex>& ring : c.rings) {
      for (const PixelVertex& v : ring) rings.Add(v.x, v.y);
      rings.EndRing();
    }
    Canvas canvas(test::PixelGrid(static_cast<int64_t>(c.picture.find('|')),
                                  std::count(c.picture.begin(), c.picture.end(), '|') + 1));
    EXPECT_TRUE(FillPolygons(canvas.Surface(), tables, rings, kInk));
    EXPECT_EQ(canvas.Picture(test::kWhite), c.picture);
    EXPECT_EQ(tables.last_scanlines(), c.scanlines) << c.picture;
    if (c.rings.size() == 2) capacity = tables.edge_capacity() + tables.active_capacity();
  }
  // The arrays kept their size: polygons after the biggest allocate nothing.
  EXPECT_EQ(tables.edge_capacity() + tables.active_capacity(), capacity);
}

TEST(FillPolygonsTest, LocationQueryStopsAtTheFirstHit) {
  // A triangle widening downwards (row s spans columns 0..s); the search
  // box covers rows 2..8, columns 6..8: row 6 is the first to reach it.
  MapGeometry g = test::PixelGrid(10, 10);
  g.location_query = true;
  g.search_x_from = 6;
  g.search_x_to = 8;
  g.search_y_from = 2;
  g.search_y_to = 8;
  EdgeTables tables;
  PixelRings triangle, left_of_box;
  triangle.AddRing({{0, 0}, {0, 10}, {10, 10}});
  left_of_box.AddRing({{0, 0}, {5, 0}, {5, 10}, {0, 10}});
  DrawSurface hit(nullptr, g);
  EXPECT_TRUE(FillPolygons(hit, tables, triangle, kInk));
  EXPECT_TRUE(hit.hit());
  EXPECT_EQ(tables.last_scanlines(), 5);  // rows 2..6
  DrawSurface miss(nullptr, g);
  EXPECT_TRUE(FillPolygons(miss, tables, left_of_box, kInk));
  EXPECT_FALSE(miss.hit());
  EXPECT_EQ(tables.last_scanlines(), 7);
}

TEST(FillPolygonsTest, IterationGuardAbandonsThePolygonOnly) {
  const double saved = kav::Config().vmp_iteration_max;
  kav::Config().vmp_iteration_max = 3.7;  // truncated to 3
  EdgeTables tables;
  Canvas c(test::PixelGrid(4, 6));
  PixelRings tall, short_one;
  tall.AddRing({{0, 0}, {1, 0}, {1, 6}, {0, 6}});
  short_one.AddRing({{3, 0}, {3, 3}, {2, 3}, {2, 0}});
  test::MessageCapture capture;
  EXPECT_FALSE(FillPolygons(c.Surface(), tables, tall, kInk));
  EXPECT_TRUE(FillPolygons(c.Surface(), tables, short_one, kInk));
  kav::Config().vmp_iteration_max = saved;
  EXPECT_EQ(capture.Texts(),
            (std::vector<std::string>{"Error: Detected hanging while rendering filled polygons",
                                      "Error: breaking out after iteration: 4",
                                      "Error: Possible cause - unreasonably high zoom factor, check map "
                                      "extent or increase $config/VmpIterationMax."}));
  EXPECT_EQ(c.Picture(test::kWhite), "####|####|####|....|....|....");
}

// The union of convex pieces wound alike fills the pixels the nonzero rule
// fills, each once: random quads, wedges and octagons, as a stroke makes them.
TEST(FillConvexUnionTest, SamePixelsAsTheNonzeroFill) {
  const PixelColour half{255, 255, 255, 0.5, kTransOpaque};
  uint32_t seed = 12345;
  auto next = [&] {
    seed = seed * 1664525u + 1013904223u;
    return static_cast<double>(seed >> 8) / 16777216.0;
  };
  for (int round = 0; round < 20; ++round) {
    PixelRings pieces;
    for (int k = 0; k < 12; ++k) {
      const double cx = next() * 40 - 5, cy = next() * 30 - 5, r = 0.3 + next() * 4;
      const int n = 3 + static_cast<int>(next() * 6);
      const double turn = next() * kTwoPi;
      for (int i = 0; i < n; ++i) {
        const double a = turn - kTwoPi * i / n;  // decreasing angles: wound alike
        pieces.Add(cx + r * std::cos(a), cy + r * std::sin(a));
      }
      pieces.EndRing();
    }
    Canvas a(test::PixelGrid(32, 24)), b(test::PixelGrid(32, 24));
    EdgeTables tables;
    ASSERT_TRUE(FillPolygons(a.Surface(), tables, pieces, half, FillMode::kStroke));
    ASSERT_TRUE(FillConvexUnion(b.Surface(), tables, pieces, half));
    EXPECT_EQ(b.Picture({132, 137, 142}), a.Picture({132, 137, 142})) << "round " << round;
  }
}

double SegmentDistance(const PixelVertex& p, const PixelVertex& a, const PixelVertex& b) {
  const double dx = b.x - a.x, dy = b.y - a.y, length2 = dx * dx + dy * dy;
  const double t = length2 > 0 ? std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / length2, 0.0, 1.0) : 0.0;
  return std::hypot(p.x - (a.x + t * dx), p.y - (a.y + t * dy));
}

TEST(SimplifyRingsTest, DropsOnlyWhatStaysWithinTheTolerance) {
  // A line with wiggles of 0.2 pixels every 0.1 pixels, a corner at x = 30,
  // then a zigzag whose 0.6-pixel wiggles must all stay; a circle of radius
  // 40 in 2000 steps, whose chords stay within a quarter pixel.
  std::vector<PixelVertex> wiggly, circle;
  for (int i = 0; i <= 300; ++i) wiggly.push_back({i * 0.1, 10 + ((i % 2) ? 0.2 : 0.0)});
  for (int i = 1; i <= 40; ++i) wiggly.push_back({30.0 + i * 0.5, 10 + ((i % 2) ? 0.6 : 0.0)});
  for (int i = 0; i <= 2000; ++i) {
    circle.push_back({50 + 40 * std::cos(kTwoPi * i / 2000), 50 + 40 * std::sin(kTwoPi * i / 2000)});
  }
  for (const auto& [ring, most_kept] : {std::pair{&wiggly, 43u}, {&circle, 100u}}) {
    PixelRings in, out;
    for (const PixelVertex& v : *ring) in.Add(v.x, v.y);
    in.SetEdgeFollowsLast(false);
    in.EndRing();
    SimplifyRings(in, kRingTolerance, out);
    ASSERT_EQ(out.ring_count(), 1u);
    const std::vector<PixelVertex>& kept = out.points();
    EXPECT_LE(kept.size(), most_kept);
    EXPECT_EQ(out.edge_follows().back(), 0);
    // Kept vertices are original ones in order; every dropped one lies
    // within the tolerance of the segment between the kept ones around it.
    size_t k = 0;
    for (const PixelVertex& p : *ring) {
      if (k < kept.size() && p.x == kept[k].x && p.y == kept[k].y) {
        ++k;
        continue;
      }
      ASSERT_TRUE(k > 0 && k < kept.size());
      EXPECT_LE(SegmentDistance(p, kept[k - 1], kept[k]), kRingTolerance + 1e-12);
    }
    EXPECT_EQ(k, kept.size());
  }
  // Clipping segments (no edge flag) are copied whole with their flags; a
  // point that is not a number stays, and so do its neighbours.
  PixelRings in, out;
  for (int i = 0; i <= 20; ++i) in.Add(i * 0.05, 0.0);
  for (int i = 0; i <= 20; ++i) in.Add(1.0, i * 0.05, i == 20);
  in.Add(std::nan(""), 0.0);
  for (int i = 0; i <= 20; ++i) in.Add(2.0 + i * 0.05, 0.0, i < 20);
  in.EndRing();
  SimplifyRings(in, kRingTolerance, out);
  EXPECT_LE(out.points().size(), 2u + 21 + 3 + 2);
  EXPECT_EQ(std::count(out.edge_follows().begin(), out.edge_follows().end(), 0), 21);
  const auto not_a_number = [](const PixelVertex& v) { return std::isnan(v.x); };
  EXPECT_EQ(std::count_if(out.points().begin(), out.points().end(), not_a_number), 1);
  SimplifyRings(in, 0.0, out);  // no tolerance: a copy
  EXPECT_EQ(out.points().size(), in.points().size());
}

}  // namespace
}  // namespace vmp
