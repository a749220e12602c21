#include "dataset/Dataset.h"

#include <gtest/gtest.h>
#include <vtkDataArray.h>
#include <vtkImageData.h>
#include <vtkPointData.h>
#include <vtkSmartPointer.h>
#include <vtkType.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "core/Mathematics.h"

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::embedding;
using tarv::testing::pattern;
using tarv::testing::fillWithPattern;
using tarv::testing::fillRandomly;
using tarv::testing::forEachElementType;
using tarv::testing::Snapshot;

namespace {

// Counts the announcements and reads that reach the dataset.
class CountingDataset : public Dataset {
public:
  CountingDataset() : Dataset(true) {}
  int reads = 0;
  int boxAnnouncements = 0;
  int fullAnnouncements = 0;
  void announceAccess(const DatasetBoundingBox& box) override {
    ++boxAnnouncements;
    Dataset::announceAccess(box);
  }
  void announceAccessToFullDataset() override {
    ++fullAnnouncements;
    Dataset::announceAccessToFullDataset();
  }
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) override {
    ++reads;
    return Dataset::getElementByBuffer(p, buffer);
  }
  bool getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) override {
    ++reads;
    return Dataset::getElementByBuffer(it, buffer);
  }
};

// The round-by-round scan of the largest values, written out plainly.
std::vector<Vector3D> plainMaximumList(Dataset& d, int count, double minDistance, int t) {
  std::vector<Vector3D> world;
  if (minDistance <= 0.0) minDistance = 1e-7;
  std::vector<Vector3D> chosen;
  const DatasetCoordinates n = d.getSize();
  for (int round = 0; round < count; ++round) {
    bool found = false;
    double best = 0.0;
    Vector3D bestPosition;
    for (int z = 0; z < n.z; ++z)
      for (int y = 0; y < n.y; ++y)
        for (int x = 0; x < n.x; ++x) {
          const Vector3D p(x, y, z);
          if (Mathematics::pointTooCloseToPoints(p, chosen, minDistance)) continue;
          const double v = d.getElement<double>(C(x, y, z, t));
          if (!found || v > best) {
            found = true;
            best = v;
            bestPosition = p;
          }
        }
    if (!found) break;
    chosen.push_back(bestPosition);
    const WorldCoordinates w = d.getWorldEmbedding().voxelToWorld(
        C(static_cast<int>(bestPosition.x), static_cast<int>(bestPosition.y), static_cast<int>(bestPosition.z), t));
    world.emplace_back(w.x, w.y, w.z);
  }
  return world;
}

// A single-component image of the given scalar type, values 0, 1, 2, ... in storage order.
vtkSmartPointer<vtkImageData> countingImage(int scalarType, int nx, int ny, int nz) {
  auto image = vtkSmartPointer<vtkImageData>::New();
  image->SetDimensions(nx, ny, nz);
  image->AllocateScalars(scalarType, 1);
  vtkDataArray* scalars = image->GetPointData()->GetScalars();
  for (vtkIdType i = 0; i < scalars->GetNumberOfTuples(); ++i) scalars->SetComponent(i, 0, static_cast<double>(i % 100));
  return image;
}

}  // namespace

// ---- statistics ----

TEST(DatasetAnalysisTest, AverageValueOfEmptyDatasetIsZero) {
  Dataset d(true);
  EXPECT_EQ(d.getAverageValue(), 0.0);
  EXPECT_EQ(d.getAverageValue(DatasetBoundingBox(C(0, 0, 0), C(2, 2, 2))), 0.0);
  EXPECT_EQ(d.getMinimumValue(DatasetBoundingBox(C(0, 0, 0), C(2, 2, 2))), 0.0);
  EXPECT_EQ(d.getMaximumValue(DatasetBoundingBox(C(0, 0, 0), C(2, 2, 2))), 0.0);
  EXPECT_EQ(d.getVoxelCountInValueRange(-1, 1, true), 0u);
}

TEST(DatasetAnalysisTest, StatisticsOverTheWholeDatasetAndABox) {
  Dataset d(true);
  d.newDataset<int>(C(4, 3, 2, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<int>(d);
  double sum = 0.0;
  for (int z = 0; z < 2; ++z)
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 4; ++x) sum += pattern(C(x, y, z));
  EXPECT_DOUBLE_EQ(d.getAverageValue(), sum / 24);

  const DatasetBoundingBox box(C(1, 1, 0), C(2, 2, 1));
  EXPECT_EQ(d.getMinimumValue(box), pattern(C(1, 1, 0)));
  EXPECT_EQ(d.getMaximumValue(box), pattern(C(2, 2, 1)));
  double boxSum = 0.0;
  for (int z = 0; z <= 1; ++z)
    for (int y = 1; y <= 2; ++y)
      for (int x = 1; x <= 2; ++x) boxSum += pattern(C(x, y, z));
  EXPECT_DOUBLE_EQ(d.getAverageValue(box), boxSum / 8);
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus()) << "the box forms do not fill the cache";
}

