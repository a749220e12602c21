#include "dataset/TiffDeepTileCodec.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

using namespace tarv;

namespace {

std::string testPath(const std::string& name) {
  return std::string(TARV_TEST_BINARY_DIR) + "/TiffDeepTileCodecTest_" + name;
}

std::vector<unsigned char> randomBytes(std::size_t count, unsigned seed) {
  std::mt19937 random(seed);
  std::uniform_int_distribution<int> byte(0, 255);
  std::vector<unsigned char> bytes(count);
  // Runs of repeated values so that the compressors have something to find.
  for (std::size_t i = 0; i < count;) {
    const unsigned char value = static_cast<unsigned char>(byte(random));
    const std::size_t run = std::size_t(byte(random) % 7 + 1);
    for (std::size_t k = 0; k < run && i < count; ++k) bytes[i++] = value;
  }
  return bytes;
}

TiffDeepTileCodec::Format deepFormat(std::uint16_t compression) {
  TiffDeepTileCodec::Format format;
  format.width = 32;
  format.length = 16;
  format.depth = 16;
  format.bitsPerSample = 8;
  format.sampleFormat = SAMPLEFORMAT_UINT;
  format.compression = compression;
  return format;
}

// TIFF's LZW (codes most significant bit first, code width grown one code early), written here
// independently of libtiff to check what a reader of deep tiles would see.
std::vector<unsigned char> decodeTiffLzw(const std::vector<unsigned char>& encoded) {
  constexpr int clearCode = 256;
  constexpr int endCode = 257;
  std::vector<std::vector<unsigned char>> table;
  auto resetTable = [&] {
    table.assign(258, {});
    for (int i = 0; i < 256; ++i) table[std::size_t(i)] = {static_cast<unsigned char>(i)};
  };
  resetTable();
  int width = 9;
  std::size_t bitPosition = 0;
  auto readCode = [&]() -> int {
    if (bitPosition + std::size_t(width) > encoded.size() * 8) return endCode;
    int code = 0;
    for (int i = 0; i < width; ++i, ++bitPosition)
      code = (code << 1) | ((encoded[bitPosition / 8] >> (7 - bitPosition % 8)) & 1);
    return code;
  };
  std::vector<unsigned char> decoded;
  int previous = -1;
  for (int code = readCode(); code != endCode; code = readCode()) {
    if (code == clearCode) {
      resetTable();
      width = 9;
      previous = -1;
      continue;
    }
    std::vector<unsigned char> entry;
    if (code < int(table.size()))
      entry = table[std::size_t(code)];
    else if (code == int(table.size()) && previous >= 0) {
      entry = table[std::size_t(previous)];
      entry.push_back(entry.front());
    } else {
      ADD_FAILURE() << "invalid LZW code " << code;
      return decoded;
    }
    decoded.insert(decoded.end(), entry.begin(), entry.end());
    if (previous >= 0 && table.size() < 4096) {
      std::vector<unsigned char> added = table[std::size_t(previous)];
      added.push_back(entry.front());
      table.push_back(std::move(added));
    }
    if (int(table.size()) + 1 >= (1 << width) && width < 12) ++width;
    previous = code;
  }
  return decoded;
}

}  // namespace

TEST(TiffDeepTileCodec, TileByteCountCoversEverySlice) {
  TiffDeepTileCodec codec(deepFormat(COMPRESSION_LZW));
  EXPECT_EQ(codec.tileByteCount(), 32u * 16u * 16u) << "expected width x length x depth bytes";

  TiffDeepTileCodec::Format wide = deepFormat(COMPRESSION_LZW);
  wide.bitsPerSample = 32;
  wide.sampleFormat = SAMPLEFORMAT_IEEEFP;
  EXPECT_EQ(TiffDeepTileCodec(wide).tileByteCount(), 4u * 32u * 16u * 16u);
}

