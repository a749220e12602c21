#ifndef TARV_VTKBRIDGE_VTKSCALARTYPES_H
#define TARV_VTKBRIDGE_VTKSCALARTYPES_H

// Element types and VTK scalar types, derived from the element type table.

#include <vtkType.h>
#include <vtkTypeTraits.h>

#include <type_traits>

#include "dataset/DatasetMemory.h"

namespace tarv::vtkbridge {

// Whether VTK has a scalar type for elements of type T (it has none for long double).
template <typename T>
inline constexpr bool hasVtkScalar = !std::is_same_v<T, long double>;

// The VTK scalar that holds an element of type T: bool elements are written as signed char.
template <typename T>
using VtkScalar = std::conditional_t<std::is_same_v<T, bool>, signed char, T>;

// VTK scalar type written for an element type; 0 when there is none.
inline int vtkScalarTypeOf(TARVElementType type) {
  int scalarType = 0;
  dispatchElementType(type, [&]<typename T>() {
    if constexpr (hasVtkScalar<T>) scalarType = vtkTypeTraits<VtkScalar<T>>::VTK_TYPE_ID;
  });
  return scalarType;
}

// Element type read for a VTK scalar type: plain char as signed char, bool never (it comes back as
// signed char); TARV_ELEMENT_TYPE_UNKNOWN for VTK's id, string and opaque types and
// TARV_ELEMENT_TYPE_NO_TYPE for anything else that cannot be read.
inline TARVElementType elementTypeOfVtkScalarType(int scalarType) {
  if (scalarType == VTK_CHAR) return TARV_ELEMENT_TYPE_SIGNED_CHAR;
  TARVElementType type = TARV_ELEMENT_TYPE_NO_TYPE;
  ElementTypeTable::forEach([&]<typename Row>() {
    using T = typename Row::type;
    if constexpr (hasVtkScalar<T> && !std::is_same_v<T, bool>) {
      if (type == TARV_ELEMENT_TYPE_NO_TYPE && vtkTypeTraits<T>::VTK_TYPE_ID == scalarType) type = Row::id;
    }
  });
  if (type != TARV_ELEMENT_TYPE_NO_TYPE) return type;
  if (scalarType >= VTK_ID_TYPE && scalarType <= VTK_OPAQUE) return TARV_ELEMENT_TYPE_UNKNOWN;
  return TARV_ELEMENT_TYPE_NO_TYPE;
}

}  // namespace tarv::vtkbridge

#endif
