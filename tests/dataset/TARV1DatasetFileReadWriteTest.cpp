#include "dataset/TARV1DatasetFileReadWrite.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"

using namespace tarv;
using tarv::testing::TemporaryDirectory;
using tarv::testing::readBytes;
using tarv::testing::writeBytes;

namespace {

// A file made of the given header text padded to 2048 bytes and the samples, little endian.
std::string fileWith(const std::string& text, const std::vector<std::uint16_t>& samples) {
  std::string bytes = text;
  bytes.resize(2047, ' ');
  bytes += '\r';
  for (std::uint16_t s : samples) {
    bytes += static_cast<char>(s & 0xff);
    bytes += static_cast<char>(s >> 8);
  }
  return bytes;
}

std::uint16_t sampleAt(const std::string& bytes, std::size_t index, bool littleEndian) {
  const auto b0 = static_cast<unsigned char>(bytes.at(2048 + 2 * index));
  const auto b1 = static_cast<unsigned char>(bytes.at(2048 + 2 * index + 1));
  return littleEndian ? static_cast<std::uint16_t>(b0 + 256 * b1) : static_cast<std::uint16_t>(256 * b0 + b1);
}

const TARVElementType kAllTypes[] = {
    TARV_ELEMENT_TYPE_BOOL,         TARV_ELEMENT_TYPE_SIGNED_CHAR,        TARV_ELEMENT_TYPE_UNSIGNED_CHAR,
    TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, TARV_ELEMENT_TYPE_SIGNED_INT,
    TARV_ELEMENT_TYPE_UNSIGNED_INT, TARV_ELEMENT_TYPE_SIGNED_LONG_INT,    TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT,
    TARV_ELEMENT_TYPE_FLOAT,        TARV_ELEMENT_TYPE_DOUBLE,             TARV_ELEMENT_TYPE_LONG_DOUBLE};

}  // namespace

TEST(TARV1DatasetFileReadWriteTest, DefaultsAreLittleEndianAndNoName) {
  TARV1DatasetFileReadWrite io;
  EXPECT_TRUE(io.fileName.empty());
  EXPECT_TRUE(io.littleEndian);
}

TEST(TARV1DatasetFileReadWriteTest, RoundTripsEveryElementType) {
  TemporaryDirectory dir;
  const unsigned seed = 20240611;
  std::mt19937 random(seed);
  for (TARVElementType type : kAllTypes) {
    SCOPED_TRACE(::testing::Message() << "element type " << type << ", seed " << seed);
    Dataset d(true);
    d.newDataset(DatasetCoordinates(5, 4, 3, 2, 1), type, DatasetWorldEmbedding());
    ASSERT_TRUE(d.hasData());
    const bool isSigned = type == TARV_ELEMENT_TYPE_SIGNED_CHAR || type == TARV_ELEMENT_TYPE_SIGNED_SHORT_INT ||
                          type == TARV_ELEMENT_TYPE_SIGNED_INT || type == TARV_ELEMENT_TYPE_SIGNED_LONG_INT ||
                          type >= TARV_ELEMENT_TYPE_FLOAT;
    std::uniform_int_distribution<int> integer(isSigned ? -100 : 0, type == TARV_ELEMENT_TYPE_BOOL ? 1 : 120);
    std::uniform_real_distribution<double> real(-3.0, 9.0);
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      d.setElement<double>(it, type >= TARV_ELEMENT_TYPE_FLOAT ? real(random) : integer(random));
    TARV1DatasetFileReadWrite io;
    io.fileName = dir.file("roundtrip.tarv1");
    io.write(&d);
    ASSERT_EQ(std::filesystem::file_size(io.fileName), 2048u + 2u * 120u);

    Dataset back(true);
    io.read(&back);
    ASSERT_TRUE(back.hasData()) << "expected the written file to be read";
    EXPECT_EQ(back.getElementType(), TARV_ELEMENT_TYPE_FLOAT);
    EXPECT_EQ(back.getSize(), d.getSize());
    const double minimum = d.getMinimumValue();
    const double maximum = d.getMaximumValue();
    const double offset = std::floor(minimum);
    const double factor = maximum > offset ? std::max(1.0, std::floor(65535.0 / (maximum - offset))) : 1.0;
    // Integers survive exactly; reals within half a quantisation step (and float precision).
    const double tolerance = type >= TARV_ELEMENT_TYPE_FLOAT ? 0.5 / factor + 1e-5 : 0.0;
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
      const DatasetCoordinates p = it;
      EXPECT_NEAR(back.getElement<double>(p), d.getElement<double>(p), tolerance) << "at " << p;
    }
    EXPECT_TRUE(back.getMinimumAndMaximumValueCacheStatus()) << "expected the stated range to be cached";
    EXPECT_DOUBLE_EQ(back.getMinimumValue(), minimum);
    EXPECT_DOUBLE_EQ(back.getMaximumValue(), maximum);
  }
}

