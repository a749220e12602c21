#include "dataset/DatasetMemory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <random>

#include "dataset/ArrayDatasetMemory.h"

using namespace tarv;

namespace {

const TARVElementType kStorableTypes[] = {
    TARV_ELEMENT_TYPE_BOOL,           TARV_ELEMENT_TYPE_SIGNED_CHAR,        TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
    TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, TARV_ELEMENT_TYPE_SIGNED_INT,
    TARV_ELEMENT_TYPE_UNSIGNED_INT,   TARV_ELEMENT_TYPE_SIGNED_LONG_INT,    TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT,
    TARV_ELEMENT_TYPE_FLOAT,          TARV_ELEMENT_TYPE_DOUBLE,             TARV_ELEMENT_TYPE_LONG_DOUBLE};

// A memory whose element allocation always fails.
class FailingMemory : public ArrayDatasetMemory {
protected:
  bool allocateElements() override { return false; }
};

}  // namespace

TEST(DatasetMemoryTest, ElementTypeTableGivesSizesAndClasses) {
  EXPECT_EQ(DatasetMemory::getElementTypeByType<void>(), TARV_ELEMENT_TYPE_VOID);
  EXPECT_EQ(DatasetMemory::getElementTypeByType<bool>(), TARV_ELEMENT_TYPE_BOOL);
  EXPECT_EQ(DatasetMemory::getElementTypeByType<unsigned long>(), TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT);
  EXPECT_EQ(DatasetMemory::getElementTypeByType<long double>(), TARV_ELEMENT_TYPE_LONG_DOUBLE);
  const unsigned bytes[] = {1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 16};
  const unsigned bits[] = {1, 8, 8, 16, 16, 32, 32, 64, 64, 32, 64, 128};
  for (int i = 0; i < 12; ++i) {
    ArrayDatasetMemory m;
    ASSERT_TRUE(m.allocate(DatasetCoordinates(2, 1, 1, 1, 1), kStorableTypes[i], DatasetCoordinates()));
    EXPECT_EQ(m.getElementByteSize(), bytes[i]) << "byte size of type " << kStorableTypes[i];
    EXPECT_EQ(m.getElementBitSize(), bits[i]) << "bit size of type " << kStorableTypes[i];
    EXPECT_EQ(m.hasLogicalElementType(), i == 0);
    EXPECT_EQ(m.hasNumericalElementType(), i > 0);
    EXPECT_EQ(m.hasIntegerElementType(), i > 0 && i < 9);
    EXPECT_EQ(m.hasFloatingPointElementType(), i >= 9);
  }
  EXPECT_STREQ(DatasetMemory::getElementTypeName(12), "TARV_ELEMENT_TYPE_FLOAT");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(0), "TARV_ELEMENT_TYPE_NO_TYPE");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(15), "TARV_ELEMENT_TYPE_UNKNOWN");
  EXPECT_STREQ(DatasetMemory::getElementTypeName(-3), "TARV_ELEMENT_TYPE_UNKNOWN");
}

TEST(DatasetMemoryTest, BoolMemoryOfNineElementsTakesTwoBytes) {
  ArrayDatasetMemory m;
  ASSERT_TRUE(m.allocate<bool>(DatasetCoordinates(9, 1, 1, 1, 1), DatasetCoordinates()));
  EXPECT_EQ(m.getMemoryUsage(), 2u);
  for (int x = 0; x < 9; ++x) m.setElement<bool>(DatasetCoordinates(x, 0, 0, 0, 0), false);
  m.setElement<bool>(DatasetCoordinates(8, 0, 0, 0, 0), true);
  const auto* block = static_cast<const unsigned char*>(m.getElementBlock());
  EXPECT_EQ(block[0], 0) << "first byte must hold elements 0..7, all false";
  EXPECT_EQ(block[1] & 1, 1) << "element 8 must be bit 0 of the second byte";
  m.setElement<bool>(DatasetCoordinates(8, 0, 0, 0, 0), false);
  EXPECT_EQ(block[1] & 1, 0);
  m.setElement<bool>(DatasetCoordinates(3, 0, 0, 0, 0), true);
  EXPECT_EQ(block[0], 8);
  EXPECT_TRUE(m.getElement<bool>(DatasetCoordinates(3, 0, 0, 0, 0)));
  EXPECT_FALSE(m.getElement<bool>(DatasetCoordinates(2, 0, 0, 0, 0)));
  m.setElement<int>(DatasetCoordinates(3, 0, 0, 0, 0), 0);
  EXPECT_EQ(block[0], 0);
}

