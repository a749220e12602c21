#ifndef TARV_ELEMENTTYPES_ELEMENTOPERATIONS_H
#define TARV_ELEMENTTYPES_ELEMENTOPERATIONS_H

#include <cstring>

#include "dataset/DatasetMemory.h"

namespace tarv {

// Conversions chosen once per operation; the element type is dispatched when the function is
// picked, not for every element. They apply convertElementValue like getBufferValue,
// setBufferValue and castBufferValue do.
template <ElementValueType To>
using BufferReader = To (*)(const void*);
using BufferWriter = void (*)(void*, double);
using BufferCaster = void (*)(const void*, void*);

template <ElementValueType To, ElementValueType From>
inline To readBufferAs(const void* buffer) {
  From stored;
  std::memcpy(&stored, buffer, sizeof(From));
  return convertElementValue<To>(stored);
}

template <ElementValueType To>
inline To readNothing(const void*) {
  return To();
}

template <ElementValueType To>
inline BufferReader<To> bufferReader(TARVElementType type) {
  BufferReader<To> reader = &readNothing<To>;
  dispatchElementType(type, [&]<typename From>() { reader = &readBufferAs<To, From>; });
  return reader;
}

template <ElementValueType Stored>
inline void writeBufferAs(void* buffer, double value) {
  const Stored converted = convertElementValue<Stored>(value);
  std::memcpy(buffer, &converted, sizeof(Stored));
}

inline void writeNothing(void*, double) {}

inline BufferWriter bufferWriter(TARVElementType type) {
  BufferWriter writer = &writeNothing;
  dispatchElementType(type, [&]<typename Stored>() { writer = &writeBufferAs<Stored>; });
  return writer;
}

template <ElementValueType From, ElementValueType To>
inline void castBufferAs(const void* source, void* target) {
  const To converted = readBufferAs<To, From>(source);
  std::memcpy(target, &converted, sizeof(To));
}

inline void castNothing(const void*, void*) {}

inline BufferCaster bufferCaster(TARVElementType from, TARVElementType to) {
  BufferCaster caster = &castNothing;
  dispatchElementType(from, [&]<typename From>() {
    dispatchElementType(to, [&]<typename To>() { caster = &castBufferAs<From, To>; });
  });
  return caster;
}

}  // namespace tarv

#endif
