#include "dataset/Dataset.h"

#include <vtkDataArray.h>
#include <vtkImageData.h>
#include <vtkPointData.h>
#include <vtkType.h>
#include <vtkTypeTraits.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <map>
#include <new>
#include <numbers>
#include <type_traits>
#include <vector>

#include "core/Mathematics.h"
#include "dataset/ArrayDatasetMemory.h"
#include "dataset/DatasetRowAccess.h"
#include "dataset/DependentDataset.h"
#include "elementtypes/ElementOperations.h"

namespace tarv {

namespace {
}

Dataset::Dataset(bool createMemory) : typeName("Dataset") {
  if (!createMemory) return;
  memory = new ArrayDatasetMemory();
  size = DatasetCoordinates(0, 0, 0, 0, 0);
  elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  datasetID = -1;
  elementBuffer = static_cast<unsigned char*>(std::calloc(kElementBufferSize, 1));
  readBuffer = static_cast<unsigned char*>(std::calloc(kElementBufferSize, 1));
  minimumAndMaximumValueCacheStatus = false;
}

Dataset::~Dataset() {
  if (memory) memory->release();
  size = DatasetCoordinates(0, 0, 0, 0, 0);
  minimumAndMaximumValueCacheStatus = false;
  unregisterDependingDatasets();
  resetMetaInformations();
  delete memory;
  memory = nullptr;
  std::free(elementBuffer);
  std::free(readBuffer);
}

bool Dataset::hasData() const {
  for (int k = 0; k < 5; ++k)
    if (size[k] < 1) return false;
  return true;
}

bool Dataset::isInputOk() const { return true; }

unsigned int Dataset::getMemoryUsage() const {
  return static_cast<unsigned int>(memory->getMemoryUsage());
}

void Dataset::announceAccess(const DatasetBoundingBox&) {}

void Dataset::announceAccessToFullDataset() {}

bool Dataset::getElementByBuffer(const DatasetCoordinates& p, void* buffer) {
  return memory->getElementByBuffer(p, buffer);
}

void Dataset::setElementByBuffer(const DatasetCoordinates& p, const void* buffer) {
  memory->setElementByBuffer(p, buffer);
  minimumAndMaximumValueCacheStatus = false;
}

bool Dataset::getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) {
  return memory->getElementByBuffer(it, buffer);
}

void Dataset::setElementByBuffer(const DatasetCoordinatesIterator& it, const void* buffer) {
  memory->setElementByBuffer(it, buffer);
  minimumAndMaximumValueCacheStatus = false;
}

void Dataset::calculate(const DatasetBoundingBox&) {}

void Dataset::calculateFullDataset(Progress*) {}

void Dataset::reset() {
  memory->release();
  size = memory->getSize();
  elementType = TARV_ELEMENT_TYPE_NO_TYPE;
  worldEmbedding.reset();
  modalityLUT.reset();
  resetMetaInformations();
  minimumAndMaximumValueCacheStatus = false;
}

void Dataset::initializeDataset(const DatasetCoordinates& newSize, TARVElementType type,
                                const DatasetWorldEmbedding& embedding) {
  reset();
  for (int k = 0; k < 5; ++k)
    if (newSize[k] < 1) return;
  if (!isStorableElementType(type)) return;
  if (!memory->allocate(newSize, type, DatasetCoordinates(0, 0, 0, 0, 0))) return;
  size = newSize;
  elementType = memory->getElementType();
  worldEmbedding = embedding;
}

void Dataset::initializeDataset(DatasetMemory* newMemory, const DatasetWorldEmbedding& embedding) {
  reset();
  if (newMemory == nullptr || newMemory->getStart() != DatasetCoordinates(0, 0, 0, 0, 0)) return;
  if (newMemory == memory) return;
  delete memory;
  memory = newMemory;
  size = memory->getSize();
  elementType = memory->getElementType();
  worldEmbedding = embedding;
}

void Dataset::newDataset(const DatasetCoordinates& newSize, TARVElementType type,
                         const DatasetWorldEmbedding& embedding) {
  initializeDataset(newSize, type, embedding);
  updateDependingDatasets();
}

void Dataset::newDataset(DatasetMemory* newMemory, const DatasetWorldEmbedding& embedding) {
  initializeDataset(newMemory, embedding);
  updateDependingDatasets();
}

void Dataset::clear() {
  unregisterDependingDatasets();
  reset();
}

unsigned int Dataset::getElementCount() const {
  unsigned int product = 1;
  for (int k = 0; k < 5; ++k) product *= static_cast<unsigned int>(size[k]);
  return product;
}

bool Dataset::hasSameSize(Dataset* other) const { return other != nullptr && size == other->size; }

bool Dataset::hasSameWorldEmbedding(Dataset* other) {
  return other != nullptr && worldEmbedding == other->worldEmbedding;
}

bool Dataset::isCompatible(Dataset* other) { return hasSameSize(other) && hasSameWorldEmbedding(other); }

DatasetBoundingBox Dataset::getVoxelBoundingBox() const {
  return DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 0), size - DatasetCoordinates(1, 1, 1, 1, 1));
}

bool Dataset::areCoordinatesInside(const DatasetCoordinates& p) const {
  for (int k = 0; k < 5; ++k)
    if (p[k] < 0 || p[k] >= size[k]) return false;
  return true;
}

bool Dataset::isBoxValid(const DatasetBoundingBox& box) const {
  for (int k = 0; k < 5; ++k)
    if (box.start[k] > box.end[k]) return false;
  return true;
}

bool Dataset::isBoxInside(const DatasetBoundingBox& box) const {
  for (int k = 0; k < 5; ++k)
    if (box.start[k] < 0 || box.end[k] >= size[k]) return false;
  return true;
}

unsigned int Dataset::getBoxVoxelCount(const DatasetBoundingBox& box) const {
  if (!isBoxValid(box)) return 0;
  unsigned int count = 1;
  for (int k = 0; k < 5; ++k)
    count *= static_cast<unsigned int>(static_cast<long long>(box.end[k]) - box.start[k] + 1);
  return count;
}

