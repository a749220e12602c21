#include "dataset/ImageDataset.h"

#include "dataset/TiffDeepTileCodec.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

using namespace tarv;

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

namespace {

// ---------------------------------------------------------------------------------------------
// Voxel types with the identifiers they must have

template <typename T, int Id>
struct TypeCase {
  using Type = T;
  static constexpr TypeID id = TypeID(Id);
};

using AllTypes = std::tuple<TypeCase<bool, 1>, TypeCase<signed char, 2>, TypeCase<unsigned char, 3>,
                            TypeCase<short, 4>, TypeCase<unsigned short, 5>, TypeCase<int, 6>,
                            TypeCase<unsigned int, 7>, TypeCase<long, 8>, TypeCase<unsigned long, 9>,
                            TypeCase<float, 10>, TypeCase<double, 11>>;
using NumericTypes = std::tuple<TypeCase<signed char, 2>, TypeCase<unsigned char, 3>, TypeCase<short, 4>,
                                TypeCase<unsigned short, 5>, TypeCase<int, 6>, TypeCase<unsigned int, 7>,
                                TypeCase<long, 8>, TypeCase<unsigned long, 9>, TypeCase<float, 10>,
                                TypeCase<double, 11>>;
using TiffTypes = std::tuple<TypeCase<signed char, 2>, TypeCase<unsigned char, 3>, TypeCase<short, 4>,
                             TypeCase<unsigned short, 5>, TypeCase<int, 6>, TypeCase<unsigned int, 7>,
                             TypeCase<float, 10>>;

template <typename Cases, typename F>
void forEachType(F&& f) {
  std::apply([&](auto... cases) { (f(cases), ...); }, Cases{});
}

// ---------------------------------------------------------------------------------------------
// Helpers

using Index = std::array<std::size_t, 3>;

std::string testPath(const std::string& name) {
  return std::string(TARV_TEST_BINARY_DIR) + "/ImageDatasetTest_" + name;
}

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> result;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) result.push_back(line);
  return result;
}

template <typename T>
bool sameBits(T a, T b) {
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

template <typename T>
void fillRandom(TImageDataset<T, 3>& image, std::mt19937_64& random) {
  const auto& size = image.getSize();
  for (std::size_t z = 0; z < size[2]; ++z)
    for (std::size_t y = 0; y < size[1]; ++y)
      for (std::size_t x = 0; x < size[0]; ++x) {
        T value{};
        if constexpr (std::is_same_v<T, bool>) {
          value = (random() & 1) != 0;
        } else {
          const std::uint64_t bits = random();
          std::memcpy(&value, &bits, sizeof(T));
          if constexpr (std::is_floating_point_v<T>)
            if (std::isnan(value)) value = T(0);  // keeps the value range independent of order
        }
        image.setVoxel(x, y, z, value);
      }
}

std::vector<unsigned char> readBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(file), {});
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

struct ReadResult {
  ImageDataset* image = nullptr;
  std::vector<std::string> log;
  ~ReadResult() {
    if (image) image->UnRegister();
  }
};

void readFile(const std::string& path, ReadResult& result) {
  std::ostringstream log;
  result.image = readTiffFile(path, &log);
  result.log = lines(log.str());
}

void readStream(const std::string& name, const std::string& bytes, ReadResult& result) {
  std::istringstream stream(bytes);
  std::ostringstream log;
  result.image = readTiffStream(name, &stream, &log);
  result.log = lines(log.str());
}

std::string asString(const std::vector<unsigned char>& bytes) { return std::string(bytes.begin(), bytes.end()); }

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

// An image without a typed implementation of its declared type.
class ForeignImage : public ImageDataset {
public:
  explicit ForeignImage(TypeID id) : id_(id) {}
  TypeID type_id() const override { return id_; }
  bool empty() const override { return false; }
  std::array<std::uint64_t, 3> size_array() const override { return {2, 2, 1}; }

private:
  TypeID id_;
};

template <typename T>
class CountedImage : public TImageDataset<T, 3> {
public:
  CountedImage(int* deletes, std::size_t x, std::size_t y, std::size_t z)
      : TImageDataset<T, 3>(x, y, z), deletes_(deletes) {}
  ~CountedImage() override { ++*deletes_; }

private:
  int* deletes_;
};

}  // namespace

// =============================================================================================
// Type identifiers

TEST(TypeID, NamesAsPrinted) {
  const std::vector<std::pair<int, std::string>> names{
      {0, "null"},     {1, "bool"},   {2, "int8_t"},   {3, "uint8_t"}, {4, "int16_t"},
      {5, "uint16_t"}, {6, "int32_t"}, {7, "uint32_t"}, {8, "int64_t"}, {9, "uint64_t"},
      {10, "float"},   {11, "double"}, {12, "rgb8_t"},  {13, "???"},    {-1, "???"}};
  for (const auto& [value, name] : names) EXPECT_EQ(typeIdName(TypeID(value)), name) << "for type id " << value;
}

