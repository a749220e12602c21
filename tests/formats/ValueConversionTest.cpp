// Conversions that would lose values: limits, the fit check, clamping and the TARV1 range.
#include <gtest/gtest.h>

#include <limits>
#include <random>

#include "TestSupport.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/ValueConversion.h"

namespace tarv {
namespace {

TEST(ValueConversion, LimitsConvertBackIntoTheirType) {
  ElementTypeTable::forEach([]<typename Row>() {
    using T = typename Row::type;
    const formats::ValueLimits limits = formats::elementTypeLimits(Row::id);
    SCOPED_TRACE(std::string(Row::name));
    EXPECT_LE(static_cast<long double>(limits.highest), static_cast<long double>(std::numeric_limits<T>::max()));
    EXPECT_GE(static_cast<long double>(limits.lowest), static_cast<long double>(std::numeric_limits<T>::lowest()));
  });
  EXPECT_EQ(formats::elementTypeLimits(TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT).highest, 65535.0);
  EXPECT_EQ(formats::elementTypeLimits(TARV_ELEMENT_TYPE_SIGNED_CHAR).lowest, -128.0);
  EXPECT_LT(formats::elementTypeLimits(TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT).highest, 18446744073709551616.0);
}

TEST(ValueConversion, WhichTypesHoldEveryValueOfOthers) {
  EXPECT_TRUE(formats::typeHoldsEveryValueOf(TARV_ELEMENT_TYPE_SIGNED_INT, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT));
  EXPECT_TRUE(formats::typeHoldsEveryValueOf(TARV_ELEMENT_TYPE_FLOAT, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT));
  EXPECT_TRUE(formats::typeHoldsEveryValueOf(TARV_ELEMENT_TYPE_DOUBLE, TARV_ELEMENT_TYPE_SIGNED_INT));
  EXPECT_FALSE(formats::typeHoldsEveryValueOf(TARV_ELEMENT_TYPE_FLOAT, TARV_ELEMENT_TYPE_SIGNED_INT));
  EXPECT_FALSE(formats::typeHoldsEveryValueOf(TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, TARV_ELEMENT_TYPE_SIGNED_SHORT_INT));
  EXPECT_FALSE(formats::typeHoldsEveryValueOf(TARV_ELEMENT_TYPE_SIGNED_INT, TARV_ELEMENT_TYPE_FLOAT));
  EXPECT_TRUE(formats::typeHoldsEveryValueOf(TARV_ELEMENT_TYPE_UNSIGNED_CHAR, TARV_ELEMENT_TYPE_BOOL));
}

TEST(ValueConversion, TheFitCheckNamesBothRanges) {
  Dataset ct(true);
  ct.newDataset(DatasetCoordinates(3, 1, 1, 1, 1), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, DatasetWorldEmbedding());
  ct.setElement<int>(DatasetCoordinates(0, 0, 0, 0, 0), -1000);
  ct.setElement<int>(DatasetCoordinates(1, 0, 0, 0, 0), 40);
  ct.setElement<int>(DatasetCoordinates(2, 0, 0, 0, 0), 3000);
  EXPECT_EQ(formats::checkValuesFit(&ct, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT).message(),
            "values -1000 .. 3000 do not fit uint16 (0 .. 65535)");
  EXPECT_TRUE(formats::checkValuesFit(&ct, TARV_ELEMENT_TYPE_FLOAT).ok());
  ct.setElement<int>(DatasetCoordinates(0, 0, 0, 0, 0), 0);
  ct.setMinimumAndMaximumValueCacheStatus(false);
  EXPECT_TRUE(formats::checkValuesFit(&ct, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT).ok());
}

// Inside the limits, clamping converts as convertPartFrom does, bit for bit; outside, to the limit.
TEST(ValueConversion, ClampingEqualsTheConversionInsideTheLimits) {
  std::mt19937 random(12);
  Dataset source(true);
  source.newDataset(DatasetCoordinates(9, 7, 3, 2, 2), TARV_ELEMENT_TYPE_DOUBLE, DatasetWorldEmbedding());
  testing::fillRandomly(source, random, -400.0, 400.0);
  const DatasetBoundingBox box(DatasetCoordinates(1, 2, 0, 1, 0), DatasetCoordinates(7, 6, 2, 1, 1));
  for (TARVElementType type : {TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, TARV_ELEMENT_TYPE_UNSIGNED_CHAR, TARV_ELEMENT_TYPE_SIGNED_CHAR,
                               TARV_ELEMENT_TYPE_FLOAT, TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT}) {
    SCOPED_TRACE(elementTypeName(type));
    Dataset plain(true);
    Dataset clamped(true);
    plain.convertPartFrom(&source, type, box);
    ASSERT_TRUE(formats::convertPartClamping(clamped, &source, type, box));
    ASSERT_EQ(clamped.getSize(), plain.getSize());
    EXPECT_TRUE(clamped.getWorldEmbedding() == plain.getWorldEmbedding());
    const formats::ValueLimits limits = formats::elementTypeLimits(type);
    for (auto it = plain.getStartCoordinatesIterator(); it.valid; plain.incrementCoordinatesIterator(it)) {
      const DatasetCoordinates p(it.x + box.start.x, it.y + box.start.y, it.z + box.start.z, it.t + box.start.t, it.c + box.start.c);
      const double v = source.getElement<double>(p);
      if (v >= limits.lowest && v <= limits.highest)
        ASSERT_EQ(clamped.getElement<double>(it), plain.getElement<double>(it));
      else
        ASSERT_EQ(clamped.getElement<double>(it), v < limits.lowest ? limits.lowest : limits.highest);
    }
  }
}

TEST(ValueConversion, OneComponentKeepsItsValuesAndGeometry) {
  std::mt19937 random(5);
  Dataset source(true);
  const DatasetWorldEmbedding embedding(WorldCoordinates(1.5, -2.0, 3.0, 0.0), WorldCoordinates(0.5, 0.7, 2.0, 1.0));
  source.newDataset(DatasetCoordinates(5, 4, 3, 2, 3), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, embedding);
  testing::fillRandomly(source, random, -1000.0, 3000.0);
  for (int c = 0; c < 3; ++c) {
    Result<DatasetHandle> part = formats::componentOf(&source, c);
    ASSERT_TRUE(part.ok()) << part.status().toString();
    Dataset* one = GetRawPtr(*part);
    ASSERT_EQ(one->getSize(), DatasetCoordinates(5, 4, 3, 2, 1));
    EXPECT_EQ(one->getElementType(), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
    EXPECT_TRUE(one->getWorldEmbedding() == embedding);
    for (auto it = one->getStartCoordinatesIterator(); it.valid; one->incrementCoordinatesIterator(it))
      ASSERT_EQ(one->getElement<short>(it), source.getElement<short>(DatasetCoordinates(it.x, it.y, it.z, it.t, c)));
  }
  const Result<DatasetHandle> missing = formats::componentOf(&source, 3);
  ASSERT_FALSE(missing.ok());
  EXPECT_EQ(missing.status().code(), StatusCode::invalidArgument);
  EXPECT_EQ(missing.status().message(), "no component 3: the data has components 0 to 2");
}

TEST(ValueConversion, Tarv1Range) {
  EXPECT_TRUE(formats::checkTarv1HoldsRange(-1024.0, 64511.0).ok());
  EXPECT_FALSE(formats::checkTarv1HoldsRange(-1024.0, 64512.0).ok());
  EXPECT_TRUE(formats::checkTarv1HoldsRange(0.0, 1.0).ok());
  EXPECT_EQ(formats::checkTarv1HoldsRange(-0.5, 65535.0).message(),
            "TARV1 cannot hold values -0.5 .. 65535 (its 16-bit samples span at most 65535 steps): rescale them or "
            "choose another format");
}

}  // namespace
}  // namespace tarv
