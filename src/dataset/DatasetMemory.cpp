#include "dataset/DatasetMemory.h"

#include <cstdlib>

namespace tarv {

const unsigned char DatasetMemory::bitMask[8] = {1, 2, 4, 8, 16, 32, 64, 128};
const unsigned char DatasetMemory::negatedBitMask[8] = {254, 253, 251, 247, 239, 223, 191, 127};

DatasetMemory::DatasetMemory() : scratch(static_cast<unsigned char*>(std::calloc(kElementBufferSize, 1))) {}

DatasetMemory::~DatasetMemory() { std::free(scratch); }

unsigned int DatasetMemory::getElementTypeByteSize(TARVElementType type) {
  unsigned int bytes = 0;
  dispatchElementType(type, [&]<typename T>() { bytes = sizeof(T); });
  return bytes;
}

unsigned int DatasetMemory::getElementTypeBitSize(TARVElementType type) {
  unsigned int bits = 0;
  dispatchElementType(type, [&]<typename T>() { bits = std::is_same_v<T, bool> ? 1 : 8 * sizeof(T); });
  return bits;
}

const char* DatasetMemory::getElementTypeName(int type) {
  switch (type) {
    case TARV_ELEMENT_TYPE_NO_TYPE: return "TARV_ELEMENT_TYPE_NO_TYPE";
    case TARV_ELEMENT_TYPE_VOID: return "TARV_ELEMENT_TYPE_VOID";
    default: break;
  }
  const char* name = "TARV_ELEMENT_TYPE_UNKNOWN";
  ElementTypeTable::visit(static_cast<TARVElementType>(type), [&]<typename Row>() { name = Row::printed.data(); });
  return name;
}

bool DatasetMemory::allocate(const DatasetCoordinates& newSize, TARVElementType type,
                             const DatasetCoordinates& newStart) {
  const bool ok = scratch != nullptr;
  for (int k = 0; k < 5; ++k)
    if (newSize[k] < 1) return ok;
  if (!isStorableElementType(type)) return ok;

  releaseElements();
  size = newSize;
  elementType = type;
  elementByteSize = getElementTypeByteSize(type);
  elementBitSize = getElementTypeBitSize(type);
  if (allocateElements()) {
    allocated = true;
    start = newStart;
    end = newStart + newSize - DatasetCoordinates(1, 1, 1, 1, 1);
    return true;
  }
  size = DatasetCoordinates(0, 0, 0, 0, 0);
  elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  elementByteSize = 0;
  elementBitSize = 0;
  return false;
}

void DatasetMemory::release() {
  if (!allocated) return;
  releaseElements();
  size = start = end = DatasetCoordinates(0, 0, 0, 0, 0);
  allocated = false;
  elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  elementByteSize = 0;
  elementBitSize = 0;
}

std::int64_t DatasetMemory::getElementCount() const {
  // 32-bit signed product (wrapping without undefined behaviour), then widened.
  std::uint32_t product = 1;
  for (int k = 0; k < 5; ++k) product *= static_cast<std::uint32_t>(size[k]);
  return static_cast<std::int32_t>(product);
}

bool DatasetMemory::areCoordinatesInside(const DatasetCoordinates& p) const {
  for (int k = 0; k < 4; ++k)
    if (p[k] < start[k] || p[k] > end[k]) return false;
  return true;
}

bool DatasetMemory::isBoundingBoxInside(const DatasetBoundingBox& box) const {
  return areCoordinatesInside(box.start) && areCoordinatesInside(box.end);
}

void DatasetMemory::castBufferValue(const void* source, void* target, TARVElementType sourceType,
                                    TARVElementType targetType) {
  dispatchElementType(targetType, [&]<typename T>() {
    const T value = getBufferValue<T>(source, sourceType);
    std::memcpy(target, &value, sizeof(T));
  });
}

namespace {

// Visits the elements of component 0 in the order t, z, y, x (x innermost); nothing when the
// memory holds no component 0 (the iteration coordinates start from the default coordinates).
template <typename Visit>
void forEachComponentZeroElement(const DatasetCoordinates& start, const DatasetCoordinates& end, Visit visit) {
  if (start.c > 0 || end.c < 0) return;
  DatasetCoordinates p;
  for (p.t = start.t; p.t <= end.t; ++p.t)
    for (p.z = start.z; p.z <= end.z; ++p.z)
      for (p.y = start.y; p.y <= end.y; ++p.y)
        for (p.x = start.x; p.x <= end.x; ++p.x) visit(p);
}

}  // namespace

DatasetMemory* DatasetMemory::clone() const {
  DatasetMemory* copy = cloneEmpty();
  if (!allocated || !copy->allocate(size, elementType, start)) return copy;
  forEachComponentZeroElement(start, end, [&](const DatasetCoordinates& p) {
    getElementByBuffer(p, scratch);
    copy->setElementByBuffer(p, scratch);
  });
  return copy;
}

DatasetMemory* DatasetMemory::clone(TARVElementType newType) const {
  if (!isStorableElementType(newType)) return nullptr;
  DatasetMemory* copy = cloneEmpty();
  if (!allocated || !copy->allocate(size, newType, start)) return copy;
  // As documented for this operation: the converted value lands in the copy's scratch buffer,
  // but the copy stores this memory's unconverted bytes (the typed copies of Dataset convert).
  forEachComponentZeroElement(start, end, [&](const DatasetCoordinates& p) {
    getElementByBuffer(p, scratch);
    castBufferValue(scratch, copy->getElementBuffer(), elementType, newType);
    copy->setElementByBuffer(p, scratch);
  });
  return copy;
}

}  // namespace tarv