TEST(DatasetAnalysisTest, BoxStatisticsClipAndTheAverageDividesByTheGivenBox) {
  Dataset d(true);
  d.newDataset<float>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  d.setAllElementsValue(2);
  d.setElement<float>(C(2, 2, 0), 8);
  // x -3..2 and y 0..2: 18 voxels asked for, 9 inside.
  const DatasetBoundingBox box(C(-3, 0, 0), C(2, 2, 0));
  EXPECT_EQ(d.getMaximumValue(box), 8.0);
  EXPECT_EQ(d.getMinimumValue(box), 2.0);
  EXPECT_DOUBLE_EQ(d.getAverageValue(box), (8 * 2.0 + 8.0) / 18) << "the mean is diluted by the missing voxels";
  EXPECT_EQ(d.getAverageValue(DatasetBoundingBox(C(2, 0, 0), C(1, 0, 0))), 0.0) << "an invalid box counts no voxel";
}

TEST(DatasetAnalysisTest, MinimumAndMaximumInABoxKeepTheFirstOfEqualValues) {
  Dataset d(true);
  d.newDataset<double>(C(4, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<double>(C(0, 0, 0), std::numeric_limits<double>::quiet_NaN());
  d.setElement<double>(C(1, 0, 0), 5);
  d.setElement<double>(C(2, 0, 0), -5);
  d.setElement<double>(C(3, 0, 0), 7);
  EXPECT_TRUE(std::isnan(d.getMaximumValue(d.getVoxelBoundingBox()))) << "a first NaN is never replaced";
  EXPECT_EQ(d.getMaximumValue(DatasetBoundingBox(C(1, 0, 0), C(3, 0, 0))), 7.0);
  EXPECT_EQ(d.getMinimumValue(DatasetBoundingBox(C(1, 0, 0), C(3, 0, 0))), -5.0);
}

TEST(DatasetAnalysisTest, VoxelCountInValueRangeCountsInsideOrOutside) {
  Dataset d(true);
  d.newDataset<short>(C(10, 2, 1, 1, 1), DatasetWorldEmbedding());
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<int>(it, it.x);
  EXPECT_EQ(d.getVoxelCountInValueRange(2, 5, false), 8u) << "closed range 2..5 on two rows";
  EXPECT_EQ(d.getVoxelCountInValueRange(2, 5, true), 12u);
  const DatasetBoundingBox box(C(4, 1, 0), C(20, 1, 0));
  EXPECT_EQ(d.getVoxelCountInValueRange(box, 2, 5, false), 2u) << "x 4..9 of one row, clipped";
  EXPECT_EQ(d.getVoxelCountInValueRange(box, 2, 5, true), 4u);
}

TEST(DatasetAnalysisTest, StatisticsAnnounceTheirAccess) {
  CountingDataset d;
  d.newDataset<int>(C(4, 4, 4, 1, 1), DatasetWorldEmbedding());
  d.setAllElementsValue(1);
  d.reads = d.boxAnnouncements = d.fullAnnouncements = 0;
  d.getAverageValue();
  EXPECT_EQ(d.fullAnnouncements, 1);
  EXPECT_EQ(d.reads, 64);
  d.getMaximumValue(DatasetBoundingBox(C(1, 1, 1), C(2, 2, 2)));
  EXPECT_EQ(d.boxAnnouncements, 1);
  EXPECT_EQ(d.reads, 64 + 8) << "only the box is read";
}

// ---- bounding boxes ----

TEST(DatasetAnalysisTest, NonZeroVoxelBoundingBoxEnclosesTheNonZeroElements) {
  Dataset d(true);
  d.newDataset<float>(C(8, 7, 6, 3, 2), DatasetWorldEmbedding());
  d.setAllElementsValue(0);
  d.setElement<float>(C(2, 5, 1, 1, 0), 1.0f);
  d.setElement<float>(C(6, 3, 4, 2, 1), -0.5f);
  const DatasetBoundingBox box = d.getNonZeroVoxelBoundingBox();
  EXPECT_EQ(box.start, C(2, 3, 1, 1, 0));
  EXPECT_EQ(box.end, C(6, 5, 4, 2, 1)) << "the component axis is not shrunk";

  d.setAllElementsValue(0);
  const DatasetBoundingBox none = d.getNonZeroVoxelBoundingBox();
  EXPECT_TRUE(none.isEmpty()) << "an all-zero dataset gives a box with start past end";
  EXPECT_GT(none.start.x, none.end.x);

  Dataset empty(true);
  EXPECT_TRUE(empty.getNonZeroVoxelBoundingBox().isEmpty());
}

TEST(DatasetAnalysisTest, NonZeroVoxelBoundingBoxAgreesWithAScanOnRandomBlobs) {
  const unsigned seed = 4242;
  std::mt19937 random(seed);
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::uniform_int_distribution<int> extent(1, 7);
  for (int round = 0; round < 50; ++round) {
    Dataset d(true);
    d.newDataset<unsigned char>(C(extent(random), extent(random), extent(random), extent(random) / 3 + 1, 1), DatasetWorldEmbedding());
    d.setAllElementsValue(0);
    const int dots = static_cast<int>(random() % 4);
    DatasetBoundingBox expected(d.getSize(), C(-1, -1, -1, -1, 0));
    for (int i = 0; i < dots; ++i) {
      const DatasetCoordinates n = d.getSize();
      const DatasetCoordinates p(static_cast<int>(random() % n.x), static_cast<int>(random() % n.y),
                                 static_cast<int>(random() % n.z), static_cast<int>(random() % n.t), 0);
      d.setElement<int>(p, 1 + static_cast<int>(random() % 200));
      for (int k = 0; k < 4; ++k) {
        expected.start[k] = std::min(expected.start[k], p[k]);
        expected.end[k] = std::max(expected.end[k], p[k]);
      }
    }
    const DatasetBoundingBox box = d.getNonZeroVoxelBoundingBox();
    if (dots == 0) {
      EXPECT_TRUE(box.isEmpty()) << "round " << round;
    } else {
      for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(box.start[k], expected.start[k]) << "round " << round << " axis " << k;
        EXPECT_EQ(box.end[k], expected.end[k]) << "round " << round << " axis " << k;
      }
    }
  }
}

TEST(DatasetAnalysisTest, MaximumValueListPicksSpacedMaxima) {
  Dataset d(true);
  d.newDataset<int>(C(10, 1, 1, 2, 1), embedding(100, 0, 0, 2, 1, 1));
  d.setAllElementsValue(0);
  d.setElement<int>(C(2, 0, 0, 1), 50);
  d.setElement<int>(C(3, 0, 0, 1), 49);
  d.setElement<int>(C(8, 0, 0, 1), 30);
  const std::list<Vector3D> list = d.getMaximumValueWorldCoordinatesList(2, 2.0, 1);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(list.front(), Vector3D(104, 0, 0)) << "voxel 2 at spacing 2 from origin 100";
  EXPECT_EQ(list.back(), Vector3D(116, 0, 0)) << "voxel 3 is too close to voxel 2, voxel 8 is next";
  EXPECT_TRUE(d.getMaximumValueWorldCoordinatesList(0, 1.0, 1).empty());
  EXPECT_TRUE(d.getMaximumValueWorldCoordinatesList(3, 1.0, 2).empty()) << "time step outside";
  EXPECT_TRUE(d.getMaximumValueWorldCoordinatesList(3, 1.0, -1).empty());
}

TEST(DatasetAnalysisTest, MaximumValueListStopsWhenEveryVoxelIsTooClose) {
  Dataset d(true);
  d.newDataset<float>(C(3, 2, 1, 1, 1), DatasetWorldEmbedding());
  fillWithPattern<float>(d);
  EXPECT_EQ(d.getMaximumValueWorldCoordinatesList(10, 100.0, 0).size(), 1u);
  EXPECT_EQ(d.getMaximumValueWorldCoordinatesList(10, 0.0, 0).size(), 6u) << "a distance of 0 becomes 1e-7";
  EXPECT_EQ(d.getMaximumValueWorldCoordinatesList(std::numeric_limits<int>::max(), -5.0, 0).size(), 6u);
}

TEST(DatasetAnalysisTest, MaximumValueListAgreesWithARoundByRoundScan) {
  const unsigned seed = 99;
  std::mt19937 random(seed);
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::uniform_int_distribution<int> extent(1, 7);
  std::uniform_real_distribution<double> distance(-0.5, 4.0);
  for (int round = 0; round < 40; ++round) {
    Dataset d(true);
    d.newDataset<float>(C(extent(random), extent(random), extent(random), 2, 1), embedding(1, -2, 3, 0.5, 2, 1.5));
    // Few distinct values, so that ties are common; now and then a NaN.
    for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      d.setElement<float>(it, random() % 17 == 0 ? std::numeric_limits<float>::quiet_NaN() : static_cast<float>(random() % 5));
    const double minDistance = distance(random);
    const int count = 1 + static_cast<int>(random() % 12);
    const std::list<Vector3D> fast = d.getMaximumValueWorldCoordinatesList(count, minDistance, 1);
    const std::vector<Vector3D> plain = plainMaximumList(d, count, minDistance, 1);
    ASSERT_EQ(std::vector<Vector3D>(fast.begin(), fast.end()), plain) << "round " << round << ", distance " << minDistance;
  }
}

// ---- sampling ----

TEST(DatasetAnalysisTest, BoundsCheckedElementGivesOutsideBeyondTheBorder) {
  Dataset d(true);
  d.newDataset<int>(C(2, 2, 1, 1, 2), DatasetWorldEmbedding());
  fillWithPattern<int>(d);
  EXPECT_EQ(d.boundsCheckedElement(C(1, 1, 0, 0, 1), -9), static_cast<int>(pattern(C(1, 1, 0, 0, 1))));
  EXPECT_EQ(d.boundsCheckedElement(C(2, 1, 0), -9), -9);
  EXPECT_EQ(d.boundsCheckedElement(C(0, 0, 0, 0, 2), -9), -9);
  EXPECT_EQ(d.boundsCheckedElement(C(0, 0, 0, -1, 0), -9), -9);
}

TEST(DatasetAnalysisTest, PlaneInterpolationAtIntegerPositionsIsTheElement) {
  Dataset d(true);
  d.newDataset<float>(C(5, 5, 3, 2, 1), DatasetWorldEmbedding());
  fillWithPattern<float>(d);
  EXPECT_EQ(d.planeInterpolatedElement(2.0, 3.0, 1, 1, -100, 1), d.getElement<double>(C(2, 3, 1, 1)));
  EXPECT_EQ(d.planeInterpolatedElement(4.0, 4.0, 2, 1, -100, 1), d.getElement<double>(C(4, 4, 2, 1)));
}

TEST(DatasetAnalysisTest, LinearInterpolationBlendsTheOutsideValue) {
  Dataset d(true);
  d.newDataset<double>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  d.setAllElementsValue(4);
  EXPECT_DOUBLE_EQ(d.planeInterpolatedElement(-0.5, 0.0, 0, 0, 10, 1), 0.5 * 10 + 0.5 * 4);
  EXPECT_DOUBLE_EQ(d.spaceInterpolatedElement(-0.5, 0.0, 0.0, 0, 10, 1), 0.5 * 10 + 0.5 * 4);
  EXPECT_DOUBLE_EQ(d.spaceInterpolatedElement(1.0, 1.0, 0.5, 0, 10, 1), 0.5 * 4 + 0.5 * 10) << "z = 1 is outside";
}

TEST(DatasetAnalysisTest, LinearInterpolationWeighsTheCorners) {
  const unsigned seed = 5;
  std::mt19937 random(seed);
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  Dataset d(true);
  d.newDataset<double>(C(5, 4, 3, 1, 1), DatasetWorldEmbedding());
  fillRandomly(d, random, -10, 10);
  std::uniform_real_distribution<double> position(-1.5, 5.5);
  for (int i = 0; i < 200; ++i) {
    const double x = position(random);
    const double y = position(random);
    const double z = position(random);
    const double outside = -3.0;
    auto sample = [&](double px, double py, double pz) {
      return d.boundsCheckedElement(C(static_cast<int>(px), static_cast<int>(py), static_cast<int>(pz)), outside);
    };
    const double x0 = std::floor(x);
    const double y0 = std::floor(y);
    const double z0 = std::floor(z);
    const double fx = x - x0;
    const double fy = y - y0;
    const double fz = z - z0;
    const double plane = (1 - fx) * (1 - fy) * sample(x0, y0, 1) + fx * (1 - fy) * sample(x0 + 1, y0, 1) +
                         (1 - fx) * fy * sample(x0, y0 + 1, 1) + fx * fy * sample(x0 + 1, y0 + 1, 1);
    EXPECT_NEAR(d.planeInterpolatedElement(x, y, 1, 0, outside, 1), plane, 1e-9) << x << ", " << y;
    double space = 0.0;
    for (int k = 0; k < 2; ++k)
      for (int j = 0; j < 2; ++j)
        for (int i2 = 0; i2 < 2; ++i2)
          space += (i2 ? fx : 1 - fx) * (j ? fy : 1 - fy) * (k ? fz : 1 - fz) * sample(x0 + i2, y0 + j, z0 + k);
    EXPECT_NEAR(d.spaceInterpolatedElement(x, y, z, 0, outside, 1), space, 1e-9) << x << ", " << y << ", " << z;
    EXPECT_EQ(d.spaceInterpolatedElement(x, y, z, 0, outside, 0),
              d.boundsCheckedElement(C(Mathematics::round(x), Mathematics::round(y), Mathematics::round(z)), outside));
  }
}

TEST(DatasetAnalysisTest, InterpolationMethodsOtherThanNearestAndLinearGiveZero) {
  Dataset d(true);
  d.newDataset<int>(C(2, 2, 2, 1, 1), DatasetWorldEmbedding());
  d.setAllElementsValue(6);
  EXPECT_EQ(d.planeInterpolatedElement(0.2, 0.7, 0, 0, 1, 2), 0.0);
  EXPECT_EQ(d.spaceInterpolatedElement(0.2, 0.7, 0.1, 0, 1, -1), 0.0);
  EXPECT_EQ(d.planeInterpolatedElement(0.6, 0.4, 1, 0, 1, 0), 6.0) << "nearest neighbour rounds to (1, 0)";
  EXPECT_EQ(d.planeInterpolatedElement(1.5, 0.0, 0, 0, -1, 0), -1.0) << "1.5 rounds away from zero, to 2";
}

TEST(DatasetAnalysisTest, PlaneInterpolatedWorldElementIsAlwaysZero) {
  Dataset d(true);
  d.newDataset<int>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  d.setAllElementsValue(5);
  EXPECT_EQ(d.planeInterpolatedWorldElement(1, 1, 0, 0, 9, 0), 0.0);
  EXPECT_EQ(d.planeInterpolatedWorldElement(1.5, 0.5, 0, 0, 9, 1), 0.0);
  EXPECT_EQ(d.planeInterpolatedWorldElement(-50, 50, 3, 2, 9, 1), 0.0);
}

TEST(DatasetAnalysisTest, WorldInterpolationConvertsThePointFirst) {
  Dataset d(true);
  d.newDataset<double>(C(4, 4, 4, 1, 1), embedding(10, 20, 30, 2, 0.5, 4));
  std::mt19937 random(17);
  fillRandomly(d, random, 0, 1);
  const WorldCoordinates w = d.getWorldEmbedding().exactVoxelToWorld(WorldCoordinates(1.25, 2.5, 0.75, 0));
  EXPECT_NEAR(d.spaceInterpolatedWorldElement(w.x, w.y, w.z, 0, -1, 1), d.spaceInterpolatedElement(1.25, 2.5, 0.75, 0, -1, 1),
              1e-12);
  EXPECT_EQ(d.spaceInterpolatedWorldElement(12, 20.5, 30, 0, -1, 0), d.getElement<double>(C(1, 1, 0)));
  EXPECT_EQ(d.spaceInterpolatedWorldElement(0, 0, 0, 0, -1, 0), -1.0);
}

TEST(DatasetAnalysisTest, InterpolationSurvivesExtremePositions) {
  Dataset d(true);
  d.newDataset<float>(C(2, 2, 2, 1, 1), DatasetWorldEmbedding());
  d.setAllElementsValue(1);
  const double huge = 1e300;
  EXPECT_EQ(d.planeInterpolatedElement(huge, -huge, 0, 0, 7, 0), 7.0);
  EXPECT_EQ(d.spaceInterpolatedElement(huge, 0.5, 0.5, 0, 7, 1), 7.0);
  EXPECT_TRUE(std::isnan(d.spaceInterpolatedElement(std::nan(""), 0, 0, 0, 7, 1)));
  EXPECT_EQ(d.spaceInterpolatedElement(0.5, 0.5, 0.5, 5, 7, 1), 7.0) << "time step outside";
}

// ---- boxes between voxel and world space ----

TEST(DatasetAnalysisTest, HalfWayWorldCornersGiveTheInnerVoxels) {
  Dataset d(true);
  d.newDataset<int>(C(10, 10, 10, 1, 1), embedding(0, 0, 0, 1, 1, 1));
  const DatasetBoundingBox box =
      d.getMaximumFitVoxelAABBfromWorldAABB(WorldBoundingBox(WorldCoordinates(0.5, 1.5, -0.5, 0), WorldCoordinates(3.5, 6.5, 2.5, 0)));
  EXPECT_EQ(box.start, C(1, 2, 0)) << "lower half-way corners round up";
  EXPECT_EQ(box.end, C(3, 6, 2)) << "upper half-way corners round down";
}

TEST(DatasetAnalysisTest, WorldBoxesOfVoxelBoxesAndBack) {
  Dataset d(true);
  d.newDataset<int>(C(4, 5, 6, 1, 1), embedding(10, -20, 30, 2, 0.5, 3));
  const WorldBoundingBox world = d.getMaximumFitWorldAABB();
  EXPECT_EQ(world.start, WorldCoordinates(10, -20, 30, 0));
  EXPECT_EQ(world.end, WorldCoordinates(16, -18, 45, 0));
  const WorldBoundingBox part = d.getMaximumFitWorldAABBfromVoxelAABB(DatasetBoundingBox(C(1, 2, 3), C(2, 4, 5)));
  EXPECT_EQ(part.start, WorldCoordinates(12, -19, 39, 0));
  EXPECT_EQ(part.end, WorldCoordinates(14, -18, 45, 0));
  EXPECT_EQ(d.getMaximumFitVoxelAABBfromWorldAABB(part), DatasetBoundingBox(C(1, 2, 3), C(2, 4, 5)));
  const DatasetBoundingBox rounded =
      d.getMaximumFitVoxelAABBfromWorldAABB(WorldBoundingBox(WorldCoordinates(12.9, -19.3, 31.4, 0), WorldCoordinates(14.1, -18.1, 35, 0)));
  EXPECT_EQ(rounded.start, C(1, 1, 0)) << "other positions round to the nearest voxel";
  EXPECT_EQ(rounded.end, C(2, 4, 2));
}

TEST(DatasetAnalysisTest, WorldBoxOfARotatedDatasetTakesTheExtremeCorners) {
  Dataset d(true);
  d.newDataset<int>(C(3, 2, 1, 1, 1),
                    DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(1, 1, 1, 1), Vector3D(0, 1, 0),
                                          Vector3D(-1, 0, 0)));
  const WorldBoundingBox world = d.getMaximumFitWorldAABB();
  EXPECT_NEAR(world.start.x, -1, 1e-12);
  EXPECT_NEAR(world.end.x, 0, 1e-12);
  EXPECT_NEAR(world.start.y, 0, 1e-12);
  EXPECT_NEAR(world.end.y, 2, 1e-12);
}

