#ifndef TARV_ELEMENTTYPES_ELEMENTTYPENAMES_H
#define TARV_ELEMENTTYPES_ELEMENTTYPENAMES_H

#include <optional>
#include <string>

#include "dataset/DatasetMemory.h"

namespace tarv {

// The short name of an element type: bool, int8, uint8, int16, uint16, int32, uint32, int64,
// uint64, float, double, longdouble; "none" for anything not storable.
const char* elementTypeName(TARVElementType type);

// The NumPy dtype name of an element type (float32 for float, float64 for double); "none" for
// anything not storable.
const char* elementTypeDtypeName(TARVElementType type);

// A storable element type from its short name, its dtype name or another name the table lists
// (char, uchar, short, ushort, int, uint, long, ulong, "long double", ...), ignoring case; empty
// when the name is unknown.
std::optional<TARVElementType> elementTypeFromName(const std::string& name);

// The short names, comma separated, for help texts and error messages.
std::string elementTypeNameList();

}  // namespace tarv

#endif
