#include "kernels/Correlate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iomanip>
#include <iostream>
#include <limits>
#include <random>
#include <sstream>
#include <string>
#include <vector>

// The plain loop below must not be contracted to fused multiply-adds either.
#if defined(__clang__)
#pragma STDC FP_CONTRACT OFF
#endif

using tarv::kernels::InstructionSet;

namespace {

const InstructionSet kAllSets[] = {InstructionSet::Generic, InstructionSet::SSE2, InstructionSet::AVX};

std::string nameOf(InstructionSet set) {
  switch (set) {
    case InstructionSet::Generic:
      return "Generic";
    case InstructionSet::SSE2:
      return "SSE2";
    case InstructionSet::AVX:
      return "AVX";
  }
  return "?";
}

#if defined(__GNUC__) && !defined(__clang__)
__attribute__((optimize("fp-contract=off")))
#endif
void plainLoop(const double* rows, std::size_t rowLength, int rowCount, int taps, const double* weights, int width,
               double* out) {
  for (int i = 0; i < width; ++i) {
    double a = 0.0;
    for (int r = 0; r < rowCount; ++r) {
      const double* row = rows + static_cast<std::size_t>(r) * rowLength + i;
      const double* w = weights + static_cast<std::size_t>(r) * taps;
      for (int x = 0; x < taps; ++x) a = row[x] * w[x] + a;
    }
    out[i] = a;
  }
}

// Zeros of both signs, huge values (products overflow to infinity, sums of opposite infinities give
// NaN), tiny ones down to subnormals, rare infinities, and ordinary values of mixed magnitude, so
// that any change in the order or rounding of the operations shows in the bits. No NaN inputs: with
// two NaN operands the one passed on is not fixed.
double randomValue(std::mt19937_64& rng) {
  std::uniform_int_distribution<int> kind(0, 63);
  std::uniform_real_distribution<double> mantissa(1.0, 2.0);
  const double sign = (rng() & 1) != 0 ? -1.0 : 1.0;
  const int k = kind(rng);
  if (k < 4) return sign * 0.0;
  if (k < 8) return sign * std::ldexp(mantissa(rng), std::uniform_int_distribution<int>(1000, 1023)(rng));
  if (k < 12) return sign * std::ldexp(mantissa(rng), std::uniform_int_distribution<int>(-1074, -1000)(rng));
  if (k < 13) return sign * std::numeric_limits<double>::infinity();
  return sign * std::ldexp(mantissa(rng), std::uniform_int_distribution<int>(-30, 30)(rng));
}

std::string hexBits(double v) {
  std::uint64_t bits;
  std::memcpy(&bits, &v, sizeof bits);
  std::ostringstream os;
  os << std::hex << std::setw(16) << std::setfill('0') << bits << " (" << v << ")";
  return os.str();
}

struct Case {
  int width, taps, rowCount;
  std::size_t rowLength;
  std::size_t rowsOffset, outOffset;  // misalignment, in doubles
  std::vector<double> rows, weights;
};

constexpr std::size_t kGuard = 8;
const double kSentinel = std::numeric_limits<double>::quiet_NaN();

// Padding between and after the rows holds NaN: an output that read past its row would show it.
Case makeCase(std::mt19937_64& rng, int width, int taps, int rowCount) {
  Case c{width, taps, rowCount, 0, rng() % 4, rng() % 4, {}, {}};
  const std::size_t needed = static_cast<std::size_t>(width + (taps > 0 ? taps - 1 : 0));
  c.rowLength = needed + rng() % 3;
  const std::size_t extent = rowCount > 0 ? (rowCount - 1) * c.rowLength + needed : 0;
  c.rows.assign(c.rowsOffset + extent + kGuard, kSentinel);
  for (int r = 0; r < rowCount; ++r)
    for (std::size_t j = 0; j < needed; ++j) c.rows[c.rowsOffset + r * c.rowLength + j] = randomValue(rng);
  c.weights.resize(static_cast<std::size_t>(rowCount) * taps);
  for (double& w : c.weights) w = randomValue(rng);
  return c;
}

// The outputs of the kernel, with guards around them that must stay untouched.
std::vector<double> outputBuffer(const Case& c) {
  return std::vector<double>(c.outOffset + static_cast<std::size_t>(c.width) + 2 * kGuard, -12345.0);
}

double* outputsIn(std::vector<double>& buffer, const Case& c) { return buffer.data() + kGuard + c.outOffset; }

void expectSameBits(const std::vector<double>& expected, const std::vector<double>& actual, const Case& c) {
  ASSERT_EQ(expected.size(), actual.size());
  if (std::memcmp(expected.data(), actual.data(), expected.size() * sizeof(double)) == 0) return;
  for (std::size_t j = 0; j < expected.size(); ++j) {
    if (std::memcmp(&expected[j], &actual[j], sizeof(double)) == 0) continue;
    const long long i = static_cast<long long>(j) - static_cast<long long>(kGuard + c.outOffset);
    ADD_FAILURE() << (i >= 0 && i < c.width ? "output " : "outside the outputs, at ") << i << ": expected "
                  << hexBits(expected[j]) << ", got " << hexBits(actual[j]);
    return;
  }
}

std::vector<std::uint64_t> seeds() {
  if (const char* fixed = std::getenv("TARV_KERNELS_SEED")) return {std::strtoull(fixed, nullptr, 10)};
  return {1, 2, 3, std::random_device{}()};
}

// Runs compute on random cases of every width 0..100 and several tap and row counts, and compares
// it with the plain loop bit for bit.
template <typename Compute>
void compareWithPlainLoop(Compute compute) {
  const int tapCounts[] = {0, 1, 2, 3, 5, 8, 13};
  const int rowCounts[] = {0, 1, 2, 3, 7};
  for (std::uint64_t seed : seeds()) {
    SCOPED_TRACE("seed " + std::to_string(seed) + " (rerun with TARV_KERNELS_SEED=" + std::to_string(seed) + ")");
    std::mt19937_64 rng(seed);
    for (int width = 0; width <= 100; ++width)
      for (int taps : tapCounts)
        for (int rowCount : rowCounts) {
          const Case c = makeCase(rng, width, taps, rowCount);
          SCOPED_TRACE("width " + std::to_string(width) + ", taps " + std::to_string(taps) + ", rows " +
                       std::to_string(rowCount) + ", row length " + std::to_string(c.rowLength));
          std::vector<double> expected = outputBuffer(c);
          std::vector<double> actual = expected;
          const double* rows = c.rows.data() + c.rowsOffset;
          plainLoop(rows, c.rowLength, rowCount, taps, c.weights.data(), width, outputsIn(expected, c));
          compute(rows, c.rowLength, rowCount, taps, c.weights.data(), width, outputsIn(actual, c));
          expectSameBits(expected, actual, c);
          if (::testing::Test::HasFailure()) return;
        }
  }
}

}  // namespace

