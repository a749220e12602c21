#include "dataset/GradientDataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "FilterTestSupport.h"
#include "MaskReference.h"
#include "dataset/SmoothDataset.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;
using tarv::testing::CountingSource;

namespace {

struct Parameters {
  int dimensionality = -1, direction = -1, filterSize = -1;
  bool voxelGradient = false;
  double margin = -1.0;
};

Parameters parametersOf(const GradientDataset& d) {
  Parameters p;
  d.getParameters(p.dimensionality, p.direction, p.filterSize, p.voxelGradient, p.margin);
  return p;
}

DatasetWorldEmbedding spacing(double x, double y, double z) {
  return DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(x, y, z, 1));
}

// source(x, y, z) = 2x, spacing 0.5 along x.
void makeRamp(Dataset& source, const DatasetCoordinates& size) {
  source.newDataset<float>(size, spacing(0.5, 1.0, 1.0));
  tarv::testing::fill(source, [](const DatasetCoordinates& p) { return 2.0 * p.x; });
}

}  // namespace

TEST(GradientDatasetTest, FreshDatasetHasDefaults) {
  GradientDataset d;
  const Parameters p = parametersOf(d);
  EXPECT_EQ(d.getTypeName(), "GradientDataset");
  EXPECT_EQ(p.dimensionality, 2);
  EXPECT_EQ(p.direction, 0);
  EXPECT_EQ(p.filterSize, 3);
  EXPECT_FALSE(p.voxelGradient);
  EXPECT_EQ(p.margin, 0.0);
  ASSERT_NE(d.getMask(), nullptr);
  EXPECT_EQ(d.getMask()->getSize(), C(3, 3, 1, 1, 1));
  EXPECT_EQ(d.getMaskCentre(), C(1, 1, 0));
  EXPECT_FALSE(d.hasData());
}

TEST(GradientDatasetTest, RampGivesTwoPerVoxelAndFourPerWorldUnit) {
  Dataset source(true);
  makeRamp(source, C(6, 4, 1, 1, 1));
  GradientDataset d;
  d.setSourceDataset(&source);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(d.getElement<double>(C(2, 1, 0)), 4.0) << "2 / 0.5";
  EXPECT_EQ(d.getElement<double>(C(4, 2, 0)), 4.0);
  d.setParameters(2, 0, 3, true, 0.0);
  EXPECT_EQ(d.getElement<double>(C(2, 1, 0)), 2.0);
  EXPECT_EQ(d.getElement<double>(C(4, 2, 0)), 2.0);
}

TEST(GradientDatasetTest, BorderAndNarrowSourceGiveTheMargin) {
  Dataset source(true);
  makeRamp(source, C(6, 4, 1, 1, 1));
  GradientDataset d;
  d.setSourceDataset(&source);
  d.setParameters(2, 0, 3, true, 7.5);
  EXPECT_EQ(d.getElement<double>(C(0, 1, 0)), 7.5) << "x = 0 lies before the mask centre";
  EXPECT_EQ(d.getElement<double>(C(5, 1, 0)), 7.5);
  EXPECT_EQ(d.getElement<double>(C(2, 0, 0)), 7.5) << "the smoothing axis needs room as well";
  EXPECT_EQ(d.getElement<double>(C(2, 3, 0)), 7.5);
  d.setParameters(2, 0, 3, false, 7.5);
  EXPECT_EQ(d.getElement<double>(C(0, 1, 0)), 15.0) << "a world gradient divides the margin by the spacing";

  Dataset narrow(true);
  makeRamp(narrow, C(2, 5, 1, 1, 1));
  d.setSourceDataset(&narrow);
  d.setParameters(2, 0, 3, true, -1.0);
  tarv::testing::forEachVoxel(d.getSize(), [&](const DatasetCoordinates& p) {
    EXPECT_EQ(d.getElement<double>(p), -1.0) << "narrower than the mask, at " << p;
  });
}

