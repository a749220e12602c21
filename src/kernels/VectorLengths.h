#ifndef TARV_KERNELS_VECTORLENGTHS_H
#define TARV_KERNELS_VECTORLENGTHS_H

#include <cstddef>

#include "kernels/InstructionSets.h"

namespace tarv::kernels {

// lengths[x], for x < count: the Euclidean length of the vector of the n (1 to 4) values
// components[i * count + x], computed as Vector::getLength computes it: divided by the largest
// magnitude, squared and summed from 0.0 in component order, square-rooted and multiplied by the
// largest magnitude; a largest magnitude of zero or infinity gives itself, and a NaN component
// gives that NaN (the first one). Every instruction set gives the same bits.
void vectorLengths(int n, const double* components, std::size_t count, double* lengths);
// With the given instruction set; one that is not supported is replaced by Generic.
void vectorLengthsWith(InstructionSet set, int n, const double* components, std::size_t count, double* lengths);

}  // namespace tarv::kernels

#endif
