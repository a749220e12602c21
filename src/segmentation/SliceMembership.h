#ifndef TARV_SEGMENTATION_SLICEMEMBERSHIP_H
#define TARV_SEGMENTATION_SLICEMEMBERSHIP_H

// The membership bits of one time step and component of a dataset, with the box of its non-zero
// elements and city-block distance bounds to a kind of element.

#include <cstdint>
#include <memory>
#include <vector>

#include "dataset/Dataset.h"
#include "segmentation/Membership.h"
#include "segmentation/SliceReaders.h"

namespace tarv::segmentation {

inline bool holdsTimeStep(Dataset* d, int t) { return d != nullptr && d->hasData() && t >= 0 && t < d->getSize().t; }

// An inclusive box in x, y and z.
struct Box3 {
  Index start[3] = {0, 0, 0};
  Index end[3] = {-1, -1, -1};
  bool isEmpty() const { return start[0] > end[0] || start[1] > end[1] || start[2] > end[2]; }
};

// Membership bits of one time step and component of a dataset. With an array they are read once
// up front (with the box of the non-zero elements); without one, or when it cannot be allocated,
// every query reads the dataset.
class SliceMembership {
public:
  SliceMembership(Dataset* d, int t, int c, bool withArray);

  Index size(int k) const { return n[k]; }
  // Holds every non-zero element (the whole slice when not known more tightly).
  const Box3& getObjectBox() const { return objectBox; }

  // Prepares lowerDistance for the elements carrying bit: their exact city-block distance,
  // capped at 65535 and kept as a lower bound. Needs the array; without memory for it every
  // bound stays 0.
  void computeDistances(unsigned char bit);

  // No target element lies nearer to (x, y, z) than this city-block distance.
  Index lowerDistance(Index x, Index y, Index z) const {
    if (distances.empty() || !isInside(x, y, z)) return 0;
    return distances[static_cast<std::size_t>((z * n[1] + y) * n[0] + x)];
  }

  unsigned char flags(Index x, Index y, Index z) {
    if (!bits.empty()) return bits[static_cast<std::size_t>((z * n[1] + y) * n[0] + x)];
    unsigned char f = reader->at(static_cast<int>(x), static_cast<int>(y), static_cast<int>(z));
    if ((f & nonZero) && isOnBorder(x, y, z)) f |= border;
    return f;
  }

private:
  bool isInside(Index x, Index y, Index z) const {
    return x >= 0 && x < n[0] && y >= 0 && y < n[1] && z >= 0 && z < n[2];
  }
  // Whether a face neighbour of a non-zero element is outside or zero (-x, +x, -y, +y, -z, +z).
  bool isOnBorder(Index x, Index y, Index z);
  void fillArray();

  std::unique_ptr<SliceReader> reader;
  Index n[3] = {0, 0, 0};
  Box3 objectBox;
  std::vector<unsigned char> bits;
  std::vector<std::uint16_t> distances;
};

// The elements of the slice that read as true.
unsigned int countReadsTrue(SliceMembership& slice);

}  // namespace tarv::segmentation

#endif
