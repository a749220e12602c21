#include "segmentation/SegmentationDistances.h"

#include <algorithm>
#include <cmath>

#include "segmentation/ShellSearch.h"
#include "segmentation/SliceMembership.h"

namespace tarv::segmentation {

namespace {

// The squared distance from p to the nearest element of the dataset carrying targetBit.
double searchFromPoint(Dataset* d, const DatasetCoordinates& p, unsigned char targetBit) {
  if (d == nullptr || !d->hasData()) return 0.0;
  const DatasetCoordinates size = d->getSize();
  // Nothing of another time step or component is inside the dataset: no target is ever found.
  if (p.t < 0 || p.t >= size.t || p.c < 0 || p.c >= size.c) return 0.0;
  SliceMembership slice(d, p.t, p.c, false);
  const ShellSearch search = makeShellSearch(d);
  return search.search(
      p.x, p.y, p.z, slice.getObjectBox(), 0,
      [&](Index x, Index y, Index z) { return (slice.flags(x, y, z) & targetBit) != 0; },
      [](Index, Index, Index) { return Index(0); });
}

// Calls f(x, y, z) for every element of the source slice carrying sourceBit, z outermost and x
// innermost, and gives it the squared distance to the nearest target element of the target slice.
template <typename F>
void forEachSourceDistance(SliceMembership& source, unsigned char sourceBit, SliceMembership& target,
                           const ShellSearch& search, unsigned char targetBit, F&& f) {
  const Box3& targets = target.getObjectBox();
  target.computeDistances(targetBit);
  auto isTarget = [&](Index x, Index y, Index z) { return (target.flags(x, y, z) & targetBit) != 0; };
  auto lowerDistance = [&](Index x, Index y, Index z) { return target.lowerDistance(x, y, z); };
  for (Index z = 0; z < source.size(2); ++z)
    for (Index y = 0; y < source.size(1); ++y)
      for (Index x = 0; x < source.size(0); ++x)
        if (source.flags(x, y, z) & sourceBit)
          f(search.search(x, y, z, targets, target.lowerDistance(x, y, z), isTarget, lowerDistance));
}

double directedSquaredDistance(SliceMembership& source, SliceMembership& target, const ShellSearch& search) {
  double result = 0.0;
  forEachSourceDistance(source, readsTrue, target, search, nonZero,
                        [&](double distance) { result = std::max(result, distance); });
  return result;
}

}  // namespace

double squaredPointDistance(Dataset* d, const DatasetCoordinates& p, bool borderOnly) {
  return searchFromPoint(d, p, borderOnly ? border : nonZero);
}

double directedSquaredDistance(Dataset* a, Dataset* b, int t) {
  SliceMembership source(a, t, 0, true);
  SliceMembership target(b, t, 0, true);
  return directedSquaredDistance(source, target, makeShellSearch(b));
}

double hausdorffDistance(Dataset* a, Dataset* b, int t) {
  SliceMembership sliceA(a, t, 0, true);
  SliceMembership sliceB(b, t, 0, true);
  if (countReadsTrue(sliceA) == 0 || countReadsTrue(sliceB) == 0) return 0.0;
  const double fromB = directedSquaredDistance(sliceB, sliceA, makeShellSearch(a));
  const double fromA = directedSquaredDistance(sliceA, sliceB, makeShellSearch(b));
  return std::sqrt(std::max(fromB, fromA));
}

double averageBorderDistance(Dataset* a, Dataset* b, int t) {
  SliceMembership sliceA(a, t, 0, true);
  SliceMembership sliceB(b, t, 0, true);
  if (countReadsTrue(sliceA) == 0 || countReadsTrue(sliceB) == 0) return 0.0;
  double sum = 0.0;
  double count = 0.0;
  auto add = [&](double squaredDistance) {
    sum += std::sqrt(squaredDistance);
    count += 1.0;
  };
  forEachSourceDistance(sliceA, border, sliceB, makeShellSearch(b), border, add);
  forEachSourceDistance(sliceB, border, sliceA, makeShellSearch(a), border, add);
  return sum / count;
}

}  // namespace tarv::segmentation
