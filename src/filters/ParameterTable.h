#ifndef TARV_FILTERS_PARAMETERTABLE_H
#define TARV_FILTERS_PARAMETERTABLE_H

// The entries of a filter's description, listed once: each names a field of the filter's
// Parameters struct. Reading an entry, writing all of them in order and comparing them for
// equivalence all follow the list.

#include <istream>
#include <ostream>
#include <string>
#include <tuple>

#include "core/FileReadWrite.h"
#include "core/Vector.h"
#include "dataset/DatasetMemory.h"

namespace tarv::filters {

// How a value of each parameter type is spelled in a description.
inline void readParameter(std::istream& is, int& value) { value = FileReadWrite::readIntValue(is); }
inline void readParameter(std::istream& is, bool& value) { value = FileReadWrite::readBoolValue(is); }
inline void readParameter(std::istream& is, double& value) { value = FileReadWrite::readDoubleValue(is); }
inline void readParameter(std::istream& is, Vector& value) {
  value = Vector(FileReadWrite::readDoubleCoordinatesValue(is));
}
// Written as its number; numbers outside the enumeration name no element type at all.
inline void readParameter(std::istream& is, TARVElementType& value) {
  const int number = FileReadWrite::readIntValue(is);
  value = number >= TARV_ELEMENT_TYPE_NO_TYPE && number <= TARV_ELEMENT_TYPE_LONG_DOUBLE
              ? static_cast<TARVElementType>(number)
              : TARV_ELEMENT_TYPE_UNKNOWN;
}

inline void writeParameter(std::ostream& os, const char* name, int value) {
  FileReadWrite::writeValue(os, name, value);
}
inline void writeParameter(std::ostream& os, const char* name, bool value) {
  FileReadWrite::writeValue(os, name, value);
}
inline void writeParameter(std::ostream& os, const char* name, double value) {
  FileReadWrite::writeValue(os, name, value);
}
inline void writeParameter(std::ostream& os, const char* name, const Vector& value) {
  FileReadWrite::writeValue(os, name, static_cast<const Coordinates<double>&>(value));
}
inline void writeParameter(std::ostream& os, const char* name, TARVElementType value) {
  FileReadWrite::writeValue(os, name, static_cast<int>(value));
}

// One entry: its name, the field of P it holds, and whether the field takes part in equivalence.
template <class P, class T>
struct ParameterEntry {
  const char* name;
  T P::*field;
  bool compared;
};

template <class P, class T>
constexpr ParameterEntry<P, T> entry(const char* name, T P::*field) {
  return {name, field, true};
}

// An entry that is described but deliberately left out of equivalence.
template <class P, class T>
constexpr ParameterEntry<P, T> uncomparedEntry(const char* name, T P::*field) {
  return {name, field, false};
}

template <class P, class... T>
class ParameterTable {
public:
  constexpr explicit ParameterTable(ParameterEntry<P, T>... entries) : entries(entries...) {}

  // Reads the value of the entry called name into its field of p; false for a name not listed.
  bool read(const std::string& name, std::istream& is, P& p) const {
    return std::apply([&](const auto&... e) { return (readIfNamed(e, name, is, p) || ...); }, entries);
  }

  // Every entry of p, in the listed order.
  void write(std::ostream& os, const P& p) const {
    std::apply([&](const auto&... e) { (writeParameter(os, e.name, p.*e.field), ...); }, entries);
  }

  // Every compared field equal (with ==, so a NaN never is).
  bool equal(const P& a, const P& b) const {
    return std::apply([&](const auto&... e) { return ((!e.compared || a.*e.field == b.*e.field) && ...); },
                      entries);
  }

  // The rule of every filter's isDatasetEquivalent: the base rule first, then other of the same
  // class F with equal compared parameters. parameters names F's field that holds them.
  template <class F, class Base>
  bool equivalent(F& self, Base* other, P F::*parameters) const {
    if (!self.Base::isDatasetEquivalent(other)) return false;
    const auto* o = dynamic_cast<const F*>(other);
    return o != nullptr && equal(self.*parameters, o->*parameters);
  }

private:
  template <class E>
  static bool readIfNamed(const E& e, const std::string& name, std::istream& is, P& p) {
    if (name != e.name) return false;
    readParameter(is, p.*e.field);
    return true;
  }

  std::tuple<ParameterEntry<P, T>...> entries;
};

}  // namespace tarv::filters

#endif
