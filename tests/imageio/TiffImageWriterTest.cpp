#include "dataset/ImageDataset.h"

#include "dataset/TiffDeepTileCodec.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "imageio/ImageTestSupport.h"
#include "imageio/TiffImageTestSupport.h"

using namespace tarv;
using namespace tarv::imagetests;

namespace {

std::string testPath(const std::string& name) {
  return std::string(TARV_TEST_BINARY_DIR) + "/TiffImageWriterTest_" + name;
}

// The tags of tiffdump's listing, "Name (tag) TYPE (code) count<values>", by number, with their
// "count<values>" text.
std::map<int, std::string> tiffdumpTags(const std::string& listing) {
  std::map<int, std::string> tags;
  for (const std::string& line : lines(listing)) {
    // The tag number is the parenthesised number followed by the type name.
    for (std::size_t open = line.find('('); open != std::string::npos; open = line.find('(', open + 1)) {
      const std::size_t close = line.find(')', open);
      if (close == std::string::npos || close == open + 1) break;
      const std::string number = line.substr(open + 1, close - open - 1);
      if (number.find_first_not_of("0123456789") != std::string::npos) continue;
      std::istringstream rest(line.substr(close + 1));
      std::string type, code, values;
      if (rest >> type >> code >> values && !type.empty() && std::isupper(static_cast<unsigned char>(type[0])) &&
          code.front() == '(' && values.find('<') != std::string::npos) {
        tags[std::stoi(number)] = values;
        break;
      }
    }
  }
  return tags;
}

const Shape roundTripShapes[] = {
    {{20, 20, 3}, std::nullopt},          // one tile, padded in every direction
    {{37, 21, 5}, Index{20, 13, 7}},      // pages and tiles of different grids
    {{33, 17, 1}, std::nullopt},          // depth 1
    {{19, 23, 35}, Index{16, 16, 16}},    // depth above 16: three tiles deep
    {{70, 5, 18}, std::nullopt},          // default pages 64 x 5 x 16
    {{1, 1, 1}, std::nullopt},
    {{130, 70, 17}, std::nullopt},        // six full 64 x 64 x 16 tiles of noise, and more
};

std::string describe(TypeID id, const Shape& shape, const char* medium) {
  std::ostringstream text;
  text << medium << ", type " << typeIdName(id) << ", size " << shape.size[0] << " x " << shape.size[1] << " x "
       << shape.size[2];
  return text.str();
}

}  // namespace

// =============================================================================================
// TIFF round trips

TEST(TiffRoundTrip, FileForEveryWritableTypeAndShape) {
  forEachType<TiffTypes>([](auto c) {
    using T = typename decltype(c)::Type;
    std::uint64_t seed = 100 * std::uint64_t(c.id);
    for (const Shape& shape : roundTripShapes) {
      const std::string what = describe(c.id, shape, "file") + ", seed " + std::to_string(++seed);
      auto* image = makeImage<T>(shape, seed);
      const std::string path = testPath("roundtrip.tif");
      ASSERT_TRUE(writeTiffFile(path, image)) << what;
      ReadResult result;
      readFile(path, result);
      expectSameImage(*image, result.image, what);
      const std::uint64_t pixels = shape.size[0] * shape.size[1] * shape.size[2];
      const std::vector<std::string> expected{"Loading TIFF image from " + path + "...",
                                              "-- OK: Loaded " + std::to_string(pixels) + " pixels"};
      EXPECT_EQ(result.log, expected) << what;
      image->UnRegister();
      std::filesystem::remove(path);
    }
  });
}

TEST(TiffRoundTrip, StreamForEveryWritableTypeAndShape) {
  forEachType<TiffTypes>([](auto c) {
    using T = typename decltype(c)::Type;
    std::uint64_t seed = 1000 * std::uint64_t(c.id);
    for (const Shape& shape : roundTripShapes) {
      const std::string what = describe(c.id, shape, "stream") + ", seed " + std::to_string(++seed);
      auto* image = makeImage<T>(shape, seed);
      std::ostringstream output;
      ASSERT_TRUE(writeTiffStream("volume", &output, image)) << what;
      ReadResult result;
      readStream("volume", output.str(), result);
      expectSameImage(*image, result.image, what);
      const std::uint64_t pixels = shape.size[0] * shape.size[1] * shape.size[2];
      const std::vector<std::string> expected{"Loading TIFF image from stream volume",
                                              "-- OK: Loaded " + std::to_string(pixels) + " pixels"};
      EXPECT_EQ(result.log, expected) << what;
      image->UnRegister();
    }
  });
}

TEST(TiffRoundTrip, StreamsThatDoNotStartAtTheirBeginning) {
  auto* image = makeImage<short>({{30, 18, 4}, Index{10, 10, 2}}, 5);
  std::stringstream stream;
  stream << "some leading bytes";
  ASSERT_TRUE(writeTiffStream("embedded", &stream, image));
  stream << "and some trailing ones";
  stream.seekg(18);
  std::ostringstream log;
  ImageDataset* read = readTiffStream("embedded", &stream, &log);
  expectSameImage(*image, read, "a TIFF after 18 other bytes");
  if (read) read->UnRegister();
  image->UnRegister();
}

