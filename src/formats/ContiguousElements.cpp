#include "formats/ContiguousElements.h"

#include <cstring>

namespace tarv::formats {

const unsigned char* contiguousElements(Dataset* dataset, DatasetHandle& holder) {
  if (dataset == nullptr || !dataset->hasData() || dataset->getElementType() == TARV_ELEMENT_TYPE_BOOL) return nullptr;
  if (const void* own = dataset->getPlainElements()) return static_cast<const unsigned char*>(own);
  auto* copy = new Dataset(true);
  holder = copy;
  copy->copyFrom(dataset);
  if (!copy->hasData()) return nullptr;
  return static_cast<const unsigned char*>(copy->getPlainElements());
}

namespace {

// Copies every element between the two orders; toInterleaved chooses the direction.
void moveComponents(const unsigned char* from, unsigned char* to, std::size_t voxels, int components,
                    int elementBytes, bool toInterleaved) {
  const std::size_t bytes = static_cast<std::size_t>(elementBytes);
  for (int c = 0; c < components; ++c)
    for (std::size_t v = 0; v < voxels; ++v) {
      const std::size_t plane = (c * voxels + v) * bytes;
      const std::size_t interleaved = (v * components + c) * bytes;
      std::memcpy(to + (toInterleaved ? interleaved : plane), from + (toInterleaved ? plane : interleaved), bytes);
    }
}

}  // namespace

void interleaveComponents(const unsigned char* planes, unsigned char* interleaved, std::size_t voxels,
                          int components, int elementBytes) {
  moveComponents(planes, interleaved, voxels, components, elementBytes, true);
}

void separateComponents(const unsigned char* interleaved, unsigned char* planes, std::size_t voxels,
                        int components, int elementBytes) {
  moveComponents(interleaved, planes, voxels, components, elementBytes, false);
}

}  // namespace tarv::formats