DatasetBoundingBox Dataset::fitBoxToInterior(const DatasetBoundingBox& box) const {
  DatasetBoundingBox fitted = box;
  for (int k = 0; k < 5; ++k) {
    int& s = fitted.start[k];
    int& e = fitted.end[k];
    if (s < 0) s = 0;
    if (s >= size[k]) s = size[k] - 1;
    if (e < 0) e = 0;
    if (e >= size[k]) e = size[k] - 1;
    if (s > e) std::swap(s, e);
  }
  return fitted;
}

DatasetCoordinatesIterator Dataset::getStartCoordinatesIterator() {
  announceAccessToFullDataset();
  return memory->getStartCoordinatesIterator();
}

DatasetCoordinatesIterator Dataset::getStartCoordinatesIterator(const DatasetBoundingBox& box) {
  announceAccess(box);
  return memory->getStartCoordinatesIterator(box);
}

void Dataset::addDependingDataset(DependentDataset* d) { dependingDatasets.insert(d); }

void Dataset::removeDependingDataset(DependentDataset* d) { dependingDatasets.erase(d); }

bool Dataset::isDependingDataset(DependentDataset* d) const { return dependingDatasets.count(d) != 0; }

namespace {
// Visits the registry in ascending order, taking the successor before calling out, since the
// call may remove the visited entry (or others) from the registry.
template <typename F>
void forEachDependingDataset(const std::set<DependentDataset*>& registry, F&& f) {
  auto it = registry.begin();
  while (it != registry.end()) {
    DependentDataset* d = *it;
    ++it;
    const DependentDataset* next = it == registry.end() ? nullptr : *it;
    f(d);
    it = next == nullptr ? registry.end() : registry.lower_bound(const_cast<DependentDataset*>(next));
  }
}
}  // namespace

void Dataset::updateDependingDatasets() {
  forEachDependingDataset(dependingDatasets, [](DependentDataset* d) { d->updateToChangedSourceDatasets(); });
}

void Dataset::resetCacheOfDependingDatasets() {
  forEachDependingDataset(dependingDatasets, [](DependentDataset* d) { d->resetCache(); });
}

void Dataset::changeSourceDatasetOfDependingDatasets(Dataset* newSource) {
  forEachDependingDataset(dependingDatasets,
                          [&](DependentDataset* d) { d->changeSourceDataset(this, newSource); });
}

void Dataset::changeSourceDatasetOfGivenDependingDatasets(Dataset* newSource,
                                                          const std::set<DependentDataset*>& given) {
  forEachDependingDataset(dependingDatasets, [&](DependentDataset* d) {
    if (given.count(d) != 0) d->changeSourceDataset(this, newSource);
  });
}

void Dataset::unregisterDependingDatasets() { changeSourceDatasetOfDependingDatasets(nullptr); }

void Dataset::deleteDependingDatasetRecursively(DependentDataset* d) {
  if (d == nullptr) return;
  d->deleteDependingDatasetsRecursively();
  dependingDatasets.erase(d);
  delete d;
}

void Dataset::deleteDependingDatasetsRecursively() {
  while (!dependingDatasets.empty()) deleteDependingDatasetRecursively(*dependingDatasets.begin());
}

void Dataset::setCachedMinimumAndMaximumValue(double minimum, double maximum) {
  cachedMinimumValue = minimum;
  cachedMaximumValue = maximum;
  minimumAndMaximumValueCacheStatus = true;
}

void Dataset::updateMinimumAndMaximumValue() {
  double minimum = 0.0;
  double maximum = 0.0;
  announceAccessToFullDataset();
  if (DatasetRowAccess::findMinimumAndMaximum(this, minimum, maximum)) {
    // A plain in-memory dataset: the same walk over its memory, the element type dispatched once.
    cachedMinimumValue = minimum;
    cachedMaximumValue = maximum;
    minimumAndMaximumValueCacheStatus = true;
    return;
  }
  bool first = true;
  for (DatasetCoordinatesIterator it = memory->getStartCoordinatesIterator(); it.valid;
       memory->incrementCoordinatesIterator(it)) {
    const double v = getElement<double>(it);
    if (first) {
      minimum = maximum = v;
      first = false;
    } else if (minimum > v) {
      minimum = v;
    } else if (v > maximum) {
      maximum = v;
    }
  }
  cachedMinimumValue = minimum;
  cachedMaximumValue = maximum;
  minimumAndMaximumValueCacheStatus = true;
}

double Dataset::getMinimumValue() {
  if (!minimumAndMaximumValueCacheStatus) updateMinimumAndMaximumValue();
  return cachedMinimumValue;
}

double Dataset::getMaximumValue() {
  if (!minimumAndMaximumValueCacheStatus) updateMinimumAndMaximumValue();
  return cachedMaximumValue;
}

void Dataset::setDicomTags(DcmHeader* header) {
  if (header == dicomTags) return;
  delete dicomTags;
  dicomTags = header;
}

// ---------------------------------------------------------------------------------------------
// Bulk operations and analyses. They reach the elements only through the virtual element access,
// so they work unchanged on cached and computed datasets.

