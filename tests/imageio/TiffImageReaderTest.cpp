#include "dataset/ImageDataset.h"

#include "dataset/TiffDeepTileCodec.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "imageio/ImageTestSupport.h"
#include "imageio/TiffImageTestSupport.h"

using namespace tarv;
using namespace tarv::imagetests;

// The largest single allocation made through operator new while tracking is on, to prove that
// a reader refuses absurd sizes before allocating for them.
namespace {
std::atomic<bool> trackAllocations{false};
std::atomic<std::size_t> largestAllocation{0};
}  // namespace

void* operator new(std::size_t size) {
  if (trackAllocations.load(std::memory_order_relaxed)) {
    std::size_t largest = largestAllocation.load();
    while (size > largest && !largestAllocation.compare_exchange_weak(largest, size)) {
    }
  }
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}
// Kept out of line so that the compiler does not pair the inlined free with operator new.
__attribute__((noinline)) void operator delete(void* memory) noexcept { std::free(memory); }
__attribute__((noinline)) void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
// The nothrow forms too, so that every pair of the program allocates and frees alike.
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return ::operator new(size);
  } catch (...) {
    return nullptr;
  }
}
__attribute__((noinline)) void operator delete(void* memory, const std::nothrow_t&) noexcept { std::free(memory); }

