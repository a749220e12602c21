#include "dataset/ScaleDataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "FilterTestSupport.h"
#include "RowComparison.h"

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

TEST(ScaleDatasetTest, DescriptionRoundTripRestoresAllFiveParameters) {
  ScaleDataset d;
  d.setParameters(-1.5, 2.5, false, 10.25, -3.0);
  const std::string text = tarv::testing::describe(d);
  const char* entries[] = {"MinimalValue = -1.5\n", "MaximalValue = 2.5\n", "SourceMinimalValue = 10.25\n",
                           "SourceMaximalValue = -3\n", "CalculateSourceMinimalMaximalValues = false\n"};
  std::size_t last = 0;
  for (const char* entry : entries) {
    const std::size_t at = text.find(entry);
    ASSERT_NE(at, std::string::npos) << entry << " in\n" << text;
    EXPECT_GE(at, last) << entry << " out of order";
    last = at;
  }
  ScaleDataset e;
  tarv::testing::readDescription(e, text);
  const Parameters p = parametersOf(e);
  EXPECT_EQ(p.minimal, -1.5);
  EXPECT_EQ(p.maximal, 2.5);
  EXPECT_FALSE(p.calculate);
  EXPECT_EQ(p.sourceMinimal, 10.25);
  EXPECT_EQ(p.sourceMaximal, -3.0);
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

TEST(ScaleDatasetTest, EquivalenceIgnoresTheCalculateFlag) {
  Dataset source(true);
  makeRow(source, {1.0, 2.0});
  ScaleDataset a, b;
  a.setSourceDataset(&source);
  b.setSourceDataset(&source);
  a.setParameters(0.0, 1.0, false, 1.0, 2.0);
  b.setParameters(0.0, 1.0, true, 1.0, 2.0);
  EXPECT_TRUE(a.isDatasetEquivalent(&b));
  b.setParameters(0.0, 2.0, false, 1.0, 2.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b));
  b.setParameters(0.5, 1.0, false, 1.0, 2.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b));
  b.setParameters(0.0, 1.0, false, 0.0, 2.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b));
  b.setParameters(0.0, 1.0, false, 1.0, 3.0);
  EXPECT_FALSE(a.isDatasetEquivalent(&b));
}

// ---------------------------------------------------------------------------------------------
// Rows computed together against elements computed one by one (testing::Counted never takes the
// row path): random sources (NaN, infinities and signed zeros included) and parameters, bit for bit.

TEST(ScaleDatasetRowTest, RowsEqualElementByElementComputation) {
  for (unsigned seed = 1; seed <= 16; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto any = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    auto value = [&]() { return std::uniform_real_distribution<double>(-800.0, 800.0)(rng); };
    Dataset source(true);
    source.newDataset(tarv::testing::C(any(1, 90), any(1, 9), any(1, 6), any(1, 2), 1),
                      any(0, 1) == 0 ? TARV_ELEMENT_TYPE_FLOAT : TARV_ELEMENT_TYPE_SIGNED_INT, DatasetWorldEmbedding());
    tarv::testing::fillRandom(source, rng, true);
    ScaleDataset rows;
    tarv::testing::Counted<ScaleDataset> elements;
    for (ScaleDataset* d : std::initializer_list<ScaleDataset*>{&rows, &elements}) d->setSourceDataset(&source);
    const double low = value(), high = value(), sourceLow = value(), sourceHigh = value();
    const bool fromSource = any(0, 1) == 1;
    rows.setParameters(low, high, fromSource, sourceLow, sourceHigh);
    elements.setParameters(low, high, fromSource, sourceLow, sourceHigh);
    tarv::testing::evaluateAlike(rows, elements, rng);
  }
}
