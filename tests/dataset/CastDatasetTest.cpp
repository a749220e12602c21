#include "dataset/CastDataset.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "FilterTestSupport.h"
#include "dataset/EmptyDataset.h"

using namespace tarv;
using tarv::testing::C;
using tarv::testing::Counted;
using tarv::testing::CountingSource;

namespace {

TARVElementType parameterOf(const CastDataset& d) {
  TARVElementType t = TARV_ELEMENT_TYPE_NO_TYPE;
  d.getParameters(t);
  return t;
}

}  // namespace

TEST(CastDatasetTest, FreshDatasetHasDefaultsAndNoData) {
  CastDataset d;
  EXPECT_EQ(d.getTypeName(), "CastDataset");
  EXPECT_TRUE(d.isDependentDataset());
  EXPECT_EQ(parameterOf(d), TARV_ELEMENT_TYPE_FLOAT);
  EXPECT_FALSE(d.isInputOk());
  EXPECT_FALSE(d.hasData());
}

TEST(CastDatasetTest, AcceptsExactlyOneSource) {
  Dataset a(true), b(true);
  a.newDataset<short>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  b.newDataset<short>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  CastDataset d;
  d.setSourceDatasets({&a, &b});
  EXPECT_FALSE(d.isInputOk());
  EXPECT_FALSE(d.hasData());
  d.setSourceDataset(&a);
  EXPECT_TRUE(d.isInputOk());
  EXPECT_TRUE(d.hasData());
  d.removeSourceDatasets();
}

TEST(CastDatasetTest, TakesSizeAndEmbeddingFromTheSourceAndTypeFromTheParameter) {
  Dataset source(true);
  const DatasetWorldEmbedding embedding(WorldCoordinates(1, 2, 3, 0), WorldCoordinates(0.5, 0.25, 2, 1));
  source.newDataset<float>(C(5, 4, 3, 2, 1), embedding);
  CastDataset d;
  d.setParameters(TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
  d.setSourceDataset(&source);
  EXPECT_EQ(d.getSize(), C(5, 4, 3, 2, 1));
  EXPECT_EQ(d.getWorldEmbedding(), embedding);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT);
}

TEST(CastDatasetTest, ConvertsByTheLibraryRuleForEveryTargetType) {
  Dataset source(true);
  source.newDataset<double>(C(6, 1, 1, 1, 1), DatasetWorldEmbedding());
  const double values[6] = {-1.75, 0.0, 0.5, 300.25, -129.0, 70000.5};
  for (int x = 0; x < 6; ++x) source.setElement<double>(C(x, 0, 0), values[x]);
  for (int type = TARV_ELEMENT_TYPE_BOOL; type <= TARV_ELEMENT_TYPE_LONG_DOUBLE; ++type) {
    CastDataset d;
    d.setParameters(static_cast<TARVElementType>(type));
    d.setSourceDataset(&source);
    ASSERT_EQ(d.getElementType(), type);
    dispatchElementType(static_cast<TARVElementType>(type), [&]<typename T>() {
      for (int x = 0; x < 6; ++x) {
        const T expected = convertElementValue<T>(values[x]);
        EXPECT_EQ(d.getElement<T>(C(x, 0, 0)), expected)
            << "type " << DatasetMemory::getElementTypeName(type) << " x " << x;
      }
    });
  }
}

