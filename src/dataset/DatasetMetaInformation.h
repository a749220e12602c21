#ifndef TARV_DATASET_DATASETMETAINFORMATION_H
#define TARV_DATASET_DATASETMETAINFORMATION_H

namespace tarv {

// Polymorphic root of per-dataset meta information.
class DatasetMetaInformation {
public:
  virtual ~DatasetMetaInformation();
};

}  // namespace tarv

#endif
