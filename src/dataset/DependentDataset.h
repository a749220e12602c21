#ifndef TARV_DATASET_DEPENDENTDATASET_H
#define TARV_DATASET_DEPENDENTDATASET_H

#include <istream>
#include <list>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "core/FileReadWrite.h"
#include "dataset/ROICachedDataset.h"

namespace tarv {

// The base of every filter: a dataset computed from source datasets, registered with each
// source so that changes propagate down the graph, and described (not stored) as a block of
// named entries.
class DependentDataset : public ROICachedDataset, public FileReadWrite {
public:
  DependentDataset();
  ~DependentDataset() override;

  bool isInputOk() const override;
  void announceAccess(const DatasetBoundingBox& box) override;
  void announceAccessToFullDataset() override;
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) override;
  void setElementByBuffer(const DatasetCoordinates& p, const void* buffer) override;
  using ROICachedDataset::getElementByBuffer;
  using ROICachedDataset::setElementByBuffer;

  // New virtual operations, in this order.
  void read(std::istream& is, bool flag) override;
  void write(std::ostream& os) override;
  virtual bool isDatasetEquivalent(DependentDataset* other);
  virtual DatasetCoordinates determineSize();
  virtual TARVElementType determineElementType();
  virtual DatasetWorldEmbedding determineWorldEmbedding();
  virtual bool readDatasetSpecificValue(std::string name, std::istream& is) = 0;
  virtual void writeDatasetSpecificValues(std::ostream& os) = 0;
  virtual void checkParametersRegardingTheSourceDatasets();
  virtual void initializeTempFields();
  virtual void setParametersFromTempFields() = 0;

  // Sources (not owned, not reference counted; the first is the primary source).
  void setSourceDataset(Dataset* source);
  void setSourceDatasets(std::vector<Dataset*> sources);
  void changeSourceDataset(Dataset* oldSource, Dataset* newSource);
  void removeSourceDatasets();
  void claimSourceDatasets();
  void releaseSourceDatasets();
  Dataset* getSourceDataset();
  std::vector<Dataset*> getSourceDatasets();
  int getSourceDatasetCount();
  void updateToChangedSourceDatasets();

  bool isDynamicallyCached() const { return dynamicallyCached; }
  void setDynamicallyCached(bool value) { dynamicallyCached = value; }
  bool isInputValid() const { return inputValid; }

  void buildTempIDListsFromReferences();
  void clearTempIDLists();
  // The temporary source-ID list as read.
  std::list<int> getTempSourceIDList() const { return tempSourceIDList; }

  // The box of source i that computing the box of this dataset reads, clipped to the source: the
  // same box for a point-wise filter, the union of the neighbourhoods that fit inside the source
  // for a neighbourhood filter, empty when nothing of it is read. Meaningful for the library's own
  // classes (Dataset::isLibraryClass); bulk evaluation brings these boxes into the sources' caches
  // before computing the box.
  DatasetBoundingBox getSourceRegion(std::size_t i, const DatasetBoundingBox& box) const;
  // Whether an element reads a window of the primary source (of size, placed with centre on the
  // element) rather than the element of the same coordinates; whether it reads its sources at all.
  bool readsSourceNeighbourhood(DatasetCoordinates& size, DatasetCoordinates& centre) const {
    size = neighbourhoodSize;
    centre = neighbourhoodCentre;
    return readsNeighbourhoods;
  }
  bool readsSources() const { return readsSourceElements; }

protected:
  // What the calculation reads of its sources: by default the element of the same coordinates of
  // each; a neighbourhood filter reads windows of the primary source of this size, placed with
  // the centre on the element (a window that does not fit inside the source is not read, and an
  // empty size reads nothing); a filter that reads no source says so.
  void setSourceNeighbourhood(const DatasetCoordinates& size, const DatasetCoordinates& centre) {
    neighbourhoodSize = size;
    neighbourhoodCentre = centre;
    readsNeighbourhoods = true;
  }
  void setReadsNoSourceElements() { readsSourceElements = false; }

  // The bulk path of a point-wise filter, for its calculateRow: the element is formula(v), v being
  // the element of the same coordinates of the first source as getElement<double> reads it.
  template <typename Formula>
  int calculatePointwiseRow(const DatasetCoordinates& first, int count, bool check, Formula formula) {
    Dataset* source = sourceDatasets.empty() ? nullptr : sourceDatasets.front();
    if (source == nullptr || !holdsRow(first, count) || !source->canReadRow(first, count)) return 0;
    if (check) return count;
    const auto values = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(count));
    source->readRowAsElements(first, count, values.get());
    for (int i = 0; i < count; ++i) values[i] = formula(values[i]);
    storeRow(first, count, values.get());
    return count;
  }
  // The bulk path of a neighbourhood filter, for its calculateRow: the element is formula(v), v
  // being source->correlatedElement(p, mask, centre, outside).
  template <typename Formula>
  int calculateCorrelatedRow(Dataset* source, Dataset* mask, const DatasetCoordinates& centre, double outside,
                             const DatasetCoordinates& first, int count, bool check, Formula formula) {
    if (mask == nullptr || source == nullptr || !holdsRow(first, count)) return 0;
    if (!source->correlateRow(mask, centre, outside, first, count, nullptr, true)) return 0;
    if (check) return count;
    const auto values = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(count));
    source->correlateRow(mask, centre, outside, first, count, values.get(), false);
    for (int i = 0; i < count; ++i) values[i] = formula(values[i]);
    storeRow(first, count, values.get());
    return count;
  }

  // True when the dataset is this one or computed from it (directly or further down).
  bool wouldCloseCycle(const Dataset* source) const;

  std::list<int> tempSourceIDList;
  std::vector<Dataset*> sourceDatasets;
  bool dynamicallyCached = true;
  bool inputValid = false;

private:
  bool readsSourceElements = true;
  bool readsNeighbourhoods = false;
  DatasetCoordinates neighbourhoodSize{1, 1, 1, 1, 1};
  DatasetCoordinates neighbourhoodCentre{0, 0, 0, 0, 0};
};

}  // namespace tarv

#endif
