#ifndef TARV_ELEMENTTYPES_ELEMENTTYPETABLE_H
#define TARV_ELEMENTTYPES_ELEMENTTYPETABLE_H

// The one list of element types. Everything that depends on the element type (the C++ type of an
// identifier, names, sizes, dispatch, the image module's type identifiers) is derived from
// ElementTypeTable below; a further type is one more row there and one more identifier.
// Included by dataset/DatasetMemory.h after the definition of TARVElementType.

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <type_traits>

namespace tarv {

// A string usable as a template argument.
template <std::size_t N>
struct ElementTypeText {
  char text[N]{};
  constexpr ElementTypeText(const char (&s)[N]) { std::copy_n(s, N, text); }
  constexpr std::string_view view() const { return std::string_view(text, N - 1); }
};

// One row: the identifier, its printed form, the C++ type, the short name the tool prints, the
// NumPy dtype name, further names the tool accepts ('|' separated), and the identifier of the
// image module's voxel type (0: images cannot hold it).
template <TARVElementType Id, ElementTypeText Printed, typename T, ElementTypeText Name, ElementTypeText Dtype,
          ElementTypeText Aliases, int ImageTypeId>
struct ElementTypeRow {
  using type = T;
  static constexpr TARVElementType id = Id;
  static constexpr std::string_view printed = Printed.view();
  static constexpr std::string_view name = Name.view();
  static constexpr std::string_view dtype = Dtype.view();
  static constexpr std::string_view aliases = Aliases.view();
  static constexpr int imageTypeId = ImageTypeId;
};

template <typename... Rows>
struct ElementTypeList {
  static constexpr std::size_t size = sizeof...(Rows);

  // Calls f.template operator()<Row>() for every row, in order.
  template <typename F>
  static constexpr void forEach(F&& f) {
    (f.template operator()<Rows>(), ...);
  }
  // Calls f.template operator()<Row>() for the row of the identifier; false when there is none.
  template <typename F>
  static bool visit(TARVElementType id, F&& f) {
    return ((id == Rows::id ? (f.template operator()<Rows>(), true) : false) || ...);
  }
  // The size of the largest element.
  static constexpr std::size_t largestSize = std::max({sizeof(typename Rows::type)...});
  template <typename T>
  static constexpr bool contains = (std::is_same_v<T, typename Rows::type> || ...);
  // The identifier of a C++ type of the list.
  template <typename T>
  static constexpr TARVElementType idOf() {
    TARVElementType id{};
    ((std::is_same_v<T, typename Rows::type> ? (id = Rows::id, true) : false) || ...);
    return id;
  }
};

// clang-format off
using ElementTypeTable = ElementTypeList<
    //            identifier,                          printed identifier,                    C++ type,       name,         dtype,        other names,             image
    ElementTypeRow<TARV_ELEMENT_TYPE_BOOL,               "TARV_ELEMENT_TYPE_BOOL",               bool,           "bool",       "bool",       "",                       1>,
    ElementTypeRow<TARV_ELEMENT_TYPE_SIGNED_CHAR,        "TARV_ELEMENT_TYPE_SIGNED_CHAR",        signed char,    "int8",       "int8",       "char|schar",             2>,
    ElementTypeRow<TARV_ELEMENT_TYPE_UNSIGNED_CHAR,      "TARV_ELEMENT_TYPE_UNSIGNED_CHAR",      unsigned char,  "uint8",      "uint8",      "uchar",                  3>,
    ElementTypeRow<TARV_ELEMENT_TYPE_SIGNED_SHORT_INT,   "TARV_ELEMENT_TYPE_SIGNED_SHORT_INT",   short,          "int16",      "int16",      "short",                  4>,
    ElementTypeRow<TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT, "TARV_ELEMENT_TYPE_UNSIGNED_SHORT_INT", unsigned short, "uint16",     "uint16",     "ushort",                 5>,
    ElementTypeRow<TARV_ELEMENT_TYPE_SIGNED_INT,         "TARV_ELEMENT_TYPE_SIGNED_INT",         int,            "int32",      "int32",      "int",                    6>,
    ElementTypeRow<TARV_ELEMENT_TYPE_UNSIGNED_INT,       "TARV_ELEMENT_TYPE_UNSIGNED_INT",       unsigned int,   "uint32",     "uint32",     "uint",                   7>,
    ElementTypeRow<TARV_ELEMENT_TYPE_SIGNED_LONG_INT,    "TARV_ELEMENT_TYPE_SIGNED_LONG_INT",    long,           "int64",      "int64",      "long",                   8>,
    ElementTypeRow<TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT,  "TARV_ELEMENT_TYPE_UNSIGNED_LONG_INT",  unsigned long,  "uint64",     "uint64",     "ulong",                  9>,
    ElementTypeRow<TARV_ELEMENT_TYPE_FLOAT,              "TARV_ELEMENT_TYPE_FLOAT",              float,          "float",      "float32",    "float32",               10>,
    ElementTypeRow<TARV_ELEMENT_TYPE_DOUBLE,             "TARV_ELEMENT_TYPE_DOUBLE",             double,         "double",     "float64",    "float64",               11>,
    ElementTypeRow<TARV_ELEMENT_TYPE_LONG_DOUBLE,        "TARV_ELEMENT_TYPE_LONG_DOUBLE",        long double,    "longdouble", "longdouble", "long double|long-double",  0>>;
// clang-format on

// The size of the one-element buffers of datasets and memories: room for any element type.
inline constexpr std::size_t kElementBufferSize = ElementTypeTable::largestSize;

}  // namespace tarv

#endif