TEST(TiffDeepTileCodec, RefusesEmptyOverflowingAndOversizedTiles) {
  for (int k = 0; k < 3; ++k) {
    TiffDeepTileCodec::Format format = deepFormat(COMPRESSION_LZW);
    (k == 0 ? format.width : k == 1 ? format.length : format.depth) = 0;
    EXPECT_EQ(TiffDeepTileCodec(format).tileByteCount(), 0u) << "expected a zero extent along axis " << k
                                                              << " to be refused";
  }
  TiffDeepTileCodec::Format huge = deepFormat(COMPRESSION_LZW);
  huge.width = huge.length = huge.depth = std::numeric_limits<std::uint32_t>::max();
  huge.bitsPerSample = 32;
  EXPECT_EQ(TiffDeepTileCodec(huge).tileByteCount(), 0u) << "expected an overflowing tile to be refused";

  TiffDeepTileCodec::Format large = deepFormat(COMPRESSION_LZW);
  large.width = 4096;
  large.length = 4096;
  large.depth = 16 + 1;  // just above 256 MiB
  EXPECT_EQ(TiffDeepTileCodec(large).tileByteCount(), 0u) << "expected a tile above the maximum to be refused";

  TiffDeepTileCodec refused(huge);
  std::vector<unsigned char> encoded;
  unsigned char byte = 0;
  EXPECT_FALSE(refused.encode(&byte, encoded));
  EXPECT_FALSE(refused.decode(&byte, 1, &byte));
}

TEST(TiffDeepTileCodec, RoundTripsEveryByteOfDeepTiles) {
  const std::uint16_t compressions[] = {COMPRESSION_NONE, COMPRESSION_LZW, COMPRESSION_PACKBITS,
                                        COMPRESSION_ADOBE_DEFLATE};
  for (std::uint16_t compression : compressions) {
    if (!TIFFIsCODECConfigured(compression)) continue;
    for (std::uint16_t bits : {8, 16, 32}) {
      for (bool bigEndian : {false, true}) {
        TiffDeepTileCodec::Format format = deepFormat(compression);
        format.bitsPerSample = bits;
        format.bigEndian = bigEndian;
        TiffDeepTileCodec codec(format);
        const unsigned seed = 1000u * compression + 10u * bits + (bigEndian ? 1u : 0u);
        const std::vector<unsigned char> tile = randomBytes(codec.tileByteCount(), seed);
        std::vector<unsigned char> encoded;
        ASSERT_TRUE(codec.encode(tile.data(), encoded)) << "compression " << compression << ", seed " << seed;
        std::vector<unsigned char> decoded(tile.size(), 0xAB);
        ASSERT_TRUE(codec.decode(encoded.data(), encoded.size(), decoded.data()))
            << "compression " << compression << ", seed " << seed;
        EXPECT_EQ(decoded, tile) << "expected every byte back; compression " << compression << ", "
                                 << bits << " bits, big endian " << bigEndian << ", seed " << seed;
      }
    }
  }
}

TEST(TiffDeepTileCodec, RoundTripsWithHorizontalPredictor) {
  for (std::uint16_t bits : {8, 16, 32}) {
    TiffDeepTileCodec::Format format = deepFormat(COMPRESSION_LZW);
    format.bitsPerSample = bits;
    format.predictor = PREDICTOR_HORIZONTAL;
    TiffDeepTileCodec codec(format);
    const std::vector<unsigned char> tile = randomBytes(codec.tileByteCount(), 77u + bits);
    std::vector<unsigned char> encoded;
    ASSERT_TRUE(codec.encode(tile.data(), encoded));
    std::vector<unsigned char> decoded(tile.size());
    ASSERT_TRUE(codec.decode(encoded.data(), encoded.size(), decoded.data()));
    EXPECT_EQ(decoded, tile) << "expected every byte back with the predictor, " << bits << " bits";
  }
}

TEST(TiffDeepTileCodec, EncodingLeavesTheCallersTileUntouched) {
  TiffDeepTileCodec::Format format = deepFormat(COMPRESSION_LZW);
  format.bitsPerSample = 16;
  format.bigEndian = true;  // libtiff swaps the bytes of what it encodes for this byte order
  format.predictor = PREDICTOR_HORIZONTAL;
  TiffDeepTileCodec codec(format);
  const std::vector<unsigned char> original = randomBytes(codec.tileByteCount(), 5);
  std::vector<unsigned char> tile = original;
  std::vector<unsigned char> encoded;
  ASSERT_TRUE(codec.encode(tile.data(), encoded));
  EXPECT_EQ(tile, original) << "expected encode to leave its input as it was";
}

