#ifndef TARV_TOOLS_OPTIONPARSING_H
#define TARV_TOOLS_OPTIONPARSING_H

#include <cstddef>
#include <string>
#include <vector>

#include "dataset/DatasetMemory.h"

namespace tarv::tool {

// Option values of the form "a,b,c". Each throws ToolError naming the option and the value when
// the text is not minimumCount to maximumCount numbers.
std::vector<double> parseNumberList(const std::string& text, const std::string& option, std::size_t minimumCount,
                                    std::size_t maximumCount);
std::vector<int> parseIntegerList(const std::string& text, const std::string& option, std::size_t minimumCount,
                                  std::size_t maximumCount);

// An element type name (see elementtypes/ElementTypeNames.h); throws ToolError naming the option.
TARVElementType parseElementType(const std::string& text, const std::string& option);

// A number for machines (JSON): the shortest text that reads back to the same double; "nan",
// "inf" and "-inf" for the special values.
std::string formatNumber(double value);
// A number for people: at most 7 significant digits.
std::string formatDisplayNumber(double value);

}  // namespace tarv::tool

#endif
