#ifndef TARV_TESTS_IMAGEIO_TIFFIMAGETESTSUPPORT_H
#define TARV_TESTS_IMAGEIO_TIFFIMAGETESTSUPPORT_H

// Random images, whole-file bytes, reading with the log kept, and comparing an image read back
// with the one written.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "dataset/ImageDataset.h"
#include "imageio/ImageTestSupport.h"

namespace tarv::imagetests {

inline std::vector<std::string> lines(const std::string& text) {
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

inline std::vector<unsigned char> readBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(file), {});
}

struct ReadResult {
  ImageDataset* image = nullptr;
  std::vector<std::string> log;
  ~ReadResult() {
    if (image) image->UnRegister();
  }
};

inline void readFile(const std::string& path, ReadResult& result) {
  std::ostringstream log;
  result.image = readTiffFile(path, &log);
  result.log = lines(log.str());
}

inline void readStream(const std::string& name, const std::string& bytes, ReadResult& result) {
  std::istringstream stream(bytes);
  std::ostringstream log;
  result.image = readTiffStream(name, &stream, &log);
  result.log = lines(log.str());
}

inline std::string asString(const std::vector<unsigned char>& bytes) { return std::string(bytes.begin(), bytes.end()); }

struct Shape {
  Index size;
  std::optional<Index> page;  // default page size when empty
};

inline Index roundedTileSize(const Index& page) {
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

}  // namespace tarv::imagetests

#endif
