#include "dataset/ConstantDataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "FilterTestSupport.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;
using tarv::testing::CountingSource;

namespace {

double valueOf(const ConstantDataset& d) {
  double v = -1.0;
  d.getParameters(v);
  return v;
}

}  // namespace

TEST(ConstantDatasetTest, FreshDatasetHasDefaultsAndNoData) {
  ConstantDataset d;
  EXPECT_EQ(d.getTypeName(), "ConstantDataset");
  EXPECT_EQ(valueOf(d), 0.0);
  EXPECT_FALSE(d.isInputOk());
  EXPECT_FALSE(d.hasData());
}

TEST(ConstantDatasetTest, YieldsTheValueEverywhereAsFloatWithoutReadingTheSource) {
  CountingSource source;
  source.newDataset<short>(C(4, 4, 4, 1, 1), DatasetWorldEmbedding());
  tarv::testing::fill(source, [](const DatasetCoordinates& p) { return p.x - p.z; });
  Counted<ConstantDataset> d;
  d.setParameters(2.75);
  d.setSourceDataset(&source);
  source.resetCounters();
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_EQ(d.getSize(), C(4, 4, 4, 1, 1));
  tarv::testing::forEachVoxel(
      d.getSize(), [&](const DatasetCoordinates& p) { EXPECT_EQ(d.getElement<double>(p), 2.75) << "at " << p; });
  d.announceAccessToFullDataset();
  d.announceAccess(DatasetBoundingBox(C(0, 0, 0), C(1, 1, 1)));
  d.calculateFullDataset(nullptr);
  EXPECT_EQ(d.calculations, 64);
  EXPECT_EQ(source.reads, 0) << "the source's elements must never be read";
  EXPECT_EQ(source.announcements, 0) << "announcements must not reach the source";
  EXPECT_EQ(source.fullAnnouncements, 0);
  EXPECT_EQ(d.getCacheRegion(), DatasetBoundingBox(C(0, 0, 0), C(3, 3, 3))) << "its own cache follows";
}

TEST(ConstantDatasetTest, ValueIsRoundedToFloat) {
  Dataset source(true);
  source.newDataset<double>(C(1, 1, 1, 1, 1), DatasetWorldEmbedding());
  ConstantDataset d;
  d.setSourceDataset(&source);
  d.setParameters(0.1);
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), tarv::testing::asStoredFloat(0.1));
  d.setParameters(std::numeric_limits<double>::quiet_NaN());
  EXPECT_TRUE(std::isnan(d.getElement<double>(C(0, 0, 0)))) << "a NaN parameter is taken as given";
}

TEST(ConstantDatasetTest, AcceptsExactlyOneSource) {
  Dataset a(true), b(true);
  a.newDataset<short>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  b.newDataset<short>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  ConstantDataset d;
  d.setSourceDatasets({&a, &b});
  EXPECT_FALSE(d.hasData());
  d.setSourceDatasets({nullptr, &b});
  EXPECT_TRUE(d.hasData());
  EXPECT_EQ(d.getSourceDataset(), &b);
}

TEST(ConstantDatasetTest, DescriptionRoundTripAndUntrustedInput) {
  ConstantDataset d;
  d.setDatasetID(4);
  d.setParameters(-1.0e-300);
  const std::string text = tarv::testing::describe(d);
  EXPECT_NE(text.find("ElementValue = -1e-300\n"), std::string::npos) << text;
  ConstantDataset e;
  tarv::testing::readDescription(e, text);
  EXPECT_EQ(valueOf(e), -1.0e-300);
  EXPECT_EQ(e.getDatasetID(), 4);

  tarv::testing::readDescription(e, "Whatever = 1 2 3\nElementValue = nan\n");
  EXPECT_TRUE(std::isnan(valueOf(e)));
  tarv::testing::readDescription(e, "ElementValue = 1.5.5\n");
  EXPECT_EQ(valueOf(e), 0.0) << "a garbage double reads as 0.0";
  tarv::testing::readDescription(e, "");
  EXPECT_EQ(valueOf(e), 0.0) << "an empty description gives the default";
  EXPECT_EQ(e.getDatasetID(), -1);
}

TEST(ConstantDatasetTest, EquivalenceComparesTheValue) {
  Dataset source(true);
  source.newDataset<short>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  ConstantDataset a, b;
  a.setSourceDataset(&source);
  b.setSourceDataset(&source);
  a.setParameters(3.0);
  b.setParameters(3.0);
  EXPECT_TRUE(a.isDatasetEquivalent(&b));
  b.setParameters(3.5);
  EXPECT_FALSE(a.isDatasetEquivalent(&b));
  a.setParameters(std::numeric_limits<double>::quiet_NaN());
  b.setParameters(std::numeric_limits<double>::quiet_NaN());
  EXPECT_FALSE(a.isDatasetEquivalent(&b)) << "NaN parameters never compare equal";
}
