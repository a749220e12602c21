#include "dataset/DatasetCalculations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "FilterTestSupport.h"

using namespace tarv;
using tarv::testing::C;

namespace {

// The documented one-dimensional kernels: derivative and smoothing, for 3 points, and for 5
// points in 2D and in 3D.
const std::vector<double> d3 = {-0.5, 0.0, 0.5};
const std::vector<double> s3 = {0.18296875, 0.6340625, 0.18296875};
const std::vector<double> d5of3D = {-0.083515625, -0.33296875, 0.0, 0.33296875, 0.083515625};
const std::vector<double> s5of3D = {0.02328125, 0.2414453125, 0.470546875, 0.2414453125, 0.02328125};
const std::vector<double> d5of2D = {-0.0830859375, -0.333828125, 0.0, 0.333828125, 0.0830859375};
const std::vector<double> s5of2D = {0.0230859375, 0.2412890625, 0.47125, 0.2412890625, 0.0230859375};

// Row n of Pascal's triangle, built by additions.
std::vector<double> pascalRow(int n) {
  std::vector<double> row = {1.0};
  for (int i = 0; i < n; ++i) {
    std::vector<double> next(row.size() + 1, 0.0);
    for (std::size_t k = 0; k < row.size(); ++k) {
      next[k] += row[k];
      next[k + 1] += row[k];
    }
    row = next;
  }
  return row;
}

void expectGradientMask(Dataset* mask, int dimensionality, int direction, const std::vector<double>& d,
                        const std::vector<double>& s) {
  ASSERT_NE(mask, nullptr);
  const int n = static_cast<int>(d.size());
  const int depth = dimensionality == 3 ? n : 1;
  ASSERT_EQ(mask->getSize(), C(n, n, depth, 1, 1));
  EXPECT_EQ(mask->getElementType(), TARV_ELEMENT_TYPE_DOUBLE);
  tarv::testing::forEachVoxel(mask->getSize(), [&](const DatasetCoordinates& p) {
    double expected = 0.0;
    if (dimensionality == 2)
      expected = direction == 0 ? d[p.x] * s[p.y] : s[p.x] * d[p.y];
    else if (direction == 0)
      expected = d[p.x] * s[p.y] * s[p.z];
    else if (direction == 1)
      expected = s[p.x] * d[p.y] * s[p.z];
    else
      expected = s[p.x] * s[p.y] * d[p.z];
    EXPECT_EQ(mask->getElement<double>(p), expected)
        << "dimensionality " << dimensionality << " direction " << direction << " size " << n << " at " << p;
  });
}

}  // namespace

