#include "map_server/rendering/scan_converter.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/rendering/render_test_util.h"
#include "tests/support/message_capture.h"
#include "toolkit/global_config.h"

namespace vmp {
namespace {

const PixelColour kInk{255, 255, 255, 1.0, kTransOpaque};

std::string Fill(int64_t width, int64_t height, const PixelRings& rings, EdgeTables& tables) {
  MapGeometry g = test::PixelGrid(width, height);
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  EXPECT_TRUE(FillPolygons(surface, tables, rings, kInk));
  return test::Picture(image, kInk);
}

TEST(SpanColumnTest, RisingEdgesRoundFallingEdgesTruncate) {
  struct Case {
    double x, slope;
    int64_t column;
  } cases[] = {
      {2.5, 0.0, 3}, {2.49, 1.0, 2}, {-2.5, 0.5, -3}, {-2.4, 2.0, -2},  // half away from zero
      {2.9, -1.0, 2}, {2.5, -0.1, 2}, {-2.9, -1.0, -2},                 // toward zero
  };
  for (const Case& c : cases) EXPECT_EQ(SpanColumn(c.x, c.slope), c.column) << c.x << " " << c.slope;
}

TEST(FillPolygonsTest, SpanColumnsOfRisingAndFallingEdges) {
  EdgeTables tables;
  struct Case {
    std::initializer_list<PixelVertex> ring;
    const char* picture;
  } cases[] = {
      // Axis-aligned square: rows 1..3 (the bottom edge's row is not
      // covered), columns 1..5 with both ends drawn.
      {{{1, 1}, {5, 1}, {5, 4}, {1, 4}},
       "..........|.#####....|.#####....|.#####....|..........|.........."},
      // Left edge rising (x 1.5, 2.5, 3.5 rounded up), right edge falling
      // (x 8.7, 7.7, 6.7 truncated).
      {{{1.5, 0}, {8.7, 0}, {5.7, 3}, {4.5, 3}},
       "..#######.|...#####..|....###...|..........|..........|.........."},
      // Left edge falling (4.5, 3.5, 2.5 truncated), right edge rising
      // (6.5, 7.5, 8.5 rounded up).
      {{{4.5, 0}, {6.5, 0}, {9.5, 3}, {1.5, 3}},
       "....####..|...######.|..########|..........|..........|.........."},
      // Vertices between scanlines: rows whose centre lies inside (1..2).
      {{{2, 0.4}, {4, 0.4}, {4, 2.6}, {2, 2.6}},
       "..........|..###.....|..###.....|..........|..........|.........."},
      // Thinner than a pixel between two centres: no row covered.
      {{{0, 1.2}, {9, 1.2}, {9, 1.8}, {0, 1.8}},
       "..........|..........|..........|..........|..........|.........."},
  };
  for (const Case& c : cases) {
    PixelRings rings;
    rings.AddRing(c.ring);
    EXPECT_EQ(Fill(10, 6, rings, tables), c.picture);
  }
}

TEST(FillPolygonsTest, TwoRingsMakeAHoleAndNothingLeavesTheImage) {
  EdgeTables tables;
  PixelRings rings;
  rings.AddRing({{0, 0}, {7, 0}, {7, 6}, {0, 6}});
  rings.AddRing({{2, 2}, {5, 2}, {5, 4}, {2, 4}});
  // The inner ring's columns 2 and 5 are edges of both spans of its rows.
  EXPECT_EQ(Fill(8, 6, rings, tables),
            "########|########|###..###|###..###|########|########");

  // Far beyond the image on every side: clipped, only visible rows worked.
  PixelRings huge;
  huge.AddRing({{-1e9, -1e9}, {1e9, -1e9}, {1e9, 1e9}, {-1e9, 1e9}});
  EXPECT_EQ(Fill(3, 2, huge, tables), "###|###");
  EXPECT_EQ(tables.last_scanlines(), 2);

  // Points that are not numbers are left out with their edges.
  PixelRings odd;
  odd.AddRing({{0, 0}, {2, 0}, {2, 2}, {std::nan(""), 7}, {0, 2}});
  EXPECT_EQ(Fill(3, 3, odd, tables), "###|###|...");
}

TEST(FillPolygonsTest, LocationQueryStopsAtTheFirstHit) {
  // A triangle widening downwards from (0, 0); the search box lies to the
  // right, rows 2..8, columns 6..8: row 6 is the first whose span reaches it.
  MapGeometry g = test::PixelGrid(10, 10);
  g.location_query = true;
  g.search_x_from = 6;
  g.search_x_to = 8;
  g.search_y_from = 2;
  g.search_y_to = 8;
  PixelRings rings;
  rings.AddRing({{0, 0}, {0, 10}, {10, 10}});
  EdgeTables tables;
  DrawSurface surface(nullptr, g);
  EXPECT_TRUE(FillPolygons(surface, tables, rings, kInk));
  EXPECT_TRUE(surface.hit());
  EXPECT_EQ(tables.last_scanlines(), 5);  // rows 2..6

  // A polygon left of the box over the same rows never hits.
  PixelRings narrow;
  narrow.AddRing({{0, 0}, {5, 0}, {5, 10}, {0, 10}});
  DrawSurface miss(nullptr, g);
  EXPECT_TRUE(FillPolygons(miss, tables, narrow, kInk));
  EXPECT_FALSE(miss.hit());
  EXPECT_EQ(tables.last_scanlines(), 7);
}

TEST(FillPolygonsTest, IterationGuardAbandonsThePolygonOnly) {
  const double saved = kav::Config().vmp_iteration_max;
  kav::Config().vmp_iteration_max = 3.7;  // truncated to 3
  EdgeTables tables;
  MapGeometry g = test::PixelGrid(4, 6);
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  PixelRings tall, short_one;
  tall.AddRing({{0, 0}, {1, 0}, {1, 6}, {0, 6}});
  short_one.AddRing({{3, 0}, {3, 3}, {2, 3}, {2, 0}});
  test::MessageCapture capture;
  EXPECT_FALSE(FillPolygons(surface, tables, tall, kInk));
  EXPECT_TRUE(FillPolygons(surface, tables, short_one, kInk));
  kav::Config().vmp_iteration_max = saved;
  EXPECT_EQ(capture.Texts(),
            (std::vector<std::string>{
                "Error: Detected hanging while rendering filled polygons",
                "Error: breaking out after iteration: 4",
                "Error: Possible cause - unreasonably high zoom factor, check map extent or "
                "increase $config/VmpIterationMax."}));
  EXPECT_EQ(test::Picture(image, kInk), "####|####|####|....|....|....");
}

TEST(FillPolygonsTest, EdgeArraysOnlyGrow) {
  EdgeTables tables;
  MapGeometry g = test::PixelGrid(50, 50);
  MapImage image;
  test::FillImage(g, image);
  DrawSurface surface(&image, g);
  PixelRings big, small;
  for (int i = 0; i < 200; ++i) {
    const double a = 2 * kPi * i / 200;
    big.Add(25 + 20 * std::cos(a), 25 + 20 * std::sin(a));
  }
  big.EndRing();
  small.AddRing({{1, 1}, {3, 1}, {3, 3}});
  FillPolygons(surface, tables, big, kInk);
  const size_t edges = tables.edge_capacity(), active = tables.active_capacity();
  EXPECT_GE(edges, 64u);  // the edges that cover a scanline
  FillPolygons(surface, tables, small, kInk);
  FillPolygons(surface, tables, big, kInk);
  EXPECT_EQ(tables.edge_capacity(), edges);
  EXPECT_EQ(tables.active_capacity(), active);
}

}  // namespace
}  // namespace vmp
