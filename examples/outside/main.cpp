// A tiny application built against the installed tarv package.
#include <iostream>

#include "core/DatasetCoordinates.h"
#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"

int main() {
  tarv::DatasetHandle handle(new tarv::Dataset(true));
  tarv::Dataset* d = tarv::GetRawPtr(handle);
  d->newDataset<float>(tarv::DatasetCoordinates(8, 8, 8, 1, 1), tarv::DatasetWorldEmbedding());
  d->setElement<float>(tarv::DatasetCoordinates(1, 2, 3, 0, 0), 4.5f);
  const double v = d->getElement<double>(tarv::DatasetCoordinates(1, 2, 3, 0, 0));
  std::cout << "outside application: element (1, 2, 3, 0, 0) = " << v << ", maximum = " << d->getMaximumValue()
            << std::endl;
  return v == 4.5 ? 0 : 1;
}
