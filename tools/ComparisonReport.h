#ifndef TARV_TOOLS_COMPARISONREPORT_H
#define TARV_TOOLS_COMPARISONREPORT_H

#include <ostream>

#include "segmentation/SegmentationComparison.h"

namespace tarv::tool {

using segmentation::SegmentationComparison;

// The comparison as a table to read and as JSON.
void printComparisonTable(std::ostream& out, const SegmentationComparison& comparison);
void printComparisonJson(std::ostream& out, const SegmentationComparison& comparison);

}  // namespace tarv::tool

#endif
