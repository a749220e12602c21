#include "kernels/VectorLengths.h"

#include <cmath>

#include "kernels/Packet.h"

namespace tarv::kernels {

namespace {

// One function per instruction set, everything inlined into it (a helper without the set as its
// target could not take the packet operations).
template <class P>
void lengthsFor(int n, const double* components, std::size_t count, double* lengths) {
  using T = typename P::Type;
  std::size_t x = 0;
  for (; x + P::kSize <= count; x += P::kSize) {
    T largest = P::zero();
    for (int i = 0; i < n; ++i) largest = P::max(P::abs(P::load(components + i * count + x)), largest);
    T sum = P::zero();
    for (int i = 0; i < n; ++i) {
      const T q = P::div(P::load(components + i * count + x), largest);
      sum = P::add(sum, P::mul(q, q));
    }
    P::store(lengths + x, P::mul(largest, P::sqrt(sum)));
  }
  for (; x < count; ++x) {
    double largest = 0.0;
    for (int i = 0; i < n; ++i) {
      const double m = std::fabs(components[i * count + x]);
      largest = m > largest ? m : largest;
    }
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
      const double q = components[i * count + x] / largest;
      sum = sum + q * q;
    }
    lengths[x] = largest * std::sqrt(sum);
  }
  // The special answers, where the scaled sum does not apply.
  for (x = 0; x < count; ++x) {
    double largest = 0.0;
    for (int i = 0; i < n; ++i) {
      const double m = std::fabs(components[i * count + x]);
      largest = m > largest ? m : largest;
    }
    if (!(largest > 0.0) || std::isinf(largest)) {
      lengths[x] = largest;
      for (int i = n - 1; i >= 0; --i)
        if (std::isnan(components[i * count + x])) lengths[x] = components[i * count + x];
    }
  }
}

// Instantiated once per instruction set, each with that set as its target.
template void lengthsFor<GenericPacket>(int, const double*, std::size_t, double*);
#if defined(__x86_64__) || defined(__i386__)
template __attribute__((target("sse2"))) void lengthsFor<Sse2Packet>(int, const double*, std::size_t, double*);
template __attribute__((target("avx"))) void lengthsFor<AvxPacket>(int, const double*, std::size_t, double*);
#endif

void lengthsSupported(InstructionSet set, int n, const double* components, std::size_t count, double* lengths) {
  if (n < 1 || n > 4) return;
  switch (set) {
#if defined(__x86_64__) || defined(__i386__)
    case InstructionSet::SSE2: lengthsFor<Sse2Packet>(n, components, count, lengths); return;
    case InstructionSet::AVX: lengthsFor<AvxPacket>(n, components, count, lengths); return;
#endif
    default: lengthsFor<GenericPacket>(n, components, count, lengths); return;
  }
}

}  // namespace

void vectorLengths(int n, const double* components, std::size_t count, double* lengths) {
  lengthsSupported(fastestSupported(), n, components, count, lengths);
}

void vectorLengthsWith(InstructionSet set, int n, const double* components, std::size_t count, double* lengths) {
  lengthsSupported(isSupported(set) ? set : InstructionSet::Generic, n, components, count, lengths);
}

}  // namespace tarv::kernels
