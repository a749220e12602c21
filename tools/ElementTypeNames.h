#ifndef TARV_TOOLS_ELEMENTTYPENAMES_H
#define TARV_TOOLS_ELEMENTTYPENAMES_H

#include <optional>
#include <string>

#include "dataset/DatasetMemory.h"

namespace tarv::tool {

// The short name the tool prints for an element type: bool, int8, uint8, int16, uint16, int32,
// uint32, int64, uint64, float, double, longdouble; "none" for anything not storable.
const char* elementTypeName(TARVElementType type);

// A storable element type from its short name or its C name (char, uchar, short, ushort, int,
// uint, long, ulong, float32, float64, "long double"); empty when the name is unknown.
std::optional<TARVElementType> elementTypeFromName(const std::string& name);

// The short names, comma separated, for help texts and error messages.
std::string elementTypeNameList();

}  // namespace tarv::tool

#endif
