#ifndef TARV_CORE_MATHEMATICS_H
#define TARV_CORE_MATHEMATICS_H

#include <array>
#include <set>
#include <vector>

#include "core/Vector2D.h"
#include "core/Vector3D.h"

namespace tarv {

// Numerical helpers; static members only.
class Mathematics {
public:
  Mathematics() = delete;

  // Nearest integer, halves away from zero (2.5 -> 3, -2.5 -> -3). Values beyond the int range
  // clamp to INT_MIN / INT_MAX; NaN gives 0.
  static int round(double v);
  // |a - b| <= tolerance.
  static bool areSimilarWithTolerance(double a, double b, double tolerance);
  // n choose k as a double; 0 unless 0 <= k <= n. Exact while the result fits in 53 bits;
  // too large a result gives +inf.
  static double binomialCoefficient(int n, int k);
  // True when v lies exactly half-way between two integers (v - floor(v) == 0.5).
  static bool pointFiveValue(double v);
  // True when some point of points lies at a Euclidean distance < minDistance from p.
  static bool pointTooCloseToPoints(const Vector3D& p, const std::vector<Vector3D>& points, double minDistance);

  // Convex hulls and their intersections with lines, computed with exact predicates. Points with
  // a non-finite coordinate are ignored.

  // The facets of the convex hull of points as triangles, each oriented outwards. A set that
  // spans no volume gives degenerate facets that cover its hull as a point set: a planar set
  // its triangulated polygon, a collinear set the single triangle (a, b, b) between its two
  // extreme points, a single point (p, p, p). No points give no facets.
  static std::vector<std::array<Vector3D, 3>> convexHull(const std::set<Vector3D>& points);
  // The edges of the convex hull of points, counter-clockwise, each from one hull vertex to the
  // next. A collinear set gives the two edges (a, b) and (b, a) between its extreme points, a
  // single point the edge (p, p). No points give no edges.
  static std::vector<std::array<Vector2D, 2>> convexHull(const std::set<Vector2D>& points);

  // Intersects the line through linePoint and otherLinePoint with a triangle (taken as the point
  // set it spans, so degenerate triangles act as segments or points). True when they meet; the
  // meeting points are then first and last, ordered along the line from linePoint towards
  // otherLinePoint, and equal unless the line runs inside the triangle's plane. False, with
  // first and last untouched, when they miss, when the two line points coincide or when any
  // coordinate is not finite.
  static bool lineTriangleIntersection3D(const Vector3D& linePoint, const Vector3D& otherLinePoint,
                                         const std::array<Vector3D, 3>& triangle, Vector3D& first, Vector3D& last);
  // The same for the line through linePoint and otherLinePoint and a segment in the plane.
  static bool lineSegmentIntersection2D(const Vector2D& linePoint, const Vector2D& otherLinePoint,
                                        const std::array<Vector2D, 2>& segment, Vector2D& first, Vector2D& last);
};

}  // namespace tarv

#endif
