#ifndef TARV_SEGMENTATION_SHELLSEARCH_H
#define TARV_SEGMENTATION_SHELLSEARCH_H

// The nearest-target search of the segmentation distances, in world units.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "core/WorldCoordinates.h"
#include "dataset/Dataset.h"
#include "segmentation/SliceMembership.h"

namespace tarv::segmentation {

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

inline ShellSearch makeShellSearch(Dataset* d) {
  const DatasetCoordinates size = d->getSize();
  return ShellSearch(d->getWorldEmbedding().getVoxelSpacing(), size.x, size.y, size.z);
}

}  // namespace tarv::segmentation

#endif
