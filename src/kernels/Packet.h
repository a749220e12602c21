#ifndef TARV_KERNELS_PACKET_H
#define TARV_KERNELS_PACKET_H

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace tarv::kernels {

// Packets: a register of kSize doubles (Type) and the operations on it. Loads and stores are
// unaligned; add, mul, div and sqrt are single IEEE operations on each lane, never fused; max(a, b)
// is a > b ? a : b on each lane (b when either is NaN); abs clears the sign bit.
//
// Kernels are templates over the packet; an instantiation for an instruction set needs that
// instruction set as its target (see Correlate.cpp).

// One double: builds everywhere.
struct GenericPacket {
  using Type = double;
  static constexpr int kSize = 1;

  [[gnu::always_inline]] static Type zero() { return 0.0; }
  [[gnu::always_inline]] static Type load(const double* p) { return *p; }
  [[gnu::always_inline]] static void store(double* p, Type a) { *p = a; }
  [[gnu::always_inline]] static Type set1(double v) { return v; }
  [[gnu::always_inline]] static Type add(Type a, Type b) { return a + b; }
  [[gnu::always_inline]] static Type mul(Type a, Type b) { return a * b; }
  [[gnu::always_inline]] static Type div(Type a, Type b) { return a / b; }
  [[gnu::always_inline]] static Type sqrt(Type a) { return __builtin_sqrt(a); }
  [[gnu::always_inline]] static Type max(Type a, Type b) { return a > b ? a : b; }
  [[gnu::always_inline]] static Type abs(Type a) { return __builtin_fabs(a); }
};

#if defined(__x86_64__) || defined(__i386__)

// Two doubles in a 128-bit register.
struct Sse2Packet {
  using Type = __m128d;
  static constexpr int kSize = 2;

  [[gnu::always_inline, gnu::target("sse2")]] static Type zero() { return _mm_setzero_pd(); }
  [[gnu::always_inline, gnu::target("sse2")]] static Type load(const double* p) { return _mm_loadu_pd(p); }
  [[gnu::always_inline, gnu::target("sse2")]] static void store(double* p, Type a) { _mm_storeu_pd(p, a); }
  [[gnu::always_inline, gnu::target("sse2")]] static Type set1(double v) { return _mm_set1_pd(v); }
  [[gnu::always_inline, gnu::target("sse2")]] static Type add(Type a, Type b) { return _mm_add_pd(a, b); }
  [[gnu::always_inline, gnu::target("sse2")]] static Type mul(Type a, Type b) { return _mm_mul_pd(a, b); }
  [[gnu::always_inline, gnu::target("sse2")]] static Type div(Type a, Type b) { return _mm_div_pd(a, b); }
  [[gnu::always_inline, gnu::target("sse2")]] static Type sqrt(Type a) { return _mm_sqrt_pd(a); }
  [[gnu::always_inline, gnu::target("sse2")]] static Type max(Type a, Type b) { return _mm_max_pd(a, b); }
  [[gnu::always_inline, gnu::target("sse2")]] static Type abs(Type a) { return _mm_andnot_pd(_mm_set1_pd(-0.0), a); }
};

// Four doubles in a 256-bit register.
struct AvxPacket {
  using Type = __m256d;
  static constexpr int kSize = 4;

  [[gnu::always_inline, gnu::target("avx")]] static Type zero() { return _mm256_setzero_pd(); }
  [[gnu::always_inline, gnu::target("avx")]] static Type load(const double* p) { return _mm256_loadu_pd(p); }
  [[gnu::always_inline, gnu::target("avx")]] static void store(double* p, Type a) { _mm256_storeu_pd(p, a); }
  [[gnu::always_inline, gnu::target("avx")]] static Type set1(double v) { return _mm256_set1_pd(v); }
  [[gnu::always_inline, gnu::target("avx")]] static Type add(Type a, Type b) { return _mm256_add_pd(a, b); }
  [[gnu::always_inline, gnu::target("avx")]] static Type mul(Type a, Type b) { return _mm256_mul_pd(a, b); }
  [[gnu::always_inline, gnu::target("avx")]] static Type div(Type a, Type b) { return _mm256_div_pd(a, b); }
  [[gnu::always_inline, gnu::target("avx")]] static Type sqrt(Type a) { return _mm256_sqrt_pd(a); }
  [[gnu::always_inline, gnu::target("avx")]] static Type max(Type a, Type b) { return _mm256_max_pd(a, b); }
  [[gnu::always_inline, gnu::target("avx")]] static Type abs(Type a) {
    return _mm256_andnot_pd(_mm256_set1_pd(-0.0), a);
  }
};

#endif

}  // namespace tarv::kernels

#endif
