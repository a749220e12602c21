// Times the segmentation distances on a pair of whole-volume segmentations: two overlapping,
// slightly irregular blobs a few voxels apart in a 256^3 volume (the size can be given as the
// first argument). Each measure runs on plain in-memory datasets and on the same data read
// through the virtual element access of a derived dataset; the two results must be identical.
//
//   segmentation_distance_bench [edge length [shift [spacing x y z]]]
//
// The second blob is moved by shift voxels along each axis (default 4, -3, 2 for a shift of 0).

#include <ctime>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>

#include "dataset/BinarySegmentations.h"
#include "dataset/Dataset.h"

using namespace tarv;

namespace {

// Read through element access rather than straight from memory.
class ElementAccessDataset : public Dataset {
public:
  ElementAccessDataset() : Dataset(true) {}
  bool getElementByBuffer(const DatasetCoordinates& p, void* buffer) override {
    return Dataset::getElementByBuffer(p, buffer);
  }
};

// A ball of the given radius whose surface is perturbed by a few low-frequency waves.
void fillBlob(Dataset* d, double cx, double cy, double cz, double radius, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> phase(0.0, 6.283185307179586);
  const double p1 = phase(rng), p2 = phase(rng), p3 = phase(rng);
  const DatasetCoordinates size = d->getSize();
  for (int z = 0; z < size.z; ++z)
    for (int y = 0; y < size.y; ++y)
      for (int x = 0; x < size.x; ++x) {
        const double dx = x - cx, dy = y - cy, dz = z - cz;
        const double r = std::sqrt(dx * dx + dy * dy + dz * dz);
        const double theta = std::atan2(dy, dx), phi = std::atan2(dz, std::hypot(dx, dy));
        const double surface = radius * (1.0 + 0.06 * std::sin(3 * theta + p1) + 0.05 * std::sin(4 * phi + p2) +
                                         0.03 * std::sin(5 * theta + 2 * phi + p3));
        d->setElement<int>(DatasetCoordinates(x, y, z, 0, 0), r <= surface ? 1 : 0);
      }
}

// Runs f and gives its result; seconds is the processor time it took (the benchmark is single
// threaded, and processor time stays meaningful on a busy machine).
template <typename F>
double timed(F&& f, double& seconds) {
  const std::clock_t start = std::clock();
  const double result = f();
  seconds = double(std::clock() - start) / CLOCKS_PER_SEC;
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  const int n = argc > 1 ? std::atoi(argv[1]) : 256;
  const int shift = argc > 2 ? std::atoi(argv[2]) : 0;
  const double sx = argc > 5 ? std::atof(argv[3]) : 1.0;
  const double sy = argc > 5 ? std::atof(argv[4]) : 1.0;
  const double sz = argc > 5 ? std::atof(argv[5]) : 1.0;
  if (n < 8 || n > 1024) {
    std::fprintf(stderr, "edge length must lie in 8..1024\n");
    return 2;
  }
  const DatasetCoordinates size(n, n, n, 1, 1);
  const DatasetWorldEmbedding embedding(WorldCoordinates(0, 0, 0, 0), WorldCoordinates(sx, sy, sz, 1));

  std::unique_ptr<Dataset> plain[2] = {std::make_unique<Dataset>(true), std::make_unique<Dataset>(true)};
  std::unique_ptr<Dataset> virtualAccess[2] = {std::make_unique<ElementAccessDataset>(),
                                               std::make_unique<ElementAccessDataset>()};
  const double c = n / 2.0, radius = n * 0.23;
  for (int i = 0; i < 2; ++i) {
    for (Dataset* d : {plain[i].get(), virtualAccess[i].get()}) {
      d->newDataset(size, TARV_ELEMENT_TYPE_UNSIGNED_CHAR, embedding);
      // The second blob is shifted by a few voxels and slightly smaller.
      if (i == 0) fillBlob(d, c, c, c, radius, 1);
      else if (shift == 0) fillBlob(d, c + 4, c - 3, c + 2, radius * 0.97, 2);
      else fillBlob(d, c + shift, c + shift, c + shift, radius * 0.97, 2);
    }
  }
  std::printf("shift %d, volume %d^3, spacing %g %g %g, objects %u and %u voxels, shared %u\n", shift, n, sx, sy, sz,
              BinarySegmentations::getSegmentationVoxelCount(plain[0].get(), 0),
              BinarySegmentations::getSegmentationVoxelCount(plain[1].get(), 0),
              BinarySegmentations::getSharedSegmentationVoxelCount(plain[0].get(), plain[1].get(), 0));

  bool identical = true;
  struct Measure {
    const char* name;
    double (*f)(Dataset*, Dataset*, int);
  } measures[] = {{"Hausdorff distance", &BinarySegmentations::getHausdorffDistance},
                  {"average border distance", &BinarySegmentations::getAverageBorderDistance},
                  {"directed squared distance a->b", &BinarySegmentations::getSquaredSegmentationToSegmentationDistance}};
  for (const Measure& m : measures) {
    double fast = 0.0, general = 0.0;
    const double a = timed([&] { return m.f(plain[0].get(), plain[1].get(), 0); }, fast);
    const double b = timed([&] { return m.f(virtualAccess[0].get(), virtualAccess[1].get(), 0); }, general);
    const bool same = a == b || (std::isnan(a) && std::isnan(b));
    identical = identical && same;
    std::printf("%-32s %.17g  in-memory %.3f s  element access %.3f s (processor time)%s\n", m.name, a, fast, general,
                same ? "" : "  RESULTS DIFFER");
  }
  double countTime = 0.0;
  timed([&] { return double(BinarySegmentations::getTotalSegmentationVoxelCount(plain[0].get(), plain[1].get(), 0)); },
        countTime);
  std::printf("%-32s in-memory %.3f s\n", "union voxel count", countTime);
  double hullTime = 0.0;
  timed(
      [&] {
        BinarySegmentations::fillConvexHull(plain[0].get());
        return 0.0;
      },
      hullTime);
  std::printf("%-32s in-memory %.3f s\n", "convex hull span pass", hullTime);
  return identical ? 0 : 1;
}