TEST(DatasetAnalysisTest, VoxelCountToVolumeMultipliesTheSpacing) {
  Dataset d(true);
  d.newDataset<int>(C(2, 2, 2, 1, 1), embedding(0, 0, 0, 0.5, 2, 3));
  EXPECT_DOUBLE_EQ(d.voxelCountToVolume(10), 10 * 0.5 * 2 * 3);
  EXPECT_EQ(d.voxelCountToVolume(0), 0.0);
}

// ---- VTK images ----

TEST(DatasetAnalysisTest, ToImageDataMapsEveryElementType) {
  const int expected[] = {VTK_SIGNED_CHAR, VTK_SIGNED_CHAR, VTK_UNSIGNED_CHAR, VTK_SHORT, VTK_UNSIGNED_SHORT, VTK_INT,
                          VTK_UNSIGNED_INT, VTK_LONG, VTK_UNSIGNED_LONG, VTK_FLOAT, VTK_DOUBLE, 0};
  int i = 0;
  forEachElementType([&]<typename T>() {
    Dataset d(true);
    d.newDataset<T>(C(3, 2, 2, 1, 1), DatasetWorldEmbedding());
    fillWithPattern<T>(d);
    vtkSmartPointer<vtkImageData> image;
    image.TakeReference(d.toImageData(0, false));
    const char* name = DatasetMemory::getElementTypeName(d.getElementType());
    if (expected[i] == 0) {
      EXPECT_EQ(image.Get(), nullptr) << name << " has no VTK scalar type";
    } else {
      ASSERT_NE(image.Get(), nullptr) << name;
      EXPECT_EQ(image->GetScalarType(), expected[i]) << name;
      EXPECT_EQ(image->GetNumberOfScalarComponents(), 1);
      for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
        EXPECT_EQ(image->GetScalarComponentAsDouble(it.x, it.y, it.z, 0), d.getElement<double>(it)) << name << " at " << it;
    }
    ++i;
  });
}