TEST(DatasetCalculationsTest, BinomialThreeByOneByOne) {
  std::unique_ptr<Dataset> mask(DatasetCalculations::getBinomialKernelMask(3, 1, 1));
  ASSERT_NE(mask, nullptr);
  EXPECT_EQ(mask->getSize(), C(3, 1, 1, 1, 1));
  EXPECT_EQ(mask->getElementType(), TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_EQ(mask->getWorldEmbedding(), DatasetWorldEmbedding());
  EXPECT_EQ(mask->getElement<double>(C(0, 0, 0)), 0.25);
  EXPECT_EQ(mask->getElement<double>(C(1, 0, 0)), 0.5);
  EXPECT_EQ(mask->getElement<double>(C(2, 0, 0)), 0.25);
}

TEST(DatasetCalculationsTest, BinomialSingleElementIsOne) {
  std::unique_ptr<Dataset> mask(DatasetCalculations::getBinomialKernelMask(1, 1, 1));
  ASSERT_NE(mask, nullptr);
  EXPECT_EQ(mask->getSize(), C(1, 1, 1, 1, 1));
  EXPECT_EQ(mask->getElement<double>(C(0, 0, 0)), 1.0);
}

TEST(DatasetCalculationsTest, BinomialEvenSizeIsTwoHalves) {
  std::unique_ptr<Dataset> mask(DatasetCalculations::getBinomialKernelMask(2, 1, 1));
  ASSERT_NE(mask, nullptr);
  EXPECT_EQ(mask->getElement<double>(C(0, 0, 0)), 0.5);
  EXPECT_EQ(mask->getElement<double>(C(1, 0, 0)), 0.5);
}

TEST(DatasetCalculationsTest, BinomialIsTheSeparableProductAndSumsToOne) {
  const unsigned seed = 4242;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> extent(1, 12);
  for (int round = 0; round < 20; ++round) {
    const int x = extent(random), y = extent(random), z = extent(random);
    std::unique_ptr<Dataset> mask(DatasetCalculations::getBinomialKernelMask(x, y, z));
    ASSERT_NE(mask, nullptr);
    ASSERT_EQ(mask->getSize(), C(x, y, z, 1, 1));
    const std::vector<double> bx = pascalRow(x - 1), by = pascalRow(y - 1), bz = pascalRow(z - 1);
    double sum = 0.0;
    tarv::testing::forEachVoxel(mask->getSize(), [&](const DatasetCoordinates& p) {
      // Products of small integers are exact, and so is the power of two.
      const double expected = std::ldexp(bx[p.x] * by[p.y] * bz[p.z], 3 - x - y - z);
      const double value = mask->getElement<double>(p);
      EXPECT_EQ(value, expected) << x << "x" << y << "x" << z << " at " << p;
      sum += value;
    });
    EXPECT_EQ(sum, 1.0) << x << "x" << y << "x" << z;
  }
}

TEST(DatasetCalculationsTest, BinomialExtentsAreLimited) {
  EXPECT_EQ(DatasetCalculations::getBinomialKernelMask(0, 1, 1), nullptr);
  EXPECT_EQ(DatasetCalculations::getBinomialKernelMask(1, -3, 1), nullptr);
  EXPECT_EQ(DatasetCalculations::getBinomialKernelMask(1, 1, DatasetCalculations::maximalBinomialKernelSize + 1),
            nullptr);
  EXPECT_EQ(DatasetCalculations::getBinomialKernelMask(2147483647, 2147483647, 2147483647), nullptr);
  const int m = DatasetCalculations::maximalBinomialKernelSize;
  std::unique_ptr<Dataset> widest(DatasetCalculations::getBinomialKernelMask(m, 1, 1));
  ASSERT_NE(widest, nullptr);
  double sum = 0.0;
  for (int x = 0; x < m; ++x) {
    const double v = widest->getElement<double>(C(x, 0, 0));
    EXPECT_TRUE(std::isfinite(v) && v > 0.0) << "x " << x << " holds " << v;
    sum += v;
  }
  EXPECT_NEAR(sum, 1.0, 1e-12);
  EXPECT_EQ(widest->getElement<double>(C(0, 0, 0)), widest->getElement<double>(C(m - 1, 0, 0)));
}

TEST(DatasetCalculationsTest, GradientMasksOfThreePoints) {
  for (int direction = 0; direction < 2; ++direction) {
    std::unique_ptr<Dataset> mask(DatasetCalculations::getGradientCorrelationMask(2, direction, 3));
    expectGradientMask(mask.get(), 2, direction, d3, s3);
  }
  for (int direction = 0; direction < 3; ++direction) {
    std::unique_ptr<Dataset> mask(DatasetCalculations::getGradientCorrelationMask(3, direction, 3));
    expectGradientMask(mask.get(), 3, direction, d3, s3);
  }
}

TEST(DatasetCalculationsTest, GradientMasksOfFivePointsAreTunedPerDimensionality) {
  for (int direction = 0; direction < 2; ++direction) {
    std::unique_ptr<Dataset> mask(DatasetCalculations::getGradientCorrelationMask(2, direction, 5));
    expectGradientMask(mask.get(), 2, direction, d5of2D, s5of2D);
  }
  for (int direction = 0; direction < 3; ++direction) {
    std::unique_ptr<Dataset> mask(DatasetCalculations::getGradientCorrelationMask(3, direction, 5));
    expectGradientMask(mask.get(), 3, direction, d5of3D, s5of3D);
  }
  std::unique_ptr<Dataset> flat(DatasetCalculations::getGradientCorrelationMask(2, 0, 5));
  std::unique_ptr<Dataset> deep(DatasetCalculations::getGradientCorrelationMask(3, 0, 5));
  EXPECT_NE(flat->getElement<double>(C(0, 2, 0)), deep->getElement<double>(C(0, 2, 2)));
}

TEST(DatasetCalculationsTest, GradientMaskIsACorrelationNotAConvolution) {
  std::unique_ptr<Dataset> mask(DatasetCalculations::getGradientCorrelationMask(2, 0, 3));
  EXPECT_LT(mask->getElement<double>(C(0, 1, 0)), 0.0) << "the lowest coordinate carries the negative weight";
  EXPECT_GT(mask->getElement<double>(C(2, 1, 0)), 0.0);
  double sum = 0.0;
  tarv::testing::forEachVoxel(mask->getSize(),
                              [&](const DatasetCoordinates& p) { sum += mask->getElement<double>(p); });
  EXPECT_EQ(sum, 0.0);
}

TEST(DatasetCalculationsTest, UnsupportedGradientMasks) {
  EXPECT_EQ(DatasetCalculations::getGradientCorrelationMask(2, 0, 4), nullptr);
  EXPECT_EQ(DatasetCalculations::getGradientCorrelationMask(3, 0, 1), nullptr);
  EXPECT_EQ(DatasetCalculations::getGradientCorrelationMask(1, 0, 3), nullptr);
  EXPECT_EQ(DatasetCalculations::getGradientCorrelationMask(4, 0, 5), nullptr);
  EXPECT_EQ(DatasetCalculations::getGradientCorrelationMask(-2147483647 - 1, 0, 3), nullptr);
}

TEST(DatasetCalculationsTest, DirectionWithoutAnAxisLeavesZeros) {
  const int cases[][3] = {{2, 2, 3}, {2, -1, 5}, {3, 3, 3}, {3, 99, 5}};
  for (const auto& k : cases) {
    std::unique_ptr<Dataset> mask(DatasetCalculations::getGradientCorrelationMask(k[0], k[1], k[2]));
    ASSERT_NE(mask, nullptr);
    const int depth = k[0] == 3 ? k[2] : 1;
    EXPECT_EQ(mask->getSize(), C(k[2], k[2], depth, 1, 1));
    tarv::testing::forEachVoxel(mask->getSize(), [&](const DatasetCoordinates& p) {
      EXPECT_EQ(mask->getElement<double>(p), 0.0) << "dimensionality " << k[0] << " direction " << k[1] << " at " << p;
    });
  }
}
