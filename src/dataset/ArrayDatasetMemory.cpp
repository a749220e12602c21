#include "dataset/ArrayDatasetMemory.h"

#include <sys/mman.h>

#include <bit>
#include <cstdlib>
#include <mutex>
#include <typeinfo>
#include <vector>

namespace tarv {

namespace {

// Released blocks of a few megabytes are kept for a while and handed to the next allocation of the
// same byte size: caches that are dropped and allocated again region by region then reuse memory
// that is already mapped instead of faulting in (and having the kernel clear) fresh pages. At most
// kPoolBytes are kept, the oldest given back first.
constexpr std::uint64_t kPoolSmallestBlock = std::uint64_t(1) << 20;
constexpr std::uint64_t kPoolLargestBlock = std::uint64_t(64) << 20;
constexpr std::uint64_t kPoolBytes = std::uint64_t(128) << 20;

class BlockPool {
public:
  unsigned char* take(std::uint64_t bytes) {
    if (bytes < kPoolSmallestBlock || bytes > kPoolLargestBlock) return nullptr;
    const std::lock_guard<std::mutex> lock(mutex);
    for (auto it = blocks.begin(); it != blocks.end(); ++it)
      if (it->bytes == bytes) {
        unsigned char* block = it->block;
        total -= it->bytes;
        blocks.erase(it);
        return block;
      }
    return nullptr;
  }
  // Keeps the block, or frees it when it is not of a kept size.
  void give(unsigned char* block, std::uint64_t bytes) {
    if (block == nullptr) return;
    if (bytes < kPoolSmallestBlock || bytes > kPoolLargestBlock) {
      std::free(block);
      return;
    }
    const std::lock_guard<std::mutex> lock(mutex);
    while (!blocks.empty() && total + bytes > kPoolBytes) {
      std::free(blocks.front().block);
      total -= blocks.front().bytes;
      blocks.erase(blocks.begin());
    }
    blocks.push_back({block, bytes});
    total += bytes;
  }

private:
  struct Entry {
    unsigned char* block;
    std::uint64_t bytes;
  };
  std::mutex mutex;
  std::vector<Entry> blocks;
  std::uint64_t total = 0;
};

// Never destroyed: memories may still be released while static objects are torn down.
BlockPool& blockPool() {
  static BlockPool* pool = new BlockPool();
  return *pool;
}

// Large blocks ask the kernel for huge pages where it gives them on request (as NumPy does): a
// block is then filled with a 512th of the page faults.
void adviseHugePages(unsigned char* block, std::uint64_t bytes) {
  constexpr std::uint64_t hugePage = std::uint64_t{2} << 20;
  if (block == nullptr || bytes < 2 * hugePage) return;
  const auto address = reinterpret_cast<std::uintptr_t>(block);
  const std::uintptr_t first = (address + hugePage - 1) / hugePage * hugePage;
  const std::uintptr_t end = (address + bytes) / hugePage * hugePage;
  if (end > first) ::madvise(reinterpret_cast<void*>(first), end - first, MADV_HUGEPAGE);
}

unsigned char* allocateBlock(std::uint64_t bytes) {
  if (unsigned char* reused = blockPool().take(bytes)) return reused;
  auto* block = static_cast<unsigned char*>(std::malloc(bytes == 0 ? 1 : bytes));
  adviseHugePages(block, bytes);
  return block;
}

}  // namespace

ArrayDatasetMemory::~ArrayDatasetMemory() {
  if (allocated) releaseElements();
  releaseElements();
}

DatasetMemory* ArrayDatasetMemory::cloneEmpty() const { return new ArrayDatasetMemory(); }

DatasetMemory* ArrayDatasetMemory::clone() const {
  auto* copy = new ArrayDatasetMemory();
  if (allocated && copy->allocate(size, elementType, start)) std::memcpy(copy->block, block, getByteSize());
  return copy;
}

DatasetMemory* ArrayDatasetMemory::cloneReusing(ArrayDatasetMemory& donor) const {
  if (&donor == this || !allocated || !donor.allocated || donor.block == nullptr ||
      donor.getByteSize() != getByteSize())
    return clone();
  auto* copy = new ArrayDatasetMemory();
  // The donor's block becomes the copy's; the donor is left released.
  unsigned char* reused = donor.block;
  const std::uint64_t reusedBytes = donor.blockBytes;
  donor.block = nullptr;
  donor.blockBytes = 0;
  donor.release();
  copy->size = size;
  copy->start = start;
  copy->end = end;
  copy->elementType = elementType;
  copy->elementByteSize = elementByteSize;
  copy->elementBitSize = elementBitSize;
  copy->block = reused;
  copy->blockBytes = reusedBytes;
  copy->allocated = true;
  copy->plainIteration = true;
  std::memcpy(copy->block, block, getByteSize());
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
  releaseElements();
  // Only this class itself is known to iterate as incrementWithinRow assumes; a subclass may not.
  plainIteration = typeid(*this) == typeid(ArrayDatasetMemory);
  // The element count is kept in 32-bit signed arithmetic: a size whose product does not fit
  // is refused rather than given a block smaller than the memory it claims to hold.
  std::uint64_t exact = 1;
  for (int k = 0; k < 5; ++k) {
    if (size[k] < 1) return false;
    exact *= static_cast<std::uint64_t>(size[k]);
    if (exact > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max())) return false;
  }
  const std::uint64_t bytes = getByteSize();
  block = allocateBlock(bytes);
  blockBytes = block != nullptr ? bytes : 0;
  return block != nullptr;
}

