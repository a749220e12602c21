#include "dataset/DatasetHandle.h"

#include <iostream>

namespace tarv {

DatasetHandle::DatasetHandle(Dataset* const& d) { acquire(d); }

DatasetHandle::DatasetHandle(const DatasetHandle& other) { acquire(other.dataset); }

DatasetHandle::~DatasetHandle() { acquire(nullptr); }

DatasetHandle& DatasetHandle::operator=(Dataset* const& d) {
  acquire(d);
  return *this;
}

DatasetHandle& DatasetHandle::operator=(const DatasetHandle& other) {
  acquire(other.dataset);
  return *this;
}

void DatasetHandle::acquire(Dataset* const& d) {
  Dataset* const old = dataset;
  Dataset* const next = d;  // d may refer to this handle's own field
  dataset = next;
  if (next != nullptr) next->refer();
  if (old != nullptr) {
    old->unrefer();
    if (!old->isRefered()) delete old;
  }
}

Dataset* GetRawPtr(const DatasetHandle& handle) { return handle.dataset; }

int tarv_init_dataset() { return 0; }

void tarv_load_dataset_message() {
  std::cerr << "Tarvex (TARV), Version " << TARV_VERSION
            << ", Copyright (c) 2026 the tarv developers, all rights reserved"
            << ", Library support:" << " CGAL" << " VTK" << " SSL" << ", built on " << __DATE__ << " at "
            << __TIME__ << std::endl;
  std::cerr << std::endl;
  std::cerr << "This software is confidential and intended for research use by licensed parties only." << std::endl;
  std::cerr << "It is not approved for clinical diagnosis or treatment decisions." << std::endl;
  std::cerr << "Do not copy, distribute or disclose it without prior written permission." << std::endl;
  std::cerr << "Results must be verified by qualified personnel before any use." << std::endl;
  std::cerr << std::endl;
}

namespace {
// Loading the library initialises it, after the standard streams exist.
const std::ios_base::Init streamsReady;
const int libraryInitialised = tarv_init_dataset();
}  // namespace

}  // namespace tarv
