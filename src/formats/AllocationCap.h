#ifndef TARV_FORMATS_ALLOCATIONCAP_H
#define TARV_FORMATS_ALLOCATIONCAP_H

// The most memory the readers of the format registry allocate for the elements that a file's
// header claims. A header is checked against it before anything is allocated, so that a file of a
// few bytes claiming a huge volume is refused at once instead of exhausting the machine.

#include <cstddef>
#include <cstdint>

#include "core/DatasetCoordinates.h"
#include "dataset/DatasetMemory.h"
#include "status/Status.h"

namespace tarv::formats {

// The cap in bytes: by default three quarters of the machine's physical memory.
std::size_t getAllocationCap();
// 0 restores the default. Applies to every reader from the next read on (all threads).
void setAllocationCap(std::size_t bytes);

// Unsupported for 2^31 elements or more (what a dataset can hold); resource exhausted when the
// elements of the type need more bytes than the cap: "512 x 512 x 4000 int16 elements need
// 2.1 GB, more than the allocation cap of 1.07 GB".
Status checkAllocation(const DatasetCoordinates& size, TARVElementType type);
Status checkAllocation(std::int64_t elements, TARVElementType type);

}  // namespace tarv::formats

#endif
