#include "ComparisonReport.h"

#include <cmath>
#include <cstdio>
#include <iomanip>
#include <sstream>

#include "OptionParsing.h"

namespace tarv::tool {

namespace {

std::string jsonString(const std::string& text) {
  std::string quoted = "\"";
  for (char c : text) {
    if (c == '"' || c == '\\') {
      quoted += '\\';
      quoted += c;
    } else if (static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned char>(c));
      quoted += escape;
    } else {
      quoted += c;
    }
  }
  return quoted + "\"";
}

std::string jsonNumber(const std::optional<double>& value) {
  if (!value || std::isnan(*value) || std::isinf(*value)) return "null";
  return formatNumber(*value);
}

std::string displayNumber(const std::optional<double>& value) {
  return value ? formatDisplayNumber(*value) : std::string("undefined");
}

}  // namespace

void printComparisonTable(std::ostream& out, const SegmentationComparison& c) {
  std::ostringstream text;
  const auto row = [&text](const std::string& name, const std::string& value) {
    text << "  " << std::left << std::setw(26) << name << value << "\n";
  };
  text << "A: " << c.nameA << "\n";
  text << "B: " << c.nameB << "\n";
  row("time step", std::to_string(c.t));
  row("voxels in A", std::to_string(c.voxelsA));
  row("voxels in B", std::to_string(c.voxelsB));
  row("shared (A and B)", std::to_string(c.shared));
  row("only in A", std::to_string(c.onlyA));
  row("only in B", std::to_string(c.onlyB));
  row("union (A or B)", std::to_string(c.unionCount));
  row("difference (A xor B)", std::to_string(c.difference));
  row("Dice", displayNumber(c.dice));
  row("Jaccard", displayNumber(c.jaccard));
  row("Hausdorff distance", displayNumber(c.hausdorffDistance));
  row("average border distance", displayNumber(c.averageBorderDistance));
  out << text.str();
}

void printComparisonJson(std::ostream& out, const SegmentationComparison& c) {
  std::ostringstream text;
  text << "{\n";
  text << "  \"a\": " << jsonString(c.nameA) << ",\n";
  text << "  \"b\": " << jsonString(c.nameB) << ",\n";
  text << "  \"t\": " << c.t << ",\n";
  text << "  \"voxelsA\": " << c.voxelsA << ",\n";
  text << "  \"voxelsB\": " << c.voxelsB << ",\n";
  text << "  \"shared\": " << c.shared << ",\n";
  text << "  \"onlyA\": " << c.onlyA << ",\n";
  text << "  \"onlyB\": " << c.onlyB << ",\n";
  text << "  \"union\": " << c.unionCount << ",\n";
  text << "  \"difference\": " << c.difference << ",\n";
  text << "  \"dice\": " << jsonNumber(c.dice) << ",\n";
  text << "  \"jaccard\": " << jsonNumber(c.jaccard) << ",\n";
  text << "  \"hausdorffDistance\": " << jsonNumber(c.hausdorffDistance) << ",\n";
  text << "  \"averageBorderDistance\": " << jsonNumber(c.averageBorderDistance) << "\n";
  text << "}\n";
  out << text.str();
}

}  // namespace tarv::tool