namespace {

std::string testPath(const std::string& name) {
  return std::string(TARV_TEST_BINARY_DIR) + "/TiffImageReaderTest_" + name;
}

void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

// Little-endian classic TIFF directory entries, for damaging files on purpose.
std::uint32_t get16(const std::vector<unsigned char>& b, std::size_t p) { return b.at(p) | b.at(p + 1) << 8; }
std::uint32_t get32(const std::vector<unsigned char>& b, std::size_t p) {
  return get16(b, p) | get16(b, p + 2) << 16;
}
void put16(std::vector<unsigned char>& b, std::size_t p, std::uint32_t v) {
  b.at(p) = static_cast<unsigned char>(v);
  b.at(p + 1) = static_cast<unsigned char>(v >> 8);
}
void put32(std::vector<unsigned char>& b, std::size_t p, std::uint32_t v) {
  put16(b, p, v & 0xFFFF);
  put16(b, p + 2, v >> 16);
}

std::size_t findEntry(const std::vector<unsigned char>& bytes, std::uint32_t tag) {
  const std::size_t directory = get32(bytes, 4);
  const std::size_t entries = get16(bytes, directory);
  for (std::size_t i = 0; i < entries; ++i) {
    const std::size_t position = directory + 2 + 12 * i;
    if (get16(bytes, position) == tag) return position;
  }
  ADD_FAILURE() << "expected tag " << tag << " in the directory";
  return 0;
}

// Replaces a single-valued tag by a LONG.
void setScalar(std::vector<unsigned char>& bytes, std::uint32_t tag, std::uint32_t value) {
  const std::size_t entry = findEntry(bytes, tag);
  put16(bytes, entry + 2, 4);
  put32(bytes, entry + 4, 1);
  put32(bytes, entry + 8, value);
}

// Sets element `index` of a SHORT or LONG array tag.
void setArrayElement(std::vector<unsigned char>& bytes, std::uint32_t tag, std::size_t index, std::uint32_t value) {
  const std::size_t entry = findEntry(bytes, tag);
  const std::size_t elementSize = get16(bytes, entry + 2) == 3 ? 2 : 4;
  const std::size_t count = get32(bytes, entry + 4);
  ASSERT_LT(index, count);
  const std::size_t data = count * elementSize <= 4 ? entry + 8 : get32(bytes, entry + 8);
  if (elementSize == 2)
    put16(bytes, data + index * 2, value);
  else
    put32(bytes, data + index * 4, value);
}

std::uint32_t getArrayElement(const std::vector<unsigned char>& bytes, std::uint32_t tag, std::size_t index) {
  const std::size_t entry = findEntry(bytes, tag);
  const std::size_t elementSize = get16(bytes, entry + 2) == 3 ? 2 : 4;
  const std::size_t count = get32(bytes, entry + 4);
  const std::size_t data = count * elementSize <= 4 ? entry + 8 : get32(bytes, entry + 8);
  return elementSize == 2 ? get16(bytes, data + index * 2) : get32(bytes, data + index * 4);
}

// A valid 8-bit image file with several tiles, for damaging.
std::string writeSampleFile(const std::string& name, Index size = {40, 20, 3}, Index page = {16, 16, 16}) {
  auto* image = new TImageDataset<unsigned char, 3>(size[0], size[1], size[2], page[0], page[1], page[2]);
  std::mt19937_64 random(11);
  fillRandom(*image, random);
  const std::string path = testPath(name);
  EXPECT_TRUE(writeTiffFile(path, image));
  image->UnRegister();
  return path;
}

// A tiled image written directly with libtiff, one slice deep tiles, all samples zero unless
// `fill` says otherwise.
struct LibtiffImage {
  std::uint32_t width = 32, length = 32, depth = 1;
  std::uint32_t tileWidth = 16, tileLength = 16;
  std::uint16_t bitsPerSample = 8, sampleFormat = SAMPLEFORMAT_UINT, photometric = PHOTOMETRIC_MINISBLACK;
  std::uint16_t samplesPerPixel = 1, compression = COMPRESSION_NONE, predictor = PREDICTOR_NONE;
  bool writeImageDepth = false, writeTileDepth = false, bigEndian = false, tiled = true;
};

template <typename Fill>
bool writeWithLibtiff(const std::string& path, const LibtiffImage& layout, Fill fill) {
  TiffHandle tiff = openQuietTiffFile(path, layout.bigEndian ? "wb" : "wl");
  if (!tiff) return false;
  TIFF* t = tiff.get();
  bool ok = TIFFSetField(t, TIFFTAG_IMAGEWIDTH, layout.width) && TIFFSetField(t, TIFFTAG_IMAGELENGTH, layout.length) &&
            TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, layout.bitsPerSample) &&
            TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, layout.sampleFormat) &&
            TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, layout.samplesPerPixel) &&
            TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG) &&
            TIFFSetField(t, TIFFTAG_PHOTOMETRIC, layout.photometric) &&
            TIFFSetField(t, TIFFTAG_COMPRESSION, layout.compression) &&
            (layout.predictor == PREDICTOR_NONE || TIFFSetField(t, TIFFTAG_PREDICTOR, layout.predictor)) &&
            (!layout.writeImageDepth || TIFFSetField(t, TIFFTAG_IMAGEDEPTH, layout.depth)) &&
            (!layout.writeTileDepth || TIFFSetField(t, TIFFTAG_TILEDEPTH, 1));
  if (!ok) return false;
  const std::size_t sampleBytes = (layout.bitsPerSample + 7) / 8;
  if (!layout.tiled) {
    ok = TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, layout.length);
    std::vector<unsigned char> strip(std::size_t(TIFFStripSize(t)), 0);
    return ok && TIFFWriteEncodedStrip(t, 0, strip.data(), tmsize_t(strip.size())) >= 0;
  }
  ok = TIFFSetField(t, TIFFTAG_TILEWIDTH, layout.tileWidth) && TIFFSetField(t, TIFFTAG_TILELENGTH, layout.tileLength);
  if (!ok) return false;
  const std::size_t rowBytes = (std::size_t(layout.tileWidth) * layout.bitsPerSample * layout.samplesPerPixel + 7) / 8;
  std::vector<unsigned char> tile(rowBytes * layout.tileLength);
  for (std::uint32_t z = 0; z < layout.depth; ++z)
    for (std::uint32_t y = 0; y < layout.length; y += layout.tileLength)
      for (std::uint32_t x = 0; x < layout.width; x += layout.tileWidth) {
        std::fill(tile.begin(), tile.end(), 0);
        for (std::uint32_t ty = 0; ty < layout.tileLength; ++ty)
          for (std::uint32_t tx = 0; tx < layout.tileWidth; ++tx)
            if (x + tx < layout.width && y + ty < layout.length && layout.bitsPerSample >= 8)
              fill(tile.data() + ty * rowBytes + tx * sampleBytes * layout.samplesPerPixel, x + tx, y + ty, z);
        if (TIFFWriteEncodedTile(t, TIFFComputeTile(t, x, y, z, 0), tile.data(), tmsize_t(tile.size())) < 0)
          return false;
      }
  return true;
}

