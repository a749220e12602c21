#ifndef TARV_SEGMENTATION_MEMBERSHIP_H
#define TARV_SEGMENTATION_MEMBERSHIP_H

// Membership of an element in a binary segmentation, as bits.

#include <cmath>
#include <cstdint>

#include "dataset/DatasetMemory.h"

namespace tarv::segmentation {

using Index = std::int64_t;

// Membership bits of one element.
constexpr unsigned char readsTrue = 1;  // getElement<bool> gives true
constexpr unsigned char nonZero = 2;    // the value as double is non-zero or NaN
constexpr unsigned char border = 4;     // non-zero with a face neighbour that is zero or outside

inline bool isNonZero(double v) { return v < 0.0 || v > 0.0 || std::isnan(v); }

inline unsigned char membershipOfBuffer(const void* buffer, TARVElementType type) {
  return static_cast<unsigned char>((DatasetMemory::getBufferValue<bool>(buffer, type) ? readsTrue : 0) |
                                    (isNonZero(DatasetMemory::getBufferValue<double>(buffer, type)) ? nonZero : 0));
}

template <ElementValueType T>
unsigned char membershipOfValue(T v) {
  return static_cast<unsigned char>((convertElementValue<bool>(v) ? readsTrue : 0) |
                                    (isNonZero(convertElementValue<double>(v)) ? nonZero : 0));
}

}  // namespace tarv::segmentation

#endif
