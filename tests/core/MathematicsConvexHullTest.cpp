#include "core/Mathematics.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>
#include <random>
#include <set>
#include <vector>

using tarv::Mathematics;
using tarv::Vector2D;
using tarv::Vector3D;

namespace {

using Facet = std::array<Vector3D, 3>;
using Edge = std::array<Vector2D, 2>;

const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double infinity = std::numeric_limits<double>::infinity();

Vector3D normalOf(const Facet& f) { return (f[1] - f[0]).cross(f[2] - f[0]); }

double areaOf(const Facet& f) { return normalOf(f).getLength() / 2.0; }

// Whether p lies in the closed convex polytope bounded by the outward facets.
bool insideHull(const std::vector<Facet>& facets, const Vector3D& p) {
  for (const Facet& f : facets)
    if (normalOf(f).dot(p - f[0]) > 1e-9) return false;
  return true;
}

std::set<Vector3D> verticesOf(const std::vector<Facet>& facets) {
  std::set<Vector3D> vertices;
  for (const Facet& f : facets) vertices.insert(f.begin(), f.end());
  return vertices;
}

}  // namespace

TEST(MathematicsConvexHullTest, CubeCornersAndInnerPointsGiveTwelveOutwardFacets) {
  std::set<Vector3D> points;
  for (int x : {0, 2})
    for (int y : {0, 3})
      for (int z : {0, 4}) points.insert(Vector3D(x, y, z));
  points.insert(Vector3D(1, 1, 1));
  points.insert(Vector3D(1, 2, 3));
  points.insert(Vector3D(2, 1, 2));  // on a face, not a vertex
  const std::vector<Facet> facets = Mathematics::convexHull(points);
  ASSERT_EQ(facets.size(), 12u) << "two triangles per face of the box";
  double area = 0.0;
  for (const Facet& f : facets) {
    area += areaOf(f);
    for (const Vector3D& p : points) EXPECT_LE(normalOf(f).dot(p - f[0]), 1e-9) << "facet not outward or not a hull facet";
  }
  EXPECT_DOUBLE_EQ(area, 2 * (2 * 3 + 2 * 4 + 3 * 4)) << "the facets cover the box's surface once";
  EXPECT_EQ(verticesOf(facets).size(), 8u) << "only the corners are vertices";
}

TEST(MathematicsConvexHullTest, RandomPointsLieInsideTheirHull) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int> coordinate(-20, 20);
    std::set<Vector3D> points;
    for (int i = 0; i < 60; ++i) points.insert(Vector3D(coordinate(rng), coordinate(rng), coordinate(rng)));
    const std::vector<Facet> facets = Mathematics::convexHull(points);
    ASSERT_GE(facets.size(), 4u);
    for (const Vector3D& p : points) EXPECT_TRUE(insideHull(facets, p)) << "point " << p;
    for (const Vector3D& v : verticesOf(facets)) EXPECT_EQ(points.count(v), 1u) << "vertex " << v << " is an input point";
    // Euler: a closed triangulated convex surface has V - E + F = 2 with E = 3F/2.
    EXPECT_EQ(int(verticesOf(facets).size()) - int(facets.size()) / 2, 2);
  }
}

TEST(MathematicsConvexHullTest, DegenerateSetsGiveDegenerateFacets) {
  EXPECT_TRUE(Mathematics::convexHull(std::set<Vector3D>{}).empty());

  const std::vector<Facet> single = Mathematics::convexHull(std::set<Vector3D>{Vector3D(1, 2, 3)});
  ASSERT_EQ(single.size(), 1u);
  for (const Vector3D& v : single[0]) EXPECT_EQ(v, Vector3D(1, 2, 3));

  const std::set<Vector3D> line = {Vector3D(0, 0, 0), Vector3D(1, 1, 2), Vector3D(3, 3, 6), Vector3D(2, 2, 4)};
  const std::vector<Facet> segment = Mathematics::convexHull(line);
  ASSERT_EQ(segment.size(), 1u);
  EXPECT_EQ(std::set<Vector3D>(segment[0].begin(), segment[0].end()),
            (std::set<Vector3D>{Vector3D(0, 0, 0), Vector3D(3, 3, 6)}))
      << "the two extreme points";

  // A planar set: a triangulated polygon of the same area, with its vertices only.
  const std::set<Vector3D> square = {Vector3D(0, 0, 5), Vector3D(4, 0, 5), Vector3D(4, 4, 5), Vector3D(0, 4, 5),
                                     Vector3D(2, 2, 5), Vector3D(2, 0, 5)};
  const std::vector<Facet> planar = Mathematics::convexHull(square);
  ASSERT_EQ(planar.size(), 2u);
  EXPECT_DOUBLE_EQ(areaOf(planar[0]) + areaOf(planar[1]), 16.0);
  EXPECT_EQ(verticesOf(planar), (std::set<Vector3D>{Vector3D(0, 0, 5), Vector3D(4, 0, 5), Vector3D(4, 4, 5), Vector3D(0, 4, 5)}));

  // A planar pentagon in a slanted plane.
  const std::set<Vector3D> slanted = {Vector3D(0, 0, 0), Vector3D(2, 0, 2), Vector3D(3, 2, 3), Vector3D(1, 3, 1),
                                      Vector3D(-1, 2, -1)};
  const std::vector<Facet> pentagon = Mathematics::convexHull(slanted);
  EXPECT_EQ(pentagon.size(), 3u);
  EXPECT_EQ(verticesOf(pentagon), slanted);
}