bool writeWithLibtiff(const std::string& path, const LibtiffImage& layout) {
  return writeWithLibtiff(path, layout, [](unsigned char*, std::uint32_t, std::uint32_t, std::uint32_t) {});
}

void expectFailure(const std::string& path, const std::string& failureLine, const std::string& what) {
  ReadResult result;
  largestAllocation = 0;
  trackAllocations = true;
  readFile(path, result);
  trackAllocations = false;
  EXPECT_LT(largestAllocation.load(), std::size_t(16) << 20) << "expected no large allocation for " << what;
  EXPECT_EQ(result.image, nullptr) << "expected no image for " << what;
  const std::vector<std::string> expected{"Loading TIFF image from " + path + "...", failureLine};
  EXPECT_EQ(result.log, expected) << "expected the log lines for " << what;
}

}  // namespace

// =============================================================================================
// TIFF reading: logs and failures

TEST(TiffRead, NullLogPrintsNothingAndStillReturnsTheImage) {
  auto* image = makeImage<int>({{17, 9, 2}, std::nullopt}, 4);
  const std::string path = testPath("quiet.tif");
  ASSERT_TRUE(writeTiffFile(path, image));
  const std::string garbage = testPath("quiet-garbage.tif");
  writeBytes(garbage, {'I', 'I', 42, 0, 1, 2, 3, 4, 5});
  std::ostringstream output;
  ASSERT_TRUE(writeTiffStream("quiet", &output, image));
  std::istringstream input(output.str());

  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  ImageDataset* read = readTiffFile(path, nullptr);
  ImageDataset* fromStream = readTiffStream("quiet", &input, nullptr);
  ImageDataset* failed = readTiffFile(garbage, nullptr);
  ImageDataset* missing = readTiffFile(testPath("does-not-exist.tif"), nullptr);
  const std::string printed = testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();

  EXPECT_EQ(printed, "") << "expected nothing printed without a log stream";
  expectSameImage(*image, read, "file read without a log");
  expectSameImage(*image, fromStream, "stream read without a log");
  EXPECT_EQ(failed, nullptr);
  EXPECT_EQ(missing, nullptr);
  if (read) read->UnRegister();
  if (fromStream) fromStream->UnRegister();
  image->UnRegister();
  std::filesystem::remove(path);
  std::filesystem::remove(garbage);
}

TEST(TiffRead, MissingAndNonTiffFilesFailToOpen) {
  const std::string missing = testPath("missing.tif");
  std::filesystem::remove(missing);
  expectFailure(missing, "-- FAILED to open TIFF file at " + missing, "a missing file");

  const std::string garbage = testPath("garbage.tif");
  writeBytes(garbage, std::vector<unsigned char>(300, 'x'));
  expectFailure(garbage, "-- FAILED to open TIFF file at " + garbage, "a file that is no TIFF");

  writeBytes(garbage, {});
  expectFailure(garbage, "-- FAILED to open TIFF file at " + garbage, "an empty file");
  std::filesystem::remove(garbage);
}

TEST(TiffRead, StreamFailuresAreLoggedWithTheStreamName) {
  std::ostringstream log;
  EXPECT_EQ(readTiffStream("none", nullptr, &log), nullptr);
  EXPECT_EQ(log.str(), "") << "expected a null stream to return at once";

  const std::vector<std::string> expected{"Loading TIFF image from stream broken",
                                          "-- FAILED to open TIFF file from stream at broken"};
  for (const std::string& bytes : {std::string(), std::string("not a TIFF at all"), std::string("II*\0\x08", 5)}) {
    ReadResult result;
    readStream("broken", bytes, result);
    EXPECT_EQ(result.image, nullptr);
    EXPECT_EQ(result.log, expected) << "for a stream of " << bytes.size() << " bytes";
  }
}

