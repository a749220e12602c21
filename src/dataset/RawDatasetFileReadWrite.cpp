#include "dataset/RawDatasetFileReadWrite.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

#include "dataset/ByteOrder.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/FileStatus.h"
#include "formats/SlabWriters.h"

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

// Negative filler sizes become 0 in the object itself, for later calls too.
void correctNegativeFillerSizes(RawDatasetFileReadWrite& file) {
  file.headerSize = std::max(file.headerSize, 0);
  file.trailerSize = std::max(file.trailerSize, 0);
  file.elementPrefixSize = std::max(file.elementPrefixSize, 0);
  file.elementSuffixSize = std::max(file.elementSuffixSize, 0);
}

// Where the elements of a raw file lie: negative filler sizes count as none.
struct ElementLayout {
  std::size_t elementSize = 0;
  std::uint64_t header = 0, trailer = 0, prefix = 0, suffix = 0;

  explicit ElementLayout(const RawDatasetFileReadWrite& file)
      : elementSize(RawDatasetFileReadWrite::getStoredElementSize(file.elementType)),
        header(static_cast<std::uint64_t>(std::max(file.headerSize, 0))),
        trailer(static_cast<std::uint64_t>(std::max(file.trailerSize, 0))),
        prefix(static_cast<std::uint64_t>(std::max(file.elementPrefixSize, 0))),
        suffix(static_cast<std::uint64_t>(std::max(file.elementSuffixSize, 0))) {}
  std::uint64_t stride() const { return elementSize + prefix + suffix; }
  // Runs of elements, fillers included, go through one read or write call each; elements with
  // very large fillers one by one.
  bool gathers() const { return stride() <= kChunkBytes; }
  std::uint64_t elementsPerChunk(std::uint64_t total) const {
    return gathers() ? std::clamp<std::uint64_t>(kChunkBytes / stride(), 1, total) : 1;
  }
  std::size_t chunkBytes(std::uint64_t total) const {
    return static_cast<std::size_t>(gathers() ? elementsPerChunk(total) * stride() : elementSize);
  }
};

Status unsupportedElementType(TARVElementType type) {
  return unsupportedError("raw files cannot store elements of type " + std::to_string(static_cast<int>(type)));
}

}  // namespace

unsigned int RawDatasetFileReadWrite::getStoredElementSize(TARVElementType type) {
  return DatasetMemory::getElementTypeByteSize(type);
}

void RawDatasetFileReadWrite::read(Dataset* dataset) { (void)formats::readRawFile(*this, dataset); }

