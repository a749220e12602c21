#include "dataset/EmptyDataset.h"

namespace tarv {

EmptyDataset::EmptyDataset() : Dataset(true) { typeName = "EmptyDataset"; }

EmptyDataset::~EmptyDataset() = default;

}  // namespace tarv
