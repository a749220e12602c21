#include "dataset/BinarySegmentations.h"

#include <cmath>
#include <new>
#include <vector>

#include "segmentation/ConvexHullSpans.h"
#include "segmentation/Membership.h"
#include "segmentation/SegmentationDistances.h"
#include "segmentation/SliceMembership.h"
#include "segmentation/SliceReaders.h"
#include "segmentation/VoxelGroups.h"

namespace tarv {

using namespace segmentation;

namespace {

// Counts the elements of time step t (component 0) where rule(a is object, b is object) holds;
// b is read only where a alone does not decide.
enum class PairRule { difference, exclusive, shared, total };

unsigned int countPairs(Dataset* a, Dataset* b, int t, PairRule rule) {
  if (a == nullptr || b == nullptr || !a->isCompatible(b) || !holdsTimeStep(a, t)) return 0;
  const DatasetCoordinates size = a->getSize();
  auto readerA = makeSliceReader(a, t, 0);
  auto readerB = makeSliceReader(b, t, 0);
  std::vector<unsigned char> row(static_cast<std::size_t>(size.x));
  unsigned int count = 0;
  for (int z = 0; z < size.z; ++z)
    for (int y = 0; y < size.y; ++y) {
      readerA->row(y, z, row.data());
      for (int x = 0; x < size.x; ++x) {
        const bool inA = (row[static_cast<std::size_t>(x)] & readsTrue) != 0;
        bool counted = false;
        switch (rule) {
          case PairRule::difference: counted = inA != ((readerB->at(x, y, z) & readsTrue) != 0); break;
          case PairRule::exclusive: counted = inA && !(readerB->at(x, y, z) & readsTrue); break;
          case PairRule::shared: counted = inA && (readerB->at(x, y, z) & readsTrue); break;
          case PairRule::total: counted = inA || (readerB->at(x, y, z) & readsTrue); break;
        }
        if (counted) ++count;
      }
    }
  return count;
}

}  // namespace

bool BinarySegmentations::isBinarySegmentation(Dataset* segmentation) {
  if (segmentation == nullptr) return true;
  for (auto it = segmentation->getStartCoordinatesIterator(); it.valid; segmentation->incrementCoordinatesIterator(it)) {
    const bool first = segmentation->getElement<bool>(it);
    const bool second = segmentation->getElement<bool>(it);
    if (first && !second) return false;
  }
  return true;
}

void BinarySegmentations::transformIntoBinarySegmentation(Dataset* segmentation) {
  if (segmentation == nullptr) return;
  for (auto it = segmentation->getStartCoordinatesIterator(); it.valid; segmentation->incrementCoordinatesIterator(it))
    if (segmentation->getElement<bool>(it)) segmentation->setElement<bool>(it, true);
}

void BinarySegmentations::transformIntoBinarySegmentation(Dataset* segmentation, double lowerBound, double upperBound) {
  if (segmentation == nullptr) return;
  for (auto it = segmentation->getStartCoordinatesIterator(); it.valid; segmentation->incrementCoordinatesIterator(it)) {
    const double v = segmentation->getElement<double>(it);
    segmentation->setElement<bool>(it, lowerBound <= v && v <= upperBound);
  }
}

void BinarySegmentations::setEmpty(Dataset* segmentation) {
  if (segmentation != nullptr) segmentation->setAllElementsValue(0.0, nullptr);
}

bool BinarySegmentations::isObjectElement(Dataset* segmentation, const DatasetCoordinates& c) {
  return segmentation != nullptr && isNonZero(segmentation->boundsCheckedElement(c, 0.0));
}

void BinarySegmentations::setObjectElement(Dataset* segmentation, bool isObject, const DatasetCoordinates& c) {
  if (segmentation != nullptr && segmentation->areCoordinatesInside(c)) segmentation->setElement<bool>(c, isObject);
}

bool BinarySegmentations::isPlaneWorldObjectElement(Dataset* segmentation, double x, double y, int z, int t) {
  return segmentation != nullptr && isNonZero(segmentation->planeInterpolatedWorldElement(x, y, z, t, 0.0, 0));
}

bool BinarySegmentations::isSpaceWorldObjectElement(Dataset* segmentation, double x, double y, double z, int t) {
  return segmentation != nullptr && isNonZero(segmentation->spaceInterpolatedWorldElement(x, y, z, t, 0.0, 0));
}

bool BinarySegmentations::isBorderElement(Dataset* segmentation, const DatasetCoordinates& c) {
  if (segmentation == nullptr || !segmentation->areCoordinatesInside(c) || !isObjectElement(segmentation, c))
    return false;
  for (int axis = 0; axis < 3; ++axis)
    for (int step : {-1, 1}) {
      DatasetCoordinates neighbour = c;
      neighbour[axis] += step;
      if (!segmentation->areCoordinatesInside(neighbour) || !isObjectElement(segmentation, neighbour)) return true;
    }
  return false;
}

unsigned int BinarySegmentations::getSegmentationVoxelCount(Dataset* segmentation, int t) {
  if (!holdsTimeStep(segmentation, t)) return 0;
  const DatasetCoordinates size = segmentation->getSize();
  auto reader = makeSliceReader(segmentation, t, 0);
  std::vector<unsigned char> row(static_cast<std::size_t>(size.x));
  unsigned int count = 0;
  for (int z = 0; z < size.z; ++z)
    for (int y = 0; y < size.y; ++y) {
      reader->row(y, z, row.data());
      for (unsigned char f : row)
        if (f & readsTrue) ++count;
    }
  return count;
}

unsigned int BinarySegmentations::getSegmentationVoxelCountDifference(Dataset* a, Dataset* b, int t) {
  return countPairs(a, b, t, PairRule::difference);
}

unsigned int BinarySegmentations::getExclusiveSegmentationVoxelCount(Dataset* a, Dataset* b, int t) {
  return countPairs(a, b, t, PairRule::exclusive);
}

unsigned int BinarySegmentations::getSharedSegmentationVoxelCount(Dataset* a, Dataset* b, int t) {
  return countPairs(a, b, t, PairRule::shared);
}

unsigned int BinarySegmentations::getTotalSegmentationVoxelCount(Dataset* a, Dataset* b, int t) {
  return countPairs(a, b, t, PairRule::total);
}

std::list<DatasetCoordinates> BinarySegmentations::getGroup(Dataset* segmentation, double value, int limit,
                                                            const DatasetCoordinates& start) {
  return growGroup(segmentation, value, limit, start);
}

void BinarySegmentations::removeSmallVoxelGroups(Dataset* segmentation, double value, int maximalGroupSize) {
  removeSmallGroups(segmentation, value, maximalGroupSize);
}

void BinarySegmentations::fillConvexHull(Dataset* segmentation) {
  if (segmentation == nullptr || !segmentation->hasData()) return;
  if (!segmentation->is2D() && !segmentation->is3D()) return;
  // The pass changes no value, so running out of memory for the hull just ends it.
  try {
    fillConvexHullSpans(segmentation);
  } catch (const std::bad_alloc&) {
  }
}

double BinarySegmentations::getSquaredPointSegmentationDistance(Dataset* segmentation, const DatasetCoordinates& p) {
  return squaredPointDistance(segmentation, p, false);
}

double BinarySegmentations::getSquaredBorderPointSegmentationDistance(Dataset* segmentation,
                                                                      const DatasetCoordinates& p) {
  return squaredPointDistance(segmentation, p, true);
}

double BinarySegmentations::getSquaredSegmentationToSegmentationDistance(Dataset* a, Dataset* b, int t) {
  if (!holdsTimeStep(a, t) || !holdsTimeStep(b, t)) return 0.0;
  return directedSquaredDistance(a, b, t);
}

double BinarySegmentations::getHausdorffDistance(Dataset* a, Dataset* b, int t) {
  if (a == nullptr || b == nullptr || !a->isCompatible(b) || !holdsTimeStep(a, t)) return 0.0;
  return hausdorffDistance(a, b, t);
}

double BinarySegmentations::getAverageBorderDistance(Dataset* a, Dataset* b, int t) {
  if (a == nullptr || b == nullptr || !a->isCompatible(b) || !holdsTimeStep(a, t)) return 0.0;
  return averageBorderDistance(a, b, t);
}

}  // namespace tarv