TEST(TypeID, EachVoxelTypeHasItsIdentifierAndDispatchesBack) {
  forEachType<AllTypes>([](auto c) {
    using T = typename decltype(c)::Type;
    EXPECT_EQ(typeIdOf<T>(), c.id);
    bool reached = false;
    EXPECT_TRUE(dispatchTypeId(c.id, [&]<typename U>() {
      reached = std::is_same_v<U, T>;
      return true;
    }));
    EXPECT_TRUE(reached) << "expected type id " << c.id << " to dispatch to its own type";
  });
  for (int id : {0, 12, 13, -5})
    EXPECT_FALSE(dispatchTypeId(TypeID(id), []<typename>() { return true; })) << "for type id " << id;
}

// =============================================================================================
// Image container

TEST(ImageDataset, FreshImageReportsRangeNotComputed) {
  auto* image = new TImageDataset<short, 3>(4, 3, 2);
  EXPECT_FALSE(image->isMinMaxValueComputed()) << "expected a fresh image to have no range yet";
  image->setVoxel(1, 2, 1, -7);
  image->setVoxel(3, 0, 0, 12);
  EXPECT_FALSE(image->isMinMaxValueComputed());
  EXPECT_EQ(image->getMinValue(), -7.0);
  EXPECT_TRUE(image->isMinMaxValueComputed()) << "expected the first getter to store the range";
  EXPECT_EQ(image->getMaxValue(), 12.0);
  image->setVoxel(0, 0, 0, 100);
  EXPECT_EQ(image->getMaxValue(), 12.0) << "expected the stored range to be kept";
  image->UnRegister();
}

TEST(ImageDataset, FreshRangeIsOneAndZeroForAnEmptyImage) {
  auto* image = new TImageDataset<int, 3>(0, 5, 5);
  EXPECT_TRUE(image->empty());
  EXPECT_EQ(image->getMinValue(), 1.0);
  EXPECT_EQ(image->getMaxValue(), 0.0);
  EXPECT_FALSE(image->isMinMaxValueComputed()) << "expected an empty image to leave the range uncomputed";
  image->UnRegister();
}

TEST(ImageDataset, EqualMinimumAndMaximumIsAComputedRange) {
  auto* image = new TImageDataset<float, 3>(3, 3, 3);
  image->setVoxel(1, 1, 1, 42.0f);
  image->setMinMaxValue(5, 5);
  EXPECT_TRUE(image->isMinMaxValueComputed());
  EXPECT_EQ(image->getMinValue(), 5.0) << "expected setMinMaxValue(5, 5) not to trigger a scan";
  EXPECT_EQ(image->getMaxValue(), 5.0);
  image->setMinMaxValue(3, 2);
  EXPECT_FALSE(image->isMinMaxValueComputed());
  EXPECT_EQ(image->getMaxValue(), 42.0) << "expected an inverted range to be recomputed";
  image->UnRegister();
}

TEST(ImageDataset, RgbaOnlyForUnsigned32BitImages) {
  auto* bytes = new TImageDataset<unsigned char, 3>(2, 2, 2);
  auto* words = new TImageDataset<unsigned int, 3>(2, 2, 2);
  auto* signedWords = new TImageDataset<int, 3>(2, 2, 2);
  EXPECT_FALSE(words->isRGBA()) << "expected the flag to start false";
  bytes->setRGBA(true);
  words->setRGBA(true);
  signedWords->setRGBA(true);
  EXPECT_FALSE(bytes->isRGBA()) << "expected an unsigned 8-bit image never to be RGBA";
  EXPECT_FALSE(signedWords->isRGBA());
  EXPECT_TRUE(words->isRGBA());
  words->setRGBA(false);
  EXPECT_FALSE(words->isRGBA());
  bytes->UnRegister();
  words->UnRegister();
  signedWords->UnRegister();
}

TEST(ImageDataset, OriginalTypeIdDefaultsToTheStoredType) {
  auto* image = new TImageDataset<unsigned short, 3>(1, 1, 1);
  EXPECT_EQ(image->type_id(), TYPE_ID_UINT16);
  EXPECT_EQ(image->original_type_id(), TYPE_ID_UINT16);
  image->setOriginalTypeId(TYPE_ID_DOUBLE);
  EXPECT_EQ(image->original_type_id(), TYPE_ID_DOUBLE);
  image->setOriginalTypeId(TYPE_ID_NULL);
  EXPECT_EQ(image->original_type_id(), TYPE_ID_UINT16);
  image->UnRegister();
}

