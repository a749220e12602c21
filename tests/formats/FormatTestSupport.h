#ifndef TARV_TESTS_FORMATS_FORMATTESTSUPPORT_H
#define TARV_TESTS_FORMATS_FORMATTESTSUPPORT_H

// Round trips of a format's writer and reader over every element type.

#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>

#include "TestSupport.h"
#include "dataset/DatasetHandle.h"
#include "elementtypes/ElementTypeNames.h"
#include "status/Status.h"

namespace tarv::testing {

// For every element type: a dataset of the size and embedding, filled randomly (negative values
// only where the type holds them), prepared, written with write(d) and, where the format holds
// the type (else the writer must refuse it as unsupported), read back with read(): the same size,
// type and elements, then check(original, back). The number of types written.
inline int roundTripEveryElementType(const DatasetCoordinates& size, const DatasetWorldEmbedding& embedding,
                                     const std::function<bool(TARVElementType)>& holds,
                                     const std::function<Status(Dataset&)>& write,
                                     const std::function<Result<DatasetHandle>()>& read,
                                     const std::function<void(Dataset&)>& prepare = {},
                                     const std::function<void(Dataset&, Dataset&)>& check = {}) {
  std::mt19937 random(7);
  int written = 0;
  for (int id = TARV_ELEMENT_TYPE_BOOL; id <= TARV_ELEMENT_TYPE_LONG_DOUBLE; ++id) {
    const auto type = static_cast<TARVElementType>(id);
    SCOPED_TRACE(elementTypeName(type));
    Dataset d(true);
    d.newDataset(size, type, embedding);
    fillRandomly(d, random, d.hasFloatingPointElementType() ? -100.0 : 0.0, 100.0);
    if (prepare) prepare(d);
    const Status status = write(d);
    if (!holds(type)) {
      EXPECT_EQ(status.code(), StatusCode::unsupported) << status.toString();
      continue;
    }
    EXPECT_TRUE(status.ok()) << status.toString();
    if (!status.ok()) continue;
    ++written;
    Result<DatasetHandle> back = read();
    EXPECT_TRUE(back.ok()) << back.status().toString();
    if (!back.ok()) continue;
    Dataset* r = GetRawPtr(*back);
    EXPECT_EQ(r->getSize(), d.getSize());
    EXPECT_EQ(r->getElementType(), type);
    if (r->getSize() != d.getSize() || r->getElementType() != type) continue;
    int differing = 0;
    for (auto it = d.getStartCoordinatesIterator(); it.valid; d.incrementCoordinatesIterator(it))
      if (r->getElement<double>(it) != d.getElement<double>(it)) ++differing;
    EXPECT_EQ(differing, 0) << "elements that differ";
    if (check) check(d, *r);
  }
  return written;
}

}  // namespace tarv::testing

#endif
