#include "core/Progress.h"

namespace tarv {

Progress::~Progress() = default;
void Progress::setProgress(double) {}
bool Progress::shouldStop() { return false; }

}  // namespace tarv