void ArrayDatasetMemory::releaseElements() {
  blockPool().give(block, blockBytes);
  block = nullptr;
  blockBytes = 0;
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

std::uint64_t ArrayDatasetMemory::findBit(std::uint64_t index, std::uint64_t count, bool value) const {
  const std::uint64_t end = index + count;
  std::uint64_t i = index;
  const unsigned char flip = value ? 0x00 : 0xff;
  // Bit by bit up to a byte boundary, then eight bytes at a time, then bit by bit again.
  while (i < end && (i & 7) != 0) {
    if (((block[i >> 3] >> (i & 7)) & 1) == (value ? 1 : 0)) return i;
    ++i;
  }
  const std::uint64_t wordFlip = value ? 0 : ~std::uint64_t(0);
  while (std::endian::native == std::endian::little && i + 64 <= end) {
    std::uint64_t word;
    std::memcpy(&word, block + (i >> 3), 8);
    word ^= wordFlip;
    if (word != 0) return i + static_cast<std::uint64_t>(std::countr_zero(word));
    i += 64;
  }
  while (i + 8 <= end) {
    const unsigned char byte = block[i >> 3] ^ flip;
    if (byte != 0) return i + static_cast<std::uint64_t>(std::countr_zero(byte));
    i += 8;
  }
  while (i < end) {
    if (((block[i >> 3] >> (i & 7)) & 1) == (value ? 1 : 0)) return i;
    ++i;
  }
  return end;
}

void ArrayDatasetMemory::setBits(std::uint64_t index, std::uint64_t count, bool value) {
  const std::uint64_t end = index + count;
  std::uint64_t i = index;
  while (i < end && (i & 7) != 0) {
    if (value) block[i >> 3] |= bitMask[i & 7];
    else block[i >> 3] &= negatedBitMask[i & 7];
    ++i;
  }
  if (i + 8 <= end) {
    const std::uint64_t bytes = (end - i) >> 3;
    std::memset(block + (i >> 3), value ? 0xff : 0x00, bytes);
    i += bytes << 3;
  }
  while (i < end) {
    if (value) block[i >> 3] |= bitMask[i & 7];
    else block[i >> 3] &= negatedBitMask[i & 7];
    ++i;
  }
}

}  // namespace tarv
