#include "narration/NarrationTransform.hpp"
#include "narration/NarrationTesting.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <memory>

namespace tessarin {
namespace {

using narrationTesting::Reference;

constexpr std::size_t size = 1024;

struct Case {
  const char* name;
  std::function<std::complex<double>(std::size_t)> value;
};

std::vector<Case> cases() {
  auto noise = std::make_shared<narrationTesting::Noise>(7);
  return {
      {"an impulse", [](std::size_t i) { return i == 0 ? 1.0 : 0.0; }},
      {"a late impulse", [](std::size_t i) { return i == 1023 ? 1.0 : 0.0; }},
      {"an imaginary impulse", [](std::size_t i) { return std::complex<double>(0, i == 5 ? 1 : 0); }},
      {"a constant", [](std::size_t) { return 1.0; }},
      {"a square", [](std::size_t i) { return i / 32 % 2 == 0 ? 1.0 : -1.0; }},
      {"an alternation", [](std::size_t i) { return i % 2 == 0 ? 1.0 : -1.0; }},
      {"noise", [noise](std::size_t) { return noise->next(); }},
      {"complex noise", [noise](std::size_t) { return std::complex<double>(noise->next(), noise->next()); }},
  };
}

// Both as they are rounded to single precision.
std::pair<NarrationBins, Reference::Spectrum> inputOf(const Case& it) {
  std::pair<NarrationBins, Reference::Spectrum> result;
  result.second.resize(size);
  for (std::size_t i = 0; i < size; ++i) {
    const std::complex<double> value = it.value(i);
    result.first.real[i] = static_cast<float>(value.real());
    result.first.imaginary[i] = static_cast<float>(value.imag());
    result.second[i] = {result.first.real[i], result.first.imaginary[i]};
  }
  return result;
}

// The greatest distance of a bin, as a share of the root mean square of all bins.
double distance(const NarrationBins& bins, const Reference::Spectrum& expected) {
  double squares = 0;
  double greatest = 0;
  for (std::size_t k = 0; k < size; ++k) {
    squares += std::norm(expected[k]) / size;
    greatest =
        std::max(greatest, std::abs(std::complex<double>(bins.real[k], bins.imaginary[k]) - expected[k]));
  }
  return greatest / std::sqrt(squares);
}

TEST(NarrationTransform, isTheSumOverAllSamplesInBothDirections) {
  const NarrationTransform transform;
  for (const Case& it : cases()) {
    NarrationBins result;
    auto [forward, x] = inputOf(it);
    NarrationBins inverse = forward;
    transform.forward(forward, result);
    EXPECT_LT(distance(result, Reference::transformed(x, -1)), 2e-6) << it.name;
    transform.inverse(inverse, result);
    EXPECT_LT(distance(result, Reference::transformed(x, 1)), 2e-6) << it.name;
  }
}

TEST(NarrationTransform, findsEachFrequencyInItsOwnBin) {
  const NarrationTransform transform;
  for (std::size_t wanted = 0; wanted < size; ++wanted) {
    NarrationBins wave;
    NarrationBins result;
    for (std::size_t i = 0; i < size; ++i) {
      const double turn = 2 * std::numbers::pi * static_cast<double>(i * wanted % size) / size;
      wave.real[i] = static_cast<float>(std::cos(turn));
      wave.imaginary[i] = static_cast<float>(std::sin(turn));
    }
    transform.forward(wave, result);
    for (std::size_t k = 0; k < size; ++k) {
      ASSERT_NEAR(result.real[k], k == wanted ? 1024 : 0, 1e-3) << wanted << " in " << k;
      ASSERT_NEAR(result.imaginary[k], 0, 1e-3) << wanted << " in " << k;
    }
  }
}

TEST(NarrationTransform, isTheMirrorImageAboveTheMiddleForRealNumbers) {
  const NarrationTransform transform;
  auto [noise, x] = inputOf(cases()[6]);
  NarrationBins result;
  transform.forward(noise, result);
  for (std::size_t k = 1; k < size / 2; ++k) {
    EXPECT_NEAR(result.real[k], result.real[size - k], 1e-4) << k;
    EXPECT_NEAR(result.imaginary[k], -result.imaginary[size - k], 1e-4) << k;
  }
}

TEST(NarrationTransform, isThousandAndTwentyFourTimesWhatWentThereAndBack) {
  const NarrationTransform transform;
  for (const Case& it : cases()) {
    auto [there, x] = inputOf(it);
    NarrationBins bins;
    NarrationBins back;
    transform.forward(there, bins);
    transform.inverse(bins, back);
    for (std::complex<double>& value : x)
      value *= 1024;
    // A lone number, 32 times the root mean square, is rounded itself.
    EXPECT_LT(distance(back, x), 5e-6) << it.name;
  }
}

TEST(NarrationTransform, yieldsNoFiniteNumbersForAnInputThatHasOneWhichIsNot) {
  const NarrationTransform transform;
  for (const float value :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    NarrationBins bins{};
    NarrationBins result;
    bins.real[77] = value;
    transform.forward(bins, result);
    for (std::size_t k = 0; k < size; ++k)
      ASSERT_FALSE(std::isfinite(result.real[k]) && std::isfinite(result.imaginary[k])) << k;
  }
}

} // namespace
} // namespace tessarin
