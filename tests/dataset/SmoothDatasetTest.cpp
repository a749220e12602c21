#include "dataset/SmoothDataset.h"
#include "engine/Evaluation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "FilterTestSupport.h"
#include "MaskReference.h"
#include "RowComparison.h"
#include "dataset/DatasetCalculations.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;
using tarv::testing::CountingSource;

namespace {

struct Parameters {
  int x = -1, y = -1, z = -1;
  double margin = -1.0;
};

Parameters parametersOf(const SmoothDataset& d) {
  Parameters p;
  d.getParameters(p.x, p.y, p.z, p.margin);
  return p;
}

const int maximal = DatasetCalculations::maximalBinomialKernelSize;

}  // namespace

TEST(SmoothDatasetTest, FreshDatasetHasDefaults) {
  SmoothDataset d;
  const Parameters p = parametersOf(d);
  EXPECT_EQ(d.getTypeName(), "SmoothDataset");
  EXPECT_EQ(p.x, 1);
  EXPECT_EQ(p.y, 1);
  EXPECT_EQ(p.z, 1);
  EXPECT_EQ(p.margin, 0.0);
  ASSERT_NE(d.getMask(), nullptr);
  EXPECT_EQ(d.getMask()->getSize(), C(1, 1, 1, 1, 1));
  EXPECT_EQ(d.getMaskCentre(), C(0, 0, 0));
}

TEST(SmoothDatasetTest, SingleElementMaskIsTheIdentityWithoutMargin) {
  const unsigned seed = 8;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(-1e6, 1e6);
  Dataset source(true);
  source.newDataset<double>(C(4, 3, 2, 2, 1), DatasetWorldEmbedding());
  tarv::testing::fill(source, [&](const DatasetCoordinates&) { return value(random); });
  SmoothDataset d;
  d.setSourceDataset(&source);
  d.setParameters(1, 1, 1, 12345.0);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  tarv::testing::forEachVoxel(d.getSize(), [&](const DatasetCoordinates& p) {
    EXPECT_EQ(d.getElement<double>(p), tarv::testing::asStoredFloat(source.getElement<double>(p))) << "at " << p;
  });
}

TEST(SmoothDatasetTest, ThreePointMaskWeighsAQuarterAHalfAQuarter) {
  Dataset source(true);
  source.newDataset<short>(C(5, 1, 1, 1, 1), DatasetWorldEmbedding());
  const short values[5] = {4, 8, 0, 16, 4};
  for (int x = 0; x < 5; ++x) source.setElement<short>(C(x, 0, 0), values[x]);
  SmoothDataset d;
  d.setSourceDataset(&source);
  d.setParameters(3, 1, 1, -1.0);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), -1.0);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), 5.0);
  EXPECT_EQ(d.getElement<double>(C(2, 0, 0)), 6.0);
  EXPECT_EQ(d.getElement<double>(C(3, 0, 0)), 9.0);
  EXPECT_EQ(d.getElement<double>(C(4, 0, 0)), -1.0);
}

TEST(SmoothDatasetTest, MaskOfTwoAveragesAnElementWithItsRightNeighbour) {
  Dataset source(true);
  source.newDataset<float>(C(4, 2, 1, 1, 1), DatasetWorldEmbedding());
  tarv::testing::fill(source, [](const DatasetCoordinates& p) { return p.x * p.x + 10.0 * p.y; });
  SmoothDataset d;
  d.setSourceDataset(&source);
  d.setParameters(2, 1, 1, 77.0);
  // Mask (0.5, 0.5) with centre 0: the element at x averages x and x + 1, and the last column
  // has no x + 1.
  EXPECT_EQ(d.getMaskCentre(), C(0, 0, 0));
  EXPECT_EQ(d.getMask()->getElement<double>(C(0, 0, 0)), 0.5);
  EXPECT_EQ(d.getMask()->getElement<double>(C(1, 0, 0)), 0.5);
  for (int y = 0; y < 2; ++y) {
    EXPECT_EQ(d.getElement<double>(C(3, y, 0)), 77.0) << "last column, y " << y;
    for (int x = 0; x < 3; ++x)
      EXPECT_EQ(d.getElement<double>(C(x, y, 0)), 0.5 * (x * x) + 0.5 * ((x + 1) * (x + 1)) + 10.0 * y)
          << "x " << x << " y " << y;
  }
}

