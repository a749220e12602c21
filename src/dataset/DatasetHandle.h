#ifndef TARV_DATASET_DATASETHANDLE_H
#define TARV_DATASET_DATASETHANDLE_H

#include "dataset/Dataset.h"

namespace tarv {

// A reference-counting handle through which datasets are shared; the last handle deletes.
class DatasetHandle {
public:
  DatasetHandle() = default;
  DatasetHandle(Dataset* const& dataset);  // NOLINT: implicit by design, like a raw pointer
  DatasetHandle(const DatasetHandle& other);
  ~DatasetHandle();

  DatasetHandle& operator=(Dataset* const& dataset);
  DatasetHandle& operator=(const DatasetHandle& other);

  // The single place where references change: the new reference is taken before the old one
  // is dropped, so re-assigning the same dataset never deletes it.
  void acquire(Dataset* const& dataset);

  friend Dataset* GetRawPtr(const DatasetHandle& handle);

private:
  Dataset* dataset = nullptr;
};

// The handle's dataset (null when empty); the caller must not delete it.
Dataset* GetRawPtr(const DatasetHandle& handle);

// Library initialisation, run by the library's static initialisation; returns 0.
int tarv_init_dataset();
// Writes the library banner to the standard error stream.
void tarv_load_dataset_message();

}  // namespace tarv

#endif