namespace {

// Element counts of a dataset are signed 32-bit.
constexpr std::int64_t kElementCountLimit = std::int64_t(1) << 31;

// Printed by fromImageData on every call, with this exact text and line number: callers match it.
const char* const kNonAxialWarning =
    "Warning: Results may be unexpected for non axial datasets. in src/dataset/Dataset:638";

DatasetCoordinates shifted(const DatasetCoordinatesIterator& it, const DatasetCoordinates& offset) {
  return static_cast<const DatasetCoordinates&>(it) + offset;
}

// True when d is root itself or computed, directly or through others, from root.
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

// Re-initialises target to the box of source (box valid, its size allocatable) with the given
// element type, placed at the world position of box.start, and fills it element by element.
// Voxels of the box outside the source become 0.
void extractBox(Dataset& target, Dataset* source, TARVElementType type, const DatasetBoundingBox& box) {
  DatasetWorldEmbedding embedding = source->getWorldEmbedding();
  embedding.setDatasetOrigin(source->getWorldEmbedding().voxelToWorld(box.start));
  target.initializeDataset(box.end - box.start + DatasetCoordinates(1, 1, 1, 1, 1), type, embedding);
  if (!target.hasData()) return;
  // Plain in-memory datasets on both sides: whole rows, the element types dispatched once.
  if (DatasetRowAccess::copyBoxConverting(&target, source, box)) return;

  const TARVElementType sourceType = source->getElementType();
  const BufferCaster cast = sourceType == type ? nullptr : bufferCaster(sourceType, type);
  unsigned char sourceValue[kElementBufferSize] = {};
  unsigned char value[kElementBufferSize] = {};
  unsigned char zero[kElementBufferSize] = {};
  DatasetMemory::setBufferValue<int>(zero, type, 0);
  for (DatasetCoordinatesIterator it = target.getStartCoordinatesIterator(); it.valid;
       target.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates p = shifted(it, box.start);
    if (!source->areCoordinatesInside(p)) {
      target.setElementByBuffer(it, zero);
      continue;
    }
    source->getElementByBuffer(p, sourceValue);
    if (cast == nullptr) {
      target.setElementByBuffer(it, sourceValue);
    } else {
      cast(sourceValue, value);
      target.setElementByBuffer(it, value);
    }
  }
}

// Overwrites, in place, every element whose value (as double) matches, with replacement.
template <typename Predicate>
void replaceElementsWhere(Dataset& d, double replacement, Predicate matches) {
  const BufferReader<double> read = bufferReader<double>(d.getElementType());
  unsigned char value[kElementBufferSize] = {};
  unsigned char replacementValue[kElementBufferSize] = {};
  DatasetMemory::setBufferValue<double>(replacementValue, d.getElementType(), replacement);
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    d.getElementByBuffer(it, value);
    if (matches(read(value))) d.setElementByBuffer(it, replacementValue);
  }
}

// Mirrors the dataset along one axis (0 x, 1 y, 2 z) by swapping element pairs.
void flipAxis(Dataset& d, int axis) {
  if (!d.hasData()) return;
  d.announceAccessToFullDataset();
  const DatasetCoordinates n = d.getSize();
  if (n[axis] <= 1) return;
  DatasetBoundingBox lowerHalf = d.getVoxelBoundingBox();
  lowerHalf.end[axis] = n[axis] / 2 - 1;
  unsigned char first[kElementBufferSize] = {};
  unsigned char second[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(lowerHalf); it.valid;
       d.incrementCoordinatesIterator(lowerHalf, it)) {
    const DatasetCoordinates p = it;
    DatasetCoordinates mirrored = p;
    mirrored[axis] = n[axis] - 1 - p[axis];
    d.getElementByBuffer(p, first);
    d.getElementByBuffer(mirrored, second);
    d.setElementByBuffer(p, second);
    d.setElementByBuffer(mirrored, first);
  }
}

// Walks the box clipped to the dataset and hands every element, as double, to visit.
template <typename Visit>
void visitClippedBox(Dataset& d, const DatasetBoundingBox& box, Visit visit) {
  const DatasetBoundingBox clipped = d.fitBoxToInterior(box);
  const BufferReader<double> read = bufferReader<double>(d.getElementType());
  unsigned char value[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = d.getStartCoordinatesIterator(clipped); it.valid;
       d.incrementCoordinatesIterator(clipped, it)) {
    d.getElementByBuffer(it, value);
    visit(read(value));
  }
}

double extremeValue(Dataset& d, const DatasetBoundingBox& box, bool maximum) {
  bool first = true;
  double result = 0.0;
  visitClippedBox(d, box, [&](double v) {
    if (first) {
      result = v;
      first = false;
    } else if (maximum ? v > result : v < result) {
      result = v;
    }
  });
  return result;
}

// Linear interpolation along one axis: the two neighbouring positions and their weights.
struct AxisSamples {
  int position[2];
  double weight[2];
};

AxisSamples linearSamples(double p) {
  const double lower = std::floor(p);
  const double upper = std::ceil(p);
  AxisSamples samples{{Mathematics::round(lower), Mathematics::round(upper)}, {1.0, 0.0}};
  if (lower != upper) {
    samples.weight[0] = 1.0 - (p - lower);
    samples.weight[1] = 1.0 - (upper - p);
  }
  return samples;
}

// Sums of a template placed on an image: dot = sum of a * b, imageSquares = sum of a * a over the
// template's elements b and the image elements a beneath them. fits is false when the template
// would reach outside the image (the image is then not read).
struct TemplateSums {
  bool fits = false;
  double dot = 0.0;
  double imageSquares = 0.0;
};

TemplateSums sumTemplate(Dataset& image, const DatasetCoordinates& c, Dataset* templ, const DatasetCoordinates& templC) {
  TemplateSums sums;
  if (templ == nullptr) return sums;
  const DatasetCoordinates imageSize = image.getSize();
  const DatasetCoordinates templSize = templ->getSize();
  DatasetCoordinates origin;
  for (int k = 0; k < 5; ++k) {
    const std::int64_t d = static_cast<std::int64_t>(c[k]) - templC[k];
    if (d < 0 || d > static_cast<std::int64_t>(imageSize[k]) - templSize[k]) return sums;
    origin[k] = static_cast<int>(d);
  }
  sums.fits = true;
  const BufferReader<double> readImage = bufferReader<double>(image.getElementType());
  const BufferReader<double> readTempl = bufferReader<double>(templ->getElementType());
  unsigned char imageValue[kElementBufferSize] = {};
  unsigned char templValue[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = templ->getStartCoordinatesIterator(); it.valid;
       templ->incrementCoordinatesIterator(it)) {
    templ->getElementByBuffer(it, templValue);
    image.getElementByBuffer(shifted(it, origin), imageValue);
    const double a = readImage(imageValue);
    const double b = readTempl(templValue);
    sums.dot += a * b;
    sums.imageSquares += a * a;
  }
  return sums;
}

// A new dataset of the image's size, type and embedding holding measure(c) at every voxel c.
template <typename Measure>
Dataset* measureEverywhere(Dataset& image, Measure measure) {
  Dataset* result = new Dataset(true);
  result->newDataset(image.getSize(), image.getElementType(), image.getWorldEmbedding());
  image.announceAccessToFullDataset();
  const BufferWriter write = bufferWriter(result->getElementType());
  unsigned char value[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = result->getStartCoordinatesIterator(); it.valid;
       result->incrementCoordinatesIterator(it)) {
    write(value, measure(static_cast<const DatasetCoordinates&>(it)));
    result->setElementByBuffer(it, value);
  }
  return result;
}

