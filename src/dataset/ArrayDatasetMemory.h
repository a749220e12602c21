#ifndef TARV_DATASET_ARRAYDATASETMEMORY_H
#define TARV_DATASET_ARRAYDATASETMEMORY_H

#include "dataset/DatasetMemory.h"

namespace tarv {

// Element storage in one contiguous heap block.
class ArrayDatasetMemory : public DatasetMemory {
public:
  ArrayDatasetMemory() = default;
  ~ArrayDatasetMemory() override;

  DatasetMemory* cloneEmpty() const override;
  DatasetMemory* clone() const override;
  using DatasetMemory::clone;
  // clone(), taking the element block of donor (which is left released) when that block has the
  // same byte size, so that no fresh memory has to be touched; otherwise a plain clone().
  DatasetMemory* cloneReusing(ArrayDatasetMemory& donor) const;
  unsigned long getMemoryUsage() const override;
  DatasetCoordinatesIterator getStartCoordinatesIterator() const override;
  void incrementCoordinatesIterator(DatasetCoordinatesIterator& it) const override;
  DatasetCoordinatesIterator getStartCoordinatesIterator(const DatasetBoundingBox& box) const override;
  void incrementCoordinatesIterator(const DatasetBoundingBox& box, DatasetCoordinatesIterator& it) const override;
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) const override;
  void setElementByBuffer(const DatasetCoordinates& p, const void* buffer) override;
  bool getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) const override;
  void setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) override;

  // The raw element block, null while unallocated.
  void* getElementBlock() { return block; }
  const void* getElementBlock() const { return block; }

  // Raw element access by linear index.
  void getElementByIndex(std::uint64_t index, void* buffer) const {
    if (elementType == TARV_ELEMENT_TYPE_BOOL) {
      *static_cast<unsigned char*>(buffer) = (block[index >> 3] & bitMask[index & 7]) ? 1 : 0;
    } else {
      copyElement(buffer, block + index * elementByteSize, elementByteSize);
    }
  }
  void setElementByIndex(std::uint64_t index, const void* buffer) {
    if (elementType == TARV_ELEMENT_TYPE_BOOL) {
      if (*static_cast<const unsigned char*>(buffer) == 0)
        block[index >> 3] &= negatedBitMask[index & 7];
      else
        block[index >> 3] |= bitMask[index & 7];
    } else {
      copyElement(block + index * elementByteSize, buffer, elementByteSize);
    }
  }

  // Bool memories, one bit per element: the index of the first element of index .. index + count - 1
  // whose bit equals value, or index + count when there is none.
  std::uint64_t findBit(std::uint64_t index, std::uint64_t count, bool value) const;
  // Bool memories: sets the bits of elements index .. index + count - 1 to value.
  void setBits(std::uint64_t index, std::uint64_t count, bool value);

protected:
  bool allocateElements() override;
  void releaseElements() override;
  // Bytes of the element block: bit size / 8 * count + (bit size % 8 * count + 7) / 8.
  std::uint64_t getByteSize() const;

private:
  // One element of any of the byte sizes 1, 2, 4, 8 and 16, copied without a library call.
  static void copyElement(void* to, const void* from, unsigned int bytes) {
    switch (bytes) {
      case 1: std::memcpy(to, from, 1); break;
      case 2: std::memcpy(to, from, 2); break;
      case 4: std::memcpy(to, from, 4); break;
      case 8: std::memcpy(to, from, 8); break;
      case 16: std::memcpy(to, from, 16); break;
      default: std::memcpy(to, from, bytes); break;
    }
  }

  unsigned char* block = nullptr;
  // Bytes allocated for the block (0 while there is none).
  std::uint64_t blockBytes = 0;
};

}  // namespace tarv

#endif
