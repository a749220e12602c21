#include "formats/AllocationCap.h"

#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "elementtypes/ElementTypeNames.h"
#include "formats/FileStatus.h"

namespace tarv::formats {

namespace {

std::atomic<std::size_t> chosenCap{0};

std::size_t defaultCap() {
  const long pages = ::sysconf(_SC_PHYS_PAGES);
  const long pageSize = ::sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || pageSize <= 0) return std::size_t{4} << 30;
  return static_cast<std::size_t>(pages) / 4 * 3 * static_cast<std::size_t>(pageSize);
}

std::string bytesText(double bytes) {
  const char* units[] = {"bytes", "KB", "MB", "GB", "TB", "PB", "EB"};
  int unit = 0;
  while (bytes >= 1000.0 && unit < 6) {
    bytes /= 1000.0;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.3g %s", bytes, units[unit]);
  return text;
}

Status checkBytes(double elements, TARVElementType type, const std::string& what) {
  if (elements >= 2147483648.0) return unsupportedError("too large: " + what + " elements are 2^31 or more");
  const double bytes = elements * DatasetMemory::getElementTypeByteSize(type);
  const std::size_t cap = getAllocationCap();
  if (bytes > static_cast<double>(cap))
    return resourceExhaustedError(what + " " + elementTypeName(type) + " elements need " + bytesText(bytes) +
                                  ", more than the allocation cap of " + bytesText(static_cast<double>(cap)));
  return okStatus();
}

}  // namespace

std::size_t getAllocationCap() {
  const std::size_t chosen = chosenCap.load(std::memory_order_relaxed);
  if (chosen != 0) return chosen;
  static const std::size_t machine = defaultCap();
  return machine;
}

void setAllocationCap(std::size_t bytes) { chosenCap.store(bytes, std::memory_order_relaxed); }

Status checkAllocation(const DatasetCoordinates& size, TARVElementType type) {
  double elements = 1.0;
  for (int k = 0; k < 5; ++k) elements *= size[k] < 0 ? 0.0 : static_cast<double>(size[k]);
  return checkBytes(elements, type, sizeText(size));
}

Status checkAllocation(std::int64_t elements, TARVElementType type) {
  return checkBytes(static_cast<double>(elements), type, std::to_string(elements));
}

}  // namespace tarv::formats