Status formats::readRawFile(RawDatasetFileReadWrite& file, Dataset* dataset) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no shaped dataset to read into");
  std::ifstream stream(file.fileName, std::ios::binary);
  if (Status opened = checkOpenedForReading(stream.is_open(), file.fileName); !opened.ok()) return opened;
  correctNegativeFillerSizes(file);
  const ElementLayout layout(file);
  if (layout.elementSize == 0) return unsupportedElementType(file.elementType);

  const DatasetCoordinates size = dataset->getSize();
  if (Status checked = checkRawFileSize(file, size); !checked.ok()) return checked;
  const std::uint64_t total = elementCountOf(size);
  const std::uint64_t stride = layout.stride();
  const bool gather = layout.gathers();
  const std::uint64_t perChunk = layout.elementsPerChunk(total);
  std::vector<unsigned char> chunk(layout.chunkBytes(total));
  stream.seekg(static_cast<std::streamoff>(layout.header), std::ios::beg);
  bool ok = true;
  dispatchElementType(file.elementType, [&]<typename T>() {
    const unsigned char* element = nullptr;
    forEachElement(size, [&](const DatasetCoordinates& p, std::uint64_t n) {
      if (!ok) return;
      if (!gather) {
        stream.seekg(static_cast<std::streamoff>(layout.prefix), std::ios::cur);
        ok = static_cast<bool>(
            stream.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(layout.elementSize)));
        stream.seekg(static_cast<std::streamoff>(layout.suffix), std::ios::cur);
        element = chunk.data();
      } else if (n % perChunk == 0) {
        const std::uint64_t count = std::min(total - n, perChunk);
        ok = static_cast<bool>(stream.read(reinterpret_cast<char*>(chunk.data()), static_cast<std::streamsize>(count * stride)));
        element = chunk.data() + layout.prefix;
      }
      if (!ok) return;
      unsigned char bytes[sizeof(T)];
      std::memcpy(bytes, element, sizeof(T));
      if (file.byteSwap) ByteOrder::reverseElementBytes(bytes, 1, sizeof(T));
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
  if (!ok) return ioError("cannot read the elements (the file ends early or cannot be read)");
  return okStatus();
}

Status formats::checkRawFileSize(const RawDatasetFileReadWrite& file, const DatasetCoordinates& size) {
  const ElementLayout layout(file);
  if (layout.elementSize == 0) return unsupportedElementType(file.elementType);
  std::error_code error;
  const std::uintmax_t fileSize = std::filesystem::file_size(file.fileName, error);
  if (error) return ioError("cannot find the size of the file: " + error.message());
  const std::uint64_t expected = layout.header + layout.trailer + elementCountOf(size) * layout.stride();
  // The size check is done in 32-bit arithmetic: larger files are refused.
  if (expected > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()))
    return unsupportedError("raw files of 2 GiB or more cannot be read (the layout describes " +
                            std::to_string(expected) + " bytes)");
  if (fileSize != expected)
    return invalidArgumentError("the file is " + std::to_string(fileSize) + " bytes but the raw layout (" +
                                sizeText(size) + " elements of " + elementTypeName(file.elementType) +
                                ") describes " + std::to_string(expected));
  return okStatus();
}

void RawDatasetFileReadWrite::write(Dataset* dataset) { (void)formats::writeRawFile(*this, dataset); }

namespace {

// Elements in file order, gathered with their fillers into chunks of about kChunkBytes.
class RawSlabWriter : public formats::SlabWriter {
public:
  RawSlabWriter(std::ofstream opened, const RawDatasetFileReadWrite& file, const DatasetCoordinates& size)
      : layout(file), byteSwap(file.byteSwap), elementType(file.elementType), total(elementCountOf(size)),
        stream(std::move(opened)) {
    chunk.assign(layout.chunkBytes(total), 0);
    element = chunk.data() + (layout.gathers() ? layout.prefix : 0);
    writeZeros(stream, layout.header);
  }

  Status writeSlab(Dataset& source, const DatasetBoundingBox& slab, const DatasetCoordinates& shift) override {
    const std::uint64_t stride = layout.stride();
    const bool gather = layout.gathers();
    const std::uint64_t perChunk = layout.elementsPerChunk(total);
    dispatchElementType(elementType, [&]<typename T>() {
      DatasetCoordinates p = slab.start;
      for (p.t = slab.start.t; p.t <= slab.end.t; ++p.t)
        for (p.z = slab.start.z; p.z <= slab.end.z; ++p.z)
          for (p.y = slab.start.y; p.y <= slab.end.y; ++p.y)
            for (p.x = slab.start.x; p.x <= slab.end.x; ++p.x)
              for (p.c = slab.start.c; p.c <= slab.end.c; ++p.c) {
                const T value = source.getElement<T>(p + shift);
                std::memcpy(element, &value, sizeof(T));
                if constexpr (std::is_same_v<T, long double>) {
                  // Only the leading bytes carry the value; the padding is stored as zeros.
                  constexpr std::size_t valueBytes = 10;
                  std::memset(element + valueBytes, 0, sizeof(T) - valueBytes);
                }
                if (byteSwap) ByteOrder::reverseElementBytes(element, 1, sizeof(T));
                if (!gather) {
                  writeZeros(stream, layout.prefix);
                  stream.write(reinterpret_cast<const char*>(element), static_cast<std::streamsize>(sizeof(T)));
                  writeZeros(stream, layout.suffix);
                  continue;
                }
                element += stride;
                if (++pending == perChunk || count + 1 == total) flush();
                ++count;
              }
    });
    return okStatus();
  }

  Status finish() override {
    writeZeros(stream, layout.trailer);
    stream.close();
    if (stream.fail()) return ioError("writing failed: " + std::string(std::strerror(errno)));
    return okStatus();
  }

private:
  void flush() {
    stream.write(reinterpret_cast<const char*>(chunk.data()), static_cast<std::streamsize>(pending * layout.stride()));
    element = chunk.data() + layout.prefix;
    pending = 0;
  }

  ElementLayout layout;
  bool byteSwap;
  TARVElementType elementType;
  std::uint64_t total;
  std::ofstream stream;
  std::vector<unsigned char> chunk;
  unsigned char* element = nullptr;
  std::uint64_t pending = 0;
  // Elements written so far.
  std::uint64_t count = 0;
};

}  // namespace

Result<std::unique_ptr<formats::SlabWriter>> formats::openRawSlabWriter(RawDatasetFileReadWrite& file,
                                                                       const SlabFileShape& shape) {
  std::ofstream stream(file.fileName, std::ios::binary | std::ios::trunc);
  if (!stream.is_open()) return openForWritingFailure(file.fileName);
  correctNegativeFillerSizes(file);
  if (ElementLayout(file).elementSize == 0) return unsupportedElementType(file.elementType);
  return std::unique_ptr<SlabWriter>(std::make_unique<RawSlabWriter>(std::move(stream), file, shape.size));
}

Status formats::writeRawFile(RawDatasetFileReadWrite& file, Dataset* dataset) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data to write");
  SlabFileShape shape;
  shape.size = dataset->getSize();
  auto writer = openRawSlabWriter(file, shape);
  if (!writer.ok()) return writer.status();
  return writeWholeDataset(*writer.value(), dataset);
}

}  // namespace tarv
