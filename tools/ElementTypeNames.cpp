#include "ElementTypeNames.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace tarv::tool {

namespace {

struct NamedType {
  TARVElementType type;
  const char* name;
};

constexpr NamedType kShortNames[] = {
    {TARV_ELEMENT_TYPE_BOOL, "bool"},        {TARV_ELEMENT_TYPE_SIGNED_CHAR, "int8"},
    {TARV_ELEMENT_TYPE_UNSIGNED_CHAR, "uint8"}, {TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, "int16"},
    {TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, "uint16"}, {TARV_ELEMENT_TYPE_SIGNED_INT, "int32"},
    {TARV_ELEMENT_TYPE_UNSIGNED_INT, "uint32"}, {TARV_ELEMENT_TYPE_SIGNED_LONG_INT, "int64"},
    {TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT, "uint64"}, {TARV_ELEMENT_TYPE_FLOAT, "float"},
    {TARV_ELEMENT_TYPE_DOUBLE, "double"},    {TARV_ELEMENT_TYPE_LONG_DOUBLE, "longdouble"},
};

constexpr NamedType kOtherNames[] = {
    {TARV_ELEMENT_TYPE_SIGNED_CHAR, "char"},    {TARV_ELEMENT_TYPE_SIGNED_CHAR, "schar"},
    {TARV_ELEMENT_TYPE_UNSIGNED_CHAR, "uchar"}, {TARV_ELEMENT_TYPE_SIGNED_SHORT_INT, "short"},
    {TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, "ushort"}, {TARV_ELEMENT_TYPE_SIGNED_INT, "int"},
    {TARV_ELEMENT_TYPE_UNSIGNED_INT, "uint"},   {TARV_ELEMENT_TYPE_SIGNED_LONG_INT, "long"},
    {TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT, "ulong"}, {TARV_ELEMENT_TYPE_FLOAT, "float32"},
    {TARV_ELEMENT_TYPE_DOUBLE, "float64"},      {TARV_ELEMENT_TYPE_LONG_DOUBLE, "long double"},
    {TARV_ELEMENT_TYPE_LONG_DOUBLE, "long-double"},
};

}  // namespace

const char* elementTypeName(TARVElementType type) {
  for (const NamedType& entry : kShortNames)
    if (entry.type == type) return entry.name;
  return "none";
}

std::optional<TARVElementType> elementTypeFromName(const std::string& name) {
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  for (const NamedType& entry : kShortNames)
    if (lower == entry.name) return entry.type;
  for (const NamedType& entry : kOtherNames)
    if (lower == entry.name) return entry.type;
  return std::nullopt;
}

std::string elementTypeNameList() {
  std::string list;
  for (const NamedType& entry : kShortNames) {
    if (!list.empty()) list += ", ";
    list += entry.name;
  }
  return list;
}

}  // namespace tarv::tool
