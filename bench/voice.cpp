// tessarin-bench-voice
//
// Cleans a minute of a voice over and over, in both passes of the chain, on one thread, and prints how many
// seconds of sound a second of the processor is enough for: for both passes, for each alone, and for both
// with sound that is hard on a processor, numbers next to zero. Then the nanoseconds that the transform of
// 1024 complex numbers takes, and those of KissFFT, the library that is the usual choice for it:
//
//   both RATIO observe RATIO process RATIO denormal RATIO transform NS library NS

#include "narration/NarrationNoiseProfile.hpp"
#include "narration/NarrationVoiceProcessor.hpp"

#include <kiss_fft.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <memory>
#include <numbers>
#include <vector>

namespace {

using namespace tessarin;

constexpr double sampleRate = 48000;
constexpr std::size_t blockCount = 60 * 48000 / narrationBlockSize;
constexpr int rounds = 9;

double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Four syllables a second of a hundred and forty oscillations, with noise and hum beneath; `scale` 1 for a
// voice as it is.
std::vector<float> voice(double scale) {
  std::vector<float> samples(blockCount * narrationBlockSize);
  std::uint32_t state = 1;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double time = static_cast<double>(i) / sampleRate;
    state = state * 1664525 + 1013904223;
    double value = (static_cast<double>(state) / 4294967296.0 - 0.5) * 0.01;
    value += 0.004 * std::sin(2 * std::numbers::pi * 50 * time);
    const double loudness = std::max(0.0, std::sin(2 * std::numbers::pi * 2 * time));
    for (int harmonic = 1; harmonic <= 12; ++harmonic)
      value += loudness * 0.1 / harmonic * std::sin(2 * std::numbers::pi * 140 * harmonic * time);
    samples[i] = static_cast<float>(value * scale);
  }
  return samples;
}

// The median of the processor seconds of some rounds, the first of which brings the memory in and counts not.
template<class Work> double medianSeconds(const Work& work) {
  std::vector<double> seconds;
  seconds.reserve(rounds);
  work();
  for (int round = 0; round < rounds; ++round) {
    const double start = processorSeconds();
    work();
    seconds.push_back(processorSeconds() - start);
  }
  std::nth_element(seconds.begin(), seconds.begin() + rounds / 2, seconds.end());
  return seconds[rounds / 2];
}

float heard = 0; // of every result, so that none is left out

NarrationPowers observed(const std::vector<float>& samples) {
  NarrationNoiseProfile profile;
  for (std::size_t i = 0; i < samples.size(); i += narrationBlockSize)
    profile.observe({samples.data() + i, narrationBlockSize});
  const NarrationPowers noise = profile.estimate();
  heard += noise[1];
  return noise;
}

void process(const std::vector<float>& samples, const NarrationPowers& noise) {
  NarrationVoiceProcessor processor(noise, 0.75F);
  for (std::size_t i = 0; i < samples.size(); i += narrationBlockSize)
    heard += processor.process({samples.data() + i, narrationBlockSize})[100];
}

double ratio(double seconds) {
  return blockCount * narrationBlockSize / sampleRate / seconds;
}

constexpr int transforms = 20'000;

double transformNanoseconds() {
  const auto transform = std::make_unique<NarrationTransform>();
  NarrationBins bins;
  for (std::size_t i = 0; i < narrationSpectrumSize; ++i) {
    bins.real[i] = std::sin(static_cast<float>(i * i));
    bins.imaginary[i] = 0;
  }
  NarrationBins spent = bins;
  NarrationBins result;
  return 1e9 / transforms * medianSeconds([&] {
           for (int i = 0; i < transforms; ++i) {
             spent = bins;
             transform->forward(spent, result);
             heard += result.real[7];
           }
         });
}

double libraryNanoseconds() {
  const std::unique_ptr<kiss_fft_state, decltype(&free)> plan(
      kiss_fft_alloc(narrationSpectrumSize, 0, nullptr, nullptr), &free);
  std::vector<kiss_fft_cpx> samples(narrationSpectrumSize);
  std::vector<kiss_fft_cpx> result(narrationSpectrumSize);
  for (std::size_t i = 0; i < narrationSpectrumSize; ++i)
    samples[i] = {std::sin(static_cast<float>(i * i)), 0};
  return 1e9 / transforms * medianSeconds([&] {
           for (int i = 0; i < transforms; ++i) {
             kiss_fft(plan.get(), samples.data(), result.data());
             heard += result[7].r;
           }
         });
}

} // namespace

int main() {
  const std::vector<float> samples = voice(1);
  const NarrationPowers noise = observed(samples);
  const double observing = medianSeconds([&] { observed(samples); });
  const double processing = medianSeconds([&] { process(samples, noise); });
  const double both = medianSeconds([&] { process(samples, observed(samples)); });
  const std::vector<float> faint = voice(1e-39);
  const double denormal = medianSeconds([&] { process(faint, observed(faint)); });
  std::printf("both %.0f observe %.0f process %.0f denormal %.0f transform %.0f library %.0f\n", ratio(both),
              ratio(observing), ratio(processing), ratio(denormal), transformNanoseconds(),
              libraryNanoseconds());
  return std::isnan(heard) ? 1 : 0;
}