TEST(ImageDataset, EmbeddingAndModalityTablesStartAtTheirDefaults) {
  auto* image = new TImageDataset<float, 3>(2, 2, 2);
  EXPECT_EQ(image->getWorldEmbedding(), DatasetWorldEmbedding());
  for (const ModalityLUT& lut : image->getModalityLUTs()) {
    EXPECT_FALSE(lut.isValid());
    EXPECT_EQ(lut.map(7.0), 7.0);
  }
  DatasetWorldEmbedding embedding(WorldCoordinates(1, 2, 3, 0), WorldCoordinates(0.5, 0.5, 2, 1));
  image->setWorldEmbedding(embedding);
  image->getModalityLUTs()[1].set(2, -1);
  EXPECT_EQ(image->getWorldEmbedding(), embedding);
  EXPECT_EQ(image->getModalityLUTs()[1].map(7.0), 13.0);
  EXPECT_FALSE(image->getModalityLUTs()[0].isValid());
  image->UnRegister();
}

TEST(ImageDataset, ReferenceCountDeletesOnLastUnRegister) {
  int deletes = 0;
  auto* image = new CountedImage<unsigned char>(&deletes, 2, 2, 2);
  EXPECT_EQ(image->GetRefCount(), 1) << "expected one owner after construction";
  image->Register();
  image->Register();
  EXPECT_EQ(image->GetRefCount(), 3);
  image->UnRegister();
  image->UnRegister();
  EXPECT_EQ(image->GetRefCount(), 1);
  EXPECT_EQ(deletes, 0) << "expected no delete while an owner remains";
  image->UnRegister();
  EXPECT_EQ(deletes, 1) << "expected exactly one delete by the last owner";
}

TEST(TImageDataset, SizesAndPageSizes) {
  auto* image = new TImageDataset<int, 3>(100, 70, 40);
  EXPECT_EQ(image->size_array(), (std::array<std::uint64_t, 3>{100, 70, 40}));
  EXPECT_EQ(image->getPageSize(), (Index{64, 64, 16})) << "expected the default page size";
  EXPECT_EQ(image->getPageCount(), (Index{2, 2, 3}));
  EXPECT_EQ(image->getPages().size(), 12u);
  EXPECT_FALSE(image->empty());
  image->UnRegister();

  auto* small = new TImageDataset<int, 3>(20, 20, 3);
  EXPECT_EQ(small->getPageSize(), (Index{20, 20, 3})) << "expected the default page size clipped to the image";
  small->UnRegister();

  auto* explicitPages = new TImageDataset<int, 3>(20, 20, 3, 32, 0, 5);
  EXPECT_EQ(explicitPages->getPageSize(), (Index{32, 1, 5})) << "expected explicit page sizes kept, at least 1";
  EXPECT_EQ(explicitPages->getPageCount(), (Index{1, 20, 1}));
  explicitPages->UnRegister();

  for (const Index& size : {Index{0, 3, 3}, Index{3, 0, 3}, Index{3, 3, 0}}) {
    auto* empty = new TImageDataset<double, 3>(size[0], size[1], size[2]);
    EXPECT_TRUE(empty->empty());
    EXPECT_TRUE(empty->getPages().empty());
    empty->UnRegister();
  }
}

TEST(TImageDataset, RefusesOverflowingSizes) {
  const std::size_t huge = std::size_t(1) << 40;
  using IntImage = TImageDataset<int, 3>;
  EXPECT_THROW(std::make_unique<IntImage>(huge, huge, huge, 1 << 20, 1 << 20, 1 << 20), std::length_error);
}

TEST(TImageDataset, VoxelsStartZeroedAndKeepWhatIsSet) {
  std::mt19937_64 random(20240601);
  for (int round = 0; round < 40; ++round) {
    const Index size{random() % 30 + 1, random() % 20 + 1, random() % 12 + 1};
    const Index page{random() % 12 + 1, random() % 12 + 1, random() % 6 + 1};
    auto* image = new TImageDataset<unsigned int, 3>(size[0], size[1], size[2], page[0], page[1], page[2]);
    std::vector<unsigned int> reference(size[0] * size[1] * size[2], 0);
    for (std::size_t z = 0; z < size[2]; ++z)
      for (std::size_t y = 0; y < size[1]; ++y)
        for (std::size_t x = 0; x < size[0]; ++x)
          ASSERT_EQ(image->getVoxel(x, y, z), 0u) << "expected zeroed voxels, round " << round;
    for (int k = 0; k < 500; ++k) {
      const std::size_t x = random() % size[0], y = random() % size[1], z = random() % size[2];
      const auto value = static_cast<unsigned int>(random());
      image->setVoxel(x, y, z, value);
      reference[(z * size[1] + y) * size[0] + x] = value;
    }
    for (std::size_t z = 0; z < size[2]; ++z)
      for (std::size_t y = 0; y < size[1]; ++y)
        for (std::size_t x = 0; x < size[0]; ++x)
          ASSERT_EQ(image->getVoxel(x, y, z), reference[(z * size[1] + y) * size[0] + x])
              << "at " << x << ", " << y << ", " << z << ", round " << round << " (seed 20240601)";
    image->UnRegister();
  }
}

