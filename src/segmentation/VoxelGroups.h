#ifndef TARV_SEGMENTATION_VOXELGROUPS_H
#define TARV_SEGMENTATION_VOXELGROUPS_H

// 6-connected groups of equal elements, grown by marking (BinarySegmentations::getGroup and
// removeSmallVoxelGroups).

#include <list>

#include "dataset/Dataset.h"

namespace tarv::segmentation {

// The group of elements equal to value around start, breadth first, in discovery order; see
// BinarySegmentations::getGroup.
std::list<DatasetCoordinates> growGroup(Dataset* segmentation, double value, int limit, const DatasetCoordinates& start);

// Sets to 0 every group of elements equal to value with at most maximalGroupSize elements.
void removeSmallGroups(Dataset* segmentation, double value, int maximalGroupSize);

}  // namespace tarv::segmentation

#endif
