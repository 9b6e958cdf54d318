#include "narration/NarrationTransform.hpp"

#include <cmath>
#include <numbers>

namespace tessarin {

namespace {

// Four numbers, a quarter of the whole apart, combined without a factor.
struct Butterfly {
  std::array<float, 4> real;
  std::array<float, 4> imaginary;
};

// The distance between the four is that of every pass.
[[gnu::always_inline]] inline Butterfly combined(const float* real, const float* imaginary) {
  constexpr std::size_t quarter = narrationSpectrumSize / 4;
  const float evenReal = real[0] + real[2 * quarter];
  const float evenImaginary = imaginary[0] + imaginary[2 * quarter];
  const float evenRealLess = real[0] - real[2 * quarter];
  const float evenImaginaryLess = imaginary[0] - imaginary[2 * quarter];
  const float oddReal = real[quarter] + real[3 * quarter];
  const float oddImaginary = imaginary[quarter] + imaginary[3 * quarter];
  const float oddRealLess = real[quarter] - real[3 * quarter];
  const float oddImaginaryLess = imaginary[quarter] - imaginary[3 * quarter];
  return {{evenReal + oddReal, evenRealLess + oddImaginaryLess, evenReal - oddReal,
           evenRealLess - oddImaginaryLess},
          {evenImaginary + oddImaginary, evenImaginaryLess - oddRealLess, evenImaginary - oddImaginary,
           evenImaginaryLess + oddRealLess}};
}

// So many times four numbers from the next ones, weighed with the same factors each.
template<std::size_t stride>
void combineGroup(std::array<float, 3> cosine, std::array<float, 3> sine, const float* __restrict fromReal,
                  const float* __restrict fromImaginary, float* __restrict toReal,
                  float* __restrict toImaginary) {
  for (std::size_t i = 0; i < stride; ++i) {
    const Butterfly it = combined(fromReal + i, fromImaginary + i);
    toReal[i] = it.real[0];
    toImaginary[i] = it.imaginary[0];
    toReal[i + stride] = it.real[1] * cosine[0] - it.imaginary[1] * sine[0];
    toImaginary[i + stride] = it.real[1] * sine[0] + it.imaginary[1] * cosine[0];
    toReal[i + 2 * stride] = it.real[2] * cosine[1] - it.imaginary[2] * sine[1];
    toImaginary[i + 2 * stride] = it.real[2] * sine[1] + it.imaginary[2] * cosine[1];
    toReal[i + 3 * stride] = it.real[3] * cosine[2] - it.imaginary[3] * sine[2];
    toImaginary[i + 3 * stride] = it.real[3] * sine[2] + it.imaginary[3] * cosine[2];
  }
}

} // namespace

NarrationTransform::NarrationTransform() {
  for (std::size_t power = 0; power < cosines_.size(); ++power)
    for (std::size_t i = 0; i < quarter; ++i) {
      const double angle =
          -2 * std::numbers::pi * static_cast<double>((power + 1) * i) / narrationSpectrumSize;
      cosines_[power][i] = static_cast<float>(std::cos(angle));
      sines_[power][i] = static_cast<float>(std::sin(angle));
    }
}

// What the other passes do with a stride of 1, with another loop inside: every four results have factors of
// their own.
void NarrationTransform::firstPass(Split from, Split to) const {
  const float* __restrict fromReal = from.real;
  const float* __restrict fromImaginary = from.imaginary;
  float* __restrict toReal = to.real;
  float* __restrict toImaginary = to.imaginary;
  for (std::size_t i = 0; i < quarter; ++i) {
    const Butterfly it = combined(fromReal + i, fromImaginary + i);
    toReal[4 * i] = it.real[0];
    toImaginary[4 * i] = it.imaginary[0];
    toReal[4 * i + 1] = it.real[1] * cosines_[0][i] - it.imaginary[1] * sines_[0][i];
    toImaginary[4 * i + 1] = it.real[1] * sines_[0][i] + it.imaginary[1] * cosines_[0][i];
    toReal[4 * i + 2] = it.real[2] * cosines_[1][i] - it.imaginary[2] * sines_[1][i];
    toImaginary[4 * i + 2] = it.real[2] * sines_[1][i] + it.imaginary[2] * cosines_[1][i];
    toReal[4 * i + 3] = it.real[3] * cosines_[2][i] - it.imaginary[3] * sines_[2][i];
    toImaginary[4 * i + 3] = it.real[3] * sines_[2][i] + it.imaginary[3] * cosines_[2][i];
  }
}

// Transforms of length 4 over `stride` interleaved sequences; groups of as many neighbours share their
// factors.
template<std::size_t stride> void NarrationTransform::pass(Split from, Split to) const {
  for (std::size_t group = 0; group < quarter; group += stride)
    combineGroup<stride>({cosines_[0][group], cosines_[1][group], cosines_[2][group]},
                         {sines_[0][group], sines_[1][group], sines_[2][group]}, from.real + group,
                         from.imaginary + group, to.real + 4 * group, to.imaginary + 4 * group);
}

void NarrationTransform::run(Split bins, Split result) const {
  firstPass(bins, result);
  pass<4>(result, bins);
  pass<16>(bins, result);
  pass<64>(result, bins);
  pass<256>(bins, result);
}

void NarrationTransform::forward(NarrationBins& bins, NarrationBins& result) const {
  run({bins.real.data(), bins.imaginary.data()}, {result.real.data(), result.imaginary.data()});
}

// The same with both parts changing places.
void NarrationTransform::inverse(NarrationBins& bins, NarrationBins& result) const {
  run({bins.imaginary.data(), bins.real.data()}, {result.imaginary.data(), result.real.data()});
}

} // namespace tessarin
