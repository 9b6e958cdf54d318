#include "modules/editing/Limiter.hpp"

#include <algorithm>
#include <cmath>

namespace tessarin::editing {

namespace {

// How much of what is missing comes back with each frame: a time constant of 100 ms.
constexpr float recovery = 1.0F / 4800.0F;
// So near that the rest is not heard.
constexpr float nearlyOne = 0.999F;

} // namespace

// The mean over the next frames of the least gain that any frame around asks for: never more than the frame
// itself asks for, and without steps.
float Limiter::smoothedGain(float gain) {
  while (!minimums_.empty() && minimums_.back().gain >= gain)
    minimums_.pop_back();
  minimums_.push_back({taken_, gain});
  if (minimums_.front().frame + ahead <= taken_)
    minimums_.pop_front();
  released_ = std::min(minimums_.front().gain, released_ + (1 - released_) * recovery);
  if (released_ > nearlyOne && minimums_.front().gain >= 1)
    released_ = 1;

  float& slot = gains_[taken_ % ahead];
  reduced_ -= slot < 1 ? 1U : 0U;
  slot = released_;
  reduced_ += slot < 1 ? 1U : 0U;
  if (reduced_ == 0)
    return 1;
  double sum = 0;
  for (const float each : gains_)
    sum += each;
  return static_cast<float>(sum / ahead);
}

void Limiter::take(std::span<const float> frames, std::vector<float>& output) {
  output.reserve(output.size() + frames.size());
  for (std::size_t i = 0; i + 1 < frames.size(); i += 2) {
    const float left = std::isfinite(frames[i]) ? frames[i] : 0;
    const float right = std::isfinite(frames[i + 1]) ? frames[i + 1] : 0;
    const float peak = std::max(std::abs(left), std::abs(right));
    const std::size_t at = 2 * (taken_ % ahead);
    delayed_[at] = left;
    delayed_[at + 1] = right;
    const float gain = smoothedGain(peak > 1 ? 1 / peak : 1);
    ++taken_;
    if (taken_ < ahead)
      continue;
    const std::size_t oldest = 2 * (taken_ % ahead);
    output.insert(output.end(), {delayed_[oldest] * gain, delayed_[oldest + 1] * gain});
  }
}

void Limiter::finish(std::vector<float>& output) {
  const auto waiting = static_cast<std::size_t>(std::min<std::uint64_t>(taken_, ahead - 1));
  const std::size_t end = output.size() + 2 * waiting;
  const std::vector<float> silence(2 * (ahead - 1), 0.0F);
  take(silence, output);
  output.resize(end);
}

} // namespace tessarin::editing
