#ifndef TARV_ANALYSIS_BOXEXTRACTION_H
#define TARV_ANALYSIS_BOXEXTRACTION_H

// Extraction of a box of one dataset into another and placement of a block, element by element
// through the virtual element access (Dataset's copy and convert family).

#include <optional>

#include "dataset/Dataset.h"

namespace tarv::analysis {

inline DatasetCoordinates shifted(const DatasetCoordinatesIterator& it, const DatasetCoordinates& offset) {
  return static_cast<const DatasetCoordinates&>(it) + offset;
}

// True when d is root itself or computed, directly or through others, from root.
bool feedsInto(const Dataset* root, const Dataset* d);

// Re-initialises target to the box of source (box valid, its size allocatable) with the given
// element type, placed at the world position of box.start, and fills it element by element.
// Voxels of the box outside the source become 0.
void extractBox(Dataset& target, Dataset* source, TARVElementType type, const DatasetBoundingBox& box);

// The box widened by margin on every side; empty when the box is empty or the result holds no
// voxel, leaves the int range or has 2^31 or more voxels.
std::optional<DatasetBoundingBox> widenedBox(const DatasetBoundingBox& box, const DatasetCoordinates& margin);

// Writes the box of source (fitted to source) into target with its first voxel at position,
// converting to the target's element type; voxels landing outside target are dropped. Source and
// target are different datasets holding data.
void placeBlock(Dataset& target, Dataset* source, const DatasetCoordinates& position, const DatasetBoundingBox& box);

}  // namespace tarv::analysis

#endif