TEST(GradientDatasetTest, SetParametersClamps) {
  GradientDataset d;
  d.setParameters(1, 7, 4, true, 2.0);
  Parameters p = parametersOf(d);
  EXPECT_EQ(p.dimensionality, 2);
  EXPECT_EQ(p.direction, 1);
  EXPECT_EQ(p.filterSize, 3);
  EXPECT_TRUE(p.voxelGradient);
  EXPECT_EQ(p.margin, 2.0);
  EXPECT_EQ(d.getMask()->getSize(), C(3, 3, 1, 1, 1));
  d.setParameters(4, -1, 5, false, 0.0);
  p = parametersOf(d);
  EXPECT_EQ(p.dimensionality, 3);
  EXPECT_EQ(p.direction, 0);
  EXPECT_EQ(p.filterSize, 5);
  EXPECT_EQ(d.getMask()->getSize(), C(5, 5, 5, 1, 1));
  EXPECT_EQ(d.getMaskCentre(), C(2, 2, 2));
  d.setParameters(3, 2, 3, false, 0.0);
  EXPECT_EQ(parametersOf(d).direction, 2);
  d.setParameters(2, 2, 5, false, 0.0);
  p = parametersOf(d);
  EXPECT_EQ(p.direction, 1) << "no z derivative in 2D";
  EXPECT_EQ(d.getMask()->getSize(), C(5, 5, 1, 1, 1));
  EXPECT_EQ(d.getMaskCentre(), C(2, 2, 0));
  d.setParameters(-2147483647 - 1, 2147483647, -2147483647 - 1, false, 0.0);
  p = parametersOf(d);
  EXPECT_EQ(p.dimensionality, 2);
  EXPECT_EQ(p.direction, 1);
  EXPECT_EQ(p.filterSize, 3);
}

TEST(GradientDatasetTest, AgreesWithAPlainLoopToTheLastBit) {
  const unsigned seed = 31337;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> extent(1, 11);
  std::uniform_real_distribution<double> value(-1000.0, 1000.0);
  std::uniform_real_distribution<double> step(0.1, 3.0);
  for (int dimensionality = 2; dimensionality <= 3; ++dimensionality)
    for (int direction = 0; direction < dimensionality; ++direction)
      for (int filterSize = 3; filterSize <= 5; filterSize += 2)
        for (int voxel = 0; voxel < 2; ++voxel) {
          Dataset source(true);
          const DatasetCoordinates size(extent(random), extent(random), extent(random), 1 + (voxel ? 1 : 0), 1);
          const DatasetWorldEmbedding embedding = spacing(step(random), step(random), step(random));
          source.newDataset<double>(size, embedding);
          tarv::testing::fill(source, [&](const DatasetCoordinates&) { return value(random); });
          const double margin = value(random);
          GradientDataset d;
          d.setSourceDataset(&source);
          d.setParameters(dimensionality, direction, filterSize, voxel == 1, margin);
          const tarv::testing::PlainMask mask = tarv::testing::gradientMask(dimensionality, direction, filterSize);
          tarv::testing::forEachVoxel(size, [&](const DatasetCoordinates& p) {
            double expected = tarv::testing::correlateByLoop(source, mask, p, margin);
            if (voxel == 0) expected = expected / embedding.getVoxelSpacing()[direction];
            const double actual = d.getElement<double>(p);
            EXPECT_EQ(actual, tarv::testing::asStoredFloat(expected))
                << "dimensionality " << dimensionality << " direction " << direction << " size " << filterSize
                << " voxel gradient " << voxel << " source size " << size << " at " << p;
          });
        }
}

