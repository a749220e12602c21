#ifndef TARV_FORMATS_VALUECONVERSION_H
#define TARV_FORMATS_VALUECONVERSION_H

// Converting elements to another type without losing values silently: whether the values fit,
// clamping them to the type, or rescaling them first.

#include "core/DatasetBoundingBox.h"
#include "dataset/Dataset.h"
#include "dataset/DatasetHandle.h"
#include "status/Status.h"

namespace tarv::formats {

// The lowest and highest value elements of the type hold, as doubles that convert back into it
// (the 64-bit limits are the nearest doubles inside them).
struct ValueLimits {
  double lowest = 0.0;
  double highest = 0.0;
};
ValueLimits elementTypeLimits(TARVElementType type);

// Whether every value of the source type is one of the target type (int16 in int32, uint8 in
// float ...), so that no check of the values is needed.
bool typeHoldsEveryValueOf(TARVElementType target, TARVElementType source);

// Unsupported, naming the data's range and the type's, when the dataset's values (its minimum
// and maximum, computed when not known) do not all fit the type: "values -1000 .. 3000 do not
// fit uint16 (0 .. 65535)".
Status checkValuesFit(Dataset* dataset, TARVElementType type);

// target := the box of source converted to the type (as Dataset::convertPartFrom), values
// outside the type's limits replaced by the nearer limit. False when memory is short.
bool convertPartClamping(Dataset& target, Dataset* source, TARVElementType type, const DatasetBoundingBox& box);

// The source's values mapped linearly from its own range onto [low, high] (a ScaleDataset on it).
DatasetHandle rescaledValues(Dataset* source, double low, double high);

// One component of the source, with its world embedding and modality LUT, copied into memory
// (computing it where the source is computed). Out of range when the source has no such component,
// resource exhausted when memory is short.
Result<DatasetHandle> componentOf(Dataset* source, int component);

// Unsupported unless TARV1's 16-bit samples hold values from minimum to maximum exactly
// (at most 65535 steps above floor(minimum)).
Status checkTarv1HoldsRange(double minimum, double maximum);

}  // namespace tarv::formats

#endif
