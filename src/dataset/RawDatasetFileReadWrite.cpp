#include "dataset/RawDatasetFileReadWrite.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <type_traits>
#include <vector>

#include "dataset/ByteOrder.h"

namespace tarv {

namespace {

// Bytes transferred per file read or write call, at most.
constexpr std::uint64_t kChunkBytes = 1 << 20;

void writeZeros(std::ostream& stream, std::uint64_t count) {
  static const char zeros[4096] = {};
  while (count > 0 && stream) {
    const std::uint64_t n = std::min<std::uint64_t>(count, sizeof(zeros));
    stream.write(zeros, static_cast<std::streamsize>(n));
    count -= n;
  }
}

// Visits every element position of the dataset in file order (t, z, y, x, components fastest),
// handing f the coordinates and the running element number.
template <typename F>
void forEachElement(const DatasetCoordinates& size, F&& f) {
  DatasetCoordinates p(0, 0, 0, 0, 0);
  std::uint64_t n = 0;
  for (p.t = 0; p.t < size.t; ++p.t)
    for (p.z = 0; p.z < size.z; ++p.z)
      for (p.y = 0; p.y < size.y; ++p.y)
        for (p.x = 0; p.x < size.x; ++p.x)
          for (p.c = 0; p.c < size.c; ++p.c) f(p, n++);
}

std::uint64_t elementCountOf(const DatasetCoordinates& size) {
  std::uint64_t count = 1;
  for (int k = 0; k < 5; ++k) count *= static_cast<std::uint64_t>(size[k]);
  return count;
}

}  // namespace

unsigned int RawDatasetFileReadWrite::getStoredElementSize(TARVElementType type) {
  unsigned int bytes = 0;
  dispatchElementType(type, [&]<typename T>() { bytes = sizeof(T); });
  return bytes;
}

void RawDatasetFileReadWrite::correctNegativeFillerSizes() {
  headerSize = std::max(headerSize, 0);
  trailerSize = std::max(trailerSize, 0);
  elementPrefixSize = std::max(elementPrefixSize, 0);
  elementSuffixSize = std::max(elementSuffixSize, 0);
}

void RawDatasetFileReadWrite::read(Dataset* dataset) {
  if (dataset == nullptr || !dataset->hasData()) return;
  std::ifstream stream(fileName, std::ios::binary);
  if (!stream.is_open()) return;
  correctNegativeFillerSizes();
  const std::size_t elementSize = getStoredElementSize(elementType);
  if (elementSize == 0) return;

  stream.seekg(0, std::ios::end);
  const std::streamoff fileSize = stream.tellg();
  const DatasetCoordinates size = dataset->getSize();
  const std::uint64_t total = elementCountOf(size);
  const std::uint64_t stride = elementSize + static_cast<std::uint64_t>(elementPrefixSize) +
                               static_cast<std::uint64_t>(elementSuffixSize);
  const std::uint64_t expected =
      static_cast<std::uint64_t>(headerSize) + static_cast<std::uint64_t>(trailerSize) + total * stride;
  // The size check is done in 32-bit arithmetic: larger files are refused.
  if (fileSize < 0 || expected > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()) ||
      static_cast<std::uint64_t>(fileSize) != expected)
    return;
  stream.seekg(headerSize, std::ios::beg);

  // Runs of elements, fillers included, are read in one call each; elements with very large
  // fillers are read one by one.
  const bool gather = stride <= kChunkBytes;
  const std::uint64_t perChunk = gather ? std::clamp<std::uint64_t>(kChunkBytes / stride, 1, total) : 1;
  std::vector<unsigned char> chunk(static_cast<std::size_t>(gather ? perChunk * stride : elementSize));
  dispatchElementType(elementType, [&]<typename T>() {
    const unsigned char* element = nullptr;
    bool ok = true;
    forEachElement(size, [&](const DatasetCoordinates& p, std::uint64_t n) {
      if (!ok) return;
      if (!gather) {
        stream.seekg(elementPrefixSize, std::ios::cur);
        ok = static_cast<bool>(stream.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(elementSize)));
        stream.seekg(elementSuffixSize, std::ios::cur);
        element = chunk.data();
      } else if (n % perChunk == 0) {
        const std::uint64_t count = std::min(total - n, perChunk);
        ok = static_cast<bool>(stream.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(count * stride)));
        element = chunk.data() + elementPrefixSize;
      }
      if (!ok) return;
      unsigned char bytes[sizeof(T)];
      std::memcpy(bytes, element, sizeof(T));
      if (byteSwap) ByteOrder::reverseElementBytes(bytes, 1, sizeof(T));
      if constexpr (std::is_same_v<T, bool>) {
        dataset->setElement<bool>(p, bytes[0] != 0);
      } else {
        T value;
        std::memcpy(&value, bytes, sizeof(T));
        dataset->setElement<T>(p, value);
      }
      if (gather) element += stride;
    });
  });
}

void RawDatasetFileReadWrite::write(Dataset* dataset) {
  if (dataset == nullptr || !dataset->hasData()) return;
  std::ofstream stream(fileName, std::ios::binary | std::ios::trunc);
  if (!stream.is_open()) return;
  correctNegativeFillerSizes();
  const std::size_t elementSize = getStoredElementSize(elementType);
  if (elementSize == 0) return;

  writeZeros(stream, static_cast<std::uint64_t>(headerSize));
  const DatasetCoordinates size = dataset->getSize();
  const std::uint64_t total = elementCountOf(size);
  const std::uint64_t stride = elementSize + static_cast<std::uint64_t>(elementPrefixSize) +
                               static_cast<std::uint64_t>(elementSuffixSize);
  // Runs of elements are gathered with their fillers and written in one call each; elements with
  // very large fillers are written one by one.
  const bool gather = stride <= kChunkBytes;
  const std::uint64_t perChunk = gather ? std::clamp<std::uint64_t>(kChunkBytes / stride, 1, total) : 1;
  std::vector<unsigned char> chunk(static_cast<std::size_t>(gather ? perChunk * stride : elementSize), 0);
  dataset->announceAccessToFullDataset();
  dispatchElementType(elementType, [&]<typename T>() {
    unsigned char* element = chunk.data() + (gather ? elementPrefixSize : 0);
    std::uint64_t pending = 0;
    forEachElement(size, [&](const DatasetCoordinates& p, std::uint64_t n) {
      const T value = dataset->getElement<T>(p);
      std::memcpy(element, &value, sizeof(T));
      if constexpr (std::is_same_v<T, long double>) {
        // Only the leading bytes carry the value; the padding is stored as zeros.
        constexpr std::size_t valueBytes = 10;
        std::memset(element + valueBytes, 0, sizeof(T) - valueBytes);
      }
      if (byteSwap) ByteOrder::reverseElementBytes(element, 1, sizeof(T));
      if (!gather) {
        writeZeros(stream, static_cast<std::uint64_t>(elementPrefixSize));
        stream.write(reinterpret_cast<const char*>(element), static_cast<std::streamsize>(sizeof(T)));
        writeZeros(stream, static_cast<std::uint64_t>(elementSuffixSize));
        return;
      }
      element += stride;
      if (++pending == perChunk || n + 1 == total) {
        stream.write(reinterpret_cast<const char*>(chunk.data()), static_cast<std::streamsize>(pending * stride));
        element = chunk.data() + elementPrefixSize;
        pending = 0;
      }
    });
  });
  writeZeros(stream, static_cast<std::uint64_t>(trailerSize));
}

}  // namespace tarv