TEST(TiffRead, TruncatedFilesAndStreamsGiveNull) {
  const std::string path = writeSampleFile("whole.tif");
  const std::vector<unsigned char> bytes = readBytes(path);
  ASSERT_GT(bytes.size(), 100u);
  const std::string truncated = testPath("truncated.tif");
  std::set<std::string> failures;
  for (std::size_t length : {std::size_t(0), std::size_t(3), std::size_t(8), std::size_t(40), bytes.size() / 2,
                             bytes.size() - 20, bytes.size() - 14}) {
    writeBytes(truncated, std::vector<unsigned char>(bytes.begin(), bytes.begin() + std::ptrdiff_t(length)));
    ReadResult fromFile;
    readFile(truncated, fromFile);
    EXPECT_EQ(fromFile.image, nullptr) << "expected no image from " << length << " of " << bytes.size() << " bytes";
    ASSERT_EQ(fromFile.log.size(), 2u) << "for " << length << " bytes";
    EXPECT_EQ(fromFile.log[0], "Loading TIFF image from " + truncated + "...");
    EXPECT_EQ(fromFile.log[1].rfind("-- FAILED", 0), 0u) << fromFile.log[1];
    failures.insert(fromFile.log[1]);

    ReadResult fromStream;
    readStream("cut", asString(bytes).substr(0, length), fromStream);
    EXPECT_EQ(fromStream.image, nullptr) << "expected no image from a stream of " << length << " bytes";
    ASSERT_EQ(fromStream.log.size(), 2u);
    EXPECT_EQ(fromStream.log[1].rfind("-- FAILED", 0), 0u) << fromStream.log[1];
  }
  EXPECT_TRUE(failures.count("-- FAILED to open TIFF file at " + truncated));
  std::filesystem::remove(path);
  std::filesystem::remove(truncated);
}

TEST(TiffRead, MissingOrCorruptTileDataFailsTheRead) {
  const std::string path = writeSampleFile("tiles.tif");
  const std::vector<unsigned char> bytes = readBytes(path);
  const std::string damaged = testPath("tiles-damaged.tif");
  const std::string failure = "-- FAILED: unable to read TIFF image data";

  std::vector<unsigned char> copy = bytes;
  setArrayElement(copy, 325, 2, 0);
  writeBytes(damaged, copy);
  expectFailure(damaged, failure, "a tile with no bytes");

  copy = bytes;
  setArrayElement(copy, 324, 1, std::uint32_t(bytes.size() + 1000));
  writeBytes(damaged, copy);
  expectFailure(damaged, failure, "a tile beyond the end of the file");

  copy = bytes;
  setArrayElement(copy, 325, 0, getArrayElement(bytes, 325, 0) * 50 + 70000);
  writeBytes(damaged, copy);
  expectFailure(damaged, failure, "a tile longer than any encoding of it");

  copy = bytes;
  const std::size_t offset = getArrayElement(bytes, 324, 0);
  const std::size_t count = getArrayElement(bytes, 325, 0);
  for (std::size_t i = 0; i < count; ++i) copy[offset + i] = 0xFF;
  writeBytes(damaged, copy);
  expectFailure(damaged, failure, "a tile of invalid LZW codes");

  copy = bytes;
  for (std::size_t i = count / 2; i < count; ++i) copy[offset + i] = 0;
  writeBytes(damaged, copy);
  ReadResult result;
  readFile(damaged, result);
  if (result.image == nullptr) {  // zeros may still be valid codes; then only the voxels change
    EXPECT_EQ(result.log.back(), failure);
  }
  std::filesystem::remove(path);
  std::filesystem::remove(damaged);
}

