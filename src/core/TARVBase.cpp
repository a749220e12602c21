#include "core/TARVBase.h"

namespace tarv {

TARVBase::~TARVBase() = default;

}  // namespace tarv