TEST(TARV1DatasetFileReadWriteTest, BigAndLittleEndianFilesHoldTheSameValues) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<unsigned short>(DatasetCoordinates(3, 2, 2, 1, 1), DatasetWorldEmbedding());
  int k = 0;
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<int>(it, 300 * k++);  // 0 .. 3300: offset 0, factor 19
  TARV1DatasetFileReadWrite little;
  little.fileName = dir.file("little.tarv1");
  little.write(&d);
  TARV1DatasetFileReadWrite big;
  big.fileName = dir.file("big.tarv1");
  big.littleEndian = false;
  big.write(&d);

  const std::string littleBytes = readBytes(little.fileName);
  const std::string bigBytes = readBytes(big.fileName);
  EXPECT_NE(littleBytes.find("endian = littleendian\n"), std::string::npos);
  EXPECT_NE(bigBytes.find("endian = bigendian\n"), std::string::npos);
  EXPECT_NE(littleBytes.find("factor = 19\n"), std::string::npos) << "expected floor(65535 / 3300) = 19";
  for (std::size_t i = 0; i < 12; ++i) {
    EXPECT_EQ(sampleAt(littleBytes, i, true), 300 * i * 19) << "little endian sample " << i;
    EXPECT_EQ(sampleAt(bigBytes, i, false), 300 * i * 19) << "big endian sample " << i;
  }
  // Sample 1 is 5700 = 0x1644: bytes 44 16 and 16 44.
  EXPECT_EQ(static_cast<unsigned char>(littleBytes[2050]), 0x44);
  EXPECT_EQ(static_cast<unsigned char>(bigBytes[2050]), 0x16);

  Dataset fromLittle(true);
  Dataset fromBig(true);
  TARV1DatasetFileReadWrite reader;
  reader.fileName = little.fileName;
  reader.read(&fromLittle);
  reader.fileName = big.fileName;
  reader.littleEndian = true;  // the byte order comes from the file, not from the object
  reader.read(&fromBig);
  ASSERT_TRUE(fromLittle.hasData());
  ASSERT_TRUE(fromBig.hasData());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates p = it;
    EXPECT_EQ(fromLittle.getElement<double>(p), d.getElement<double>(p)) << "at " << p;
    EXPECT_EQ(fromBig.getElement<double>(p), d.getElement<double>(p)) << "at " << p;
  }
}

TEST(TARV1DatasetFileReadWriteTest, TheHeaderIsPlainTextAPersonCanRead) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<float>(DatasetCoordinates(4, 3, 2, 1, 1),
                      DatasetWorldEmbedding(WorldCoordinates(1.5, -2, 10, 0), WorldCoordinates(0.5, 0.5, 2.5, 1)));
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, 0.5 * it.x - 1.0);
  TARV1DatasetFileReadWrite io;
  io.fileName = dir.file("text.tarv1");
  io.write(&d);
  const std::string bytes = readBytes(io.fileName);
  ASSERT_EQ(bytes.size(), 2048u + 2u * 24u);
  const std::string expected =
      "X = 4\nY = 3\nZ = 2\nt = 1\nfactor = 43690\nendian = littleendian\noffset = -1\n"
      "originX = 1.5\noriginY = -2\noriginZ = 10\noriginT = 0\n"
      "spacingX = 0.5\nspacingY = 0.5\nspacingZ = 2.5\nspacingT = 1\n"
      "minimumValue = -1\nmaximumValue = 0.5\n";
  EXPECT_EQ(bytes.substr(0, expected.size()), expected);
  for (std::size_t i = expected.size(); i < 2047; ++i) ASSERT_EQ(bytes[i], ' ') << "expected blank padding at " << i;
  EXPECT_EQ(bytes[2047], '\r');
  for (char c : bytes.substr(0, 2048))
    EXPECT_TRUE(c == '\n' || c == '\r' || (c >= 32 && c < 127)) << "expected printable text, got " << int(c);

  Dataset back(true);
  io.read(&back);
  ASSERT_TRUE(back.hasData());
  EXPECT_EQ(back.getWorldEmbedding().getDatasetOrigin(), WorldCoordinates(1.5, -2, 10, 0));
  EXPECT_EQ(back.getWorldEmbedding().getVoxelSpacing(), WorldCoordinates(0.5, 0.5, 2.5, 1));
}

