#ifndef TARV_CORE_WORLDBOUNDINGBOX_H
#define TARV_CORE_WORLDBOUNDINGBOX_H

#include "core/WorldCoordinates.h"

namespace tarv {

// An axis-aligned box in world space, from its lower to its upper corner.
class WorldBoundingBox {
public:
  WorldCoordinates start;
  WorldCoordinates end;

  WorldBoundingBox() = default;
  WorldBoundingBox(const WorldCoordinates& start, const WorldCoordinates& end) : start(start), end(end) {}

  bool operator==(const WorldBoundingBox& o) const { return start == o.start && end == o.end; }
  bool operator!=(const WorldBoundingBox& o) const { return !(*this == o); }
};

}  // namespace tarv

#endif
