#include "base/MediaTime.hpp"

#include <algorithm>
#include <limits>
#include <numeric>

namespace tessarin {

namespace {

// Wide enough for a 64-bit value times two 31-bit scales.
using Wide = __int128;

constexpr std::int32_t largestScale = std::numeric_limits<std::int32_t>::max();

// Half away from zero; the divisor is positive.
Wide dividedRounding(Wide dividend, Wide divisor) {
  const Wide half = divisor / 2;
  const Wide magnitude = dividend < 0 ? -dividend : dividend;
  const Wide quotient = magnitude / divisor;
  const Wide rest = magnitude % divisor;
  // For an odd divisor no rest is exactly half of it.
  const bool up = divisor % 2 == 0 ? rest >= half : rest > half;
  const Wide rounded = quotient + (up ? 1 : 0);
  return dividend < 0 ? -rounded : rounded;
}

MediaTime fitted(Wide value, std::int32_t timescale) {
  if (value < std::numeric_limits<std::int64_t>::min() || value > std::numeric_limits<std::int64_t>::max())
    return {};
  return {static_cast<std::int64_t>(value), timescale};
}

// The least common multiple of both timescales, or the finer of the two when that does not fit.
std::int32_t commonScale(std::int32_t a, std::int32_t b) {
  const std::int64_t exact = std::lcm(std::int64_t{a}, std::int64_t{b});
  return exact <= largestScale ? static_cast<std::int32_t>(exact) : std::max(a, b);
}

Wide valueAt(MediaTime time, std::int32_t timescale) {
  return dividedRounding(Wide{time.value()} * timescale, time.timescale());
}

} // namespace

MediaTime MediaTime::convertedTo(std::int32_t timescale) const {
  if (!isNumeric() || timescale < 1)
    return {};
  return fitted(valueAt(*this, timescale), timescale);
}

double MediaTime::seconds() const {
  return isNumeric() ? static_cast<double>(value_) / timescale_ : 0;
}

std::int64_t MediaTime::wholeMilliseconds() const {
  return convertedTo(1000).value();
}

MediaTime operator+(MediaTime a, MediaTime b) {
  if (!a.isNumeric() || !b.isNumeric())
    return {};
  const std::int32_t scale = commonScale(a.timescale_, b.timescale_);
  return fitted(valueAt(a, scale) + valueAt(b, scale), scale);
}

MediaTime operator-(MediaTime a, MediaTime b) {
  if (!a.isNumeric() || !b.isNumeric())
    return {};
  const std::int32_t scale = commonScale(a.timescale_, b.timescale_);
  return fitted(valueAt(a, scale) - valueAt(b, scale), scale);
}

MediaTime MediaTime::scaledBy(std::int32_t numerator, std::int32_t denominator) const {
  if (!isNumeric() || denominator == 0)
    return {};
  const Wide sign = denominator < 0 ? -1 : 1;
  const Wide dividend = Wide{value_} * numerator * sign;
  const Wide divisor = Wide{denominator} * sign;
  const auto rest = static_cast<std::int64_t>(dividend % divisor);
  const Wide exactMultiple = divisor / std::gcd(rest, static_cast<std::int64_t>(divisor));
  const Wide multiple = std::min<Wide>(exactMultiple, largestScale / timescale_);
  return fitted(dividedRounding(dividend * multiple, divisor),
                static_cast<std::int32_t>(timescale_ * multiple));
}

std::strong_ordering operator<=>(MediaTime a, MediaTime b) {
  if (!a.isNumeric() || !b.isNumeric())
    return a.isNumeric() <=> b.isNumeric();
  const Wide left = Wide{a.value_} * b.timescale_;
  const Wide right = Wide{b.value_} * a.timescale_;
  return left < right   ? std::strong_ordering::less
         : left > right ? std::strong_ordering::greater
                        : std::strong_ordering::equal;
}

} // namespace tessarin
