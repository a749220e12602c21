#include "elementtypes/ElementConversions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "dataset/DatasetMemory.h"

namespace tarv {
namespace {

const double notANumber = std::numeric_limits<double>::quiet_NaN();
const double infinity = std::numeric_limits<double>::infinity();

TEST(ElementConversionsTest, WrappingTruncatesTowardZeroAndKeepsTheLowOrderBits) {
  EXPECT_EQ(convertElementValueWrapping<unsigned char>(300.7), 44);
  EXPECT_EQ(convertElementValueWrapping<signed char>(-129.9), 127);
  EXPECT_EQ(convertElementValueWrapping<unsigned short>(-1.5), 65535);
  EXPECT_EQ(convertElementValueWrapping<long>(-3.9f), -3);
  EXPECT_EQ(convertElementValueWrapping<int>(1e20), 1661992960);
  EXPECT_EQ(convertElementValueWrapping<unsigned long>(-1e20), 10680464442257309696UL);
}

TEST(ElementConversionsTest, WrappingGivesZeroForNaNAndInfinities) {
  EXPECT_EQ(convertElementValueWrapping<int>(notANumber), 0);
  EXPECT_EQ(convertElementValueWrapping<unsigned int>(infinity), 0u);
  EXPECT_EQ(convertElementValueWrapping<long>(-infinity), 0);
  EXPECT_EQ(convertElementValueWrapping<short>(std::numeric_limits<float>::quiet_NaN()), 0);
}

TEST(ElementConversionsTest, WrappingRoundsDoubleToFloatWithinTheFloatRange) {
  const double largest = std::numeric_limits<float>::max();
  EXPECT_EQ(convertElementValueWrapping<float>(largest * (1.0 + 1e-9)), std::numeric_limits<float>::max());
  EXPECT_EQ(convertElementValueWrapping<float>(-1e300), -std::numeric_limits<float>::infinity());
  EXPECT_EQ(convertElementValueWrapping<float>(0.1), 0.1f);
  EXPECT_TRUE(std::isnan(convertElementValueWrapping<float>(notANumber)));
}

TEST(ElementConversionsTest, WrappingAgreesWithTheElementConversionInsideTheTargetRange) {
  for (double v : {-128.0, -7.75, -0.5, 0.0, 0.99, 41.5, 127.0}) {
    EXPECT_EQ(convertElementValueWrapping<signed char>(v), convertElementValue<signed char>(v)) << v;
    EXPECT_EQ(convertElementValueWrapping<int>(v), convertElementValue<int>(v)) << v;
    EXPECT_EQ(convertElementValueWrapping<double>(static_cast<int>(v)), convertElementValue<double>(static_cast<int>(v)));
  }
  EXPECT_EQ(convertElementValueWrapping<int>(true), 1);
  EXPECT_EQ(convertElementValueWrapping<double>(false), 0.0);
}

}  // namespace
}  // namespace tarv
