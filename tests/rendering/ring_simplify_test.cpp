// Pixel-space simplification of rings before stroking, and the union fill of
// thin strokes' pieces against the nonzero fill it replaces.
#include "map_server/rendering/ring_simplify.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "map_server/rendering/scan_converter.h"
#include "tests/rendering/render_test_util.h"

namespace vmp {
namespace {

double SegmentDistance(const PixelVertex& p, const PixelVertex& a, const PixelVertex& b) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double length2 = dx * dx + dy * dy;
  double t = length2 > 0 ? ((p.x - a.x) * dx + (p.y - a.y) * dy) / length2 : 0.0;
  t = std::clamp(t, 0.0, 1.0);
  return std::hypot(p.x - (a.x + t * dx), p.y - (a.y + t * dy));
}

struct Ring {
  std::vector<PixelVertex> points;
  std::vector<uint8_t> follows;
};

Ring RingOf(const PixelRings& rings, size_t r) {
  Ring out;
  for (size_t i = rings.RingBegin(r); i < rings.RingEnd(r); ++i) {
    out.points.push_back(rings.points()[i]);
    out.follows.push_back(rings.edge_follows()[i]);
  }
  return out;
}

// Every original vertex lies within `tolerance` of the simplified line
// between the kept vertices around it, and the kept vertices are original
// ones in their order.
void ExpectWithin(const Ring& original, const Ring& simple, double tolerance) {
  size_t k = 0;  // index in simple of the last kept vertex passed
  ASSERT_FALSE(simple.points.empty());
  for (size_t i = 0; i < original.points.size(); ++i) {
    const PixelVertex& p = original.points[i];
    if (k + 1 < simple.points.size() && p.x == simple.points[k + 1].x && p.y == simple.points[k + 1].y) {
      ++k;
      continue;
    }
    if (k == 0 && i == 0) {
      EXPECT_EQ(p.x, simple.points[0].x);
      EXPECT_EQ(p.y, simple.points[0].y);
      continue;
    }
    ASSERT_LT(k + 1, simple.points.size()) << "vertex " << i << " after the last kept one";
    EXPECT_LE(SegmentDistance(p, simple.points[k], simple.points[k + 1]), tolerance + 1e-12) << "vertex " << i;
  }
  EXPECT_EQ(k + 1, simple.points.size()) << "kept vertices out of order";
}

TEST(SimplifyRingsTest, DropsOnlyWhatStaysWithinTheTolerance) {
  // A line along x with wiggles of 0.2 pixels every 0.1 pixels, a corner at
  // x = 30, then a zigzag whose 0.6-pixel wiggles must all stay.
  Ring wiggly;
  for (int i = 0; i <= 300; ++i) wiggly.points.push_back({i * 0.1, 10 + ((i % 2) ? 0.2 : 0.0)});
  for (int i = 1; i <= 40; ++i) wiggly.points.push_back({30.0 + i * 0.5, 10 + ((i % 2) ? 0.6 : 0.0)});
  wiggly.follows.assign(wiggly.points.size(), 1);
  wiggly.follows.back() = 0;
  // A circle of radius 40 in 2000 steps: chords within a quarter pixel.
  Ring circle;
  for (int i = 0; i <= 2000; ++i) {
    const double a = 6.283185307179586 * i / 2000;
    circle.points.push_back({50 + 40 * std::cos(a), 50 + 40 * std::sin(a)});
  }
  circle.follows.assign(circle.points.size(), 1);
  circle.follows.back() = 0;
  // Clipping segments (no edge flag) and a point that is not a number.
  Ring mixed;
  for (int i = 0; i <= 20; ++i) mixed.points.push_back({i * 0.05, 0.0});
  for (int i = 0; i <= 20; ++i) mixed.points.push_back({1.0, i * 0.05});
  mixed.points.push_back({std::numeric_limits<double>::quiet_NaN(), 0.0});
  for (int i = 0; i <= 20; ++i) mixed.points.push_back({2.0 + i * 0.05, 0.0});
  mixed.follows.assign(mixed.points.size(), 1);
  for (int i = 21; i <= 40; ++i) mixed.follows[static_cast<size_t>(i)] = 0;
  mixed.follows.back() = 0;

  struct Case {
    const char* name;
    const Ring& ring;
    size_t most_kept;
  } cases[] = {{"wiggly", wiggly, 2 + 41}, {"circle", circle, 100}, {"mixed", mixed, 2 + 21 + 3 + 2}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    PixelRings in, out;
    for (size_t i = 0; i < c.ring.points.size(); ++i) in.Add(c.ring.points[i].x, c.ring.points[i].y, c.ring.follows[i]);
    in.EndRing();
    SimplifyRings(in, kRingTolerance, out);
    ASSERT_EQ(out.ring_count(), 1u);
    const Ring simple = RingOf(out, 0);
    EXPECT_LE(simple.points.size(), c.most_kept);
    EXPECT_LT(simple.points.size(), c.ring.points.size());
    // NaN never equals itself: compare the finite stretches around it.
    if (&c.ring != &mixed) ExpectWithin(c.ring, simple, kRingTolerance);
    EXPECT_EQ(simple.follows.back(), 0);
  }
  // The mixed ring: the clipping stretch is copied whole with its flags,
  // the point that is not a number and its neighbours stay.
  PixelRings in, out;
  for (size_t i = 0; i < mixed.points.size(); ++i) in.Add(mixed.points[i].x, mixed.points[i].y, mixed.follows[i]);
  in.EndRing();
  SimplifyRings(in, kRingTolerance, out);
  const Ring simple = RingOf(out, 0);
  size_t clipped = 0, not_numbers = 0;
  for (size_t i = 0; i < simple.points.size(); ++i) {
    clipped += simple.follows[i] == 0;
    not_numbers += std::isnan(simple.points[i].x);
  }
  EXPECT_EQ(clipped, 21u);  // the 20 clipping segments' starts and the ring's last point
  EXPECT_EQ(not_numbers, 1u);
  // No tolerance: a copy.
  SimplifyRings(in, 0.0, out);
  EXPECT_EQ(out.points().size(), in.points().size());
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
      const double turn = next() * 6.283185307179586;
      for (int i = 0; i < n; ++i) {
        const double a = turn - 6.283185307179586 * i / n;  // decreasing angles: wound alike
        pieces.Add(cx + r * std::cos(a), cy + r * std::sin(a));
      }
      pieces.EndRing();
    }
    MapGeometry g = test::PixelGrid(32, 24);
    MapImage a, b;
    test::FillImage(g, a);
    test::FillImage(g, b);
    DrawSurface sa(&a, g), sb(&b, g);
    EdgeTables tables;
    ASSERT_TRUE(FillPolygons(sa, tables, pieces, half, FillMode::kStroke));
    ASSERT_TRUE(FillConvexUnion(sb, tables, pieces, half));
    EXPECT_EQ(test::Picture(b, {132, 137, 142}), test::Picture(a, {132, 137, 142})) << "round " << round;
  }
}

}  // namespace
}  // namespace vmp
