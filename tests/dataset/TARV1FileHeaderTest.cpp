#include "dataset/TARV1FileHeader.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

using namespace tarv;

namespace {

// A file image: the header text padded to 2048 bytes, then sampleBytes bytes of samples.
std::string fileImage(const std::string& text, std::size_t sampleBytes) {
  std::string bytes = text;
  bytes.resize(TARV1FileHeader::headerByteSize - 1, ' ');
  bytes += '\r';
  bytes.append(sampleBytes, '\0');
  return bytes;
}

const char* const kHeader2x3x1x1 = "X = 2\nY = 3\nZ = 1\nt = 1\nfactor = 1\n";

}  // namespace

TEST(TARV1FileHeaderTest, DefaultsWithoutEntries) {
  TARV1FileHeader header;
  header.parseText("");
  EXPECT_EQ(header.size, DatasetCoordinates(0, 0, 0, 0, 1));
  EXPECT_EQ(header.factor, 0);
  EXPECT_EQ(header.offset, 0);
  EXPECT_TRUE(header.littleEndian);
  EXPECT_EQ(header.origin, WorldCoordinates(0, 0, 0, 0));
  EXPECT_EQ(header.spacing, WorldCoordinates(1, 1, 1, 1));
  EXPECT_FALSE(header.hasValueRange());
}

TEST(TARV1FileHeaderTest, ParsesEveryKey) {
  TARV1FileHeader header;
  header.parseText(
      "X = 4\nY = 5\nZ = 6\nt = 2\nfactor = 3\nendian = bigendian\noffset = -7\noriginX = 1.5\noriginY = -2\n"
      "originZ = 3.25\noriginT = 4\nspacingX = 0.5\nspacingY = 0.75\nspacingZ = 2.5\nspacingT = 3\n"
      "minimumValue = -7\nmaximumValue = 100.5\nunknownKey = whatever\n");
  EXPECT_EQ(header.size, DatasetCoordinates(4, 5, 6, 2, 1));
  EXPECT_EQ(header.factor, 3);
  EXPECT_EQ(header.offset, -7);
  EXPECT_FALSE(header.littleEndian);
  EXPECT_EQ(header.origin, WorldCoordinates(1.5, -2, 3.25, 4));
  EXPECT_EQ(header.spacing, WorldCoordinates(0.5, 0.75, 2.5, 3));
  EXPECT_TRUE(header.hasValueRange());
  EXPECT_DOUBLE_EQ(header.minimumValue, -7.0);
  EXPECT_DOUBLE_EQ(header.maximumValue, 100.5);
  EXPECT_EQ(header.getWorldEmbedding().getDatasetOrigin(), WorldCoordinates(1.5, -2, 3.25, 4));
  EXPECT_EQ(header.getWorldEmbedding().getVoxelSpacing(), WorldCoordinates(0.5, 0.75, 2.5, 3));
}

TEST(TARV1FileHeaderTest, LinesWithoutBlanksAroundTheEqualsSignAreIgnored) {
  TARV1FileHeader header;
  header.parseText("X=4\nY = 5\n");
  EXPECT_EQ(header.size.x, 0) << "expected X=4 not to be understood";
  EXPECT_EQ(header.size.y, 5);
}

TEST(TARV1FileHeaderTest, OnlyTheExactWordBigendianSelectsBigEndian) {
  TARV1FileHeader header;
  header.parseText("endian = BigEndian\n");
  EXPECT_TRUE(header.littleEndian) << "expected BigEndian (capitals) to read as little endian";
  header.parseText("endian = bigendian\n");
  EXPECT_FALSE(header.littleEndian);
  header.parseText("endian = littleendian\n");
  EXPECT_TRUE(header.littleEndian);
}

TEST(TARV1FileHeaderTest, LaterLinesOverrideEarlierOnes) {
  TARV1FileHeader header;
  header.parseText("X = 4\nfactor = 2\nX = 9\nfactor = 5\n");
  EXPECT_EQ(header.size.x, 9);
  EXPECT_EQ(header.factor, 5);
}

TEST(TARV1FileHeaderTest, MinimumWithoutMaximumGivesNoRange) {
  TARV1FileHeader header;
  header.parseText("minimumValue = 3\n");
  EXPECT_TRUE(header.minimumValueGiven);
  EXPECT_FALSE(header.hasValueRange());
  header.parseText("maximumValue = 3\n");
  EXPECT_FALSE(header.hasValueRange());
}

TEST(TARV1FileHeaderTest, ReadsAndAcceptsAnExactlySizedFile) {
  std::istringstream stream(fileImage(kHeader2x3x1x1, 12));
  TARV1FileHeader header;
  ASSERT_TRUE(header.read(stream));
  EXPECT_EQ(header.size, DatasetCoordinates(2, 3, 1, 1, 1));
  EXPECT_EQ(stream.tellg(), std::streamoff(2048)) << "expected the stream at the first sample";
  EXPECT_EQ(header.getSliceSampleCount(), 6u);
  EXPECT_EQ(header.getSampleCount(), 6u);
}

TEST(TARV1FileHeaderTest, OneByteTooManyOrTooFewIsRefused) {
  for (std::size_t bytes : {11u, 13u}) {
    std::istringstream stream(fileImage(kHeader2x3x1x1, bytes));
    TARV1FileHeader header;
    EXPECT_FALSE(header.read(stream)) << "expected a file with " << bytes << " sample bytes instead of 12 refused";
  }
}

