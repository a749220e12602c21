#include "segmentation/ConvexHullSpans.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>
#include <vector>

#include "core/Mathematics.h"
#include "core/Vector2D.h"
#include "core/Vector3D.h"

namespace tarv::segmentation {

namespace {

// The span of a column met by hull facets or edges: from the lowest to the highest meeting point.
struct ColumnSpan {
  bool met = false;
  double low = 0.0, high = 0.0;

  void include(double a, double b) {
    const double lower = std::min(a, b), upper = std::max(a, b);
    low = met ? std::min(low, lower) : lower;
    high = met ? std::max(high, upper) : upper;
    met = true;
  }
};

}  // namespace

void fillConvexHullSpans(Dataset* segmentation) {
  const DatasetCoordinates size = segmentation->getSize();
  auto objectAt = [&](int x, int y, int z, int t) {
    return segmentation->getElement<bool>(DatasetCoordinates(x, y, z, t, 0));
  };
  // Visits the span [low, high] of a column, rounded inwards and kept inside the dataset.
  auto visitSpan = [&](double low, double high, int extent, auto&& visit) {
    const double first = std::max(std::ceil(low), 0.0);
    const double last = std::min(std::floor(high), static_cast<double>(extent - 1));
    for (double v = first; v <= last; v += 1.0) visit(static_cast<int>(v));
  };
  for (int t = 0; t < size.t; ++t) {
    if (segmentation->is3D()) {
      // The hull of the object voxels is that of the lowest and highest object voxel of every
      // column, which keeps the point set small.
      std::set<Vector3D> points;
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x) {
          int lowest = -1, highest = -1;
          for (int z = 0; z < size.z; ++z)
            if (objectAt(x, y, z, t)) {
              if (lowest < 0) lowest = z;
              highest = z;
            }
          if (lowest < 0) continue;
          points.insert(Vector3D(x, y, lowest));
          points.insert(Vector3D(x, y, highest));
        }
      const std::vector<std::array<Vector3D, 3>> facets = Mathematics::convexHull(points);
      if (facets.empty()) continue;
      // A column parallel to z meets a facet only inside the facet's x-y bounds.
      std::vector<std::array<double, 4>> bounds;
      for (const auto& f : facets)
        bounds.push_back({std::min({f[0].x, f[1].x, f[2].x}), std::max({f[0].x, f[1].x, f[2].x}),
                          std::min({f[0].y, f[1].y, f[2].y}), std::max({f[0].y, f[1].y, f[2].y})});
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x) {
          ColumnSpan span;
          for (std::size_t i = 0; i < facets.size(); ++i) {
            const auto& b = bounds[i];
            if (x < b[0] || x > b[1] || y < b[2] || y > b[3]) continue;
            Vector3D first, last;
            if (!Mathematics::lineTriangleIntersection3D(Vector3D(x, y, 0), Vector3D(x, y, 1), facets[i], first, last))
              continue;
            span.include(first.z, last.z);
          }
          if (!span.met) continue;
          visitSpan(span.low, span.high, size.z, [&](int z) {
            if (!objectAt(x, y, z, t)) segmentation->setElement<bool>(DatasetCoordinates(x, y, z, t, 0), false);
          });
        }
    } else {
      std::set<Vector2D> points;
      for (int x = 0; x < size.x; ++x) {
        int lowest = -1, highest = -1;
        for (int y = 0; y < size.y; ++y)
          if (objectAt(x, y, 0, t)) {
            if (lowest < 0) lowest = y;
            highest = y;
          }
        if (lowest < 0) continue;
        points.insert(Vector2D(x, lowest));
        points.insert(Vector2D(x, highest));
      }
      const std::vector<std::array<Vector2D, 2>> edges = Mathematics::convexHull(points);
      for (int x = 0; x < size.x && !edges.empty(); ++x) {
        ColumnSpan span;
        for (const auto& edge : edges) {
          if (x < std::min(edge[0].x, edge[1].x) || x > std::max(edge[0].x, edge[1].x)) continue;
          Vector2D first, last;
          if (!Mathematics::lineSegmentIntersection2D(Vector2D(x, 0), Vector2D(x, 1), edge, first, last)) continue;
          span.include(first.y, last.y);
        }
        if (!span.met) continue;
        visitSpan(span.low, span.high, size.y, [&](int y) {
          if (!objectAt(x, y, 0, t)) segmentation->setElement<bool>(DatasetCoordinates(x, y, 0, t, 0), false);
        });
      }
    }
  }
}

}  // namespace tarv::segmentation
