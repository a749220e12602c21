#include "core/DatasetCoordinates.h"

namespace tarv {

std::ostream& operator<<(std::ostream& os, const DatasetCoordinates& p) {
  return os << p.x << ", " << p.y << ", " << p.z << ", " << p.t << ", " << p.c;
}

}  // namespace tarv
