#include "dataset/ScaleDataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "FilterTestSupport.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;

namespace {

struct Parameters {
  double minimal = -1, maximal = -1;
  bool calculate = false;
  double sourceMinimal = -1, sourceMaximal = -1;
};

Parameters parametersOf(const ScaleDataset& d) {
  Parameters p;
  d.getParameters(p.minimal, p.maximal, p.calculate, p.sourceMinimal, p.sourceMaximal);
  return p;
}

void makeRow(Dataset& source, const std::vector<double>& values) {
  source.newDataset<double>(C(static_cast<int>(values.size()), 1, 1, 1, 1), DatasetWorldEmbedding());
  for (int x = 0; x < static_cast<int>(values.size()); ++x) source.setElement<double>(C(x, 0, 0), values[x]);
}

}  // namespace

TEST(ScaleDatasetTest, FreshDatasetHasDefaults) {
  ScaleDataset d;
  const Parameters p = parametersOf(d);
  EXPECT_EQ(d.getTypeName(), "ScaleDataset");
  EXPECT_EQ(p.minimal, 0.0);
  EXPECT_EQ(p.maximal, 1.0);
  EXPECT_TRUE(p.calculate);
  EXPECT_EQ(p.sourceMinimal, 0.0);
  EXPECT_EQ(p.sourceMaximal, 1.0);
}

TEST(ScaleDatasetTest, MapsTheSourceRangeWithoutClamping) {
  Dataset source(true);
  makeRow(source, {15.0, 25.0, 10.0, 20.0, 0.0});
  ScaleDataset d;
  d.setSourceDataset(&source);
  d.setParameters(0.0, 1.0, false, 10.0, 20.0);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), 0.5);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), 1.5);
  EXPECT_EQ(d.getElement<double>(C(2, 0, 0)), 0.0);
  EXPECT_EQ(d.getElement<double>(C(3, 0, 0)), 1.0);
  EXPECT_EQ(d.getElement<double>(C(4, 0, 0)), -1.0);
}

TEST(ScaleDatasetTest, EvaluatesInTheDescribedOrder) {
  Dataset source(true);
  makeRow(source, {0.1, 0.7, 1.3, -2.9});
  ScaleDataset d;
  d.setSourceDataset(&source);
  const double minimal = 0.3, maximal = 2.9, sourceMinimal = -0.7, sourceMaximal = 1.1;
  d.setParameters(minimal, maximal, false, sourceMinimal, sourceMaximal);
  for (int x = 0; x < 4; ++x) {
    const double v = source.getElement<double>(C(x, 0, 0));
    const double relative = (v - sourceMinimal) / (sourceMaximal - sourceMinimal);
    const double scaled = relative * (maximal - minimal);
    EXPECT_EQ(d.getElement<double>(C(x, 0, 0)), tarv::testing::asStoredFloat(scaled + minimal)) << "x " << x;
  }
}

TEST(ScaleDatasetTest, EqualBoundsAreWidenedByOne) {
  ScaleDataset d;
  d.setParameters(3.0, 3.0, false, 7.0, 7.0);
  const Parameters p = parametersOf(d);
  EXPECT_EQ(p.minimal, 3.0);
  EXPECT_EQ(p.maximal, 4.0);
  EXPECT_FALSE(p.calculate);
  EXPECT_EQ(p.sourceMinimal, 7.0);
  EXPECT_EQ(p.sourceMaximal, 8.0);
  d.setParameters(5.0, 1.0, false, 9.0, 2.0);
  const Parameters q = parametersOf(d);
  EXPECT_EQ(q.maximal, 1.0) << "inverted ranges are kept";
  EXPECT_EQ(q.sourceMaximal, 2.0);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  d.setParameters(nan, nan, false, nan, nan);
  const Parameters r = parametersOf(d);
  EXPECT_TRUE(std::isnan(r.maximal)) << "NaN never equals, so nothing is widened";
  EXPECT_TRUE(std::isnan(r.sourceMaximal));
}

TEST(ScaleDatasetTest, CalculateFlagTakesTheSourceExtremesWheneverTheSourceChanges) {
  Dataset source(true);
  makeRow(source, {4.0, -6.0, 14.0});
  Counted<ScaleDataset> d;
  d.setParameters(0.0, 100.0, true, 0.0, 1.0);
  d.setSourceDataset(&source);
  Parameters p = parametersOf(d);
  EXPECT_EQ(p.sourceMinimal, -6.0);
  EXPECT_EQ(p.sourceMaximal, 14.0);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), 50.0);
  // New contents, announced to the depending datasets once written.
  makeRow(source, {1.0, 3.0});
  source.updateDependingDatasets();
  p = parametersOf(d);
  EXPECT_EQ(p.sourceMinimal, 1.0);
  EXPECT_EQ(p.sourceMaximal, 3.0);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), 100.0);
  // A constant source gives a range of width 1.
  makeRow(source, {5.0, 5.0, 5.0});
  source.updateDependingDatasets();
  p = parametersOf(d);
  EXPECT_EQ(p.sourceMinimal, 5.0);
  EXPECT_EQ(p.sourceMaximal, 6.0);
  EXPECT_EQ(d.getElement<double>(C(2, 0, 0)), 0.0);
  // setParameters takes the extremes as well.
  d.setParameters(0.0, 1.0, true, 100.0, 200.0);
  p = parametersOf(d);
  EXPECT_EQ(p.sourceMinimal, 5.0);
  EXPECT_EQ(p.sourceMaximal, 6.0);
}

TEST(ScaleDatasetTest, WithoutTheFlagTheGivenRangeStays) {
  Dataset source(true);
  makeRow(source, {4.0, -6.0, 14.0});
  ScaleDataset d;
  d.setParameters(0.0, 1.0, false, 2.0, 3.0);
  d.setSourceDataset(&source);
  const Parameters p = parametersOf(d);
  EXPECT_EQ(p.sourceMinimal, 2.0);
  EXPECT_EQ(p.sourceMaximal, 3.0);
}

TEST(ScaleDatasetTest, MissingSourceMinimalValueLeavesTheDefault) {
  ScaleDataset e;
  tarv::testing::readDescription(e, "ID = 2\nType = ScaleDataset\nMinimalValue = 4\nSourceMaximalValue = 9\n");
  const Parameters p = parametersOf(e);
  EXPECT_EQ(p.sourceMinimal, 0.0);
  EXPECT_EQ(p.sourceMaximal, 9.0);
  EXPECT_EQ(p.minimal, 4.0);
  EXPECT_EQ(p.maximal, 1.0) << "the default maximum stays, below the minimum";
  EXPECT_TRUE(p.calculate);
}

TEST(ScaleDatasetTest, GarbageAndTruncatedDescriptions) {
  ScaleDataset e;
  tarv::testing::readDescription(e,
                                 "MinimalValue = 7\nMaximalValue = seven\nCalculateSourceMinimalMaximalValues = 0\n"
                                 "SourceMinimalValue = 1e999\nSourceMaximalValue");
  const Parameters p = parametersOf(e);
  EXPECT_EQ(p.minimal, 7.0);
  EXPECT_EQ(p.maximal, 0.0) << "garbage reads as 0.0";
  EXPECT_FALSE(p.calculate);
  EXPECT_EQ(p.sourceMinimal, 0.0) << "out of range reads as 0.0";
  EXPECT_EQ(p.sourceMaximal, 1.0) << "truncated entry keeps the default";
}