TEST(TARV1FileHeaderTest, FilesShorterThanTheHeaderAreRefused) {
  for (std::size_t length : {0u, 1u, 100u, 2047u}) {
    std::istringstream stream(std::string(length, 'X'));
    TARV1FileHeader header;
    EXPECT_FALSE(header.read(stream)) << "expected a " << length << "-byte file refused";
  }
}

TEST(TARV1FileHeaderTest, ZeroNegativeAndMissingValuesAreRefused) {
  const char* const texts[] = {
      "X = 0\nY = 3\nZ = 1\nt = 1\nfactor = 1\n",       "X = -2\nY = -3\nZ = 1\nt = 1\nfactor = 1\n",
      "X = 2\nY = 3\nZ = 1\nt = 1\nfactor = 0\n",       "X = 2\nY = 3\nZ = 1\nt = 1\nfactor = -1\n",
      "X = 2\nY = 3\nZ = 1\nfactor = 1\n",              "Y = 3\nZ = 1\nt = 1\nfactor = 1\n",
      "X = 2\nY = 3\nZ = 1\nt = 1\n",                   "X = abc\nY = 3\nZ = 1\nt = 1\nfactor = 1\n",
      "X = 99999999999\nY = 3\nZ = 1\nt = 1\nfactor = 1\n"};
  for (const char* text : texts) {
    std::istringstream stream(fileImage(text, 12));
    TARV1FileHeader header;
    EXPECT_FALSE(header.read(stream)) << "expected refused: " << text;
  }
}

TEST(TARV1FileHeaderTest, SizesThatWrapIn32BitsAreRefused) {
  // 2 * 65536 * 65536 + 2048 wraps to exactly 2048 in 32 bits: without care, an empty data part
  // would seem to hold 2^32 samples.
  std::istringstream stream(fileImage("X = 65536\nY = 65536\nZ = 1\nt = 1\nfactor = 1\n", 0));
  TARV1FileHeader header;
  EXPECT_FALSE(header.read(stream));
  // 2 * 2^31 wraps to 0 as well.
  std::istringstream other(fileImage("X = 1024\nY = 1024\nZ = 1024\nt = 2\nfactor = 1\n", 0));
  EXPECT_FALSE(header.read(other));
  // And an odd wrap: 2 * 3 * 2^31 + 2048 leaves 2048 + 2^32 * 3 -> 2048 modulo 2^32.
  std::istringstream third(fileImage("X = 3\nY = 1073741824\nZ = 2\nt = 1\nfactor = 1\n", 0));
  EXPECT_FALSE(header.read(third));
}

TEST(TARV1FileHeaderTest, TheTextEndsAtTheFirstNulByte) {
  std::string image = fileImage(kHeader2x3x1x1, 12);
  const std::string hidden = "X = 5\n";
  image.replace(100, hidden.size(), hidden);
  image[90] = '\0';
  std::istringstream stream(image);
  TARV1FileHeader header;
  ASSERT_TRUE(header.read(stream));
  EXPECT_EQ(header.size.x, 2) << "expected the line after the NUL byte ignored";
}

TEST(TARV1FileHeaderTest, TheLastHeaderByteEndsALine) {
  // Text running up to byte 2046 without a line end still gives its last entry.
  std::string text = kHeader2x3x1x1;
  text.resize(2047 - 11, ' ');
  text += "\noffset = 4";
  ASSERT_EQ(text.size(), 2047u);
  std::string image = text + 'X' + std::string(12, '\0');
  std::istringstream stream(image);
  TARV1FileHeader header;
  ASSERT_TRUE(header.read(stream));
  EXPECT_EQ(header.offset, 4);
}

TEST(TARV1FileHeaderTest, GarbageHeadersAreRefusedWithoutHarm) {
  std::string image(2048 + 64, '\0');
  unsigned state = 12345;
  for (char& c : image) {
    state = state * 1103515245u + 12345u;
    c = static_cast<char>(state >> 16);
  }
  std::istringstream stream(image);
  TARV1FileHeader header;
  EXPECT_FALSE(header.read(stream));
}

TEST(TARV1FileHeaderTest, ValuesAndSlicePositions) {
  TARV1FileHeader header;
  header.parseText("X = 4\nY = 3\nZ = 5\nt = 2\nfactor = 4\noffset = -1\n");
  EXPECT_DOUBLE_EQ(header.getValue(6), 6.0 / 4 - 1);
  EXPECT_DOUBLE_EQ(header.getValue(65535), 65535.0 / 4 - 1);
  EXPECT_EQ(header.getSlicePosition(0, 0), 2048);
  EXPECT_EQ(header.getSlicePosition(2, 1), 2048 + 2 * ((1 * 5 + 2) * 12));
}

TEST(TARV1FileHeaderTest, DecodesBothByteOrders) {
  const unsigned char bytes[] = {0x01, 0x02, 0xff, 0x00};
  std::uint16_t samples[2];
  TARV1FileHeader::decodeSamples(bytes, 2, true, samples);
  EXPECT_EQ(samples[0], 0x0201);
  EXPECT_EQ(samples[1], 0x00ff);
  TARV1FileHeader::decodeSamples(bytes, 2, false, samples);
  EXPECT_EQ(samples[0], 0x0102);
  EXPECT_EQ(samples[1], 0xff00);
}