TEST(TiffDeepTileCodec, LzwEncodingIsThePlainStreamOfTheTileBytes) {
  TiffDeepTileCodec codec(deepFormat(COMPRESSION_LZW));
  const std::vector<unsigned char> tile = randomBytes(codec.tileByteCount(), 42);
  std::vector<unsigned char> encoded;
  ASSERT_TRUE(codec.encode(tile.data(), encoded));
  EXPECT_LT(encoded.size(), tile.size()) << "expected LZW to compress runs";
  EXPECT_EQ(decodeTiffLzw(encoded), tile) << "expected an independent LZW decoder to see the tile in z, y, x order";
}

TEST(TiffDeepTileCodec, DecodeRejectsTruncatedCorruptAndOversizedInput) {
  TiffDeepTileCodec codec(deepFormat(COMPRESSION_LZW));
  const std::vector<unsigned char> tile = randomBytes(codec.tileByteCount(), 9);
  std::vector<unsigned char> encoded;
  ASSERT_TRUE(codec.encode(tile.data(), encoded));
  std::vector<unsigned char> decoded(tile.size());

  EXPECT_FALSE(codec.decode(encoded.data(), 0, decoded.data())) << "expected empty input to be refused";
  EXPECT_FALSE(codec.decode(encoded.data(), encoded.size() / 2, decoded.data()))
      << "expected half an encoded tile to be refused";
  std::vector<unsigned char> garbage(encoded.size(), 0xFF);
  EXPECT_FALSE(codec.decode(garbage.data(), garbage.size(), decoded.data())) << "expected invalid codes to be refused";
  std::vector<unsigned char> oversized(codec.maximumEncodedByteCount() + 1, 0);
  EXPECT_FALSE(codec.decode(oversized.data(), oversized.size(), decoded.data()))
      << "expected input beyond the largest encoded tile to be refused";

  TiffDeepTileCodec raw(deepFormat(COMPRESSION_NONE));
  EXPECT_FALSE(raw.decode(tile.data(), tile.size() - 1, decoded.data()))
      << "expected an uncompressed tile one byte short to be refused";
}

TEST(TiffDeepTileCodec, WritesAndReadsDeepTilesOfARealFile) {
  const std::string path = testPath("deep.tif");
  constexpr std::uint32_t width = 40, length = 20, depth = 20, tileWidth = 32, tileLength = 16, tileDepth = 16;
  const std::uint32_t tileCount = 2 * 2 * 2;
  std::vector<std::vector<unsigned char>> tiles;
  {
    TiffHandle tiff = openQuietTiffFile(path, "w");
    ASSERT_TRUE(tiff);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, width), 1);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, length), 1);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_IMAGEDEPTH, depth), 1);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 16), 1);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_INT), 1);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK), 1);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_LZW), 1);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_TILEWIDTH, tileWidth), 1);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_TILELENGTH, tileLength), 1);
    ASSERT_EQ(TIFFSetField(tiff.get(), TIFFTAG_TILEDEPTH, tileDepth), 1);
    std::optional<TiffDeepTileCodec> codec = TiffDeepTileCodec::forTiff(tiff.get(), tileDepth);
    ASSERT_TRUE(codec);
    EXPECT_EQ(codec->tileByteCount(), 2u * tileWidth * tileLength * tileDepth);
    ASSERT_EQ(TIFFNumberOfTiles(tiff.get()), tileCount);
    for (std::uint32_t t = 0; t < tileCount; ++t) {
      tiles.push_back(randomBytes(codec->tileByteCount(), 300 + t));
      std::vector<unsigned char> encoded;
      ASSERT_TRUE(codec->encode(tiles.back().data(), encoded)) << "tile " << t;
      ASSERT_EQ(TIFFWriteRawTile(tiff.get(), t, encoded.data(), tmsize_t(encoded.size())), tmsize_t(encoded.size()));
    }
  }
  TiffHandle tiff = openQuietTiffFile(path, "r");
  ASSERT_TRUE(tiff);
  std::optional<TiffDeepTileCodec> codec = TiffDeepTileCodec::forTiff(tiff.get(), tileDepth);
  ASSERT_TRUE(codec);
  EXPECT_EQ(codec->format().bitsPerSample, 16);
  EXPECT_EQ(codec->format().sampleFormat, SAMPLEFORMAT_INT);
  EXPECT_EQ(codec->format().compression, COMPRESSION_LZW);
  std::vector<unsigned char> tile(codec->tileByteCount());
  for (std::uint32_t t = 0; t < tileCount; ++t) {
    ASSERT_TRUE(codec->readTile(tiff.get(), t, tile.data())) << "tile " << t;
    EXPECT_EQ(tile, tiles[t]) << "expected all " << tileDepth << " slices of tile " << t << " back";
  }
  EXPECT_FALSE(codec->readTile(tiff.get(), tileCount, tile.data()))
      << "expected a tile index past the last tile to be refused";
  std::filesystem::remove(path);
}