TEST(DatasetAnalysisTest, ToImageDataTakesOneTimeStepAndTheEmbeddingOnRequest) {
  Dataset d(true);
  d.newDataset<short>(C(4, 3, 2, 3, 2), embedding(5, 6, 7, 0.5, 0.25, 2));
  fillWithPattern<short>(d);
  vtkSmartPointer<vtkImageData> plain;
  plain.TakeReference(d.toImageData(2, false));
  ASSERT_NE(plain.Get(), nullptr);
  int dimensions[3];
  plain->GetDimensions(dimensions);
  EXPECT_EQ(dimensions[0], 4);
  EXPECT_EQ(dimensions[1], 3);
  EXPECT_EQ(dimensions[2], 2);
  EXPECT_EQ(plain->GetSpacing()[0], 1.0);
  EXPECT_EQ(plain->GetOrigin()[2], 0.0);
  for (int z = 0; z < 2; ++z)
    for (int y = 0; y < 3; ++y)
      for (int x = 0; x < 4; ++x)
        EXPECT_EQ(plain->GetScalarComponentAsDouble(x, y, z, 0), d.getElement<double>(C(x, y, z, 2, 0))) << "component 0 of t 2";
  vtkSmartPointer<vtkImageData> placed;
  placed.TakeReference(d.toImageData(0, true));
  ASSERT_NE(placed.Get(), nullptr);
  EXPECT_EQ(placed->GetSpacing()[0], 0.5);
  EXPECT_EQ(placed->GetSpacing()[1], 0.25);
  EXPECT_EQ(placed->GetSpacing()[2], 2.0);
  EXPECT_EQ(placed->GetOrigin()[0], 5.0);
  EXPECT_EQ(placed->GetOrigin()[2], 7.0);

  EXPECT_EQ(d.toImageData(3, true), nullptr) << "time step outside";
  EXPECT_EQ(d.toImageData(-1, true), nullptr);
  Dataset empty(true);
  EXPECT_EQ(empty.toImageData(0, false), nullptr);
}