// VTK scalar type written for an element type; 0 when there is none.
int scalarTypeOfElementType(TARVElementType type) {
  int scalarType = 0;
  dispatchElementType(type, [&]<typename T>() {
    if constexpr (std::is_same_v<T, bool>)
      scalarType = VTK_SIGNED_CHAR;
    else if constexpr (!std::is_same_v<T, long double>)
      scalarType = vtkTypeTraits<T>::VTK_TYPE_ID;
  });
  return scalarType;
}

// Element type read for a VTK scalar type; TARV_ELEMENT_TYPE_NO_TYPE when it cannot be read.
TARVElementType elementTypeOfScalarType(int scalarType) {
  if (scalarType == VTK_CHAR || scalarType == VTK_SIGNED_CHAR) return TARV_ELEMENT_TYPE_SIGNED_CHAR;
  if (scalarType == VTK_UNSIGNED_CHAR) return TARV_ELEMENT_TYPE_UNSIGNED_CHAR;
  // VTK_SHORT .. VTK_DOUBLE run in the same order as the short .. double element types.
  if (scalarType >= VTK_SHORT && scalarType <= VTK_DOUBLE)
    return static_cast<TARVElementType>(scalarType - VTK_SHORT + TARV_ELEMENT_TYPE_SIGNED_SHORT_INT);
  if (scalarType >= VTK_ID_TYPE && scalarType <= VTK_OPAQUE) return TARV_ELEMENT_TYPE_UNKNOWN;
  return TARV_ELEMENT_TYPE_NO_TYPE;
}

}  // namespace

void Dataset::copyFrom(Dataset* source) {
  if (source != nullptr && source->memory != nullptr) {
    source->calculateFullDataset(nullptr);
    const DatasetWorldEmbedding embedding = source->worldEmbedding;
    const ModalityLUT lut = source->modalityLUT;
    DatasetMemory* copy = nullptr;
    if (source != this && DatasetRowAccess::isPlainInMemory(this) && DatasetRowAccess::isPlainInMemory(source)) {
      // The re-initialisation releases this dataset's block: a block of the same byte size is
      // handed to the copy instead, which spares touching fresh memory.
      const auto* sourceArray = static_cast<const ArrayDatasetMemory*>(source->memory);
      copy = sourceArray->cloneReusing(*static_cast<ArrayDatasetMemory*>(memory));
    } else {
      copy = source->memory->clone();
    }
    if (copy != nullptr) {
      initializeDataset(copy, embedding);
      if (memory == copy)
        modalityLUT = lut;
      else
        delete copy;
    }
  }
  updateDependingDatasets();
}

void Dataset::convertFrom(Dataset* source, TARVElementType type) {
  if (source != nullptr && source->memory != nullptr && isStorableElementType(type)) {
    source->calculateFullDataset(nullptr);
    const DatasetWorldEmbedding embedding = source->worldEmbedding;
    DatasetMemory* copy = source->memory->clone(type);
    if (copy != nullptr) {
      initializeDataset(copy, embedding);
      if (memory != copy) delete copy;
    }
  }
  updateDependingDatasets();
}

void Dataset::initializeFrom(Dataset* source) {
  if (source != nullptr) {
    const DatasetCoordinates sourceSize = source->size;
    const DatasetWorldEmbedding embedding = source->worldEmbedding;
    initializeDataset(sourceSize, source->elementType, embedding);
  }
  updateDependingDatasets();
}

void Dataset::initializeWithNewElementTypeFrom(Dataset* source, TARVElementType type) {
  if (source != nullptr && isStorableElementType(type)) {
    const DatasetCoordinates sourceSize = source->size;
    const DatasetWorldEmbedding embedding = source->worldEmbedding;
    initializeDataset(sourceSize, type, embedding);
  }
  updateDependingDatasets();
}

void Dataset::copyPartFrom(Dataset* source, const DatasetBoundingBox& box) {
  if (source == nullptr) {
    updateDependingDatasets();
    return;
  }
  convertPartFrom(source, source->elementType, box);
}

void Dataset::convertPartFrom(Dataset* source, TARVElementType type, const DatasetBoundingBox& box) {
  if (source == nullptr || !source->hasData() || !isStorableElementType(type)) {
    updateDependingDatasets();
    return;
  }
  if (feedsInto(this, source)) {
    // Re-initialising this dataset would change what is read: extract into a copy first.
    Dataset part(true);
    part.convertPartFrom(source, type, box);
    copyFrom(&part);
    return;
  }
  extractBox(*this, source, type, source->fitBoxToInterior(box));
  updateDependingDatasets();
}

void Dataset::copySpaceFrom(Dataset* source, int t) {
  if (source == nullptr) {
    updateDependingDatasets();
    return;
  }
  convertSpaceFrom(source, source->elementType, t);
}

void Dataset::convertSpaceFrom(Dataset* source, TARVElementType type, int t) {
  if (source == nullptr) {
    updateDependingDatasets();
    return;
  }
  const DatasetCoordinates n = source->size;
  convertPartFrom(source, type,
                  DatasetBoundingBox(DatasetCoordinates(0, 0, 0, t, 0), DatasetCoordinates(n.x - 1, n.y - 1, n.z - 1, t, n.c - 1)));
}

void Dataset::copyPlaneFrom(Dataset* source, int z, int t) {
  if (source == nullptr) {
    updateDependingDatasets();
    return;
  }
  convertPlaneFrom(source, source->elementType, z, t);
}

void Dataset::convertPlaneFrom(Dataset* source, TARVElementType type, int z, int t) {
  if (source == nullptr) {
    updateDependingDatasets();
    return;
  }
  const DatasetCoordinates n = source->size;
  convertPartFrom(source, type,
                  DatasetBoundingBox(DatasetCoordinates(0, 0, z, t, 0), DatasetCoordinates(n.x - 1, n.y - 1, z, t, n.c - 1)));
}