TEST(DatasetMemoryTest, InvalidAllocationAnswersTrueAndLeavesMemoryUnallocated) {
  ArrayDatasetMemory m;
  EXPECT_TRUE(m.allocate(DatasetCoordinates(3, 0, 1, 1, 1), TARV_ELEMENT_TYPE_FLOAT, DatasetCoordinates()));
  EXPECT_FALSE(m.isAllocated());
  EXPECT_TRUE(m.allocate(DatasetCoordinates(3, 1, 1, 1, 1), TARV_ELEMENT_TYPE_VOID, DatasetCoordinates()));
  EXPECT_FALSE(m.isAllocated());
  EXPECT_TRUE(m.allocate(DatasetCoordinates(3, 1, 1, 1, 1), static_cast<TARVElementType>(15), DatasetCoordinates()));
  EXPECT_FALSE(m.isAllocated());
  EXPECT_EQ(m.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);

  // An invalid request leaves an allocated memory as it was.
  ASSERT_TRUE(m.allocate<short>(DatasetCoordinates(2, 2, 1, 1, 1), DatasetCoordinates()));
  m.setElement<short>(DatasetCoordinates(1, 1, 0, 0, 0), 77);
  EXPECT_TRUE(m.allocate(DatasetCoordinates(-1, 2, 1, 1, 1), TARV_ELEMENT_TYPE_FLOAT, DatasetCoordinates()));
  EXPECT_TRUE(m.isAllocated());
  EXPECT_EQ(m.getElementType(), TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  EXPECT_EQ(m.getElement<short>(DatasetCoordinates(1, 1, 0, 0, 0)), 77);
}

TEST(DatasetMemoryTest, FailedAllocationReturnsFalseAndClearsSizeAndType) {
  FailingMemory m;
  EXPECT_FALSE(m.allocate<int>(DatasetCoordinates(4, 4, 1, 1, 1), DatasetCoordinates()));
  EXPECT_FALSE(m.isAllocated());
  EXPECT_EQ(m.getSize(), DatasetCoordinates(0, 0, 0, 0, 0));
  EXPECT_EQ(m.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(m.getElementByteSize(), 0u);
}

TEST(DatasetMemoryTest, ElementCountOf2To31OrMoreIsRefused) {
  // 65536 * 32768 = 2^31 overflows the 32-bit product: the memory must not be allocated with a
  // block smaller than it claims to hold.
  ArrayDatasetMemory m;
  EXPECT_FALSE(m.allocate<unsigned char>(DatasetCoordinates(65536, 32768, 1, 1, 1), DatasetCoordinates()));
  EXPECT_FALSE(m.isAllocated());
  EXPECT_EQ(m.getElementCount(), 0);
  EXPECT_FALSE(m.allocate<bool>(DatasetCoordinates(65536, 65536, 65536, 1, 1), DatasetCoordinates()));
  EXPECT_FALSE(m.isAllocated());
  ArrayDatasetMemory ok;
  ASSERT_TRUE(ok.allocate<bool>(DatasetCoordinates(1000, 1000, 10, 1, 1), DatasetCoordinates()));
  EXPECT_EQ(ok.getElementCount(), 10000000);
}

TEST(DatasetMemoryTest, CoordinatesWithComponentOutsideStillCountAsInside) {
  ArrayDatasetMemory m;
  ASSERT_TRUE(m.allocate<float>(DatasetCoordinates(4, 3, 2, 1, 1), DatasetCoordinates(1, 1, 1, 0, 0)));
  EXPECT_EQ(m.getEnd(), DatasetCoordinates(4, 3, 2, 0, 0));
  EXPECT_TRUE(m.areCoordinatesInside(DatasetCoordinates(1, 1, 1, 0, 5)));
  EXPECT_TRUE(m.areCoordinatesInside(DatasetCoordinates(4, 3, 2, 0, -7)));
  EXPECT_FALSE(m.areCoordinatesInside(DatasetCoordinates(0, 1, 1, 0, 0)));
  EXPECT_FALSE(m.areCoordinatesInside(DatasetCoordinates(1, 1, 1, 1, 0)));
  EXPECT_TRUE(m.isBoundingBoxInside(DatasetBoundingBox(DatasetCoordinates(1, 1, 1, 0, 0), DatasetCoordinates(4, 3, 2, 0, 0))));
  EXPECT_FALSE(m.isBoundingBoxInside(DatasetBoundingBox(DatasetCoordinates(1, 1, 1, 0, 0), DatasetCoordinates(5, 3, 2, 0, 0))));
}

TEST(DatasetMemoryTest, ConversionsTruncateWrapAndTreatNaNAsTrue) {
  unsigned char buffer[16] = {};
  DatasetMemory::setBufferValue<float>(buffer, TARV_ELEMENT_TYPE_FLOAT, 2.7f);
  EXPECT_EQ(DatasetMemory::getBufferValue<int>(buffer, TARV_ELEMENT_TYPE_FLOAT), 2);
  DatasetMemory::setBufferValue<float>(buffer, TARV_ELEMENT_TYPE_FLOAT, -2.7f);
  EXPECT_EQ(DatasetMemory::getBufferValue<int>(buffer, TARV_ELEMENT_TYPE_FLOAT), -2);
  DatasetMemory::setBufferValue<int>(buffer, TARV_ELEMENT_TYPE_SIGNED_INT, 300);
  EXPECT_EQ(DatasetMemory::getBufferValue<unsigned char>(buffer, TARV_ELEMENT_TYPE_SIGNED_INT), 44);
  DatasetMemory::setBufferValue<double>(buffer, TARV_ELEMENT_TYPE_DOUBLE, std::nan(""));
  EXPECT_TRUE(DatasetMemory::getBufferValue<bool>(buffer, TARV_ELEMENT_TYPE_DOUBLE));
  DatasetMemory::setBufferValue<double>(buffer, TARV_ELEMENT_TYPE_DOUBLE, -0.0);
  EXPECT_FALSE(DatasetMemory::getBufferValue<bool>(buffer, TARV_ELEMENT_TYPE_DOUBLE));
  DatasetMemory::setBufferValue<bool>(buffer, TARV_ELEMENT_TYPE_BOOL, true);
  EXPECT_EQ(DatasetMemory::getBufferValue<double>(buffer, TARV_ELEMENT_TYPE_BOOL), 1.0);
  // Values at or above 2^63 to unsigned 64-bit: subtract 2^63 and set the top bit.
  DatasetMemory::setBufferValue<double>(buffer, TARV_ELEMENT_TYPE_DOUBLE, 1e19);
  EXPECT_EQ(DatasetMemory::getBufferValue<unsigned long>(buffer, TARV_ELEMENT_TYPE_DOUBLE), 10000000000000000000UL);
  DatasetMemory::setBufferValue<double>(buffer, TARV_ELEMENT_TYPE_DOUBLE, 9223372036854775808.0);
  EXPECT_EQ(DatasetMemory::getBufferValue<unsigned long>(buffer, TARV_ELEMENT_TYPE_DOUBLE), 1UL << 63);
  // -1.7 to unsigned char: truncation to -1, then the low byte.
  DatasetMemory::setBufferValue<float>(buffer, TARV_ELEMENT_TYPE_FLOAT, -1.7f);
  EXPECT_EQ(DatasetMemory::getBufferValue<unsigned char>(buffer, TARV_ELEMENT_TYPE_FLOAT), 255);
  // Writing a double into an int buffer truncates.
  DatasetMemory::setBufferValue<double>(buffer, TARV_ELEMENT_TYPE_SIGNED_INT, 2.9);
  EXPECT_EQ(DatasetMemory::getBufferValue<int>(buffer, TARV_ELEMENT_TYPE_SIGNED_INT), 2);
  // Out-of-range floating point values must not be undefined behaviour.
  DatasetMemory::setBufferValue<double>(buffer, TARV_ELEMENT_TYPE_DOUBLE, 1e300);
  (void)DatasetMemory::getBufferValue<int>(buffer, TARV_ELEMENT_TYPE_DOUBLE);
  (void)DatasetMemory::getBufferValue<long>(buffer, TARV_ELEMENT_TYPE_DOUBLE);
  (void)DatasetMemory::getBufferValue<unsigned long>(buffer, TARV_ELEMENT_TYPE_DOUBLE);
  DatasetMemory::setBufferValue<double>(buffer, TARV_ELEMENT_TYPE_DOUBLE, std::nan(""));
  (void)DatasetMemory::getBufferValue<short>(buffer, TARV_ELEMENT_TYPE_DOUBLE);
}

TEST(DatasetMemoryTest, InvalidBufferTypesReadZeroAndAreNotWritten) {
  unsigned char buffer[16];
  std::memset(buffer, 0xAB, sizeof buffer);
  EXPECT_EQ(DatasetMemory::getBufferValue<double>(buffer, TARV_ELEMENT_TYPE_VOID), 0.0);
  EXPECT_EQ(DatasetMemory::getBufferValue<int>(buffer, static_cast<TARVElementType>(15)), 0);
  DatasetMemory::setBufferValue<double>(buffer, TARV_ELEMENT_TYPE_NO_TYPE, 5.0);
  DatasetMemory::castBufferValue(buffer, buffer + 8, TARV_ELEMENT_TYPE_SIGNED_CHAR, TARV_ELEMENT_TYPE_UNKNOWN);
  for (unsigned char b : buffer) EXPECT_EQ(b, 0xAB) << "an invalid type must leave the buffer unwritten";
}

// Every pair of element types converts like the built-in conversion for values that are in
// range of both types.
TEST(DatasetMemoryTest, CastBufferValueMatchesBuiltInConversionForAllPairs) {
  std::mt19937 random(20261121);
  std::uniform_int_distribution<int> values(0, 100);
  for (TARVElementType from : kStorableTypes)
    for (TARVElementType to : kStorableTypes)
      for (int trial = 0; trial < 20; ++trial) {
        const int v = values(random);
        unsigned char source[16] = {}, target[16] = {};
        DatasetMemory::setBufferValue<int>(source, from, v);
        DatasetMemory::castBufferValue(source, target, from, to);
        const double expected = from == TARV_ELEMENT_TYPE_BOOL || to == TARV_ELEMENT_TYPE_BOOL ? (v != 0) : v;
        EXPECT_EQ(DatasetMemory::getBufferValue<double>(target, to), expected)
            << "value " << v << " from type " << from << " to type " << to;
      }
}

TEST(DatasetMemoryTest, IteratorCarriesTheLinearIndexInStorageOrder) {
  ArrayDatasetMemory m;
  ASSERT_TRUE(m.allocate<int>(DatasetCoordinates(3, 2, 2, 2, 2), DatasetCoordinates(1, 0, 2, 0, 0)));
  std::uint64_t expected = 0;
  DatasetCoordinatesIterator it = m.getStartCoordinatesIterator();
  DatasetCoordinates previous = it;
  EXPECT_TRUE(it.valid);
  for (; it.valid; m.incrementCoordinatesIterator(it)) {
    EXPECT_EQ(it.index, expected);
    EXPECT_EQ(m.getLinearIndex(it), expected) << "coordinates " << it;
    ++expected;
    previous = it;
  }
  EXPECT_EQ(expected, 48u);
  EXPECT_EQ(previous, DatasetCoordinates(3, 1, 3, 1, 1));
  EXPECT_EQ(static_cast<DatasetCoordinates>(it), m.getStart());
  EXPECT_EQ(it.index, 0u);
}

TEST(DatasetMemoryTest, BoxIteratorKeepsIndexEqualToLinearIndex) {
  ArrayDatasetMemory m;
  ASSERT_TRUE(m.allocate<int>(DatasetCoordinates(5, 4, 3, 2, 3), DatasetCoordinates()));
  const DatasetBoundingBox box(DatasetCoordinates(1, 1, 0, 1, 1), DatasetCoordinates(3, 2, 2, 1, 2));
  int visited = 0;
  DatasetCoordinatesIterator it = m.getStartCoordinatesIterator(box);
  ASSERT_TRUE(it.valid);
  DatasetCoordinates last;
  for (; it.valid; m.incrementCoordinatesIterator(box, it)) {
    EXPECT_EQ(it.index, m.getLinearIndex(it)) << "at " << it;
    for (int k = 0; k < 5; ++k) {
      EXPECT_GE(it[k], box.start[k]);
      EXPECT_LE(it[k], box.end[k]);
    }
    last = it;
    ++visited;
  }
  EXPECT_EQ(visited, 3 * 2 * 3 * 1 * 2);
  EXPECT_EQ(last, box.end);
  EXPECT_EQ(static_cast<DatasetCoordinates>(it), box.start);
  EXPECT_EQ(it.index, m.getLinearIndex(box.start));
}

TEST(DatasetMemoryTest, BoxIteratorOverABoxNotInsideStartsInvalid) {
  ArrayDatasetMemory m;
  EXPECT_FALSE(m.getStartCoordinatesIterator().valid) << "unallocated memory";
  ASSERT_TRUE(m.allocate<int>(DatasetCoordinates(5, 4, 3, 1, 1), DatasetCoordinates()));
  EXPECT_FALSE(m.getStartCoordinatesIterator(DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(5, 3, 2, 0, 0))).valid);
  EXPECT_FALSE(m.getStartCoordinatesIterator(DatasetBoundingBox(DatasetCoordinates(-1, 0, 0, 0, 0), DatasetCoordinates(1, 1, 1, 0, 0))).valid);
  EXPECT_FALSE(m.getStartCoordinatesIterator(DatasetBoundingBox()).valid) << "empty box";
  EXPECT_TRUE(m.getStartCoordinatesIterator(DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(4, 3, 2, 0, 0))).valid);
}

