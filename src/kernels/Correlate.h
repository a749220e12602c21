#ifndef TARV_KERNELS_CORRELATE_H
#define TARV_KERNELS_CORRELATE_H

#include <cstddef>

#include "kernels/InstructionSets.h"

namespace tarv::kernels {

// out[i], for 0 <= i < width: the sum, from 0.0 and in tap order, of rows[r * rowLength + i + x] *
// weights[r * taps + x] over the rows r < rowCount and the taps x < taps of each row. Every output
// gets exactly the double multiplications and additions of the plain loop a = row[x] * w[x] + a
// (never fused), so all instruction sets give the same bits; only neighbouring outputs share a
// register. (Which of two NaN operands an addition passes on is the compiler's and processor's
// choice: NaN results may differ in sign and payload, nothing else.) Each row needs
// width + taps - 1 readable values; out must not overlap rows or weights.
void correlateRows(const double* rows, std::size_t rowLength, int rowCount, int taps, const double* weights, int width,
                   double* out);

// It takes the fastest supported instruction set (InstructionSets.h); correlateRows with the given instruction set; one that is not supported is replaced by Generic.
void correlateRowsWith(InstructionSet set, const double* rows, std::size_t rowLength, int rowCount, int taps,
                       const double* weights, int width, double* out);

}  // namespace tarv::kernels

#endif