TEST(TiffRoundTrip, FileAndStreamHoldTheSameBytes) {
  auto* image = makeImage<unsigned short>({{41, 9, 6}, std::nullopt}, 8);
  const std::string path = testPath("same.tif");
  ASSERT_TRUE(writeTiffFile(path, image));
  std::ostringstream stream;
  ASSERT_TRUE(writeTiffStream("same", &stream, image));
  EXPECT_EQ(asString(readBytes(path)), stream.str());
  image->UnRegister();
  std::filesystem::remove(path);
}

TEST(TiffWrite, TwentyByTwentyByThreeUsesPaddedThirtyTwoBySixteenTiles) {
  auto* image = new TImageDataset<unsigned char, 3>(20, 20, 3, 20, 20, 3);
  for (std::size_t z = 0; z < 3; ++z)
    for (std::size_t y = 0; y < 20; ++y)
      for (std::size_t x = 0; x < 20; ++x) image->setVoxel(x, y, z, static_cast<unsigned char>(1 + (x + y + z) % 250));
  const std::string path = testPath("twenty.tif");
  ASSERT_TRUE(writeTiffFile(path, image));

  TiffHandle tiff = openQuietTiffFile(path, "r");
  ASSERT_TRUE(tiff);
  std::uint32_t value = 0;
  std::uint16_t shortValue = 0;
  ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_TILEWIDTH, &value), 1);
  EXPECT_EQ(value, 32u);
  ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_TILELENGTH, &value), 1);
  EXPECT_EQ(value, 32u);
  ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_TILEDEPTH, &value), 1);
  EXPECT_EQ(value, 16u);
  ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_IMAGEDEPTH, &value), 1);
  EXPECT_EQ(value, 3u);
  ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_COMPRESSION, &shortValue), 1);
  EXPECT_EQ(shortValue, COMPRESSION_LZW);
  ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_PHOTOMETRIC, &shortValue), 1);
  EXPECT_EQ(shortValue, PHOTOMETRIC_MINISBLACK);
  ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_SAMPLEFORMAT, &shortValue), 1);
  EXPECT_EQ(shortValue, SAMPLEFORMAT_UINT);
  ASSERT_EQ(TIFFGetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, &shortValue), 1);
  EXPECT_EQ(shortValue, 8);
  ASSERT_EQ(TIFFNumberOfTiles(tiff.get()), 1u);

  // The whole deep tile, decoded: the image in its corner and zeros around it.
  std::optional<TiffDeepTileCodec> codec = TiffDeepTileCodec::forTiff(tiff.get(), 16);
  ASSERT_TRUE(codec);
  std::vector<unsigned char> tile(codec->tileByteCount(), 0xEE);
  ASSERT_EQ(tile.size(), 32u * 32u * 16u);
  ASSERT_TRUE(codec->readTile(tiff.get(), 0, tile.data()));
  std::size_t wrongVoxels = 0, nonZeroPadding = 0;
  for (std::size_t z = 0; z < 16; ++z)
    for (std::size_t y = 0; y < 32; ++y)
      for (std::size_t x = 0; x < 32; ++x) {
        const unsigned char stored = tile[(z * 32 + y) * 32 + x];
        if (x < 20 && y < 20 && z < 3)
          wrongVoxels += stored != image->getVoxel(x, y, z);
        else
          nonZeroPadding += stored != 0;
      }
  EXPECT_EQ(wrongVoxels, 0u);
  EXPECT_EQ(nonZeroPadding, 0u) << "expected the padding of the tile to be zero";
  image->UnRegister();
  std::filesystem::remove(path);
}

TEST(TiffWrite, TilesWhoseEncodingExceeds64KiB) {
  // Noise does not compress: each 64 x 64 x 16 tile takes more than 65535 bytes.
  auto* image = makeImage<unsigned char>({{130, 70, 17}, std::nullopt}, 99);
  const std::string path = testPath("noise.tif");
  ASSERT_TRUE(writeTiffFile(path, image)) << "expected a file with large tiles to be written";
  {
    TiffHandle tiff = openQuietTiffFile(path, "r");
    ASSERT_TRUE(tiff);
    ASSERT_EQ(TIFFNumberOfTiles(tiff.get()), 3u * 2u * 2u);
    std::uint64_t largest = 0;
    for (std::uint32_t t = 0; t < TIFFNumberOfTiles(tiff.get()); ++t)
      largest = std::max(largest, TIFFGetStrileByteCount(tiff.get(), t));
    EXPECT_GT(largest, 65535u) << "expected tiles too large for 16-bit byte counts";
  }
  ReadResult result;
  readFile(path, result);
  expectSameImage(*image, result.image, "noise in 64 x 64 x 16 tiles");
  image->UnRegister();
  std::filesystem::remove(path);
}

