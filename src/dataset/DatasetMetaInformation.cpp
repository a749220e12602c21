#include "dataset/DatasetMetaInformation.h"

namespace tarv {

DatasetMetaInformation::~DatasetMetaInformation() = default;

}  // namespace tarv