TEST(TiffRead, AbsurdSizesAreRefusedBeforeAllocating) {
  const std::string path = writeSampleFile("absurd.tif", {16, 16, 1});
  const std::vector<unsigned char> bytes = readBytes(path);
  const std::string damaged = testPath("absurd-damaged.tif");
  const std::string dataFailure = "-- FAILED: unable to read TIFF image data";

  // One tile of 4 GiB.
  std::vector<unsigned char> copy = bytes;
  setScalar(copy, 256, 65536);
  setScalar(copy, 257, 65536);
  setScalar(copy, 322, 65536);
  setScalar(copy, 323, 65536);
  writeBytes(damaged, copy);
  expectFailure(damaged, dataFailure, "a 4 GiB tile");

  // One tile of 256 MiB, far more than a file of a few hundred bytes can hold.
  copy = bytes;
  setScalar(copy, 256, 16384);
  setScalar(copy, 257, 16384);
  setScalar(copy, 322, 16384);
  setScalar(copy, 323, 16384);
  writeBytes(damaged, copy);
  expectFailure(damaged, dataFailure, "a 256 MiB image in a tiny file");

  // A small image in one tile of 256 MiB.
  copy = bytes;
  setScalar(copy, 322, 16384);
  setScalar(copy, 323, 16384);
  writeBytes(damaged, copy);
  expectFailure(damaged, dataFailure, "a 256 MiB tile in a tiny file");

  // Billions of tiles.
  copy = bytes;
  setScalar(copy, 256, 0xFFFFFFF0u);
  setScalar(copy, 257, 0xFFFFFFF0u);
  setScalar(copy, 32997, 0xFFFFFFF0u);
  writeBytes(damaged, copy);
  ReadResult result;
  readFile(damaged, result);
  EXPECT_EQ(result.image, nullptr) << "expected no image for 2^96 voxels";
  ASSERT_EQ(result.log.size(), 2u);
  EXPECT_EQ(result.log[1].rfind("-- FAILED", 0), 0u) << result.log[1];

  // Zero sizes.
  for (std::uint32_t tag : {256u, 257u, 322u}) {
    copy = bytes;
    setScalar(copy, tag, 0);
    writeBytes(damaged, copy);
    ReadResult zero;
    readFile(damaged, zero);
    EXPECT_EQ(zero.image, nullptr) << "expected no image with tag " << tag << " zero";
    ASSERT_EQ(zero.log.size(), 2u);
    EXPECT_EQ(zero.log[1].rfind("-- FAILED", 0), 0u) << zero.log[1];
  }
  std::filesystem::remove(path);
  std::filesystem::remove(damaged);
}

TEST(TiffRead, StripsInsteadOfTilesAreAHeaderFailure) {
  const std::string path = testPath("strips.tif");
  LibtiffImage layout;
  layout.tiled = false;
  ASSERT_TRUE(writeWithLibtiff(path, layout));
  expectFailure(path, "-- FAILED to read TIFF header from " + path, "a stripped image");
  std::filesystem::remove(path);
}

TEST(TiffRead, UnsupportedSampleFormats) {
  const std::string path = testPath("samples.tif");
  const std::string headerFailure = "-- FAILED to read TIFF header from " + path;
  struct Case {
    std::uint16_t bits, format, photometric;
    std::string expected, what;
  };
  const Case cases[] = {
      {1, SAMPLEFORMAT_UINT, PHOTOMETRIC_MINISBLACK, "-- image data of type bool is not supported", "1-bit samples"},
      {64, SAMPLEFORMAT_IEEEFP, PHOTOMETRIC_MINISBLACK, headerFailure, "64-bit floating point"},
      {16, SAMPLEFORMAT_IEEEFP, PHOTOMETRIC_MINISBLACK, headerFailure, "16-bit floating point"},
      {64, SAMPLEFORMAT_UINT, PHOTOMETRIC_MINISBLACK, headerFailure, "64-bit unsigned integers"},
      {64, SAMPLEFORMAT_INT, PHOTOMETRIC_MINISBLACK, headerFailure, "64-bit signed integers"},
      {8, SAMPLEFORMAT_VOID, PHOTOMETRIC_MINISBLACK, headerFailure, "untyped samples"},
      {12, SAMPLEFORMAT_UINT, PHOTOMETRIC_MINISBLACK, headerFailure, "12-bit samples"},
      {8, SAMPLEFORMAT_UINT, PHOTOMETRIC_MINISWHITE, headerFailure, "min-is-white"},
  };
  for (const Case& c : cases) {
    LibtiffImage layout;
    layout.bitsPerSample = c.bits;
    layout.sampleFormat = c.format;
    layout.photometric = c.photometric;
    ASSERT_TRUE(writeWithLibtiff(path, layout)) << c.what;
    expectFailure(path, c.expected, c.what);
  }

  LibtiffImage rgb;
  rgb.samplesPerPixel = 3;
  rgb.photometric = PHOTOMETRIC_RGB;
  ASSERT_TRUE(writeWithLibtiff(path, rgb));
  expectFailure(path, "-- FAILED: unable to read TIFF image data", "three samples per pixel");
  std::filesystem::remove(path);
}

