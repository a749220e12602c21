#include "dataset/BinarySegmentations.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <set>
#include <typeinfo>
#include <vector>

#include "core/Mathematics.h"
#include "dataset/ArrayDatasetMemory.h"

namespace tarv {

namespace {

using Index = std::int64_t;

// Membership bits of one element.
constexpr unsigned char readsTrue = 1;  // getElement<bool> gives true
constexpr unsigned char nonZero = 2;    // the value as double is non-zero or NaN
constexpr unsigned char border = 4;     // non-zero with a face neighbour that is zero or outside

bool isNonZero(double v) { return v < 0.0 || v > 0.0 || std::isnan(v); }

unsigned char membershipOfBuffer(const void* buffer, TARVElementType type) {
  return static_cast<unsigned char>((DatasetMemory::getBufferValue<bool>(buffer, type) ? readsTrue : 0) |
                                    (isNonZero(DatasetMemory::getBufferValue<double>(buffer, type)) ? nonZero : 0));
}

template <ElementValueType T>
unsigned char membershipOfValue(T v) {
  return static_cast<unsigned char>((convertElementValue<bool>(v) ? readsTrue : 0) |
                                    (isNonZero(convertElementValue<double>(v)) ? nonZero : 0));
}

// Dataset keeps its memory protected; naming the accessor through a derived class gives read
// access to it without touching anything else.
struct DatasetMemoryAccess : Dataset {
  static DatasetMemory* of(const Dataset* d) { return (d->*(&DatasetMemoryAccess::getMemory))(); }
};

// The membership of the elements of one time step and component of a dataset, by x, y and z.
// Callers keep the coordinates inside the dataset.
class SliceReader {
public:
  virtual ~SliceReader() = default;
  virtual unsigned char at(int x, int y, int z) = 0;
  // out[x] for every x of the row (y, z).
  virtual void row(int y, int z, unsigned char* out) = 0;
};

// Any dataset, through its virtual element access.
class DatasetSliceReader final : public SliceReader {
public:
  DatasetSliceReader(Dataset* dataset, int t, int c) : dataset(dataset), t(t), c(c), sizeX(dataset->getSize().x) {}

  unsigned char at(int x, int y, int z) override {
    dataset->getElementByBuffer(DatasetCoordinates(x, y, z, t, c), buffer);
    return membershipOfBuffer(buffer, dataset->getElementType());
  }
  void row(int y, int z, unsigned char* out) override {
    for (int x = 0; x < sizeX; ++x) out[x] = at(x, y, z);
  }

private:
  Dataset* dataset;
  int t, c, sizeX;
  alignas(16) unsigned char buffer[kElementBufferSize] = {};
};

// A plain in-memory dataset, read straight from its element block.
template <ElementValueType T>
class BlockSliceReader final : public SliceReader {
public:
  BlockSliceReader(const ArrayDatasetMemory* memory, int t, int c) {
    const DatasetCoordinates size = memory->getSize();
    block = static_cast<const unsigned char*>(memory->getElementBlock());
    strideX = size.c;
    strideY = strideX * size.x;
    strideZ = strideY * size.y;
    sizeX = size.x;
    base = static_cast<Index>(t) * strideZ * size.z + c;
  }

  unsigned char at(int x, int y, int z) override { return read(base + x * strideX + y * strideY + z * strideZ); }
  void row(int y, int z, unsigned char* out) override {
    const Index start = base + y * strideY + z * strideZ;
    for (int x = 0; x < sizeX; ++x) out[x] = read(start + x * strideX);
  }

private:
  unsigned char read(Index index) const {
    if constexpr (std::is_same_v<T, bool>) {
      return membershipOfValue<bool>((block[index >> 3] & DatasetMemory::bitMask[index & 7]) != 0);
    } else {
      T v;
      std::memcpy(&v, block + index * static_cast<Index>(sizeof(T)), sizeof(T));
      return membershipOfValue<T>(v);
    }
  }

