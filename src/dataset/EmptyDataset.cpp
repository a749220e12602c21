#include "dataset/EmptyDataset.h"

namespace tarv {

EmptyDataset::EmptyDataset() : Dataset(true) { setLibraryClass("EmptyDataset"); }

EmptyDataset::~EmptyDataset() = default;

}  // namespace tarv
