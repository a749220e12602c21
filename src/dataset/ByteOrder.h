#ifndef TARV_DATASET_BYTEORDER_H
#define TARV_DATASET_BYTEORDER_H

#include <cstddef>

namespace tarv {

// Byte order of stored elements; the one place where element bytes are reversed.
class ByteOrder {
public:
  ByteOrder() = delete;

  static bool isHostLittleEndian();
  // Reverses the bytes of each of count consecutive elements of elementSize bytes, in place.
  static void reverseElementBytes(void* elements, std::size_t count, std::size_t elementSize);
  // Brings count elements between the host's byte order and the given one (either direction).
  static void convertLittleEndian(void* elements, std::size_t count, std::size_t elementSize, bool littleEndian) {
    if (littleEndian != isHostLittleEndian()) reverseElementBytes(elements, count, elementSize);
  }
};

}  // namespace tarv

#endif