  const unsigned char* block = nullptr;
  Index strideX = 0, strideY = 0, strideZ = 0, base = 0;
  int sizeX = 0;
};

// The reader for time step t and component c of a dataset that holds data with t and c inside:
// straight from the element block for a plain in-memory dataset, else through element access.
std::unique_ptr<SliceReader> makeSliceReader(Dataset* d, int t, int c) {
  std::unique_ptr<SliceReader> reader;
  const auto* memory = dynamic_cast<const ArrayDatasetMemory*>(DatasetMemoryAccess::of(d));
  if (typeid(*d) == typeid(Dataset) && memory != nullptr && memory->isAllocated() &&
      memory->getElementBlock() != nullptr && memory->getSize() == d->getSize() &&
      memory->getStart() == DatasetCoordinates(0, 0, 0, 0, 0) && memory->getElementType() == d->getElementType()) {
    dispatchElementType(d->getElementType(),
                        [&]<typename T>() { reader = std::make_unique<BlockSliceReader<T>>(memory, t, c); });
  }
  if (!reader) reader = std::make_unique<DatasetSliceReader>(d, t, c);
  return reader;
}

bool holdsTimeStep(Dataset* d, int t) { return d != nullptr && d->hasData() && t >= 0 && t < d->getSize().t; }

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
  SliceMembership(Dataset* d, int t, int c, bool withArray) : reader(makeSliceReader(d, t, c)) {
    const DatasetCoordinates size = d->getSize();
    n[0] = size.x;
    n[1] = size.y;
    n[2] = size.z;
    for (int k = 0; k < 3; ++k) {
      objectBox.start[k] = 0;
      objectBox.end[k] = n[k] - 1;
    }
    if (withArray) fillArray();
  }

  Index size(int k) const { return n[k]; }
  // Holds every non-zero element (the whole slice when not known more tightly).
  const Box3& getObjectBox() const { return objectBox; }

  // Prepares lowerDistance for the elements carrying bit: their exact city-block distance,
  // capped at 65535 and kept as a lower bound. Needs the array; without memory for it every
  // bound stays 0.
  void computeDistances(unsigned char bit) {
    distances.clear();
    if (bits.empty()) return;
    try {
      distances.resize(bits.size());
    } catch (const std::bad_alloc&) {
      return;
    }
    static constexpr std::uint32_t cap = 65535;
    for (std::size_t i = 0; i < bits.size(); ++i) distances[i] = (bits[i] & bit) ? 0 : cap;
    // The city-block distance is the sum of the distances along the axes, so sweeps along x,
    // then y, then z (each forwards and backwards) give it exactly. The y and z sweeps carry
    // whole rows at once.
    auto relax = [](std::uint16_t* target, const std::uint16_t* from, Index count) {
      for (Index i = 0; i < count; ++i) {
        const std::uint32_t carried = std::min<std::uint32_t>(from[i] + 1u, cap);
        if (carried < target[i]) target[i] = static_cast<std::uint16_t>(carried);
      }
    };
    std::uint16_t* d = distances.data();
    const Index rowLength = n[0], sliceLength = n[0] * n[1];
    for (Index row = 0; row < n[1] * n[2]; ++row) {
      std::uint16_t* line = d + row * rowLength;
      for (Index x = 1; x < n[0]; ++x) relax(line + x, line + x - 1, 1);
      for (Index x = n[0] - 2; x >= 0; --x) relax(line + x, line + x + 1, 1);
    }
    for (Index z = 0; z < n[2]; ++z) {
      std::uint16_t* slice = d + z * sliceLength;
      for (Index y = 1; y < n[1]; ++y) relax(slice + y * rowLength, slice + (y - 1) * rowLength, rowLength);
      for (Index y = n[1] - 2; y >= 0; --y) relax(slice + y * rowLength, slice + (y + 1) * rowLength, rowLength);
    }
    for (Index z = 1; z < n[2]; ++z) relax(d + z * sliceLength, d + (z - 1) * sliceLength, sliceLength);
    for (Index z = n[2] - 2; z >= 0; --z) relax(d + z * sliceLength, d + (z + 1) * sliceLength, sliceLength);
  }

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
  bool isOnBorder(Index x, Index y, Index z) {
    static constexpr int step[6][3] = {{-1, 0, 0}, {1, 0, 0}, {0, -1, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 1}};
    for (const auto& s : step) {
      const Index nx = x + s[0], ny = y + s[1], nz = z + s[2];
      if (!isInside(nx, ny, nz)) return true;
      const unsigned char f = bits.empty() ? reader->at(static_cast<int>(nx), static_cast<int>(ny), static_cast<int>(nz))
                                           : bits[static_cast<std::size_t>((nz * n[1] + ny) * n[0] + nx)];
      if (!(f & nonZero)) return true;
    }
    return false;
  }