TEST(TImageDataset, VisitRowsCoversEachVoxelOfTheBoxOnce) {
  std::mt19937_64 random(77);
  for (int round = 0; round < 60; ++round) {
    const Index size{random() % 25 + 1, random() % 15 + 1, random() % 9 + 1};
    const Index page{random() % 9 + 1, random() % 9 + 1, random() % 5 + 1};
    auto* image = new TImageDataset<unsigned int, 3>(size[0], size[1], size[2], page[0], page[1], page[2]);
    for (std::size_t z = 0; z < size[2]; ++z)
      for (std::size_t y = 0; y < size[1]; ++y)
        for (std::size_t x = 0; x < size[0]; ++x)
          image->setVoxel(x, y, z, static_cast<unsigned int>((z * size[1] + y) * size[0] + x));
    Index begin{}, end{};
    for (int k = 0; k < 3; ++k) {
      begin[k] = random() % (size[k] + 2);
      end[k] = begin[k] + random() % (size[k] + 3);
    }
    std::vector<int> visits(size[0] * size[1] * size[2], 0);
    const auto* constImage = image;
    constImage->visitRows(begin, end, [&](const unsigned int* row, std::size_t x, std::size_t y, std::size_t z,
                                          std::size_t count) {
      ASSERT_GT(count, 0u);
      for (std::size_t i = 0; i < count; ++i) {
        ASSERT_EQ(row[i], (z * size[1] + y) * size[0] + x + i) << "expected the row to start at its voxel";
        ++visits[(z * size[1] + y) * size[0] + x + i];
      }
    });
    for (std::size_t z = 0; z < size[2]; ++z)
      for (std::size_t y = 0; y < size[1]; ++y)
        for (std::size_t x = 0; x < size[0]; ++x) {
          const bool inside = x >= begin[0] && x < end[0] && y >= begin[1] && y < end[1] && z >= begin[2] &&
                              z < end[2];
          ASSERT_EQ(visits[(z * size[1] + y) * size[0] + x], inside ? 1 : 0)
              << "at " << x << ", " << y << ", " << z << ", round " << round << " (seed 77)";
        }
    image->UnRegister();
  }
}

// =============================================================================================
// Value range

TEST(ComputeMinMaxValue, ScansIntegerVoxels) {
  auto* image = new TImageDataset<int, 3>(5, 4, 3, 2, 3, 2);
  image->setVoxel(4, 3, 2, -9);
  image->setVoxel(0, 2, 1, 31);
  double min = -100, max = -100;
  computeMinMaxValue(image, min, max);
  EXPECT_EQ(min, -9.0);
  EXPECT_EQ(max, 31.0);
  image->UnRegister();
}

TEST(ComputeMinMaxValue, FollowsStorageOrderWithNaN) {
  // Two pages side by side along x: storage order is (0,0), (0,1), (1,0), (1,1).
  auto* image = new TImageDataset<float, 3>(2, 2, 1, 1, 2, 1);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  image->setVoxel(0, 0, 0, 1.0f);
  image->setVoxel(0, 1, 0, nan);
  image->setVoxel(1, 0, 0, 5.0f);
  image->setVoxel(1, 1, 0, 0.0f);
  double min = 0, max = 0;
  computeMinMaxValue(image, min, max);
  EXPECT_EQ(min, 0.0) << "expected the page order scan: 1, NaN, 5, 0";
  EXPECT_EQ(max, 5.0) << "expected the NaN maximum to be replaced by the next voxel";
  image->UnRegister();

  auto* trailing = new TImageDataset<double, 3>(2, 1, 1);
  trailing->setVoxel(0, 0, 0, 5.0);
  trailing->setVoxel(1, 0, 0, std::numeric_limits<double>::quiet_NaN());
  computeMinMaxValue(trailing, min, max);
  EXPECT_EQ(min, 5.0);
  EXPECT_TRUE(std::isnan(max)) << "expected a trailing NaN to stay the maximum";
  trailing->UnRegister();
}