TEST(TiffWrite, TiffToolsSeeATiledLzwFileWithTilesInSixteens) {
  if (std::system("command -v tiffdump > /dev/null 2>&1 && command -v tiffinfo > /dev/null 2>&1") != 0)
    GTEST_SKIP() << "tiffdump or tiffinfo is not installed";
  auto* image = makeImage<float>({{50, 30, 20}, Index{40, 20, 18}}, 3);
  const std::string path = testPath("tools.tif");
  const std::string dumped = testPath("tools.dump");
  const std::string info = testPath("tools.info");
  ASSERT_TRUE(writeTiffFile(path, image));
  ASSERT_EQ(std::system(("tiffdump '" + path + "' > '" + dumped + "' 2>&1").c_str()), 0);
  ASSERT_EQ(std::system(("tiffinfo '" + path + "' > '" + info + "' 2>&1").c_str()), 0);
  const std::string dump = asString(readBytes(dumped));
  const std::string infoText = asString(readBytes(info));

  const std::map<int, std::string> tags = tiffdumpTags(dump);
  auto tagValue = [&](int tag) -> std::string {
    const auto found = tags.find(tag);
    return found == tags.end() ? "missing" : found->second;
  };
  EXPECT_EQ(tagValue(259), "1<5>") << "expected LZW compression:\n" << dump;
  EXPECT_EQ(tagValue(256), "1<50>");
  EXPECT_EQ(tagValue(257), "1<30>");
  EXPECT_EQ(tagValue(32997), "1<20>");
  EXPECT_EQ(tagValue(262), "1<1>");
  EXPECT_EQ(tagValue(258), "1<32>");
  EXPECT_EQ(tagValue(339), "1<3>");
  EXPECT_EQ(tagValue(322), "1<48>") << "expected page width 40 rounded up to 48";
  EXPECT_EQ(tagValue(323), "1<32>") << "expected page length 20 rounded up to 32";
  EXPECT_EQ(tagValue(32998), "1<32>") << "expected page depth 18 rounded up to 32";

  std::set<int> tagNumbers;
  for (const auto& [tag, value] : tags) tagNumbers.insert(tag);
  const std::set<int> expectedTags{256, 257, 258, 259, 262, 322, 323, 324, 325, 339, 32997, 32998};
  EXPECT_EQ(tagNumbers, expectedTags) << "expected exactly the described tags and the tile offsets and byte counts";

  EXPECT_NE(infoText.find("Tile Width: 48 Tile Length: 32 Tile Depth: 32"), std::string::npos) << infoText;
  EXPECT_NE(infoText.find("Compression Scheme: LZW"), std::string::npos) << infoText;
  image->UnRegister();
  std::filesystem::remove(path);
  std::filesystem::remove(dumped);
  std::filesystem::remove(info);
}

TEST(TiffWrite, DoubleBoolAnd64BitImagesFailToWrite) {
  const std::string path = testPath("unwritable.tif");
  std::filesystem::remove(path);
  std::vector<ImageDataset*> images{new TImageDataset<double, 3>(4, 4, 4), new TImageDataset<bool, 3>(4, 4, 4),
                                    new TImageDataset<long, 3>(4, 4, 4), new TImageDataset<unsigned long, 3>(4, 4, 4),
                                    new ForeignImage(TYPE_ID_RGB8)};
  for (ImageDataset* image : images) {
    EXPECT_FALSE(writeTiffFile(path, image)) << "expected type " << typeIdName(image->type_id()) << " refused";
    EXPECT_FALSE(std::filesystem::exists(path)) << "expected no file left behind";
    std::ostringstream stream;
    EXPECT_FALSE(writeTiffStream("s", &stream, image));
    EXPECT_TRUE(stream.str().empty());
    image->UnRegister();
  }
}

TEST(TiffWrite, FailsForNullAndEmptyImagesAndBadTargets) {
  auto* image = new TImageDataset<int, 3>(4, 4, 4);
  auto* empty = new TImageDataset<int, 3>(4, 0, 4);
  std::ostringstream stream;
  EXPECT_FALSE(writeTiffFile(testPath("null.tif"), nullptr));
  EXPECT_FALSE(writeTiffStream("s", &stream, nullptr));
  EXPECT_FALSE(writeTiffStream("s", nullptr, image)) << "expected a null stream to fail";
  EXPECT_FALSE(writeTiffFile(testPath("empty.tif"), empty)) << "expected an empty image to fail";
  EXPECT_FALSE(writeTiffFile("/nonexistent-directory/image.tif", image)) << "expected an unopenable path to fail";
  std::ostringstream broken;
  broken.setstate(std::ios::badbit);
  EXPECT_FALSE(writeTiffStream("broken", &broken, image)) << "expected a failed stream to fail";
  image->UnRegister();
  empty->UnRegister();
}
