#ifndef TARV_SEGMENTATION_SEGMENTATIONCOMPARISON_H
#define TARV_SEGMENTATION_SEGMENTATIONCOMPARISON_H

#include <optional>
#include <string>

#include "dataset/Dataset.h"

namespace tarv::segmentation {

// Two binary segmentations (non-zero is object) of one time step compared voxel by voxel and by
// their surfaces, with BinarySegmentations' measures. Measures without meaning (Dice of two empty
// segmentations, distances to an empty one) are left empty.
struct SegmentationComparison {
  std::string nameA;
  std::string nameB;
  int t = 0;
  unsigned int voxelsA = 0;
  unsigned int voxelsB = 0;
  unsigned int shared = 0;
  unsigned int onlyA = 0;
  unsigned int onlyB = 0;
  unsigned int unionCount = 0;
  unsigned int difference = 0;
  // 2 |A and B| / (|A| + |B|) and |A and B| / |A or B|.
  std::optional<double> dice;
  std::optional<double> jaccard;
  // In world units (the voxel spacing of the segmentations).
  std::optional<double> hausdorffDistance;
  std::optional<double> averageBorderDistance;
};

// The datasets must be compatible (same size and world embedding) and have time step t.
SegmentationComparison compareSegmentations(Dataset* a, Dataset* b, int t, const std::string& nameA = "A",
                                            const std::string& nameB = "B");

}  // namespace tarv::segmentation

#endif
