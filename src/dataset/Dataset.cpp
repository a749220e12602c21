#include "dataset/Dataset.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <numbers>

#include "analysis/BoxExtraction.h"
#include "analysis/ElementRewrites.h"
#include "analysis/ElementStatistics.h"
#include "analysis/LinearInterpolation.h"
#include "analysis/MaximumValuePositions.h"
#include "analysis/TemplateMatching.h"
#include "core/Mathematics.h"
#include "dataset/ArrayDatasetMemory.h"
#include "bulk/PlainElements.h"
#include "dataset/DependentDataset.h"
#include "elementtypes/ElementOperations.h"
#include "vtkbridge/VtkImageConversion.h"

namespace tarv {

Dataset::Dataset(bool createMemory) {
  setLibraryClass("Dataset");
  if (!createMemory) return;
  memory = new ArrayDatasetMemory();
  elementBuffer = static_cast<unsigned char*>(std::calloc(kElementBufferSize, 1));
  readBuffer = static_cast<unsigned char*>(std::calloc(kElementBufferSize, 1));
}

Dataset::~Dataset() {
  if (memory) memory->release();
  unregisterDependingDatasets();
  resetMetaInformations();
  delete memory;
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
  if (bulk::findMinimumAndMaximum(*this, minimum, maximum)) {
    // A plain in-memory dataset: the same walk over its memory, the element type dispatched once.
    cachedMinimumValue = minimum;
    cachedMaximumValue = maximum;
    minimumAndMaximumValueCacheStatus = true;
    return;
  }
  analysis::RunningRange range;
  for (DatasetCoordinatesIterator it = memory->getStartCoordinatesIterator(); it.valid;
       memory->incrementCoordinatesIterator(it))
    range.add(getElement<double>(it));
  cachedMinimumValue = range.minimum;
  cachedMaximumValue = range.maximum;
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

using analysis::AxisSamples;
using analysis::TemplateSums;

// A source that may be null: its element type and size as the callee reads them (which then
// only updates the dependants).
TARVElementType elementTypeOf(const Dataset* d) { return d != nullptr ? d->getElementType() : TARV_ELEMENT_TYPE_NO_TYPE; }
DatasetCoordinates sizeOf(const Dataset* d) { return d != nullptr ? d->getSize() : DatasetCoordinates(); }

// Where there is nothing to do, the dependants are still updated; returns whether that is so.
bool updatedWithoutChange(Dataset& d, bool nothingToDo) {
  if (nothingToDo) d.updateDependingDatasets();
  return nothingToDo;
}

}  // namespace

void Dataset::copyFrom(Dataset* source) {
  if (source != nullptr && source->memory != nullptr) {
    source->calculateFullDataset(nullptr);
    const DatasetWorldEmbedding embedding = source->worldEmbedding;
    const ModalityLUT lut = source->modalityLUT;
    DatasetMemory* copy = nullptr;
    if (source != this && getPlainElements() != nullptr && source->getPlainElements() != nullptr) {
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
  convertPartFrom(source, elementTypeOf(source), box);
}

void Dataset::convertPartFrom(Dataset* source, TARVElementType type, const DatasetBoundingBox& box) {
  if (updatedWithoutChange(*this, source == nullptr || !source->hasData() || !isStorableElementType(type))) return;
  if (analysis::feedsInto(this, source)) {
    // Re-initialising this dataset would change what is read: extract into a copy first.
    Dataset part(true);
    part.convertPartFrom(source, type, box);
    copyFrom(&part);
    return;
  }
  analysis::extractBox(*this, source, type, source->fitBoxToInterior(box));
  updateDependingDatasets();
}

void Dataset::copySpaceFrom(Dataset* source, int t) { convertSpaceFrom(source, elementTypeOf(source), t); }

void Dataset::convertSpaceFrom(Dataset* source, TARVElementType type, int t) {
  const DatasetCoordinates n = sizeOf(source);
  convertPartFrom(source, type,
                  DatasetBoundingBox(DatasetCoordinates(0, 0, 0, t, 0), DatasetCoordinates(n.x - 1, n.y - 1, n.z - 1, t, n.c - 1)));
}

void Dataset::copyPlaneFrom(Dataset* source, int z, int t) { convertPlaneFrom(source, elementTypeOf(source), z, t); }

void Dataset::convertPlaneFrom(Dataset* source, TARVElementType type, int z, int t) {
  const DatasetCoordinates n = sizeOf(source);
  convertPartFrom(source, type,
                  DatasetBoundingBox(DatasetCoordinates(0, 0, z, t, 0), DatasetCoordinates(n.x - 1, n.y - 1, z, t, n.c - 1)));
}

void Dataset::copyNonZeroBoxFrom(Dataset* source, const DatasetCoordinates& margin) {
  convertNonZeroBoxFrom(source, elementTypeOf(source), margin);
}

void Dataset::convertNonZeroBoxFrom(Dataset* source, TARVElementType type, const DatasetCoordinates& margin) {
  if (updatedWithoutChange(*this, source == nullptr || !source->hasData() || !isStorableElementType(type))) return;
  if (analysis::feedsInto(this, source)) {
    Dataset part(true);
    part.convertNonZeroBoxFrom(source, type, margin);
    if (part.hasData())
      copyFrom(&part);
    else
      updateDependingDatasets();
    return;
  }
  const std::optional<DatasetBoundingBox> box = analysis::widenedBox(source->getNonZeroVoxelBoundingBox(), margin);
  if (box) analysis::extractBox(*this, source, type, *box);
  updateDependingDatasets();
}

void Dataset::copyAndPlaceBlockFrom(Dataset* source, const DatasetCoordinates& position, const DatasetBoundingBox& box) {
  if (updatedWithoutChange(*this, source == nullptr || !source->hasData() || !hasData())) return;
  if (source == this) {
    // Reads and writes would overlap: place a copy of the block.
    Dataset block(true);
    block.copyPartFrom(this, box);
    copyAndPlaceBlockFrom(&block, position, block.getVoxelBoundingBox());
    return;
  }
  analysis::placeBlock(*this, source, position, box);
  updateDependingDatasets();
}

void Dataset::copyAndPlaceDatasetFrom(Dataset* source, const DatasetCoordinates& position) {
  copyAndPlaceBlockFrom(source, position, source != nullptr ? source->getVoxelBoundingBox() : DatasetBoundingBox());
}

void Dataset::copyAndPlaceFirstSliceFrom(Dataset* source, int z) {
  const DatasetCoordinates n = sizeOf(source);
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
  analysis::replaceElementsWhere(*this, newValue, [oldValue](double v) { return v == oldValue; });
}

void Dataset::forceMinimumElementValue(double minimum) {
  analysis::replaceElementsWhere(*this, minimum, [minimum](double v) { return minimum > v; });
}

void Dataset::forceMaximumElementValue(double maximum) {
  analysis::replaceElementsWhere(*this, maximum, [maximum](double v) { return v > maximum; });
}

void Dataset::flipXAxis() { analysis::flipAxis(*this, 0); }

void Dataset::flipYAxis() { analysis::flipAxis(*this, 1); }

void Dataset::flipZAxis() { analysis::flipAxis(*this, 2); }

void Dataset::normalizeVectorLength() { analysis::normalizeVectorLength(*this); }

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

double Dataset::getMinimumValue(const DatasetBoundingBox& box) { return analysis::extremeValueInBox(*this, box, false); }

double Dataset::getMaximumValue(const DatasetBoundingBox& box) { return analysis::extremeValueInBox(*this, box, true); }

double Dataset::getAverageValue(const DatasetBoundingBox& box) {
  const unsigned int n = getBoxVoxelCount(box);
  if (n < 1) return 0.0;
  double sum = 0.0;
  analysis::visitClippedBox(*this, box, [&](double v) { sum += v; });
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
  analysis::visitClippedBox(*this, box, [&](double v) {
    if ((min <= v && v <= max) != invert) ++count;
  });
  return count;
}

DatasetBoundingBox Dataset::getNonZeroVoxelBoundingBox() { return analysis::nonZeroVoxelBoundingBox(*this); }

std::list<Vector3D> Dataset::getMaximumValueWorldCoordinatesList(int count, double minDistance, int t) {
  if (!(minDistance > 0.0)) minDistance = 1e-7;
  if (count < 1 || !hasData() || t < 0 || t >= size.t) return {};
  return analysis::spacedMaximumWorldPositions(*this, count, minDistance, t);
}

double Dataset::boundsCheckedElement(const DatasetCoordinates& c, double outside) {
  return areCoordinatesInside(c) ? getElement<double>(c) : outside;
}

double Dataset::planeInterpolatedElement(double x, double y, int z, int t, double outside, int method) {
  if (method == 0)
    return boundsCheckedElement(DatasetCoordinates(Mathematics::round(x), Mathematics::round(y), z, t, 0), outside);
  if (method != 1) return 0.0;
  const AxisSamples sx = analysis::linearSamples(x);
  const AxisSamples sy = analysis::linearSamples(y);
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
  const AxisSamples sx = analysis::linearSamples(x);
  const AxisSamples sy = analysis::linearSamples(y);
  const AxisSamples sz = analysis::linearSamples(z);
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
  const TemplateSums sums = analysis::sumTemplate(*this, c, other, otherC);
  return sums.fits ? sums.dot : outside;
}

double Dataset::vectorSimilarityElement(const DatasetCoordinates& c, Dataset* other, const DatasetCoordinates& otherC,
                                        double outside) {
  const TemplateSums sums = analysis::sumTemplate(*this, c, other, otherC);
  if (!sums.fits || sums.imageSquares == 0.0) return outside;
  const double cosine = sums.dot / std::sqrt(sums.imageSquares);
  const long double pi = std::numbers::pi_v<long double>;
  return static_cast<double>((pi - static_cast<long double>(std::acos(cosine))) / pi);
}

double Dataset::cosSimilarityElement(const DatasetCoordinates& c, Dataset* other, const DatasetCoordinates& otherC,
                                     double outside) {
  const TemplateSums sums = analysis::sumTemplate(*this, c, other, otherC);
  if (!sums.fits) return outside;
  if (Mathematics::areSimilarWithTolerance(sums.imageSquares, 0.0, 1e-7)) return 0.0;
  return (sums.dot / std::sqrt(sums.imageSquares) + 1.0) * 0.5;
}

Dataset* Dataset::correlate(Dataset* other, const DatasetCoordinates& otherC, double outside) {
  return analysis::measureEverywhere(*this, [&](const DatasetCoordinates& c) { return correlatedElement(c, other, otherC, outside); });
}

Dataset* Dataset::vectorSimilarity(Dataset* other, const DatasetCoordinates& otherC, double outside) {
  return analysis::measureEverywhere(*this,
                           [&](const DatasetCoordinates& c) { return vectorSimilarityElement(c, other, otherC, outside); });
}

Dataset* Dataset::cosSimilarity(Dataset* other, const DatasetCoordinates& otherC, double outside) {
  return analysis::measureEverywhere(*this, [&](const DatasetCoordinates& c) { return cosSimilarityElement(c, other, otherC, outside); });
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
  return vtkbridge::imageDataOfTimeStep(*this, t, withWorldEmbedding);
}

void Dataset::fromImageData(vtkImageData* image, int t) { vtkbridge::fillTimeStepFromImageData(*this, image, t); }

}  // namespace tarv
