#ifndef TARV_TOOLS_PHANTOM_H
#define TARV_TOOLS_PHANTOM_H

#include "dataset/DatasetHandle.h"

namespace tarv::tool {

// Densities of the phantom, in Hounsfield-like units.
struct PhantomDensities {
  static constexpr short air = -1000;
  static constexpr short lung = -800;
  static constexpr short fat = -100;
  static constexpr short tissue = 40;
  static constexpr short contrast = 250;
  static constexpr short calcification = 600;
  static constexpr short bone = 1000;
};

// A CT-like volume of size^3 signed 16-bit voxels of 0.8 x 0.8 x 1.0 mm, about centred on the
// world origin in x and y: an ellipsoidal body of soft tissue in air holding two lungs, a fat pad, a
// contrast-filled sphere, a small calcification and a bone, with Gaussian noise of the given
// standard deviation from a fixed seed (the same volume on every run). The shapes scale with
// size (128 is the reference).
DatasetHandle makePhantom(int size, double noise, unsigned int seed);

}  // namespace tarv::tool

#endif
