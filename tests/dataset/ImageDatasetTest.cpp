#include "dataset/ImageDataset.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "imageio/ImageTestSupport.h"

using namespace tarv;
using namespace tarv::imagetests;

namespace {

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
