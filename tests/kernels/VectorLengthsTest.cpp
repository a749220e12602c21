#include "kernels/VectorLengths.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "core/Vector.h"

using tarv::kernels::InstructionSet;

namespace {

const InstructionSet kAllSets[] = {InstructionSet::Generic, InstructionSet::SSE2, InstructionSet::AVX};

// Values of every kind: zeros of both signs, huge (squares overflow unless scaled), tiny down to
// subnormals, infinities and NaN now and then, and ordinary values.
double randomValue(std::mt19937_64& rng) {
  std::uniform_int_distribution<int> kind(0, 19);
  std::uniform_real_distribution<double> ordinary(-1000.0, 1000.0);
  switch (kind(rng)) {
    case 0: return 0.0;
    case 1: return -0.0;
    case 2: return ordinary(rng) * 1e305;
    case 3: return ordinary(rng) * 1e-310;
    case 4: return std::numeric_limits<double>::infinity();
    case 5: return -std::numeric_limits<double>::infinity();
    case 6: return std::nan("");
    default: return ordinary(rng);
  }
}

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof(double)) == 0; }

}  // namespace

// Every instruction set gives Vector::getLength of each vector, bit for bit (a NaN result only
// needs to be NaN: which NaN operand an operation passes on is not fixed).
TEST(VectorLengthsTest, EveryInstructionSetEqualsTheVectorLength) {
  std::mt19937_64 rng(7);
  for (int n = 1; n <= 4; ++n)
    for (std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{3}, std::size_t{4}, std::size_t{5},
                              std::size_t{17}, std::size_t{64}, std::size_t{203}}) {
      std::vector<double> components(static_cast<std::size_t>(n) * count + 1);
      for (double& v : components) v = randomValue(rng);
      // Start one past an aligned block: loads are unaligned.
      const double* data = components.data() + 1;
      std::vector<double> expected(count);
      for (std::size_t x = 0; x < count; ++x) {
        tarv::Vector v(static_cast<unsigned>(n));
        for (int i = 0; i < n; ++i) v[static_cast<unsigned>(i)] = data[static_cast<std::size_t>(i) * count + x];
        expected[x] = v.getLength();
      }
      for (InstructionSet set : kAllSets) {
        SCOPED_TRACE("n " + std::to_string(n) + ", count " + std::to_string(count) + ", set " +
                     std::to_string(static_cast<int>(set)) +
                     (tarv::kernels::isSupported(set) ? "" : " (not supported here: generic)"));
        std::vector<double> lengths(count + 1, -1.0);
        tarv::kernels::vectorLengthsWith(set, n, data, count, lengths.data());
        for (std::size_t x = 0; x < count; ++x) {
          if (std::isnan(expected[x])) {
            EXPECT_TRUE(std::isnan(lengths[x])) << "x " << x;
            continue;
          }
          EXPECT_TRUE(sameBits(lengths[x], expected[x])) << "x " << x << ": " << lengths[x] << " expected "
                                                          << expected[x];
        }
        EXPECT_EQ(lengths[count], -1.0) << "wrote past the end";
      }
    }
}
