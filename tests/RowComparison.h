#ifndef TARV_TESTS_ROWCOMPARISON_H
#define TARV_TESTS_ROWCOMPARISON_H

// Helpers for the tests that compare computing whole rows of elements with computing them one by
// one. A filter subclass that overrides calculateElement (testing::Counted) is never computed by
// rows, and a source subclass that overrides element access (testing::CountingSource) is never read
// by rows: a graph built from those takes the element-by-element path, the same graph built from
// the library's classes the row path. Both must leave every dataset in the same state.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "FilterTestSupport.h"
#include "dataset/CachedDataset.h"
#include "dataset/Dataset.h"

namespace tarv::testing {

// Random values of the dataset's element type; every kind of float value (NaN, infinities, signed
// zeros, huge and tiny ones) appears now and then when special is set.
inline void fillRandom(Dataset& d, std::mt19937& rng, bool special = false) {
  std::uniform_real_distribution<double> value(-1000.0, 1000.0);
  std::uniform_int_distribution<int> pick(0, 99);
  const double specials[] = {std::nan(""), INFINITY, -INFINITY, 0.0, -0.0, 1e300, -1e-300, 3.0e38};
  forEachVoxel(d.getSize(), [&](const DatasetCoordinates& p) {
    DatasetCoordinates q = p;
    for (q.c = 0; q.c < d.getSize().c; ++q.c) {
      const int k = pick(rng);
      const double v = special && k < 8 ? specials[k] : value(rng);
      d.setElement<double>(q, v);
    }
  });
}

// The raw bytes of an element (what getElementReferenceByBuffer gives).
inline std::vector<unsigned char> rawElement(CachedDataset& d, const DatasetCoordinates& p) {
  std::vector<unsigned char> bytes(16, 0);
  d.getElementReferenceByBuffer(p, bytes.data());
  bytes.resize(d.getElementByteSize() == 0 ? 1 : d.getElementByteSize());
  return bytes;
}

// Both elements are NaN. Which of two NaN operands an addition passes on (and so the sign and
// payload of a NaN result) is the compiler's choice of operand order, on either path; every other
// value must agree to the last bit.
inline bool bothNaN(CachedDataset& a, CachedDataset& b, const DatasetCoordinates& p) {
  return std::isnan(a.getElementReference<double>(p)) && std::isnan(b.getElementReference<double>(p));
}

// The same cache region, the same status of every element of it, the same bytes in every computed
// element, the same value-range status and memory usage.
inline void expectSameCache(CachedDataset& a, CachedDataset& b, const std::string& what) {
  SCOPED_TRACE(what);
  ASSERT_EQ(a.getSize(), b.getSize());
  const DatasetBoundingBox ra = a.getCacheRegion();
  const DatasetBoundingBox rb = b.getCacheRegion();
  ASSERT_EQ(ra.start, rb.start);
  ASSERT_EQ(ra.end, rb.end);
  EXPECT_EQ(a.getMemoryUsage(), b.getMemoryUsage());
  EXPECT_EQ(a.getMinimumAndMaximumValueCacheStatus(), b.getMinimumAndMaximumValueCacheStatus());
  if (!a.hasData() || ra.start.x < 0) return;
  int differences = 0;
  DatasetCoordinates p;
  for (p.t = ra.start.t; p.t <= ra.end.t; ++p.t)
    for (p.z = ra.start.z; p.z <= ra.end.z; ++p.z)
      for (p.y = ra.start.y; p.y <= ra.end.y; ++p.y)
        for (p.x = ra.start.x; p.x <= ra.end.x; ++p.x)
          for (p.c = ra.start.c; p.c <= ra.end.c; ++p.c) {
            const bool sa = a.getElementCacheStatus(p);
            const bool sb = b.getElementCacheStatus(p);
            bool same = sa == sb;
            if (same && sa) same = rawElement(a, p) == rawElement(b, p) || bothNaN(a, b, p);
            if (!same && ++differences <= 5)
              ADD_FAILURE() << "element (" << p.x << "," << p.y << "," << p.z << "," << p.t << "," << p.c
                            << ") status " << sa << " / " << sb << ", value " << a.getElementReference<double>(p)
                            << " / " << b.getElementReference<double>(p);
          }
  EXPECT_EQ(differences, 0);
}

// Records every report and stops the work at the given report (never when negative).
class RecordingProgress : public Progress {
public:
  explicit RecordingProgress(int stopAt = -1) : stopAt(stopAt) {}
  void setProgress(double fraction) override { fractions.push_back(fraction); }
  bool shouldStop() override { return stopAt >= 0 && static_cast<int>(fractions.size()) > stopAt; }
  int stopAt;
  std::vector<double> fractions;
};

// The same random sequence of reads, box calculations and a (possibly stopped) full calculation on
// both datasets, which must be alike graphs over the same sources; then their caches compared.
inline void evaluateAlike(CachedDataset& rows, CachedDataset& elements, std::mt19937& rng) {
  const DatasetCoordinates s = rows.getSize();
  ASSERT_EQ(s, elements.getSize());
  auto any = [&](int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); };
  const int mode = any(4);
  if (mode == 1 || mode == 3) {
    DatasetCoordinates a(any(s.x), any(s.y), any(s.z), any(s.t), 0);
    DatasetCoordinates b(any(s.x), any(s.y), any(s.z), any(s.t), s.c - 1);
    for (int k = 0; k < 4; ++k)
      if (a[k] > b[k]) std::swap(a[k], b[k]);
    rows.calculate(DatasetBoundingBox(a, b));
    elements.calculate(DatasetBoundingBox(a, b));
  }
  if (mode >= 2) {
    for (int i = 0; i < 4; ++i) {
      const DatasetCoordinates p(any(s.x), any(s.y), any(s.z), any(s.t), 0);
      const double a = rows.getElement<double>(p);
      const double b = elements.getElement<double>(p);
      EXPECT_TRUE(std::memcmp(&a, &b, sizeof(double)) == 0 || (std::isnan(a) && std::isnan(b)));
    }
  }
  const int stopAt = any(3) == 0 ? any(3) : -1;
  RecordingProgress rowsProgress(stopAt), elementsProgress(stopAt);
  rows.calculateFullDataset(&rowsProgress);
  elements.calculateFullDataset(&elementsProgress);
  EXPECT_EQ(rowsProgress.fractions, elementsProgress.fractions);
  expectSameCache(rows, elements, "evaluated dataset");
}

}  // namespace tarv::testing

#endif