TEST(GradientDatasetTest, MarginAtEveryFace) {
  Dataset source(true);
  const DatasetCoordinates size(9, 8, 7, 1, 1);
  source.newDataset<short>(size, DatasetWorldEmbedding());
  tarv::testing::fill(source, [](const DatasetCoordinates& p) { return p.x * p.x + 3 * p.y - 2 * p.z; });
  const double margin = 9999.0;
  GradientDataset d;
  d.setSourceDataset(&source);
  d.setParameters(3, 1, 5, true, margin);
  // Mask 5x5x5, centre 2: computed where 2 <= x <= 6, 2 <= y <= 5, 2 <= z <= 4.
  const int low[3] = {2, 2, 2};
  const int high[3] = {6, 5, 4};
  int faceVoxels[6] = {};
  tarv::testing::forEachVoxel(size, [&](const DatasetCoordinates& p) {
    bool outside = false;
    for (int k = 0; k < 3; ++k) {
      if (p[k] < low[k]) {
        ++faceVoxels[2 * k];
        outside = true;
      }
      if (p[k] > high[k]) {
        ++faceVoxels[2 * k + 1];
        outside = true;
      }
    }
    const double v = d.getElement<double>(p);
    if (outside)
      EXPECT_EQ(v, margin) << "outside the fitting range at " << p;
    else
      EXPECT_NE(v, margin) << "inside the fitting range at " << p;
  });
  for (int face = 0; face < 6; ++face) EXPECT_GT(faceVoxels[face], 0) << "face " << face << " not visited";
}

TEST(GradientDatasetTest, TakesTheSpacingAlongItsOwnDirection) {
  Dataset source(true);
  source.newDataset<double>(C(5, 5, 5, 1, 1), spacing(0.5, 0.25, 4.0));
  tarv::testing::fill(source, [](const DatasetCoordinates& p) { return p.x + 2.0 * p.y + 3.0 * p.z; });
  GradientDataset d;
  d.setSourceDataset(&source);
  d.setParameters(3, 0, 3, false, 0.0);
  EXPECT_EQ(d.getElement<double>(C(2, 2, 2)), 1.0 / 0.5);
  d.setParameters(3, 1, 3, false, 0.0);
  EXPECT_EQ(d.getElement<double>(C(2, 2, 2)), 2.0 / 0.25);
  d.setParameters(3, 2, 3, false, 0.0);
  EXPECT_EQ(d.getElement<double>(C(2, 2, 2)), 3.0 / 4.0);
}

TEST(GradientDatasetTest, ParameterChangeWithdrawsComputedElements) {
  Dataset source(true);
  makeRamp(source, C(5, 5, 1, 1, 1));
  Counted<GradientDataset> d;
  d.setSourceDataset(&source);
  d.getElement<double>(C(2, 2, 0));
  d.getElement<double>(C(2, 2, 0));
  EXPECT_EQ(d.calculations, 1);
  d.setParameters(2, 1, 3, true, 0.0);
  EXPECT_NEAR(d.getElement<double>(C(2, 2, 0)), 0.0, 1e-12) << "the ramp has no y slope";
  EXPECT_EQ(d.calculations, 2);
}

TEST(GradientDatasetTest, AcceptsExactlyOneSourceAndAnnouncesNothingToIt) {
  CountingSource a;
  Dataset b(true);
  a.newDataset<float>(C(20, 20, 20, 1, 1), DatasetWorldEmbedding());
  b.newDataset<float>(C(20, 20, 20, 1, 1), DatasetWorldEmbedding());
  GradientDataset d;
  d.setSourceDatasets({&a, &b});
  EXPECT_FALSE(d.isInputOk());
  EXPECT_FALSE(d.hasData());
  d.setSourceDataset(&a);
  EXPECT_TRUE(d.isInputOk());
  a.resetCounters();
  const DatasetBoundingBox box(C(3, 4, 5), C(6, 7, 8));
  d.announceAccess(box);
  EXPECT_EQ(a.announcements, 0) << "the single source is never told";
  EXPECT_EQ(d.getCacheRegion(), box) << "the cache takes the box without enlargement";
  d.calculate(box);
  EXPECT_EQ(d.getCacheRegion(), box);
  EXPECT_EQ(a.reads, 4 * 4 * 4 * 9) << "nine source reads per element of a 3x3 mask";
}

