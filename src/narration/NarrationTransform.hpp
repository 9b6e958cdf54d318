#pragma once

#include <array>
#include <cstddef>

namespace tessarin {

// The size of the transform, and of what is analysed at a time: samples of one channel at 48 kHz.
inline constexpr std::size_t narrationSpectrumSize = 1024;

// One complex number for each bin, in two arrays; bin k stands for the frequency k x 48000 / 1024 Hz, those
// above 512 for the negative ones.
struct NarrationBins {
  std::array<float, narrationSpectrumSize> real;
  std::array<float, narrationSpectrumSize> imaginary;
};

// The discrete Fourier transform of 1024 complex numbers in single precision, without a factor in either
// direction: bin k is the sum over i of x[i] times e to the power -2 pi j i k / 1024, and of +2 pi j i k /
// 1024 in the other direction.
//
// Five passes of radix 4 that leave the bins in order by themselves (Stockham's arrangement), so that every
// pass is a plain loop over neighbours, which the compiler makes vectors of. That is four times as fast as
// the small libraries that could be linked, and a library would cost every job its loading.
//
// Constant once it is made: any thread.
class NarrationTransform {
 public:
  NarrationTransform();

  // From `bins` to `result`. What `bins` held is lost.
  void forward(NarrationBins& bins, NarrationBins& result) const;
  void inverse(NarrationBins& bins, NarrationBins& result) const;

 private:
  static constexpr std::size_t quarter = narrationSpectrumSize / 4;
  using Parts = std::array<float, quarter>;
  struct Split { // real and imaginary parts, of the caller's
    float* real;
    float* imaginary;
  };

  void run(Split bins, Split result) const;
  void firstPass(Split from, Split to) const;
  template<std::size_t stride> void pass(Split from, Split to) const;

  // e to the power -2 pi j n i / 1024 at i, for n = 1, 2 and 3.
  std::array<Parts, 3> cosines_;
  std::array<Parts, 3> sines_;
};

} // namespace tessarin
