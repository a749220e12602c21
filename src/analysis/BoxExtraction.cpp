#include "analysis/BoxExtraction.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <set>
#include <vector>

#include "bulk/PlainElements.h"
#include "dataset/DependentDataset.h"
#include "elementtypes/ElementOperations.h"

namespace tarv::analysis {

namespace {

// Element counts of a dataset are signed 32-bit.
constexpr std::int64_t kElementCountLimit = std::int64_t(1) << 31;

// target(it) := source(source position), converted by cast unless cast is null.
void copyElement(Dataset& target, const DatasetCoordinatesIterator& it, Dataset* source, const DatasetCoordinates& p,
                 BufferCaster cast, unsigned char* sourceValue, unsigned char* value) {
  source->getElementByBuffer(p, sourceValue);
  if (cast == nullptr) {
    target.setElementByBuffer(it, sourceValue);
  } else {
    cast(sourceValue, value);
    target.setElementByBuffer(it, value);
  }
}

BufferCaster casterBetween(TARVElementType from, TARVElementType to) {
  return from == to ? nullptr : bufferCaster(from, to);
}

}  // namespace

bool feedsInto(const Dataset* root, const Dataset* d) {
  std::vector<const Dataset*> pending{root};
  std::set<const Dataset*> seen;
  while (!pending.empty()) {
    const Dataset* current = pending.back();
    pending.pop_back();
    if (current == d) return true;
    if (!seen.insert(current).second) continue;
    for (DependentDataset* dependent : current->getDependingDatasets()) pending.push_back(dependent);
  }
  return false;
}

void extractBox(Dataset& target, Dataset* source, TARVElementType type, const DatasetBoundingBox& box) {
  DatasetWorldEmbedding embedding = source->getWorldEmbedding();
  embedding.setDatasetOrigin(source->getWorldEmbedding().voxelToWorld(box.start));
  target.initializeDataset(box.end - box.start + DatasetCoordinates(1, 1, 1, 1, 1), type, embedding);
  if (!target.hasData()) return;
  // Plain in-memory datasets on both sides: whole rows, the element types dispatched once.
  if (bulk::copyBoxConverting(target, *source, box)) return;

  const BufferCaster cast = casterBetween(source->getElementType(), type);
  unsigned char sourceValue[kElementBufferSize] = {};
  unsigned char value[kElementBufferSize] = {};
  unsigned char zero[kElementBufferSize] = {};
  DatasetMemory::setBufferValue<int>(zero, type, 0);
  for (DatasetCoordinatesIterator it = target.getStartCoordinatesIterator(); it.valid;
       target.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates p = shifted(it, box.start);
    if (!source->areCoordinatesInside(p))
      target.setElementByBuffer(it, zero);
    else
      copyElement(target, it, source, p, cast, sourceValue, value);
  }
}

std::optional<DatasetBoundingBox> widenedBox(const DatasetBoundingBox& box, const DatasetCoordinates& margin) {
  if (box.isEmpty()) return std::nullopt;
  DatasetBoundingBox widened;
  std::int64_t count = 1;
  for (int k = 0; k < 5; ++k) {
    const std::int64_t start = static_cast<std::int64_t>(box.start[k]) - margin[k];
    const std::int64_t end = static_cast<std::int64_t>(box.end[k]) + margin[k];
    const std::int64_t extent = end - start + 1;
    if (!(extent >= 1 && start >= INT_MIN && end <= INT_MAX && count < kElementCountLimit / extent)) return std::nullopt;
    count *= extent;
    widened.start[k] = static_cast<int>(start);
    widened.end[k] = static_cast<int>(end);
  }
  return widened;
}

void placeBlock(Dataset& target, Dataset* source, const DatasetCoordinates& position, const DatasetBoundingBox& box) {
  const DatasetBoundingBox sourceBox = source->fitBoxToInterior(box);
  const DatasetCoordinates size = target.getSize();
  DatasetBoundingBox targetBox;
  DatasetCoordinates offset;
  for (int k = 0; k < 5; ++k) {
    const std::int64_t lower = std::max<std::int64_t>(position[k], 0);
    const std::int64_t upper =
        std::min<std::int64_t>(static_cast<std::int64_t>(position[k]) + (sourceBox.end[k] - sourceBox.start[k]), size[k] - 1);
    if (lower > upper) return;
    targetBox.start[k] = static_cast<int>(lower);
    targetBox.end[k] = static_cast<int>(upper);
    offset[k] = static_cast<int>(sourceBox.start[k] + (lower - position[k]) - lower);
  }
  const BufferCaster cast = casterBetween(source->getElementType(), target.getElementType());
  unsigned char sourceValue[kElementBufferSize] = {};
  unsigned char value[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = target.getStartCoordinatesIterator(targetBox); it.valid;
       target.incrementCoordinatesIterator(targetBox, it))
    copyElement(target, it, source, shifted(it, offset), cast, sourceValue, value);
}

}  // namespace tarv::analysis