TEST(GradientDatasetTest, DescriptionRoundTrip) {
  GradientDataset d;
  d.setParameters(3, 2, 5, true, -0.75);
  const std::string text = tarv::testing::describe(d);
  const char* entries[] = {"GradientDimensionality = 3\n", "GradientDirection = 2\n", "GradientFilterSize = 5\n",
                           "VoxelGradient = true\n", "MarginValue = -0.75\n"};
  std::size_t last = 0;
  for (const char* entry : entries) {
    const std::size_t at = text.find(entry);
    ASSERT_NE(at, std::string::npos) << entry << " in\n" << text;
    EXPECT_GT(at, last) << entry << " out of order";
    last = at;
  }
  GradientDataset e;
  tarv::testing::readDescription(e, text);
  const Parameters p = parametersOf(e);
  EXPECT_EQ(p.dimensionality, 3);
  EXPECT_EQ(p.direction, 2);
  EXPECT_EQ(p.filterSize, 5);
  EXPECT_TRUE(p.voxelGradient);
  EXPECT_EQ(p.margin, -0.75);
  EXPECT_EQ(e.getMask()->getSize(), C(5, 5, 5, 1, 1));
}

TEST(GradientDatasetTest, UntrustedDescriptions) {
  GradientDataset e;
  tarv::testing::readDescription(e,
                                 "GradientDimensionality = 99999999999\nGradientDirection = -5\n"
                                 "GradientFilterSize = 5x\nVoxelGradient = yes\nMarginValue = nan\nWho = me\n");
  Parameters p = parametersOf(e);
  EXPECT_EQ(p.dimensionality, 2) << "an int out of range reads as 0, then clamps";
  EXPECT_EQ(p.direction, 0);
  EXPECT_EQ(p.filterSize, 3);
  EXPECT_FALSE(p.voxelGradient);
  EXPECT_TRUE(std::isnan(p.margin));
  tarv::testing::readDescription(e, "GradientDirection = 1\nGradientFilterSize");
  p = parametersOf(e);
  EXPECT_EQ(p.direction, 1);
  EXPECT_EQ(p.filterSize, 3);
  EXPECT_EQ(p.margin, 0.0) << "missing entries give the defaults";

  // A NaN margin reaches the border elements.
  Dataset source(true);
  makeRamp(source, C(4, 4, 1, 1, 1));
  e.setSourceDataset(&source);
  e.setParameters(2, 0, 3, true, std::numeric_limits<double>::quiet_NaN());
  EXPECT_TRUE(std::isnan(e.getElement<double>(C(0, 0, 0))));
  EXPECT_EQ(e.getElement<double>(C(1, 1, 0)), 2.0);
}

TEST(GradientDatasetTest, EquivalenceIgnoresDimensionalityAndFilterSize) {
  Dataset source(true);
  makeRamp(source, C(4, 4, 1, 1, 1));
  GradientDataset a, b;
  a.setSourceDataset(&source);
  b.setSourceDataset(&source);
  a.setParameters(2, 1, 3, false, 1.0);
  b.setParameters(2, 1, 5, false, 1.0);
  EXPECT_TRUE(a.isDatasetEquivalent(&b)) << "filter size takes no part";
  b.setParameters(3, 1, 5, false, 1.0);
  EXPECT_TRUE(a.isDatasetEquivalent(&b)) << "dimensionality takes no part";
  b.setParameters(2, 0, 3, false, 1.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "direction";
  b.setParameters(2, 1, 3, true, 1.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "voxel gradient";
  b.setParameters(2, 1, 3, false, 2.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "margin";
  SmoothDataset s;
  s.setSourceDataset(&source);
  EXPECT_FALSE(a.isDatasetEquivalent(&s));
}