TEST(DatasetMemoryTest, CloneCopiesTheBlock) {
  ArrayDatasetMemory m;
  ASSERT_TRUE(m.allocate<short>(DatasetCoordinates(3, 3, 1, 1, 2), DatasetCoordinates(0, 0, 0, 0, 0)));
  short v = 0;
  for (auto it = m.getStartCoordinatesIterator(); it.valid; m.incrementCoordinatesIterator(it)) m.setElement<short>(it, v++);
  std::unique_ptr<DatasetMemory> copy(m.clone());
  ASSERT_TRUE(copy->isAllocated());
  EXPECT_EQ(copy->getSize(), m.getSize());
  EXPECT_EQ(copy->getElementType(), m.getElementType());
  for (auto it = m.getStartCoordinatesIterator(); it.valid; m.incrementCoordinatesIterator(it))
    EXPECT_EQ(copy->getElement<short>(it), m.getElement<short>(it));
  ArrayDatasetMemory empty;
  std::unique_ptr<DatasetMemory> emptyCopy(empty.clone());
  ASSERT_NE(emptyCopy, nullptr);
  EXPECT_FALSE(emptyCopy->isAllocated());
  std::unique_ptr<DatasetMemory> fresh(m.cloneEmpty());
  EXPECT_FALSE(fresh->isAllocated());
}

