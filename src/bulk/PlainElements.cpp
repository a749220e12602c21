#include "bulk/PlainElements.h"

#include <cstdint>
#include <cstring>

namespace tarv::bulk {

namespace {

// The linear index of p in a plain dataset of size s (component fastest).
std::uint64_t linearIndex(const DatasetCoordinates& s, const DatasetCoordinates& p) {
  std::uint64_t index = static_cast<std::uint64_t>(p.t);
  for (int k = 2; k >= 0; --k) index = index * static_cast<std::uint64_t>(s[k]) + static_cast<std::uint64_t>(p[k]);
  return index * static_cast<std::uint64_t>(s.c) + static_cast<std::uint64_t>(p.c);
}

}  // namespace

bool findMinimumAndMaximum(Dataset& d, double& minimum, double& maximum) {
  const void* block = d.getPlainElements();
  if (block == nullptr || d.getElementType() == TARV_ELEMENT_TYPE_BOOL || d.getElementBuffer() == nullptr) return false;
  const DatasetCoordinates s = d.getSize();
  std::uint64_t count = 1;
  for (int k = 0; k < 5; ++k) count *= static_cast<std::uint64_t>(s[k]);
  minimum = 0.0;
  maximum = 0.0;
  dispatchElementType(d.getElementType(), [&]<typename T>() {
    const T* elements = static_cast<const T*>(block);
    if (count == 0) return;
    double low = convertElementValue<double>(elements[0]);
    double high = low;
    for (std::uint64_t i = 1; i < count; ++i) {
      const double v = convertElementValue<double>(elements[i]);
      if (low > v)
        low = v;
      else if (v > high)
        high = v;
    }
    minimum = low;
    maximum = high;
    std::memcpy(d.getElementBuffer(), &elements[count - 1], sizeof(T));
  });
  return true;
}

bool copyBoxConverting(Dataset& target, Dataset& source, const DatasetBoundingBox& box) {
  if (&target == &source) return false;
  const auto* sourceBlock = static_cast<const unsigned char*>(source.getPlainElements());
  auto* targetBlock = static_cast<unsigned char*>(target.getPlainElements());
  if (sourceBlock == nullptr || targetBlock == nullptr) return false;
  const TARVElementType from = source.getElementType();
  const TARVElementType to = target.getElementType();
  if (from == TARV_ELEMENT_TYPE_BOOL || to == TARV_ELEMENT_TYPE_BOOL) return false;
  const DatasetCoordinates s = source.getSize();
  const DatasetCoordinates n = target.getSize();
  for (int k = 0; k < 5; ++k)
    if (box.start[k] < 0 || box.end[k] >= s[k] || n[k] != box.end[k] - box.start[k] + 1) return false;
  if (box.start.c != 0 || box.end.c != s.c - 1) return false;
  // One row of the target (all components of its x positions) follows one row of the source.
  const std::size_t rowElements = static_cast<std::size_t>(n.x) * static_cast<std::size_t>(n.c);
  dispatchElementType(from, [&]<typename From>() {
    dispatchElementType(to, [&]<typename To>() {
      DatasetCoordinates p(0, 0, 0, 0, 0);
      for (p.t = 0; p.t < n.t; ++p.t)
        for (p.z = 0; p.z < n.z; ++p.z)
          for (p.y = 0; p.y < n.y; ++p.y) {
            const unsigned char* in = sourceBlock + linearIndex(s, p + box.start) * sizeof(From);
            unsigned char* out = targetBlock + linearIndex(n, p) * sizeof(To);
            if constexpr (std::is_same_v<From, To>) {
              std::memcpy(out, in, rowElements * sizeof(To));
            } else {
              for (std::size_t i = 0; i < rowElements; ++i) {
                From value;
                std::memcpy(&value, in + i * sizeof(From), sizeof(From));
                const To converted = convertElementValue<To>(value);
                std::memcpy(out + i * sizeof(To), &converted, sizeof(To));
              }
            }
          }
    });
  });
  return true;
}

}  // namespace tarv::bulk
