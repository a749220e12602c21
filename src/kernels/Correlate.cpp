#include "kernels/Correlate.h"

#include <algorithm>

#include "kernels/Packet.h"

// Multiplications and additions stay separate operations (no fused multiply-add): GCC by the
// attribute on the kernel, clang by the pragma.
#if defined(__clang__)
#pragma STDC FP_CONTRACT OFF
#define TARV_NO_FP_CONTRACT
#elif defined(__GNUC__)
#define TARV_NO_FP_CONTRACT __attribute__((optimize("fp-contract=off")))
#else
#define TARV_NO_FP_CONTRACT
#endif

namespace tarv::kernels {

namespace {

// The kernel over one packet type. Outputs are computed a block at a time, kRegisters packets side
// by side; a last block that would run past the end is moved back to end with the row, computing
// some outputs a second time, to the same values. Fewer outputs than a block are computed a packet
// at a time and the rest one by one.
//
// Instantiated once per instruction set below, each with that instruction set as its target: the
// packet operations inline only into a function compiled for their instruction set.
template <typename Packet>
TARV_NO_FP_CONTRACT void correlateBlocks(const double* rows, std::size_t rowLength, int rowCount, int taps,
                                         const double* weights, int width, double* out) {
  using V = typename Packet::Type;
  constexpr int kSize = Packet::kSize;
  constexpr int kRegisters = 8;
  constexpr int kBlock = kRegisters * kSize;

  if (width >= kBlock) {
    for (int start = 0; start < width; start += kBlock) {
      const int i = std::min(start, width - kBlock);
      V a[kRegisters];
#pragma GCC unroll 8
      for (int k = 0; k < kRegisters; ++k) a[k] = Packet::zero();
      for (int r = 0; r < rowCount; ++r) {
        const double* row = rows + static_cast<std::size_t>(r) * rowLength + i;
        const double* w = weights + static_cast<std::size_t>(r) * taps;
        for (int x = 0; x < taps; ++x) {
          const V wx = Packet::set1(w[x]);
          const double* s = row + x;
#pragma GCC unroll 8
          for (int k = 0; k < kRegisters; ++k) a[k] = Packet::add(Packet::mul(Packet::load(s + k * kSize), wx), a[k]);
        }
      }
#pragma GCC unroll 8
      for (int k = 0; k < kRegisters; ++k) Packet::store(out + i + k * kSize, a[k]);
    }
    return;
  }

  int i = 0;
  for (; i + kSize <= width; i += kSize) {
    V a = Packet::zero();
    for (int r = 0; r < rowCount; ++r) {
      const double* row = rows + static_cast<std::size_t>(r) * rowLength + i;
      const double* w = weights + static_cast<std::size_t>(r) * taps;
      for (int x = 0; x < taps; ++x) a = Packet::add(Packet::mul(Packet::load(row + x), Packet::set1(w[x])), a);
    }
    Packet::store(out + i, a);
  }
  for (; i < width; ++i) {
    double a = 0.0;
    for (int r = 0; r < rowCount; ++r) {
      const double* row = rows + static_cast<std::size_t>(r) * rowLength + i;
      const double* w = weights + static_cast<std::size_t>(r) * taps;
      for (int x = 0; x < taps; ++x) a = row[x] * w[x] + a;
    }
    out[i] = a;
  }
}

template void correlateBlocks<GenericPacket>(const double*, std::size_t, int, int, const double*, int, double*);
#if defined(__x86_64__) || defined(__i386__)
template __attribute__((target("sse2"))) void correlateBlocks<Sse2Packet>(const double*, std::size_t, int, int,
                                                                          const double*, int, double*);
template __attribute__((target("avx"))) void correlateBlocks<AvxPacket>(const double*, std::size_t, int, int,
                                                                        const double*, int, double*);
#endif

// The kernel of an instruction set this build has and the processor runs.
void correlateSupported(InstructionSet set, const double* rows, std::size_t rowLength, int rowCount, int taps,
                        const double* weights, int width, double* out) {
  switch (set) {
#if defined(__x86_64__) || defined(__i386__)
    case InstructionSet::SSE2:
      correlateBlocks<Sse2Packet>(rows, rowLength, rowCount, taps, weights, width, out);
      return;
    case InstructionSet::AVX:
      correlateBlocks<AvxPacket>(rows, rowLength, rowCount, taps, weights, width, out);
      return;
#endif
    default:
      correlateBlocks<GenericPacket>(rows, rowLength, rowCount, taps, weights, width, out);
      return;
  }
}

}  // namespace

void correlateRowsWith(InstructionSet set, const double* rows, std::size_t rowLength, int rowCount, int taps,
                       const double* weights, int width, double* out) {
  correlateSupported(isSupported(set) ? set : InstructionSet::Generic, rows, rowLength, rowCount, taps, weights, width,
                     out);
}

void correlateRows(const double* rows, std::size_t rowLength, int rowCount, int taps, const double* weights, int width,
                   double* out) {
  correlateSupported(fastestSupported(), rows, rowLength, rowCount, taps, weights, width, out);
}

}  // namespace tarv::kernels
