#include "dataset/RawDatasetFileReadWrite.h"

#include <gtest/gtest.h>

#include <bit>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::TemporaryDirectory;
using tarv::testing::readBytes;
using tarv::testing::writeBytes;

namespace {

const TARVElementType kAllTypes[] = {
    TARV_ELEMENT_TYPE_BOOL,         TARV_ELEMENT_TYPE_SIGNED_CHAR,        TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
    TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, TARV_ELEMENT_TYPE_SIGNED_INT,
    TARV_ELEMENT_TYPE_UNSIGNED_INT, TARV_ELEMENT_TYPE_SIGNED_LONG_INT,    TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT,
    TARV_ELEMENT_TYPE_FLOAT,        TARV_ELEMENT_TYPE_DOUBLE,             TARV_ELEMENT_TYPE_LONG_DOUBLE};

// Fills a dataset with values that every element type holds exactly.
void fillRandomly(Dataset& d, std::mt19937& random) {
  const bool isBool = d.getElementType() == TARV_ELEMENT_TYPE_BOOL;
  const bool isUnsigned = d.getElementType() == TARV_ELEMENT_TYPE_UNSIGNED_CHAR ||
                          d.getElementType() == TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT ||
                          d.getElementType() == TARV_ELEMENT_TYPE_UNSIGNED_INT ||
                          d.getElementType() == TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT;
  std::uniform_int_distribution<int> value(isBool || isUnsigned ? 0 : -128, isBool ? 1 : 127);
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<int>(it, value(random));
}

}  // namespace

TEST(RawDatasetFileReadWriteTest, Defaults) {
  RawDatasetFileReadWrite io;
  EXPECT_TRUE(io.fileName.empty());
  EXPECT_EQ(io.elementType, TARV_ELEMENT_TYPE_DOUBLE);
  EXPECT_FALSE(io.byteSwap);
  EXPECT_EQ(io.headerSize, 0);
  EXPECT_EQ(io.trailerSize, 0);
  EXPECT_EQ(io.elementPrefixSize, 0);
  EXPECT_EQ(io.elementSuffixSize, 0);
}

TEST(RawDatasetFileReadWriteTest, StoredElementSizes) {
  const unsigned expected[] = {1, 1, 1, 2, 2, 4, 4, 8, 8, 4, 8, 16};
  for (int i = 0; i < 12; ++i)
    EXPECT_EQ(RawDatasetFileReadWrite::getStoredElementSize(kAllTypes[i]), expected[i]) << "type " << kAllTypes[i];
  EXPECT_EQ(RawDatasetFileReadWrite::getStoredElementSize(TARV_ELEMENT_TYPE_VOID), 0u);
  EXPECT_EQ(RawDatasetFileReadWrite::getStoredElementSize(static_cast<TARVElementType>(15)), 0u);
}

TEST(RawDatasetFileReadWriteTest, RoundTripsEveryTypeWithAndWithoutSwapAndFillers) {
  TemporaryDirectory dir;
  const unsigned seed = 4711;
  std::mt19937 random(seed);
  for (TARVElementType type : kAllTypes)
    for (bool swap : {false, true})
      for (int filler : {0, 3}) {
        SCOPED_TRACE(::testing::Message() << "type " << type << " swap " << swap << " filler " << filler << " seed " << seed);
        Dataset d(true);
        d.newDataset(DatasetCoordinates(5, 3, 2, 2, 2), type, DatasetWorldEmbedding());
        fillRandomly(d, random);
        RawDatasetFileReadWrite io;
        io.fileName = dir.file("roundtrip.raw");
        io.elementType = type;
        io.byteSwap = swap;
        io.headerSize = filler;
        io.trailerSize = 2 * filler;
        io.elementPrefixSize = filler;
        io.elementSuffixSize = filler + 1;
        io.write(&d);
        const std::uint64_t elementSize = RawDatasetFileReadWrite::getStoredElementSize(type);
        ASSERT_EQ(std::filesystem::file_size(io.fileName), 3u * filler + 120u * (elementSize + 2u * filler + 1u));
        Dataset back(true);
        back.newDataset(d.getSize(), type, DatasetWorldEmbedding());
        io.read(&back);
        for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
          const DatasetCoordinates p = it;
          ASSERT_EQ(back.getElement<long double>(p), d.getElement<long double>(p)) << "at " << p;
        }
      }
}

