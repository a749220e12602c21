#ifndef TARV_DATASET_BINARYSEGMENTATIONS_H
#define TARV_DATASET_BINARYSEGMENTATIONS_H

#include <list>

#include "core/DatasetCoordinates.h"
#include "dataset/Dataset.h"

namespace tarv {

// Treats any dataset as a binary segmentation: an element is an object element when its value
// is non-zero (NaN included) and a background element when it is zero. Measures, edits and
// distances on such segmentations; static members only.
//
// Every function accepts a null or empty dataset (nothing happens, the result is 0 or false) and
// never reads or writes outside a dataset: a time step t outside the dataset holds no elements.
// The functions working on one time step use component 0.
class BinarySegmentations {
public:
  BinarySegmentations() = delete;

  // True for every dataset: a value read as bool is always 0 or 1. Callers must not use it to
  // detect non-binary values.
  static bool isBinarySegmentation(Dataset* segmentation);
  // Writes 1 into every element that reads as true; zero elements are left untouched.
  static void transformIntoBinarySegmentation(Dataset* segmentation);
  // Writes 1 into every element whose value lies in [lowerBound, upperBound] and 0 elsewhere.
  static void transformIntoBinarySegmentation(Dataset* segmentation, double lowerBound, double upperBound);
  // Sets all elements to 0.
  static void setEmpty(Dataset* segmentation);

  // True when the element at c is non-zero or NaN; false outside the dataset.
  static bool isObjectElement(Dataset* segmentation, const DatasetCoordinates& c);
  // Writes 1 or 0 at c; nothing outside the dataset.
  static void setObjectElement(Dataset* segmentation, bool isObject, const DatasetCoordinates& c);
  // The object test applied to the dataset sampled at a world position, by nearest neighbour
  // with 0 outside the dataset: planeInterpolatedWorldElement(x, y, z, t, 0.0, 0) and
  // spaceInterpolatedWorldElement(x, y, z, t, 0.0, 0).
  static bool isPlaneWorldObjectElement(Dataset* segmentation, double x, double y, int z, int t);
  static bool isSpaceWorldObjectElement(Dataset* segmentation, double x, double y, double z, int t);
  // True for an object element with a face neighbour (-x, +x, -y, +y, -z, +z) that is background
  // or outside the dataset: the 6-connected inner boundary.
  static bool isBorderElement(Dataset* segmentation, const DatasetCoordinates& c);

  // Voxel counts over the x, y, z extent of the first dataset at time step t, membership read as
  // bool. The pairwise counts give 0 for datasets that are not compatible.
  static unsigned int getSegmentationVoxelCount(Dataset* segmentation, int t);
  // Elements where exactly one of a and b is object.
  static unsigned int getSegmentationVoxelCountDifference(Dataset* a, Dataset* b, int t);
  // Elements where a is object and b is background.
  static unsigned int getExclusiveSegmentationVoxelCount(Dataset* a, Dataset* b, int t);
  // Elements where both are object.
  static unsigned int getSharedSegmentationVoxelCount(Dataset* a, Dataset* b, int t);
  // Elements where at least one is object.
  static unsigned int getTotalSegmentationVoxelCount(Dataset* a, Dataset* b, int t);

  // The 6-connected region of elements whose value equals value exactly, grown breadth first from
  // start (which is taken without a test), in discovery order. Visited elements are marked by
  // subtracting 1 from them and restored by adding 1 at the end; this is exact only where the
  // element type represents value - 1 (not, for example, value 0 in unsigned or bool datasets).
  // Growth stops once the list holds more than limit entries, so it may hold up to 6 more. A
  // start outside the dataset gives an empty list.
  static std::list<DatasetCoordinates> getGroup(Dataset* segmentation, double value, int limit,
                                                const DatasetCoordinates& start);
  // Sets to 0 every 6-connected group of elements equal to value that has at most
  // maximalGroupSize elements. Nothing for a dataset without a numerical element type.
  static void removeSmallVoxelGroups(Dataset* segmentation, double value, int maximalGroupSize);

  // For each time step of a 2D or 3D dataset: the convex hull of its object voxels and, for every
  // column parallel to the last axis, the span of the column inside the hull. Every span voxel
  // that reads false is written false again, so element values stay as they are; only the
  // dataset's minimum/maximum cache is cleared by the writes. A caller that wants the hull filled
  // sets the span voxels itself.
  static void fillConvexHull(Dataset* segmentation);

  // Distances are world distances: voxel offsets are scaled by the voxel spacing of the searched
  // dataset. The searches visit shells of growing city-block radius around the point and stop
  // after the first shell whose largest squared length exceeds the best distance found, so with
  // strongly anisotropic spacing they can exceed the true nearest distance. A dataset without
  // any target gives 0.0.

  // Squared distance from p to the nearest object element of the dataset (same t and component).
  static double getSquaredPointSegmentationDistance(Dataset* segmentation, const DatasetCoordinates& p);
  // Squared distance from p to the nearest border element of the dataset.
  static double getSquaredBorderPointSegmentationDistance(Dataset* segmentation, const DatasetCoordinates& p);
  // The largest squared distance from an object voxel of a (time step t) to the object elements
  // of b; 0.0 when a has none. The datasets need not be compatible.
  static double getSquaredSegmentationToSegmentationDistance(Dataset* a, Dataset* b, int t);
  // The larger of the two directed distances; 0.0 for incompatible datasets or an empty one.
  static double getHausdorffDistance(Dataset* a, Dataset* b, int t);
  // The mean distance from each border voxel of either segmentation to the border of the other;
  // 0.0 for incompatible datasets or an empty one.
  static double getAverageBorderDistance(Dataset* a, Dataset* b, int t);
};

}  // namespace tarv

#endif
