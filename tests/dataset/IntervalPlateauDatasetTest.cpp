#include "dataset/IntervalPlateauDataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "FilterTestSupport.h"
#include "dataset/LinearTransformationDataset.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;

namespace {

const double notANumber = std::numeric_limits<double>::quiet_NaN();

// A one-row double source holding the values.
void makeRow(Dataset& source, const std::vector<double>& values) {
  source.newDataset<double>(C(static_cast<int>(values.size()), 1, 1, 1, 1), DatasetWorldEmbedding());
  for (int x = 0; x < static_cast<int>(values.size()); ++x) source.setElement<double>(C(x, 0, 0), values[x]);
}

void parametersOf(const IntervalPlateauDataset& d, double& minimal, double& maximal) {
  d.getParameters(minimal, maximal);
}

}  // namespace

TEST(IntervalPlateauDatasetTest, FreshDatasetHasDefaults) {
  IntervalPlateauDataset d;
  double minimal = 0, maximal = 0;
  parametersOf(d, minimal, maximal);
  EXPECT_EQ(d.getTypeName(), "IntervalPlateauDataset");
  EXPECT_EQ(minimal, 1.0);
  EXPECT_EQ(maximal, 100.0);
  EXPECT_FALSE(d.hasData());
}

TEST(IntervalPlateauDatasetTest, FlattensTheIntervalAndReflectsAboveIt) {
  Dataset source(true);
  makeRow(source, {0.5, 1.0, 100.0, 50.0, 150.0, -3.0, notANumber});
  IntervalPlateauDataset d;
  d.setSourceDataset(&source);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), 0.5);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), 1.0);
  EXPECT_EQ(d.getElement<double>(C(2, 0, 0)), 1.0);
  EXPECT_EQ(d.getElement<double>(C(3, 0, 0)), 1.0);
  EXPECT_EQ(d.getElement<double>(C(4, 0, 0)), -49.0) << "reflected about min + max, not shifted";
  EXPECT_EQ(d.getElement<double>(C(5, 0, 0)), -3.0);
  EXPECT_TRUE(std::isnan(d.getElement<double>(C(6, 0, 0)))) << "NaN falls outside every interval";
}

TEST(IntervalPlateauDatasetTest, MaximumBelowMinimumIsRaised) {
  IntervalPlateauDataset d;
  double minimal = 0, maximal = 0;
  d.setParameters(5.0, 2.0);
  parametersOf(d, minimal, maximal);
  EXPECT_EQ(minimal, 5.0);
  EXPECT_EQ(maximal, 5.0);
  d.setParameters(-2.0, 7.0);
  parametersOf(d, minimal, maximal);
  EXPECT_EQ(minimal, -2.0);
  EXPECT_EQ(maximal, 7.0);
  d.setParameters(notANumber, 7.0);
  parametersOf(d, minimal, maximal);
  EXPECT_TRUE(std::isnan(minimal));
  EXPECT_EQ(maximal, 7.0) << "with a NaN bound the given maximum stays";
  d.setParameters(3.0, notANumber);
  parametersOf(d, minimal, maximal);
  EXPECT_EQ(minimal, 3.0);
  EXPECT_TRUE(std::isnan(maximal));
}

TEST(IntervalPlateauDatasetTest, ReadsItsSourceAsDoubleThroughTheGraph) {
  Dataset source(true);
  makeRow(source, {10.0, 20.0, 30.0});
  LinearTransformationDataset scaled;
  scaled.setParameters(0.5, 0.25);  // 5.25, 10.25, 15.25
  scaled.setSourceDataset(&source);
  Counted<IntervalPlateauDataset> d;
  d.setParameters(6.0, 12.0);
  d.setSourceDataset(&scaled);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), 5.25);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), 6.0);
  EXPECT_EQ(d.getElement<double>(C(2, 0, 0)), 6.0 + 12.0 - 15.25);
  d.getElement<double>(C(2, 0, 0));
  EXPECT_EQ(d.calculations, 3);
  d.setParameters(0.0, 20.0);
  EXPECT_EQ(d.getElement<double>(C(2, 0, 0)), 0.0);
  EXPECT_EQ(d.calculations, 4) << "new parameters must withdraw the computed element";
}

TEST(IntervalPlateauDatasetTest, DescriptionRoundTripAndUntrustedInput) {
  IntervalPlateauDataset d;
  d.setParameters(-0.5, 1e300);
  const std::string text = tarv::testing::describe(d);
  const auto minimalAt = text.find("MinimalPlateauValue = -0.5\n");
  const auto maximalAt = text.find("MaximalPlateauValue = 1e+300\n");
  ASSERT_NE(minimalAt, std::string::npos) << text;
  ASSERT_NE(maximalAt, std::string::npos) << text;
  EXPECT_LT(minimalAt, maximalAt);
  IntervalPlateauDataset e;
  tarv::testing::readDescription(e, text);
  double minimal = 0, maximal = 0;
  parametersOf(e, minimal, maximal);
  EXPECT_EQ(minimal, -0.5);
  EXPECT_EQ(maximal, 1e300);

  tarv::testing::readDescription(e, "MaximalPlateauValue = 0.5\nJunk\n");
  parametersOf(e, minimal, maximal);
  EXPECT_EQ(minimal, 1.0) << "missing minimum: default";
  EXPECT_EQ(maximal, 1.0) << "and the repair applies to what was read";
  tarv::testing::readDescription(e, "MinimalPlateauValue = x\nMaximalPlateauValue = -nan\n");
  parametersOf(e, minimal, maximal);
  EXPECT_EQ(minimal, 0.0);
  EXPECT_TRUE(std::isnan(maximal));
}