void Dataset::copyNonZeroBoxFrom(Dataset* source, const DatasetCoordinates& margin) {
  if (source == nullptr) {
    updateDependingDatasets();
    return;
  }
  convertNonZeroBoxFrom(source, source->elementType, margin);
}

void Dataset::convertNonZeroBoxFrom(Dataset* source, TARVElementType type, const DatasetCoordinates& margin) {
  if (source == nullptr || !source->hasData() || !isStorableElementType(type)) {
    updateDependingDatasets();
    return;
  }
  if (feedsInto(this, source)) {
    Dataset part(true);
    part.convertNonZeroBoxFrom(source, type, margin);
    if (part.hasData())
      copyFrom(&part);
    else
      updateDependingDatasets();
    return;
  }
  const DatasetBoundingBox nonZero = source->getNonZeroVoxelBoundingBox();
  DatasetBoundingBox box;
  std::int64_t count = 1;
  bool usable = !nonZero.isEmpty();
  for (int k = 0; k < 5 && usable; ++k) {
    const std::int64_t start = static_cast<std::int64_t>(nonZero.start[k]) - margin[k];
    const std::int64_t end = static_cast<std::int64_t>(nonZero.end[k]) + margin[k];
    const std::int64_t extent = end - start + 1;
    usable = extent >= 1 && start >= INT_MIN && end <= INT_MAX && count < kElementCountLimit / extent;
    if (!usable) break;
    count *= extent;
    box.start[k] = static_cast<int>(start);
    box.end[k] = static_cast<int>(end);
  }
  if (usable) extractBox(*this, source, type, box);
  updateDependingDatasets();
}

void Dataset::copyAndPlaceBlockFrom(Dataset* source, const DatasetCoordinates& position, const DatasetBoundingBox& box) {
  if (source == nullptr || !source->hasData() || !hasData()) {
    updateDependingDatasets();
    return;
  }
  if (source == this) {
    // Reads and writes would overlap: place a copy of the block.
    Dataset block(true);
    block.copyPartFrom(this, box);
    copyAndPlaceBlockFrom(&block, position, block.getVoxelBoundingBox());
    return;
  }
  // The block lands at position; what would fall outside this dataset is dropped.
  const DatasetBoundingBox sourceBox = source->fitBoxToInterior(box);
  DatasetBoundingBox targetBox;
  DatasetCoordinates offset;
  for (int k = 0; k < 5; ++k) {
    const std::int64_t lower = std::max<std::int64_t>(position[k], 0);
    const std::int64_t upper =
        std::min<std::int64_t>(static_cast<std::int64_t>(position[k]) + (sourceBox.end[k] - sourceBox.start[k]), size[k] - 1);
    if (lower > upper) {
      updateDependingDatasets();
      return;
    }
    targetBox.start[k] = static_cast<int>(lower);
    targetBox.end[k] = static_cast<int>(upper);
    offset[k] = static_cast<int>(sourceBox.start[k] + (lower - position[k]) - lower);
  }
  const BufferCaster cast = source->elementType == elementType ? nullptr : bufferCaster(source->elementType, elementType);
  unsigned char sourceValue[kElementBufferSize] = {};
  unsigned char value[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(targetBox); it.valid;
       incrementCoordinatesIterator(targetBox, it)) {
    source->getElementByBuffer(shifted(it, offset), sourceValue);
    if (cast == nullptr) {
      setElementByBuffer(it, sourceValue);
    } else {
      cast(sourceValue, value);
      setElementByBuffer(it, value);
    }
  }
  updateDependingDatasets();
}

void Dataset::copyAndPlaceDatasetFrom(Dataset* source, const DatasetCoordinates& position) {
  if (source == nullptr) {
    updateDependingDatasets();
    return;
  }
  copyAndPlaceBlockFrom(source, position, source->getVoxelBoundingBox());
}

void Dataset::copyAndPlaceFirstSliceFrom(Dataset* source, int z) {
  if (source == nullptr) {
    updateDependingDatasets();
    return;
  }
  const DatasetCoordinates n = source->size;
  copyAndPlaceBlockFrom(source, DatasetCoordinates(0, 0, z, 0, 0),
                        DatasetBoundingBox(DatasetCoordinates(0, 0, 0, 0, 0), DatasetCoordinates(n.x - 1, n.y - 1, 0, 0, n.c - 1)));
}

void Dataset::setAllElementsValue(double value, Progress* progress) {
  unsigned char stored[kElementBufferSize] = {};
  DatasetMemory::setBufferValue<double>(stored, elementType, value);
  std::uint64_t count = 0;
  for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(); it.valid; incrementCoordinatesIterator(it)) {
    setElementByBuffer(it, stored);
    if (++count % 100000 == 0 && progress != nullptr && progress->shouldStop()) return;
  }
}

void Dataset::changeAllElementsValue(double oldValue, double newValue) {
  replaceElementsWhere(*this, newValue, [oldValue](double v) { return v == oldValue; });
}

void Dataset::forceMinimumElementValue(double minimum) {
  replaceElementsWhere(*this, minimum, [minimum](double v) { return minimum > v; });
}

void Dataset::forceMaximumElementValue(double maximum) {
  replaceElementsWhere(*this, maximum, [maximum](double v) { return v > maximum; });
}

void Dataset::flipXAxis() { flipAxis(*this, 0); }

void Dataset::flipYAxis() { flipAxis(*this, 1); }

void Dataset::flipZAxis() { flipAxis(*this, 2); }

void Dataset::normalizeVectorLength() {
  const BufferReader<double> read = bufferReader<double>(elementType);
  const BufferWriter write = bufferWriter(elementType);
  unsigned char value[kElementBufferSize] = {};
  double sum = 0.0;
  for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(); it.valid; incrementCoordinatesIterator(it)) {
    getElementByBuffer(it, value);
    const double v = read(value);
    sum += v * v;
  }
  const double length = std::sqrt(sum);
  if (!(length > 0.0)) return;
  for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(); it.valid; incrementCoordinatesIterator(it)) {
    getElementByBuffer(it, value);
    write(value, read(value) / length);
    setElementByBuffer(it, value);
  }
}