TEST(TiffDeepTileCodec, ReadTileRefusesMissingTiles) {
  const std::string path = testPath("missing.tif");
  {
    TiffHandle tiff = openQuietTiffFile(path, "w");
    ASSERT_TRUE(tiff);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, 32);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, 32);
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff.get(), TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(tiff.get(), TIFFTAG_TILELENGTH, 16);
    std::optional<TiffDeepTileCodec> codec = TiffDeepTileCodec::forTiff(tiff.get(), 1);
    ASSERT_TRUE(codec);
    const std::vector<unsigned char> tile = randomBytes(codec->tileByteCount(), 3);
    std::vector<unsigned char> encoded;
    ASSERT_TRUE(codec->encode(tile.data(), encoded));
    // Tiles 1 to 3 are never written.
    ASSERT_GT(TIFFWriteRawTile(tiff.get(), 0, encoded.data(), tmsize_t(encoded.size())), 0);
  }
  TiffHandle tiff = openQuietTiffFile(path, "r");
  ASSERT_TRUE(tiff);
  std::optional<TiffDeepTileCodec> codec = TiffDeepTileCodec::forTiff(tiff.get(), 1);
  ASSERT_TRUE(codec);
  std::vector<unsigned char> tile(codec->tileByteCount());
  EXPECT_TRUE(codec->readTile(tiff.get(), 0, tile.data()));
  EXPECT_FALSE(codec->readTile(tiff.get(), 1, tile.data())) << "expected a tile without data to be refused";
  std::filesystem::remove(path);
}

TEST(TiffDeepTileCodec, ForTiffRefusesStripsAndSeveralSamples) {
  const std::string strips = testPath("strips.tif");
  {
    TiffHandle tiff = openQuietTiffFile(strips, "w");
    ASSERT_TRUE(tiff);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, 16);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, 16);
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, 16);
    EXPECT_FALSE(TiffDeepTileCodec::forTiff(tiff.get(), 1)) << "expected a stripped image to be refused";
    TIFFSetField(tiff.get(), TIFFTAG_TILEWIDTH, 16);
    TIFFSetField(tiff.get(), TIFFTAG_TILELENGTH, 16);
    EXPECT_TRUE(TiffDeepTileCodec::forTiff(tiff.get(), 1));
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, 3);
    EXPECT_FALSE(TiffDeepTileCodec::forTiff(tiff.get(), 1)) << "expected three samples per pixel to be refused";
  }
  std::filesystem::remove(strips);
  EXPECT_FALSE(TiffDeepTileCodec::forTiff(nullptr, 1));
}

TEST(TiffDeepTileCodec, QuietOpenPrintsNothing) {
  const std::string path = testPath("garbage.tif");
  {
    std::ofstream file(path, std::ios::binary);
    const char bytes[] = "II*\0garbage that is no TIFF directory";
    file.write(bytes, sizeof(bytes) - 1);
  }
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  TiffHandle garbage = openQuietTiffFile(path, "r");
  TiffHandle missing = openQuietTiffFile(testPath("does-not-exist.tif"), "r");
  const std::string errors = testing::internal::GetCapturedStderr();
  const std::string output = testing::internal::GetCapturedStdout();
  EXPECT_FALSE(garbage);
  EXPECT_FALSE(missing);
  EXPECT_EQ(errors, "") << "expected libtiff's messages to be discarded";
  EXPECT_EQ(output, "");
  std::filesystem::remove(path);
}