  void fillArray() {
    try {
      bits.resize(static_cast<std::size_t>(n[0] * n[1] * n[2]));
    } catch (const std::bad_alloc&) {
      bits.clear();
      return;
    }
    Box3 box;
    bool any = false;
    for (Index z = 0; z < n[2]; ++z)
      for (Index y = 0; y < n[1]; ++y) {
        unsigned char* out = bits.data() + (z * n[1] + y) * n[0];
        reader->row(static_cast<int>(y), static_cast<int>(z), out);
        for (Index x = 0; x < n[0]; ++x) {
          if (!(out[x] & nonZero)) continue;
          const Index p[3] = {x, y, z};
          for (int k = 0; k < 3; ++k) {
            if (!any || p[k] < box.start[k]) box.start[k] = p[k];
            if (!any || p[k] > box.end[k]) box.end[k] = p[k];
          }
          any = true;
        }
      }
    objectBox = any ? box : Box3();
    if (!any) return;
    for (Index z = objectBox.start[2]; z <= objectBox.end[2]; ++z)
      for (Index y = objectBox.start[1]; y <= objectBox.end[1]; ++y)
        for (Index x = objectBox.start[0]; x <= objectBox.end[0]; ++x) {
          unsigned char& f = bits[static_cast<std::size_t>((z * n[1] + y) * n[0] + x)];
          if ((f & nonZero) && isOnBorder(x, y, z)) f |= border;
        }
  }

  std::unique_ptr<SliceReader> reader;
  Index n[3] = {0, 0, 0};
  Box3 objectBox;
  std::vector<unsigned char> bits;
  std::vector<std::uint16_t> distances;
};

// The shell search: shells of growing city-block radius around a point, each offset weighed by
// the squared voxel spacing; it ends after the first shell, once a target is found, whose largest
// squared length exceeds the best one found.
//
// Results equal those of enumerating every offset of every shell in order; the work skipped
// provably changes nothing:
// - shells nearer than the box of the targets, or than a known lower bound of the city-block
//   distance to them, hold no target; shells beyond the box cannot lower a found result;
// - within a shell only voxels inside the box are visited, in the same order, and rows or runs
//   of voxels that a city-block distance bound shows to be empty are passed over;
// - the largest squared length of a shell is known without enumerating it (shellMaximum);
// - with finite weights no squared length is NaN, so the result is the minimum over the targets
//   seen: offsets that cannot beat the best are not read, and a best of 0 is final;
// - with a non-finite weight every squared length is NaN or infinite, the first target seen
//   fixes the result (a NaN minimum stays NaN, an infinite one cannot drop) and the stopping
//   rule never holds, so the first target in visit order decides.
class ShellSearch {
public:
  ShellSearch(const WorldCoordinates& spacing, Index sizeX, Index sizeY, Index sizeZ)
      : w{spacing.x * spacing.x, spacing.y * spacing.y, spacing.z * spacing.z}, size{sizeX, sizeY, sizeZ} {
    finiteWeights = std::isfinite(w[0]) && std::isfinite(w[1]) && std::isfinite(w[2]);
    for (Index r = 0; r < smallShells; ++r) {
      double shellMax = 0.0;
      for (Index dx = -r; dx <= r; ++dx) {
        const Index rest = r - std::abs(dx);
        for (Index dy = -rest; dy <= rest; ++dy) {
          const Index dz = rest - std::abs(dy);
          shellMax = std::max(shellMax, squaredLength(dx, dy, -dz));
          if (dz != 0) shellMax = std::max(shellMax, squaredLength(dx, dy, dz));
        }
      }
      smallShellMaximum[static_cast<std::size_t>(r)] = shellMax;
    }
  }

  double squaredLength(Index dx, Index dy, Index dz) const {
    const double fx = static_cast<double>(dx), fy = static_cast<double>(dy), fz = static_cast<double>(dz);
    return fx * fx * w[0] + fy * fy * w[1] + fz * fz * w[2];
  }