TEST(ComputeMinMaxValue, BoolAnd64BitVoxels) {
  auto* bits = new TImageDataset<bool, 3>(3, 3, 3);
  double min = 7, max = 7;
  computeMinMaxValue(bits, min, max);
  EXPECT_EQ(min, 0.0);
  EXPECT_EQ(max, 0.0);
  bits->setVoxel(2, 2, 2, true);
  computeMinMaxValue(bits, min, max);
  EXPECT_EQ(max, 1.0);
  bits->UnRegister();

  auto* longs = new TImageDataset<long, 3>(2, 1, 1);
  longs->setVoxel(0, 0, 0, (long(1) << 62) + 1);
  longs->setVoxel(1, 0, 0, std::numeric_limits<long>::min());
  computeMinMaxValue(longs, min, max);
  EXPECT_EQ(max, 4611686018427387904.0) << "expected the nearest double";
  EXPECT_EQ(min, -9223372036854775808.0);
  longs->UnRegister();

  auto* unsignedLongs = new TImageDataset<unsigned long, 3>(1, 1, 1);
  unsignedLongs->setVoxel(0, 0, 0, std::numeric_limits<unsigned long>::max());
  computeMinMaxValue(unsignedLongs, min, max);
  EXPECT_EQ(max, 18446744073709551616.0);
  unsignedLongs->UnRegister();
}

TEST(ComputeMinMaxValue, LeavesTheRangeOfRgbAndUntypedImages) {
  for (TypeID id : {TYPE_ID_RGB8, TYPE_ID_NULL, TYPE_ID_UINT8}) {
    auto* image = new ForeignImage(id);
    double min = 1.0, max = 0.0;
    computeMinMaxValue(image, min, max);
    EXPECT_EQ(min, 1.0) << "for type id " << id;
    EXPECT_EQ(max, 0.0) << "for type id " << id;
    EXPECT_EQ(image->getMinValue(), 1.0);
    EXPECT_FALSE(image->isMinMaxValueComputed()) << "expected the range to stay uncomputed for type id " << id;
    image->UnRegister();
  }
  double min = 1.0, max = 0.0;
  computeMinMaxValue(nullptr, min, max);
  EXPECT_EQ(min, 1.0);
}

// =============================================================================================
// Element conversion

namespace {

// Whether the C++ conversion of `value` to To has a defined result.
template <typename To, typename From>
bool conversionDefined(From value) {
  if constexpr (std::is_floating_point_v<From> && std::is_integral_v<To>) {
    const long double truncated = std::trunc(static_cast<long double>(value));
    return std::isfinite(value) && truncated >= static_cast<long double>(std::numeric_limits<To>::lowest()) &&
           truncated <= static_cast<long double>(std::numeric_limits<To>::max());
  } else if constexpr (std::is_same_v<From, double> && std::is_same_v<To, float>) {
    return std::fabs(value) <= std::numeric_limits<float>::max();
  } else {
    return true;
  }
}

template <typename T>
std::vector<T> sourceValues() {
  std::vector<T> values;
  if constexpr (std::is_same_v<T, bool>) {
    values = {false, true, true, false};
  } else if constexpr (std::is_integral_v<T>) {
    const std::int64_t raw[] = {0,          1,           -1,          2,          44,          127,
                                128,        -128,        -129,        200,        255,         256,
                                300,        -200,        32767,       32768,      -32769,      65535,
                                65536,      70000,       -70000,      2147483647, 2147483648LL, -2147483649LL,
                                4294967295LL, 4294967296LL, 1234567890123LL, -1234567890123LL,
                                std::numeric_limits<std::int64_t>::max(), std::numeric_limits<std::int64_t>::min()};
    for (std::int64_t v : raw) values.push_back(static_cast<T>(v));  // modular, as every integer conversion
  } else {
    const double raw[] = {0.0,        -0.0,       0.4,          -0.4,        1.7,          -1.7,    2.5,
                          -2.5,       100.9,      -100.9,       127.99,      128.5,        -128.5,  255.9,
                          256.0,      300.9,      -200.5,       32767.5,     65535.9,      -32768.9, 70000.25,
                          2147483647.0, -2147483648.0, 4294967295.0, 1e10,   -1e10,        1e20,    3e38,
                          -3e38,      1e300,      -1e300,       1e-300};
    for (double v : raw)
      if (std::is_same_v<T, double> || std::fabs(v) <= std::numeric_limits<float>::max())
        values.push_back(static_cast<T>(v));
  }
  return values;
}

template <typename T>
bool sameValue(T a, T b) {
  if constexpr (std::is_floating_point_v<T>)
    return a == b || (std::isnan(a) && std::isnan(b));
  else
    return a == b;
}

}  // namespace

