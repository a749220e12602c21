#ifndef TARV_FORMATS_SAMPLETYPES_H
#define TARV_FORMATS_SAMPLETYPES_H

// The element type of a file's samples, described as most formats describe them: integer
// (unsigned or signed) or floating point, and a width in bits. Derived from the element type
// table; bool and long double are never a file's samples.

#include <string>
#include <type_traits>

#include "dataset/DatasetMemory.h"

namespace tarv::formats {

enum class SampleKind { unsignedInteger, signedInteger, floatingPoint };

template <typename T>
constexpr bool isSampleType = !std::is_same_v<T, bool> && !std::is_same_v<T, long double>;

template <typename T>
constexpr SampleKind sampleKindOf() {
  return std::is_floating_point_v<T> ? SampleKind::floatingPoint
         : std::is_signed_v<T>       ? SampleKind::signedInteger
                                     : SampleKind::unsignedInteger;
}

// NO_TYPE when no element type holds such samples.
inline TARVElementType elementTypeOfSamples(SampleKind kind, int bits) {
  TARVElementType type = TARV_ELEMENT_TYPE_NO_TYPE;
  ElementTypeTable::forEach([&]<typename Row>() {
    using T = typename Row::type;
    if constexpr (isSampleType<T>)
      if (sampleKindOf<T>() == kind && static_cast<int>(8 * sizeof(T)) == bits) type = Row::id;
  });
  return type;
}

// "16-bit signed integer samples".
inline std::string samplesText(SampleKind kind, int bits) {
  const char* name = kind == SampleKind::floatingPoint   ? "float"
                     : kind == SampleKind::signedInteger ? "signed integer"
                                                         : "unsigned integer";
  return std::to_string(bits) + "-bit " + name + " samples";
}

}  // namespace tarv::formats

#endif
