#include "dataset/IntervalThresholdDataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "FilterTestSupport.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;

namespace {

const double notANumber = std::numeric_limits<double>::quiet_NaN();

struct Parameters {
  double minimal = 0, maximal = 0, foreground = 0, background = 0;
  bool setForeground = false, setBackground = false;
};

Parameters parametersOf(const IntervalThresholdDataset& d) {
  Parameters p;
  d.getParameters(p.minimal, p.maximal, p.foreground, p.background, p.setForeground, p.setBackground);
  return p;
}

void makeRow(Dataset& source, const std::vector<double>& values) {
  source.newDataset<double>(C(static_cast<int>(values.size()), 1, 1, 1, 1), DatasetWorldEmbedding());
  for (int x = 0; x < static_cast<int>(values.size()); ++x) source.setElement<double>(C(x, 0, 0), values[x]);
}

}  // namespace

TEST(IntervalThresholdDatasetTest, FreshDatasetHasDefaults) {
  IntervalThresholdDataset d;
  const Parameters p = parametersOf(d);
  EXPECT_EQ(d.getTypeName(), "IntervalThresholdDataset");
  EXPECT_EQ(p.minimal, 1.0);
  EXPECT_EQ(p.maximal, 100.0);
  EXPECT_EQ(p.foreground, 1.0);
  EXPECT_EQ(p.background, 0.0);
  EXPECT_FALSE(p.setForeground);
  EXPECT_FALSE(p.setBackground);
}

TEST(IntervalThresholdDatasetTest, WithBothFlagsOffTheOutputEqualsTheInput) {
  Dataset source(true);
  const std::vector<double> values = {1.0, 100.0, 0.999, 100.5, 50.0, -7.25};
  makeRow(source, values);
  IntervalThresholdDataset d;
  d.setParameters(1.0, 100.0, 1.0, 0.0, false, false);
  d.setSourceDataset(&source);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  for (int x = 0; x < static_cast<int>(values.size()); ++x)
    EXPECT_EQ(d.getElement<double>(C(x, 0, 0)), tarv::testing::asStoredFloat(values[x])) << "x " << x;
}

TEST(IntervalThresholdDatasetTest, BoundsAreInclusive) {
  Dataset source(true);
  makeRow(source, {1.0, 100.0, 0.999, 100.5, notANumber});
  IntervalThresholdDataset d;
  d.setParameters(1.0, 100.0, 1.0, 0.0, true, true);
  d.setSourceDataset(&source);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), 1.0);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), 1.0);
  EXPECT_EQ(d.getElement<double>(C(2, 0, 0)), 0.0);
  EXPECT_EQ(d.getElement<double>(C(3, 0, 0)), 0.0);
  EXPECT_EQ(d.getElement<double>(C(4, 0, 0)), 0.0) << "NaN is outside";
}

TEST(IntervalThresholdDatasetTest, EachFlagReplacesOnlyItsSide) {
  Dataset source(true);
  makeRow(source, {5.0, 500.0});
  Counted<IntervalThresholdDataset> d;
  d.setSourceDataset(&source);
  d.setParameters(1.0, 100.0, 7.0, -3.0, true, false);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), 7.0);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), 500.0);
  d.setParameters(1.0, 100.0, 7.0, -3.0, false, true);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), 5.0);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), -3.0);
  EXPECT_EQ(d.calculations, 4);
}

TEST(IntervalThresholdDatasetTest, SetParametersOrdersTheBoundsAndKeepsTheRest) {
  IntervalThresholdDataset d;
  d.setParameters(5.0, 2.0, notANumber, -1.0, true, false);
  const Parameters p = parametersOf(d);
  EXPECT_EQ(p.minimal, 5.0);
  EXPECT_EQ(p.maximal, 5.0);
  EXPECT_TRUE(std::isnan(p.foreground));
  EXPECT_EQ(p.background, -1.0);
  EXPECT_TRUE(p.setForeground);
  EXPECT_FALSE(p.setBackground);
  d.setParameters(notANumber, 2.0, 0, 0, false, false);
  EXPECT_EQ(parametersOf(d).maximal, 2.0);
}

TEST(IntervalThresholdDatasetTest, DescriptionRoundTripAndUntrustedInput) {
  IntervalThresholdDataset d;
  d.setParameters(-2.5, 2.5, 8.0, -8.0, true, true);
  const std::string text = tarv::testing::describe(d);
  const char* names[] = {"MinimalForegroundThresholdValue = -2.5\n",
                         "MaximalForegroundThresholdValue = 2.5\n",
                         "ForegroundValue = 8\n",
                         "BackgroundValue = -8\n",
                         "SetForeground = true\n",
                         "SetBackground = true\n"};
  std::size_t last = 0;
  for (const char* entry : names) {
    const std::size_t at = text.find(entry);
    ASSERT_NE(at, std::string::npos) << entry << " in\n" << text;
    EXPECT_GT(at, last) << entry << " out of order";
    last = at;
  }
  IntervalThresholdDataset e;
  tarv::testing::readDescription(e, text);
  const Parameters p = parametersOf(e);
  EXPECT_EQ(p.minimal, -2.5);
  EXPECT_EQ(p.maximal, 2.5);
  EXPECT_EQ(p.foreground, 8.0);
  EXPECT_EQ(p.background, -8.0);
  EXPECT_TRUE(p.setForeground);
  EXPECT_TRUE(p.setBackground);

  tarv::testing::readDescription(e, "SetForeground = maybe\nBackgroundValue = 4\nUnknown = true\nMinimalForeground");
  const Parameters q = parametersOf(e);
  EXPECT_FALSE(q.setForeground) << "garbage bool reads as false";
  EXPECT_EQ(q.background, 4.0);
  EXPECT_EQ(q.minimal, 1.0) << "truncated entry leaves the default";
  EXPECT_EQ(q.maximal, 100.0);
}