TEST(MathematicsConvexHullTest, NonFinitePointsAreIgnored) {
  const std::set<Vector3D> points = {Vector3D(0, 0, 0), Vector3D(1, 0, 0), Vector3D(0, 1, 0), Vector3D(0, 0, 1),
                                     Vector3D(infinity, 0, 0), Vector3D(0, -infinity, 0)};
  const std::vector<Facet> facets = Mathematics::convexHull(points);
  EXPECT_EQ(facets.size(), 4u);
  EXPECT_EQ(verticesOf(facets).size(), 4u);
  EXPECT_TRUE(Mathematics::convexHull(std::set<Vector3D>{Vector3D(notANumber, 0, 0)}).empty());
  EXPECT_TRUE(Mathematics::convexHull(std::set<Vector2D>{Vector2D(0, infinity)}).empty());
}

TEST(MathematicsConvexHullTest, PlanarHullEdgesRunCounterClockwise) {
  const std::set<Vector2D> points = {Vector2D(0, 0), Vector2D(4, 0), Vector2D(4, 3), Vector2D(0, 3),
                                     Vector2D(2, 1), Vector2D(2, 0)};
  const std::vector<Edge> edges = Mathematics::convexHull(points);
  ASSERT_EQ(edges.size(), 4u);
  double twiceArea = 0.0;
  for (std::size_t i = 0; i < edges.size(); ++i) {
    EXPECT_EQ(edges[i][1], edges[(i + 1) % edges.size()][0]) << "edges chain up";
    twiceArea += edges[i][0].x * edges[i][1].y - edges[i][1].x * edges[i][0].y;
  }
  EXPECT_EQ(twiceArea, 24.0) << "a positive area means counter-clockwise";

  const std::vector<Edge> collinear = Mathematics::convexHull(std::set<Vector2D>{Vector2D(0, 0), Vector2D(1, 1), Vector2D(3, 3)});
  ASSERT_EQ(collinear.size(), 2u);
  EXPECT_EQ(collinear[0][0], collinear[1][1]);
  EXPECT_EQ(collinear[0][1], collinear[1][0]);
  EXPECT_EQ((std::set<Vector2D>{collinear[0][0], collinear[0][1]}), (std::set<Vector2D>{Vector2D(0, 0), Vector2D(3, 3)}));

  const std::vector<Edge> single = Mathematics::convexHull(std::set<Vector2D>{Vector2D(5, 6)});
  ASSERT_EQ(single.size(), 1u);
  EXPECT_EQ(single[0][0], Vector2D(5, 6));
  EXPECT_EQ(single[0][1], Vector2D(5, 6));
  EXPECT_TRUE(Mathematics::convexHull(std::set<Vector2D>{}).empty());
}