TEST(DatasetMemoryTest, CloneToAnotherTypeStoresTheUnconvertedBytesOfComponentZero) {
  ArrayDatasetMemory m;
  ASSERT_TRUE(m.allocate<int>(DatasetCoordinates(2, 1, 1, 1, 2), DatasetCoordinates()));
  m.setElement<int>(DatasetCoordinates(0, 0, 0, 0, 0), 300);
  m.setElement<int>(DatasetCoordinates(1, 0, 0, 0, 0), 7);
  std::unique_ptr<DatasetMemory> asChar(m.clone(TARV_ELEMENT_TYPE_UNSIGNED_CHAR));
  ASSERT_TRUE(asChar->isAllocated());
  EXPECT_EQ(asChar->getElementType(), TARV_ELEMENT_TYPE_UNSIGNED_CHAR);
  // The low byte of the int's bytes, not a converted value.
  EXPECT_EQ(asChar->getElement<int>(DatasetCoordinates(0, 0, 0, 0, 0)), 44);
  std::unique_ptr<DatasetMemory> asFloat(m.clone<float>());
  float expected;
  const int source = 7;
  std::memcpy(&expected, &source, sizeof expected);
  EXPECT_EQ(asFloat->getElement<float>(DatasetCoordinates(1, 0, 0, 0, 0)), expected)
      << "the int bytes of 7 reinterpreted as float";
  EXPECT_EQ(m.clone(TARV_ELEMENT_TYPE_VOID), nullptr);
  EXPECT_EQ(m.clone(static_cast<TARVElementType>(15)), nullptr);
  ArrayDatasetMemory unallocated;
  std::unique_ptr<DatasetMemory> emptyCopy(unallocated.clone(TARV_ELEMENT_TYPE_DOUBLE));
  ASSERT_NE(emptyCopy, nullptr);
  EXPECT_FALSE(emptyCopy->isAllocated());
}