TEST(TiffRead, DepthWithoutTileDepthIsAHeaderFailure) {
  const std::string path = testPath("nodepth.tif");
  LibtiffImage layout;
  layout.depth = 3;
  layout.writeImageDepth = true;
  ASSERT_TRUE(writeWithLibtiff(path, layout));
  expectFailure(path, "-- FAILED to read TIFF header from " + path, "ImageDepth 3 without TileDepth");

  layout.writeTileDepth = true;
  ASSERT_TRUE(writeWithLibtiff(path, layout));
  ReadResult result;
  readFile(path, result);
  ASSERT_NE(result.image, nullptr) << "expected the same file with TileDepth 1 to be read";
  EXPECT_EQ(result.image->size_array(), (std::array<std::uint64_t, 3>{32, 32, 3}));
  std::filesystem::remove(path);
}

TEST(TiffRead, FilesOfOtherWritersWithSliceTiles) {
  const std::string path = testPath("foreign.tif");
  struct Case {
    std::uint16_t compression, predictor;
    bool bigEndian;
  };
  const Case cases[] = {{COMPRESSION_NONE, PREDICTOR_NONE, true},
                        {COMPRESSION_NONE, PREDICTOR_NONE, false},
                        {COMPRESSION_LZW, PREDICTOR_HORIZONTAL, true},
                        {COMPRESSION_ADOBE_DEFLATE, PREDICTOR_HORIZONTAL, false},
                        {COMPRESSION_PACKBITS, PREDICTOR_NONE, true}};
  auto voxel = [](std::uint32_t x, std::uint32_t y, std::uint32_t z) {
    return static_cast<std::int16_t>(int(x) * 1000 - int(y) * 77 + int(z) * 3001 - 12345);
  };
  for (const Case& c : cases) {
    if (!TIFFIsCODECConfigured(c.compression)) continue;
    LibtiffImage layout;
    layout.width = 45;
    layout.length = 20;
    layout.depth = 4;
    layout.bitsPerSample = 16;
    layout.sampleFormat = SAMPLEFORMAT_INT;
    layout.compression = c.compression;
    layout.predictor = c.predictor;
    layout.bigEndian = c.bigEndian;
    layout.writeImageDepth = layout.writeTileDepth = true;
    ASSERT_TRUE(writeWithLibtiff(path, layout, [&](unsigned char* sample, std::uint32_t x, std::uint32_t y,
                                                  std::uint32_t z) {
      const std::int16_t value = voxel(x, y, z);
      std::memcpy(sample, &value, 2);  // libtiff swaps to the file's byte order
    }));
    ReadResult result;
    readFile(path, result);
    const std::string what = "compression " + std::to_string(c.compression) + (c.bigEndian ? ", big" : ", little") +
                             " endian";
    ASSERT_NE(result.image, nullptr) << what;
    const auto* typed = dynamic_cast<const TImageDataset<short, 3>*>(result.image);
    ASSERT_NE(typed, nullptr) << what;
    EXPECT_EQ(typed->getPageSize(), (Index{16, 16, 1})) << what;
    std::size_t wrong = 0;
    for (std::uint32_t z = 0; z < 4; ++z)
      for (std::uint32_t y = 0; y < 20; ++y)
        for (std::uint32_t x = 0; x < 45; ++x) wrong += typed->getVoxel(x, y, z) != voxel(x, y, z);
    EXPECT_EQ(wrong, 0u) << "expected every voxel, " << what;
  }
  std::filesystem::remove(path);
}