  // The squared distance from p to the nearest target (see the class comment). targets holds
  // every voxel for which isTarget may be true and lies inside the searched dataset; nearest is
  // a lower bound of the city-block distance from p to the nearest target, and
  // lowerDistance(x, y, z) one from any voxel (0 where none is known).
  template <typename IsTarget, typename LowerDistance>
  double search(Index px, Index py, Index pz, const Box3& targets, Index nearest, IsTarget&& isTarget,
                LowerDistance&& lowerDistance) const {
    if (targets.isEmpty()) return 0.0;
    const Index p[3] = {px, py, pz};
    Index rMax = 0, rFirst = 0, rLast = 0;
    for (int k = 0; k < 3; ++k) {
      rMax += std::max(p[k], size[k] - 1 - p[k]);
      rFirst += std::max({Index(0), targets.start[k] - p[k], p[k] - targets.end[k]});
      rLast += std::max(std::abs(p[k] - targets.start[k]), std::abs(p[k] - targets.end[k]));
    }
    rLast = std::min(rLast, rMax);
    rFirst = std::max(rFirst, nearest);

    bool found = false;
    double best = 0.0;
    for (Index r = rFirst; r <= rLast; ++r) {
      const Index dxLow = std::max(-r, targets.start[0] - px), dxHigh = std::min(r, targets.end[0] - px);
      for (Index dx = dxLow; dx <= dxHigh; ++dx) {
        const double fx = static_cast<double>(dx);
        const double termX = fx * fx * w[0];
        if (finiteWeights && found && !(termX < best)) continue;
        const Index x = px + dx;
        const Index restX = r - std::abs(dx);
        // The voxels of this row lie restX steps from (x, py, pz): none is a target when that
        // point is farther from every target.
        if (lowerDistance(x, py, pz) > restX) continue;
        const Index dyLow = std::max(-restX, targets.start[1] - py), dyHigh = std::min(restX, targets.end[1] - py);
        // Once a target is found, only |dy| in [inner, outer] can beat it: beyond outer the x and
        // y terms alone reach the best, below inner the z term does.
        Index inner = 0, outer = restX;
        if (finiteWeights && found) {
          outer = largestBelow(termX, w[1], best, restX);
          inner = restX - largestBelow(0.0, w[2], best, restX);
          if (outer < 0 || inner > outer) continue;
        }
        // Along dy, consecutive voxels of either half of the shell (dz <= 0 and dz >= 0) are two
        // city-block steps apart, so a voxel at distance k from every target rules out the next
        // (k - 1) / 2 voxels of its half.
        Index nextToCheck[2] = {dyLow, dyLow};
        auto visitRun = [&](Index from, Index to) {
          for (Index dy = from; dy <= to; ++dy) {
            dy = std::max(dy, std::min(nextToCheck[0], nextToCheck[1]));
            if (dy > to) break;
            const double fy = static_cast<double>(dy);
            const double termXY = termX + fy * fy * w[1];
            if (finiteWeights && found && !(termXY < best)) continue;
            const Index y = py + dy;
            const Index rest = restX - std::abs(dy);
            for (int side = 0; side < (rest == 0 ? 1 : 2); ++side) {
              if (dy < nextToCheck[side]) continue;
              const Index dz = side == 0 ? -rest : rest;
              const Index z = pz + dz;
              if (z < targets.start[2] || z > targets.end[2]) continue;
              const double fz = static_cast<double>(dz);
              const double q = termXY + fz * fz * w[2];
              if (finiteWeights && found && !(q < best)) continue;
              const Index distance = lowerDistance(x, y, z);
              if (distance > 0) {
                nextToCheck[side] = dy + (distance + 1) / 2;
                continue;
              }
              if (!isTarget(x, y, z)) continue;
              best = q;
              found = true;
              // With a non-finite weight the first target decides (see the class comment).
              if (!finiteWeights) return true;
            }
          }
          return false;
        };
        bool decided = false;
        if (inner == 0) {
          decided = visitRun(std::max(dyLow, -outer), std::min(dyHigh, outer));
        } else {
          decided = visitRun(std::max(dyLow, -outer), std::min(dyHigh, -inner)) ||
                    visitRun(std::max(dyLow, inner), std::min(dyHigh, outer));
        }
        if (decided) return best;
      }
      if (found && (best == 0.0 || shellMaximum(r) > best)) break;
    }
    return best;
  }

private:
  static constexpr Index smallShells = 17;

  // The largest a in [0, limit] for which base + a^2 * weight, evaluated as in the search, stays
  // below best; -1 when there is none. The sum grows with a, so the answer is a boundary.
  static Index largestBelow(double base, double weight, double best, Index limit) {
    auto below = [&](Index a) {
      const double f = static_cast<double>(a);
      return base + f * f * weight < best;
    };
    if (!below(0)) return -1;
    if (below(limit)) return limit;
    Index low = 0, high = limit;  // below(low), !below(high)
    while (high - low > 1) {
      const Index middle = low + (high - low) / 2;
      (below(middle) ? low : high) = middle;
    }
    return low;
  }

  // The largest squared length over all offsets of shell r (finite weights only). For r >= 17 it
  // is the length of the axis offset with the largest weight: every other offset has at least
  // two non-zero components, so its exact squared length is at most wmax * (r^2 - 2r + 2), a
  // margin of wmax * (2r - 2) that the few roundings (relative 2^-53, absolute 2^-1075 near zero)
  // cannot cross while r stays below 2^40. Smaller shells are enumerated.
  double shellMaximum(Index r) const {
    if (r < smallShells) return smallShellMaximum[static_cast<std::size_t>(r)];
    return std::max(std::max(squaredLength(r, 0, 0), squaredLength(0, r, 0)), squaredLength(0, 0, r));
  }