TEST(DatasetMemoryTest, ReleaseReturnsToTheUnallocatedState) {
  ArrayDatasetMemory m;
  ASSERT_TRUE(m.allocate<double>(DatasetCoordinates(2, 2, 2, 1, 1), DatasetCoordinates(3, 3, 3, 0, 0)));
  m.release();
  EXPECT_FALSE(m.isAllocated());
  EXPECT_EQ(m.getSize(), DatasetCoordinates(0, 0, 0, 0, 0));
  EXPECT_EQ(m.getStart(), DatasetCoordinates(0, 0, 0, 0, 0));
  EXPECT_EQ(m.getElementType(), TARV_ELEMENT_TYPE_NO_TYPE);
  EXPECT_EQ(m.getElementBlock(), nullptr);
  m.release();
  EXPECT_FALSE(m.isAllocated());
}

TEST(DatasetMemoryTest, TypedAccessRoundTripsEveryType) {
  for (TARVElementType type : kStorableTypes) {
    ArrayDatasetMemory m;
    ASSERT_TRUE(m.allocate(DatasetCoordinates(4, 3, 2, 2, 3), type, DatasetCoordinates()));
    int n = 0;
    for (auto it = m.getStartCoordinatesIterator(); it.valid; m.incrementCoordinatesIterator(it))
      m.setElement<int>(it, type == TARV_ELEMENT_TYPE_BOOL ? (n++ % 3 == 0) : (n++ % 100));
    n = 0;
    for (auto it = m.getStartCoordinatesIterator(); it.valid; m.incrementCoordinatesIterator(it)) {
      const int expected = type == TARV_ELEMENT_TYPE_BOOL ? (n % 3 == 0) : (n % 100);
      EXPECT_EQ(m.getElement<int>(static_cast<const DatasetCoordinates&>(it)), expected) << "type " << type;
      ++n;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Bit runs of bool memories, found and set many at a time, against one bit at a time; clones
// that reuse a block, and blocks handed from a released memory to the next one, against plain
// clones and fresh memories.

TEST(ArrayDatasetMemoryRowTest, BitRunsEqualBitByBitAccess) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 rng(seed);
    auto any = [&](int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); };
    ArrayDatasetMemory m;
    const int count = any(1, 700);
    ASSERT_TRUE(m.allocate<bool>(DatasetCoordinates(count, 1, 1, 1, 1), DatasetCoordinates(0, 0, 0, 0, 0)));
    std::vector<bool> reference(static_cast<std::size_t>(count));
    const int density = any(0, 4);  // long runs of equal bits as well as mixed ones
    for (int i = 0; i < count; ++i) {
      reference[i] = density == 0 ? false : density == 4 ? true : any(0, density) == 0;
      m.setElement<bool>(DatasetCoordinates(i, 0, 0, 0, 0), reference[i]);
    }
    for (int k = 0; k < 30; ++k) {
      const int from = any(0, count - 1);
      const int n = any(0, count - from);
      const bool value = any(0, 1) == 1;
      if (any(0, 2) == 0) {
        m.setBits(static_cast<std::uint64_t>(from), static_cast<std::uint64_t>(n), value);
        for (int i = from; i < from + n; ++i) reference[i] = value;
      }
      std::uint64_t expected = static_cast<std::uint64_t>(from + n);
      for (int i = from; i < from + n; ++i)
        if (reference[i] == value) {
          expected = static_cast<std::uint64_t>(i);
          break;
        }
      EXPECT_EQ(m.findBit(static_cast<std::uint64_t>(from), static_cast<std::uint64_t>(n), value), expected);
    }
    for (int i = 0; i < count; ++i) EXPECT_EQ(m.getElement<bool>(DatasetCoordinates(i, 0, 0, 0, 0)), reference[i]);
  }
}

