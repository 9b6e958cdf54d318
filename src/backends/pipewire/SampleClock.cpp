#include "backends/pipewire/SampleClock.hpp"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace tessarin::pipewire {

namespace {

constexpr double second = 1e9;
// In hertz: fast enough to find the right place within a second, then slow enough to let jitter pass by.
constexpr double bandwidthAtFirst = 0.5;
constexpr double bandwidthLater = 0.05;
// How far from its nominal rate a device may be; what is beyond is no drift.
constexpr double greatestDrift = 0.002;
// How much the buffers of a step may differ.
constexpr double stepTolerance = 1e6;

} // namespace

std::int64_t SampleClock::timeOf(std::int64_t toldTime, std::int64_t frameCount, std::int64_t missingFrames) {
  if (period_ <= 0) {
    period_ = nominalPeriod_;
    anchor(toldTime);
  }
  const auto missing = static_cast<double>(missingFrames) * period_;
  next_ += missing;
  const auto error = static_cast<double>(toldTime - base_) - next_;
  if (std::abs(error) > static_cast<double>(discontinuity) || isStep(error)) {
    anchor(toldTime);
  } else {
    const auto most = static_cast<double>(step);
    follow(std::clamp(error, -most, most), missing + static_cast<double>(frameCount) * period_);
  }
  auto time = base_ + std::llround(next_);
  if (lastTime_ && time <= *lastTime_) {
    time = *lastTime_ + 1;
  }
  lastTime_ = time;
  next_ += static_cast<double>(frameCount) * period_;
  return time;
}

// The rate that was found so far is kept: it is the device's, also behind a hole.
void SampleClock::anchor(std::int64_t toldTime) {
  base_ = toldTime;
  next_ = 0;
  followed_ = 0;
  stepBuffers_ = 0;
}

bool SampleClock::isStep(double error) {
  if (std::abs(error) <= static_cast<double>(step)) {
    stepBuffers_ = 0;
    return false;
  }
  if (stepBuffers_ == 0 || std::abs(error - stepError_) > stepTolerance) {
    stepError_ = error;
    stepBuffers_ = 0;
  }
  return ++stepBuffers_ == stepCount;
}

// One step of a critically damped loop of second order over the time that the buffer covers.
void SampleClock::follow(double error, double elapsed) {
  const auto bandwidth = followed_ < second ? bandwidthAtFirst : bandwidthLater;
  const auto omega = std::min(2 * std::numbers::pi * bandwidth * elapsed / second, 1.0);
  followed_ += elapsed;
  next_ += 2 * omega * error / (1 + 2 * omega);
  if (elapsed > 0) {
    period_ += omega * omega * error / elapsed * nominalPeriod_;
    period_ = std::clamp(period_, nominalPeriod_ * (1 - greatestDrift), nominalPeriod_ * (1 + greatestDrift));
  }
}

} // namespace tessarin::pipewire
