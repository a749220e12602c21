#include "OptionParsing.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "elementtypes/ElementTypeNames.h"
#include "ToolError.h"

namespace tarv::tool {

namespace {

std::vector<std::string> splitAtCommas(const std::string& text) {
  std::vector<std::string> parts;
  std::size_t begin = 0;
  while (true) {
    const std::size_t comma = text.find(',', begin);
    std::string part = text.substr(begin, comma == std::string::npos ? std::string::npos : comma - begin);
    const std::size_t first = part.find_first_not_of(" \t");
    const std::size_t last = part.find_last_not_of(" \t");
    parts.push_back(first == std::string::npos ? std::string() : part.substr(first, last - first + 1));
    if (comma == std::string::npos) break;
    begin = comma + 1;
  }
  return parts;
}

std::string countText(std::size_t minimumCount, std::size_t maximumCount) {
  if (minimumCount == maximumCount) return std::to_string(minimumCount);
  return std::to_string(minimumCount) + " to " + std::to_string(maximumCount);
}

}  // namespace

std::vector<double> parseNumberList(const std::string& text, const std::string& option, std::size_t minimumCount,
                                    std::size_t maximumCount) {
  const std::vector<std::string> parts = splitAtCommas(text);
  const std::string expected = "expected " + countText(minimumCount, maximumCount) + " comma-separated numbers";
  if (parts.size() < minimumCount || parts.size() > maximumCount)
    throw ToolError(option + " " + text, expected);
  std::vector<double> values;
  for (const std::string& part : parts) {
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(part.c_str(), &end);
    if (part.empty() || end != part.c_str() + part.size() || errno == ERANGE || std::isnan(value))
      throw ToolError(option + " " + text, "'" + part + "' is not a number; " + expected);
    values.push_back(value);
  }
  return values;
}

std::vector<int> parseIntegerList(const std::string& text, const std::string& option, std::size_t minimumCount,
                                  std::size_t maximumCount) {
  const std::vector<std::string> parts = splitAtCommas(text);
  const std::string expected = "expected " + countText(minimumCount, maximumCount) + " comma-separated integers";
  if (parts.size() < minimumCount || parts.size() > maximumCount)
    throw ToolError(option + " " + text, expected);
  std::vector<int> values;
  for (const std::string& part : parts) {
    int value = 0;
    const char* begin = part.c_str();
    if (!part.empty() && part[0] == '+') ++begin;
    const auto [end, error] = std::from_chars(begin, part.c_str() + part.size(), value);
    if (part.empty() || error != std::errc() || end != part.c_str() + part.size())
      throw ToolError(option + " " + text, "'" + part + "' is not an integer; " + expected);
    values.push_back(value);
  }
  return values;
}

TARVElementType parseElementType(const std::string& text, const std::string& option) {
  if (std::optional<TARVElementType> type = elementTypeFromName(text)) return *type;
  throw ToolError(option + " " + text, "unknown element type (known: " + elementTypeNameList() + ")");
}

std::string formatNumber(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  char buffer[64];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
  if (error != std::errc()) return "?";
  return std::string(buffer, end);
}

std::string formatDisplayNumber(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.7g", value);
  return buffer;
}

}  // namespace tarv::tool