TEST(CastDatasetTest, HandPickedConversions) {
  Dataset source(true);
  source.newDataset<int>(C(3, 1, 1, 1, 1), DatasetWorldEmbedding());
  source.setElement<int>(C(0, 0, 0), 300);
  source.setElement<int>(C(1, 0, 0), -1);
  source.setElement<int>(C(2, 0, 0), 0);
  CastDataset d;
  d.setParameters(TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  d.setSourceDataset(&source);
  EXPECT_EQ(d.getElement<int>(C(0, 0, 0)), 44) << "300 wraps to 44 in 8 unsigned bits";
  EXPECT_EQ(d.getElement<int>(C(1, 0, 0)), 255) << "-1 wraps to 255";
  d.setParameters(TARV_ELEMENT_TYPE_BOOL);
  d.setSourceDataset(&source);
  EXPECT_TRUE(d.getElement<bool>(C(0, 0, 0)));
  EXPECT_TRUE(d.getElement<bool>(C(1, 0, 0)));
  EXPECT_FALSE(d.getElement<bool>(C(2, 0, 0)));
}

TEST(CastDatasetTest, ComputesEachElementOnceAndReadsTheSourceOncePerElement) {
  CountingSource source;
  source.newDataset<short>(C(4, 3, 2, 1, 1), DatasetWorldEmbedding());
  tarv::testing::fill(source, [](const DatasetCoordinates& p) { return p.x * 100 + p.y * 10 + p.z; });
  Counted<CastDataset> d;
  d.setParameters(TARV_ELEMENT_TYPE_DOUBLE);
  d.setSourceDataset(&source);
  source.resetCounters();
  for (int pass = 0; pass < 2; ++pass)
    tarv::testing::forEachVoxel(d.getSize(), [&](const DatasetCoordinates& p) {
      EXPECT_EQ(d.getElement<double>(p), p.x * 100 + p.y * 10 + p.z);
    });
  EXPECT_EQ(d.calculations, 24);
  EXPECT_EQ(source.reads, 24);
}

TEST(CastDatasetTest, ChangedTypeReachesTheDatasetOnlyWhenTheSourceIsSetAgain) {
  Dataset source(true);
  source.newDataset<short>(C(2, 1, 1, 1, 1), DatasetWorldEmbedding());
  source.setElement<short>(C(1, 0, 0), 7);
  CastDataset d;
  d.setParameters(TARV_ELEMENT_TYPE_SIGNED_INT);
  d.setSourceDataset(&source);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_SIGNED_INT);
  d.setParameters(TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_EQ(parameterOf(d), TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_SIGNED_INT) << "the element type must wait for re-derivation";
  // Meanwhile the wider target's bytes land in the narrower elements: a reinterpretation, but safe.
  d.getElement<double>(C(1, 0, 0));
  EXPECT_TRUE(d.getElementCacheStatus(C(1, 0, 0)));
  d.setSourceDataset(&source);
  EXPECT_EQ(d.getElementType(), TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_EQ(d.getElement<double>(C(1, 0, 0)), 7.0);
}

TEST(CastDatasetTest, UntrustedDescriptions) {
  CastDataset d;
  d.setParameters(TARV_ELEMENT_TYPE_DOUBLE);
  tarv::testing::readDescription(d, "ID = 3\nNoSuchEntry = 17\n");
  EXPECT_EQ(parameterOf(d), TARV_ELEMENT_TYPE_FLOAT) << "a missing entry gives the default";
  EXPECT_EQ(d.getDatasetID(), 3);
  tarv::testing::readDescription(d, "ElementType = banana\n");
  EXPECT_EQ(parameterOf(d), TARV_ELEMENT_TYPE_NO_TYPE) << "a garbage int reads as 0";
  tarv::testing::readDescription(d, "ElementType = 99\n");
  EXPECT_EQ(parameterOf(d), TARV_ELEMENT_TYPE_UNKNOWN) << "a number beyond the enumeration names no type";
  tarv::testing::readDescription(d, "ElementType = -4\n");
  EXPECT_EQ(parameterOf(d), TARV_ELEMENT_TYPE_UNKNOWN);
  tarv::testing::readDescription(d, "ElementType = 8\nElementType = 6");
  EXPECT_EQ(parameterOf(d), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT) << "the later duplicate wins, even unterminated";
  tarv::testing::readDescription(d, "ElementT");
  EXPECT_EQ(parameterOf(d), TARV_ELEMENT_TYPE_FLOAT) << "a truncated entry is skipped";

  // A non-storable target leaves the dataset without data.
  Dataset source(true);
  source.newDataset<short>(C(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  tarv::testing::readDescription(d, "ElementType = 99\n");
  d.setSourceDataset(&source);
  EXPECT_TRUE(d.isInputOk());
  EXPECT_FALSE(d.hasData());
  EXPECT_EQ(d.getElement<double>(C(0, 0, 0)), 0.0);
  d.removeSourceDatasets();
}
