#include "pixels/Kernels.hpp"

#include "pixels/KernelsDetail.hpp"

#include <vector>

namespace tessarin::pixels {

extern const Kernels sse2Kernels;
extern const Kernels avx2Kernels;

namespace {

void combineRows(const std::uint8_t* const* rows, const std::int16_t* weights, std::size_t count,
                 std::size_t bytes, std::int16_t* combined) {
  combineRowsPlain(rows, weights, count, 0, bytes, combined);
}

void resampleRow(const std::int16_t* combined, const ScaleTaps& taps, std::uint8_t* target) {
  resamplePixelsPlain(combined, taps, 0, taps.first.size(), target);
}

void blendRow(const std::uint8_t* source, std::uint8_t* target, std::size_t pixels, bool keepsFourth) {
  blendPixelsPlain(source, target, 0, pixels, keepsFourth);
}

void maskRow(std::uint8_t* row, const std::uint8_t* weights, const std::uint8_t* whites, std::size_t pixels,
             bool isOpaque) {
  maskPixelsPlain(row, weights, whites, 0, pixels, isOpaque);
}

std::vector<Kernels> findKernels() {
  std::vector<Kernels> found{{"plain", convertRowsPlain, combineRows, resampleRow, blendRow, maskRow}};
#if defined(__x86_64__)
  found.push_back(sse2Kernels);
  if (__builtin_cpu_supports("avx2"))
    found.push_back(avx2Kernels);
#endif
  return found;
}

} // namespace

std::span<const Kernels> availableKernels() {
  static const std::vector<Kernels> found = findKernels();
  return found;
}

const Kernels& kernels() {
  return availableKernels().back();
}

} // namespace tessarin::pixels