TEST(Dump, ImageToBufferMatchesTheLanguageConversionForAllPairs) {
  const Index size{5, 4, 3};
  int pairs = 0;
  forEachType<AllTypes>([&](auto source) {
    using From = typename decltype(source)::Type;
    const std::vector<From> values = sourceValues<From>();
    auto* image = new TImageDataset<From, 3>(size[0], size[1], size[2], 2, 3, 2);
    std::vector<From> flat(size[0] * size[1] * size[2]);
    for (std::size_t i = 0; i < flat.size(); ++i) flat[i] = values[(i * 7) % values.size()];
    for (std::size_t z = 0; z < size[2]; ++z)
      for (std::size_t y = 0; y < size[1]; ++y)
        for (std::size_t x = 0; x < size[0]; ++x) image->setVoxel(x, y, z, flat[(z * size[1] + y) * size[0] + x]);
    forEachType<NumericTypes>([&](auto target) {
      using To = typename decltype(target)::Type;
      std::vector<To> buffer(flat.size(), To(99));
      ASSERT_TRUE(dump(image, buffer.data(), target.id)) << "from " << source.id << " to " << target.id;
      int checked = 0;
      for (std::size_t i = 0; i < flat.size(); ++i) {
        if (!conversionDefined<To>(flat[i])) continue;
        ++checked;
        EXPECT_TRUE(sameValue(buffer[i], static_cast<To>(flat[i])))
            << "from type " << source.id << " to type " << target.id << " at element " << i << ": expected "
            << +static_cast<To>(flat[i]) << ", got " << +buffer[i];
      }
      EXPECT_GT(checked, 0) << "from " << source.id << " to " << target.id;
      ++pairs;
    });
    image->UnRegister();
  });
  EXPECT_EQ(pairs, 110) << "expected 11 source types times 10 target types";
}

TEST(Dump, BufferToImageMatchesTheLanguageConversionForAllPairs) {
  const Index size{5, 4, 3};
  int pairs = 0;
  forEachType<AllTypes>([&](auto source) {
    using From = typename decltype(source)::Type;
    const std::vector<From> values = sourceValues<From>();
    std::vector<From> flat(size[0] * size[1] * size[2]);
    for (std::size_t i = 0; i < flat.size(); ++i) flat[i] = values[(i * 5 + 3) % values.size()];
    // bool buffers are arrays of bool.
    std::unique_ptr<From[]> buffer(new From[flat.size()]);
    std::copy(flat.begin(), flat.end(), buffer.get());
    forEachType<NumericTypes>([&](auto target) {
      using To = typename decltype(target)::Type;
      auto* image = new TImageDataset<To, 3>(size[0], size[1], size[2], 3, 2, 2);
      ASSERT_TRUE(dump(buffer.get(), source.id, image)) << "from " << source.id << " to " << target.id;
      int checked = 0;
      for (std::size_t z = 0; z < size[2]; ++z)
        for (std::size_t y = 0; y < size[1]; ++y)
          for (std::size_t x = 0; x < size[0]; ++x) {
            const From value = flat[(z * size[1] + y) * size[0] + x];
            if (!conversionDefined<To>(value)) continue;
            ++checked;
            EXPECT_TRUE(sameValue(image->getVoxel(x, y, z), static_cast<To>(value)))
                << "from type " << source.id << " to type " << target.id << " at " << x << ", " << y << ", " << z
                << ": expected " << +static_cast<To>(value) << ", got " << +image->getVoxel(x, y, z);
          }
      EXPECT_GT(checked, 0);
      image->UnRegister();
      ++pairs;
    });
  });
  EXPECT_EQ(pairs, 110) << "expected 11 source types times 10 target types";
}

namespace {

template <typename To, typename From>
To dumpOne(From value) {
  auto* image = new TImageDataset<From, 3>(1, 1, 1);
  image->setVoxel(0, 0, 0, value);
  To result{};
  EXPECT_TRUE(dump(image, &result, typeIdOf<To>()));
  image->UnRegister();
  return result;
}

template <typename To, typename From>
To dumpOneIntoImage(From value) {
  auto* image = new TImageDataset<To, 3>(1, 1, 1);
  EXPECT_TRUE(dump(&value, typeIdOf<From>(), image));
  const To result = image->getVoxel(0, 0, 0);
  image->UnRegister();
  return result;
}

}  // namespace

