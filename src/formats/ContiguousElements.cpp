#include "formats/ContiguousElements.h"

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

}  // namespace tarv::formats