double Dataset::getAverageValue() {
  const unsigned int n = getElementCount();
  if (n < 1) return 0.0;
  const BufferReader<double> read = bufferReader<double>(elementType);
  unsigned char value[kElementBufferSize] = {};
  double sum = 0.0;
  for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(); it.valid; incrementCoordinatesIterator(it)) {
    getElementByBuffer(it, value);
    sum += read(value);
  }
  return sum / n;
}

double Dataset::getMinimumValue(const DatasetBoundingBox& box) { return extremeValue(*this, box, false); }

double Dataset::getMaximumValue(const DatasetBoundingBox& box) { return extremeValue(*this, box, true); }

double Dataset::getAverageValue(const DatasetBoundingBox& box) {
  const unsigned int n = getBoxVoxelCount(box);
  if (n < 1) return 0.0;
  double sum = 0.0;
  visitClippedBox(*this, box, [&](double v) { sum += v; });
  return sum / n;
}

unsigned int Dataset::getVoxelCountInValueRange(double min, double max, bool invert) {
  const BufferReader<double> read = bufferReader<double>(elementType);
  unsigned char value[kElementBufferSize] = {};
  unsigned int count = 0;
  for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(); it.valid; incrementCoordinatesIterator(it)) {
    getElementByBuffer(it, value);
    const double v = read(value);
    if ((min <= v && v <= max) != invert) ++count;
  }
  return count;
}

unsigned int Dataset::getVoxelCountInValueRange(const DatasetBoundingBox& box, double min, double max, bool invert) {
  unsigned int count = 0;
  visitClippedBox(*this, box, [&](double v) {
    if ((min <= v && v <= max) != invert) ++count;
  });
  return count;
}

DatasetBoundingBox Dataset::getNonZeroVoxelBoundingBox() {
  announceAccessToFullDataset();
  DatasetBoundingBox box = getVoxelBoundingBox();
  const BufferReader<bool> read = bufferReader<bool>(elementType);
  unsigned char value[kElementBufferSize] = {};
  // Whether the plane at position along axis, within the current box, holds a non-zero element.
  auto planeHoldsNonZero = [&](int axis, int position) {
    DatasetBoundingBox plane = box;
    plane.start[axis] = plane.end[axis] = position;
    if (plane.isEmpty()) return false;
    for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(plane); it.valid;
         incrementCoordinatesIterator(plane, it)) {
      getElementByBuffer(it, value);
      if (read(value)) return true;
    }
    return false;
  };
  for (int axis = 0; axis < 4; ++axis) {
    while (box.start[axis] <= box.end[axis] && !planeHoldsNonZero(axis, box.start[axis])) ++box.start[axis];
    while (box.end[axis] >= box.start[axis] && !planeHoldsNonZero(axis, box.end[axis])) --box.end[axis];
  }
  return box;
}

std::list<Vector3D> Dataset::getMaximumValueWorldCoordinatesList(int count, double minDistance, int t) {
  std::list<Vector3D> result;
  if (!(minDistance > 0.0)) minDistance = 1e-7;
  if (count < 1 || !hasData() || t < 0 || t >= size.t) return result;

  // Each round takes the greatest value (the first of equal ones in scan order, z outermost, x
  // innermost) among the voxels not too close to those chosen before. Too close stays too
  // close, so one pass over the voxels in descending order of value finds all rounds' winners.
  // A NaN wins a round only as the first eligible voxel in scan order, as in a plain scan.
  const std::int64_t voxelCount = static_cast<std::int64_t>(size.x) * size.y * size.z;
  std::vector<double> values;
  std::vector<std::uint32_t> byValue;
  try {
    values.reserve(static_cast<std::size_t>(voxelCount));
    byValue.reserve(static_cast<std::size_t>(voxelCount));
  } catch (const std::bad_alloc&) {
    return result;
  } catch (const std::length_error&) {
    return result;
  }
  const DatasetBoundingBox step(DatasetCoordinates(0, 0, 0, t, 0), DatasetCoordinates(size.x - 1, size.y - 1, size.z - 1, t, 0));
  const BufferReader<double> read = bufferReader<double>(elementType);
  unsigned char value[kElementBufferSize] = {};
  for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(step); it.valid; incrementCoordinatesIterator(step, it)) {
    getElementByBuffer(it, value);
    values.push_back(read(value));
  }
  for (std::uint32_t i = 0; i < values.size(); ++i)
    if (!std::isnan(values[i])) byValue.push_back(i);
  std::stable_sort(byValue.begin(), byValue.end(), [&](std::uint32_t a, std::uint32_t b) { return values[a] > values[b]; });

  auto positionOf = [&](std::uint32_t i) {
    return Vector3D(static_cast<double>(i % size.x), static_cast<double>((i / size.x) % size.y),
                    static_cast<double>(i / (static_cast<std::uint32_t>(size.x) * size.y)));
  };
  // Chosen positions in cells at least minDistance wide: a position closer than minDistance lies
  // in one of the 27 cells around.
  const double cellSize = std::max(minDistance, 1.0);
  using Cell = std::array<std::int64_t, 3>;
  std::map<Cell, std::vector<Vector3D>> chosen;
  auto cellOf = [&](const Vector3D& p) {
    return Cell{static_cast<std::int64_t>(std::floor(p.x / cellSize)), static_cast<std::int64_t>(std::floor(p.y / cellSize)),
                static_cast<std::int64_t>(std::floor(p.z / cellSize))};
  };
  std::vector<Vector3D> nearby;
  auto tooClose = [&](std::uint32_t i) {
    const Vector3D p = positionOf(i);
    const Cell centre = cellOf(p);
    nearby.clear();
    for (std::int64_t dz = -1; dz <= 1; ++dz)
      for (std::int64_t dy = -1; dy <= 1; ++dy)
        for (std::int64_t dx = -1; dx <= 1; ++dx) {
          const auto found = chosen.find(Cell{centre[0] + dx, centre[1] + dy, centre[2] + dz});
          if (found != chosen.end()) nearby.insert(nearby.end(), found->second.begin(), found->second.end());
        }
    return Mathematics::pointTooCloseToPoints(p, nearby, minDistance);
  };

  std::size_t scanNext = 0;
  std::size_t valueNext = 0;
  for (int round = 0; round < count; ++round) {
    while (scanNext < values.size() && tooClose(static_cast<std::uint32_t>(scanNext))) ++scanNext;
    if (scanNext == values.size()) break;  // every voxel is too close to the chosen ones
    std::uint32_t winner = static_cast<std::uint32_t>(scanNext);
    if (!std::isnan(values[scanNext])) {
      // Stops at the latest on the voxel at scanNext, which is eligible and not NaN.
      while (valueNext < byValue.size() && tooClose(byValue[valueNext])) ++valueNext;
      if (valueNext < byValue.size()) winner = byValue[valueNext];
    }
    const Vector3D p = positionOf(winner);
    chosen[cellOf(p)].push_back(p);
    const WorldCoordinates w = worldEmbedding.voxelToWorld(
        DatasetCoordinates(static_cast<int>(p.x), static_cast<int>(p.y), static_cast<int>(p.z), t, 0));
    result.emplace_back(w.x, w.y, w.z);
  }
  return result;
}

