#include "segmentation/SegmentationComparison.h"

#include "dataset/BinarySegmentations.h"

namespace tarv::segmentation {

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

}  // namespace tarv::segmentation
