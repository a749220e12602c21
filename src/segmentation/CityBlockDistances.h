#ifndef TARV_SEGMENTATION_CITYBLOCKDISTANCES_H
#define TARV_SEGMENTATION_CITYBLOCKDISTANCES_H

// The city-block (6-neighbour, L1) distance transform of a 3D grid.

#include <cstdint>

#include "segmentation/Membership.h"

namespace tarv::segmentation {

// In place over an n[0] x n[1] x n[2] grid, x fastest: from 0 at the targets and cap elsewhere
// to the city-block distance to the nearest target, capped at cap.
void cityBlockDistanceTransform(std::uint16_t* d, const Index n[3], std::uint32_t cap);

}  // namespace tarv::segmentation

#endif
