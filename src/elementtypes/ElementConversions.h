#ifndef TARV_ELEMENTTYPES_ELEMENTCONVERSIONS_H
#define TARV_ELEMENTTYPES_ELEMENTCONVERSIONS_H

// Named variants of the element conversion rule convertElementValue (dataset/DatasetMemory.h).

#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>

namespace tarv {

namespace detail {

// Truncates toward zero and keeps the low-order bits of the result, as wide as To. NaN and
// infinities, which have no integer part, give 0.
template <typename To>
To truncateAndWrap(double value) {
  static_assert(std::is_integral_v<To> && !std::is_same_v<To, bool>);
  if (!std::isfinite(value)) return To(0);
  constexpr double twoToThe64 = 18446744073709551616.0;
  const double reduced = std::fmod(std::trunc(value), twoToThe64);  // exact; |reduced| < 2^64
  const auto magnitude = static_cast<std::uint64_t>(std::fabs(reduced));
  const std::uint64_t bits = reduced < 0 ? std::uint64_t(0) - magnitude : magnitude;
  return static_cast<To>(bits);  // modular for every integer type
}

// IEEE rounding to float, spelled out where a plain conversion would leave the float range.
inline float narrowToFloat(double value) {
  constexpr double largest = std::numeric_limits<float>::max();
  constexpr double overflowBoundary = 0x1.ffffffp127;  // halfway between the largest float and 2^128
  constexpr float infinity = std::numeric_limits<float>::infinity();
  if (value >= overflowBoundary) return infinity;
  if (value <= -overflowBoundary) return -infinity;
  if (value > largest) return float(largest);
  if (value < -largest) return -float(largest);
  return static_cast<float>(value);  // NaN stays NaN
}

}  // namespace detail

// The conversion of the image module's voxel values (bool up to double; never to bool): the
// built-in conversion, except that floating point to an integer truncates toward zero and keeps
// the low-order bits of the exact result, wrapping at every value (NaN and infinities give 0),
// and double to float rounds to nearest, giving infinity only beyond the float range.
// convertElementValue agrees except for NaN, infinities and floating-point values beyond the
// range of a 32-bit (int and narrower) or 64-bit integer, which it maps to that integer's minimum.
template <typename To, typename From>
To convertElementValueWrapping(From value) {
  static_assert(!std::is_same_v<To, bool> || std::is_same_v<From, bool>, "not a conversion to bool");
  if constexpr (std::is_same_v<To, From>)
    return value;
  else if constexpr (std::is_floating_point_v<From> && std::is_integral_v<To>)
    return detail::truncateAndWrap<To>(static_cast<double>(value));
  else if constexpr (std::is_same_v<To, float> && std::is_same_v<From, double>)
    return detail::narrowToFloat(value);
  else
    return static_cast<To>(value);
}

}  // namespace tarv

#endif