TEST(SmoothDatasetTest, AgreesWithAPlainLoopToTheLastBit) {
  const unsigned seed = 271828;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> sourceExtent(1, 12);
  std::uniform_int_distribution<int> maskExtent(1, 6);
  std::uniform_real_distribution<double> value(-500.0, 500.0);
  for (int round = 0; round < 24; ++round) {
    Dataset source(true);
    const DatasetCoordinates size(sourceExtent(random), sourceExtent(random), sourceExtent(random), 1 + round % 2, 1);
    if (round % 3 == 0)
      source.newDataset<short>(size, DatasetWorldEmbedding());
    else
      source.newDataset<double>(size, DatasetWorldEmbedding());
    tarv::testing::fill(source, [&](const DatasetCoordinates&) { return value(random); });
    const int mx = maskExtent(random), my = maskExtent(random), mz = maskExtent(random);
    const double margin = value(random);
    SmoothDataset d;
    d.setSourceDataset(&source);
    d.setParameters(mx, my, mz, margin);
    const tarv::testing::PlainMask mask = tarv::testing::binomialMask(mx, my, mz);
    EXPECT_EQ(d.getMaskCentre(), mask.centre());
    tarv::testing::forEachVoxel(size, [&](const DatasetCoordinates& p) {
      const double expected = tarv::testing::correlateByLoop(source, mask, p, margin);
      EXPECT_EQ(d.getElement<double>(p), tarv::testing::asStoredFloat(expected))
          << "mask " << mx << "x" << my << "x" << mz << " source " << size << " at " << p;
    });
  }
}

TEST(SmoothDatasetTest, MarginAtEveryFaceForOddAndEvenMasks) {
  Dataset source(true);
  const DatasetCoordinates size(10, 9, 8, 1, 1);
  source.newDataset<float>(size, DatasetWorldEmbedding());
  tarv::testing::fill(source, [](const DatasetCoordinates& p) { return 1.0 + p.x + p.y + p.z; });
  const double margin = -4242.0;
  const int masks[3][3] = {{3, 5, 3}, {4, 2, 5}, {2, 6, 1}};
  for (const auto& m : masks) {
    SmoothDataset d;
    d.setSourceDataset(&source);
    d.setParameters(m[0], m[1], m[2], margin);
    // Computed where centre <= p <= size - extent + centre, per axis.
    int low[3], high[3];
    for (int k = 0; k < 3; ++k) {
      low[k] = (m[k] - 1) / 2;
      high[k] = size[k] - m[k] + (m[k] - 1) / 2;
    }
    int faceVoxels[6] = {};
    tarv::testing::forEachVoxel(size, [&](const DatasetCoordinates& p) {
      bool outside = false;
      for (int k = 0; k < 3; ++k) {
        if (p[k] < low[k]) ++faceVoxels[2 * k], outside = true;
        if (p[k] > high[k]) ++faceVoxels[2 * k + 1], outside = true;
      }
      const double v = d.getElement<double>(p);
      if (outside)
        EXPECT_EQ(v, margin) << "mask " << m[0] << "x" << m[1] << "x" << m[2] << " outside at " << p;
      else
        EXPECT_GT(v, 0.0) << "mask " << m[0] << "x" << m[1] << "x" << m[2] << " inside at " << p;
    });
    // A face has margin voxels exactly when the mask reaches beyond its centre towards it; an
    // even extent reaches one voxel less downwards.
    for (int k = 0; k < 3; ++k) {
      EXPECT_EQ(faceVoxels[2 * k] > 0, (m[k] - 1) / 2 > 0)
          << "mask " << m[0] << "x" << m[1] << "x" << m[2] << " lower face " << k;
      EXPECT_EQ(faceVoxels[2 * k + 1] > 0, m[k] - 1 - (m[k] - 1) / 2 > 0)
          << "mask " << m[0] << "x" << m[1] << "x" << m[2] << " upper face " << k;
    }
  }
}

TEST(SmoothDatasetTest, SetParametersRepairsAndCapsTheSizes) {
  SmoothDataset d;
  d.setParameters(0, -5, 2, 1.5);
  Parameters p = parametersOf(d);
  EXPECT_EQ(p.x, 1);
  EXPECT_EQ(p.y, 1);
  EXPECT_EQ(p.z, 2);
  EXPECT_EQ(p.margin, 1.5);
  EXPECT_EQ(d.getMask()->getSize(), C(1, 1, 2, 1, 1));
  EXPECT_EQ(d.getMaskCentre(), C(0, 0, 0)) << "an even extent of 2 has its centre on the first element";
  d.setParameters(2147483647, maximal + 1, -2147483647 - 1, 0.0);
  p = parametersOf(d);
  EXPECT_EQ(p.x, maximal);
  EXPECT_EQ(p.y, maximal);
  EXPECT_EQ(p.z, 1);
  ASSERT_NE(d.getMask(), nullptr);
  EXPECT_EQ(d.getMask()->getSize(), C(maximal, maximal, 1, 1, 1));
  EXPECT_EQ(d.getMaskCentre(), C(maximal / 2, maximal / 2, 0));
}