TEST(ArrayDatasetMemoryRowTest, CloneReusingABlockEqualsAPlainClone) {
  std::mt19937 rng(3);
  for (TARVElementType type : kStorableTypes) {
    ArrayDatasetMemory original, sameSize, otherSize;
    const DatasetCoordinates size(37, 5, 3, 1, 2), start(0, 0, 0, 0, 0);
    ASSERT_TRUE(original.allocate(size, type, start));
    ASSERT_TRUE(sameSize.allocate(size, type, start));
    ASSERT_TRUE(otherSize.allocate(DatasetCoordinates(5, 5, 5, 1, 1), type, start));
    for (auto it = original.getStartCoordinatesIterator(); it.valid; original.incrementCoordinatesIterator(it))
      original.setElement<double>(it, std::uniform_real_distribution<double>(-100, 100)(rng));
    std::unique_ptr<DatasetMemory> plain(original.clone());
    std::unique_ptr<DatasetMemory> reusing(original.cloneReusing(sameSize));
    std::unique_ptr<DatasetMemory> notReusing(original.cloneReusing(otherSize));
    EXPECT_FALSE(sameSize.isAllocated()) << "the donor gave its block away";
    EXPECT_TRUE(otherSize.isAllocated()) << "a block of another size is not taken";
    for (DatasetMemory* copy : {reusing.get(), notReusing.get()}) {
      EXPECT_EQ(copy->getSize(), plain->getSize());
      EXPECT_EQ(copy->getElementType(), plain->getElementType());
      EXPECT_EQ(copy->getMemoryUsage(), plain->getMemoryUsage());
      for (auto it = plain->getStartCoordinatesIterator(); it.valid; plain->incrementCoordinatesIterator(it)) {
        unsigned char a[16] = {}, b[16] = {};
        plain->getElementByBuffer(it, a);
        copy->getElementByBuffer(it, b);
        EXPECT_EQ(std::memcmp(a, b, sizeof(a)), 0);
      }
    }
  }
}

