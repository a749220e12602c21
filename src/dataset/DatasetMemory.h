#ifndef TARV_DATASET_DATASETMEMORY_H
#define TARV_DATASET_DATASETMEMORY_H

#include <cmath>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "core/DatasetBoundingBox.h"
#include "core/DatasetCoordinates.h"
#include "core/DatasetCoordinatesIterator.h"

namespace tarv {

// Element types of dataset memories. Only 3..14 can be stored.
enum TARVElementType : int {
  TARV_ELEMENT_TYPE_NO_TYPE = 0,
  TARV_ELEMENT_TYPE_UNKNOWN = 1,
  TARV_ELEMENT_TYPE_VOID = 2,
  TARV_ELEMENT_TYPE_BOOL = 3,
  TARV_ELEMENT_TYPE_SIGNED_CHAR = 4,
  TARV_ELEMENT_TYPE_UNSIGNED_CHAR = 5,
  TARV_ELEMENT_TYPE_SIGNED_SHORT_INT = 6,
  TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT = 7,
  TARV_ELEMENT_TYPE_SIGNED_INT = 8,
  TARV_ELEMENT_TYPE_UNSIGNED_INT = 9,
  TARV_ELEMENT_TYPE_SIGNED_LONG_INT = 10,
  TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT = 11,
  TARV_ELEMENT_TYPE_FLOAT = 12,
  TARV_ELEMENT_TYPE_DOUBLE = 13,
  TARV_ELEMENT_TYPE_LONG_DOUBLE = 14
};

}  // namespace tarv

#include "elementtypes/ElementTypeTable.h"

namespace tarv {

// The twelve C++ types that datasets store, one per storable element type.
template <typename T>
concept ElementValueType = ElementTypeTable::contains<T>;

inline bool isStorableElementType(int type) {
  return ElementTypeTable::visit(static_cast<TARVElementType>(type), []<typename Row>() {});
}

// Calls f.template operator()<T>() with the C++ type T of a storable element type and returns
// true; returns false without calling f for any other type. This is the one place where element
// types meet C++ types.
template <typename F>
bool dispatchElementType(TARVElementType type, F&& f) {
  return ElementTypeTable::visit(type, [&]<typename Row>() { f.template operator()<typename Row::type>(); });
}

namespace detail {

// Floating point to a signed integer of Bits bits with the semantics of the x86-64 truncating
// conversion: toward zero, and the "integer indefinite" value (the minimum) when out of range.
template <typename Wide, typename F>
Wide truncateToInteger(F v) {
  constexpr F lower = -static_cast<F>(std::numeric_limits<Wide>::max()) - F(1);  // -2^(n-1), exact
  if (!(v >= lower && v < -lower)) return std::numeric_limits<Wide>::min();
  return static_cast<Wide>(v);
}

}  // namespace detail

// The conversion of one element value between two of the twelve types: the built-in numeric
// conversion without rounding or clamping. Floating point to integer truncates toward zero and
// keeps the low bits; integers wrap; every non-zero value and NaN become true.
template <ElementValueType To, ElementValueType From>
inline To convertElementValue(From v) {
  if constexpr (std::is_same_v<To, From>) {
    return v;
  } else if constexpr (std::is_same_v<To, bool>) {
    return v != From(0) || (std::is_floating_point_v<From> && std::isnan(static_cast<long double>(v)));
  } else if constexpr (std::is_same_v<From, bool>) {
    return static_cast<To>(v ? 1 : 0);
  } else if constexpr (std::is_floating_point_v<To> || std::is_integral_v<From>) {
    return static_cast<To>(v);
  } else if constexpr (std::is_same_v<To, unsigned long>) {
    // Values at or above 2^63 are converted by subtracting 2^63 and setting the top bit.
    constexpr From two63 = static_cast<From>(9223372036854775808.0L);
    if (v >= two63)
      return static_cast<unsigned long>(detail::truncateToInteger<std::int64_t>(v - two63)) ^ (1UL << 63);
    return static_cast<unsigned long>(detail::truncateToInteger<std::int64_t>(v));
  } else if constexpr (sizeof(To) < 4 || std::is_same_v<To, int>) {
    return static_cast<To>(detail::truncateToInteger<std::int32_t>(v));
  } else {
    return static_cast<To>(detail::truncateToInteger<std::int64_t>(v));
  }
}

// Abstract element storage: type bookkeeping, box geometry, typed access through a one-element
// scratch buffer and conversions between element types. Layout: component fastest, then x, y,
// z and t; bool elements are packed eight to a byte, least significant bit first.
class DatasetMemory {
public:
  static const unsigned char bitMask[8];
  static const unsigned char negatedBitMask[8];