TEST(SmoothDatasetTest, ParameterChangeWithdrawsComputedElements) {
  Dataset source(true);
  source.newDataset<float>(C(5, 5, 5, 1, 1), DatasetWorldEmbedding());
  tarv::testing::fill(source, [](const DatasetCoordinates& p) { return p.x; });
  Counted<SmoothDataset> d;
  d.setSourceDataset(&source);
  d.setParameters(3, 3, 3, 0.0);
  EXPECT_EQ(d.getElement<double>(C(2, 2, 2)), 2.0);
  EXPECT_EQ(d.getElement<double>(C(2, 2, 2)), 2.0);
  EXPECT_EQ(d.calculations, 1);
  d.setParameters(3, 3, 3, 5.0);
  EXPECT_EQ(d.getElement<double>(C(0, 2, 2)), 5.0);
  EXPECT_EQ(d.getElement<double>(C(2, 2, 2)), 2.0);
  EXPECT_EQ(d.calculations, 3);
}

TEST(SmoothDatasetTest, AcceptsExactlyOneSourceAndAnnouncesNothingToIt) {
  CountingSource a;
  Dataset b(true);
  a.newDataset<float>(C(12, 12, 12, 1, 1), DatasetWorldEmbedding());
  b.newDataset<float>(C(12, 12, 12, 1, 1), DatasetWorldEmbedding());
  SmoothDataset d;
  d.setSourceDatasets({&a, &b});
  EXPECT_FALSE(d.isInputOk());
  d.setSourceDataset(&a);
  d.setParameters(5, 3, 1, 0.0);
  a.resetCounters();
  const DatasetBoundingBox box(C(4, 4, 4), C(7, 7, 7));
  d.announceAccess(box);
  d.announceAccessToFullDataset();
  EXPECT_EQ(a.announcements, 0);
  EXPECT_EQ(a.fullAnnouncements, 0);
  EXPECT_EQ(d.getCacheRegion(), DatasetBoundingBox(C(0, 0, 0), C(11, 11, 11)));
}

TEST(SmoothDatasetTest, DescriptionRoundTrip) {
  SmoothDataset d;
  d.setParameters(5, 2, 7, 0.125);
  const std::string text = tarv::testing::describe(d);
  const char* entries[] = {"KernelXSize = 5\n", "KernelYSize = 2\n", "KernelZSize = 7\n", "MarginValue = 0.125\n"};
  std::size_t last = 0;
  for (const char* entry : entries) {
    const std::size_t at = text.find(entry);
    ASSERT_NE(at, std::string::npos) << entry << " in\n" << text;
    EXPECT_GT(at, last) << entry << " out of order";
    last = at;
  }
  SmoothDataset e;
  tarv::testing::readDescription(e, text);
  const Parameters p = parametersOf(e);
  EXPECT_EQ(p.x, 5);
  EXPECT_EQ(p.y, 2);
  EXPECT_EQ(p.z, 7);
  EXPECT_EQ(p.margin, 0.125);
  EXPECT_EQ(e.getMask()->getSize(), C(5, 2, 7, 1, 1));
}

TEST(SmoothDatasetTest, UntrustedDescriptionsCannotAskForHugeMasks) {
  SmoothDataset e;
  tarv::testing::readDescription(e,
                                 "KernelXSize = 2147483647\nKernelYSize = -2147483648\nKernelZSize = many\n"
                                 "MarginValue = -inf\nKernelWSize = 3\n");
  Parameters p = parametersOf(e);
  EXPECT_EQ(p.x, maximal);
  EXPECT_EQ(p.y, 1);
  EXPECT_EQ(p.z, 1) << "garbage reads as 0 and becomes 1";
  EXPECT_EQ(p.margin, -std::numeric_limits<double>::infinity());
  ASSERT_NE(e.getMask(), nullptr);
  EXPECT_EQ(e.getMask()->getSize(), C(maximal, 1, 1, 1, 1));
  tarv::testing::readDescription(e, "KernelYSize = 3\nKernelXSize =");
  p = parametersOf(e);
  EXPECT_EQ(p.x, 1);
  EXPECT_EQ(p.y, 3);
  EXPECT_EQ(p.margin, 0.0);
}

