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
      std::memcpy(buffer, block + index * elementByteSize, elementByteSize);
    }
  }
  void setElementByIndex(std::uint64_t index, const void* buffer) {
    if (elementType == TARV_ELEMENT_TYPE_BOOL) {
      if (*static_cast<const unsigned char*>(buffer) == 0)
        block[index >> 3] &= negatedBitMask[index & 7];
      else
        block[index >> 3] |= bitMask[index & 7];
    } else {
      std::memcpy(block + index * elementByteSize, buffer, elementByteSize);
    }
  }

protected:
  bool allocateElements() override;
  void releaseElements() override;
  // Bytes of the element block: bit size / 8 * count + (bit size % 8 * count + 7) / 8.
  std::uint64_t getByteSize() const;

private:
  unsigned char* block = nullptr;
};

}  // namespace tarv

#endif
