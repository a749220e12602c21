#include "formats/ValueConversion.h"

#include <cmath>
#include <limits>
#include <type_traits>

#include "dataset/ScaleDataset.h"
#include "elementtypes/ElementTypeNames.h"
#include "formats/FileStatus.h"

namespace tarv::formats {

namespace {

// The double nearest to value on the side of zero.
double insideLimit(long double value) {
  const double rounded = static_cast<double>(value);
  if (static_cast<long double>(rounded) == value) return rounded;
  return std::nextafter(rounded, 0.0);
}

std::string number(double value) {
  std::string text = std::to_string(value);
  if (text.find('.') != std::string::npos) {
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
  }
  return text;
}

}  // namespace

ValueLimits elementTypeLimits(TARVElementType type) {
  ValueLimits limits;
  dispatchElementType(type, [&]<typename T>() {
    if constexpr (std::is_same_v<T, bool>)
      limits = {0.0, 1.0};
    else
      limits = {insideLimit(std::numeric_limits<T>::lowest()), insideLimit(std::numeric_limits<T>::max())};
  });
  return limits;
}

bool typeHoldsEveryValueOf(TARVElementType target, TARVElementType source) {
  if (target == source) return true;
  bool holds = false;
  dispatchElementType(source, [&]<typename S>() {
    dispatchElementType(target, [&]<typename T>() {
      if constexpr (std::is_same_v<S, bool>) {
        holds = true;
      } else if constexpr (std::is_same_v<T, bool>) {
        holds = false;
      } else if constexpr (std::is_floating_point_v<T>) {
        // Integers up to the mantissa's width, and narrower floats.
        holds = std::is_floating_point_v<S> ? sizeof(S) <= sizeof(T)
                                            : std::numeric_limits<S>::digits <= std::numeric_limits<T>::digits;
      } else if constexpr (std::is_floating_point_v<S>) {
        holds = false;
      } else {
        holds = std::numeric_limits<S>::lowest() >= static_cast<long double>(std::numeric_limits<T>::lowest()) &&
                static_cast<long double>(std::numeric_limits<S>::max()) <= std::numeric_limits<T>::max();
      }
    });
  });
  return holds;
}

Status checkValuesFit(Dataset* dataset, TARVElementType type) {
  if (dataset == nullptr || !dataset->hasData()) return invalidArgumentError("no data");
  if (typeHoldsEveryValueOf(type, dataset->getElementType())) return okStatus();
  const double minimum = dataset->getMinimumValue();
  const double maximum = dataset->getMaximumValue();
  const ValueLimits limits = elementTypeLimits(type);
  if (minimum >= limits.lowest && maximum <= limits.highest) return okStatus();
  return unsupportedError("values " + number(minimum) + " .. " + number(maximum) + " do not fit " +
                          elementTypeName(type) + " (" + number(limits.lowest) + " .. " + number(limits.highest) + ")");
}

bool convertPartClamping(Dataset& target, Dataset* source, TARVElementType type, const DatasetBoundingBox& box) {
  target.convertPartFrom(source, type, box);
  if (!target.hasData()) return false;
  const ValueLimits limits = elementTypeLimits(type);
  const DatasetCoordinates& shift = box.start;
  for (DatasetCoordinatesIterator it = target.getStartCoordinatesIterator(); it.valid; target.incrementCoordinatesIterator(it)) {
    const DatasetCoordinates p(it.x + shift.x, it.y + shift.y, it.z + shift.z, it.t + shift.t, it.c + shift.c);
    double value = source->getElement<double>(p);
    if (value < limits.lowest) value = limits.lowest;
    if (value > limits.highest) value = limits.highest;
    target.setElement<double>(it, value);
  }
  return true;
}

DatasetHandle rescaledValues(Dataset* source, double low, double high) {
  auto* scale = new ScaleDataset();
  DatasetHandle handle(scale);
  scale->setSourceDataset(source);
  scale->setParameters(low, high, true, 0.0, 1.0);
  return handle;
}

Result<DatasetHandle> componentOf(Dataset* source, int component) {
  if (source == nullptr || !source->hasData()) return invalidArgumentError("no data");
  const int components = source->getSize().c;
  if (component < 0 || component >= components)
    return invalidArgumentError("no component " + std::to_string(component) + ": the data has " +
                           (components == 1 ? std::string("one (0)") : "components 0 to " + std::to_string(components - 1)));
  DatasetBoundingBox box = source->getVoxelBoundingBox();
  box.start.c = box.end.c = component;
  auto* part = new Dataset(true);
  DatasetHandle handle(part);
  part->convertPartFrom(source, source->getElementType(), box);
  if (!part->hasData()) return resourceExhaustedError("not enough memory for one component");
  return handle;
}

Status checkTarv1HoldsRange(double minimum, double maximum) {
  if (!(maximum - std::floor(minimum) > 65535.0)) return okStatus();
  return unsupportedError("TARV1 cannot hold values " + number(minimum) + " .. " + number(maximum) +
                          " (its 16-bit samples span at most 65535 steps): rescale them or choose another format");
}

}  // namespace tarv::formats
