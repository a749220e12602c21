#ifndef TARV_DATASET_DEPENDENTDATASET_H
#define TARV_DATASET_DEPENDENTDATASET_H

#include <istream>
#include <list>
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

protected:
  // True when the dataset is this one or computed from it (directly or further down).
  bool wouldCloseCycle(const Dataset* source) const;

  std::list<int> tempSourceIDList;
  std::vector<Dataset*> sourceDatasets;
  bool dynamicallyCached = true;
  bool inputValid = false;
};

}  // namespace tarv

#endif
