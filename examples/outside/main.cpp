// A tiny application built against the installed tarv package: a dataset, and a file written and
// read back through the format registry.
#include <cstdio>
#include <iostream>

#include "core/DatasetCoordinates.h"
#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"
#include "formats/FormatRegistry.h"

int main() {
  tarv::DatasetHandle handle(new tarv::Dataset(true));
  tarv::Dataset* d = tarv::GetRawPtr(handle);
  d->newDataset<float>(tarv::DatasetCoordinates(8, 8, 8, 1, 1), tarv::DatasetWorldEmbedding());
  d->setElement<float>(tarv::DatasetCoordinates(1, 2, 3, 0, 0), 4.5f);
  const double v = d->getElement<double>(tarv::DatasetCoordinates(1, 2, 3, 0, 0));
  std::cout << "outside application: element (1, 2, 3, 0, 0) = " << v << ", maximum = " << d->getMaximumValue()
            << std::endl;

  const char* path = "outside-application.nii.gz";
  const tarv::Status written = tarv::formats::writeDatasetFile(d, path, tarv::formats::FileFormat::niftiGz, {});
  tarv::formats::ReadRequest request;
  request.format = tarv::formats::formatToRead(path).value_or(tarv::formats::FileFormat::raw);
  const tarv::Result<tarv::formats::OpenedFile> read = tarv::formats::readDatasetFile(path, request);
  std::remove(path);
  if (!written.ok() || !read.ok()) {
    std::cerr << "outside application: " << (written.ok() ? read.status() : written).toString() << std::endl;
    return 1;
  }
  const double back = tarv::GetRawPtr(read->handle)->getElement<double>(tarv::DatasetCoordinates(1, 2, 3, 0, 0));
  std::cout << "outside application: read back from " << path << ": " << back << std::endl;
  return v == 4.5 && back == 4.5 ? 0 : 1;
}