TEST(RawDatasetFileReadWriteTest, UnsignedShortsWithHeaderAndSuffix) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<unsigned short>(DatasetCoordinates(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  const unsigned short values[] = {0x0102, 7, 65535, 300};
  int k = 0;
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<unsigned short>(it, values[k++]);
  RawDatasetFileReadWrite io;
  io.fileName = dir.file("ushort.raw");
  io.elementType = TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT;
  io.headerSize = 4;
  io.elementSuffixSize = 1;
  io.write(&d);
  const std::string bytes = readBytes(io.fileName);
  ASSERT_EQ(bytes.size(), 16u) << "expected 4 + 4 * (2 + 1) bytes";
  EXPECT_EQ(bytes.substr(0, 4), std::string(4, '\0')) << "expected a zero header";
  for (int i = 0; i < 4; ++i) {
    unsigned short stored;
    std::memcpy(&stored, bytes.data() + 4 + 3 * i, 2);
    EXPECT_EQ(stored, values[i]) << "element " << i << " in host order";
    EXPECT_EQ(bytes[4 + 3 * i + 2], '\0') << "expected a zero suffix after element " << i;
  }
  Dataset back(true);
  back.newDataset<unsigned short>(DatasetCoordinates(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  io.read(&back);
  k = 0;
  for (auto it = back.getStartCoordinatesIterator(); it.valid; back.incrementCoordinatesIterator(it))
    EXPECT_EQ(back.getElement<unsigned short>(it), values[k++]);

  // The same file does not fit a 3 x 2 x 1 x 1 dataset: refused, dataset unchanged.
  Dataset larger(true);
  larger.newDataset<unsigned short>(DatasetCoordinates(3, 2, 1, 1, 1), DatasetWorldEmbedding());
  for (auto it = larger.getStartCoordinatesIterator(); it.valid; larger.incrementCoordinatesIterator(it))
    larger.setElement<unsigned short>(it, 11);
  io.read(&larger);
  for (auto it = larger.getStartCoordinatesIterator(); it.valid; larger.incrementCoordinatesIterator(it))
    EXPECT_EQ(larger.getElement<unsigned short>(it), 11) << "expected the dataset unchanged after a size mismatch";
}

TEST(RawDatasetFileReadWriteTest, ByteSwapStoresTheHighByteFirstOnThisMachine) {
  ASSERT_TRUE(std::endian::native == std::endian::little) << "this test describes a little-endian host";
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<unsigned short>(DatasetCoordinates(1, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<unsigned short>(DatasetCoordinates(0, 0, 0, 0, 0), 0x0102);
  RawDatasetFileReadWrite io;
  io.fileName = dir.file("swap.raw");
  io.elementType = TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT;
  io.byteSwap = true;
  io.write(&d);
  EXPECT_EQ(readBytes(io.fileName), std::string("\x01\x02", 2));
  io.byteSwap = false;
  io.write(&d);
  EXPECT_EQ(readBytes(io.fileName), std::string("\x02\x01", 2));
}

TEST(RawDatasetFileReadWriteTest, NegativeFillerSizesBecomeZeroAndStaySo) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<unsigned char>(DatasetCoordinates(2, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<int>(DatasetCoordinates(0, 0, 0, 0, 0), 5);
  d.setElement<int>(DatasetCoordinates(1, 0, 0, 0, 0), 6);
  RawDatasetFileReadWrite io;
  io.fileName = dir.file("negative.raw");
  io.elementType = TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
  io.headerSize = -5;
  io.trailerSize = -1;
  io.elementPrefixSize = -2;
  io.elementSuffixSize = -3;
  io.write(&d);
  EXPECT_EQ(io.headerSize, 0) << "expected the header size corrected to 0";
  EXPECT_EQ(io.trailerSize, 0);
  EXPECT_EQ(io.elementPrefixSize, 0);
  EXPECT_EQ(io.elementSuffixSize, 0);
  EXPECT_EQ(readBytes(io.fileName), std::string("\x05\x06", 2));
  io.headerSize = -5;
  Dataset back(true);
  back.newDataset<unsigned char>(DatasetCoordinates(2, 1, 1, 1, 1), DatasetWorldEmbedding());
  io.read(&back);
  EXPECT_EQ(io.headerSize, 0);
  EXPECT_EQ(back.getElement<int>(DatasetCoordinates(1, 0, 0, 0, 0)), 6);
}

TEST(RawDatasetFileReadWriteTest, ReadingConvertsToTheDatasetsElementType) {
  TemporaryDirectory dir;
  const double values[] = {3.75, 200.0, -1.0, 255.9};
  std::string bytes(sizeof(values), '\0');
  std::memcpy(bytes.data(), values, sizeof(values));
  const std::string name = dir.file("doubles.raw");
  writeBytes(name, bytes);
  Dataset d(true);
  d.newDataset<unsigned char>(DatasetCoordinates(4, 1, 1, 1, 1), DatasetWorldEmbedding());
  RawDatasetFileReadWrite io;
  io.fileName = name;
  io.elementType = TARV_ELEMENT_TYPE_DOUBLE;
  io.read(&d);
  for (int x = 0; x < 4; ++x) {
    unsigned char expected = 0;
    DatasetMemory::setBufferValue<double>(&expected, TARV_ELEMENT_TYPE_UNSIGNED_CHAR, values[x]);
    EXPECT_EQ(d.getElement<unsigned char>(DatasetCoordinates(x, 0, 0, 0, 0)), expected) << "at x " << x;
  }
  EXPECT_EQ(d.getElement<int>(DatasetCoordinates(0, 0, 0, 0, 0)), 3) << "expected truncation toward zero";
}

TEST(RawDatasetFileReadWriteTest, BoolElementsAreStoredAsBytesAndAnyNonZeroByteIsTrue) {
  TemporaryDirectory dir;
  const std::string name = dir.file("bool.raw");
  writeBytes(name, std::string("\x00\x01\x02\xff", 4));
  Dataset d(true);
  d.newDataset<bool>(DatasetCoordinates(4, 1, 1, 1, 1), DatasetWorldEmbedding());
  RawDatasetFileReadWrite io;
  io.fileName = name;
  io.elementType = TARV_ELEMENT_TYPE_BOOL;
  io.read(&d);
  EXPECT_FALSE(d.getElement<bool>(DatasetCoordinates(0, 0, 0, 0, 0)));
  for (int x = 1; x < 4; ++x) EXPECT_TRUE(d.getElement<bool>(DatasetCoordinates(x, 0, 0, 0, 0))) << "at x " << x;
  io.write(&d);
  EXPECT_EQ(readBytes(name), std::string("\x00\x01\x01\x01", 4));
}

TEST(RawDatasetFileReadWriteTest, UnsupportedTypesAndMissingShapesTransferNothing) {
  TemporaryDirectory dir;
  const std::string name = dir.file("unsupported.raw");
  writeBytes(name, std::string(8, '\x01'));
  Dataset d(true);
  d.newDataset<unsigned char>(DatasetCoordinates(8, 1, 1, 1, 1), DatasetWorldEmbedding());
  for (int x = 0; x < 8; ++x) d.setElement<int>(DatasetCoordinates(x, 0, 0, 0, 0), 42);
  RawDatasetFileReadWrite io;
  io.fileName = name;
  io.elementType = TARV_ELEMENT_TYPE_VOID;
  io.read(&d);
  for (int x = 0; x < 8; ++x)
    EXPECT_EQ(d.getElement<int>(DatasetCoordinates(x, 0, 0, 0, 0)), 42) << "expected no element read at x " << x;
  io.write(&d);
  EXPECT_EQ(std::filesystem::file_size(name), 0u) << "expected the file truncated and nothing written";

  Dataset unshaped(true);
  writeBytes(name, std::string(8, '\x01'));
  io.elementType = TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
  io.read(&unshaped);
  EXPECT_FALSE(unshaped.hasData());
  io.write(&unshaped);
  EXPECT_EQ(std::filesystem::file_size(name), 8u) << "expected the file untouched without a dataset shape";
  io.read(nullptr);
  io.write(nullptr);
  io.fileName = dir.file("missing.raw");
  io.read(&d);
  EXPECT_EQ(d.getElement<int>(DatasetCoordinates(0, 0, 0, 0, 0)), 42) << "expected a missing file to change nothing";
}

TEST(RawDatasetFileReadWriteTest, SizesBeyond32BitsAreRefused) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<unsigned char>(DatasetCoordinates(2, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<int>(DatasetCoordinates(0, 0, 0, 0, 0), 9);
  RawDatasetFileReadWrite io;
  io.elementType = TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
  // (2^31 - 1) + (2^31 - 1) + 2 = 2^32, which is 0 in 32 bits: an empty file must not match.
  io.fileName = dir.file("empty.raw");
  writeBytes(io.fileName, "");
  io.headerSize = INT_MAX;
  io.trailerSize = INT_MAX;
  io.read(&d);
  EXPECT_EQ(d.getElement<int>(DatasetCoordinates(0, 0, 0, 0, 0)), 9) << "expected the wrapped size refused";
  // A sparse file of exactly 2^31 + 1 bytes: beyond what the size check handles.
  io.fileName = dir.file("sparse.raw");
  writeBytes(io.fileName, "");
  std::filesystem::resize_file(io.fileName, (std::uint64_t(1) << 31) + 1);
  io.headerSize = INT_MAX;
  io.trailerSize = 0;
  io.read(&d);
  EXPECT_EQ(d.getElement<int>(DatasetCoordinates(0, 0, 0, 0, 0)), 9) << "expected a file above 2^31 - 1 bytes refused";
}

TEST(RawDatasetFileReadWriteTest, LargeFillersAreStreamedNotBuffered) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<short>(DatasetCoordinates(3, 1, 1, 1, 1), DatasetWorldEmbedding());
  for (int x = 0; x < 3; ++x) d.setElement<int>(DatasetCoordinates(x, 0, 0, 0, 0), -100 * x);
  RawDatasetFileReadWrite io;
  io.fileName = dir.file("large.raw");
  io.elementType = TARV_ELEMENT_TYPE_SIGNED_SHORT_INT;
  io.elementPrefixSize = 3 << 20;
  io.elementSuffixSize = 1;
  io.headerSize = 5;
  io.write(&d);
  ASSERT_EQ(std::filesystem::file_size(io.fileName), 5u + 3u * ((3u << 20) + 3u));
  Dataset back(true);
  back.newDataset<short>(DatasetCoordinates(3, 1, 1, 1, 1), DatasetWorldEmbedding());
  io.read(&back);
  for (int x = 0; x < 3; ++x) EXPECT_EQ(back.getElement<int>(DatasetCoordinates(x, 0, 0, 0, 0)), -100 * x);
}
