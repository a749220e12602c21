#ifndef TARV_BULK_CACHECARRYOVER_H
#define TARV_BULK_CACHECARRYOVER_H

#include "core/DatasetBoundingBox.h"

namespace tarv {
class DatasetMemory;
}

namespace tarv::bulk {

// Copies the computed elements of the box (status true in the old statuses) from the old cache
// memories into the new ones and marks them computed there, run by run along rows. Only for
// array memories (bool statuses, data of one element type other than bool) whose rows hold all
// components of the box; false, with nothing done, otherwise.
bool carryComputedRuns(const DatasetMemory& oldData, const DatasetMemory& oldStatuses, DatasetMemory& newData,
                       DatasetMemory& newStatuses, const DatasetBoundingBox& box);

}  // namespace tarv::bulk

#endif