  double w[3];
  Index size[3];
  bool finiteWeights = true;
  std::array<double, smallShells> smallShellMaximum{};
};

ShellSearch makeShellSearch(Dataset* d) {
  const DatasetCoordinates size = d->getSize();
  return ShellSearch(d->getWorldEmbedding().getVoxelSpacing(), size.x, size.y, size.z);
}

// The squared distance from p to the nearest element of the dataset carrying targetBit.
double searchFromPoint(Dataset* d, const DatasetCoordinates& p, unsigned char targetBit) {
  if (d == nullptr || !d->hasData()) return 0.0;
  const DatasetCoordinates size = d->getSize();
  // Nothing of another time step or component is inside the dataset: no target is ever found.
  if (p.t < 0 || p.t >= size.t || p.c < 0 || p.c >= size.c) return 0.0;
  SliceMembership slice(d, p.t, p.c, false);
  const ShellSearch search = makeShellSearch(d);
  return search.search(
      p.x, p.y, p.z, slice.getObjectBox(), 0,
      [&](Index x, Index y, Index z) { return (slice.flags(x, y, z) & targetBit) != 0; },
      [](Index, Index, Index) { return Index(0); });
}

// Calls f(x, y, z) for every element of the source slice carrying sourceBit, z outermost and x
// innermost, and gives it the squared distance to the nearest target element of the target slice.
template <typename F>
void forEachSourceDistance(SliceMembership& source, unsigned char sourceBit, SliceMembership& target,
                           const ShellSearch& search, unsigned char targetBit, F&& f) {
  const Box3& targets = target.getObjectBox();
  target.computeDistances(targetBit);
  auto isTarget = [&](Index x, Index y, Index z) { return (target.flags(x, y, z) & targetBit) != 0; };
  auto lowerDistance = [&](Index x, Index y, Index z) { return target.lowerDistance(x, y, z); };
  for (Index z = 0; z < source.size(2); ++z)
    for (Index y = 0; y < source.size(1); ++y)
      for (Index x = 0; x < source.size(0); ++x)
        if (source.flags(x, y, z) & sourceBit)
          f(search.search(x, y, z, targets, target.lowerDistance(x, y, z), isTarget, lowerDistance));
}

double directedSquaredDistance(SliceMembership& source, SliceMembership& target, const ShellSearch& search) {
  double result = 0.0;
  forEachSourceDistance(source, readsTrue, target, search, nonZero,
                        [&](double distance) { result = std::max(result, distance); });
  return result;
}

unsigned int countReadsTrue(SliceMembership& slice) {
  unsigned int count = 0;
  for (Index z = 0; z < slice.size(2); ++z)
    for (Index y = 0; y < slice.size(1); ++y)
      for (Index x = 0; x < slice.size(0); ++x)
        if (slice.flags(x, y, z) & readsTrue) ++count;
  return count;
}

// Counts the elements of time step t (component 0) where rule(a is object, b is object) holds;
// b is read only where a alone does not decide.
enum class PairRule { difference, exclusive, shared, total };

unsigned int countPairs(Dataset* a, Dataset* b, int t, PairRule rule) {
  if (a == nullptr || b == nullptr || !a->isCompatible(b) || !holdsTimeStep(a, t)) return 0;
  const DatasetCoordinates size = a->getSize();
  auto readerA = makeSliceReader(a, t, 0);
  auto readerB = makeSliceReader(b, t, 0);
  std::vector<unsigned char> row(static_cast<std::size_t>(size.x));
  unsigned int count = 0;
  for (int z = 0; z < size.z; ++z)
    for (int y = 0; y < size.y; ++y) {
      readerA->row(y, z, row.data());
      for (int x = 0; x < size.x; ++x) {
        const bool inA = (row[static_cast<std::size_t>(x)] & readsTrue) != 0;
        bool counted = false;
        switch (rule) {
          case PairRule::difference: counted = inA != ((readerB->at(x, y, z) & readsTrue) != 0); break;
          case PairRule::exclusive: counted = inA && !(readerB->at(x, y, z) & readsTrue); break;
          case PairRule::shared: counted = inA && (readerB->at(x, y, z) & readsTrue); break;
          case PairRule::total: counted = inA || (readerB->at(x, y, z) & readsTrue); break;
        }
        if (counted) ++count;
      }
    }
  return count;
}

// For each time step: the convex hull of the object voxels and the spans of the columns inside it.
void fillConvexHullSpans(Dataset* segmentation);

}  // namespace

bool BinarySegmentations::isBinarySegmentation(Dataset* segmentation) {
  if (segmentation == nullptr) return true;
  for (auto it = segmentation->getStartCoordinatesIterator(); it.valid; segmentation->incrementCoordinatesIterator(it)) {
    const bool first = segmentation->getElement<bool>(it);
    const bool second = segmentation->getElement<bool>(it);
    if (first && !second) return false;
  }
  return true;
}