double Dataset::boundsCheckedElement(const DatasetCoordinates& c, double outside) {
  return areCoordinatesInside(c) ? getElement<double>(c) : outside;
}

double Dataset::planeInterpolatedElement(double x, double y, int z, int t, double outside, int method) {
  if (method == 0)
    return boundsCheckedElement(DatasetCoordinates(Mathematics::round(x), Mathematics::round(y), z, t, 0), outside);
  if (method != 1) return 0.0;
  const AxisSamples sx = linearSamples(x);
  const AxisSamples sy = linearSamples(y);
  double result = 0.0;
  for (int j = 0; j < 2; ++j)
    for (int i = 0; i < 2; ++i)
      result += sx.weight[i] * sy.weight[j] *
                boundsCheckedElement(DatasetCoordinates(sx.position[i], sy.position[j], z, t, 0), outside);
  return result;
}

double Dataset::planeInterpolatedWorldElement(double, double, int, int, double, int) { return 0.0; }

double Dataset::spaceInterpolatedElement(double x, double y, double z, int t, double outside, int method) {
  if (method == 0)
    return boundsCheckedElement(
        DatasetCoordinates(Mathematics::round(x), Mathematics::round(y), Mathematics::round(z), t, 0), outside);
  if (method != 1) return 0.0;
  const AxisSamples sx = linearSamples(x);
  const AxisSamples sy = linearSamples(y);
  const AxisSamples sz = linearSamples(z);
  double result = 0.0;
  for (int k = 0; k < 2; ++k)
    for (int j = 0; j < 2; ++j)
      for (int i = 0; i < 2; ++i)
        result += sx.weight[i] * sy.weight[j] * sz.weight[k] *
                  boundsCheckedElement(DatasetCoordinates(sx.position[i], sy.position[j], sz.position[k], t, 0), outside);
  return result;
}

double Dataset::spaceInterpolatedWorldElement(double x, double y, double z, int t, double outside, int method) {
  const WorldCoordinates v = worldEmbedding.worldToExactVoxel(WorldCoordinates(x, y, z, 0.0));
  return spaceInterpolatedElement(v.x, v.y, v.z, t, outside, method);
}

double Dataset::correlatedElement(const DatasetCoordinates& c, Dataset* other, const DatasetCoordinates& otherC,
                                  double outside) {
  const TemplateSums sums = sumTemplate(*this, c, other, otherC);
  return sums.fits ? sums.dot : outside;
}

double Dataset::vectorSimilarityElement(const DatasetCoordinates& c, Dataset* other, const DatasetCoordinates& otherC,
                                        double outside) {
  const TemplateSums sums = sumTemplate(*this, c, other, otherC);
  if (!sums.fits || sums.imageSquares == 0.0) return outside;
  const double cosine = sums.dot / std::sqrt(sums.imageSquares);
  const long double pi = std::numbers::pi_v<long double>;
  return static_cast<double>((pi - static_cast<long double>(std::acos(cosine))) / pi);
}

double Dataset::cosSimilarityElement(const DatasetCoordinates& c, Dataset* other, const DatasetCoordinates& otherC,
                                     double outside) {
  const TemplateSums sums = sumTemplate(*this, c, other, otherC);
  if (!sums.fits) return outside;
  if (Mathematics::areSimilarWithTolerance(sums.imageSquares, 0.0, 1e-7)) return 0.0;
  return (sums.dot / std::sqrt(sums.imageSquares) + 1.0) * 0.5;
}

Dataset* Dataset::correlate(Dataset* other, const DatasetCoordinates& otherC, double outside) {
  return measureEverywhere(*this, [&](const DatasetCoordinates& c) { return correlatedElement(c, other, otherC, outside); });
}

Dataset* Dataset::vectorSimilarity(Dataset* other, const DatasetCoordinates& otherC, double outside) {
  return measureEverywhere(*this,
                           [&](const DatasetCoordinates& c) { return vectorSimilarityElement(c, other, otherC, outside); });
}

Dataset* Dataset::cosSimilarity(Dataset* other, const DatasetCoordinates& otherC, double outside) {
  return measureEverywhere(*this, [&](const DatasetCoordinates& c) { return cosSimilarityElement(c, other, otherC, outside); });
}

WorldBoundingBox Dataset::getMaximumFitWorldAABB() const {
  return getMaximumFitWorldAABBfromVoxelAABB(getVoxelBoundingBox());
}

WorldBoundingBox Dataset::getMaximumFitWorldAABBfromVoxelAABB(const DatasetBoundingBox& box) const {
  WorldBoundingBox world;
  for (int corner = 0; corner < 8; ++corner) {
    const DatasetCoordinates p((corner & 1) ? box.end.x : box.start.x, (corner & 2) ? box.end.y : box.start.y,
                               (corner & 4) ? box.end.z : box.start.z, box.start.t, 0);
    const WorldCoordinates w = worldEmbedding.voxelToWorld(p);
    for (int k = 0; k < 4; ++k) {
      world.start[k] = corner == 0 ? w[k] : std::min(world.start[k], w[k]);
      world.end[k] = corner == 0 ? w[k] : std::max(world.end[k], w[k]);
    }
  }
  return world;
}

