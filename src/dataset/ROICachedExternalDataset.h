#ifndef TARV_DATASET_ROICACHEDEXTERNALDATASET_H
#define TARV_DATASET_ROICACHEDEXTERNALDATASET_H

#include "dataset/DatasetCalculationModule.h"
#include "dataset/ROICachedDataset.h"

namespace tarv {

// A region-of-interest cached dataset whose elements come from an exchangeable calculation
// module owned by the dataset. Size, element type and embedding are set by the caller.
class ROICachedExternalDataset : public ROICachedDataset {
public:
  ROICachedExternalDataset();
  ~ROICachedExternalDataset() override;

  bool calculateElement(const DatasetCoordinates& p) override;

  // Takes ownership; a module set before is deleted. Values already computed stay cached.
  void setCalculationModule(DatasetCalculationModule* module);
  void resetCalculationModule();
  DatasetCalculationModule* getCalculationModule() const { return calculationModule; }

private:
  // Rows through the module's calculateRowByBuffer.
  int calculateRow(const DatasetCoordinates& first, int count, bool check);

  DatasetCalculationModule* calculationModule = nullptr;
};

}  // namespace tarv

#endif
