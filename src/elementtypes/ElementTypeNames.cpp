#include "elementtypes/ElementTypeNames.h"

#include <algorithm>
#include <cctype>
#include <string_view>

namespace tarv {

namespace {

// Whether name is one of the '|' separated names of the list.
bool isListed(std::string_view list, std::string_view name) {
  while (!list.empty()) {
    const std::size_t bar = list.find('|');
    if (list.substr(0, bar) == name) return true;
    if (bar == std::string_view::npos) break;
    list.remove_prefix(bar + 1);
  }
  return false;
}

}  // namespace

const char* elementTypeName(TARVElementType type) {
  const char* name = "none";
  ElementTypeTable::visit(type, [&]<typename Row>() { name = Row::name.data(); });
  return name;
}

const char* elementTypeDtypeName(TARVElementType type) {
  const char* name = "none";
  ElementTypeTable::visit(type, [&]<typename Row>() { name = Row::dtype.data(); });
  return name;
}

std::optional<TARVElementType> elementTypeFromName(const std::string& name) {
  std::string lower = name;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  std::optional<TARVElementType> found;
  // Short names take precedence over the other names of another row.
  ElementTypeTable::forEach([&]<typename Row>() {
    if (!found && lower == Row::name) found = Row::id;
  });
  ElementTypeTable::forEach([&]<typename Row>() {
    if (!found && (lower == Row::dtype || isListed(Row::aliases, lower))) found = Row::id;
  });
  return found;
}

std::string elementTypeNameList() {
  std::string list;
  ElementTypeTable::forEach([&]<typename Row>() {
    if (!list.empty()) list += ", ";
    list += Row::name;
  });
  return list;
}

}  // namespace tarv
