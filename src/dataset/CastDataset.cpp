#include "dataset/CastDataset.h"

#include "filters/ParameterTable.h"

namespace tarv {

namespace {

using P = CastDataset::Parameters;
constexpr filters::ParameterTable entries(filters::entry("ElementType", &P::elementType));

}  // namespace

CastDataset::CastDataset() { setLibraryClass("CastDataset"); }

CastDataset::~CastDataset() = default;

bool CastDataset::isInputOk() const { return DependentDataset::isInputOk() && sourceDatasets.size() == 1; }

bool CastDataset::calculateElement(const DatasetCoordinates& p) {
  Dataset* source = sourceDatasets.empty() ? nullptr : sourceDatasets.front();
  if (source == nullptr) return true;
  // The source's own buffer takes its raw element; a failed read leaves whatever it holds.
  void* sourceBuffer = source->getElementBuffer();
  source->getElementByBuffer(p, sourceBuffer);
  DatasetMemory::castBufferValue(sourceBuffer, elementBuffer, source->getElementType(), parameters.elementType);
  setElementByBuffer(p, elementBuffer);
  return true;
}

bool CastDataset::isDatasetEquivalent(DependentDataset* other) {
  return entries.equivalent(*this, other, &CastDataset::parameters);
}

TARVElementType CastDataset::determineElementType() { return parameters.elementType; }

bool CastDataset::readDatasetSpecificValue(std::string name, std::istream& is) {
  return entries.read(name, is, tempParameters);
}

void CastDataset::writeDatasetSpecificValues(std::ostream& os) { entries.write(os, parameters); }

void CastDataset::initializeTempFields() {
  DependentDataset::initializeTempFields();
  tempParameters = Parameters();
}

void CastDataset::setParametersFromTempFields() { setParameters(tempParameters.elementType); }

void CastDataset::getParameters(TARVElementType& targetElementType) const {
  targetElementType = parameters.elementType;
}

void CastDataset::setParameters(TARVElementType targetElementType) {
  parameters.elementType = targetElementType;
  resetCache();
}

}  // namespace tarv
