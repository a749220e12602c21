#ifndef TARV_DATASET_DATASET_H
#define TARV_DATASET_DATASET_H

#include <set>
#include <string>

#include "core/DatasetBoundingBox.h"
#include "core/DatasetCoordinates.h"
#include "core/DatasetCoordinatesIterator.h"
#include "core/DcmHeader.h"
#include "core/Progress.h"
#include "core/TARVBase.h"
#include "dataset/DatasetMemory.h"
#include "dataset/DatasetWorldEmbedding.h"
#include "dataset/ModalityLUT.h"

namespace tarv {

class DependentDataset;

// A grid of elements of one element type with up to four axes (x, y, z, t) and a component
// axis, placed in world space. The base of every dataset of the library: memory-backed, cached,
// computed and file-backed datasets all derive from it and override the virtual element access.
class Dataset : public TARVBase {
public:
  explicit Dataset(bool createMemory);
  Dataset(const Dataset&) = delete;
  Dataset& operator=(const Dataset&) = delete;

  // Virtual operations, in this order.
  ~Dataset() override;
  virtual bool hasData() const;
  virtual bool isInputOk() const;
  virtual unsigned int getMemoryUsage() const;
  virtual void announceAccess(const DatasetBoundingBox& box);
  virtual void announceAccessToFullDataset();
  virtual bool getElementByBuffer(const DatasetCoordinates& p, void* buffer);
  virtual void setElementByBuffer(const DatasetCoordinates& p, const void* buffer);
  virtual bool getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer);
  virtual void setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer);
  virtual void calculate(const DatasetBoundingBox& box);
  virtual void calculateFullDataset(Progress* progress);
  virtual void reset();
  virtual void initializeDataset(const DatasetCoordinates& size, TARVElementType type,
                                 const DatasetWorldEmbedding& embedding);
  virtual void initializeDataset(DatasetMemory* memory, const DatasetWorldEmbedding& embedding);

  // Set-up.
  void newDataset(const DatasetCoordinates& size, TARVElementType type, const DatasetWorldEmbedding& embedding);
  void newDataset(DatasetMemory* memory, const DatasetWorldEmbedding& embedding);
  template <ElementValueType T>
  void newDataset(const DatasetCoordinates& size, const DatasetWorldEmbedding& embedding) {
    newDataset(size, DatasetMemory::getElementTypeByType<T>(), embedding);
  }
  template <ElementValueType T>
  void initializeDataset(const DatasetCoordinates& size, const DatasetWorldEmbedding& embedding) {
    initializeDataset(size, DatasetMemory::getElementTypeByType<T>(), embedding);
  }
  void clear();

  // Queries.
  TARVElementType getElementType() const { return elementType; }
  unsigned int getElementBitSize() const { return memory->getElementBitSize(); }
  unsigned int getElementByteSize() const { return memory->getElementByteSize(); }
  bool hasLogicalElementType() const { return memory->hasLogicalElementType(); }
  bool hasNumericalElementType() const { return memory->hasNumericalElementType(); }
  bool hasIntegerElementType() const { return memory->hasIntegerElementType(); }
  bool hasFloatingPointElementType() const { return memory->hasFloatingPointElementType(); }
  // Product of the five size components in 32-bit arithmetic.
  unsigned int getElementCount() const;
  DatasetCoordinates getSize() const { return size; }
  bool hasSameSize(Dataset* other) const;
  bool hasSameWorldEmbedding(Dataset* other);
  bool isCompatible(Dataset* other);
  DatasetBoundingBox getVoxelBoundingBox() const;
  void* getElementBuffer() const { return elementBuffer; }

  // Deliberately overlapping: a 1D dataset is also 2D, a 4D one also 3D.
  bool is1D() const { return size.y == 1 && size.z == 1; }
  bool is2D() const { return size.z == 1; }
  bool is3D() const { return size.z > 1; }
  bool is4D() const { return size.t > 1; }

  // Boxes (inclusive, all five components).
  bool areCoordinatesInside(const DatasetCoordinates& p) const;
  bool isBoxValid(const DatasetBoundingBox& box) const;
  bool isBoxInside(const DatasetBoundingBox& box) const;
  unsigned int getBoxVoxelCount(const DatasetBoundingBox& box) const;
  DatasetBoundingBox fitBoxToInterior(const DatasetBoundingBox& box) const;

  // Typed element access; no bounds checks (callers test areCoordinatesInside).
  template <ElementValueType T>
  T getElement(const DatasetCoordinates& p) {
    getElementByBuffer(p, readBuffer);
    return DatasetMemory::getBufferValue<T>(readBuffer, elementType);
  }
  template <ElementValueType T>
  T getElement(const DatasetCoordinatesIterator& it) {
    getElementByBuffer(it, elementBuffer);
    return DatasetMemory::getBufferValue<T>(elementBuffer, elementType);
  }
  template <ElementValueType T>
  void setElement(const DatasetCoordinates& p, T value) {
    DatasetMemory::setBufferValue<T>(elementBuffer, elementType, value);
    setElementByBuffer(p, elementBuffer);
  }
  template <ElementValueType T>
  void setElement(const DatasetCoordinatesIterator& it, T value) {
    DatasetMemory::setBufferValue<T>(elementBuffer, elementType, value);
    setElementByBuffer(it, elementBuffer);
  }

  // Iteration in memory order (component fastest, then x, y, z, t).
  DatasetCoordinatesIterator getStartCoordinatesIterator();
  DatasetCoordinatesIterator getStartCoordinatesIterator(const DatasetBoundingBox& box);
  void incrementCoordinatesIterator(DatasetCoordinatesIterator& it) const { memory->incrementCoordinatesIterator(it); }
  void incrementCoordinatesIterator(const DatasetBoundingBox& box, DatasetCoordinatesIterator& it) const {
    memory->incrementCoordinatesIterator(box, it);
  }

  // Registry of the datasets computed from this one (not owned).
  void addDependingDataset(DependentDataset* d);
  void removeDependingDataset(DependentDataset* d);
  bool isDependingDataset(DependentDataset* d) const;
  const std::set<DependentDataset*>& getDependingDatasets() const { return dependingDatasets; }
  bool areDependingDatasetsExistant() const { return !dependingDatasets.empty(); }
  void updateDependingDatasets();
  void resetCacheOfDependingDatasets();
  void changeSourceDatasetOfDependingDatasets(Dataset* newSource);
  void changeSourceDatasetOfGivenDependingDatasets(Dataset* newSource, const std::set<DependentDataset*>& given);
  void unregisterDependingDatasets();
  void deleteDependingDatasetRecursively(DependentDataset* d);
  void deleteDependingDatasetsRecursively();

  // Cached minimum and maximum of all elements.
  bool getMinimumAndMaximumValueCacheStatus() const { return minimumAndMaximumValueCacheStatus; }
  void setMinimumAndMaximumValueCacheStatus(bool status) { minimumAndMaximumValueCacheStatus = status; }
  void setCachedMinimumAndMaximumValue(double minimum, double maximum);
  void updateMinimumAndMaximumValue();
  double getMinimumValue();
  double getMaximumValue();

  // Meta information: the dataset owns its DICOM header.
  DcmHeader* getDicomTags() const { return dicomTags; }
  void setDicomTags(DcmHeader* header);
  void resetMetaInformations() { setDicomTags(nullptr); }

  DatasetWorldEmbedding& getWorldEmbedding() { return worldEmbedding; }
  const DatasetWorldEmbedding& getWorldEmbedding() const { return worldEmbedding; }
  void setWorldEmbedding(const DatasetWorldEmbedding& embedding) { worldEmbedding = embedding; }
  ModalityLUT& getModalityLUT() { return modalityLUT; }
  const ModalityLUT& getModalityLUT() const { return modalityLUT; }
  void setModalityLUT(const ModalityLUT& lut) { modalityLUT = lut; }
  int getDatasetID() const { return datasetID; }
  void setDatasetID(int id) { datasetID = id; }
  const std::string& getTypeName() const { return typeName; }
  // The flags set by the cached and the dependent subclasses.
  bool isCachedDataset() const { return isCached; }
  bool isDependentDataset() const { return isDependent; }

protected:
  // The memory (never null after construction of a complete dataset).
  DatasetMemory* getMemory() const { return memory; }

  std::string typeName;
  bool isCached = false;
  bool isDependent = false;

  DatasetWorldEmbedding worldEmbedding;
  ModalityLUT modalityLUT;
  int datasetID = -1;
  DatasetCoordinates size{0, 0, 0, 0, 0};
  DatasetMemory* memory = nullptr;
  TARVElementType elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  unsigned char* elementBuffer = nullptr;
  unsigned char* readBuffer = nullptr;
  bool minimumAndMaximumValueCacheStatus = false;
  double cachedMinimumValue = 0.0;
  double cachedMaximumValue = 0.0;
  std::set<DependentDataset*> dependingDatasets;
  DcmHeader* dicomTags = nullptr;
};

}  // namespace tarv

#endif