TEST(SmoothDatasetTest, EquivalenceComparesSizesAndMargin) {
  Dataset source(true);
  source.newDataset<float>(C(4, 4, 4, 1, 1), DatasetWorldEmbedding());
  SmoothDataset a, b;
  a.setSourceDataset(&source);
  b.setSourceDataset(&source);
  a.setParameters(3, 3, 1, 0.0);
  b.setParameters(3, 3, 1, 0.0);
  EXPECT_TRUE(a.isDatasetEquivalent(&b));
  b.setParameters(5, 3, 1, 0.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "x size";
  b.setParameters(3, 1, 1, 0.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "y size";
  b.setParameters(3, 3, 3, 0.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "z size";
  b.setParameters(3, 3, 1, -0.0);
  EXPECT_TRUE(a.isDatasetEquivalent(&b)) << "margins compare with ==";
  b.setParameters(3, 3, 1, 1.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "margin";
}

// ---------------------------------------------------------------------------------------------
// Rows computed together against elements computed one by one (tarv::testing::Counted never takes the
// row path): random sources, sizes, kernels, margins and evaluation orders, bit for bit.


namespace {

TARVElementType randomSourceType(std::mt19937& rng) {
  const TARVElementType types[] = {TARV_ELEMENT_TYPE_FLOAT, TARV_ELEMENT_TYPE_DOUBLE, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT,
                                   TARV_ELEMENT_TYPE_UNSIGNED_CHAR, TARV_ELEMENT_TYPE_SIGNED_INT};
  return types[std::uniform_int_distribution<int>(0, 4)(rng)];
}

}  // namespace

TEST(SmoothDatasetRowTest, RowsEqualElementByElementComputation) {
  for (unsigned seed = 1; seed <= 24; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto extent = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    Dataset source(true);
    source.newDataset(C(extent(1, 75), extent(1, 12), extent(1, 9), extent(1, 2), 1), randomSourceType(rng),
                      DatasetWorldEmbedding());
    tarv::testing::fillRandom(source, rng, seed % 3 == 0);
    const int kx = extent(1, 5), ky = extent(1, 5), kz = extent(1, 5);
    const double margin = std::uniform_real_distribution<double>(-5.0, 5.0)(rng);

    // Two levels: a smoothing of a smoothing, so that rows are also read from a cached source.
    SmoothDataset rowsInner, rowsOuter;
    tarv::testing::Counted<SmoothDataset> elementsInner, elementsOuter;
    rowsInner.setSourceDataset(&source);
    elementsInner.setSourceDataset(&source);
    rowsOuter.setSourceDataset(&rowsInner);
    elementsOuter.setSourceDataset(&elementsInner);
    for (SmoothDataset* d : std::initializer_list<SmoothDataset*>{&rowsInner, &elementsInner})
      d->setParameters(kx, ky, kz, margin);
    for (SmoothDataset* d : std::initializer_list<SmoothDataset*>{&rowsOuter, &elementsOuter})
      d->setParameters(kz, kx, ky, -margin);

    const int mode = static_cast<int>(seed % 4);
    if (mode == 1) {
      // Part of the inner dataset already computed, and its cache covering everything.
      rowsInner.announceAccessToFullDataset();
      elementsInner.announceAccessToFullDataset();
      const DatasetBoundingBox part(C(0, 0, 0), C(source.getSize().x / 2, source.getSize().y - 1, 0));
      rowsInner.calculate(part);
      elementsInner.calculate(part);
    }
    if (mode == 2) {
      // A box, then a few single elements.
      const DatasetCoordinates s = source.getSize();
      const DatasetBoundingBox box(C(s.x / 3, 0, s.z / 2), C(s.x - 1, s.y / 2, s.z - 1));
      rowsOuter.calculate(box);
      elementsOuter.calculate(box);
      for (int i = 0; i < 5; ++i) {
        const DatasetCoordinates p = C(extent(0, s.x - 1), extent(0, s.y - 1), extent(0, s.z - 1), extent(0, s.t - 1));
        EXPECT_EQ(rowsOuter.getElement<double>(p), elementsOuter.getElement<double>(p));
      }
    }
    // The whole dataset with a progress object that stops at a random report (or never).
    // On one thread even a stopped computation leaves the source's region as element reads grow
    // it; on several, the regions read are made whole first.
    const int stopAt = mode == 3 ? extent(0, 2) : -1;
    engine::setThreadCount(mode == 3 ? 1 : 0);
    tarv::testing::RecordingProgress rowsProgress(stopAt), elementsProgress(stopAt);
    rowsOuter.calculateFullDataset(&rowsProgress);
    elementsOuter.calculateFullDataset(&elementsProgress);
    engine::setThreadCount(0);
    EXPECT_EQ(rowsProgress.fractions, elementsProgress.fractions);
    tarv::testing::expectSameCache(rowsOuter, elementsOuter, "outer");
    tarv::testing::expectSameCache(rowsInner, elementsInner, "inner");
  }
}
