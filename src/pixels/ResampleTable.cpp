#include "pixels/ResampleTable.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin::pixels {

namespace {

constexpr int wholeWeight = 1 << weightBits;
constexpr double little = 1e-9;

// The convolution of two boxes around 0, of area 1.
class Trapezoid {
 public:
  explicit Trapezoid(double step) : wide_(std::max(step, 1.0)), narrow_(std::min(wide_ - 1, wide_ / 2)) {}

  double reach() const { return (wide_ + narrow_) / 2; }

  // Its area up to x.
  double areaUpTo(double x) const {
    if (narrow_ < 1e-6)
      return std::clamp(x / wide_ + 0.5, 0.0, 1.0);
    const double outer = reach();
    const double inner = (wide_ - narrow_) / 2;
    if (x <= -outer)
      return 0;
    if (x >= outer)
      return 1;
    if (x < -inner)
      return (x + outer) * (x + outer) / (2 * wide_ * narrow_);
    if (x > inner)
      return 1 - (outer - x) * (outer - x) / (2 * wide_ * narrow_);
    return narrow_ / (2 * wide_) + (x + inner) / wide_;
  }

 private:
  double wide_, narrow_;
};

} // namespace

void ResampleTable::fill(const ResampleAxis& axis, Edges edges) {
  const Trapezoid filter(1 / std::abs(axis.scale));
  const double reach = filter.reach();
  const auto touched =
      static_cast<std::int32_t>(std::min<double>(std::ceil(2 * reach - little) + 1, axis.length));
  taps_ = touched + touched % 2;
  const auto targets = static_cast<std::size_t>(axis.targetLength);
  const auto taps = static_cast<std::size_t>(taps_);
  first_.resize(targets);
  sums_.resize(targets);
  weights_.assign(targets * taps, 0);
  const auto pixelAt = [&](double place) {
    return static_cast<std::int32_t>(std::clamp<double>(place, 0, axis.length));
  };
  for (std::size_t i = 0; i < targets; ++i) {
    const double center = (static_cast<double>(i) + 0.5 - axis.offset) / axis.scale;
    std::int32_t from = pixelAt(std::floor(center - reach + little));
    std::int32_t to = pixelAt(std::ceil(center + reach - little));
    const bool isClamped = edges == Edges::clamped;
    if (isClamped) {
      from = std::min(from, axis.length - 1);
      to = std::max(to, from + 1);
    }
    // Rounding the running sum, not each weight, keeps the sum.
    const auto areaUpTo = [&](std::int32_t pixel) {
      return static_cast<int>(std::lround(filter.areaUpTo(pixel - center) * wholeWeight));
    };
    first_[i] = std::min(from, axis.length - 1);
    sums_[i] = 0;
    int before = isClamped ? 0 : areaUpTo(from);
    for (std::int32_t pixel = from; pixel < to; ++pixel) {
      const int after = isClamped && pixel + 1 == to ? wholeWeight : areaUpTo(pixel + 1);
      weights_[i * taps + static_cast<std::size_t>(pixel - from)] = static_cast<std::int16_t>(after - before);
      sums_[i] += after - before;
      before = after;
    }
  }
  const auto [least, most] = std::minmax_element(first_.begin(), first_.end());
  firstNeeded_ = *least;
  neededCount_ = std::min(*most + taps_, axis.length) - firstNeeded_;
  for (std::int32_t& first : first_)
    first -= firstNeeded_;
}

} // namespace tessarin::pixels
