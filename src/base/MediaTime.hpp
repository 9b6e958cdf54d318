#pragma once

#include <compare>
#include <cstdint>

namespace tessarin {

// A rational time: value / timescale seconds, or not numeric at all. Arithmetic with a time that is not
// numeric yields one that is not numeric. All conversions round half away from zero. Plain value, any thread.
class MediaTime {
 public:
  // Not numeric.
  constexpr MediaTime() = default;
  // A timescale below 1 yields a time that is not numeric.
  constexpr MediaTime(std::int64_t value, std::int32_t timescale)
      : value_(timescale > 0 ? value : 0), timescale_(timescale > 0 ? timescale : 0) {}

  static constexpr std::int32_t nanosecondScale = 1'000'000'000;
  static constexpr MediaTime zero() { return {0, 1}; }
  static constexpr MediaTime milliseconds(std::int64_t value) { return {value, 1000}; }
  static constexpr MediaTime nanoseconds(std::int64_t value) { return {value, nanosecondScale}; }

  constexpr bool isNumeric() const { return timescale_ > 0; }
  // Both 0 when not numeric.
  constexpr std::int64_t value() const { return value_; }
  constexpr std::int32_t timescale() const { return timescale_; }

  // The same time at another timescale; not numeric when it does not fit into 64 bits.
  MediaTime convertedTo(std::int32_t timescale) const;

  // 0 when not numeric.
  double seconds() const;
  // Whole milliseconds; 0 when not numeric or out of range.
  std::int64_t wholeMilliseconds() const;

  // At the least common timescale when that fits 32 bits, so exact; else rounded to the finer of the two.
  // Not numeric when the value does not fit into 64 bits.
  friend MediaTime operator+(MediaTime a, MediaTime b);
  friend MediaTime operator-(MediaTime a, MediaTime b);
  // This time times numerator / denominator: at the least multiple of this timescale where it is exact, or
  // rounded at the greatest one that fits 32 bits. Not numeric when the denominator is 0 or the value does
  // not fit into 64 bits.
  MediaTime scaledBy(std::int32_t numerator, std::int32_t denominator) const;

  // Exact comparison across timescales. Times that are not numeric are equal to each other and less than
  // every numeric one.
  friend std::strong_ordering operator<=>(MediaTime a, MediaTime b);
  friend bool operator==(MediaTime a, MediaTime b) { return std::is_eq(a <=> b); }

 private:
  std::int64_t value_ = 0;
  std::int32_t timescale_ = 0;
};

} // namespace tessarin
