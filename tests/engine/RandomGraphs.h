#ifndef TARV_TESTS_ENGINE_RANDOMGRAPHS_H
#define TARV_TESTS_ENGINE_RANDOMGRAPHS_H

// Random filter graphs for comparing bulk evaluation with element-by-element evaluation: random
// sizes, element types, contents, filters of every type with random parameters and random
// sources. Two graphs built from the same seed are alike in everything; one is read element by
// element (getElementByBuffer, which computes through calculateElement only), the other evaluated
// by the path under test. TARV_TEST_SEED=n runs seed n only.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "TestSupport.h"
#include "dataset/CastDataset.h"
#include "dataset/ConstantDataset.h"
#include "dataset/DirectionFilteredVectorLengthDataset.h"
#include "dataset/GradientDataset.h"
#include "dataset/IntervalPlateauDataset.h"
#include "dataset/IntervalThresholdDataset.h"
#include "dataset/LinearTransformationDataset.h"
#include "dataset/ScaleDataset.h"
#include "dataset/SmoothDataset.h"
#include "dataset/VectorLengthDataset.h"

namespace tarv::testing {

// The seeds to run: first .. first + count - 1, or the one of TARV_TEST_SEED.
inline std::vector<unsigned> seedsToRun(unsigned first, unsigned count) {
  if (const char* chosen = std::getenv("TARV_TEST_SEED")) return {static_cast<unsigned>(std::strtoul(chosen, nullptr, 10))};
  std::vector<unsigned> seeds;
  for (unsigned i = 0; i < count; ++i) seeds.push_back(first + i);
  return seeds;
}

struct RandomGraphLimits {
  int largestExtent = 24;
  int largestFilterCount = 7;
  bool timeSteps = true;
};

class RandomGraph {
public:
  RandomGraph(unsigned seed, const RandomGraphLimits& limits) : rng(seed) {
    const DatasetCoordinates size(between(1, limits.largestExtent), between(1, limits.largestExtent),
                                  between(1, limits.largestExtent), limits.timeSteps && between(0, 3) == 0 ? 2 : 1, 1);
    const int inputCount = between(1, 2);
    for (int i = 0; i < inputCount; ++i) {
      auto input = std::make_unique<Dataset>(true);
      input->newDataset(size, randomType(), DatasetWorldEmbedding(WorldCoordinates(0, 0, 0, 0),
                                                                  WorldCoordinates(uniform(0.3, 2.0), uniform(0.3, 2.0),
                                                                                   uniform(0.3, 2.0), 1)));
      fill(*input);
      all.push_back(input.get());
      inputs.push_back(std::move(input));
    }
    const int filterCount = between(1, limits.largestFilterCount);
    for (int i = 0; i < filterCount; ++i) addFilter();
    result = filters.back().get();
    description = "seed " + std::to_string(seed) + ": " + std::to_string(size.x) + "x" + std::to_string(size.y) + "x" +
                  std::to_string(size.z) + "x" + std::to_string(size.t) + ",";
    for (const auto& f : filters) description += " " + f->getTypeName();
  }

  DependentDataset* result = nullptr;
  std::string description;
  // The filters in the order they were made (the result last).
  std::vector<DependentDataset*> nodes() const {
    std::vector<DependentDataset*> list;
    for (const auto& f : filters) list.push_back(f.get());
    return list;
  }

private:
  int between(int low, int high) { return std::uniform_int_distribution<int>(low, high)(rng); }
  double uniform(double low, double high) { return std::uniform_real_distribution<double>(low, high)(rng); }
  TARVElementType randomType() { return static_cast<TARVElementType>(between(TARV_ELEMENT_TYPE_BOOL, TARV_ELEMENT_TYPE_LONG_DOUBLE)); }
  Dataset* anySource() { return all[static_cast<std::size_t>(between(0, static_cast<int>(all.size()) - 1))]; }
  // Later datasets more often: graphs get deep.
  Dataset* recentSource() { return between(0, 2) == 0 ? anySource() : all.back(); }

  void fill(Dataset& d) {
    const double specials[] = {0.0, -0.0, 1e30, -1e30, INFINITY, -INFINITY};
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
      const int kind = between(0, 49);
      d.setElement<double>(it, kind < 6 ? specials[kind] : uniform(-300.0, 300.0));
    }
  }

