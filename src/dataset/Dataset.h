#ifndef TARV_DATASET_DATASET_H
#define TARV_DATASET_DATASET_H

#include <list>
#include <set>
#include <string>
#include <typeinfo>

#include "core/DatasetBoundingBox.h"
#include "core/DatasetCoordinates.h"
#include "core/DatasetCoordinatesIterator.h"
#include "core/DcmHeader.h"
#include "core/Progress.h"
#include "core/TARVBase.h"
#include "core/Vector3D.h"
#include "core/WorldBoundingBox.h"
#include "dataset/DatasetMemory.h"
#include "dataset/DatasetWorldEmbedding.h"
#include "dataset/ModalityLUT.h"

class vtkImageData;

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
  void incrementCoordinatesIterator(DatasetCoordinatesIterator& it) const {
    if (!memory->incrementWithinRow(it)) memory->incrementCoordinatesIterator(it);
  }
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

  // Whole copies; the dataset is re-initialised. A null source, or an element type outside
  // 3..14, leaves this dataset as it is. convertFrom stores what DatasetMemory::clone(type)
  // stores: the source bytes, unconverted.
  void copyFrom(Dataset* source);
  void convertFrom(Dataset* source, TARVElementType type);
  template <ElementValueType T>
  void convertFrom(Dataset* source) {
    convertFrom(source, DatasetMemory::getElementTypeByType<T>());
  }
  // Same size, element type (or the given one) and embedding as the source; contents undefined.
  void initializeFrom(Dataset* source);
  void initializeWithNewElementTypeFrom(Dataset* source, TARVElementType type);

  // Extraction: the dataset becomes the box of the source, fitted to the source, keeping its
  // world position. Converting forms convert element by element. A null or empty source
  // leaves this dataset as it is.
  void copyPartFrom(Dataset* source, const DatasetBoundingBox& box);
  void convertPartFrom(Dataset* source, TARVElementType type, const DatasetBoundingBox& box);
  template <ElementValueType T>
  void convertPartFrom(Dataset* source, const DatasetBoundingBox& box) {
    convertPartFrom(source, DatasetMemory::getElementTypeByType<T>(), box);
  }
  void copySpaceFrom(Dataset* source, int t);
  void convertSpaceFrom(Dataset* source, TARVElementType type, int t);
  template <ElementValueType T>
  void convertSpaceFrom(Dataset* source, int t) {
    convertSpaceFrom(source, DatasetMemory::getElementTypeByType<T>(), t);
  }
  void copyPlaneFrom(Dataset* source, int z, int t);
  void convertPlaneFrom(Dataset* source, TARVElementType type, int z, int t);
  template <ElementValueType T>
  void convertPlaneFrom(Dataset* source, int z, int t) {
    convertPlaneFrom(source, DatasetMemory::getElementTypeByType<T>(), z, t);
  }
  // The source's non-zero bounding box widened by margin; voxels beyond the source are 0. A
  // source without a non-zero element, or a margin that leaves no voxel, changes nothing.
  void copyNonZeroBoxFrom(Dataset* source, const DatasetCoordinates& margin);
  void convertNonZeroBoxFrom(Dataset* source, TARVElementType type, const DatasetCoordinates& margin);

  // Placement: writes the source's box at position; size, type and embedding stay. Voxels that
  // would land outside this dataset are dropped.
  void copyAndPlaceBlockFrom(Dataset* source, const DatasetCoordinates& position, const DatasetBoundingBox& box);
  void copyAndPlaceDatasetFrom(Dataset* source, const DatasetCoordinates& position);
  void copyAndPlaceFirstSliceFrom(Dataset* source, int z);

  // Element-wise rewrites in place. setAllElementsValue asks the progress object whether to
  // stop after every 100000 elements.
  void setAllElementsValue(double value, Progress* progress = nullptr);
  void changeAllElementsValue(double oldValue, double newValue);
  void forceMinimumElementValue(double minimum);
  void forceMaximumElementValue(double maximum);
  void flipXAxis();
  void flipYAxis();
  void flipZAxis();
  // Scales all elements together to a vector of length 1; an all-zero dataset stays.
  void normalizeVectorLength();

  // Statistics. The box forms clip the box to the dataset; getAverageValue(box) divides by the
  // voxel count of the box as given. Empty boxes and datasets give 0.
  double getAverageValue();
  double getMinimumValue(const DatasetBoundingBox& box);
  double getMaximumValue(const DatasetBoundingBox& box);
  double getAverageValue(const DatasetBoundingBox& box);
  // Elements inside [min, max] (or outside it with invert).
  unsigned int getVoxelCountInValueRange(double min, double max, bool invert);
  unsigned int getVoxelCountInValueRange(const DatasetBoundingBox& box, double min, double max, bool invert);
  // Box of the non-zero elements over x, y, z and t; start > end when there is none.
  DatasetBoundingBox getNonZeroVoxelBoundingBox();
  // World positions of the largest values of time step t (component 0), each at least
  // minDistance voxels from the ones before. When every remaining voxel is too close to the
  // chosen ones, the list ends early.
  std::list<Vector3D> getMaximumValueWorldCoordinatesList(int count, double minDistance, int t);

  // Sampling. The element at c, or outside when c is not inside. Method 0 is nearest
  // neighbour, 1 linear; any other gives 0.
  double boundsCheckedElement(const DatasetCoordinates& c, double outside);
  double planeInterpolatedElement(double x, double y, int z, int t, double outside, int method);
  // Always 0.
  double planeInterpolatedWorldElement(double x, double y, int z, int t, double outside, int method);
  double spaceInterpolatedElement(double x, double y, double z, int t, double outside, int method);
  double spaceInterpolatedWorldElement(double x, double y, double z, int t, double outside, int method);

  // Template matching: other is the template, its coordinates otherC placed on c of this
  // dataset; outside when it does not fit. The dataset forms return a new dataset of this
  // size, type and embedding, owned by the caller.
  double correlatedElement(const DatasetCoordinates& c, Dataset* other, const DatasetCoordinates& otherC, double outside);
  double vectorSimilarityElement(const DatasetCoordinates& c, Dataset* other, const DatasetCoordinates& otherC,
                                 double outside);
  double cosSimilarityElement(const DatasetCoordinates& c, Dataset* other, const DatasetCoordinates& otherC,
                              double outside);
  Dataset* correlate(Dataset* other, const DatasetCoordinates& otherC, double outside);
  Dataset* vectorSimilarity(Dataset* other, const DatasetCoordinates& otherC, double outside);
  Dataset* cosSimilarity(Dataset* other, const DatasetCoordinates& otherC, double outside);

  // Boxes between voxel and world space (voxel centres; the voxel box of a world box keeps
  // inside it) and the volume of n voxels.
  WorldBoundingBox getMaximumFitWorldAABB() const;
  WorldBoundingBox getMaximumFitWorldAABBfromVoxelAABB(const DatasetBoundingBox& box) const;
  DatasetBoundingBox getMaximumFitVoxelAABBfromWorldAABB(const WorldBoundingBox& box) const;
  double voxelCountToVolume(unsigned int count) const;

  // Time step t as a new single-component image (owned by the caller), or null when the
  // element type has no VTK scalar type, there is no data or t is outside.
  vtkImageData* toImageData(int t, bool withWorldEmbedding);
  // Fills time step t from the image, in place when size and type match, else re-creating the
  // dataset as (x, y, z, 1, 1). Images without usable scalars leave the dataset as it is.
  void fromImageData(vtkImageData* image, int t);

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

  // Whether this object is of one of the library's own classes, not of a caller's subclass. The
  // library's bulk paths are taken only then: a caller's subclass is always evaluated element by
  // element, through its own virtual operations.
  bool isLibraryClass() const;

  // Rows: count consecutive elements along x from first, of one y, z and t, in component 0 of a
  // one-component dataset. canReadRow answers whether readRow can deliver the row exactly as
  // getElement<double> would deliver its elements one by one, with the same effect on every
  // dataset involved; it changes nothing. Rows are read from plain in-memory datasets and from the
  // caches of the library's cached classes.
  bool canReadRow(const DatasetCoordinates& first, int count);
  // values[i] = the element at first + (i, 0, 0, 0, 0) as double. Only right after canReadRow
  // answered true.
  void readRow(const DatasetCoordinates& first, int count, double* values);
  // readRow, then the last element left in the read buffer, as reading the elements one by one
  // with getElement<double>(coordinates) leaves it.
  void readRowAsElements(const DatasetCoordinates& first, int count, double* values);
  // values[i] = correlatedElement(first + (i, 0, 0, 0, 0), mask, centre, outside), for a plain
  // in-memory mask, computed from rows of this dataset. With check set, only answers whether that
  // can be done (reading nothing, changing nothing); without, it must have answered true just before.
  bool correlateRow(Dataset* mask, const DatasetCoordinates& centre, double outside, const DatasetCoordinates& first,
                    int count, double* values, bool check);

  // The element block of a plain in-memory dataset (a Dataset or EmptyDataset of the library whose
  // array memory starts at the origin and holds the whole dataset), elements in memory order:
  // component fastest, then x, y, z and t; bool packed eight to a byte. Null for any other.
  const void* getPlainElements() const;
  void* getPlainElements();

protected:
  // Names the class under construction (typeName) and marks it as one of the library's own
  // classes; called by every constructor of the library's classes.
  void setLibraryClass(const char* name);

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

private:
  // The class of the last library constructor that ran (see isLibraryClass).
  const std::type_info* libraryClass = nullptr;
};

}  // namespace tarv

#endif
