#include "dataset/ByteOrder.h"

#include <algorithm>
#include <bit>

namespace tarv {

bool ByteOrder::isHostLittleEndian() { return std::endian::native == std::endian::little; }

void ByteOrder::reverseElementBytes(void* elements, std::size_t count, std::size_t elementSize) {
  if (elementSize < 2) return;
  unsigned char* p = static_cast<unsigned char*>(elements);
  for (std::size_t i = 0; i < count; ++i, p += elementSize) std::reverse(p, p + elementSize);
}

}  // namespace tarv