TEST(DatasetAnalysisTest, FromImageDataMapsEveryConvertibleScalarType) {
  const std::pair<int, TARVElementType> table[] = {
      {VTK_CHAR, TARV_ELEMENT_TYPE_SIGNED_CHAR},
      {VTK_SIGNED_CHAR, TARV_ELEMENT_TYPE_SIGNED_CHAR},
      {VTK_UNSIGNED_CHAR, TARV_ELEMENT_TYPE_UNSIGNED_CHAR},
      {VTK_SHORT, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT},
      {VTK_UNSIGNED_SHORT, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT},
      {VTK_INT, TARV_ELEMENT_TYPE_SIGNED_INT},
      {VTK_UNSIGNED_INT, TARV_ELEMENT_TYPE_UNSIGNED_INT},
      {VTK_LONG, TARV_ELEMENT_TYPE_SIGNED_LONG_INT},
      {VTK_UNSIGNED_LONG, TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT},
      {VTK_FLOAT, TARV_ELEMENT_TYPE_FLOAT},
      {VTK_DOUBLE, TARV_ELEMENT_TYPE_DOUBLE},
  };
  for (const auto& [scalarType, elementType] : table) {
    vtkSmartPointer<vtkImageData> image = countingImage(scalarType, 3, 4, 2);
    image->SetOrigin(1, 2, 3);
    image->SetSpacing(0.5, 0.75, 2);
    Dataset d(true);
    ::testing::internal::CaptureStderr();
    d.fromImageData(image, 0);
    ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(d.getElementType(), elementType) << "VTK scalar type " << scalarType;
    ASSERT_EQ(d.getSize(), C(3, 4, 2, 1, 1));
    EXPECT_EQ(d.getWorldEmbedding().getDatasetOrigin().y, 2.0);
    EXPECT_EQ(d.getWorldEmbedding().getVoxelSpacing().z, 2.0);
    for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      EXPECT_EQ(d.getElement<double>(it), image->GetScalarComponentAsDouble(it.x, it.y, it.z, 0)) << it;
  }
}

