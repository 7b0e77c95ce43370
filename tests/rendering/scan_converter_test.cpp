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

TEST(FillPolygonsTest, SpanColumnsOfRisingAndFallingEdges) {
  EdgeTables tables;
  struct Case {
    std::initializer_list<PixelVertex> ring;
    const char* picture;
  } cases[] = {
      // Rows 1..3 (the last edge row is not covered), columns 1..5 both ends drawn.
      {{{1, 1}, {5, 1}, {5, 4}, {1, 4}}, "..........|.#####....|.#####....|.#####....|.........."},
      // Rising left edge (x 1.5, 2.5, 3.5 rounded half away from zero),
      // falling right edge (x 8.7, 7.7, 6.7 truncated).
      {{{1.5, 0}, {8.7, 0}, {5.7, 3}, {4.5, 3}}, "..#######.|...#####..|....###...|..........|.........."},
      // Falling left edge (4.5, 3.5, 2.5 truncated), rising right edge (6.5, 7.5, 8.5 rounded).
      {{{4.5, 0}, {6.5, 0}, {9.5, 3}, {1.5, 3}}, "....####..|...######.|..########|..........|.........."},
      // Vertices between scanlines: the rows whose centre lies inside.
      {{{2, 0.4}, {4, 0.4}, {4, 2.6}, {2, 2.6}}, "..........|..###.....|..###.....|..........|.........."},
      // Thinner than a pixel between two centres: nothing.
      {{{0, 1.2}, {9, 1.2}, {9, 1.8}, {0, 1.8}}, "..........|..........|..........|..........|.........."},
  };
  for (const Case& c : cases) {
    PixelRings rings;
    rings.AddRing(c.ring);
    EXPECT_EQ(Fill(10, 5, rings, tables), c.picture);
  }
}

TEST(FillPolygonsTest, RingsHolesClippingAndReuse) {
  EdgeTables tables;
  PixelRings rings;
  rings.AddRing({{0, 0}, {7, 0}, {7, 6}, {0, 6}});
  rings.AddRing({{2, 2}, {5, 2}, {5, 4}, {2, 4}});
  EXPECT_EQ(Fill(8, 6, rings, tables), "########|########|###..###|###..###|########|########");
  const size_t edges = tables.edge_capacity(), active = tables.active_capacity();

  // Far beyond the image on every side: only the visible rows are worked.
  PixelRings huge;
  huge.AddRing({{-1e9, -1e9}, {1e9, -1e9}, {1e9, 1e9}, {-1e9, 1e9}});
  EXPECT_EQ(Fill(3, 2, huge, tables), "###|###");
  EXPECT_EQ(tables.last_scanlines(), 2);
  // Points that are not numbers drop their edges.
  PixelRings odd;
  odd.AddRing({{0, 0}, {2, 0}, {2, 2}, {std::nan(""), 7}, {0, 2}});
  EXPECT_EQ(Fill(3, 3, odd, tables), "###|###|...");
  // The arrays kept their size: later polygons allocate nothing.
  EXPECT_EQ(tables.edge_capacity(), edges);
  EXPECT_EQ(tables.active_capacity(), active);
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
            (std::vector<std::string>{"Error: Detected hanging while rendering filled polygons",
                                      "Error: breaking out after iteration: 4",
                                      "Error: Possible cause - unreasonably high zoom factor, check map "
                                      "extent or increase $config/VmpIterationMax."}));
  EXPECT_EQ(test::Picture(image, kInk), "####|####|####|....|....|....");
}

}  // namespace
}  // namespace vmp
