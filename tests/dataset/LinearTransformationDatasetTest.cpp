#include "dataset/LinearTransformationDataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "FilterTestSupport.h"
#include "dataset/ConstantDataset.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;

namespace {

void parametersOf(const LinearTransformationDataset& d, double& factor, double& summand) {
  d.getParameters(factor, summand);
}

}  // namespace

TEST(LinearTransformationDatasetTest, FreshDatasetHasDefaults) {
  LinearTransformationDataset d;
  double factor = 0, summand = 1;
  parametersOf(d, factor, summand);
  EXPECT_EQ(d.getTypeName(), "LinearTransformationDataset");
  EXPECT_EQ(factor, 1.0);
  EXPECT_EQ(summand, 0.0);
}

TEST(LinearTransformationDatasetTest, ProductFirstThenSumInDoubleStoredAsFloat) {
  const unsigned seed = 20240611;
  SCOPED_TRACE(::testing::Message() << "seed " << seed);
  std::mt19937 random(seed);
  std::uniform_real_distribution<double> value(-1e4, 1e4);
  Dataset source(true);
  source.newDataset<double>(C(7, 5, 3, 2, 1), DatasetWorldEmbedding());
  tarv::testing::fill(source, [&](const DatasetCoordinates&) { return value(random); });
  const double factor = value(random) / 1e3, summand = value(random);
  LinearTransformationDataset d;
  d.setParameters(factor, summand);
  d.setSourceDataset(&source);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(d.getSize(), source.getSize());
  tarv::testing::forEachVoxel(d.getSize(), [&](const DatasetCoordinates& p) {
    const double product = source.getElement<double>(p) * factor;
    EXPECT_EQ(d.getElement<double>(p), tarv::testing::asStoredFloat(product + summand)) << "at " << p;
  });
}

TEST(LinearTransformationDatasetTest, ParametersAreTakenAsGiven) {
  Dataset source(true);
  source.newDataset<float>(C(1, 1, 1, 1, 1), DatasetWorldEmbedding());
  source.setElement<float>(C(0, 0, 0), 2.0f);
  Counted<LinearTransformationDataset> d;
  d.setSourceDataset(&source);
  d.setParameters(0.0, -3.0);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), -3.0);
  d.setParameters(std::numeric_limits<double>::infinity(), 0.0);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), std::numeric_limits<double>::infinity());
  d.setParameters(std::numeric_limits<double>::quiet_NaN(), 1.0);
  EXPECT_TRUE(std::isnan(d.getElement<double>(C(0, 0, 0))));
  double factor = 0, summand = 0;
  parametersOf(d, factor, summand);
  EXPECT_TRUE(std::isnan(factor));
  EXPECT_EQ(summand, 1.0);
  EXPECT_EQ(d.calculations, 3);
}

TEST(LinearTransformationDatasetTest, AnnouncementsReachNoSingleSource) {
  tarv::testing::CountingSource source;
  source.newDataset<short>(C(10, 10, 10, 1, 1), DatasetWorldEmbedding());
  LinearTransformationDataset d;
  d.setSourceDataset(&source);
  source.resetCounters();
  d.announceAccess(DatasetBoundingBox(C(2, 2, 2), C(4, 4, 4)));
  d.announceAccessToFullDataset();
  EXPECT_EQ(source.announcements, 0);
  EXPECT_EQ(source.fullAnnouncements, 0);
  EXPECT_EQ(d.getCacheRegion(), DatasetBoundingBox(C(0, 0, 0), C(9, 9, 9)));
}

TEST(LinearTransformationDatasetTest, DescriptionRoundTripAndUntrustedInput) {
  LinearTransformationDataset d;
  d.setParameters(-0.125, 1024.5);
  const std::string text = tarv::testing::describe(d);
  const auto factorAt = text.find("Factor = -0.125\n");
  const auto summandAt = text.find("Summand = 1024.5\n");
  ASSERT_NE(factorAt, std::string::npos) << text;
  ASSERT_NE(summandAt, std::string::npos) << text;
  EXPECT_LT(factorAt, summandAt);
  LinearTransformationDataset e;
  tarv::testing::readDescription(e, text);
  double factor = 0, summand = 0;
  parametersOf(e, factor, summand);
  EXPECT_EQ(factor, -0.125);
  EXPECT_EQ(summand, 1024.5);
  tarv::testing::readDescription(e, "Summand = 2\nFactor = \n");
  parametersOf(e, factor, summand);
  EXPECT_EQ(factor, 0.0) << "an empty value reads as 0.0";
  EXPECT_EQ(summand, 2.0);
  tarv::testing::readDescription(e, "Summand");
  parametersOf(e, factor, summand);
  EXPECT_EQ(factor, 1.0);
  EXPECT_EQ(summand, 0.0);
}
