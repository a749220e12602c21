#ifndef TARV_SEGMENTATION_SEGMENTATIONDISTANCES_H
#define TARV_SEGMENTATION_SEGMENTATIONDISTANCES_H

// Squared world distances between points, object and border elements of binary segmentations
// (see BinarySegmentations for the search and its limits).

#include "dataset/Dataset.h"

namespace tarv::segmentation {

// The squared distance from p to the nearest object (border with borderOnly) element of the
// dataset; 0.0 when it has none or p's time step or component lies outside it.
double squaredPointDistance(Dataset* d, const DatasetCoordinates& p, bool borderOnly);

// For datasets holding time step t: the largest squared distance from an object voxel of a to
// the object elements of b.
double directedSquaredDistance(Dataset* a, Dataset* b, int t);

// For compatible datasets holding time step t, 0.0 when either has no object voxel: the larger
// of the two directed distances, and the mean distance from the border voxels of either to the
// border of the other.
double hausdorffDistance(Dataset* a, Dataset* b, int t);
double averageBorderDistance(Dataset* a, Dataset* b, int t);

}  // namespace tarv::segmentation

#endif