TEST(MathematicsConvexHullTest, LineMeetsTriangleInOnePoint) {
  const Facet triangle = {Vector3D(0, 0, 1), Vector3D(4, 0, 3), Vector3D(0, 4, 5)};  // z = 1 + x/2 + y
  Vector3D first, last;
  ASSERT_TRUE(Mathematics::lineTriangleIntersection3D(Vector3D(1, 1, 0), Vector3D(1, 1, 1), triangle, first, last));
  EXPECT_EQ(first, Vector3D(1, 1, 2.5));
  EXPECT_EQ(last, Vector3D(1, 1, 2.5));
  // Through a vertex and along an edge's end count as meeting.
  ASSERT_TRUE(Mathematics::lineTriangleIntersection3D(Vector3D(4, 0, -7), Vector3D(4, 0, 9), triangle, first, last));
  EXPECT_EQ(first, Vector3D(4, 0, 3));
  ASSERT_TRUE(Mathematics::lineTriangleIntersection3D(Vector3D(2, 0, 0), Vector3D(2, 0, 1), triangle, first, last));
  EXPECT_EQ(first.z, 2.0) << "on the edge y = 0";
  // The line extends beyond its two points.
  ASSERT_TRUE(Mathematics::lineTriangleIntersection3D(Vector3D(1, 1, 100), Vector3D(1, 1, 101), triangle, first, last));
  EXPECT_EQ(first.z, 2.5);
  // Misses: outside the triangle, and parallel to its plane.
  const Vector3D untouched(9, 9, 9);
  first = last = untouched;
  EXPECT_FALSE(Mathematics::lineTriangleIntersection3D(Vector3D(3, 3, 0), Vector3D(3, 3, 1), triangle, first, last));
  EXPECT_FALSE(Mathematics::lineTriangleIntersection3D(Vector3D(0, 0, 9), Vector3D(2, 0, 10), triangle, first, last));
  EXPECT_EQ(first, untouched);
  EXPECT_EQ(last, untouched);
}

TEST(MathematicsConvexHullTest, LineInsideTheTrianglePlaneMeetsASegment) {
  const Facet vertical = {Vector3D(0, 2, 0), Vector3D(4, 2, 0), Vector3D(0, 2, 4)};  // plane y = 2, x + z <= 4
  Vector3D first, last;
  ASSERT_TRUE(Mathematics::lineTriangleIntersection3D(Vector3D(1, 2, 0), Vector3D(1, 2, 1), vertical, first, last));
  EXPECT_EQ(first, Vector3D(1, 2, 0));
  EXPECT_EQ(last, Vector3D(1, 2, 3));
  // The order follows the line's direction.
  ASSERT_TRUE(Mathematics::lineTriangleIntersection3D(Vector3D(1, 2, 1), Vector3D(1, 2, 0), vertical, first, last));
  EXPECT_EQ(first, Vector3D(1, 2, 3));
  EXPECT_EQ(last, Vector3D(1, 2, 0));
}

TEST(MathematicsConvexHullTest, DegenerateTrianglesActAsSegmentsAndPoints) {
  Vector3D first, last;
  const Facet segment = {Vector3D(2, 2, 1), Vector3D(2, 2, 5), Vector3D(2, 2, 5)};
  ASSERT_TRUE(Mathematics::lineTriangleIntersection3D(Vector3D(2, 2, 0), Vector3D(2, 2, 1), segment, first, last));
  EXPECT_EQ(first.z, 1.0);
  EXPECT_EQ(last.z, 5.0);
  // A collinear triple whose middle point is listed last.
  const Facet triple = {Vector3D(0, 0, 0), Vector3D(4, 0, 0), Vector3D(2, 0, 0)};
  ASSERT_TRUE(Mathematics::lineTriangleIntersection3D(Vector3D(3, 0, 0), Vector3D(3, 0, 1), triple, first, last));
  EXPECT_EQ(first, Vector3D(3, 0, 0));
  EXPECT_EQ(last, Vector3D(3, 0, 0));
  EXPECT_FALSE(Mathematics::lineTriangleIntersection3D(Vector3D(5, 0, 0), Vector3D(5, 0, 1), triple, first, last));
  const Facet point = {Vector3D(1, 1, 1), Vector3D(1, 1, 1), Vector3D(1, 1, 1)};
  ASSERT_TRUE(Mathematics::lineTriangleIntersection3D(Vector3D(1, 1, 0), Vector3D(1, 1, 1), point, first, last));
  EXPECT_EQ(first, Vector3D(1, 1, 1));
  EXPECT_FALSE(Mathematics::lineTriangleIntersection3D(Vector3D(1, 2, 0), Vector3D(1, 2, 1), point, first, last));
}

TEST(MathematicsConvexHullTest, UndefinedLinesAndNonFiniteInputsNeverMeet) {
  const Facet triangle = {Vector3D(0, 0, 0), Vector3D(1, 0, 0), Vector3D(0, 1, 0)};
  Vector3D first, last;
  EXPECT_FALSE(Mathematics::lineTriangleIntersection3D(Vector3D(0.1, 0.1, 0), Vector3D(0.1, 0.1, 0), triangle, first, last))
      << "two equal points define no line";
  EXPECT_FALSE(Mathematics::lineTriangleIntersection3D(Vector3D(notANumber, 0, 0), Vector3D(0, 0, 1), triangle, first, last));
  EXPECT_FALSE(Mathematics::lineTriangleIntersection3D(Vector3D(0, 0, 0), Vector3D(0, 0, 1),
                                                       {Vector3D(infinity, 0, 0), Vector3D(1, 0, 0), Vector3D(0, 1, 0)},
                                                       first, last));
  Vector2D first2, last2;
  EXPECT_FALSE(Mathematics::lineSegmentIntersection2D(Vector2D(1, 1), Vector2D(1, 1), {Vector2D(0, 0), Vector2D(2, 2)},
                                                      first2, last2));
  EXPECT_FALSE(Mathematics::lineSegmentIntersection2D(Vector2D(0, notANumber), Vector2D(0, 1),
                                                      {Vector2D(0, 0), Vector2D(2, 2)}, first2, last2));
}

