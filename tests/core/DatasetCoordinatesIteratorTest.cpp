#include "core/DatasetCoordinatesIterator.h"

#include <gtest/gtest.h>

#include <limits>

using tarv::DatasetCoordinates;
using tarv::DatasetCoordinatesIterator;

TEST(DatasetCoordinatesIteratorTest, DefaultIsInvalidAtOrigin) {
  const DatasetCoordinatesIterator it;
  EXPECT_FALSE(it.valid);
  EXPECT_EQ(it.index, 0u);
  EXPECT_EQ(static_cast<const DatasetCoordinates&>(it), DatasetCoordinates());
}

TEST(DatasetCoordinatesIteratorTest, CarriesCoordinatesFlagAndIndex) {
  DatasetCoordinatesIterator it(DatasetCoordinates(1, 2, 3, 4, 5), true, 1234);
  EXPECT_TRUE(it.valid);
  EXPECT_EQ(it.index, 1234u);
  EXPECT_EQ(it.x, 1);
  EXPECT_EQ(it[4], 5);
  it.x += 1;
  it.index = std::numeric_limits<std::uint64_t>::max();
  EXPECT_EQ(it.index, std::numeric_limits<std::uint64_t>::max()) << "the index is 64 bits wide";
  const DatasetCoordinates& asCoordinates = it;
  EXPECT_EQ(asCoordinates, DatasetCoordinates(2, 2, 3, 4, 5));
}
