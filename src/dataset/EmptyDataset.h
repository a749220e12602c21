#ifndef TARV_DATASET_EMPTYDATASET_H
#define TARV_DATASET_EMPTYDATASET_H

#include "dataset/Dataset.h"

namespace tarv {

// A plain stored dataset with a type name of its own; the caller initialises and fills it.
class EmptyDataset : public Dataset {
public:
  EmptyDataset();
  ~EmptyDataset() override;
};

}  // namespace tarv

#endif