  void addFilter() {
    std::unique_ptr<DependentDataset> f;
    switch (between(0, 9)) {
      case 0: {
        auto d = std::make_unique<CastDataset>();
        d->setParameters(randomType());
        f = std::move(d);
        break;
      }
      case 1: {
        auto d = std::make_unique<ConstantDataset>();
        d->setParameters(uniform(-10.0, 10.0));
        f = std::move(d);
        break;
      }
      case 2: {
        auto d = std::make_unique<IntervalPlateauDataset>();
        const double a = uniform(-200.0, 200.0);
        d->setParameters(a, a + uniform(0.0, 200.0));
        f = std::move(d);
        break;
      }
      case 3: {
        auto d = std::make_unique<IntervalThresholdDataset>();
        const double a = uniform(-200.0, 200.0);
        d->setParameters(a, a + uniform(0.0, 300.0), uniform(-5.0, 5.0), uniform(-5.0, 5.0), between(0, 1) == 1,
                         between(0, 1) == 1);
        f = std::move(d);
        break;
      }
      case 4: {
        auto d = std::make_unique<LinearTransformationDataset>();
        d->setParameters(uniform(-3.0, 3.0), uniform(-50.0, 50.0));
        f = std::move(d);
        break;
      }
      case 5: {
        auto d = std::make_unique<ScaleDataset>();
        d->setParameters(uniform(-10.0, 0.0), uniform(0.0, 10.0), between(0, 1) == 1, uniform(-300.0, 0.0),
                         uniform(0.0, 300.0));
        f = std::move(d);
        break;
      }
      case 6: {
        auto d = std::make_unique<VectorLengthDataset>();
        std::vector<Dataset*> sources;
        for (int i = between(1, 4); i > 0; --i) sources.push_back(i == 1 ? recentSource() : anySource());
        d->setSourceDatasets(sources);
        f = std::move(d);
        break;
      }
      case 7: {
        auto d = std::make_unique<GradientDataset>();
        const int dimensionality = between(2, 3);
        d->setParameters(dimensionality, between(0, dimensionality - 1), between(0, 1) == 1 ? 5 : 3, between(0, 1) == 1,
                         uniform(-5.0, 5.0));
        f = std::move(d);
        break;
      }
      case 8: {
        auto d = std::make_unique<SmoothDataset>();
        d->setParameters(between(1, 5), between(1, 5), between(1, 5), uniform(-5.0, 5.0));
        f = std::move(d);
        break;
      }
      default: {
        auto d = std::make_unique<DirectionFilteredVectorLengthDataset>();
        const int n = between(2, 3);
        Vector direction(static_cast<unsigned>(n));
        for (int i = 0; i < n; ++i) direction[static_cast<unsigned>(i)] = uniform(-1.0, 1.0);
        direction.normalize();
        d->setParameters(between(0, 1) == 1, direction, between(0, 1) == 1);
        std::vector<Dataset*> sources;
        for (int i = n; i > 0; --i) sources.push_back(i == 1 ? recentSource() : anySource());
        d->setSourceDatasets(sources);
        f = std::move(d);
        break;
      }
    }
    if (f->getSourceDatasetCount() == 0) f->setSourceDataset(recentSource());
    all.push_back(f.get());
    filters.push_back(std::move(f));
  }

  std::mt19937 rng;
  std::vector<std::unique_ptr<Dataset>> inputs;
  std::vector<std::unique_ptr<DependentDataset>> filters;
  std::vector<Dataset*> all;
};

// Bytes of an element that carry its value (the x87 long double pads 10 bytes to 16).
inline std::size_t valueBytes(TARVElementType type) {
  return type == TARV_ELEMENT_TYPE_LONG_DOUBLE ? 10 : DatasetMemory::getElementTypeByteSize(type);
}

// Every element of the dataset read one by one (computing them element by element), in raster order.
inline std::vector<unsigned char> elementsOneByOne(Dataset& d) {
  const std::size_t bytes = DatasetMemory::getElementTypeByteSize(d.getElementType());
  std::vector<unsigned char> values;
  for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it)) {
    unsigned char buffer[32] = {};
    d.getElementByBuffer(static_cast<const DatasetCoordinates&>(it), buffer);
    values.insert(values.end(), buffer, buffer + bytes);
  }
  return values;
}

// The raster index of p.
inline std::size_t rasterIndex(const DatasetCoordinates& size, const DatasetCoordinates& p) {
  return (((static_cast<std::size_t>(p.t) * size.z + p.z) * size.y + p.y) * size.x + p.x) * size.c + p.c;
}

// The element at p of a computed (cached) dataset equals the reference, bit for bit (two NaN
// may differ in sign and payload: which operand a NaN result passes on is the compiler's choice).
inline ::testing::AssertionResult sameElement(CachedDataset& d, const std::vector<unsigned char>& reference,
                                              const DatasetCoordinates& p) {
  const TARVElementType type = d.getElementType();
  const std::size_t bytes = DatasetMemory::getElementTypeByteSize(type);
  unsigned char buffer[32] = {};
  if (!d.getElementCacheStatus(p)) return ::testing::AssertionFailure() << "not computed at " << p;
  d.getElementReferenceByBuffer(p, buffer);
  const unsigned char* expected = reference.data() + rasterIndex(d.getSize(), p) * bytes;
  if (std::memcmp(buffer, expected, valueBytes(type)) == 0) return ::testing::AssertionSuccess();
  double a = 0.0, b = 0.0;
  bool floating = false;
  dispatchElementType(type, [&]<typename T>() {
    if constexpr (!std::is_same_v<T, bool>) {
      T x, y;
      std::memcpy(&x, buffer, sizeof(T));
      std::memcpy(&y, expected, sizeof(T));
      a = static_cast<double>(x);
      b = static_cast<double>(y);
      floating = std::is_floating_point_v<T>;
    } else {
      a = buffer[0] & 1;
      b = expected[0] & 1;
    }
  });
  if (floating && std::isnan(a) && std::isnan(b)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "element " << p << " differs: " << a << " (bulk) vs " << b << " (one by one)";
}

}  // namespace tarv::testing

#endif
