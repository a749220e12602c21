#include "SegmentationComparison.h"

#include <cmath>
#include <cstdio>
#include <iomanip>
#include <sstream>

#include "OptionParsing.h"
#include "dataset/BinarySegmentations.h"

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

SegmentationComparison compareSegmentations(Dataset* a, Dataset* b, int t, const std::string& nameA,
                                            const std::string& nameB) {
  SegmentationComparison result;
  result.nameA = nameA;
  result.nameB = nameB;
  result.t = t;
  result.voxelsA = BinarySegmentations::getSegmentationVoxelCount(a, t);
  result.voxelsB = BinarySegmentations::getSegmentationVoxelCount(b, t);
  result.shared = BinarySegmentations::getSharedSegmentationVoxelCount(a, b, t);
  result.onlyA = BinarySegmentations::getExclusiveSegmentationVoxelCount(a, b, t);
  result.onlyB = BinarySegmentations::getExclusiveSegmentationVoxelCount(b, a, t);
  result.unionCount = BinarySegmentations::getTotalSegmentationVoxelCount(a, b, t);
  result.difference = BinarySegmentations::getSegmentationVoxelCountDifference(a, b, t);
  const double sum = static_cast<double>(result.voxelsA) + static_cast<double>(result.voxelsB);
  if (sum > 0.0) result.dice = 2.0 * result.shared / sum;
  if (result.unionCount > 0) result.jaccard = static_cast<double>(result.shared) / result.unionCount;
  if (result.voxelsA > 0 && result.voxelsB > 0) {
    result.hausdorffDistance = BinarySegmentations::getHausdorffDistance(a, b, t);
    result.averageBorderDistance = BinarySegmentations::getAverageBorderDistance(a, b, t);
  }
  return result;
}

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