void BinarySegmentations::transformIntoBinarySegmentation(Dataset* segmentation) {
  if (segmentation == nullptr) return;
  for (auto it = segmentation->getStartCoordinatesIterator(); it.valid; segmentation->incrementCoordinatesIterator(it))
    if (segmentation->getElement<bool>(it)) segmentation->setElement<bool>(it, true);
}

void BinarySegmentations::transformIntoBinarySegmentation(Dataset* segmentation, double lowerBound, double upperBound) {
  if (segmentation == nullptr) return;
  for (auto it = segmentation->getStartCoordinatesIterator(); it.valid; segmentation->incrementCoordinatesIterator(it)) {
    const double v = segmentation->getElement<double>(it);
    segmentation->setElement<bool>(it, lowerBound <= v && v <= upperBound);
  }
}

void BinarySegmentations::setEmpty(Dataset* segmentation) {
  if (segmentation != nullptr) segmentation->setAllElementsValue(0.0, nullptr);
}

bool BinarySegmentations::isObjectElement(Dataset* segmentation, const DatasetCoordinates& c) {
  return segmentation != nullptr && isNonZero(segmentation->boundsCheckedElement(c, 0.0));
}

void BinarySegmentations::setObjectElement(Dataset* segmentation, bool isObject, const DatasetCoordinates& c) {
  if (segmentation != nullptr && segmentation->areCoordinatesInside(c)) segmentation->setElement<bool>(c, isObject);
}

bool BinarySegmentations::isPlaneWorldObjectElement(Dataset* segmentation, double x, double y, int z, int t) {
  return segmentation != nullptr && isNonZero(segmentation->planeInterpolatedWorldElement(x, y, z, t, 0.0, 0));
}

bool BinarySegmentations::isSpaceWorldObjectElement(Dataset* segmentation, double x, double y, double z, int t) {
  return segmentation != nullptr && isNonZero(segmentation->spaceInterpolatedWorldElement(x, y, z, t, 0.0, 0));
}

bool BinarySegmentations::isBorderElement(Dataset* segmentation, const DatasetCoordinates& c) {
  if (segmentation == nullptr || !segmentation->areCoordinatesInside(c) || !isObjectElement(segmentation, c))
    return false;
  for (int axis = 0; axis < 3; ++axis)
    for (int step : {-1, 1}) {
      DatasetCoordinates neighbour = c;
      neighbour[axis] += step;
      if (!segmentation->areCoordinatesInside(neighbour) || !isObjectElement(segmentation, neighbour)) return true;
    }
  return false;
}

unsigned int BinarySegmentations::getSegmentationVoxelCount(Dataset* segmentation, int t) {
  if (!holdsTimeStep(segmentation, t)) return 0;
  const DatasetCoordinates size = segmentation->getSize();
  auto reader = makeSliceReader(segmentation, t, 0);
  std::vector<unsigned char> row(static_cast<std::size_t>(size.x));
  unsigned int count = 0;
  for (int z = 0; z < size.z; ++z)
    for (int y = 0; y < size.y; ++y) {
      reader->row(y, z, row.data());
      for (unsigned char f : row)
        if (f & readsTrue) ++count;
    }
  return count;
}

unsigned int BinarySegmentations::getSegmentationVoxelCountDifference(Dataset* a, Dataset* b, int t) {
  return countPairs(a, b, t, PairRule::difference);
}

unsigned int BinarySegmentations::getExclusiveSegmentationVoxelCount(Dataset* a, Dataset* b, int t) {
  return countPairs(a, b, t, PairRule::exclusive);
}

unsigned int BinarySegmentations::getSharedSegmentationVoxelCount(Dataset* a, Dataset* b, int t) {
  return countPairs(a, b, t, PairRule::shared);
}

unsigned int BinarySegmentations::getTotalSegmentationVoxelCount(Dataset* a, Dataset* b, int t) {
  return countPairs(a, b, t, PairRule::total);
}

