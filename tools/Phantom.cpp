#include "Phantom.h"

#include <cmath>
#include <random>
#include <vector>

namespace tarv::tool {

namespace {

struct Ellipsoid {
  double centre[3];
  double radii[3];
  short value;

  bool contains(double x, double y, double z) const {
    const double dx = (x - centre[0]) / radii[0];
    const double dy = (y - centre[1]) / radii[1];
    const double dz = (z - centre[2]) / radii[2];
    return dx * dx + dy * dy + dz * dz <= 1.0;
  }
};

}  // namespace

DatasetHandle makePhantom(int size, double noise, unsigned int seed) {
  // Shapes in the coordinates of a 128^3 volume; later shapes lie on top of earlier ones.
  const std::vector<Ellipsoid> shapes = {
      {{64, 64, 64}, {56, 44, 58}, PhantomDensities::tissue},
      {{40, 62, 70}, {15, 22, 32}, PhantomDensities::lung},
      {{88, 62, 70}, {15, 22, 32}, PhantomDensities::lung},
      {{64, 64, 26}, {22, 14, 9}, PhantomDensities::fat},
      {{64, 36, 52}, {9, 9, 9}, PhantomDensities::contrast},
      {{64, 60, 98}, {4, 4, 4}, PhantomDensities::calcification},
      {{64, 94, 64}, {8, 8, 40}, PhantomDensities::bone},
  };
  const double scale = 128.0 / size;

  Dataset* phantom = new Dataset(true);
  DatasetHandle handle(phantom);
  const double half = 0.4 * size;
  phantom->newDataset<short>(DatasetCoordinates(size, size, size, 1, 1),
                             DatasetWorldEmbedding(WorldCoordinates(-half, -half, 0.0, 0.0),
                                                   WorldCoordinates(0.8, 0.8, 1.0, 1.0)));
  if (!phantom->hasData()) return handle;

  std::mt19937 generator(seed);
  std::normal_distribution<double> distribution(0.0, noise);
  for (auto it = phantom->getStartCoordinatesIterator(); it.valid; phantom->incrementCoordinatesIterator(it)) {
    const double x = (it.x + 0.5) * scale;
    const double y = (it.y + 0.5) * scale;
    const double z = (it.z + 0.5) * scale;
    double value = PhantomDensities::air;
    for (const Ellipsoid& shape : shapes)
      if (shape.contains(x, y, z)) value = shape.value;
    value += noise > 0.0 ? distribution(generator) : 0.0;
    phantom->setElement<short>(it, static_cast<short>(std::lround(value)));
  }
  return handle;
}

}  // namespace tarv::tool
