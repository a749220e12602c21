#include "dataset/ArrayDatasetMemory.h"

#include <cstdlib>

namespace tarv {

ArrayDatasetMemory::~ArrayDatasetMemory() {
  if (allocated) releaseElements();
  std::free(block);
}

DatasetMemory* ArrayDatasetMemory::cloneEmpty() const { return new ArrayDatasetMemory(); }

DatasetMemory* ArrayDatasetMemory::clone() const {
  auto* copy = new ArrayDatasetMemory();
  if (allocated && copy->allocate(size, elementType, start)) std::memcpy(copy->block, block, getByteSize());
  return copy;
}

unsigned long ArrayDatasetMemory::getMemoryUsage() const { return getByteSize(); }

std::uint64_t ArrayDatasetMemory::getByteSize() const {
  const std::uint64_t count = static_cast<std::uint64_t>(getElementCount());
  const std::uint64_t q = elementBitSize / 8;
  const std::uint64_t r = elementBitSize % 8;
  return q * count + (r * count + 7) / 8;
}

bool ArrayDatasetMemory::allocateElements() {
  std::free(block);
  block = nullptr;
  // The element count is kept in 32-bit signed arithmetic: a size whose product does not fit
  // is refused rather than given a block smaller than the memory it claims to hold.
  std::uint64_t exact = 1;
  for (int k = 0; k < 5; ++k) {
    if (size[k] < 1) return false;
    exact *= static_cast<std::uint64_t>(size[k]);
    if (exact > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max())) return false;
  }
  const std::uint64_t bytes = getByteSize();
  block = static_cast<unsigned char*>(std::malloc(bytes == 0 ? 1 : bytes));
  return block != nullptr;
}

void ArrayDatasetMemory::releaseElements() {
  std::free(block);
  block = nullptr;
}

DatasetCoordinatesIterator ArrayDatasetMemory::getStartCoordinatesIterator() const {
  return DatasetCoordinatesIterator(start, isAllocated(), 0);
}

void ArrayDatasetMemory::incrementCoordinatesIterator(DatasetCoordinatesIterator& it) const {
  ++it.index;
  if (it.c < end.c) { ++it.c; return; }
  it.c = start.c;
  if (it.x < end.x) { ++it.x; return; }
  it.x = start.x;
  if (it.y < end.y) { ++it.y; return; }
  it.y = start.y;
  if (it.z < end.z) { ++it.z; return; }
  it.z = start.z;
  if (it.t < end.t) { ++it.t; return; }
  static_cast<DatasetCoordinates&>(it) = start;
  it.valid = false;
  it.index = 0;
}

DatasetCoordinatesIterator ArrayDatasetMemory::getStartCoordinatesIterator(const DatasetBoundingBox& box) const {
  bool inside = !box.isEmpty() && isAllocated() && isBoundingBoxInside(box);
  // The component is not part of the inside test of the memory, but an iterator must not
  // address components the memory does not hold.
  inside = inside && box.start.c >= start.c && box.end.c <= end.c;
  return DatasetCoordinatesIterator(box.start, inside, inside ? getLinearIndex(box.start) : 0);
}

void ArrayDatasetMemory::incrementCoordinatesIterator(const DatasetBoundingBox& box,
                                                      DatasetCoordinatesIterator& it) const {
  const std::int64_t nc = size.c, nx = size.x, ny = size.y, nz = size.z;
  std::int64_t index = static_cast<std::int64_t>(it.index) + 1;
  auto done = [&] { it.index = static_cast<std::uint64_t>(index); };
  if (it.c < box.end.c) { ++it.c; return done(); }
  it.c = box.start.c;
  index += box.start.c - box.end.c - 1 + nc;
  if (it.x < box.end.x) { ++it.x; return done(); }
  it.x = box.start.x;
  index += (box.start.x - box.end.x - 1 + nx) * nc;
  if (it.y < box.end.y) { ++it.y; return done(); }
  it.y = box.start.y;
  index += (box.start.y - box.end.y - 1 + ny) * nc * nx;
  if (it.z < box.end.z) { ++it.z; return done(); }
  it.z = box.start.z;
  index += (box.start.z - box.end.z - 1 + nz) * nc * nx * ny;
  if (it.t < box.end.t) { ++it.t; return done(); }
  static_cast<DatasetCoordinates&>(it) = box.start;
  it.valid = false;
  it.index = getLinearIndex(box.start);
}

bool ArrayDatasetMemory::getElementByBuffer(const DatasetCoordinates& p, void* buffer) const {
  getElementByIndex(getLinearIndex(p), buffer);
  return true;
}

void ArrayDatasetMemory::setElementByBuffer(const DatasetCoordinates& p, const void* buffer) {
  setElementByIndex(getLinearIndex(p), buffer);
}

bool ArrayDatasetMemory::getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) const {
  getElementByIndex(it.index, buffer);
  return true;
}

void ArrayDatasetMemory::setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) {
  setElementByIndex(it.index, buffer);
}

}  // namespace tarv