std::list<DatasetCoordinates> BinarySegmentations::getGroup(Dataset* segmentation, double value, int limit,
                                                            const DatasetCoordinates& start) {
  std::list<DatasetCoordinates> group;
  if (segmentation == nullptr || !segmentation->areCoordinatesInside(start)) return group;
  const DatasetCoordinates size = segmentation->getSize();
  // A region never holds more elements than one time step and component; where the element
  // type cannot represent a mark, elements are listed again and again, and this bound keeps
  // that growth finite.
  const Index sliceCount = static_cast<Index>(size.x) * size.y * size.z;
  const Index effectiveLimit = std::min<Index>(limit, sliceCount);
  auto mark = [&](const DatasetCoordinates& c, double change) {
    segmentation->setElement<double>(c, segmentation->getElement<double>(c) + change);
  };
  try {
    group.push_back(start);
    mark(start, -1.0);
    Index count = 1;
    for (auto cursor = group.begin(); cursor != group.end(); ++cursor) {
      if (count > effectiveLimit) break;
      for (int axis = 0; axis < 3; ++axis)
        for (int step : {-1, 1}) {
          DatasetCoordinates neighbour = *cursor;
          neighbour[axis] += step;
          if (neighbour[axis] < 0 || neighbour[axis] >= size[axis]) continue;
          if (segmentation->getElement<double>(neighbour) != value) continue;
          group.push_back(neighbour);
          mark(neighbour, -1.0);
          ++count;
        }
    }
  } catch (const std::bad_alloc&) {
    // The list so far is restored and returned.
  }
  for (const DatasetCoordinates& c : group) mark(c, 1.0);
  return group;
}

void BinarySegmentations::removeSmallVoxelGroups(Dataset* segmentation, double value, int maximalGroupSize) {
  if (segmentation == nullptr || !segmentation->hasNumericalElementType()) return;
  const DatasetCoordinates size = segmentation->getSize();
  const int limit = maximalGroupSize < INT_MAX ? maximalGroupSize + 1 : INT_MAX;
  for (int t = 0; t < size.t; ++t)
    for (int c = 0; c < size.c; ++c)
      for (int z = 0; z < size.z; ++z)
        for (int y = 0; y < size.y; ++y)
          for (int x = 0; x < size.x; ++x) {
            const DatasetCoordinates p(x, y, z, t, c);
            if (segmentation->getElement<double>(p) != value) continue;
            const std::list<DatasetCoordinates> group = getGroup(segmentation, value, limit, p);
            if (group.empty() || static_cast<Index>(group.size()) > static_cast<Index>(maximalGroupSize)) continue;
            for (const DatasetCoordinates& member : group) segmentation->setElement<bool>(member, false);
          }
}

void BinarySegmentations::fillConvexHull(Dataset* segmentation) {
  if (segmentation == nullptr || !segmentation->hasData()) return;
  if (!segmentation->is2D() && !segmentation->is3D()) return;
  // The pass changes no value, so running out of memory for the hull just ends it.
  try {
    fillConvexHullSpans(segmentation);
  } catch (const std::bad_alloc&) {
  }
}