TEST(Dump, FloatingPointToIntegerTruncatesThenKeepsTheLowBits) {
  EXPECT_EQ(dumpOne<unsigned char>(-1.7f), 255) << "expected -1.7 truncated to -1, low byte 255";
  EXPECT_EQ(dumpOne<unsigned char>(300.9), 44);
  EXPECT_EQ(dumpOne<signed char>(-200.5), 56) << "expected -200 whose low byte is 0x38";
  EXPECT_EQ(dumpOne<signed char>(200.0f), -56);
  EXPECT_EQ(dumpOne<unsigned short>(-0.9), 0) << "expected truncation toward zero";
  EXPECT_EQ(dumpOne<short>(70000.7), 4464);
  EXPECT_EQ(dumpOne<int>(1e10), 1410065408);
  EXPECT_EQ(dumpOne<int>(-1e10), -1410065408);
  EXPECT_EQ(dumpOne<unsigned int>(-1.0), 4294967295u);
  EXPECT_EQ(dumpOne<unsigned long>(1e20), 7766279631452241920ul) << "expected 1e20 modulo 2^64";
  EXPECT_EQ(dumpOne<long>(9.3e18), -9146744073709551616l) << "expected 9.3e18 - 2^64";
  EXPECT_EQ(dumpOne<unsigned long>(-1e20), 10680464442257309696ul) << "expected 2^64 - (1e20 modulo 2^64)";
  EXPECT_EQ(dumpOne<unsigned char>(1e300), 0) << "expected a multiple of 2^64 to keep no low bits";
  EXPECT_EQ(dumpOne<int>(std::numeric_limits<double>::quiet_NaN()), 0) << "expected NaN to give 0";
  EXPECT_EQ(dumpOne<long>(std::numeric_limits<float>::infinity()), 0) << "expected infinity to give 0";
  EXPECT_EQ(dumpOne<unsigned short>(-std::numeric_limits<double>::infinity()), 0);

  EXPECT_EQ((dumpOneIntoImage<unsigned char>(-1.7f)), 255) << "expected the same rule into an image";
  EXPECT_EQ((dumpOneIntoImage<signed char>(300.9)), 44);
  EXPECT_EQ((dumpOneIntoImage<unsigned int>(-2.5)), 4294967294u);
}

TEST(Dump, IntegerToIntegerKeepsTheLowBitsOrExtends) {
  EXPECT_EQ(dumpOne<unsigned char>(300), 44);
  EXPECT_EQ(dumpOne<signed char>(200), -56);
  EXPECT_EQ(dumpOne<int>(static_cast<signed char>(-3)), -3) << "expected sign extension";
  EXPECT_EQ(dumpOne<int>(static_cast<unsigned char>(253)), 253) << "expected zero extension";
  EXPECT_EQ(dumpOne<unsigned long>(-1), 18446744073709551615ul);
  EXPECT_EQ(dumpOne<short>(static_cast<unsigned short>(65535)), -1);
  EXPECT_EQ(dumpOne<double>(true), 1.0) << "expected bool as 0 or 1";
  EXPECT_EQ(dumpOne<unsigned char>(false), 0);
  EXPECT_EQ(dumpOne<float>(16777217), 16777216.0f) << "expected the nearest float";
}

TEST(Dump, DoubleToFloatOutsideTheFloatRange) {
  const float largest = std::numeric_limits<float>::max();
  EXPECT_EQ(dumpOne<float>(1e300), std::numeric_limits<float>::infinity());
  EXPECT_EQ(dumpOne<float>(-1e300), -std::numeric_limits<float>::infinity());
  EXPECT_EQ(dumpOne<float>(double(largest) * (1 + 1e-9)), largest) << "expected rounding down to the largest float";
  EXPECT_EQ(dumpOne<float>(0x1.ffffffp127), std::numeric_limits<float>::infinity())
      << "expected the halfway value to round to infinity";
  EXPECT_TRUE(std::isnan(dumpOne<float>(std::numeric_limits<double>::quiet_NaN())));
}

TEST(Dump, RefusesWhatItCannotConvert) {
  auto* image = new TImageDataset<int, 3>(2, 2, 1);
  auto* bits = new TImageDataset<bool, 3>(2, 2, 1);
  auto* rgb = new ForeignImage(TYPE_ID_RGB8);
  auto* untyped = new ForeignImage(TYPE_ID_INT16);
  std::vector<double> buffer(4, 0.0);
  std::vector<bool> unused;
  EXPECT_FALSE(dump(static_cast<const ImageDataset*>(nullptr), buffer.data(), TYPE_ID_DOUBLE));
  EXPECT_FALSE(dump(image, nullptr, TYPE_ID_DOUBLE));
  for (int id : {0, 1, 12, 13, -1})
    EXPECT_FALSE(dump(image, buffer.data(), TypeID(id))) << "expected type id " << id << " refused as a target";
  EXPECT_FALSE(dump(rgb, buffer.data(), TYPE_ID_DOUBLE)) << "expected an RGB image refused as a source";
  EXPECT_FALSE(dump(untyped, buffer.data(), TYPE_ID_DOUBLE)) << "expected an image without voxels refused";
  EXPECT_FALSE(dump(buffer.data(), TYPE_ID_DOUBLE, bits)) << "expected a bool image refused as a target";
  EXPECT_FALSE(dump(buffer.data(), TYPE_ID_RGB8, image)) << "expected an RGB buffer refused as a source";
  EXPECT_FALSE(dump(buffer.data(), TYPE_ID_NULL, image));
  EXPECT_FALSE(dump(nullptr, TYPE_ID_DOUBLE, image));
  EXPECT_FALSE(dump(buffer.data(), TYPE_ID_DOUBLE, static_cast<ImageDataset*>(nullptr)));
  EXPECT_TRUE(dump(bits, buffer.data(), TYPE_ID_DOUBLE)) << "expected a bool image accepted as a source";
  image->UnRegister();
  bits->UnRegister();
  rgb->UnRegister();
  untyped->UnRegister();
}

