#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <numbers>
#include <span>
#include <vector>

// Sounds to clean and a second chain to compare with, for tests. The chain is written straight down in double
// precision, with sums over all samples for a transform, and shares nothing with the one that is tested.
namespace tessarin::narrationTesting {

using Samples = std::vector<float>;

inline constexpr double sampleRate = 48000;

// Evenly spread within -1 and 1, the same on every machine.
class Noise {
 public:
  explicit Noise(std::uint32_t seed) : state_(seed) {}
  double next() {
    state_ = state_ * 1664525 + 1013904223;
    return static_cast<double>(state_) / 2147483648.0 - 1;
  }

 private:
  std::uint32_t state_;
};

inline Samples made(std::size_t count, const std::function<double(std::size_t)>& sample) {
  Samples result(count);
  for (std::size_t i = 0; i < count; ++i)
    result[i] = static_cast<float>(sample(i));
  return result;
}

inline double oscillation(double frequency, std::size_t i) {
  return std::sin(2 * std::numbers::pi * frequency * static_cast<double>(i) / sampleRate);
}

inline Samples tone(std::size_t count, double frequency, double amplitude) {
  return made(count, [&](std::size_t i) { return amplitude * oscillation(frequency, i); });
}

inline Samples noise(std::size_t count, double amplitude, std::uint32_t seed = 1) {
  Noise source(seed);
  return made(count, [&](std::size_t) { return amplitude * source.next(); });
}

inline Samples sum(const Samples& a, const Samples& b) {
  Samples result(a);
  for (std::size_t i = 0; i < result.size(); ++i)
    result[i] += b[i];
  return result;
}

// A quarter of a second of harmonics that swell and fade, then as long a pause.
inline Samples syllables(std::size_t count, double amplitude) {
  return made(count, [&](std::size_t i) {
    const double loudness = std::max(0.0, oscillation(2, i));
    double value = 0;
    for (int harmonic = 1; harmonic <= 10; ++harmonic)
      value += oscillation(140.0 * harmonic, i) / harmonic;
    return amplitude * loudness * loudness * value;
  });
}

// Syllables over the hum of the mains and the hiss of a room.
inline Samples speech(std::size_t count) {
  return sum(syllables(count, 0.15), sum(noise(count, 0.004), tone(count, 50, 0.003)));
}

inline double rmsOf(std::span<const float> samples) {
  double squares = 0;
  for (const float sample : samples)
    squares += static_cast<double>(sample) * sample;
  return std::sqrt(squares / static_cast<double>(samples.size()));
}

// The chain again.
class Reference {
 public:
  using Spectrum = std::vector<std::complex<double>>;

  static constexpr std::size_t size = 1024;
  static constexpr std::size_t hop = 512;

  static double window(std::size_t i) {
    return std::sqrt(0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(i) / size));
  }

  // The sum over i of x[i] times e to the power sign 2 pi j i k / 1024.
  static Spectrum transformed(const Spectrum& x, int sign) {
    std::array<double, size> cosines;
    std::array<double, size> sines;
    for (std::size_t i = 0; i < size; ++i) {
      const double angle = sign * 2 * std::numbers::pi * static_cast<double>(i) / size;
      cosines[i] = std::cos(angle);
      sines[i] = std::sin(angle);
    }
    Spectrum result(size);
    for (std::size_t k = 0; k < size; ++k) {
      double real = 0;
      double imaginary = 0;
      std::size_t turn = 0; // i k, of which whole turns do not matter
      for (std::size_t i = 0; i < size; ++i) {
        real += x[i].real() * cosines[turn] - x[i].imag() * sines[turn];
        imaginary += x[i].real() * sines[turn] + x[i].imag() * cosines[turn];
        turn = (turn + k) % size;
      }
      result[k] = {real, imaginary};
    }
    return result;
  }

  // The 1024 samples that end with a block; what lies before the beginning is silent.
  static std::vector<double> around(const Samples& samples, std::size_t block) {
    std::vector<double> result(size);
    for (std::size_t i = 0; i < size; ++i)
      if (const std::size_t place = block * hop + i; place >= hop)
        result[i] = samples[place - hop];
    return result;
  }

  static Spectrum analysed(const std::vector<double>& block) {
    Spectrum weighed(size);
    for (std::size_t i = 0; i < size; ++i)
      weighed[i] = block[i] * window(i);
    return transformed(weighed, -1);
  }

  static double rms(const std::vector<double>& block) {
    double squares = 0;
    for (const double sample : block)
      squares += sample * sample;
    return std::sqrt(squares / static_cast<double>(block.size()));
  }

  // The mean power of the quietest tenth of the blocks, those of a bucket all alike.
  static std::vector<double> noise(const Samples& samples) {
    std::array<std::vector<std::vector<double>>, 64> buckets;
    const std::size_t count = samples.size() / hop;
    for (std::size_t block = 0; block < count; ++block) {
      const std::vector<double> around = Reference::around(samples, block);
      const double decibels = 20 * std::log10(std::max(rms(around), 0.00001));
      const double level = std::clamp((decibels + 100) * 0.63, 0.0, 63.0);
      std::vector<double> powers;
      powers.reserve(size);
      for (const std::complex<double>& bin : analysed(around))
        powers.push_back(std::norm(bin));
      buckets[static_cast<std::size_t>(level)].push_back(std::move(powers));
    }
    const double wanted = std::max(1.0, std::ceil(static_cast<double>(count) / 10));
    std::vector<double> result(size);
    double used = 0;
    for (const auto& bucket : buckets) {
      const auto held = static_cast<double>(bucket.size());
      const double taken = std::min(wanted - used, held);
      for (const std::vector<double>& powers : bucket)
        for (std::size_t k = 0; k < size; ++k)
          result[k] += powers[k] * taken / held / wanted;
      used += taken;
    }
    return result;
  }

  // Whole blocks through the second pass.
  static std::vector<double> processed(const Samples& samples, std::span<const float> noise,
                                       double strength) {
    std::vector<double> mask(size, 1.0);
    std::vector<double> tail(hop);
    double filterIn = 0;
    double filterOut = 0;
    double gain = 1;
    std::vector<double> result;
    result.reserve(samples.size());
    for (std::size_t block = 0; block < samples.size() / hop; ++block) {
      Spectrum bins = analysed(around(samples, block));
      for (std::size_t k = 0; k < size; ++k) {
        const double power = std::max(std::norm(bins[k]), 1e-8);
        const double open = std::sqrt(std::max(1 - 1.5 * strength * noise[k] / power, 0.0));
        mask[k] = std::max(open, 1 - 0.88 * strength) * 0.35 + mask[k] * 0.65;
        bins[k] *= mask[k];
      }
      const Spectrum back = transformed(bins, 1);
      std::vector<double> out(hop);
      for (std::size_t i = 0; i < hop; ++i) {
        const double x = back[i].real() * window(i) / size + tail[i];
        tail[i] = back[i + hop].real() * window(i + hop) / size;
        filterOut = 0.9896 * (filterOut + x - filterIn);
        filterIn = x;
        out[i] = (1 - strength) * x + strength * filterOut;
      }
      const double level = rms(out);
      const double wanted = level > 0.012 ? std::clamp(0.12 / level, 0.25, 3.0) : std::min(gain, 1.0);
      const double target = 1 + strength * (wanted - 1);
      const double rate = target < gain ? 0.0021 : 0.00014;
      for (const double x : out) {
        gain += rate * (target - gain);
        result.push_back(std::clamp(gain * x, -0.8913, 0.8913));
      }
    }
    return result;
  }
};

} // namespace tessarin::narrationTesting
