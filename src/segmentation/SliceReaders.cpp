#include "segmentation/SliceReaders.h"

#include <cstring>
#include <type_traits>

#include "segmentation/Membership.h"

namespace tarv::segmentation {

namespace {

// Any dataset, through its virtual element access.
class DatasetSliceReader final : public SliceReader {
public:
  DatasetSliceReader(Dataset* dataset, int t, int c) : dataset(dataset), t(t), c(c), sizeX(dataset->getSize().x) {}

  unsigned char at(int x, int y, int z) override {
    dataset->getElementByBuffer(DatasetCoordinates(x, y, z, t, c), buffer);
    return membershipOfBuffer(buffer, dataset->getElementType());
  }
  void row(int y, int z, unsigned char* out) override {
    for (int x = 0; x < sizeX; ++x) out[x] = at(x, y, z);
  }

private:
  Dataset* dataset;
  int t, c, sizeX;
  alignas(16) unsigned char buffer[kElementBufferSize] = {};
};

// The element block of a plain in-memory dataset of the given size: component fastest, then x,
// y, z and t; bool elements packed eight to a byte, least significant bit first.
template <ElementValueType T>
class BlockSliceReader final : public SliceReader {
public:
  BlockSliceReader(const void* elements, const DatasetCoordinates& size, int t, int c) {
    block = static_cast<const unsigned char*>(elements);
    strideX = size.c;
    strideY = strideX * size.x;
    strideZ = strideY * size.y;
    sizeX = size.x;
    base = static_cast<Index>(t) * strideZ * size.z + c;
  }

  unsigned char at(int x, int y, int z) override { return read(base + x * strideX + y * strideY + z * strideZ); }
  void row(int y, int z, unsigned char* out) override {
    const Index start = base + y * strideY + z * strideZ;
    for (int x = 0; x < sizeX; ++x) out[x] = read(start + x * strideX);
  }

private:
  unsigned char read(Index index) const {
    if constexpr (std::is_same_v<T, bool>) {
      return membershipOfValue<bool>((block[index >> 3] & DatasetMemory::bitMask[index & 7]) != 0);
    } else {
      T v;
      std::memcpy(&v, block + index * static_cast<Index>(sizeof(T)), sizeof(T));
      return membershipOfValue<T>(v);
    }
  }

  const unsigned char* block = nullptr;
  Index strideX = 0, strideY = 0, strideZ = 0, base = 0;
  int sizeX = 0;
};

}  // namespace

std::unique_ptr<SliceReader> makeSliceReader(Dataset* d, int t, int c) {
  std::unique_ptr<SliceReader> reader;
  if (const void* elements = d->getPlainElements()) {
    dispatchElementType(d->getElementType(), [&]<typename T>() {
      reader = std::make_unique<BlockSliceReader<T>>(elements, d->getSize(), t, c);
    });
  }
  if (!reader) reader = std::make_unique<DatasetSliceReader>(d, t, c);
  return reader;
}

}  // namespace tarv::segmentation