TEST(DatasetAnalysisTest, BoolDatasetComesBackAsSignedChar) {
  Dataset flags(true);
  flags.newDataset<bool>(C(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  flags.setAllElementsValue(0);
  flags.setElement<bool>(C(1, 2, 0), true);
  vtkSmartPointer<vtkImageData> image;
  image.TakeReference(flags.toImageData(0, false));
  Dataset back(true);
  ::testing::internal::CaptureStderr();
  back.fromImageData(image, 0);
  ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(back.getElementType(), TARV_ELEMENT_TYPE_SIGNED_CHAR);
  EXPECT_EQ(back.getElement<int>(C(1, 2, 0)), 1);
  EXPECT_EQ(back.getVoxelCountInValueRange(0, 0, false), 8u);
}

TEST(DatasetAnalysisTest, FromImageDataPrintsTheNonAxialWarningOnce) {
  Dataset d(true);
  ::testing::internal::CaptureStderr();
  d.fromImageData(countingImage(VTK_FLOAT, 2, 2, 1), 0);
  const std::string output = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(output, "Warning: Results may be unexpected for non axial datasets. in src/dataset/Dataset:638\n");
}

TEST(DatasetAnalysisTest, FromImageDataFillsTimeStepInPlace) {
  Dataset d(true);
  d.newDataset<unsigned char>(C(3, 4, 2, 3, 1), embedding(0, 0, 0, 1, 1, 1));
  d.setAllElementsValue(200);
  vtkSmartPointer<vtkImageData> image = countingImage(VTK_UNSIGNED_CHAR, 3, 4, 2);
  image->SetOrigin(-1, -2, -3);
  image->SetSpacing(2, 3, 4);
  ::testing::internal::CaptureStderr();
  d.fromImageData(image, 1);
  ::testing::internal::GetCapturedStderr();
  ASSERT_EQ(d.getSize(), C(3, 4, 2, 3, 1)) << "same x, y, z size and type: filled in place";
  EXPECT_EQ(d.getWorldEmbedding().getDatasetOrigin(), WorldCoordinates(-1, -2, -3, 0));
  EXPECT_EQ(d.getWorldEmbedding().getVoxelSpacing(), WorldCoordinates(2, 3, 4, 1));
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    const double expected = it.t == 1 ? image->GetScalarComponentAsDouble(it.x, it.y, it.z, 0) : 200.0;
    EXPECT_EQ(d.getElement<double>(it), expected) << it;
  }
}

TEST(DatasetAnalysisTest, FromImageDataRecreatesOnOtherSizeOrType) {
  Dataset d(true);
  d.newDataset<int>(C(3, 4, 2, 3, 1), DatasetWorldEmbedding());
  ::testing::internal::CaptureStderr();
  d.fromImageData(countingImage(VTK_UNSIGNED_CHAR, 3, 4, 2), 0);
  ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(d.getSize(), C(3, 4, 2, 1, 1));
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  EXPECT_EQ(d.getElement<int>(C(2, 3, 1)), 23);

  ::testing::internal::CaptureStderr();
  d.fromImageData(countingImage(VTK_SHORT, 5, 1, 1), 2);
  ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(d.getSize(), C(5, 1, 1, 1, 1)) << "re-created; time step 2 lies outside, so nothing is copied";
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
}

TEST(DatasetAnalysisTest, FromImageDataTakesTheFirstComponentAndAnyExtent) {
  auto image = vtkSmartPointer<vtkImageData>::New();
  image->SetExtent(10, 12, -5, -4, 3, 3);
  image->AllocateScalars(VTK_UNSIGNED_CHAR, 3);
  auto* values = static_cast<unsigned char*>(image->GetScalarPointer());
  for (int i = 0; i < 3 * 2 * 3; ++i) values[i] = static_cast<unsigned char>(i);
  Dataset d(true);
  ::testing::internal::CaptureStderr();
  d.fromImageData(image, 0);
  ::testing::internal::GetCapturedStderr();
  ASSERT_EQ(d.getSize(), C(3, 2, 1, 1, 1));
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 3; ++x) EXPECT_EQ(d.getElement<int>(C(x, y, 0)), 3 * (y * 3 + x)) << x << ", " << y;
}

