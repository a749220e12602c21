#ifndef TARV_ANALYSIS_LINEARINTERPOLATION_H
#define TARV_ANALYSIS_LINEARINTERPOLATION_H

// Linear interpolation along one axis, for Dataset's interpolated sampling.

#include <cmath>

#include "core/Mathematics.h"

namespace tarv::analysis {

// The two neighbouring positions of a sampling position and their weights.
struct AxisSamples {
  int position[2];
  double weight[2];
};

// floor(p) and ceil(p), weighted 1 - (p - floor) and 1 - (ceil - p); the lower alone, weight 1,
// when p is whole.
inline AxisSamples linearSamples(double p) {
  const double lower = std::floor(p);
  const double upper = std::ceil(p);
  AxisSamples samples{{Mathematics::round(lower), Mathematics::round(upper)}, {1.0, 0.0}};
  if (lower != upper) {
    samples.weight[0] = 1.0 - (p - lower);
    samples.weight[1] = 1.0 - (upper - p);
  }
  return samples;
}

}  // namespace tarv::analysis

#endif
