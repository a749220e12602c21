#ifndef TARV_DATASET_DATASETCALCULATIONMODULE_H
#define TARV_DATASET_DATASETCALCULATIONMODULE_H

#include "core/DatasetCoordinates.h"
#include "dataset/DatasetMemory.h"

namespace tarv {

// A per-element computation supplied by the application to a ROICachedExternalDataset.
class DatasetCalculationModule {
public:
  DatasetCalculationModule() = default;
  DatasetCalculationModule(const DatasetCalculationModule&) = delete;
  DatasetCalculationModule& operator=(const DatasetCalculationModule&) = delete;

  virtual ~DatasetCalculationModule();
  // Writes the value of the element at the coordinates into the buffer, in the representation
  // of the element type. The result is for the application's own use; the dataset ignores it.
  virtual bool calculateElementByBuffer(const DatasetCoordinates& coordinates, void* elementBuffer,
                                        TARVElementType elementType) = 0;
  // The elements first, first + (1, 0, 0, 0, 0), ... (count of them) into consecutive slots of
  // the element type's byte size, for bulk evaluation. The default calls calculateElementByBuffer
  // for each, in order; a module that computes rows faster overrides it with the same values.
  virtual void calculateRowByBuffer(const DatasetCoordinates& first, int count, void* elements,
                                    TARVElementType elementType);
};

}  // namespace tarv

#endif
