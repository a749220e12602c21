#include "dataset/DatasetCalculationModule.h"

namespace tarv {

DatasetCalculationModule::~DatasetCalculationModule() = default;

}  // namespace tarv