TEST(TARV1DatasetFileReadWriteTest, AConstantDatasetIsStoredAsZeros) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<double>(DatasetCoordinates(3, 3, 1, 1, 1), DatasetWorldEmbedding());
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<double>(it, 7.0);
  TARV1DatasetFileReadWrite io;
  io.fileName = dir.file("constant.tarv1");
  io.write(&d);
  const std::string bytes = readBytes(io.fileName);
  EXPECT_NE(bytes.find("offset = 7\n"), std::string::npos);
  EXPECT_NE(bytes.find("factor = 1\n"), std::string::npos);
  for (std::size_t i = 0; i < 9; ++i) EXPECT_EQ(sampleAt(bytes, i, true), 0) << "sample " << i;
  Dataset back(true);
  io.read(&back);
  ASSERT_TRUE(back.hasData());
  for (auto it = back.getStartCoordinatesIterator(); it.valid; back.incrementCoordinatesIterator(it))
    EXPECT_EQ(back.getElement<double>(it), 7.0);
}

TEST(TARV1DatasetFileReadWriteTest, QuantisationOfAFractionalRange) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<double>(DatasetCoordinates(3, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<double>(DatasetCoordinates(0, 0, 0, 0, 0), -0.5);
  d.setElement<double>(DatasetCoordinates(1, 0, 0, 0, 0), 1.0);
  d.setElement<double>(DatasetCoordinates(2, 0, 0, 0, 0), 0.25);
  TARV1DatasetFileReadWrite io;
  io.fileName = dir.file("fraction.tarv1");
  io.write(&d);
  const std::string bytes = readBytes(io.fileName);
  EXPECT_NE(bytes.find("offset = -1\n"), std::string::npos);
  EXPECT_NE(bytes.find("factor = 32767\n"), std::string::npos);
  EXPECT_EQ(sampleAt(bytes, 2, true), 40959) << "expected round(1.25 * 32767)";
  Dataset back(true);
  io.read(&back);
  ASSERT_TRUE(back.hasData());
  EXPECT_EQ(back.getElement<double>(DatasetCoordinates(2, 0, 0, 0, 0)), static_cast<float>(40959.0 / 32767 - 1));
}

TEST(TARV1DatasetFileReadWriteTest, ValuesAboveTheStatedMaximumWrapAndNegativesBecomeZero) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<double>(DatasetCoordinates(3, 1, 1, 1, 1), DatasetWorldEmbedding());
  d.setElement<double>(DatasetCoordinates(0, 0, 0, 0, 0), 2.0);
  d.setElement<double>(DatasetCoordinates(1, 0, 0, 0, 0), -1.0);
  d.setElement<double>(DatasetCoordinates(2, 0, 0, 0, 0), 0.5);
  d.setCachedMinimumAndMaximumValue(0.0, 1.0);  // stale on purpose: offset 0, factor 65535
  TARV1DatasetFileReadWrite io;
  io.fileName = dir.file("wrap.tarv1");
  io.write(&d);
  const std::string bytes = readBytes(io.fileName);
  EXPECT_EQ(sampleAt(bytes, 0, true), static_cast<std::uint16_t>(131070)) << "expected the low 16 bits of 131070";
  EXPECT_EQ(sampleAt(bytes, 1, true), 0) << "expected a negative stored value clamped to 0";
  EXPECT_EQ(sampleAt(bytes, 2, true), 32768) << "expected round(0.5 * 65535), halves away from zero";
}

