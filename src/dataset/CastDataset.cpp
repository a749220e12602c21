#include "dataset/CastDataset.h"

namespace tarv {

CastDataset::CastDataset() { typeName = "CastDataset"; }

CastDataset::~CastDataset() = default;

bool CastDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

bool CastDataset::calculateElement(const DatasetCoordinates& p) {
  Dataset* source = sourceDatasets.empty() ? nullptr : sourceDatasets.front();
  if (source == nullptr) return true;
  // The source's own buffer takes its raw element; a failed read leaves whatever it holds.
  void* sourceBuffer = source->getElementBuffer();
  source->getElementByBuffer(p, sourceBuffer);
  DatasetMemory::castBufferValue(sourceBuffer, elementBuffer, source->getElementType(), castElementType);
  setElementByBuffer(p, elementBuffer);
  return true;
}

bool CastDataset::isDatasetEquivalent(DependentDataset* other) {
  if (!DependentDataset::isDatasetEquivalent(other)) return false;
  const auto* cast = dynamic_cast<const CastDataset*>(other);
  return cast != nullptr && castElementType == cast->castElementType;
}

TARVElementType CastDataset::determineElementType() { return castElementType; }

bool CastDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  if (name != "ElementType") return false;
  const int value = FileReadWrite::readIntValue(is);
  // Numbers outside the enumeration name no element type at all.
  tempCastElementType = value >= TARV_ELEMENT_TYPE_NO_TYPE && value <= TARV_ELEMENT_TYPE_LONG_DOUBLE
                            ? static_cast<TARVElementType>(value)
                            : TARV_ELEMENT_TYPE_UNKNOWN;
  return true;
}

void CastDataset::writeDatasetSpecificValues(std::ostream& os) {
  FileReadWrite::writeValue(os, "ElementType", static_cast<int>(castElementType));
}

void CastDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempCastElementType = TARV_ELEMENT_TYPE_FLOAT;
}

void CastDataset::setParametersFromTempFields() { setParameters(tempCastElementType); }

void CastDataset::getParameters(TARVElementType& targetElementType) const { targetElementType = castElementType; }

void CastDataset::setParameters(TARVElementType targetElementType) {
  castElementType = targetElementType;
  resetCache();
}

}  // namespace tarv
