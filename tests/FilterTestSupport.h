#ifndef TARV_TESTS_FILTERTESTSUPPORT_H
#define TARV_TESTS_FILTERTESTSUPPORT_H

// Helpers shared by the tests of the filter datasets.

#include <functional>
#include <sstream>
#include <string>

#include "dataset/Dataset.h"
#include "dataset/DependentDataset.h"

#include "TestSupport.h"

namespace tarv::testing {

// An in-memory dataset that counts the element reads and the announcements it receives.
class CountingSource : public Dataset {
public:
  CountingSource() : Dataset(true) {}
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) override {
    ++reads;
    return Dataset::getElementByBuffer(p, buffer);
  }
  bool getElementByBuffer(const DatasetCoordinatesIterator& it, void* buffer) override {
    ++reads;
    return Dataset::getElementByBuffer(it, buffer);
  }
  void announceAccess(const DatasetBoundingBox& box) override {
    ++announcements;
    lastAnnouncedBox = box;
  }
  void announceAccessToFullDataset() override { ++fullAnnouncements; }
  void resetCounters() {
    reads = 0;
    announcements = 0;
    fullAnnouncements = 0;
  }

  int reads = 0;
  int announcements = 0;
  int fullAnnouncements = 0;
  DatasetBoundingBox lastAnnouncedBox;
};

// A filter that counts its element calculations.
template <class Filter>
class Counted : public Filter {
public:
  bool calculateElement(const DatasetCoordinates& p) override {
    ++calculations;
    return Filter::calculateElement(p);
  }
  int calculations = 0;
};

// Fills every element of d (component 0 .. size.c - 1) from f, stored as double through the
// dataset's conversion.
inline void fill(Dataset& d, const std::function<double(const DatasetCoordinates&)>& f) {
  const DatasetCoordinates s = d.getSize();
  DatasetCoordinates p;
  for (p.t = 0; p.t < s.t; ++p.t)
    for (p.z = 0; p.z < s.z; ++p.z)
      for (p.y = 0; p.y < s.y; ++p.y)
        for (p.x = 0; p.x < s.x; ++p.x)
          for (p.c = 0; p.c < s.c; ++p.c) d.setElement<double>(p, f(p));
}

// Calls f for every coordinate of a size (component 0 only).
inline void forEachVoxel(const DatasetCoordinates& s, const std::function<void(const DatasetCoordinates&)>& f) {
  DatasetCoordinates p;
  for (p.t = 0; p.t < s.t; ++p.t)
    for (p.z = 0; p.z < s.z; ++p.z)
      for (p.y = 0; p.y < s.y; ++p.y)
        for (p.x = 0; p.x < s.x; ++p.x) f(p);
}

inline std::string describe(DependentDataset& d) {
  std::ostringstream os;
  d.write(os);
  return os.str();
}

inline void readDescription(DependentDataset& d, const std::string& text) {
  std::istringstream is(text);
  d.read(is, false);
}

// The value a float dataset holds for a double computed in the test.
inline double asStoredFloat(double v) { return static_cast<double>(static_cast<float>(v)); }

}  // namespace tarv::testing

#endif
