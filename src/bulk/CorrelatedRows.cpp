// Dataset::correlateRow: the correlation of a plain in-memory mask with rows of a dataset.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "bulk/RowReuse.h"
#include "bulk/RowSupport.h"
#include "dataset/Dataset.h"
#include "kernels/Correlate.h"

namespace tarv {

namespace {

// The rows the thread's last correlation read, and what they were.
struct KeptRows {
  struct Key {
    const Dataset* source = nullptr;
    const Dataset* mask = nullptr;
    int x = 0, length = 0, t = 0, height = 0, depth = 0, y = 0, z = 0;
    // The same rows one step further along y.
    bool continuedBy(const Key& next) const {
      return source == next.source && mask == next.mask && x == next.x && length == next.length && t == next.t &&
             height == next.height && depth == next.depth && z == next.z && y + 1 == next.y;
    }
  };
  std::uint64_t scope = 0;
  Key key;
  std::vector<double> values;
};

thread_local KeptRows keptRows;

}  // namespace

bool Dataset::correlateRow(Dataset* mask, const DatasetCoordinates& centre, double outside,
                           const DatasetCoordinates& first, int count, double* values, bool check) {
  const DatasetCoordinates kOrigin(0, 0, 0, 0, 0);
  if (mask == nullptr || count <= 0 || mask->getPlainElements() == nullptr) return false;
  const DatasetCoordinates imageSize = getSize();
  const DatasetCoordinates templSize = mask->getSize();
  if (templSize.t != 1 || templSize.c != 1 || imageSize.c != 1 || first.c != 0) return false;
  const std::int64_t taps = std::int64_t{templSize.x} * templSize.y * templSize.z;
  if (taps <= 0 || taps > (1 << 20)) return false;
  const ArrayDatasetMemory* maskMemory = bulk::arrayHolding(mask->memory, kOrigin, templSize.x);
  if (maskMemory == nullptr || maskMemory->getStart() != kOrigin || maskMemory->getSize() != templSize) return false;

  // Where the template's origin lands, as the element-wise correlation finds it: the template must
  // fit inside the source in every component, else the element is the outside value (nothing read).
  DatasetCoordinates origin;
  bool fitsAcross = true;
  for (int k = 1; k < 5; ++k) {
    const std::int64_t d = std::int64_t{first[k]} - centre[k];
    if (d < 0 || d > std::int64_t{imageSize[k]} - templSize[k]) fitsAcross = false;
    origin[k] = static_cast<int>(d);
  }
  const std::int64_t lastX = std::int64_t{first.x} + count - 1;
  const std::int64_t fitFirst = std::max<std::int64_t>(first.x, centre.x);
  const std::int64_t fitLast = std::min<std::int64_t>(lastX, std::int64_t{imageSize.x} - templSize.x + centre.x);
  if (!fitsAcross || fitFirst > fitLast) {
    if (!check)
      for (int i = 0; i < count; ++i) values[i] = outside;
    return true;
  }
  const int width = static_cast<int>(fitLast - fitFirst + 1);
  const int rowLength = width + templSize.x - 1;
  const int rowCount = templSize.y * templSize.z;
  DatasetCoordinates rowStart(static_cast<int>(fitFirst - centre.x), 0, 0, origin.t, 0);
  const std::size_t rowValues = static_cast<std::size_t>(rowCount) * static_cast<std::size_t>(rowLength);
  KeptRows& kept = keptRows;
  const KeptRows::Key key{this, mask, rowStart.x, rowLength, origin.t, templSize.y, templSize.z, origin.y, origin.z};
  // The next row of the same correlation: each plane's rows move up by one, one new row each.
  const bool followOn = bulk::rowReuseScope != 0 && kept.scope == bulk::rowReuseScope &&
                        kept.values.size() == rowValues && kept.key.continuedBy(key);
  const int firstNewRow = followOn ? templSize.y - 1 : 0;
  if (check) {
    for (int z = 0; z < templSize.z; ++z)
      for (int y = firstNewRow; y < templSize.y; ++y) {
        rowStart.y = origin.y + y;
        rowStart.z = origin.z + z;
        if (!canReadRow(rowStart, rowLength)) return false;
      }
    return true;
  }

  // Scratch without initialisation; taken from the thread's kept rows while in use, since reading
  // a row may compute rows of another correlation further up the graph.
  const auto weights = std::make_unique_for_overwrite<double[]>(static_cast<std::size_t>(taps));
  bulk::readElements(*maskMemory, 0, static_cast<int>(taps), weights.get());
  std::vector<double> rows = std::move(kept.values);
  kept.scope = 0;
  rows.resize(rowValues);
  for (int z = 0; z < templSize.z; ++z) {
    double* plane = rows.data() + static_cast<std::size_t>(z * templSize.y) * static_cast<std::size_t>(rowLength);
    if (followOn) std::copy(plane + rowLength, plane + static_cast<std::size_t>(templSize.y) * rowLength, plane);
    for (int y = firstNewRow; y < templSize.y; ++y) {
      rowStart.y = origin.y + y;
      rowStart.z = origin.z + z;
      readRow(rowStart, rowLength, plane + static_cast<std::size_t>(y) * static_cast<std::size_t>(rowLength));
    }
  }
  const int before = static_cast<int>(fitFirst - first.x);
  for (int i = 0; i < before; ++i) values[i] = outside;
  kernels::correlateRows(rows.data(), static_cast<std::size_t>(rowLength), rowCount, templSize.x, weights.get(), width,
                         values + before);
  for (int i = before + width; i < count; ++i) values[i] = outside;
  kept.values = std::move(rows);
  kept.key = key;
  kept.scope = bulk::rowReuseScope;
  return true;
}

}  // namespace tarv