  DatasetMemory();
  DatasetMemory(const DatasetMemory&) = delete;
  DatasetMemory& operator=(const DatasetMemory&) = delete;

  virtual ~DatasetMemory();
  virtual DatasetMemory* cloneEmpty() const = 0;
  virtual DatasetMemory* clone() const;
  virtual DatasetMemory* clone(TARVElementType type) const;
  virtual unsigned long getMemoryUsage() const = 0;
  virtual DatasetCoordinatesIterator getStartCoordinatesIterator() const = 0;
  virtual void incrementCoordinatesIterator(DatasetCoordinatesIterator& it) const = 0;
  virtual DatasetCoordinatesIterator getStartCoordinatesIterator(const DatasetBoundingBox& box) const = 0;
  virtual void incrementCoordinatesIterator(const DatasetBoundingBox& box, DatasetCoordinatesIterator& it) const = 0;
  virtual bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) const = 0;
  virtual void setElementByBuffer(const DatasetCoordinates& p, const void* buffer) = 0;
  virtual bool getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) const = 0;
  virtual void setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) = 0;

protected:
  virtual bool allocateElements() = 0;
  virtual void releaseElements() = 0;

public:
  // Allocates size elements of type with the first element at start. An invalid size or type
  // leaves the memory unchanged and answers true on a healthy object.
  bool allocate(const DatasetCoordinates& size, TARVElementType type, const DatasetCoordinates& start);
  void release();

  bool isAllocated() const { return allocated; }
  DatasetCoordinates getSize() const { return size; }
  DatasetCoordinates getStart() const { return start; }
  DatasetCoordinates getEnd() const { return end; }
  DatasetBoundingBox getExtent() const { return DatasetBoundingBox(start, end); }
  // Product of the five sizes in 32-bit signed arithmetic, widened.
  std::int64_t getElementCount() const;
  TARVElementType getElementType() const { return elementType; }
  unsigned int getElementBitSize() const { return elementBitSize; }
  unsigned int getElementByteSize() const { return elementByteSize; }
  bool hasLogicalElementType() const { return elementType == TARV_ELEMENT_TYPE_BOOL; }
  bool hasNumericalElementType() const {
    return elementType >= TARV_ELEMENT_TYPE_SIGNED_CHAR && elementType <= TARV_ELEMENT_TYPE_LONG_DOUBLE;
  }
  bool hasIntegerElementType() const {
    return elementType >= TARV_ELEMENT_TYPE_SIGNED_CHAR && elementType <= TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT;
  }
  bool hasFloatingPointElementType() const {
    return elementType >= TARV_ELEMENT_TYPE_FLOAT && elementType <= TARV_ELEMENT_TYPE_LONG_DOUBLE;
  }

  // Tests x, y, z and t against start..end; the component is not examined.
  bool areCoordinatesInside(const DatasetCoordinates& p) const;
  bool isBoundingBoxInside(const DatasetBoundingBox& box) const;

  void* getElementBuffer() const { return scratch; }

  // The step of incrementCoordinatesIterator(it) over the whole memory when it stays within the
  // iterator's row, taken without a virtual call where the memory's own iteration is the plain
  // one; false (it unchanged) when the virtual operation has to take the step.
  bool incrementWithinRow(DatasetCoordinatesIterator& it) const {
    if (!plainIteration || it.c < end.c || it.x >= end.x) return false;
    ++it.index;
    it.c = start.c;
    ++it.x;
    return true;
  }

  // Linear index of p inside this memory (component fastest).
  std::uint64_t getLinearIndex(const DatasetCoordinates& p) const {
    return ((((static_cast<std::uint64_t>(static_cast<std::int64_t>(p.t - start.t)) * size.z +
               static_cast<std::uint64_t>(static_cast<std::int64_t>(p.z - start.z))) * size.y +
              static_cast<std::uint64_t>(static_cast<std::int64_t>(p.y - start.y))) * size.x +
             static_cast<std::uint64_t>(static_cast<std::int64_t>(p.x - start.x))) * size.c +
            static_cast<std::uint64_t>(static_cast<std::int64_t>(p.c - start.c)));
  }

  // The element type of a C++ type (void gives TARV_ELEMENT_TYPE_VOID).
  template <typename T>
  static constexpr TARVElementType getElementTypeByType() {
    if constexpr (std::is_void_v<T>) return TARV_ELEMENT_TYPE_VOID;
    else {
      static_assert(ElementValueType<T>, "not one of the twelve element types");
      return ElementTypeTable::idOf<T>();
    }
  }

  // Byte and bit size of one element of a storable type (0 for the others).
  static unsigned int getElementTypeByteSize(TARVElementType type);
  static unsigned int getElementTypeBitSize(TARVElementType type);
  // The printed name of an element type; values outside 0..14 print as TARV_ELEMENT_TYPE_UNKNOWN.
  static const char* getElementTypeName(int type);

  template <ElementValueType T>
  bool allocate(const DatasetCoordinates& size, const DatasetCoordinates& start) {
    return allocate(size, getElementTypeByType<T>(), start);
  }
  template <ElementValueType T>
  DatasetMemory* clone() const {
    return clone(getElementTypeByType<T>());
  }
  template <ElementValueType T>
  T getElement(const DatasetCoordinates& p) {
    getElementByBuffer(p, scratch);
    return getBufferValue<T>(scratch, elementType);
  }
  template <ElementValueType T>
  T getElement(const DatasetCoordinatesIterator& it) {
    getElementByBuffer(it, scratch);
    return getBufferValue<T>(scratch, elementType);
  }
  template <ElementValueType T>
  void setElement(const DatasetCoordinates& p, T value) {
    setBufferValue<T>(scratch, elementType, value);
    setElementByBuffer(p, scratch);
  }
  template <ElementValueType T>
  void setElement(const DatasetCoordinatesIterator& it, T value) {
    setBufferValue<T>(scratch, elementType, value);
    setElementByBuffer(it, scratch);
  }

  // The value of a buffer holding one element of bufferType, converted to T (0 for a type
  // outside 3..14).
  template <ElementValueType T>
  static T getBufferValue(const void* buffer, TARVElementType bufferType) {
    T result = T();
    dispatchElementType(bufferType, [&]<typename S>() {
      S stored;
      std::memcpy(&stored, buffer, sizeof(S));
      result = convertElementValue<T>(stored);
    });
    return result;
  }
  // Stores value converted to bufferType into the buffer; a type outside 3..14 leaves it unwritten.
  template <ElementValueType T>
  static void setBufferValue(void* buffer, TARVElementType bufferType, T value) {
    dispatchElementType(bufferType, [&]<typename S>() {
      const S converted = convertElementValue<S>(value);
      std::memcpy(buffer, &converted, sizeof(S));
    });
  }
  // target := source converted from sourceType to targetType; nothing for an invalid target type.
  static void castBufferValue(const void* source, void* target, TARVElementType sourceType,
                              TARVElementType targetType);

protected:
  DatasetCoordinates size{0, 0, 0, 0, 0};
  bool allocated = false;
  DatasetCoordinates start{0, 0, 0, 0, 0};
  DatasetCoordinates end{0, 0, 0, 0, 0};
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  unsigned int elementByteSize = 0;
  unsigned int elementBitSize = 0;
  unsigned char* scratch = nullptr;
  // Set by a memory whose iteration is exactly the odometer described above (incrementWithinRow).
  bool plainIteration = false;
};

}  // namespace tarv

#endif
