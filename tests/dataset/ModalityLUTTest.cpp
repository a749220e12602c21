#include "dataset/ModalityLUT.h"

#include <gtest/gtest.h>

using namespace tarv;

TEST(ModalityLUTTest, FreshLutIsInvalidIdentity) {
  ModalityLUT lut;
  EXPECT_FALSE(lut.isValid());
  EXPECT_EQ(lut.getSlope(), 1.0);
  EXPECT_EQ(lut.getIntercept(), 0.0);
  EXPECT_EQ(lut.map(7), 7.0);
  EXPECT_EQ(lut.unmap(7), 7.0);
}

TEST(ModalityLUTTest, SetMapsAndUnmaps) {
  ModalityLUT lut;
  lut.set(2, -1);
  EXPECT_TRUE(lut.isValid());
  EXPECT_EQ(lut.map(7), 13.0);
  EXPECT_EQ(lut.unmap(13), 7.0);
  lut.reset();
  EXPECT_FALSE(lut.isValid());
  EXPECT_EQ(lut.map(7), 7.0);
}
