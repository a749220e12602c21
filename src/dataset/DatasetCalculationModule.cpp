#include "dataset/DatasetCalculationModule.h"

namespace tarv {

DatasetCalculationModule::~DatasetCalculationModule() = default;

void DatasetCalculationModule::calculateRowByBuffer(const DatasetCoordinates& first, int count, void* elements,
                                                    TARVElementType elementType) {
  const std::size_t bytes = DatasetMemory::getElementTypeByteSize(elementType);
  DatasetCoordinates p = first;
  for (int i = 0; i < count; ++i, ++p.x)
    calculateElementByBuffer(p, static_cast<unsigned char*>(elements) + static_cast<std::size_t>(i) * bytes,
                             elementType);
}

}  // namespace tarv
