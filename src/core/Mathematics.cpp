#include "core/Mathematics.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <iterator>
#include <list>

#include <CGAL/Exact_predicates_exact_constructions_kernel.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <CGAL/Surface_mesh.h>
#include <CGAL/convex_hull_2.h>
#include <CGAL/convex_hull_3.h>
#include <CGAL/intersections.h>

namespace tarv {

int Mathematics::round(double v) {
  if (std::isnan(v)) return 0;
  const double r = std::round(v);  // halves away from zero
  if (r <= static_cast<double>(INT_MIN)) return INT_MIN;
  if (r >= static_cast<double>(INT_MAX)) return INT_MAX;
  return static_cast<int>(r);
}

bool Mathematics::areSimilarWithTolerance(double a, double b, double tolerance) {
  return std::fabs(a - b) <= tolerance;
}

double Mathematics::binomialCoefficient(int n, int k) {
  if (k < 0 || n < 0 || k > n) return 0.0;
  const int m = std::min(k, n - k);
  // After step i, result == C(n - m + i, i), so every division is exact while it fits.
  double result = 1.0;
  for (int i = 1; i <= m && std::isfinite(result); ++i)
    result = result * (static_cast<double>(n - m) + i) / i;
  return result;
}

bool Mathematics::pointFiveValue(double v) { return v - std::floor(v) == 0.5; }

bool Mathematics::pointTooCloseToPoints(const Vector3D& p, const std::vector<Vector3D>& points, double minDistance) {
  return std::any_of(points.begin(), points.end(),
                     [&](const Vector3D& q) { return (p - q).getLength() < minDistance; });
}

namespace {

// Hulls need exact predicates only; intersections construct points, so they are computed exactly
// and rounded once at the end.
using HullKernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using ExactKernel = CGAL::Exact_predicates_exact_constructions_kernel;

bool isFinite(const Vector3D& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }
bool isFinite(const Vector2D& p) { return std::isfinite(p.x) && std::isfinite(p.y); }

Vector3D toVector(const HullKernel::Point_3& p) { return Vector3D(p.x(), p.y(), p.z()); }
Vector2D toVector(const HullKernel::Point_2& p) { return Vector2D(p.x(), p.y()); }
Vector3D toVector(const ExactKernel::Point_3& p) {
  return Vector3D(CGAL::to_double(p.x()), CGAL::to_double(p.y()), CGAL::to_double(p.z()));
}
Vector2D toVector(const ExactKernel::Point_2& p) { return Vector2D(CGAL::to_double(p.x()), CGAL::to_double(p.y())); }

// first, last := the meeting points as doubles; true.
template <typename Point, typename Vec>
bool storeMeeting(const Point& meetFirst, const Point& meetLast, Vec& first, Vec& last) {
  first = toVector(meetFirst);
  last = toVector(meetLast);
  return true;
}

ExactKernel::Point_3 toExact(const Vector3D& p) { return ExactKernel::Point_3(p.x, p.y, p.z); }
ExactKernel::Point_2 toExact(const Vector2D& p) { return ExactKernel::Point_2(p.x, p.y); }

// The meeting points of a line with a point set that is a point, a segment or a triangle, in
// line order. Returns false when they do not meet.
template <typename Point, typename Line>
bool orderAlongLine(const Line& line, Point a, Point b, Point& first, Point& last) {
  const auto direction = line.to_vector();
  if ((b - a) * direction < 0) std::swap(a, b);
  first = a;
  last = b;
  return true;
}

template <typename Point, typename Segment, typename Line, typename Result>
bool collectMeeting(const Line& line, const Result& result, Point& first, Point& last) {
  if (!result) return false;
  if (const Point* p = boost::get<Point>(&*result)) return orderAlongLine(line, *p, *p, first, last);
  if (const Segment* s = boost::get<Segment>(&*result)) return orderAlongLine(line, s->source(), s->target(), first, last);
  return false;
}

}  // namespace

std::vector<std::array<Vector3D, 3>> Mathematics::convexHull(const std::set<Vector3D>& points) {
  std::vector<std::array<Vector3D, 3>> facets;
  std::vector<HullKernel::Point_3> input;
  input.reserve(points.size());
  for (const Vector3D& p : points)
    if (isFinite(p)) input.emplace_back(p.x, p.y, p.z);
  if (input.empty()) return facets;
  try {
    CGAL::Surface_mesh<HullKernel::Point_3> mesh;
    CGAL::convex_hull_3(input.begin(), input.end(), mesh);
    if (mesh.number_of_faces() == 0) {
      // A point or a segment: the mesh holds its one or two extreme points as isolated vertices.
      std::vector<Vector3D> ends;
      for (auto v : mesh.vertices()) ends.push_back(toVector(mesh.point(v)));
      if (ends.empty()) return facets;
      const Vector3D& a = ends.front();
      const Vector3D& b = ends.back();
      facets.push_back({a, b, b});
      return facets;
    }
    facets.reserve(mesh.number_of_faces());
    for (auto f : mesh.faces()) {
      std::array<Vector3D, 3> facet;
      std::size_t k = 0;
      for (auto v : CGAL::vertices_around_face(mesh.halfedge(f), mesh)) {
        if (k < 3) facet[k] = toVector(mesh.point(v));
        ++k;
      }
      if (k == 3) facets.push_back(facet);
    }
  } catch (...) {
    facets.clear();
  }
  return facets;
}

std::vector<std::array<Vector2D, 2>> Mathematics::convexHull(const std::set<Vector2D>& points) {
  std::vector<std::array<Vector2D, 2>> edges;
  std::vector<HullKernel::Point_2> input;
  input.reserve(points.size());
  for (const Vector2D& p : points)
    if (isFinite(p)) input.emplace_back(p.x, p.y);
  if (input.empty()) return edges;
  try {
    std::vector<HullKernel::Point_2> hull;
    CGAL::convex_hull_2(input.begin(), input.end(), std::back_inserter(hull));
    if (hull.empty()) return edges;
    if (hull.size() == 1) {
      const Vector2D p = toVector(hull.front());
      edges.push_back({p, p});
      return edges;
    }
    for (std::size_t i = 0; i < hull.size(); ++i)
      edges.push_back({toVector(hull[i]), toVector(hull[(i + 1) % hull.size()])});
  } catch (...) {
    edges.clear();
  }
  return edges;
}

bool Mathematics::lineTriangleIntersection3D(const Vector3D& linePoint, const Vector3D& otherLinePoint,
                                             const std::array<Vector3D, 3>& triangle, Vector3D& first,
                                             Vector3D& last) {
  if (!isFinite(linePoint) || !isFinite(otherLinePoint) || linePoint == otherLinePoint) return false;
  for (const Vector3D& p : triangle)
    if (!isFinite(p)) return false;
  try {
    using K = ExactKernel;
    const K::Line_3 line(toExact(linePoint), toExact(otherLinePoint));
    const K::Point_3 a = toExact(triangle[0]), b = toExact(triangle[1]), c = toExact(triangle[2]);
    K::Point_3 meetFirst, meetLast;
    bool met = false;
    if (!CGAL::collinear(a, b, c)) {
      met = collectMeeting<K::Point_3, K::Segment_3>(line, CGAL::intersection(line, K::Triangle_3(a, b, c)), meetFirst,
                                                    meetLast);
    } else if (a == b && b == c) {
      if (line.has_on(a)) met = orderAlongLine(line, a, a, meetFirst, meetLast);
    } else {
      // A degenerate triangle is the segment between its two farthest corners.
      K::Segment_3 segment(a, b);
      if (CGAL::squared_distance(a, c) > segment.squared_length()) segment = K::Segment_3(a, c);
      if (CGAL::squared_distance(b, c) > segment.squared_length()) segment = K::Segment_3(b, c);
      met = collectMeeting<K::Point_3, K::Segment_3>(line, CGAL::intersection(line, segment), meetFirst, meetLast);
    }
    return met && storeMeeting(meetFirst, meetLast, first, last);
  } catch (...) {
    return false;
  }
}

bool Mathematics::lineSegmentIntersection2D(const Vector2D& linePoint, const Vector2D& otherLinePoint,
                                            const std::array<Vector2D, 2>& segment, Vector2D& first,
                                            Vector2D& last) {
  if (!isFinite(linePoint) || !isFinite(otherLinePoint) || linePoint == otherLinePoint) return false;
  if (!isFinite(segment[0]) || !isFinite(segment[1])) return false;
  try {
    using K = ExactKernel;
    const K::Line_2 line(toExact(linePoint), toExact(otherLinePoint));
    const K::Point_2 a = toExact(segment[0]), b = toExact(segment[1]);
    K::Point_2 meetFirst, meetLast;
    bool met = false;
    if (a == b) {
      if (line.has_on(a)) met = orderAlongLine(line, a, a, meetFirst, meetLast);
    } else {
      met = collectMeeting<K::Point_2, K::Segment_2>(line, CGAL::intersection(line, K::Segment_2(a, b)), meetFirst, meetLast);
    }
    return met && storeMeeting(meetFirst, meetLast, first, last);
  } catch (...) {
    return false;
  }
}

}  // namespace tarv