TEST(ArrayDatasetMemoryRowTest, BlocksOfReleasedMemoriesServeLaterAllocations) {
  // Blocks of a few megabytes are kept when released and handed to the next allocation of the
  // same byte size; whatever their history, the memories behave as fresh ones.
  const DatasetCoordinates size(256, 256, 8, 1, 1), start(0, 0, 0, 0, 0);
  for (int round = 0; round < 4; ++round) {
    ArrayDatasetMemory a, b;
    ASSERT_TRUE(a.allocate<float>(size, start));
    ASSERT_TRUE(b.allocate<float>(size, start));
    EXPECT_NE(a.getElementBlock(), b.getElementBlock());
    for (auto it = a.getStartCoordinatesIterator(); it.valid; a.incrementCoordinatesIterator(it)) {
      a.setElement<float>(it, static_cast<float>(it.index + round));
      b.setElement<float>(it, -static_cast<float>(it.index));
    }
    for (auto it = a.getStartCoordinatesIterator(); it.valid; a.incrementCoordinatesIterator(it)) {
      ASSERT_EQ(a.getElement<float>(it), static_cast<float>(it.index + round));
      ASSERT_EQ(b.getElement<float>(it), -static_cast<float>(it.index));
    }
    a.release();
    EXPECT_EQ(a.getMemoryUsage(), 0u);
  }
}