TEST(DatasetAnalysisTest, FromImageDataIgnoresWhatItCannotConvert) {
  Dataset d(true);
  d.newDataset<float>(C(2, 2, 1, 1, 1), embedding(1, 2, 3, 1, 1, 1));
  d.setAllElementsValue(3.5);
  const Snapshot before(d);
  ::testing::internal::CaptureStderr();
  d.fromImageData(nullptr, 0);
  d.fromImageData(countingImage(VTK_LONG_LONG, 2, 2, 1), 0);
  d.fromImageData(countingImage(VTK_UNSIGNED_LONG_LONG, 2, 2, 1), 0);
  d.fromImageData(vtkSmartPointer<vtkImageData>::New(), 0);
  auto noScalars = vtkSmartPointer<vtkImageData>::New();
  noScalars->SetDimensions(2, 2, 1);
  d.fromImageData(noScalars, 0);
  // Dimensions that promise more voxels than the scalars hold.
  vtkSmartPointer<vtkImageData> lying = countingImage(VTK_FLOAT, 2, 2, 1);
  lying->SetDimensions(50, 50, 50);
  d.fromImageData(lying, 0);
  const std::string output = ::testing::internal::GetCapturedStderr();
  EXPECT_TRUE(Snapshot(d) == before);
  EXPECT_EQ(output, "") << "nothing was converted, so no warning";
}

TEST(DatasetAnalysisTest, FromImageDataOfAnIdTypeImageLeavesNoData) {
  Dataset d(true);
  d.newDataset<float>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  ::testing::internal::CaptureStderr();
  d.fromImageData(countingImage(VTK_ID_TYPE, 2, 2, 1), 0);
  ::testing::internal::GetCapturedStderr();
  EXPECT_FALSE(d.hasData()) << "VTK_ID_TYPE maps to the unknown element type, which cannot be stored";
}