TEST(Dump, EmptyImageCopiesNothing) {
  auto* image = new TImageDataset<float, 3>(0, 4, 4);
  double sentinel = 3.5;
  EXPECT_TRUE(dump(image, &sentinel, TYPE_ID_DOUBLE));
  EXPECT_TRUE(dump(&sentinel, TYPE_ID_DOUBLE, image));
  EXPECT_EQ(sentinel, 3.5);
  image->UnRegister();
}

// =============================================================================================
// TIFF round trips

namespace {

struct Shape {
  Index size;
  std::optional<Index> page;  // default page size when empty
};

const Shape roundTripShapes[] = {
    {{20, 20, 3}, std::nullopt},          // one tile, padded in every direction
    {{37, 21, 5}, Index{20, 13, 7}},      // pages and tiles of different grids
    {{33, 17, 1}, std::nullopt},          // depth 1
    {{19, 23, 35}, Index{16, 16, 16}},    // depth above 16: three tiles deep
    {{70, 5, 18}, std::nullopt},          // default pages 64 x 5 x 16
    {{1, 1, 1}, std::nullopt},
    {{130, 70, 17}, std::nullopt},        // six full 64 x 64 x 16 tiles of noise, and more
};

Index roundedTileSize(const Index& page) {
  Index tile{};
  for (int k = 0; k < 3; ++k) tile[k] = (page[k] + 15) / 16 * 16;
  return tile;
}

template <typename T>
TImageDataset<T, 3>* makeImage(const Shape& shape, std::uint64_t seed) {
  auto* image = shape.page ? new TImageDataset<T, 3>(shape.size[0], shape.size[1], shape.size[2], (*shape.page)[0],
                                                     (*shape.page)[1], (*shape.page)[2])
                           : new TImageDataset<T, 3>(shape.size[0], shape.size[1], shape.size[2]);
  std::mt19937_64 random(seed);
  fillRandom(*image, random);
  return image;
}

template <typename T>
void expectSameImage(const TImageDataset<T, 3>& written, const ImageDataset* read, const std::string& what) {
  ASSERT_NE(read, nullptr) << what;
  ASSERT_EQ(read->type_id(), typeIdOf<T>()) << what;
  const auto* typed = dynamic_cast<const TImageDataset<T, 3>*>(read);
  ASSERT_NE(typed, nullptr) << what;
  ASSERT_EQ(typed->getSize(), written.getSize()) << what;
  // A single slice is read with tiles one slice deep, whatever TileDepth says.
  Index expectedPage = roundedTileSize(written.getPageSize());
  if (written.getSize()[2] == 1) expectedPage[2] = 1;
  EXPECT_EQ(typed->getPageSize(), expectedPage) << "expected the file's tile size as page size, " << what;
  EXPECT_EQ(read->GetRefCount(), 1);
  const auto& size = written.getSize();
  double min = std::numeric_limits<double>::infinity(), max = -min;
  std::size_t wrong = 0;
  for (std::size_t z = 0; z < size[2]; ++z)
    for (std::size_t y = 0; y < size[1]; ++y)
      for (std::size_t x = 0; x < size[0]; ++x) {
        const T value = written.getVoxel(x, y, z);
        min = std::min(min, double(value));
        max = std::max(max, double(value));
        if (!sameBits(typed->getVoxel(x, y, z), value)) ++wrong;
      }
  EXPECT_EQ(wrong, 0u) << "expected every voxel back, " << what;
  EXPECT_TRUE(read->isMinMaxValueComputed()) << "expected the reader to store the range, " << what;
  EXPECT_EQ(read->getMinValue(), min) << what;
  EXPECT_EQ(read->getMaxValue(), max) << what;
}

std::string describe(TypeID id, const Shape& shape, const char* medium) {
  std::ostringstream text;
  text << medium << ", type " << typeIdName(id) << ", size " << shape.size[0] << " x " << shape.size[1] << " x "
       << shape.size[2];
  return text.str();
}

}  // namespace

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