TEST(TARV1DatasetFileReadWriteTest, AHeaderWithoutBlanksIsRejectedAndTheDatasetCleared) {
  TemporaryDirectory dir;
  const std::string name = dir.file("noblanks.tarv1");
  writeBytes(name, fileWith("X=4\nY = 1\nZ = 1\nt = 1\nfactor = 1\n", {1, 2, 3, 4}));
  Dataset d(true);
  d.newDataset<int>(DatasetCoordinates(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  TARV1DatasetFileReadWrite io;
  io.fileName = name;
  io.read(&d);
  EXPECT_FALSE(d.hasData()) << "expected X to stay 0 and the dataset to be cleared";
  EXPECT_EQ(d.getSize(), DatasetCoordinates(0, 0, 0, 0, 0));
}

TEST(TARV1DatasetFileReadWriteTest, AMinimumWithoutMaximumGivesNoCachedRange) {
  TemporaryDirectory dir;
  const std::string name = dir.file("minonly.tarv1");
  writeBytes(name, fileWith("X = 2\nY = 1\nZ = 1\nt = 1\nfactor = 2\noffset = 1\nminimumValue = -50\n", {4, 6}));
  Dataset d(true);
  TARV1DatasetFileReadWrite io;
  io.fileName = name;
  io.read(&d);
  ASSERT_TRUE(d.hasData());
  EXPECT_FALSE(d.getMinimumAndMaximumValueCacheStatus()) << "expected no cached range from half a range";
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(0, 0, 0, 0, 0)), 3.0);
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(1, 0, 0, 0, 0)), 4.0);
  EXPECT_EQ(d.getMinimumValue(), 3.0) << "expected the range computed from the elements";

  writeBytes(name, fileWith("X = 2\nY = 1\nZ = 1\nt = 1\nfactor = 2\nminimumValue = -50\nmaximumValue = 80\n", {4, 6}));
  io.read(&d);
  ASSERT_TRUE(d.hasData());
  EXPECT_TRUE(d.getMinimumAndMaximumValueCacheStatus());
  EXPECT_EQ(d.getMinimumValue(), -50.0) << "expected the file's stated minimum";
  EXPECT_EQ(d.getMaximumValue(), 80.0);
}

TEST(TARV1DatasetFileReadWriteTest, AWrongFileLengthIsRejected) {
  TemporaryDirectory dir;
  const std::string name = dir.file("length.tarv1");
  const std::string good = fileWith("X = 2\nY = 2\nZ = 1\nt = 1\nfactor = 1\n", {1, 2, 3, 4});
  TARV1DatasetFileReadWrite io;
  io.fileName = name;
  for (int delta : {-1, +1}) {
    std::string bytes = good;
    if (delta < 0) bytes.pop_back();
    else bytes += '\0';
    writeBytes(name, bytes);
    Dataset d(true);
    d.newDataset<int>(DatasetCoordinates(2, 2, 1, 1, 1), DatasetWorldEmbedding());
    io.read(&d);
    EXPECT_FALSE(d.hasData()) << "expected a file " << delta << " byte(s) off to be rejected";
  }
  writeBytes(name, good);
  Dataset d(true);
  io.read(&d);
  EXPECT_TRUE(d.hasData()) << "expected the exactly sized file to be read";
}

TEST(TARV1DatasetFileReadWriteTest, CapitalisedBigEndianReadsAsLittleEndian) {
  TemporaryDirectory dir;
  const std::string name = dir.file("capitals.tarv1");
  writeBytes(name, fileWith("X = 1\nY = 1\nZ = 1\nt = 1\nfactor = 1\nendian = BigEndian\n", {0x0102}));
  Dataset d(true);
  TARV1DatasetFileReadWrite io;
  io.fileName = name;
  io.read(&d);
  ASSERT_TRUE(d.hasData());
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(0, 0, 0, 0, 0)), 0x0102) << "expected little endian decoding";
  writeBytes(name, fileWith("X = 1\nY = 1\nZ = 1\nt = 1\nfactor = 1\nendian = bigendian\n", {0x0102}));
  io.read(&d);
  ASSERT_TRUE(d.hasData());
  EXPECT_EQ(d.getElement<double>(DatasetCoordinates(0, 0, 0, 0, 0)), 0x0201) << "expected big endian decoding";
}

