#ifndef TARV_ANALYSIS_MAXIMUMVALUEPOSITIONS_H
#define TARV_ANALYSIS_MAXIMUMVALUEPOSITIONS_H

// The spaced maxima of one time step (Dataset::getMaximumValueWorldCoordinatesList).

#include <list>

#include "core/Vector3D.h"
#include "dataset/Dataset.h"

namespace tarv::analysis {

// World positions of up to count largest values of time step t (component 0), each at least
// minDistance voxels (positive) from the ones chosen before; t is inside the dataset. Each round
// takes the greatest value, the first of equal ones in scan order (z outermost, x innermost),
// among the voxels not too close to those chosen before. Empty when memory runs out.
std::list<Vector3D> spacedMaximumWorldPositions(Dataset& d, int count, double minDistance, int t);

}  // namespace tarv::analysis

#endif