TEST(MathematicsConvexHullTest, LineMeetsSegmentInThePlane) {
  Vector2D first, last;
  ASSERT_TRUE(Mathematics::lineSegmentIntersection2D(Vector2D(1, 0), Vector2D(1, 1), {Vector2D(0, 1), Vector2D(4, 3)}, first, last));
  EXPECT_EQ(first, Vector2D(1, 1.5));
  EXPECT_EQ(last, Vector2D(1, 1.5));
  ASSERT_TRUE(Mathematics::lineSegmentIntersection2D(Vector2D(4, 0), Vector2D(4, 1), {Vector2D(0, 1), Vector2D(4, 3)}, first, last))
      << "at an end point";
  EXPECT_EQ(first, Vector2D(4, 3));
  EXPECT_FALSE(Mathematics::lineSegmentIntersection2D(Vector2D(5, 0), Vector2D(5, 1), {Vector2D(0, 1), Vector2D(4, 3)}, first, last));
  EXPECT_FALSE(Mathematics::lineSegmentIntersection2D(Vector2D(0, 0), Vector2D(2, 1), {Vector2D(0, 1), Vector2D(4, 3)}, first, last))
      << "parallel";
  // Collinear: the overlap, ordered along the line.
  ASSERT_TRUE(Mathematics::lineSegmentIntersection2D(Vector2D(2, 9), Vector2D(2, 8), {Vector2D(2, 1), Vector2D(2, 6)}, first, last));
  EXPECT_EQ(first, Vector2D(2, 6));
  EXPECT_EQ(last, Vector2D(2, 1));
  // A point segment.
  ASSERT_TRUE(Mathematics::lineSegmentIntersection2D(Vector2D(3, 0), Vector2D(3, 1), {Vector2D(3, 7), Vector2D(3, 7)}, first, last));
  EXPECT_EQ(first, Vector2D(3, 7));
  EXPECT_FALSE(Mathematics::lineSegmentIntersection2D(Vector2D(2, 0), Vector2D(2, 1), {Vector2D(3, 7), Vector2D(3, 7)}, first, last));
}

TEST(MathematicsConvexHullTest, ColumnSpansOfARandomHullMatchItsPlanes) {
  // For every column through a random hull, the meeting points with its facets span exactly
  // the column's part inside the hull.
  std::mt19937 rng(11);
  std::uniform_int_distribution<int> coordinate(0, 12);
  std::set<Vector3D> points;
  for (int i = 0; i < 40; ++i) points.insert(Vector3D(coordinate(rng), coordinate(rng), coordinate(rng)));
  const std::vector<Facet> facets = Mathematics::convexHull(points);
  for (int y = 0; y <= 12; ++y)
    for (int x = 0; x <= 12; ++x) {
      bool met = false;
      double low = infinity, high = -infinity;
      for (const Facet& f : facets) {
        Vector3D first, last;
        if (!Mathematics::lineTriangleIntersection3D(Vector3D(x, y, 0), Vector3D(x, y, 1), f, first, last)) continue;
        met = true;
        low = std::min({low, first.z, last.z});
        high = std::max({high, first.z, last.z});
      }
      for (int z = -1; z <= 13; ++z) {
        // Voxel centres strictly inside or outside (away from the surface) decide unambiguously.
        const Vector3D p(x, y, z);
        bool strictlyInside = true, strictlyOutside = false;
        for (const Facet& f : facets) {
          const Vector3D n = normalOf(f);
          const double side = n.dot(p - f[0]) / n.getLength();
          if (side > -1e-9) strictlyInside = false;
          if (side > 1e-9) strictlyOutside = true;
        }
        if (strictlyInside) EXPECT_TRUE(met && low < z && z < high) << "column " << x << ", " << y << " at " << z;
        if (strictlyOutside) EXPECT_FALSE(met && low < z && z < high) << "column " << x << ", " << y << " at " << z;
      }
    }
}