DatasetBoundingBox Dataset::getMaximumFitVoxelAABBfromWorldAABB(const WorldBoundingBox& box) const {
  const WorldCoordinates lower = worldEmbedding.worldToExactVoxel(box.start);
  const WorldCoordinates upper = worldEmbedding.worldToExactVoxel(box.end);
  DatasetBoundingBox voxels(DatasetCoordinates(0, 0, 0, Mathematics::round(lower.t), 0),
                            DatasetCoordinates(0, 0, 0, Mathematics::round(upper.t), 0));
  // A corner half-way between two voxels moves inwards.
  for (int k = 0; k < 3; ++k) {
    voxels.start[k] = Mathematics::round(Mathematics::pointFiveValue(lower[k]) ? std::ceil(lower[k]) : lower[k]);
    voxels.end[k] = Mathematics::round(Mathematics::pointFiveValue(upper[k]) ? std::floor(upper[k]) : upper[k]);
  }
  return voxels;
}

double Dataset::voxelCountToVolume(unsigned int count) const {
  const WorldCoordinates& spacing = worldEmbedding.getVoxelSpacing();
  return count * spacing.x * spacing.y * spacing.z;
}

vtkImageData* Dataset::toImageData(int t, bool withWorldEmbedding) {
  const int scalarType = scalarTypeOfElementType(elementType);
  if (scalarType == 0 || !hasData() || t < 0 || t >= size.t) return nullptr;
  vtkImageData* image = vtkImageData::New();
  image->SetDimensions(size.x, size.y, size.z);
  image->AllocateScalars(scalarType, 1);
  vtkDataArray* scalars = image->GetPointData()->GetScalars();
  void* block = scalars != nullptr ? scalars->GetVoidPointer(0) : nullptr;
  if (block == nullptr ||
      scalars->GetNumberOfTuples() != static_cast<vtkIdType>(size.x) * size.y * size.z) {
    image->Delete();
    return nullptr;
  }
  if (withWorldEmbedding) {
    const WorldCoordinates& spacing = worldEmbedding.getVoxelSpacing();
    const WorldCoordinates& origin = worldEmbedding.getDatasetOrigin();
    image->SetSpacing(spacing.x, spacing.y, spacing.z);
    image->SetOrigin(origin.x, origin.y, origin.z);
  } else {
    image->SetSpacing(1.0, 1.0, 1.0);
    image->SetOrigin(0.0, 0.0, 0.0);
  }
  const DatasetBoundingBox step(DatasetCoordinates(0, 0, 0, t, 0), DatasetCoordinates(size.x - 1, size.y - 1, size.z - 1, t, 0));
  dispatchElementType(elementType, [&]<typename T>() {
    if constexpr (!std::is_same_v<T, long double>) {
      using Scalar = std::conditional_t<std::is_same_v<T, bool>, signed char, T>;
      Scalar* next = static_cast<Scalar*>(block);
      unsigned char value[kElementBufferSize] = {};
      for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(step); it.valid; incrementCoordinatesIterator(step, it)) {
        getElementByBuffer(it, value);
        *next++ = readBufferAs<Scalar, T>(value);
      }
    }
  });
  return image;
}

void Dataset::fromImageData(vtkImageData* image, int t) {
  if (image == nullptr || image->GetPointData() == nullptr) return;
  vtkDataArray* scalars = image->GetPointData()->GetScalars();
  if (scalars == nullptr) return;
  const TARVElementType type = elementTypeOfScalarType(scalars->GetDataType());
  if (type == TARV_ELEMENT_TYPE_NO_TYPE) return;

  // Refuse images whose geometry and scalars disagree (as broken files can give).
  int dimensions[3] = {0, 0, 0};
  image->GetDimensions(dimensions);
  std::int64_t count = 1;
  for (int k = 0; k < 3; ++k) {
    if (dimensions[k] < 1 || count >= kElementCountLimit / dimensions[k]) return;
    count *= dimensions[k];
  }
  const int components = scalars->GetNumberOfComponents();
  const std::size_t valueSize = static_cast<std::size_t>(scalars->GetDataTypeSize());
  const unsigned char* block = static_cast<const unsigned char*>(scalars->GetVoidPointer(0));
  if (components < 1 || scalars->GetNumberOfTuples() < count || block == nullptr) return;
  if (isStorableElementType(type) && valueSize != DatasetMemory::getElementTypeByteSize(type)) return;

  const bool inPlace = hasData() && size.x == dimensions[0] && size.y == dimensions[1] && size.z == dimensions[2] &&
                       elementType == type && t >= 0 && t < size.t;
  if (!inPlace)
    newDataset(DatasetCoordinates(dimensions[0], dimensions[1], dimensions[2], 1, 1), type, DatasetWorldEmbedding());

  double origin[3];
  double spacing[3];
  image->GetOrigin(origin);
  image->GetSpacing(spacing);
  const double originT = worldEmbedding.getDatasetOrigin().t;
  const double spacingT = worldEmbedding.getVoxelSpacing().t;
  worldEmbedding.setDatasetOrigin(WorldCoordinates(origin[0], origin[1], origin[2], originT));
  worldEmbedding.setVoxelSpacing(WorldCoordinates(spacing[0], spacing[1], spacing[2], spacingT));
  std::cerr << kNonAxialWarning << std::endl;

  if (hasData() && t >= 0 && t < size.t) {
    const DatasetBoundingBox step(DatasetCoordinates(0, 0, 0, t, 0),
                                  DatasetCoordinates(dimensions[0] - 1, dimensions[1] - 1, dimensions[2] - 1, t, 0));
    const std::size_t stride = valueSize * static_cast<std::size_t>(components);
    unsigned char value[kElementBufferSize] = {};
    const unsigned char* next = block;
    for (DatasetCoordinatesIterator it = getStartCoordinatesIterator(step); it.valid;
         incrementCoordinatesIterator(step, it), next += stride) {
      std::memcpy(value, next, valueSize);
      setElementByBuffer(it, value);
    }
  }
  updateDependingDatasets();
}

}  // namespace tarv
