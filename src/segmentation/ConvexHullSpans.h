#ifndef TARV_SEGMENTATION_CONVEXHULLSPANS_H
#define TARV_SEGMENTATION_CONVEXHULLSPANS_H

// The convex hull pass of BinarySegmentations::fillConvexHull.

#include "dataset/Dataset.h"

namespace tarv::segmentation {

// For each time step of a 2D or 3D dataset holding data: the convex hull of the object voxels
// (component 0) and, for every column parallel to the last axis, the span of the column inside
// it; every span voxel that reads false is written false again. May throw std::bad_alloc.
void fillConvexHullSpans(Dataset* segmentation);

}  // namespace tarv::segmentation

#endif