TEST(TARV1DatasetFileReadWriteTest, MalformedFilesAreRefusedAndClearTheDataset) {
  TemporaryDirectory dir;
  const std::string name = dir.file("bad.tarv1");
  const std::vector<std::string> files = {
      std::string(),                                                            // empty
      std::string(100, 'X'),                                                    // shorter than a header
      fileWith("X = 2\nY = 2\nZ = 1\nt = 1\nfactor = 1\n", {1, 2, 3}),          // truncated samples
      fileWith("X = 65536\nY = 65536\nZ = 1\nt = 1\nfactor = 1\n", {}),         // wraps to 2048 in 32 bits
      fileWith("X = -1\nY = -2\nZ = 1\nt = 1\nfactor = 1\n", {1}),              // negative extents
      fileWith("X = 2\nY = 1\nZ = 0\nt = 1\nfactor = 1\n", {}),                 // zero extent
      fileWith("X = 2\nY = 1\nZ = 1\nt = 1\nfactor = 0\n", {1, 2}),             // zero factor
      fileWith("X = 2147483647\nY = 2147483647\nZ = 2\nt = 2\nfactor = 1\n", {}),  // absurd extents
  };
  for (std::size_t i = 0; i < files.size(); ++i) {
    writeBytes(name, files[i]);
    Dataset d(true);
    d.newDataset<short>(DatasetCoordinates(2, 2, 1, 1, 1), DatasetWorldEmbedding());
    TARV1DatasetFileReadWrite io;
    io.fileName = name;
    io.read(&d);
    EXPECT_FALSE(d.hasData()) << "expected malformed file " << i << " to be refused";
  }
  Dataset d(true);
  d.newDataset<short>(DatasetCoordinates(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  TARV1DatasetFileReadWrite missing;
  missing.fileName = dir.file("does-not-exist.tarv1");
  missing.read(&d);
  EXPECT_FALSE(d.hasData()) << "expected a missing file to clear the dataset";
  missing.read(nullptr);  // no dataset: nothing happens
}

TEST(TARV1DatasetFileReadWriteTest, ADatasetWithoutDataLeavesTheFileUntouched) {
  TemporaryDirectory dir;
  const std::string name = dir.file("keep.tarv1");
  writeBytes(name, "previous contents");
  Dataset empty(true);
  TARV1DatasetFileReadWrite io;
  io.fileName = name;
  io.write(&empty);
  io.write(nullptr);
  EXPECT_EQ(readBytes(name), "previous contents");
  io.fileName = dir.file("no/such/dir/file.tarv1");
  Dataset d(true);
  d.newDataset<short>(DatasetCoordinates(2, 2, 1, 1, 1), DatasetWorldEmbedding());
  io.write(&d);  // unopenable: nothing written, no failure
  EXPECT_FALSE(std::filesystem::exists(io.fileName));
}

TEST(TARV1DatasetFileReadWriteTest, FourDimensionalDatasetsKeepTheirOrder) {
  TemporaryDirectory dir;
  Dataset d(true);
  d.newDataset<short>(DatasetCoordinates(2, 2, 2, 3, 1), DatasetWorldEmbedding());
  int k = 0;
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
    d.setElement<int>(it, k++);
  TARV1DatasetFileReadWrite io;
  io.fileName = dir.file("four.tarv1");
  io.write(&d);
  const std::string bytes = readBytes(io.fileName);
  EXPECT_NE(bytes.find("t = 3\n"), std::string::npos) << "expected the lower-case t key";
  // Samples in x, y, z, t order: sample i holds value i times the factor.
  const std::uint16_t factor = sampleAt(bytes, 1, true);
  for (std::size_t i = 0; i < 24; ++i) EXPECT_EQ(sampleAt(bytes, i, true), i * factor) << "sample " << i;
  Dataset back(true);
  io.read(&back);
  ASSERT_EQ(back.getSize(), d.getSize());
  EXPECT_EQ(back.getElement<double>(DatasetCoordinates(1, 0, 1, 2, 0)), 1 + 4 + 16);
}