TEST(TiffRead, RgbPhotometricMarksPackedRgba) {
  const std::string path = testPath("rgba.tif");
  LibtiffImage layout;
  layout.bitsPerSample = 32;
  layout.photometric = PHOTOMETRIC_RGB;
  ASSERT_TRUE(writeWithLibtiff(path, layout, [](unsigned char* sample, std::uint32_t x, std::uint32_t y,
                                              std::uint32_t) {
    const std::uint32_t rgba = 0xFF000000u | (x << 8) | y;
    std::memcpy(sample, &rgba, 4);
  }));
  ReadResult result;
  readFile(path, result);
  ASSERT_NE(result.image, nullptr);
  EXPECT_EQ(result.image->type_id(), TYPE_ID_UINT32);
  EXPECT_TRUE(result.image->isRGBA()) << "expected RGB photometric to mark the 32-bit voxels as RGBA";
  const auto* typed = dynamic_cast<const TImageDataset<unsigned int, 3>*>(result.image);
  ASSERT_NE(typed, nullptr);
  EXPECT_EQ(typed->getVoxel(5, 7, 0), 0xFF000507u);
  std::filesystem::remove(path);
}

TEST(TiffRead, ThrowingStreamsDoNotLetExceptionsThrough) {
  auto* image = makeImage<unsigned char>({{20, 20, 2}, std::nullopt}, 2);
  std::ostringstream output;
  ASSERT_TRUE(writeTiffStream("t", &output, image));
  const std::string bytes = output.str();
  for (std::size_t length : {bytes.size(), bytes.size() / 2, std::size_t(6)}) {
    std::istringstream input(bytes.substr(0, length));
    input.exceptions(std::ios::failbit | std::ios::badbit | std::ios::eofbit);
    std::ostringstream log;
    ImageDataset* read = nullptr;
    EXPECT_NO_THROW(read = readTiffStream("t", &input, &log)) << "for " << length << " bytes";
    if (length == bytes.size())
      expectSameImage(*image, read, "a stream that throws on failure");
    else
      EXPECT_EQ(read, nullptr);
    if (read) read->UnRegister();
  }
  std::ostringstream throwing;
  throwing.exceptions(std::ios::failbit | std::ios::badbit);
  EXPECT_NO_THROW(EXPECT_TRUE(writeTiffStream("t", &throwing, image)));
  image->UnRegister();
}

TEST(TiffRead, RandomlyDamagedFilesNeverCrash) {
  const std::string path = writeSampleFile("fuzz.tif", {40, 35, 20}, {16, 16, 8});
  const std::vector<unsigned char> bytes = readBytes(path);
  const std::uint64_t seed = 4242;
  std::mt19937_64 random(seed);
  int images = 0, failures = 0;
  for (int round = 0; round < 400; ++round) {
    std::string damaged = asString(bytes);
    const int flips = int(random() % 8) + 1;
    for (int k = 0; k < flips; ++k) {
      // Mostly the directory at the end, where damage changes the most.
      const std::size_t position = random() % 2 ? bytes.size() - 1 - random() % std::min<std::size_t>(240, bytes.size())
                                                : random() % bytes.size();
      damaged[position] = static_cast<char>(random());
    }
    if (random() % 5 == 0) damaged.resize(random() % damaged.size());
    ReadResult result;
    readStream("fuzz", damaged, result);
    ASSERT_GE(result.log.size(), 2u) << "round " << round << ", seed " << seed;
    if (result.image) {
      ++images;
      EXPECT_EQ(result.log.back().rfind("-- OK: Loaded ", 0), 0u);
    } else {
      ++failures;
      const std::string& last = result.log.back();
      EXPECT_TRUE(last.rfind("-- FAILED", 0) == 0 || last.find("is not supported") != std::string::npos) << last;
    }
  }
  EXPECT_GT(failures, 0) << "expected damage to be noticed; " << images << " damaged inputs were still read";
  std::filesystem::remove(path);
}