namespace {

void fillConvexHullSpans(Dataset* segmentation) {
  const DatasetCoordinates size = segmentation->getSize();
  auto objectAt = [&](int x, int y, int z, int t) {
    return segmentation->getElement<bool>(DatasetCoordinates(x, y, z, t, 0));
  };
  // Visits the span [low, high] of a column, rounded inwards and kept inside the dataset.
  auto visitSpan = [&](double low, double high, int extent, auto&& visit) {
    const double first = std::max(std::ceil(low), 0.0);
    const double last = std::min(std::floor(high), static_cast<double>(extent - 1));
    for (double v = first; v <= last; v += 1.0) visit(static_cast<int>(v));
  };
  for (int t = 0; t < size.t; ++t) {
    if (segmentation->is3D()) {
      // The hull of the object voxels is that of the lowest and highest object voxel of every
      // column, which keeps the point set small.
      std::set<Vector3D> points;
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x) {
          int lowest = -1, highest = -1;
          for (int z = 0; z < size.z; ++z)
            if (objectAt(x, y, z, t)) {
              if (lowest < 0) lowest = z;
              highest = z;
            }
          if (lowest < 0) continue;
          points.insert(Vector3D(x, y, lowest));
          points.insert(Vector3D(x, y, highest));
        }
      const std::vector<std::array<Vector3D, 3>> facets = Mathematics::convexHull(points);
      if (facets.empty()) continue;
      // A column parallel to z meets a facet only inside the facet's x-y bounds.
      std::vector<std::array<double, 4>> bounds;
      for (const auto& f : facets)
        bounds.push_back({std::min({f[0].x, f[1].x, f[2].x}), std::max({f[0].x, f[1].x, f[2].x}),
                          std::min({f[0].y, f[1].y, f[2].y}), std::max({f[0].y, f[1].y, f[2].y})});
      for (int y = 0; y < size.y; ++y)
        for (int x = 0; x < size.x; ++x) {
          bool met = false;
          double low = 0.0, high = 0.0;
          for (std::size_t i = 0; i < facets.size(); ++i) {
            const auto& b = bounds[i];
            if (x < b[0] || x > b[1] || y < b[2] || y > b[3]) continue;
            Vector3D first, last;
            if (!Mathematics::lineTriangleIntersection3D(Vector3D(x, y, 0), Vector3D(x, y, 1), facets[i], first, last))
              continue;
            const double zLow = std::min(first.z, last.z), zHigh = std::max(first.z, last.z);
            low = met ? std::min(low, zLow) : zLow;
            high = met ? std::max(high, zHigh) : zHigh;
            met = true;
          }
          if (!met) continue;
          visitSpan(low, high, size.z, [&](int z) {
            if (!objectAt(x, y, z, t)) segmentation->setElement<bool>(DatasetCoordinates(x, y, z, t, 0), false);
          });
        }
    } else {
      std::set<Vector2D> points;
      for (int x = 0; x < size.x; ++x) {
        int lowest = -1, highest = -1;
        for (int y = 0; y < size.y; ++y)
          if (objectAt(x, y, 0, t)) {
            if (lowest < 0) lowest = y;
            highest = y;
          }
        if (lowest < 0) continue;
        points.insert(Vector2D(x, lowest));
        points.insert(Vector2D(x, highest));
      }
      const std::vector<std::array<Vector2D, 2>> edges = Mathematics::convexHull(points);
      for (int x = 0; x < size.x && !edges.empty(); ++x) {
        bool met = false;
        double low = 0.0, high = 0.0;
        for (const auto& edge : edges) {
          if (x < std::min(edge[0].x, edge[1].x) || x > std::max(edge[0].x, edge[1].x)) continue;
          Vector2D first, last;
          if (!Mathematics::lineSegmentIntersection2D(Vector2D(x, 0), Vector2D(x, 1), edge, first, last)) continue;
          const double yLow = std::min(first.y, last.y), yHigh = std::max(first.y, last.y);
          low = met ? std::min(low, yLow) : yLow;
          high = met ? std::max(high, yHigh) : yHigh;
          met = true;
        }
        if (!met) continue;
        visitSpan(low, high, size.y, [&](int y) {
          if (!objectAt(x, y, 0, t)) segmentation->setElement<bool>(DatasetCoordinates(x, y, 0, t, 0), false);
        });
      }
    }
  }
}

}  // namespace

double BinarySegmentations::getSquaredPointSegmentationDistance(Dataset* segmentation, const DatasetCoordinates& p) {
  return searchFromPoint(segmentation, p, nonZero);
}

double BinarySegmentations::getSquaredBorderPointSegmentationDistance(Dataset* segmentation,
                                                                      const DatasetCoordinates& p) {
  return searchFromPoint(segmentation, p, border);
}

double BinarySegmentations::getSquaredSegmentationToSegmentationDistance(Dataset* a, Dataset* b, int t) {
  if (!holdsTimeStep(a, t) || !holdsTimeStep(b, t)) return 0.0;
  SliceMembership source(a, t, 0, true);
  SliceMembership target(b, t, 0, true);
  return directedSquaredDistance(source, target, makeShellSearch(b));
}

double BinarySegmentations::getHausdorffDistance(Dataset* a, Dataset* b, int t) {
  if (a == nullptr || b == nullptr || !a->isCompatible(b) || !holdsTimeStep(a, t)) return 0.0;
  SliceMembership sliceA(a, t, 0, true);
  SliceMembership sliceB(b, t, 0, true);
  if (countReadsTrue(sliceA) == 0 || countReadsTrue(sliceB) == 0) return 0.0;
  const double fromB = directedSquaredDistance(sliceB, sliceA, makeShellSearch(a));
  const double fromA = directedSquaredDistance(sliceA, sliceB, makeShellSearch(b));
  return std::sqrt(std::max(fromB, fromA));
}

double BinarySegmentations::getAverageBorderDistance(Dataset* a, Dataset* b, int t) {
  if (a == nullptr || b == nullptr || !a->isCompatible(b) || !holdsTimeStep(a, t)) return 0.0;
  SliceMembership sliceA(a, t, 0, true);
  SliceMembership sliceB(b, t, 0, true);
  if (countReadsTrue(sliceA) == 0 || countReadsTrue(sliceB) == 0) return 0.0;
  double sum = 0.0;
  double count = 0.0;
  auto add = [&](double squaredDistance) {
    sum += std::sqrt(squaredDistance);
    count += 1.0;
  };
  forEachSourceDistance(sliceA, border, sliceB, makeShellSearch(b), border, add);
  forEachSourceDistance(sliceB, border, sliceA, makeShellSearch(a), border, add);
  return sum / count;
}

}  // namespace tarv
