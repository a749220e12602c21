#ifndef TARV_BULK_PLAINELEMENTS_H
#define TARV_BULK_PLAINELEMENTS_H

#include "dataset/Dataset.h"

namespace tarv::bulk {

// Bulk operations on plain in-memory datasets (Dataset::getPlainElements), with the element types
// dispatched once per call. Each does nothing and answers false for any other dataset.

// The smallest and the largest element as double (not bool), found as updateMinimumAndMaximumValue
// finds them walking the elements in memory order; the last element is left in the element buffer
// as that walk leaves it.
bool findMinimumAndMaximum(Dataset& d, double& minimum, double& maximum);

// For a target that has just been given the box's size: every target element p becomes the source
// element p + box.start, converted to the target's element type as castBufferValue converts (raw
// bytes when the types are equal). Done only for a box inside the source that holds all of its
// components, and types other than bool.
bool copyBoxConverting(Dataset& target, Dataset& source, const DatasetBoundingBox& box);

}  // namespace tarv::bulk

#endif