TEST(KernelsCorrelateTest, GenericIsAlwaysSupported) {
  EXPECT_TRUE(tarv::kernels::isSupported(InstructionSet::Generic));
#if defined(__x86_64__)
  EXPECT_TRUE(tarv::kernels::isSupported(InstructionSet::SSE2));
#elif !defined(__i386__)
  EXPECT_FALSE(tarv::kernels::isSupported(InstructionSet::SSE2));
  EXPECT_FALSE(tarv::kernels::isSupported(InstructionSet::AVX));
#endif
}

TEST(KernelsCorrelateTest, EveryInstructionSetMatchesThePlainLoopBitForBit) {
  for (InstructionSet set : kAllSets) {
    if (!tarv::kernels::isSupported(set)) {
      std::cout << "[ SKIPPED  ] " << nameOf(set) << ": not supported here\n";
      continue;
    }
    SCOPED_TRACE(nameOf(set));
    compareWithPlainLoop([set](const double* rows, std::size_t rowLength, int rowCount, int taps, const double* weights,
                               int width, double* out) {
      tarv::kernels::correlateRowsWith(set, rows, rowLength, rowCount, taps, weights, width, out);
    });
    if (HasFailure()) return;
  }
}

TEST(KernelsCorrelateTest, DefaultChoiceMatchesThePlainLoopBitForBit) {
  compareWithPlainLoop(tarv::kernels::correlateRows);
}

TEST(KernelsCorrelateTest, UnsupportedInstructionSetFallsBackToGeneric) {
  for (InstructionSet set : kAllSets) {
    if (tarv::kernels::isSupported(set)) continue;
    SCOPED_TRACE(nameOf(set));
    compareWithPlainLoop([set](const double* rows, std::size_t rowLength, int rowCount, int taps, const double* weights,
                               int width, double* out) {
      tarv::kernels::correlateRowsWith(set, rows, rowLength, rowCount, taps, weights, width, out);
    });
  }
}

// Large magnitudes cancelling: the sum depends on the order of the additions, so a reordering
// (or a fused multiply-add) would show.
TEST(KernelsCorrelateTest, OrderOfAdditionsIsKept) {
  const int width = 70, taps = 3;
  std::vector<double> rows(width + taps - 1);
  for (std::size_t j = 0; j < rows.size(); ++j) rows[j] = j % 3 == 0 ? 1e16 : (j % 3 == 1 ? 1.0 : -1e16);
  const double weights[taps] = {1.0, 1.0 + 0x1p-52, 1.0};
  std::vector<double> expected(width);
  plainLoop(rows.data(), rows.size(), 1, taps, weights, width, expected.data());
  for (InstructionSet set : kAllSets) {
    SCOPED_TRACE(nameOf(set));
    std::vector<double> actual(width);
    tarv::kernels::correlateRowsWith(set, rows.data(), rows.size(), 1, taps, weights, width, actual.data());
    for (int i = 0; i < width; ++i) EXPECT_EQ(hexBits(expected[i]), hexBits(actual[i])) << "output " << i;
  }
  // In tap order the first output is 1e16, then 1e16 + 2 (rounded), then 2; the exact sum is 1 + 2^-52.
  EXPECT_EQ(expected[0], 2.0);
}
